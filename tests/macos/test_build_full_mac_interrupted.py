#!/usr/bin/python3
"""BUILD-FULL-MAC.command with the application of an earlier run: whatever ends it, that one or the new one is there.

The old application has a file of its own, by which the two are told apart.
"""

from __future__ import annotations

import itertools
import shutil
import signal
import subprocess
import unittest

from mac import SIGNALS, OnAMac

OLD, NEW = "the old application", "the new application"
NO_SPACE = "mv: No space left on device"


class WithAnEarlierApplication(OnAMac):
    def setUp(self) -> None:
        super().setUp()
        self.assert_built(self.mac.build())
        self.make_it_old()

    def make_it_old(self) -> None:
        (self.mac.app / "old").write_text("of an earlier run")

    def which(self) -> str:
        """Of the two is in its place, whole, and without the other one inside."""
        self.assertLessEqual({path.name for path in self.mac.app.iterdir()}, {"Contents", "old"})
        self.assertTrue((self.mac.app / "Contents/MacOS/QelmoFlasher").exists())
        self.assertTrue((self.mac.app / "Contents/PlugIns/platforms/libqcocoa.dylib").exists())
        return OLD if (self.mac.app / "old").exists() else NEW

    def calls_of_a_good_run(self) -> list[str]:
        self.mac.calls.unlink()
        self.assert_built(self.mac.build())
        self.make_it_old()
        return self.mac.called()

    def moves(self) -> list[int]:
        """The numbers of the three calls: to the old one's file system, the old one away, the new one in."""
        found = [number for number, call in enumerate(self.calls_of_a_good_run(), 1) if call.startswith("mv ")]
        self.assertEqual(len(found), 3)
        return found


class InterruptedBuild(WithAnEarlierApplication):
    def assert_ended_well(self, done: subprocess.CompletedProcess[str], number: signal.Signals) -> str:
        """Says which application is there."""
        there = self.which()
        self.assert_nothing_is_left()
        if done.returncode == 0:
            self.assertEqual(there, NEW)
        else:
            self.assertEqual((there, done.returncode), (OLD, 128 + number), done.stdout)
            self.assertTrue(done.stdout.endswith(f": failed, interrupted\n  Next: {self.mac.again()}\n"), done.stdout)
        return there

    # fault: the build command gets HUP, INT or TERM
    # seen: "…: failed, interrupted"
    def test_a_signal_at_any_call_leaves_the_old_application_or_the_new_one(self) -> None:
        ends = []
        for at, call in enumerate(self.calls_of_a_good_run(), 1):
            number, target = SIGNALS[at % 3], ("the group", "the script")[at % 2]
            with self.subTest(call, number=number.name, target=target):
                ends.append(self.assert_ended_well(self.mac.build_and_hit(at, number, target), number))
                self.make_it_old()
        self.assertEqual(ends, [OLD] * (len(ends) - 2) + [NEW] * 2, "only both last moves cannot be interrupted")

    def test_each_signal_at_each_move_before_and_after_it(self) -> None:
        moves = self.moves()
        for at, number, when in itertools.product(moves, SIGNALS, ("before", "after")):
            # What a terminal does, and what a command does.
            target = "the script" if number == signal.SIGTERM else "the group"
            with self.subTest(move=at, number=number.name, when=when):
                done = self.mac.build_and_hit(at, number, target, when)
                self.assertEqual(self.assert_ended_well(done, number), OLD if at == moves[0] else NEW)
                self.make_it_old()

    # fault: the build command is killed while the new application takes the place of the one before
    def test_killed_at_any_move_the_next_run_puts_the_application_back(self) -> None:
        for at, when in itertools.product(self.moves(), ("before", "after")):
            with self.subTest(move=at, when=when):
                done = self.mac.build_and_hit(at, signal.SIGKILL, when=when)
                self.assertEqual(done.returncode, -signal.SIGKILL)
                for left in self.mac.temporary.iterdir():
                    shutil.rmtree(left)  # as the system does some days later
                done = self.mac.build(failing="sign" if when == "before" else "")
                self.assertEqual(done.returncode, 1 if when == "before" else 0, done.stdout)
                self.which()
                self.assert_nothing_is_left()
                self.make_it_old()


class MovesThatFail(WithAnEarlierApplication):
    def assert_move_fails(self, which: str, outcome: str, following: str) -> None:
        done = self.mac.build(failing=which)
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stdout.splitlines()[-2:], [f"Application: failed, {outcome}", f"  Next: {following}"])

    # fault: the new application cannot take the place of the one before
    # seen: "No space left on device"
    def test_an_application_that_cannot_take_its_place_leaves_the_one_before(self) -> None:
        work = self.mac.work
        for which, following in (("new", f'df -h "{work}"'), ("old", f'ls -la "{work}"'), ("in", f'ls -la "{work}"')):
            with self.subTest(which):
                self.assert_move_fails(which, NO_SPACE, following)
                self.assertEqual(self.which(), OLD)
                self.assert_nothing_is_left()

    # fault: neither the new application nor the one before can take its place
    # seen: "the application of the run before is in …"
    def test_an_application_that_cannot_come_back_is_named_with_the_command_that_brings_it(self) -> None:
        previous, app = self.mac.work / "previous", self.mac.app
        following = f'mv "{previous}" "{app}"'
        self.assert_move_fails("in, and back", f"the application of the run before is in {previous}", following)
        self.assertFalse(app.exists())
        subprocess.run(["bash", "-c", following], check=True)
        self.assertEqual(self.which(), OLD)

    def test_the_next_run_says_so_when_it_cannot_put_it_back_either(self) -> None:
        previous = self.mac.work / "previous"
        self.mac.app.rename(previous)
        done = self.mac.build(failing="in, and back")
        self.assertEqual((done.returncode, done.stdout.splitlines()), (
            1, [f"Application: failed, the one of an earlier run is still in {previous}: {NO_SPACE}",
                f'  Next: ls -la "{self.mac.work}"']))
        self.assert_built(self.mac.build())


if __name__ == "__main__":
    unittest.main()
