"""The whole way: the real window, the real flashing tool, a simulated device. Nothing else is simulated."""

from __future__ import annotations

import json
import os
import random
import shutil
import signal
import subprocess
import sys
import unittest
from pathlib import Path

import demo
from flasher_window import FlasherWindow, wait_until
from flashing_session import (COMPLETE_LINE, CONFIRM, CONTROLS, FLASH, OTHER_PORT, PORT, ROOT, SAMPLE_IMAGE, START,
                              FlashingSession, JobTest, load_tests, pack)  # noqa: F401
from esptool_versions import NO_PORT, OTHER_CHIP, VERIFIES_TWICE

sys.path.insert(0, str(ROOT / "tools"))
import esp_image  # noqa: E402

FAILED_LINE = "\nFLASH FAILED — keep USB connected, return to G0 boot mode, and retry.\n"
START_ON_OTHER_PORT = START.replace(str(PORT), str(OTHER_PORT))
UNPLUGGED_WORDS = "A serial exception error occurred: Could not configure port: (5, 'Input/output error')"
PERCENTAGES = (0, 1, 50, 99)


class FlashingTest(JobTest):
    # Steps ----

    def expect_failed(self, window, last_words: str) -> None:
        wait_until(lambda: window.status() in ("FLASH COMPLETE", "FLASH FAILED"), "the end of the job")
        self.assertEqual(window.status(), "FLASH FAILED", window.log())
        wait_until(lambda: window.log().endswith(FAILED_LINE), "the failure line")
        self.assertIn(last_words, window.log().rpartition(START)[2])
        self.assertNotIn(COMPLETE_LINE, window.log())
        self.assertEqual(window.alert_texts(), [])
        self.assert_controls_are_back(window)

    def pack_sample(self, image: Path, *options: str) -> None:
        pack(self.session.bundle, image, "--name", "Sample", "--version", "0.0.0-sample", "--confirmation",
             "FLASH SAMPLE (NOT FIRMWARE)", *options)

    def fail_once(self, window, device, fault: str, last_words: str, image: Path) -> None:
        self.start_flash(window)
        self.expect_failed(window, last_words)
        wait_until(lambda: "closed" in device.event_lines(), "the end of the tool's session")
        self.assertIn(f"fault {fault}", device.event_lines())
        self.assertFalse(device.holds(image), fault)

    def succeed(self, window, device, image: Path, start: str = START) -> None:
        self.start_flash(window, start)
        self.expect_complete(window)
        self.assertTrue(device.holds(image), "the device's flash is the image, byte for byte")

    def fail_then_succeed(self, fault: str, last_words: str) -> None:
        with self.session.device("--fault", fault, "--fault-once") as device, self.session.window() as window:
            self.fail_once(window, device, fault, last_words, SAMPLE_IMAGE)
            self.succeed(window, device, SAMPLE_IMAGE)

    def fail_at_each_percentage_then_succeed(self, kind: str, last_words: list[str]) -> None:
        """Plugs one device after the other in at the same port, before the same window."""
        image = self.folder / "small.bin"
        # Noise: for a block that unpacks to megabytes, the tool waits minutes before it gives up.
        noise = random.Random(20).randbytes(1 << 20)
        image.write_bytes(esp_image.small_image(noise))
        self.pack_sample(image)
        with self.session.device():
            window = self.enterContext(self.session.window())
        for percent, words in zip(PERCENTAGES, last_words, strict=True):
            fault = f"{kind}@{percent}"
            with self.session.device("--fault", fault) as device:
                self.fail_once(window, device, fault, words, image)
        with self.session.device() as device:
            self.succeed(window, device, image)

    def connect_once_only(self) -> None:
        """The tool's own seven attempts differ in nothing but the time that they take."""
        settings = self.home / "esptool.cfg"
        settings.write_text("[esptool]\nconnect_attempts = 1\n")
        self.addCleanup(settings.unlink)

    # The main job ----

    def test_a_flash_erases_writes_and_verifies_the_whole_image(self) -> None:
        with self.session.device() as device, self.session.window() as window:
            self.assertEqual(window.status(), "READY")
            self.assertEqual(window.selected_port(), str(PORT))
            window.press(FLASH)
            wait_until(lambda: len(window.alert_texts()) >= 2, "the confirmation")
            self.assertEqual(window.alert_texts()[:2], [
                "Erase internal flash and install 0.0.0-sample?",
                f"Device: {PORT}\n\nThis erases the Cardputer ADV internal 8 MB flash, writes the complete "
                "verified image at 0x0, verifies it, and resets the device. The SD card is not mounted or "
                "accessed."])
            window.answer(CONFIRM)
            wait_until(lambda: START in window.log(), "the start line")
            self.expect_complete(window)
            self.assertTrue(device.holds(SAMPLE_IMAGE), "the device's flash is the image, byte for byte")
            self.assertIn("erase", device.event_lines())
            self.assertIn("Chip erase completed successfully", window.log())
            self.assertIn("Hash of data verified.", window.log())

    def test_a_read_only_bundle_in_a_folder_of_any_name_flashes_through_a_link(self) -> None:
        folder = self.folder / os.fsdecode("dür with späces and ".encode() + b"\xff")
        folder.mkdir()
        session = FlashingSession(folder, self.home)
        self.addCleanup(shutil.rmtree, folder)
        subprocess.run(["mount", "--bind", session.bundle, session.bundle], check=True)
        self.addCleanup(subprocess.run, ["umount", session.bundle], check=True)
        subprocess.run(["mount", "-o", "remount,bind,ro", session.bundle], check=True)
        link = self.folder / "link to the program"
        link.symlink_to(session.bundle / "Contents/MacOS/QelmoFlasher")
        with self.session.device() as device, FlasherWindow(link, self.home, self.folder / "streams.txt") as window:
            self.start_flash(window)
            self.expect_complete(window)
            self.assertTrue(device.holds(SAMPLE_IMAGE))
            self.assertEqual("dür with späces and \ufffd" in window.log(), self.of_the_tool(VERIFIES_TWICE))

    def test_controls_are_disabled_while_the_tool_runs(self) -> None:
        with self.session.device("--bytes-per-second", "400000"), self.session.window() as window:
            self.start_flash(window)
            wait_until(lambda: "Writing at" in window.log(), "the first progress line")
            tool = self.tool_process(window)
            os.kill(tool, signal.SIGSTOP)  # the looks at the window take their time
            try:
                self.assertEqual(window.status(), "FLASHING — DO NOT DISCONNECT")
                for role, name in CONTROLS:
                    self.assertFalse(window.is_enabled(role, name), role)
            finally:
                os.kill(tool, signal.SIGCONT)
            self.expect_complete(window)

    # Every way in which a session with a device dies ----

    # fault: the device never answers
    # seen: "FLASH FAILED", "No serial data received."
    def test_a_device_that_never_answers_fails_and_a_second_try_succeeds(self) -> None:
        self.fail_then_succeed("never-answers", "No serial data received.")

    # fault: the device was not brought into its boot mode: it answers with garbage
    # seen: "FLASH FAILED", "Possible serial noise or corruption."
    def test_a_device_that_answers_garbage_fails_and_a_second_try_succeeds(self) -> None:
        self.connect_once_only()
        self.fail_then_succeed("garbage", "Invalid head of packet (0x49): Possible serial noise or corruption.")

    # fault: another chip is at the port
    # seen: "FLASH FAILED", "This chip is ESP32-C3 not ESP32-S3. Wrong --chip argument?"
    def test_another_chip_is_refused_and_a_second_try_succeeds(self) -> None:
        self.fail_then_succeed("other-chip", self.of_the_tool(OTHER_CHIP))

    # fault: the device is unplugged during the erase
    # seen: "FLASH FAILED", "A serial exception error occurred"
    def test_unplugging_during_the_erase_fails_and_a_second_try_succeeds(self) -> None:
        with self.session.device("--erase-seconds", "600") as device:
            window = self.enterContext(self.session.window())
            self.start_flash(window)
            wait_until(lambda: "erase" in device.event_lines(), "the erase")
        self.expect_failed(window, UNPLUGGED_WORDS)
        with self.session.device() as device:
            self.succeed(window, device, SAMPLE_IMAGE)

    # fault: the device is unplugged at 0, 1, 50 or 99 % of the write
    # seen: "FLASH FAILED", "A serial exception error occurred"
    def test_unplugging_fails_and_a_second_try_succeeds(self) -> None:
        self.fail_at_each_percentage_then_succeed("unplugged", 4 * [UNPLUGGED_WORDS])

    # fault: the device is unplugged, and gets another name when it is plugged in again
    # seen: "FLASH FAILED", "Could not open", "the port is busy or doesn't exist."
    def test_a_device_that_comes_back_under_another_name_needs_a_refresh(self) -> None:
        with self.session.device("--fault", "unplugged@1") as device:
            window = self.enterContext(self.session.window())
            self.fail_once(window, device, "unplugged@1", UNPLUGGED_WORDS, SAMPLE_IMAGE)
        with self.session.device("--port", str(OTHER_PORT)) as device:
            self.start_flash(window)
            self.expect_failed(window, self.of_the_tool(NO_PORT).format(PORT))
            self.assertEqual(window.selected_port(), str(PORT))
            self.assertEqual(device.event_lines(), [])
            window.press("REFRESH BUILD")
            wait_until(lambda: window.selected_port() == str(OTHER_PORT), "the new name")
            self.succeed(window, device, SAMPLE_IMAGE, START_ON_OTHER_PORT)

    # fault: one bit of the flash is wrong, at 0, 1, 50 or 99 % of the image
    # seen: "FLASH FAILED", "MD5 of file does not match data in flash!"
    def test_a_flash_that_keeps_a_wrong_bit_fails_and_a_second_try_succeeds(self) -> None:
        self.fail_at_each_percentage_then_succeed("bit-error", 4 * ["MD5 of file does not match data in flash!"])

    # fault: the device stops answering at 0, 1, 50 or 99 % of the write
    # seen: "FLASH FAILED", "Serial data stream stopped: Possible serial noise or corruption.", "The chip stopped
    #     responding."
    def test_a_device_that_stops_answering_fails_and_a_second_try_succeeds(self) -> None:
        self.fail_at_each_percentage_then_succeed(
            "stops-answering", ["Serial data stream stopped: Possible serial noise or corruption."]
            + 3 * ["The chip stopped responding."])

    # Nothing is written ----

    def test_declining_the_confirmation_writes_one_line_and_nothing_else(self) -> None:
        with self.session.device() as device, self.session.window() as window:
            before = window.log()
            window.press(FLASH)
            window.answer("Cancel")
            wait_until(lambda: window.log() != before, "the cancel line")
            self.assertEqual(window.log(), before + "Flash cancelled. Nothing was written.\n")
            self.assertEqual(window.status(), "READY")
            self.assertEqual(device.event_lines(), [])

    def expect_refusal(self, window, device, message: str) -> None:
        window.press(FLASH)
        wait_until(lambda: len(window.alert_texts()) >= 2, "the error alert")
        self.assertEqual(window.alert_texts()[:2], ["QELMO Flasher stopped", message])
        window.answer("OK")
        self.assertEqual(window.status(), "READY")
        self.assertEqual(device.event_lines(), [])

    # fault: the image changes between validation and press
    # seen: "QELMO Flasher stopped", "The embedded firmware checksum is not trusted."
    def test_an_image_that_changed_after_validation_is_not_flashed(self) -> None:
        with self.session.device() as device, self.session.window() as window:
            name = json.loads(self.session.manifest().read_text())["binary"]["path"]
            with open(self.session.manifest().parent / name, "r+b") as image:
                image.seek(0x20000)
                image.write(b"changed")
            self.expect_refusal(window, device, "The embedded firmware checksum is not trusted.")

    # fault: the release is replaced between validation and press
    # seen: "QELMO Flasher stopped", "The embedded release changed after validation."
    def test_a_release_that_was_replaced_after_validation_is_not_flashed(self) -> None:
        other = bytearray(SAMPLE_IMAGE.read_bytes())
        other[0x700000] ^= 1
        image = self.folder / "other.bin"
        image.write_bytes(other)
        with self.session.device() as device, self.session.window() as window:
            pack(self.session.bundle, image, "--name", "Other", "--version", "9.9.9")
            self.expect_refusal(window, device, "The embedded release changed after validation.")

    # What the job is made of ----

    # fault: the flash options change between validation and press
    def test_flash_options_that_changed_after_validation_do_not_reach_the_job(self) -> None:
        with self.session.device() as device, self.session.window() as window:
            manifest = json.loads(self.session.manifest().read_text())
            manifest["flash"]["eraseAllInternalFlash"] = False
            manifest["flash"]["baud"] = 115200
            self.session.manifest().write_text(json.dumps(manifest))
            self.start_flash(window)
            self.expect_complete(window)
            self.assertIn("erase", device.event_lines())
            self.assertIn("baud 921600", device.event_lines())

    def test_without_the_erase_option_the_flash_is_written_but_not_erased_as_a_whole(self) -> None:
        self.pack_sample(SAMPLE_IMAGE, "--no-erase")
        with self.session.device() as device, self.session.window() as window:
            self.start_flash(window)
            self.expect_complete(window)
            self.assertNotIn("erase", device.event_lines())
            self.assertTrue(device.holds(SAMPLE_IMAGE))

    # The tool itself ----

    # fault: the flashing tool is killed during the write
    # seen: "FLASH FAILED"
    def test_a_tool_that_is_killed_fails_and_a_second_try_succeeds(self) -> None:
        with self.session.device("--bytes-per-second", "400000"), self.session.window() as window:
            self.start_flash(window)
            wait_until(lambda: "Writing at" in window.log(), "the first progress line")
            os.kill(self.tool_process(window), signal.SIGKILL)
            self.expect_failed(window, "Writing at")
            self.start_flash(window)
            self.expect_complete(window)

    # fault: the flashing tool is a version 5
    # seen: "FLASH FAILED", "No such option: --verify"
    def test_a_tool_of_version_5_refuses_the_job_before_the_port_is_touched(self) -> None:
        with self.session.device() as device, self.session.window() as window:
            self.start_flash(window)
            self.expect_failed(window, "No such option: --verify")
            self.assertEqual(device.event_lines(), [])

    # fault: the interpreter cannot be started
    # seen: "FLASHER COULD NOT START", "QELMO Flasher stopped", "start /usr/bin/python3: Permission denied"
    def test_a_missing_interpreter_is_reported_and_gives_the_controls_back(self) -> None:
        # The inner /dev is a new one again; a port is needed there only for its name.
        prefix = [ROOT / "tests/device/private-dev", "--without-interpreter", "--", "/bin/sh", "-c",
                  f'ln -s null {PORT} && exec "$@"', "sh"]
        with self.session.window(prefix) as window:
            window.press(FLASH)
            window.press(CONFIRM)
            wait_until(lambda: window.alert_texts()[:1] == ["QELMO Flasher stopped"], "the error alert")
            self.assertEqual(window.alert_texts()[1], "start /usr/bin/python3: Permission denied")
            self.assertEqual(window.status(), "FLASHER COULD NOT START")
            window.answer("OK")
            self.assertTrue(window.log().endswith(START), window.log())
            self.assert_controls_are_back(window)

    # The demo ----

    def test_the_demo_is_over_after_done_or_when_the_window_is_closed(self) -> None:
        with self.session.device(), self.session.window() as window:
            show = demo.Show(window)
            self.start_flash(window)
            wait_until(lambda: not show.is_over() and window.alert_texts(), "the success alert")
            self.assertFalse(show.is_over())
            window.answer("Done")
            self.assertTrue(show.is_over())
            self.assertFalse(show.is_over())  # the next flash
            window.type_keys("ctrl+q")
            wait_until(show.is_over, "the end of the program")
            self.assertEqual(window.process.returncode, 0)
            self.assertEqual(show.status, "FLASH COMPLETE")
            self.assertTrue(show.log.endswith(COMPLETE_LINE), show.log)


if __name__ == "__main__":
    unittest.main(verbosity=2)
