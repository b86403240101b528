#!/usr/bin/python3
"""The judge of the tests that fail under an emulated processor, on results as ctest writes them."""

from __future__ import annotations

import re
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.built import ROOT  # noqa: E402
from support.child import run  # noqa: E402

SCRIPT_OUTPUT = "FAIL: test_a (__main__.Suite.test_a) [0]\nsaid\nERROR: test_b (__main__.Suite.test_b)\n"


def case(name: str, status: str, output: str = "") -> str:
    return f'<testcase name="{name}" status="{status}"><system-out>{output}</system-out></testcase>'


class JudgeFailures(unittest.TestCase):
    def test_passes_only_when_exactly_the_listed_tests_fail(self) -> None:
        folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        listed, results = folder / "list", folder / "results"
        fails, passes, known = case("Suite.Fails", "fail"), case("Suite.Passes", "run"), "Suite.Fails - a reason\n"
        # The user, the list, the results, and what the judge finds wrong; None when it passes.
        for user, listing, cases, expected in (
                (1000, f"# why\n\n{known}", fails + passes + case("Suite.Skipped", "notrun"), None),
                (0, f"root: {known}", fails, None),
                (1000, f"root: {known}", passes, None),
                (1000, "", "", []),
                (1000, f"root: {known}", fails, ["Suite.Fails fails"]),
                *((1000, known, passes + other, [f"Suite.Fails does not fail, but stands in {listed}"])
                  for other in ("", case("Suite.Fails", "run"), case("Suite.Fails", "notrun"))),
                (1000, "script Suite.test_a - a reason\n", case("script", "fail", SCRIPT_OUTPUT),
                 ["script Suite.test_b fails"]),
                (1000, "", case("script", "fail", "Terminated"), ["script fails"]),
                (1000, "Suite.Fails\n", fails, ["a line without a reason: Suite.Fails"])):
            with self.subTest(listing, user=user, cases=cases):
                listed.write_text(listing)
                results.write_text(f"<testsuite>{cases}</testsuite>")
                done = run(ROOT / "tools/arm64/judge-failures", user, listed, results)
                self.assertEqual(done.returncode, 0 if expected is None else 1)
                self.assertEqual(re.findall("^judge-failures: (.*)", done.stderr, re.MULTILINE), expected or [])


if __name__ == "__main__":
    unittest.main()
