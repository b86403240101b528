"""The parts of tools/device-report. Python 3.9 and its standard library, for the interpreter that macOS has."""
