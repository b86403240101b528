#!/usr/bin/python3
"""make-icns with the real rsvg-convert: the icon file's entries, and their pixels as ImageMagick reads them."""

from __future__ import annotations

import struct
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.built import ROOT  # noqa: E402
from support.child import run  # noqa: E402

TOOL, ICON = ROOT / "tools/make-icns", ROOT / "assets/AppIcon.svg"
SMALL = '<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 10 10"><rect width="10" height="10" fill="red"/></svg>'
PNG_SIZES = {"ic11": 32, "ic12": 64, "ic07": 128, "ic13": 256, "ic08": 256, "ic14": 512, "ic09": 512,
             "ic10": 1024}
MASKED_SIZES = {("is32", "s8mk"): 16, ("il32", "l8mk"): 32, ("ih32", "h8mk"): 48, ("it32", "t8mk"): 128}


def entries_of(icns: bytes) -> dict[str, bytes]:
    """The entries by name. The first name and length are those of the file."""
    entries, at = {}, 0
    while at < len(icns):
        name, size = struct.unpack_from(">4sI", icns, at)
        entries[name.decode()] = icns[at + 8:at + size]
        at += size if at else 8
    return entries


def drawn(drawing: Path, size: int) -> bytes:
    return run("rsvg-convert", "--width", size, drawing, text=False, errors=None).stdout


def pixels(png: bytes) -> bytes:
    return run("convert", "png:-", "-depth", "8", "rgba:-", input=png, stdin=None, text=False, errors=None).stdout


def unpacked(data: bytes) -> bytes:
    """Apple's run-length code without repeats: the number of bytes minus one, then the bytes. Some versions of macOS
    lose a repeat at the end."""
    out, at = b"", 0
    while at < len(data):
        assert data[at] < 128, "a repeat"
        out += data[at + 1:at + 2 + data[at]]
        at += 2 + data[at]
    return out


class MakeIcns(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.out = self.folder / "out"

    def test_every_entry_holds_the_drawing_and_up_to_32_pixels_the_simplified_one(self) -> None:
        # Without transparency the renderer writes three bytes per pixel. The application's icon needs every row filter.
        small = self.folder / "small.svg"
        small.write_text(SMALL)
        self.assertEqual(run(TOOL, "--small", small, ICON, self.out).returncode, 0)
        entries = entries_of(self.out.read_bytes())
        self.assertEqual(len(entries.pop("icns")), self.out.stat().st_size - 8)
        self.assertEqual(set(entries), set(PNG_SIZES) | {name for pair in MASKED_SIZES for name in pair})
        for name, size in PNG_SIZES.items():
            with self.subTest(name):
                self.assertEqual(struct.unpack_from(">II", entries[name], 16), (size, size))
                self.assertTrue(pixels(entries[name]) == pixels(drawn(small if size <= 32 else ICON, size)))
                self.assertNotIn(b"bKGD", entries[name], "nothing but the picture")
        self.assertEqual(entries["it32"][:4], bytes(4))
        entries["it32"] = entries["it32"][4:]
        for (colours, mask), size in MASKED_SIZES.items():
            with self.subTest(colours):
                expected = pixels(drawn(small if size <= 32 else ICON, size))
                planes = b"".join(expected[channel::4] for channel in range(4))
                self.assertTrue(unpacked(entries[colours]) + entries[mask] == planes)


if __name__ == "__main__":
    unittest.main()
