"""The whole job without a pointer: with the keyboard alone, and with an assistive tool."""

from __future__ import annotations

import sys
import unittest
from pathlib import Path

import gi
gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from flashing_session import COMPLETE, COMPLETE_LINE, CONFIRM, FLASH, IMAGE, SLOW, START, SessionTest  # noqa: E402
from support.device import OTHER_PORT, PORT  # noqa: E402
from support.flasher_window import FlasherWindow  # noqa: E402
from support.real_tool import load_tests  # noqa: E402, F401
from support.waiting import wait_until  # noqa: E402

NAME_CHANGE = "object:property-change:accessible-name"
FLASHING = "FLASHING — DO NOT DISCONNECT"


class AccessTest(SessionTest):
    def test_the_whole_job_is_done_with_the_keyboard_alone(self) -> None:
        PORT.symlink_to("null")  # a port only to be skipped
        self.addCleanup(PORT.unlink)
        with self.plugged_in(port=OTHER_PORT) as device, self.window() as window:
            self.expect_focus(window, f"combo box {PORT}")
            self.press(window, "Down", f"combo box {OTHER_PORT}")
            self.press(window, "Tab", "push button REFRESH BUILD")
            self.press(window, "Tab", "text Log")
            self.press(window, "Tab", f"push button {FLASH}")

            self.press(window, "space", f"push button {CONFIRM}")
            self.press(window, "Tab", "push button Cancel")
            self.press(window, "shift+Tab", f"push button {CONFIRM}")
            self.press(window, "Escape", f"push button {FLASH}")
            self.assertTrue(window.log().endswith("Flash cancelled. Nothing was written.\n"), window.log())
            self.assertEqual(device.event_lines(), [])

            self.press(window, "Return", f"push button {CONFIRM}")
            self.press(window, "ctrl+q", f"push button {CONFIRM}")  # an open alert keeps the window
            self.press(window, "Return", "push button Done")
            self.assertEqual(window.status(), "FLASH COMPLETE", window.log())
            self.press(window, "Return", f"push button {FLASH}")
            self.assertIn(f" on {OTHER_PORT}…\n", window.log())
            self.assertTrue(window.log().endswith(COMPLETE_LINE), window.log()[-400:])
            self.assertTrue(device.holds(IMAGE))

            window.type_keys("ctrl+q")
            self.assertEqual(window.wait_for_end_of_program(), 0)

    def test_the_whole_job_works_with_an_assistive_tool(self) -> None:
        heard: list[str] = []

        def hear(event: Atspi.Event) -> None:
            event.source.clear_cache()  # Qt does not send the new name
            if event.source.get_description() == "Status":
                heard.append(event.source.get_name())

        def has_heard(*words: str) -> bool:
            while GLib.MainContext.default().iteration(False):
                pass
            return heard[-len(words):] == list(words)

        listener = Atspi.EventListener.new(hear)
        listener.register(NAME_CHANGE)
        self.addCleanup(listener.deregister, NAME_CHANGE)
        with self.plugged_in(*SLOW) as device, self.window() as window:
            window.activate(FLASH)
            window.answer(CONFIRM, press=window.activate)
            wait_until(lambda: has_heard(FLASHING), "the word of the start")
            self.assertIn(START, window.log())
            wait_until(lambda: has_heard(FLASHING, COMPLETE), "the word of the end")
            self.expect_complete(window, device, press=window.activate)

    def expect_focus(self, window: FlasherWindow, expected: str) -> None:
        wait_until(lambda: window.focus() == expected, f"the focus at {expected!r}")

    def press(self, window: FlasherWindow, key: str, expected_focus: str) -> None:
        window.type_keys(key)
        self.expect_focus(window, expected_focus)


if __name__ == "__main__":
    unittest.main(verbosity=2)
