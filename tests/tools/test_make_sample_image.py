#!/usr/bin/python3
"""The sample release image. pack-release, which puts it into every bundle, checks that the chip could start it."""

from __future__ import annotations

import hashlib
import os
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.built import ROOT  # noqa: E402
from support.child import run  # noqa: E402

TOOL = ROOT / "tools" / "make-sample-image"
# Recorded from the generator itself: it says that the bytes stay the same, not that they are right. Both programs must
# wait forever, and a mapped segment must have the same place in its page of 64 KiB as in memory.
KNOWN_SHA256 = "cf4227f6e8c160f4a1f061480f40ed0ac765dc142e6d79b59ff8fab900cd68b6"


class SampleImage(unittest.TestCase):
    def test_replaces_a_file_by_the_same_bytes_on_every_run_and_every_python(self) -> None:
        folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        path = folder / "sample.bin"
        path.write_bytes(b"older")
        self.assertEqual(run(TOOL, path).returncode, 0)
        image = path.read_bytes()
        self.assertEqual((len(image), hashlib.sha256(image).hexdigest()), (8_388_608, KNOWN_SHA256))
        self.assertEqual(os.listdir(folder), ["sample.bin"])

    def test_a_place_that_cannot_be_written_is_one_line_and_leaves_nothing(self) -> None:
        folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        (folder / "taken").mkdir()
        for path, reason in ((folder / "missing/sample.bin", "No such file or directory"),
                             (folder / "taken", "Is a directory")):
            done = run(TOOL, path)
            self.assertEqual((done.returncode, done.stdout, done.stderr),
                             (1, "", f"make-sample-image: {path}: {reason}\n"))
            self.assertEqual(os.listdir(folder), ["taken"])


if __name__ == "__main__":
    unittest.main()
