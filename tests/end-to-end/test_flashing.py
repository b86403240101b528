"""The whole way: the real window, the real flashing tool, a simulated device. Nothing else is simulated."""

from __future__ import annotations

import json
import os
import shutil
import signal
import subprocess
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from flashing_session import CONFIRM, CONTROLS, FLASH, IMAGE, SLOW, START, SessionTest, pack  # noqa: E402
from support.built import BUNDLE, MANIFEST, PROGRAM  # noqa: E402
from support.device import OTHER_PORT, PORT, UNPLUGGED_WORDS  # noqa: E402
from support.flasher_window import FlasherWindow  # noqa: E402
from support.real_tool import NO_PORT, VERIFIES_TWICE, load_tests, of_the_tool  # noqa: E402, F401
from support.waiting import wait_until  # noqa: E402

START_ON_OTHER_PORT = START.replace(str(PORT), str(OTHER_PORT))


class FlashingTest(SessionTest):
    def test_a_flash_erases_writes_and_verifies_the_whole_image(self) -> None:
        with self.plugged_in() as device, self.window() as window:
            self.assertEqual(window.status(), "READY")
            self.assertEqual(window.selected_port(), str(PORT))
            window.press(FLASH)
            self.expect_alert(window, "Erase internal flash and install 0.0.0-sample?",
                              f"Device: {PORT}\n\nThis erases the Cardputer ADV internal 8 MB flash, writes the "
                              "complete verified image at 0x0, verifies it, and resets the device. The SD card is not "
                              "mounted or accessed.")
            window.answer(CONFIRM)
            window.wait_for_log(START)
            self.expect_complete(window, device)
            self.assertIn("erase", device.event_lines())
            for words in ("Chip erase completed successfully", "Hash of data verified."):
                self.assertIn(words, window.log())

    def test_a_read_only_bundle_in_a_folder_of_any_name_flashes_through_a_link(self) -> None:
        bundle = self.folder / os.fsdecode("dür with späces and ".encode() + b"\xff") / BUNDLE.name
        shutil.copytree(BUNDLE, bundle, symlinks=True)
        self.addCleanup(shutil.rmtree, bundle.parent)
        subprocess.run(["mount", "--bind", bundle, bundle], check=True)
        self.addCleanup(subprocess.run, ["umount", bundle], check=True)
        subprocess.run(["mount", "-o", "remount,bind,ro", bundle], check=True)
        link = self.folder / "link to the program"
        link.symlink_to(bundle / PROGRAM)
        with self.plugged_in() as device, FlasherWindow(link, self.home, self.folder / "streams.txt") as window:
            self.start_flash(window)
            self.expect_complete(window, device)
            self.assertEqual("dür with späces and \ufffd" in window.log(), of_the_tool(VERIFIES_TWICE))

    # fault: the device is unplugged during the write, and gets another name when it is plugged in again
    # seen: "FLASH FAILED", "A serial exception error occurred", "Could not open", "the port is busy or doesn't exist."
    def test_a_device_that_comes_back_under_another_name_needs_a_refresh(self) -> None:
        with self.plugged_in("--fault", "unplugged@50") as device:
            window = self.enterContext(self.window())
            self.start_flash(window)
            self.expect_failed(window, UNPLUGGED_WORDS)
            device.wait_for("closed")
            self.assertFalse(device.holds(IMAGE))
        with self.plugged_in("--port", str(OTHER_PORT)) as device:
            self.start_flash(window)
            self.expect_failed(window, of_the_tool(NO_PORT).format(PORT))
            self.assertEqual(window.selected_port(), str(PORT))
            self.assertEqual(device.event_lines(), [])
            window.press("REFRESH BUILD")
            wait_until(lambda: window.selected_port() == str(OTHER_PORT), "the new name")
            self.start_flash(window, START_ON_OTHER_PORT)
            self.expect_complete(window, device)

    # fault: the flashing tool is killed during the write
    # seen: "FLASH FAILED"
    def test_a_tool_that_is_killed_fails_and_a_second_try_succeeds(self) -> None:
        with self.plugged_in(*SLOW) as device, self.window() as window:
            self.start_flash(window)
            window.wait_for_log("Writing at")
            tool = self.tool_process(window)
            os.kill(tool, signal.SIGSTOP)  # the looks at the window take their time
            self.assertEqual(window.status(), "FLASHING — DO NOT DISCONNECT")
            for role, name in CONTROLS:
                self.assertFalse(window.is_enabled(role, name), role)
            os.kill(tool, signal.SIGKILL)
            self.expect_failed(window, "Writing at")
            self.start_flash(window)
            self.expect_complete(window, device)

    # fault: the image changes, or the release is replaced, between validation and press
    # seen: "QELMO Flasher stopped", "The embedded firmware checksum is not trusted.", "The embedded release changed
    #     after validation."
    def test_a_release_that_changed_after_validation_is_not_flashed(self) -> None:
        image = self.folder / "other.bin"
        image.write_bytes(IMAGE[:-1] + bytes([IMAGE[-1] ^ 1]))
        with self.plugged_in() as device, self.window() as window:
            pack(self.bundle, image, "--name", "Other", "--version", "9.9.9")
            window.press(FLASH)
            self.expect_stopped(window, "The embedded release changed after validation.", "READY")
            manifest = self.bundle / MANIFEST
            manifest.with_name(json.loads(manifest.read_text())["binary"]["path"]).write_bytes(IMAGE)
            window.press(FLASH)
            self.expect_stopped(window, "The embedded firmware checksum is not trusted.", "READY")
            self.assertEqual(device.event_lines(), [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
