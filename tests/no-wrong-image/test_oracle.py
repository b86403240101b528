#!/usr/bin/python3
"""The table's releases and random ones, right and wrong: the program and a second judge must give the same verdict.

test_oracle.py [--releases N] [--seed S]; another seed makes other releases. A release on which the two differ is
printed as a case for the table."""

from __future__ import annotations

import argparse
import collections
import copy
import json
import os
import random
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))

import oracle  # noqa: E402
from support.release_cases import CASES, PATHS, RIGHT, field_of, manifest_of, says, write_release  # noqa: E402

PROGRAM = Path(os.environ["QELMO_BUILD"], "tests/no-wrong-image/release_verdict")
TOOL = ".platformio/packages/tool-esptoolpy/esptool.py"
LIMIT_SECONDS = 120  # only a broken program reaches it
BATCH = 500
# Long enough for a key's path with what was expected and found, and for the parser's words.
LONGEST_VERDICT = 220
ARGUMENTS = argparse.Namespace(releases=1000, seed=1)

FIELDS = [path for path in PATHS if path not in ("binary", "flash")]
# Every value that a case gives to a field. In random releases any field may get any of them.
VALUES = [value for case in CASES if isinstance(case.get("manifest"), dict) for value in case["manifest"].values()]


def near_miss(value: object, rng: random.Random) -> object:
    """Another value of the same type that is easily mistaken for the right one."""
    if isinstance(value, bool):
        return not value
    if isinstance(value, int):
        return rng.choice([value + 1, value - 1, -value, value ^ 1 << rng.randrange(63)])
    text = str(value)
    at = rng.randrange(len(text))
    changed = text[:at] + chr(ord(text[at]) ^ 1 << rng.randrange(7)) + text[at + 1:]
    return rng.choice([text.upper(), text.lower(), text + " ", text + "\n", text + "\0", "./" + text, text[1:], changed,
                       changed])


def random_case(rng: random.Random) -> dict:
    """A right release or one of the table, with a few more changes."""
    case = copy.deepcopy(rng.choice([CASES[0], rng.choice(CASES)]))
    if rng.random() < 0.4:
        length = rng.choice([65536, 65537, 65537, 65538, 70000])
        byte = rng.choice([0, length - 1, rng.randrange(length)])
        case["image"] = {"length": length, "bytes": {str(byte): rng.randrange(256)}, "described": rng.random() < 0.5}
    if rng.random() < 0.1:
        case["files"] = {"tool": "missing"}
    fields = case.setdefault("manifest", {})
    for path in rng.sample(FIELDS, rng.choice([0, 1, 1, 2])):
        if isinstance(fields, dict) and path.partition(".")[0] not in fields:
            holder, key = field_of(RIGHT, path)
            fields[path] = rng.choice([near_miss(holder[key], rng), rng.choice(VALUES)])
    if rng.random() < 0.3:
        change_a_byte(case, rng)
    return case


def change_a_byte(case: dict, rng: random.Random) -> None:
    """The case then contains the whole text of the manifest."""
    text = manifest_of(case).decode("latin-1")
    at = rng.randrange(len(text) + 1)
    new = rng.choice([chr(rng.randrange(256)), rng.choice('",:{}[]\\ 01')])
    case["manifest"] = text[:at] + new + text[at + rng.randrange(2):]
    for part in ("before", "after"):
        case.pop(part, None)


def are_of_different_checks(first: dict, second: dict) -> bool:
    """The parser and the system have their own words, and their own order within one check."""
    sentences = {case["sentence"] or "" for case in (first, second)}
    return bool(first["sentence"]) and len(sentences) == 2 and not all("…" in sentence for sentence in sentences)


def both_of(first: dict, second: dict) -> dict:
    """The changes of both. Where both change the same field, the first one's change is used."""
    both = {**second, **first}
    fields = [case.get("manifest", {}) for case in (second, first)]
    if all(isinstance(each, dict) for each in fields):
        both["manifest"] = {**fields[0], **fields[1]}
    return both


class TwoJudges(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(tempfile.mkdtemp(prefix="qelmo-test-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def verdicts_on(self, cases: list[dict]) -> list[str]:
        """The program's verdicts. The second judge must agree with them."""
        places = [(self.folder / f"{number}.app", self.folder / f"{number}.home") for number in range(len(cases))]
        for case, (bundle, home) in zip(cases, places):
            write_release(case, bundle / "Contents/Resources", home / TOOL)
        done = subprocess.run([PROGRAM], input="".join(f"{bundle}\n{home}\n" for bundle, home in places).encode(),
                              stdout=subprocess.PIPE, timeout=LIMIT_SECONDS, check=True)
        found = done.stdout.decode().removesuffix("\n").split("\n")
        self.assertEqual(len(found), len(cases), "each verdict is one line")
        expected = [oracle.verdict(bundle, home / TOOL) for bundle, home in places]
        for case, ours, theirs in zip(cases, expected, found):
            self.assertTrue(says(theirs, ours), f"{json.dumps(case)}\nexpected: {ours}\nfound:    {theirs}")
        for place in self.folder.iterdir():
            shutil.rmtree(place)
        return found

    def check_sentences(self, cases: list[dict], sentences: list[str]) -> None:
        for case, sentence, verdict in zip(cases, sentences, self.verdicts_on(cases)):
            self.assertTrue(says(verdict, sentence), f"{json.dumps(case)}\nexpected: {sentence}\nfound:    {verdict}")
            self.assertLess(len(verdict.encode()), LONGEST_VERDICT)

    # fault: a release has one of the faults in tests/release/release-cases.json, which also has the message
    def test_give_each_case_of_the_table_its_sentence(self) -> None:
        self.check_sentences(CASES, [case["sentence"] or "OK …" for case in CASES])

    # fault: a release has two of the faults in tests/release/release-cases.json
    def test_name_the_fault_that_comes_first_in_the_table(self) -> None:
        pairs = [(first, second) for first, second in zip(CASES, CASES[1:]) if are_of_different_checks(first, second)]
        self.check_sentences([both_of(*pair) for pair in pairs], [first["sentence"] for first, _ in pairs])

    # fault: a release is changed at random, for example in one byte of its image or of its manifest
    def test_agree_on_every_random_release(self) -> None:
        rng = random.Random(ARGUMENTS.seed)
        seen: collections.Counter = collections.Counter()
        for first in range(0, ARGUMENTS.releases, BATCH):
            cases = [random_case(rng) for _ in range(min(BATCH, ARGUMENTS.releases - first))]
            seen.update(verdict.partition(" ")[0] if verdict.startswith("OK") else verdict
                        for verdict in self.verdicts_on(cases))
        sentences = ["OK"] + [text for text in dict.fromkeys(case["sentence"] for case in CASES)
                              if text and text.endswith(".")]
        for sentence in sentences:
            print(f"{seen[sentence]:6} {sentence}")
            self.assertTrue(seen[sentence], "every sentence of the program is reached")


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--releases", type=int, default=ARGUMENTS.releases)
    parser.add_argument("--seed", type=int, default=ARGUMENTS.seed)
    ARGUMENTS, others = parser.parse_known_args()
    print(f"seed {ARGUMENTS.seed}, {ARGUMENTS.releases} releases", flush=True)
    unittest.main(argv=[sys.argv[0], *others])
