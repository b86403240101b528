"""Which version of the flashing tool the tests have, and what its versions say and do differently."""

from __future__ import annotations

import re
from pathlib import Path

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
