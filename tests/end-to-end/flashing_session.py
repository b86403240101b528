"""What one end-to-end run needs beside the window: a bundle, a home with the real tool, a simulated device."""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from typing import Callable, Sequence

from flasher_window import FlasherWindow, wait_until

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/device"))
from esptool_versions import load_tests, of_tool  # noqa: E402, F401

BUILD = Path(os.environ["QELMO_BUILD"])
BUNDLE = Path(os.environ["QELMO_BUNDLE"])
PROGRAM = "Contents/MacOS/QelmoFlasher"
PORT = Path("/dev/cu.usbmodem101")
OTHER_PORT = Path("/dev/cu.usbmodem102")
FLASH_SIZE = 8 * 1024 * 1024

MANIFEST = "qelmo-varnox-flash-manifest.json"
SAMPLE_IMAGE = BUILD / "sample/sample-firmware.bin"

FLASH = "FLASH VERIFIED SAMPLE (NOT FIRMWARE)"
CONFIRM = "ERASE + FLASH"
START = f"\nStarting verified full-image flash on {PORT}…\n"
COMPLETE_LINE = "\nFLASH COMPLETE — verified and reset. SD card was not accessed.\n"
CONTROLS = (("push button", FLASH), ("push button", "REFRESH BUILD"), ("combo box", None))


def require_private_dev() -> None:
    """A real port must never be seen, so the runs happen where the test harness made /dev."""
    subprocess.run([ROOT / "tests/device/private-dev", "--check"], check=True)


def install_tool(home: Path) -> None:
    """Puts the real, unmodified flashing tool where PlatformIO would have it."""
    subprocess.run([ROOT / "tests/device/install-esptool", "--cache", BUILD / "esptool-cache", home], check=True,
                   stdout=subprocess.DEVNULL)


def pack(bundle: Path, image: Path, *options: str) -> None:
    """Replaces the release of a bundle as a release maker does."""
    subprocess.run([BUILD / "tools/pack-release", "--bundle", bundle, "--image", image, *options], check=True,
                   stdout=subprocess.DEVNULL)


class SimulatedDevice:
    """The simulated Cardputer at PORT, or at the port of the last option `--port`. Use it in a with statement."""

    def __init__(self, folder: Path, *options: str) -> None:
        self.flash = folder / "device-flash.bin"
        self.events = folder / "device-events.txt"
        self._ready = folder / "device-ready"
        for left_by_another in (self.flash, self.events, self._ready):
            left_by_another.unlink(missing_ok=True)
        self.process = subprocess.Popen(
            [ROOT / "tests/device/simulated_cardputer.py", "--port", PORT, "--flash-dump", self.flash,
             "--event-log", self.events, "--ready-file", self._ready, *options])

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

    def holds(self, image: Path) -> bool:
        """Whether the whole flash, as the last session left it, is the image and erased behind it."""
        return self.flash.exists() and self.flash.read_bytes() == image.read_bytes().ljust(FLASH_SIZE, b"\xff")


class FlashingSession:
    """A folder with a bundle of its own, so that a test may change the release."""

    def __init__(self, folder: Path, home: Path) -> None:
        self.folder = folder
        self.home = home
        self.bundle = folder / BUNDLE.name
        shutil.copytree(BUNDLE, self.bundle, symlinks=True)

    def manifest(self) -> Path:
        return self.bundle / "Contents/Resources" / MANIFEST

    def device(self, *options: str) -> SimulatedDevice:
        return SimulatedDevice(self.folder, *options)

    def window(self, prefix: Sequence[str | Path] = ()) -> FlasherWindow:
        return FlasherWindow(self.bundle / PROGRAM, self.home, self.folder / "streams.txt", prefix)


class SessionTest(unittest.TestCase):
    """Tests with one home, and a session of its own for each."""

    @classmethod
    def setUpClass(cls) -> None:
        require_private_dev()
        cls.homes = tempfile.TemporaryDirectory()
        cls.home = Path(cls.homes.name)
        install_tool(cls.home)

    @classmethod
    def tearDownClass(cls) -> None:
        cls.homes.cleanup()

    def of_the_tool(self, values: dict):
        return of_tool(self.home, values)

    def setUp(self) -> None:
        # What the device and the program said stays there after the run; the bundle does not.
        self.folder = BUILD / "end-to-end" / self._testMethodName
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        self.session = FlashingSession(self.folder, self.home)
        self.addCleanup(shutil.rmtree, self.session.bundle)


class JobTest(SessionTest):
    """Tests of flash jobs: the steps that they share."""

    def start_flash(self, window, start: str = START, press: Callable[[str], None] | None = None) -> None:
        jobs = window.log().count(start)
        (press or window.press)(FLASH)
        window.answer(CONFIRM, press)
        wait_until(lambda: window.log().count(start) > jobs, "the start line")

    def expect_complete(self, window, press: Callable[[str], None] | None = None) -> None:
        wait_until(lambda: window.status() in ("FLASH COMPLETE", "FLASH FAILED"), "the end of the job")
        self.assertEqual(window.status(), "FLASH COMPLETE", window.log())
        wait_until(lambda: len(window.alert_texts()) >= 2, "the success alert")
        self.assertEqual(window.alert_texts()[:2], [
            "QELMO Varnox is installed",
            "0.0.0-sample was written and verified. If the Cardputer remains in boot mode, power-cycle it "
            "normally without holding G0."])
        window.answer("Done", press)
        self.assertTrue(window.log().endswith(COMPLETE_LINE), window.log()[-400:])
        self.assert_controls_are_back(window)

    def assert_controls_are_back(self, window) -> None:
        for role, name in CONTROLS:
            self.assertTrue(window.is_enabled(role, name), role)

    def tool_process(self, window) -> int:
        found = subprocess.run(["pgrep", "-P", str(window.process.pid), "-f", "esptool.py"], capture_output=True,
                               text=True).stdout.split()
        self.assertEqual(len(found), 1, "one tool")
        return int(found[0])
