"""The whole job without a pointer: with the keyboard alone, and by what an assistive tool hears and does."""

from __future__ import annotations

import unittest

import gi
gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

from flasher_window import FlasherWindow, role_of, wait_until
from flashing_session import PORT, SAMPLE_IMAGE, SessionTest, load_tests  # noqa: F401
from test_flashing import COMPLETE_LINE, CONFIRM, FLASH, OTHER_PORT, START, START_ON_OTHER_PORT

VIEWS = [
    ("label", "QELMO // FLASH", ""),
    ("label", "VARNOX  •  CARDPUTER ADV  •  COMPLETE 0x0 IMAGE", ""),
    ("label", None, "Release"),
    ("label", "BOOT PORT", ""),
    ("combo box", str(PORT), ""),
    ("push button", "REFRESH BUILD", "Reload the newest embedded build and rescan USB boot ports"),
    ("label", "G0 BOOT MODE  //  Turn off → hold G0 → power on → release G0 → connect USB data cable", ""),
    ("label", "READY", "Status"),
    ("progress bar", "Flash progress", "Idle"),
    ("text", "Log", ""),
    ("push button", FLASH, ""),
    ("label", "INTERNAL FLASH ONLY  •  SD CARD IS NEVER MOUNTED OR ACCESSED", ""),
]
MENU, PROGRESS = 4, 8


class HeardNames:
    """The new names of views, as an assistive tool hears of them. Use it in a with statement."""

    EVENT = "object:property-change:accessible-name"

    def __enter__(self) -> HeardNames:
        self.names: list[tuple[str, str]] = []
        self._listener = Atspi.EventListener.new(self._hear)
        self._listener.register(self.EVENT)
        return self

    def __exit__(self, *_: object) -> None:
        self._listener.deregister(self.EVENT)

    def of(self, description: str) -> list[str]:
        while GLib.MainContext.default().iteration(False):
            pass
        return [name for described, name in self.names if described == description]

    def _hear(self, event: Atspi.Event) -> None:
        event.source.clear_cache()  # Qt sends no name along
        self.names.append((event.source.get_description(), event.source.get_name()))


class AccessTest(SessionTest):
    def test_the_whole_job_is_done_with_the_keyboard_alone(self) -> None:
        PORT.symlink_to("null")  # a port that is there only to be passed over
        self.addCleanup(PORT.unlink)
        with self.session.device("--port", str(OTHER_PORT)) as device, self.session.window() as window:
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
            self.press(window, "Return", "push button Done")
            self.assertEqual(window.status(), "FLASH COMPLETE", window.log())
            self.press(window, "Return", f"push button {FLASH}")
            self.assertIn(START_ON_OTHER_PORT, window.log())
            self.assertTrue(window.log().endswith(COMPLETE_LINE), window.log()[-400:])
            self.assertTrue(device.holds(SAMPLE_IMAGE))

            window.type_keys("ctrl+q")
            wait_until(lambda: window.process.poll() is not None, "the end of the program")
            self.assertEqual(window.process.returncode, 0)

    def test_the_whole_job_is_done_by_what_an_assistive_tool_hears_and_does(self) -> None:
        with self.session.device("--bytes-per-second", "400000") as device, self.session.window() as window, \
                HeardNames() as heard:
            self.expect_views(window)
            window.activate(FLASH)
            window.answer(CONFIRM, press=window.activate)
            wait_until(lambda: heard.of("Status")[:1] == ["FLASHING — DO NOT DISCONNECT"], "the word of the start")
            self.expect_progress(window, "Busy")
            self.assertIn(START, window.log())
            wait_until(lambda: heard.of("Status")[1:] == ["FLASH COMPLETE"], "the word of the end")
            wait_until(lambda: len(window.alert_texts()) >= 2, "the success alert")
            self.assertEqual(window.alert_texts()[0], "QELMO Varnox is installed")
            window.answer("Done", press=window.activate)
            self.expect_progress(window, "Idle")
            self.assertTrue(device.holds(SAMPLE_IMAGE))

    def test_control_q_quits_during_a_job_but_not_behind_an_alert(self) -> None:
        with self.session.device("--bytes-per-second", "400000") as device, self.session.window() as window:
            window.press(FLASH)
            self.expect_focus(window, f"push button {CONFIRM}")
            self.press(window, "ctrl+q", f"push button {CONFIRM}")
            self.press(window, "Return", "text Log")
            wait_until(lambda: "Writing at" in window.log(), "the first progress line")
            window.type_keys("ctrl+q")
            wait_until(lambda: window.process.poll() is not None, "the end of the program")
            self.assertEqual(window.process.returncode, 0)
            wait_until(lambda: "closed" in device.event_lines(), "the end of the tool's session")

    # Steps ----

    def expect_focus(self, window: FlasherWindow, expected: str) -> None:
        wait_until(lambda: window.focus() == expected, f"the focus at {expected!r}")

    def press(self, window: FlasherWindow, key: str, expected_focus: str) -> None:
        window.type_keys(key)
        self.expect_focus(window, expected_focus)

    def expect_views(self, window: FlasherWindow) -> None:
        views = window.views()
        self.assertEqual([(role_of(view), None if view.get_description() == "Release" else view.get_name(),
                           view.get_description()) for view in views], VIEWS)
        labels = [relation.get_target(0).get_name() for relation in views[MENU].get_relation_set()
                  if relation.get_relation_type() == Atspi.RelationType.LABELLED_BY]
        self.assertEqual(labels, ["BOOT PORT"])

    def expect_progress(self, window: FlasherWindow, expected: str) -> None:
        wait_until(lambda: window.views()[PROGRESS].get_description() == expected, f"the word {expected!r}")


if __name__ == "__main__":
    unittest.main(verbosity=2)
