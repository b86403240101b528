"""The simulated Cardputer, in a /dev that contains no real device."""

from __future__ import annotations

import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

from support.built import ROOT
from support.child import PYTHON
from support.waiting import wait_until

PRIVATE_DEV = ROOT / "tests/device/private-dev"
PORT, OTHER_PORT = Path("/dev/cu.usbmodem101"), Path("/dev/cu.usbmodem102")
FLASH_SIZE = 8 * 1024 * 1024
UNPLUGGED_WORDS = "A serial exception error occurred: Could not configure port: (5, 'Input/output error')"


def is_in_private_dev() -> bool:
    return any(line.startswith("private-dev /dev ") for line in Path("/proc/self/mounts").read_text().splitlines())


def require_private_dev() -> None:
    if not is_in_private_dev():
        sys.exit(f"run it with {PRIVATE_DEV}")


def main() -> None:
    """Runs the tests of the calling script with a private /dev."""
    if not is_in_private_dev():
        os.execv(PRIVATE_DEV, ["private-dev", "--", PYTHON, "-B", *sys.argv])
    unittest.main()


class SimulatedDevice:
    """Use it in a with statement."""

    def __init__(self, folder: Path, *options: object, port: Path = PORT) -> None:
        self.dump, self.events, self._port = folder / "device-flash.bin", folder / "device-events.txt", port
        for left_by_another in (self.dump, self.events):
            left_by_another.unlink(missing_ok=True)
        self.process = subprocess.Popen(
            [PYTHON, "-B", ROOT / "tests/device/simulated_cardputer.py", "--port", port, "--flash-dump", self.dump,
             "--event-log", self.events, *map(str, options)])

    def __enter__(self) -> SimulatedDevice:
        wait_until(lambda: self._port.exists() or self.process.poll() is not None, "a ready device")
        return self

    def __exit__(self, *_: object) -> None:
        self.process.terminate()
        self.process.wait()

    def event_lines(self) -> list[str]:
        return self.events.read_text().splitlines() if self.events.exists() else []

    def wait_for(self, event: str) -> None:
        wait_until(lambda: event in self.event_lines(), f"the device's event {event!r}")

    def holds(self, content: bytes) -> bool:
        """Whether the flash, as the last session left it, begins with this content and is erased after it."""
        return self.dump.exists() and self.dump.read_bytes() == content.ljust(FLASH_SIZE, b"\xff")


class DeviceTest(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))

    def device(self, *options: object) -> SimulatedDevice:
        return self.enterContext(SimulatedDevice(self.folder, *options))
