"""The simulated Cardputer, in a /dev where no real one can be seen."""

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


def require_private_dev() -> None:
    subprocess.run([PRIVATE_DEV, "--check"], check=True)


def main() -> None:
    """Runs the tests of the calling script, in a /dev of their own."""
    if "INSIDE_PRIVATE_DEV" not in os.environ:
        os.environ["INSIDE_PRIVATE_DEV"] = "yes"
        os.execv(PRIVATE_DEV, ["private-dev", "--", PYTHON, "-B", *sys.argv])
    unittest.main()


class SimulatedDevice:
    """The device at PORT, or at the port of the last option `--port`. Use it in a with statement."""

    def __init__(self, folder: Path, *options: object) -> None:
        self.dump, self.events, ready = (folder / f"device-{name}" for name in ("flash.bin", "events.txt", "ready"))
        for left_by_another in (self.dump, self.events, ready):
            left_by_another.unlink(missing_ok=True)
        self._ready = ready
        self.process = subprocess.Popen(
            [PYTHON, "-B", ROOT / "tests/device/simulated_cardputer.py", "--port", PORT, "--flash-dump", self.dump,
             "--event-log", self.events, "--ready-file", ready, *map(str, options)])

    def __enter__(self) -> SimulatedDevice:
        wait_until(lambda: self._ready.exists() or self.process.poll() is not None, "a ready device")
        if self.process.poll() is not None:
            raise AssertionError("the simulated device did not start")
        return self

    def __exit__(self, *_: object) -> None:
        self.process.terminate()
        self.process.wait()

    def event_lines(self) -> list[str]:
        return self.events.read_text().splitlines() if self.events.exists() else []

    def wait_for(self, event: str) -> None:
        wait_until(lambda: event in self.event_lines(), f"the device's event {event!r}")

    def holds(self, content: bytes) -> bool:
        """Whether the whole flash, as the last session left it, begins with this and is erased after it."""
        return self.dump.exists() and self.dump.read_bytes() == content.ljust(FLASH_SIZE, b"\xff")


class DeviceTest(unittest.TestCase):
    """Tests with a folder, and with devices that are plugged in until a test ends."""

    def setUp(self) -> None:
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))

    def device(self, *options: object) -> SimulatedDevice:
        return self.enterContext(SimulatedDevice(self.folder, *options))
