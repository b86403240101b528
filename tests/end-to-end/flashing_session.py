"""What end-to-end tests share: a bundle with the sample release, the real tool, a simulated device and the window."""

from __future__ import annotations

import shutil
import subprocess
import unittest
from pathlib import Path
from typing import Callable, Sequence

from support.built import BUILD, BUNDLE, PROGRAM, SAMPLE_IMAGE
from support.device import PORT, SimulatedDevice, require_private_dev
from support.flasher_window import FlasherWindow
from support.real_tool import home_with_the_tool
from support.waiting import wait_until

IMAGE = SAMPLE_IMAGE.read_bytes()
SLOW = ("--bytes-per-second", "400000")

FLASH = "FLASH VERIFIED SAMPLE (NOT FIRMWARE)"
CONFIRM = "ERASE + FLASH"
START = f"\nStarting verified full-image flash on {PORT}…\n"
COMPLETE, FAILED = "FLASH COMPLETE", "FLASH FAILED"
COMPLETE_LINE = "\nFLASH COMPLETE — verified and reset. SD card was not accessed.\n"
FAILED_LINE = "\nFLASH FAILED — keep USB connected, return to G0 boot mode, and retry.\n"
CONTROLS = (("push button", FLASH), ("push button", "REFRESH BUILD"), ("combo box", None))


class SessionTest(unittest.TestCase):
    def setUp(self) -> None:
        require_private_dev()
        self.home = home_with_the_tool()
        # The output of the device and the program stays there after the run.
        self.folder = BUILD / "end-to-end" / self._testMethodName
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)

    def plugged_in(self, *options: str, port: Path = PORT) -> SimulatedDevice:
        return SimulatedDevice(self.folder, *options, port=port)

    def window(self, prefix: Sequence[str | Path] = ()) -> FlasherWindow:
        return FlasherWindow(BUNDLE / PROGRAM, self.home, self.folder / "streams.txt", prefix)

    def start_flash(self, window, start: str = START, press: Callable[[str], None] | None = None) -> None:
        jobs = window.log().count(start)
        (press or window.press)(FLASH)
        window.answer(CONFIRM, press)
        wait_until(lambda: window.log().count(start) > jobs, "the start line")

    def expect_complete(self, window, device, press: Callable[[str], None] | None = None) -> None:
        wait_until(lambda: window.status() in (COMPLETE, FAILED), "the end of the job")
        self.assertEqual(window.status(), COMPLETE, window.log())
        self.expect_alert(window, "QELMO Varnox is installed", "0.0.0-sample was written and verified. If the "
                          "Cardputer remains in boot mode, power-cycle it normally without holding G0.")
        window.answer("Done", press)
        self.assertTrue(window.log().endswith(COMPLETE_LINE), window.log()[-400:])
        self.assert_controls_are_back(window)
        self.assertTrue(device.holds(IMAGE), "the device's flash is the image, byte for byte")

    def expect_failed(self, window, last_words: str) -> None:
        wait_until(lambda: window.status() in (COMPLETE, FAILED), "the end of the job")
        wait_until(lambda: window.log().endswith(FAILED_LINE), "the failure line")
        self.assertIn(last_words, window.log().rpartition(START)[2])
        self.assertNotIn(COMPLETE_LINE, window.log())
        self.assertEqual(window.alert_texts(), [])
        self.assert_controls_are_back(window)

    def expect_alert(self, window, *texts: str) -> None:
        wait_until(lambda: window.alert_texts()[:1] == [texts[0]], f"the alert {texts[0]!r}")
        wait_until(lambda: len(window.alert_texts()) >= 2, "the alert's second text")
        self.assertEqual(window.alert_texts()[:2], list(texts))

    def assert_controls_are_back(self, window) -> None:
        for role, name in CONTROLS:
            self.assertTrue(window.is_enabled(role, name), role)

    def tool_process(self, window) -> int:
        found = subprocess.run(["pgrep", "-P", str(window.process.pid), "-f", "esptool.py"], capture_output=True,
                               text=True).stdout.split()
        self.assertEqual(len(found), 1, "one tool")
        return int(found[0])
