#!/usr/bin/python3
"""The sample release image, read back by a parser of its own."""

from __future__ import annotations

import functools
import hashlib
import operator
import os
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib
from pathlib import Path

TOOL = Path(__file__).resolve().parents[2] / "tools" / "make-sample-image"
APPLICATION_AT = 0x10000
# Recorded from the generator itself: it says that the bytes stay the same, not that they are right.
KNOWN_SHA256 = "cf4227f6e8c160f4a1f061480f40ed0ac765dc142e6d79b59ff8fab900cd68b6"


def run(*arguments: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run([sys.executable, "-B", str(TOOL), *arguments], capture_output=True, text=True,
                          timeout=60)


class BootImage:
    """One image as the chip's loader reads it, starting at `at` in the flash."""

    def __init__(self, flash: bytes, at: int) -> None:
        header = struct.unpack_from("<BBBBI", flash, at)
        self.magic, count, self.mode, self.size_and_speed, self.entry = header
        self.chip = struct.unpack_from("<H", flash, at + 12)[0]
        self.has_digest = flash[at + 23]
        self.segments: list[tuple[int, int, bytes]] = []  # address, place of the data in the flash, data
        place = at + 24
        for _ in range(count):
            address, size = struct.unpack_from("<II", flash, place)
            self.segments.append((address, place + 8, flash[place + 8:place + 8 + size]))
            place += 8 + size
        last = place + 15 - (place - at) % 16
        self.checksum = flash[last]
        self.covered, self.digest = flash[at:last + 1], flash[last + 1:last + 33]
        self.end = last + 33

    def bytes_at(self, address: int, size: int) -> bytes:
        for start, _, data in self.segments:
            if start <= address < start + len(data):
                return data[address - start:address - start + size]
        return b""


class SampleImage(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.path = Path(cls.folder.name) / "sample.bin"
        done = run(str(cls.path))
        assert done.returncode == 0, done.stderr
        cls.flash = cls.path.read_bytes()
        cls.images = {"loader": BootImage(cls.flash, 0), "application": BootImage(cls.flash, APPLICATION_AT)}

    def test_fills_the_flash_exactly(self) -> None:
        self.assertEqual(len(self.flash), 8_388_608)

    def test_is_the_same_on_every_run_and_every_python(self) -> None:
        self.assertEqual(hashlib.sha256(self.flash).hexdigest(), KNOWN_SHA256)

    def test_both_images_are_for_the_esp32s3_with_the_flash_settings_that_the_tool_leaves_alone(self) -> None:
        for name, image in self.images.items():
            with self.subTest(name):
                self.assertEqual((image.magic, image.chip), (0xE9, 9))
                self.assertEqual((image.mode, image.size_and_speed), (0x02, 0x3F))

    def test_both_images_carry_a_right_checksum_and_digest(self) -> None:
        for name, image in self.images.items():
            with self.subTest(name):
                data = b"".join(segment for _, _, segment in image.segments)
                self.assertEqual(image.checksum, functools.reduce(operator.xor, data, 0xEF))
                self.assertEqual(image.has_digest, 1)
                self.assertEqual(image.digest, hashlib.sha256(image.covered).digest())

    def test_segments_are_whole_words_and_mapped_ones_keep_their_place_in_the_page(self) -> None:
        for name, image in self.images.items():
            for address, place, data in image.segments:
                with self.subTest(f"{name} {address:#x}"):
                    self.assertEqual(len(data) % 4, 0)
                    if 0x3C000000 <= address < 0x3E000000 or 0x42000000 <= address < 0x44000000:
                        self.assertEqual(address % 0x10000, place % 0x10000)

    def test_both_programs_begin_with_a_jump_to_themselves(self) -> None:
        for name, image in self.images.items():
            with self.subTest(name):
                self.assertEqual(image.bytes_at(image.entry, 3).hex(), "06ffff")

    def test_partition_table_is_sealed_by_its_md5_and_lies_inside_the_flash(self) -> None:
        rows, at = [], 0x8000
        while self.flash[at:at + 2] == b"\xAA\x50":
            _, kind, subtype, offset, size, label, _ = struct.unpack_from("<2sBBII16sI", self.flash, at)
            rows.append((label.rstrip(b"\0").decode(), kind, subtype, offset, size))
            at += 32
        self.assertEqual(self.flash[at:at + 16], b"\xEB\xEB" + b"\xFF" * 14)
        self.assertEqual(self.flash[at + 16:at + 32], hashlib.md5(self.flash[0x8000:at]).digest())
        self.assertEqual(self.flash[at + 32:0x9000].strip(b"\xFF"), b"")
        self.assertIn(("factory", 0, 0, APPLICATION_AT, 0x400000), rows)
        for (_, _, _, offset, size), following in zip(rows, [row[3] for row in rows[1:]] + [len(self.flash)]):
            self.assertEqual(offset + size, following)

    def test_application_says_that_it_is_a_sample(self) -> None:
        description = self.images["application"].segments[0][2][:256]
        self.assertEqual(struct.unpack_from("<I", description)[0], 0xABCD5432)
        self.assertEqual(description[16:48].rstrip(b"\0"), b"0.0.0-sample")
        self.assertEqual(description[48:80].rstrip(b"\0"), b"sample-image-not-firmware")

    def test_unused_flash_is_erased_and_no_image_reaches_into_its_neighbour(self) -> None:
        loader, application = self.images["loader"], self.images["application"]
        self.assertLessEqual(loader.end, 0x8000)
        self.assertLessEqual(application.end, APPLICATION_AT + 0x400000)
        for start, end in [(loader.end, 0x8000), (0x9000, APPLICATION_AT), (application.end, 0x410000)]:
            self.assertEqual(self.flash[start:end].strip(b"\xFF"), b"")

    def test_application_compresses_like_a_program_neither_like_text_nor_like_noise(self) -> None:
        covered = self.images["application"].covered
        self.assertTrue(0.5 < len(zlib.compress(covered)) / len(covered) < 0.8)


class MakeSampleImageErrors(unittest.TestCase):
    def test_a_place_that_cannot_be_written_is_one_line_and_leaves_nothing(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            for name, reason in [("missing/sample.bin", "No such file or directory"),
                                 ("taken", "Is a directory")]:
                with self.subTest(name):
                    (Path(folder) / "taken").mkdir(exist_ok=True)
                    path = f"{folder}/{name}"
                    done = run(path)
                    self.assertEqual((done.returncode, done.stdout, done.stderr),
                                     (1, "", f"make-sample-image: {path}: {reason}\n"))
                    self.assertEqual(os.listdir(folder), ["taken"])

    def test_an_existing_file_is_replaced_whole(self) -> None:
        with tempfile.TemporaryDirectory() as folder:
            path = Path(folder) / "sample.bin"
            path.write_bytes(b"older")
            self.assertEqual(run(str(path)).returncode, 0)
            self.assertEqual(path.stat().st_size, 8_388_608)
            self.assertEqual(os.listdir(folder), ["sample.bin"])


if __name__ == "__main__":
    unittest.main()
