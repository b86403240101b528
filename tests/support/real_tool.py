"""The real flashing tool in a home folder, and how its versions differ."""

from __future__ import annotations

import atexit
import os
import re
import subprocess
import sys
import tempfile
import unittest
from functools import cache
from pathlib import Path

from support.built import BUILD, ROOT, TOOL
from support.child import CANNOT_RUN_HERE

VERSION = re.compile(r'^__version__ = "(\d+)\.(\d+)', re.MULTILINE)

# Each value with the first version that has it, oldest first.
OTHER_CHIP = {(4, 0): "This chip is ESP32-C3 not ESP32-S3. Wrong --chip argument?",
              (4, 9): "This chip is ESP32-C3, not ESP32-S3. Wrong --chip argument?"}
NO_PORT = {(4, 0): "Could not open {}, the port doesn't exist",
           (4, 7): "Could not open {}, the port is busy or doesn't exist."}
MODULES = {(4, 0): ["serial"], (4, 7): ["serial", "intelhex"], (5, 0): ["rich_click"]}
LOCKS_THE_PORT = {(4, 0): False, (4, 8): True}
VERIFIES_TWICE = {(4, 0): True, (4, 9): False}  # with --verify; the second time it also prints the name of the image


def install_tool(home: Path) -> None:
    subprocess.run([ROOT / "tests/device/install-esptool", "--cache", BUILD / "esptool-cache", home], check=True,
                   stdout=subprocess.DEVNULL)


@cache
def home_with_the_tool() -> Path:
    """Made once per script, and removed when the script exits."""
    folder = tempfile.TemporaryDirectory()
    atexit.register(folder.cleanup)
    install_tool(Path(folder.name))
    return Path(folder.name)


def version_in(folder: str | Path) -> tuple[int, int]:
    major, minor = VERSION.search(Path(folder, "esptool/__init__.py").read_text()).groups()
    return int(major), int(minor)


def installed_version() -> tuple[int, int]:
    return version_in((home_with_the_tool() / TOOL).parent)


def of_the_tool(values: dict):
    """The value for the installed tool."""
    return next(value for first, value in reversed(values.items()) if first <= installed_version())


def load_tests(_loader, tests, _pattern) -> unittest.TestSuite:
    """unittest calls this for a script that imports it. Version 5 refuses every job. With version 5 only the tests with
    version_5 in their names run; with other versions only the rest run."""
    folder = os.environ.get("QELMO_ESPTOOL")
    is_5 = bool(folder) and version_in(folder)[0] == 5
    chosen = [test for of_a_class in tests for test in of_a_class if ("version_5" in test.id()) == is_5]
    if not chosen:
        print("no test in this script is for version 5 of the tool")
        sys.exit(CANNOT_RUN_HERE)
    return unittest.TestSuite(chosen)
