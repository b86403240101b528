#!/usr/bin/python3
"""The judge of the tests that fail under an emulated processor, on results as ctest writes them."""

from __future__ import annotations

import subprocess
import tempfile
import unittest
from pathlib import Path
from xml.sax.saxutils import escape

JUDGE = Path(__file__).resolve().parents[2] / "tools" / "arm64" / "judge-failures"
SCRIPT_OUTPUT = "FAIL: test_a (__main__.Suite.test_a) [0]\nsaid\nERROR: test_b (__main__.Suite.test_b)\n"


def case(name: str, status: str, output: str = "") -> str:
    return f'<testcase name="{name}" status="{status}"><system-out>{escape(output)}</system-out></testcase>'


class JudgeFailures(unittest.TestCase):
    def judge(self, listing: str, *cases: str, user: str = "1000") -> tuple[int, str, list[str]]:
        with tempfile.TemporaryDirectory() as folder:
            listed, results = Path(folder, "list"), Path(folder, "results")
            listed.write_text(listing)
            results.write_text(f"<testsuite>{''.join(cases)}</testsuite>")
            done = subprocess.run([JUDGE, user, listed, results], capture_output=True, text=True)
        said = [line.removeprefix("judge-failures: ").replace(str(listed), "LIST")
                for line in done.stderr.splitlines() if line.startswith("judge-failures: ")]
        return done.returncode, done.stdout, said

    def test_passes_when_exactly_the_listed_tests_fail(self) -> None:
        self.assertEqual(self.judge("# why\n\nSuite.Fails - a reason\n", case("Suite.Fails", "fail"),
                                    case("Suite.Passes", "run"), case("Suite.Skipped", "notrun")),
                         (0, "3 tests of ctest, 1 skipped; 1 fail, 1 are known to\n", []))

    def test_names_a_failure_that_is_not_listed(self) -> None:
        status, _, said = self.judge("", case("Suite.Fails", "fail"))
        self.assertEqual((status, said), (1, ["Suite.Fails fails"]))

    def test_names_a_listed_test_that_passes_is_skipped_or_is_gone(self) -> None:
        for cases in ([case("Suite.Other", "run"), case("Suite.Listed", "run")],
                      [case("Suite.Other", "run"), case("Suite.Listed", "notrun")],
                      [case("Suite.Other", "run")]):
            with self.subTest(cases):
                status, _, said = self.judge("Suite.Listed - a reason\n", *cases)
                self.assertEqual((status, said), (1, ["Suite.Listed does not fail, but stands in LIST"]))

    def test_knows_the_tests_inside_a_script(self) -> None:
        status, _, said = self.judge("script Suite.test_a - a reason\n", case("script", "fail", SCRIPT_OUTPUT))
        self.assertEqual((status, said), (1, ["script Suite.test_b fails"]))

    def test_names_a_script_that_ended_without_a_word(self) -> None:
        status, _, said = self.judge("script Suite.test_a - a reason\n", case("script", "fail", "Terminated"))
        self.assertEqual((status, said), (1, ["script fails",
                                              "script Suite.test_a does not fail, but stands in LIST"]))

    def test_takes_a_line_for_root_as_one_for_root_only(self) -> None:
        for user, outcome in (("0", "fail"), ("1000", "run")):
            with self.subTest(user):
                self.assertEqual(self.judge("root: Suite.Listed - a reason\n", case("Suite.Listed", outcome),
                                            user=user)[0], 0)
        self.assertEqual(self.judge("root: Suite.Listed - a reason\n", case("Suite.Listed", "fail"))[0], 1)

    def test_wants_a_reason_and_results(self) -> None:
        self.assertEqual(self.judge("Suite.Fails\n", case("Suite.Fails", "fail"))[2],
                         ["a line without a reason: Suite.Fails"])
        self.assertEqual(self.judge("")[0], 1)


if __name__ == "__main__":
    unittest.main()
