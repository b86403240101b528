#!/usr/bin/python3
"""BUILD-FULL-MAC.command over an earlier application: however it ends, the old application or the new one is there."""

from __future__ import annotations

import signal
import unittest

from mac import SIGNALS, OnAMac

OLD, NEW = "the old application", "the new application"


class WithAnEarlierApplication(OnAMac):
    def setUp(self) -> None:
        super().setUp()
        self.assert_built(self.mac.build())
        self.calls = self.mac.called()
        # The new one to the old one's file system, the old one away (not needed in this first run), the new one in.
        self.moves = range(len(self.calls) - 1, len(self.calls) + 2)
        self.make_it_old()

    def make_it_old(self) -> None:
        """Marks the application as the old one with an extra file."""
        (self.mac.app / "old").write_text("of an earlier run")

    def which(self) -> str:
        """Which of the two is in place. It is complete and does not contain the other."""
        self.assertLessEqual({path.name for path in self.mac.app.iterdir()}, {"Contents", "old"})
        for file in ("MacOS/QelmoFlasher", "PlugIns/platforms/libqcocoa.dylib"):
            self.assertTrue((self.mac.app / "Contents" / file).exists())
        return OLD if (self.mac.app / "old").exists() else NEW

    # fault: the build command gets HUP, INT or TERM
    # seen: "…: failed, interrupted"
    def test_a_signal_at_any_call_leaves_the_old_application_or_the_new_one(self) -> None:
        # To the group, as a terminal sends it, or to the script, as a command does; before a move or after it.
        hits = [(at, SIGNALS[at % 3], ("the group", "the script")[at % 2], "before")
                for at in range(1, self.moves.stop)]
        hits += [(at, number, "the script" if number == signal.SIGTERM else "the group", "after")
                 for at in self.moves for number in SIGNALS]
        for at, number, target, when in hits:
            with self.subTest(call=at, number=number.name, target=target, when=when):
                done = self.mac.build_and_hit(at, number, target, when)
                there = self.which()
                self.assert_nothing_is_left()
                if at > self.moves.start:  # Only the last two moves cannot be interrupted.
                    self.assertEqual((there, done.returncode), (NEW, 0), done.stdout)
                else:
                    self.assertEqual((there, done.returncode), (OLD, 128 + number), done.stdout)
                    self.assertTrue(done.stdout.endswith(f": failed, interrupted\n  Next: {self.mac.again}\n"))
                self.make_it_old()

    # fault: the new application cannot be moved into place; perhaps the earlier one cannot be moved back either
    # seen: "No space left on device", "the application of the earlier run is in …"
    def test_a_failing_move_keeps_the_old_application_or_names_the_command_that_restores_it(self) -> None:
        work, previous, app = self.mac.work, self.mac.work / "previous", self.mac.app
        no_space, back = "mv: No space left on device", f'mv "{previous}" "{app}"'
        for failing, outcome, following in (
                ("new", no_space, f'df -h "{work}"'), ("in", no_space, f'ls -la "{work}"'),
                ("in, and back", f"the application of the earlier run is in {previous}", back),
                # The next run cannot move it back either.
                ("in, and back", f"the application of an earlier run is still in {previous}: {no_space}",
                 f'ls -la "{work}"')):
            with self.subTest(failing, outcome=outcome):
                done = self.mac.build(failing=failing)
                self.assertEqual(done.returncode, 1)
                self.assertEqual(done.stdout.splitlines()[-2:],
                                 [f"Application: failed, {outcome}", f"  Next: {following}"])
                if failing != "in, and back":
                    self.assertEqual(self.which(), OLD)
                    self.assert_nothing_is_left()
        self.assertFalse(app.exists())
        self.mac.build(failing="sign")
        self.assertEqual(self.which(), OLD, "the next run puts it back first")


if __name__ == "__main__":
    unittest.main()
