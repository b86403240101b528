"""The whole job: the real window, the real flashing tool, a simulated device. Nothing else is simulated."""

from __future__ import annotations

import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from flashing_session import CONFIRM, FLASH, IMAGE, START, SessionTest  # noqa: E402
from support.device import OTHER_PORT, PORT, UNPLUGGED_WORDS  # noqa: E402
from support.real_tool import NO_PORT, load_tests, of_the_tool  # noqa: E402, F401
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

    # fault: the device is unplugged during the write and gets another name when it is plugged in again
    # seen: "FLASH FAILED", "A serial exception error occurred", "Could not open", "the port is busy or doesn't exist."
    def test_a_device_that_comes_back_under_another_name_needs_a_refresh(self) -> None:
        with self.plugged_in("--fault", "unplugged@50") as device:
            window = self.enterContext(self.window())
            self.start_flash(window)
            self.expect_failed(window, UNPLUGGED_WORDS)
            device.wait_for("closed")
            self.assertFalse(device.holds(IMAGE))
        with self.plugged_in(port=OTHER_PORT) as device:
            self.start_flash(window)
            self.expect_failed(window, of_the_tool(NO_PORT).format(PORT))
            self.assertEqual(window.selected_port(), str(PORT))
            self.assertEqual(device.event_lines(), [])
            window.press("REFRESH BUILD")
            wait_until(lambda: window.selected_port() == str(OTHER_PORT), "the new name")
            self.start_flash(window, START_ON_OTHER_PORT)
            self.expect_complete(window, device)


if __name__ == "__main__":
    unittest.main(verbosity=2)
