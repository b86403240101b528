"""Which version of the flashing tool the tests have, and what its versions say and do differently."""

from __future__ import annotations

import os
import re
import sys
import unittest
from pathlib import Path

CANNOT_RUN_HERE = 77
VERSION = re.compile(r'^__version__ = "(\d+)\.(\d+)', re.MULTILINE)

# Each with the first version that says or does it, oldest first.
OTHER_CHIP = {(4, 0): "This chip is ESP32-C3 not ESP32-S3. Wrong --chip argument?",
              (4, 9): "This chip is ESP32-C3, not ESP32-S3. Wrong --chip argument?"}
NO_PORT = {(4, 0): "Could not open {}, the port doesn't exist",
           (4, 7): "Could not open {}, the port is busy or doesn't exist."}
MODULES = {(4, 0): ["serial"], (4, 7): ["serial", "intelhex"], (5, 0): ["rich_click"]}
LOCKS_THE_PORT = {(4, 0): False, (4, 8): True}
VERIFIES_TWICE = {(4, 0): True, (4, 9): False}  # with --verify, and names the image the second time
RECONNECTS = {(4, 0): False, (4, 8): True}  # when the device is unplugged while it is written


def version_in(folder: str | Path) -> tuple[int, int]:
    """Of the tool whose package is in this folder."""
    major, minor = VERSION.search(Path(folder, "esptool/__init__.py").read_text()).groups()
    return int(major), int(minor)


def installed_version(home: str | Path) -> tuple[int, int]:
    return version_in(Path(home, ".platformio/packages/tool-esptoolpy"))


def of_tool(home: str | Path, values: dict):
    """What the tool in this home says or does."""
    version = installed_version(home)
    return next(value for first, value in reversed(values.items()) if first <= version)


def load_tests(_loader, tests, _pattern) -> unittest.TestSuite:
    """What a script runs that imports this. Version 5 refuses every job, so only the tests with version_5 in their names
    run with it, and they run with no other version."""
    folder = os.environ.get("QELMO_ESPTOOL")
    is_5 = bool(folder) and version_in(folder)[0] == 5
    chosen = [test for of_a_class in tests for test in of_a_class if ("version_5" in test.id()) == is_5]
    if not chosen:
        print("no test here is for a tool of version 5")
        sys.exit(CANNOT_RUN_HERE)
    return unittest.TestSuite(chosen)
