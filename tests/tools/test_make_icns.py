#!/usr/bin/python3
"""make-icns with the real rsvg-convert: the icon file's entries, its pixels, and how bad input ends."""

from __future__ import annotations

import os
import struct
import subprocess
import sys
import tempfile
import unittest
import unittest.mock
import zlib
from importlib.machinery import SourceFileLoader
from importlib.util import module_from_spec, spec_from_loader
from pathlib import Path
from types import ModuleType

ROOT = Path(__file__).resolve().parents[2]
TOOL = ROOT / "tools" / "make-icns"
ICON, SMALL = ROOT / "assets" / "AppIcon.svg", ROOT / "assets" / "AppIcon-small.svg"

PNG_SIZES = {"ic11": 32, "ic12": 64, "ic07": 128, "ic13": 256, "ic08": 256, "ic14": 512, "ic09": 512,
             "ic10": 1024}
MASKED_SIZES = {("is32", "s8mk"): 16, ("il32", "l8mk"): 32, ("ih32", "h8mk"): 48, ("it32", "t8mk"): 128}


def run(*arguments: object, **environment: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run([sys.executable, "-B", str(TOOL), *map(str, arguments)], capture_output=True,
                          text=True, timeout=120, env={**os.environ, **environment})


def icns_entries(data: bytes) -> dict[str, bytes]:
    name, size = struct.unpack_from(">4sI", data)
    assert (name, size) == (b"icns", len(data)), "the file's own header"
    entries, at = {}, 8
    while at < len(data):
        name, size = struct.unpack_from(">4sI", data, at)
        entries[name.decode()] = data[at + 8:at + size]
        at += size
    assert at == len(data), "the last entry ends with the file"
    return entries


def png_chunks(png: bytes) -> dict[str, bytes]:
    assert png.startswith(b"\x89PNG\r\n\x1a\n")
    chunks: dict[str, bytes] = {}
    at = 8
    while at < len(png):
        size, name = struct.unpack_from(">I4s", png, at)
        data = png[at + 8:at + 8 + size]
        assert struct.unpack_from(">I", png, at + 8 + size)[0] == zlib.crc32(name + data), f"CRC of {name!r}"
        chunks[name.decode()] = chunks.get(name.decode(), b"") + data
        at += 12 + size
    return chunks


def unpacked_channels(data: bytes, size: int) -> list[bytes]:
    """Apple's run-length code: below 128 that many plus one literal bytes, else one byte 125 less times. Four zeros stand
    before the picture of 128 pixels."""
    out, at = b"", 4 if size == 128 else 0
    assert not any(data[:at])
    while at < len(data):
        count = data[at]
        if count < 128:
            out += data[at + 1:at + 2 + count]
            at += 2 + count
        else:
            out += data[at + 1:at + 2] * (count - 125)
            at += 2
    assert len(out) == 3 * size * size
    return [out[i * size * size:(i + 1) * size * size] for i in range(3)]


def svg(side: int, content: str) -> str:
    return f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {side} {side}">{content}</svg>'


def filtered_png(rows: list[bytes], kinds: list[int]) -> bytes:
    """An RGBA PNG whose row n went through filter kinds[n], by the definitions of the PNG standard."""
    def paeth(a: int, b: int, c: int) -> int:
        distances = [abs(b - c), abs(a - c), abs(a + b - 2 * c)]
        return (a, b, c)[distances.index(min(distances))]

    packed, above = b"", bytes(len(rows[0]))
    for kind, row in zip(kinds, rows):
        left, corner = bytes(4) + row, bytes(4) + above
        predict = [lambda a, b, c: 0, lambda a, b, c: a, lambda a, b, c: b,
                   lambda a, b, c: (a + b) // 2, paeth]
        packed += bytes([kind]) + bytes((value - predict[kind](*around)) & 0xFF
                                        for value, *around in zip(row, left, above, corner))
        above = row
    data = zlib.compress(packed)
    return b"\x89PNG\r\n\x1a\n" + struct.pack(">I", len(data)) + b"IDAT" + data + bytes(4)


def tool_as_module() -> ModuleType:
    sys.dont_write_bytecode = True  # no __pycache__ beside the tools
    loader = SourceFileLoader("make_icns", str(TOOL))
    module = module_from_spec(spec_from_loader(loader.name, loader))
    with unittest.mock.patch.object(sys, "path", [str(TOOL.parent), *sys.path]):
        loader.exec_module(module)
    return module


def square_colour(x: int, y: int) -> tuple[int, int, int]:
    return (x * 17, y * 17, (x * 31 + y * 59) % 256)


def mosaic() -> str:
    """16 x 16 squares of known colours, the diagonal left transparent."""
    squares = "".join(f'<rect x="{x}" y="{y}" width="1" height="1" fill="rgb{square_colour(x, y)}"/>'
                      for y in range(16) for x in range(16) if x != y)
    return svg(16, squares)


class MakeIcns(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.out = self.folder / "out.icns"

    def drawing(self, name: str, text: str) -> Path:
        path = self.folder / name
        path.write_text(text, encoding="utf-8")
        return path

    def refused(self, *arguments: object, **environment: str) -> str:
        """Runs the tool on bad input; an older result must survive untouched. Returns the error line."""
        self.out.write_bytes(b"older")
        before = sorted(os.listdir(self.folder))
        done = run(*arguments, **environment)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertRegex(done.stderr, r"\Amake-icns: [^\n]+\n\Z")
        self.assertEqual(sorted(os.listdir(self.folder)), before)
        self.assertEqual(self.out.read_bytes(), b"older")
        return done.stderr

    def test_the_applications_icon_holds_every_size_in_its_form_and_nothing_else(self) -> None:
        done = run("--small", SMALL, ICON, self.out)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        entries = icns_entries(self.out.read_bytes())
        self.assertEqual(set(entries), set(PNG_SIZES) | {name for pair in MASKED_SIZES for name in pair})
        for name, size in PNG_SIZES.items():
            with self.subTest(name):
                chunks = png_chunks(entries[name])
                self.assertEqual(list(chunks), ["IHDR", "IDAT", "IEND"])
                self.assertEqual(chunks["IHDR"], struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0))
                self.assertEqual(len(zlib.decompress(chunks["IDAT"])), size * (4 * size + 1))
        for (colours, mask), size in MASKED_SIZES.items():
            with self.subTest(colours):
                unpacked_channels(entries[colours], size)
                self.assertEqual(len(entries[mask]), size * size)
                self.assertEqual((min(entries[mask]), max(entries[mask])), (0, 255))

    def test_two_runs_give_the_same_bytes(self) -> None:
        second = self.folder / "second.icns"
        self.assertEqual([run("--small", SMALL, ICON, out).returncode for out in (self.out, second)], [0, 0])
        self.assertEqual(self.out.read_bytes(), second.read_bytes())

    def test_the_small_pictures_have_the_drawings_colours_and_transparency(self) -> None:
        self.assertEqual(run(self.drawing("mosaic.svg", mosaic()), self.out).returncode, 0)
        entries = icns_entries(self.out.read_bytes())
        for (colours, mask), size in MASKED_SIZES.items():
            channels = unpacked_channels(entries[colours], size)
            for i in range(size * size):
                x, y = (i % size) * 16 // size, (i // size) * 16 // size
                alpha = entries[mask][i]
                with self.subTest(size=size, x=x, y=y):
                    self.assertEqual(alpha, 0 if x == y else 255)
                    if alpha:
                        self.assertEqual(tuple(channel[i] for channel in channels), square_colour(x, y))

    def test_the_simplified_drawing_serves_16_and_32_pixels_only(self) -> None:
        # Plain squares without transparency: the renderer then writes three bytes a pixel instead of four.
        small = self.drawing("small.svg", svg(1, '<rect width="1" height="1" fill="red"/>'))
        large = self.drawing("large.svg", svg(1, '<rect width="1" height="1" fill="blue"/>'))
        self.assertEqual(run("--small", small, large, self.out).returncode, 0)
        entries = icns_entries(self.out.read_bytes())
        for (colours, mask), size in MASKED_SIZES.items():
            seen = [set(channel) for channel in unpacked_channels(entries[colours], size)]
            self.assertEqual(seen, [{255}, {0}, {0}] if size <= 32 else [{0}, {0}, {255}])
            self.assertEqual(entries[mask], b"\xFF" * (size * size))
        for name, size in PNG_SIZES.items():
            first_pixel = zlib.decompress(png_chunks(entries[name])["IDAT"])[1:4]
            self.assertEqual(first_pixel.hex(), "ff0000" if size <= 32 else "0000ff", name)

    def test_every_row_filter_of_a_png_is_undone(self) -> None:
        rows = [bytes((n * n * 7 + i * i * 13) % 256 for i in range(40)) for n in range(10)]
        png = filtered_png(rows, [4, 3, 2, 1, 0, 4, 3, 2, 1, 3])
        flat = b"".join(rows)
        self.assertEqual(tool_as_module().rgba_channels(png, 10), [flat[channel::4] for channel in range(4)])

    def test_one_png_can_be_had_alone(self) -> None:
        out = self.folder / "icon.png"
        self.assertEqual(run("--png", "48", ICON, out).returncode, 0)
        self.assertEqual(struct.unpack_from(">II", png_chunks(out.read_bytes())["IHDR"]), (48, 48))

    def test_a_missing_drawing_is_named(self) -> None:
        path = self.folder / "nowhere.svg"
        self.assertIn(f"{path}: ", self.refused(path, self.out))

    def test_a_broken_drawing_is_refused(self) -> None:
        path = self.drawing("broken.svg", "<svg")
        self.assertIn(f"{path}: rsvg-convert: ", self.refused(path, self.out))

    def test_a_broken_simplified_drawing_is_refused(self) -> None:
        path = self.drawing("broken.svg", "<svg")
        self.assertIn(f"{path}: rsvg-convert: ", self.refused("--small", path, ICON, self.out))

    def test_a_drawing_that_is_not_square_is_refused(self) -> None:
        path = self.drawing("tall.svg", '<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 10 20"/>')
        self.assertIn(f"{path}: the drawing is not square", self.refused(path, self.out))

    def test_without_the_renderer_its_package_is_named(self) -> None:
        self.assertEqual(self.refused(ICON, self.out, PATH=str(self.folder)),
                         "make-icns: rsvg-convert is not installed (Debian package librsvg2-bin)\n")

    def test_a_place_that_cannot_be_written_leaves_nothing(self) -> None:
        taken = self.folder / "taken"
        taken.mkdir()
        self.assertEqual(self.refused("--png", "16", ICON, taken), f"make-icns: {taken}: Is a directory\n")


if __name__ == "__main__":
    unittest.main()
