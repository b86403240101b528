#!/usr/bin/python3
"""Random releases, right and wrong ones: the program and a second judge say the same of each.

test_oracle.py [--pairs N] [--seed S]; another seed makes other releases."""

from __future__ import annotations

import argparse
import collections
import copy
import hashlib
import json
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import oracle

BUILD = Path(os.environ["QELMO_BUILD"])
PROGRAM = BUILD / "tests" / "no-wrong-image" / "release_verdict"
LIMIT_SECONDS = 120  # only a broken program reaches it
BATCH = 500
ARGUMENTS = argparse.Namespace(pairs=500, seed=1)

KEYS = ["schemaVersion", "name", "version", "chipFamily", "hardware", "binary", "flash",
        *(f"binary.{key}" for key in oracle.BINARY), *(f"flash.{key}" for key in oracle.FLASH)]
CHECKED = ["schemaVersion", "chipFamily", "binary.offset", "binary.size", "binary.sha256", "flash.flashSize",
           "flash.flashMode"]


class Raw(str):
    """JSON text that no value of Python stands for."""


NUMBERS = [Raw(text) for text in (
    "-0", "0.0", "1.0", "1e0", "-1", "0e5", "1e400", "-1e999", "01", "+1", "1.", ".5", "0x1", "NaN",
    "-Infinity",
    "9223372036854775807", "9223372036854775808", "-9223372036854775808", "-9223372036854775809",
    "18446744073709551615", "18446744073709551616", "65537", "65536", "123456789012345678901234567890")]
OTHERS = [None, True, False, 0, 1, 2, "", "1", "true", [], [1], {}, {"path": "x"}, Raw("tru"), Raw("'a'"),
          Raw(""), Raw('"\\ud800"'), Raw('"\\udc00\\ud800"'), Raw('"\\ud83d\\ude00"'), Raw('"\\u0000"'),
          Raw('"\\x41"'), Raw('"a\nb"'), Raw('"\udcff"'), Raw('"\udcc3\udca9"'), Raw('"\udced\udca0\udc80"'),
          Raw('"\0"')]


def field_of(manifest: dict, path: str) -> tuple[dict, str]:
    """The object that holds the field, and the field's key in it."""
    outer, _, key = path.rpartition(".")
    return (manifest[outer] if outer else manifest), key


def json_text(value: object, rng: random.Random) -> str:
    """JSON with a random layout; a list of pairs is an object, so that a key may stand there twice."""
    if isinstance(value, Raw):
        return str(value)
    blank = rng.choice(["", "", " ", "\n", "\r\n\t "])
    if isinstance(value, dict):
        pairs = list(value.items())
        rng.shuffle(pairs)
        if pairs and rng.random() < 0.05:  # the last one counts
            pairs.insert(0, (rng.choice(pairs)[0], rng.choice([None, 1, "x"])))
        inner = ("," + blank).join(f"{json.dumps(key)}:{blank}{json_text(item, rng)}" for key, item in pairs)
        return "{" + blank + inner + blank + "}"
    return json.dumps(value, ensure_ascii=rng.random() < 0.5)


class Images:
    """A few small images; a release gets a link to one of them."""

    def __init__(self, folder: Path, rng: random.Random) -> None:
        folder.mkdir()
        self.good: list[tuple[Path, bytes]] = []
        self.bad: list[tuple[Path, bytes]] = []
        complete = bytearray(rng.randbytes(70_000))
        complete[0] = complete[0x10000] = 0xE9
        self.add(self.good, folder, complete, 65_537, 65_538, 69_999, 70_000)
        self.add(self.bad, folder, complete, 0, 1, 65_535, 65_536)
        for place in (0, 0x10000):
            broken = bytearray(complete)
            broken[place] ^= 1 << rng.randrange(8)
            self.add(self.bad, folder, broken, 65_537, 70_000)

    @staticmethod
    def add(images: list, folder: Path, content: bytearray, *sizes: int) -> None:
        for size in sizes:
            path = folder / f"image-{len(os.listdir(folder))}"
            path.write_bytes(content[:size])
            images.append((path, bytes(content[:size])))


def right_manifest(image: bytes) -> dict:
    return {"schemaVersion": 1, "name": "Varnox", "version": "1.0.0", "chipFamily": "ESP32-S3",
            "hardware": "Cardputer ADV",
            "binary": {"path": "release-complete.bin", "offset": 0, "size": len(image),
                       "sha256": hashlib.sha256(image).hexdigest()},
            "flash": {"baud": 921600, "flashSize": "8MB", "flashMode": "dio", "flashFrequency": "80m",
                      "eraseAllInternalFlash": True, "after": "hard_reset",
                      "confirmationText": "FLASH VARNOX"}}


def near_miss(path: str, value: object, rng: random.Random) -> object:
    """Another value of the same type that is easily mistaken for the right one."""
    if isinstance(value, bool):
        return not value
    if isinstance(value, int):
        return rng.choice([value + 1, value - 1, -value, value ^ (1 << rng.randrange(63)), 0, 1, 65_536])
    text = str(value)
    place = rng.randrange(len(text))
    other = chr(ord(text[place]) ^ (1 << rng.randrange(7)))
    misses = [text.upper(), text.lower(), text.swapcase(), text + " ", " " + text, text + "\n",
              "\ufeff" + text, text + "\0", text[:-1], text[1:], "", "sha256:" + text, text * 2,
              text.replace("S", "\u017f"), text[:place] + other + text[place + 1:]]
    if path == "binary.path":
        misses += ["missing.bin", ".", "..", "", "./" + text, "../Resources/" + text, "/" + text, "//" + text,
                   "x/../" + text, "d\u00e9j\u00e0 vu"]
    return rng.choice(misses)


def add_fault(manifest: dict, rng: random.Random) -> None:
    path = rng.choice(CHECKED + CHECKED + KEYS + ["binary.path"] * 3)
    try:
        holder, key = field_of(manifest, path)
        value = holder[key]
    except (KeyError, TypeError):  # an earlier fault took the field away
        return
    what = rng.random()
    if what < 0.1:
        del holder[key]
    elif what < 0.15:
        other = rng.choice([key.lower(), key.upper(), key + " ", key + "\0", "\ufeff" + key])
        holder[other] = holder.pop(key)
    elif what < 0.35 or isinstance(value, (dict, list, Raw)) or value in (None, ""):
        holder[key] = copy.deepcopy(rng.choice(NUMBERS + OTHERS))
    else:
        holder[key] = near_miss(path, value, rng)


def damaged(text: bytes, rng: random.Random) -> bytes:
    """The manifest's bytes with something done to them that has nothing to do with its fields."""
    place = rng.randrange(len(text))
    return rng.choice([b"", b" \n", b"[]", b"null", b"7", b'"x"', text[:place], text + b"x", text + text,
                       text + b"\0", b"\xef\xbb\xbf" + text, b"\xff\xfe" + text, text + b"\n",
                       b"// \n" + text, text[:place] + bytes([rng.randrange(256)]) + text[place + 1:],
                       text[:place] + rng.choice([b",", b"}", b'"', b"\\", b" "]) + text[place:]])


def make_bundle(bundle: Path, images: Images, rng: random.Random) -> None:
    folder = bundle / "Contents" / "Resources"
    folder.mkdir(parents=True)
    file, image = rng.choice(images.good if rng.random() < 0.8 else images.bad)
    manifest = right_manifest(image)
    if rng.random() < 0.2:
        manifest["binary"]["sha256"] = manifest["binary"]["sha256"].upper()
    if rng.random() < 0.2:
        manifest[rng.choice(["comment", "Binary"])] = rng.choice([None, [[]], {"sha256": "00"}, "\u202e&<b>"])
    for _ in range(rng.choices([0, 1, 2], [25, 55, 20])[0]):
        add_fault(manifest, rng)
    text = json_text(manifest, rng).encode("utf-8", errors="surrogateescape")
    if rng.random() < 0.1:
        text = damaged(text, rng)
    if rng.random() < 0.98:
        (folder / "qelmo-varnox-flash-manifest.json").write_bytes(text)
    place = folder / "release-complete.bin"
    if rng.random() < 0.92:
        os.link(file, place)
    elif rng.random() < 0.5:
        place.mkdir()


def verdicts_of_the_program(bundles: list[Path], home: Path) -> list[str]:
    done = subprocess.run([PROGRAM], input="".join(f"{bundle}\n" for bundle in bundles).encode(),
                          stdout=subprocess.PIPE, env={**os.environ, "HOME": str(home)},
                          timeout=LIMIT_SECONDS, check=True)
    return done.stdout.decode("utf-8", errors="surrogateescape").removesuffix("\n").split("\n")


def message_without_names(message: str) -> str:
    """Neither digest nor path nor key: what is the same for many releases."""
    if message.startswith("OK "):
        return "OK"
    if message.startswith(("open ", "read ")):
        return f"{message[:4]} (path): {message.rpartition(': ')[2]}"
    return re.sub(r"^[\w.]+: (the key|expected|the number)", r"(key): \1", message)


class Oracle(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(tempfile.mkdtemp(prefix="qelmo-test-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.rng = random.Random(ARGUMENTS.seed)
        self.images = Images(self.folder / "images", self.rng)
        tool = self.folder / "home" / ".platformio" / "packages" / "tool-esptoolpy" / "esptool.py"
        tool.parent.mkdir(parents=True)
        tool.touch()

    def disagreement(self, bundle: Path, has_tool: bool, expected: str, found: str) -> str:
        kept = BUILD / "no-wrong-image" / f"disagreement-seed-{ARGUMENTS.seed}-{bundle.name}"
        shutil.rmtree(kept, ignore_errors=True)
        shutil.copytree(bundle, kept)
        return (f"seed {ARGUMENTS.seed}, {'with' if has_tool else 'without'} the tool, kept in {kept}\n"
                f"expected: {expected}\nfound:    {found}")

    def judge_batch(self, first: int, count: int, seen: collections.Counter) -> None:
        bundles = [self.folder / f"{number}.app" for number in range(first, first + count)]
        for bundle in bundles:
            make_bundle(bundle, self.images, self.rng)
        for home, has_tool in ((self.folder / "home", True), (self.folder / "none", False)):
            found = verdicts_of_the_program(bundles, home)
            self.assertEqual(len(found), count, "each verdict is one line")
            for bundle, line in zip(bundles, found):
                expected = oracle.verdict(bundle, has_tool)
                if not oracle.agree(expected, line):
                    self.fail(self.disagreement(bundle, has_tool, expected, line))
                seen[message_without_names(expected)] += 1
        for bundle in bundles:
            shutil.rmtree(bundle)

    # fault: a release is wrong in one or two ways, or its manifest is damaged
    def test_the_program_and_a_second_judge_agree_on_every_release(self) -> None:
        seen: collections.Counter = collections.Counter()
        for first in range(0, ARGUMENTS.pairs, BATCH):
            self.judge_batch(first, min(BATCH, ARGUMENTS.pairs - first), seen)
        for message, count in seen.most_common():
            print(f"{count:6} {message}")
        sentences = [message for message in seen if message.endswith(".") and not message.endswith("...")]
        self.assertEqual(len(sentences), 9, "every sentence of the program but that of the resource folder")
        for message in ("OK", "open (path): No such file or directory", "read (path): Is a directory",
                        "(key): the key is missing", oracle.NOT_JSON + "..."):
            self.assertIn(message, seen)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--pairs", type=int, default=ARGUMENTS.pairs)
    parser.add_argument("--seed", type=int, default=ARGUMENTS.seed)
    ARGUMENTS, others = parser.parse_known_args()
    print(f"seed {ARGUMENTS.seed}, {ARGUMENTS.pairs} pairs", flush=True)
    unittest.main(argv=[sys.argv[0], *others])
