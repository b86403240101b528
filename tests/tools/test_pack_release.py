#!/usr/bin/python3
"""Real runs of pack-release, checked by the application's own --self-test."""

from __future__ import annotations

import fcntl
import hashlib
import itertools
import json
import os
import re
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path[:0] = [str(Path(__file__).resolve().parents[2] / folder) for folder in ("tests", "tools")]
import esp_image  # noqa: E402
from support.built import BUILD, SAMPLE_IMAGE  # noqa: E402
from support.child import CANNOT_RUN_HERE, run  # noqa: E402
from support.release import Installation  # noqa: E402
from support.release_cases import says  # noqa: E402

PACK = BUILD / "tools" / "pack-release"
MANIFEST = "qelmo-varnox-flash-manifest.json"
STRACE = shutil.which("strace")
# Every call that can change the disk or that precedes such a call. "?": not on every processor.
CALLS = "openat,flock,fchmod,write,fsync,?rename,renameat,?renameat2,?unlink,unlinkat,?mkdir,mkdirat"


def image(content: str, **header_of_loader: int) -> bytes:
    return esp_image.small_image(content.encode(), **header_of_loader)


def image_name(data: bytes) -> str:
    return f"firmware-{hashlib.sha256(data).hexdigest()[:16]}.bin"


def contents(folder: Path) -> dict[str, tuple[int, bytes]]:
    """The mode and the bytes of everything below `folder`."""
    found = {}
    for path in folder.rglob("*"):
        mode = path.lstat().st_mode
        found[str(path.relative_to(folder))] = (mode, path.read_bytes() if stat.S_ISREG(mode) else b"")
    return found


def changed(data: bytes, at: int, values: bytes) -> bytes:
    return data[:at] + values + data[at + len(values):]


# In GOOD, the loader's segment is 16 bytes at 0x20, its SHA-256 is at 0x40; the application's segment is 64 bytes at
# 0x10020, its checksum at 0x1006F, its SHA-256 at 0x10070. The partition table has one entry.
GOOD = image("x" * 64)
UNUSABLE = [  # an image, and what is wrong with it; "…" is more text
    *((data, "The embedded file is not a complete QELMO firmware image.")
      for data in (GOOD[:0x10000], changed(GOOD, 0, b"\xE8"), changed(GOOD[:0x10001], 0x10000, b"\xE8"))),
    (GOOD.ljust(8388609, b"\xFF"), "The image has 8388609 bytes, but the device's flash holds 8388608."),
    (GOOD[:0x10078],
     "The application at 0x10000 is cut off: the SHA-256 at 0x10070 needs 32 bytes, but only 8 are left. …"),
    (changed(GOOD, 0x1C, b"\xFF" * 4),
     "The boot loader at 0x0 is cut off: segment 1 at 0x20 needs 4294967295 bytes, but only 65504 are left. …"),
    (changed(GOOD, 0x1000D, b"\x01"),
     "The application at 0x10000 is built for the chip with id 265, but the id of the ESP32-S3 is 9. …"),
    *((changed(GOOD, 1, bytes([count])),
       f"The boot loader at 0x0 has {count} segments according to its header; only 1 to 16 …")
      for count in (0, 17)),
    (changed(GOOD, 0x1006F, b"\x00"),
     "The application at 0x10000 is damaged: the checksum at 0x1006F is 0x0, but the segments give 0xEF. …"),
    (changed(GOOD, 2, b"\x00"),
     "The boot loader at 0x0 was changed after it was built: the SHA-256 at 0x40 does not match its bytes. …"),
    (changed(GOOD, 0x8002, b"\x01"),
     "The partition table at 0x8000 is damaged: the MD5 at 0x8030 does not match its entries. …")]


class PackReleaseTest(unittest.TestCase):
    def setUp(self) -> None:
        self.root = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.bundle = self.root / "Some Flasher.app"
        self.installed = Installation(self.bundle, has_window=False)
        self.resources = self.installed.resources
        shutil.rmtree(self.resources)

    def command(self, version: str, data: bytes, *options: str) -> list[str | Path]:
        source = self.root / f"{image_name(data)}.source"
        source.write_bytes(data)
        return [PACK, "--bundle", self.bundle, "--image", source, "--name", "Varnox", "--version", version, *options]

    def pack(self, version: str, data: bytes, *options: str, warning: str = "") -> str:
        done = run(*self.command(version, data, *options))
        self.assertEqual((done.returncode, done.stderr), (0, warning and f"pack-release: warning: {warning}\n"))
        return done.stdout

    def verified_version(self) -> str:
        """The version that the application reports after it has verified the release. It needs an icon next to it."""
        self.installed.icon.write_bytes(b"icns")
        done = self.installed.run("--self-test")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return re.search(r"^release=(.*)$", done.stdout, re.MULTILINE)[1]

    def names(self) -> set[str]:
        return set(os.listdir(self.resources))

    def assert_refused(self, message: str, command: list[str | Path], status: int = 1) -> None:
        before = contents(self.root)
        done = run(*command)
        self.assertEqual((done.returncode, done.stdout), (status, ""))
        self.assertTrue(says(done.stderr, f"pack-release: {message}\n"), done.stderr)
        self.assertEqual(contents(self.root), before)


class Packing(PackReleaseTest):
    def test_makes_a_release_in_a_bundle_that_has_no_resource_folder_yet(self) -> None:
        self.addCleanup(os.umask, os.umask(0o022))
        data = SAMPLE_IMAGE.read_bytes()
        digest = hashlib.sha256(data).hexdigest()
        done = run(PACK, "--bundle", self.bundle, "--image", SAMPLE_IMAGE, "--name", "Straße az", "--version", "1.2 ü")
        self.assertEqual((done.returncode, done.stderr, done.stdout), (0, "", (
            f"Packed    Straße az 1.2 ü into {self.bundle}\n"
            f"Image     {image_name(data)}, 8388608 bytes\n"
            f"SHA-256   {digest}\n"
            "Button    FLASH VERIFIED STRAßE AZ\n"
            "Replaced  no release\n")))
        self.assertEqual(self.names(), {MANIFEST, image_name(data)})
        self.assertEqual(stat.S_IMODE(self.resources.stat().st_mode), 0o755)
        manifest = {
            "schemaVersion": 1, "name": "Straße az", "version": "1.2 ü", "chipFamily": "ESP32-S3",
            "hardware": "Cardputer ADV",
            "binary": {"path": image_name(data), "offset": 0, "size": 8388608, "sha256": digest},
            "flash": {"baud": 921600, "flashSize": "8MB", "flashMode": "dio", "flashFrequency": "80m",
                      "eraseAllInternalFlash": True, "after": "hard_reset",
                      "confirmationText": "FLASH STRAßE AZ"}}
        self.assertEqual((self.resources / MANIFEST).read_text(),
                         json.dumps(manifest, indent=2, ensure_ascii=False) + "\n", "for human readers")
        self.assertEqual(self.verified_version(), "1.2 ü")

    def test_writes_the_given_options_into_the_manifest(self) -> None:
        self.pack("2", image("a", size_and_clock=0x30), "--hardware", "a@b", "--baud=115200", "--frequency", "40m",
                  "--after", "no_reset", "--no-erase", "--confirmation", "GO",
                  warning="The window shows 80 MHz for every release, but this one is flashed at 40m.")
        manifest = json.loads((self.resources / MANIFEST).read_text())
        self.assertEqual((manifest["hardware"], *manifest["flash"].values()),
                         ("a@b", 115200, "8MB", "dio", "40m", False, "no_reset", "GO"))

    def test_packs_firmware_of_every_shape_that_can_start(self) -> None:
        loader, table = GOOD[:0x60], GOOD[0x8000:0x8040]
        many = esp_image.program(0, [(0, b"abcd")] * 16, size_and_clock=0x2F)  # its own flash size does not count
        without_digest = esp_image.program(0, [(0, b"abcd")], digest=False)
        for data in (GOOD.ljust(1 << 23, b"\xFF"), esp_image.merged(loader, table[:0x20], many),
                     esp_image.merged(without_digest, table, without_digest)):
            self.pack("1", data)
        self.pack("1", changed(GOOD, 0x8000, b"\xFF" * 0x40), warning=(
            "There is no partition table at 0x8000. The firmware starts only if its boot loader looks for the table in "
            "another place."))

    def test_keeps_the_previous_image_and_removes_the_one_before_it(self) -> None:
        first, second, third = image("1"), image("2"), image("3")
        self.pack("1", first)
        text = (self.resources / MANIFEST).read_text()
        (self.resources / MANIFEST).write_text(text.replace(image_name(first), "./" + image_name(first)))
        self.assertIn("Replaced  Varnox 1\n", self.pack("2", second))
        self.assertEqual(self.names(), {MANIFEST, image_name(first), image_name(second)})
        self.pack("3", third)
        self.assertEqual(self.names(), {MANIFEST, image_name(second), image_name(third)})
        self.assertEqual(self.verified_version(), "3")

    # fault: the bundle's image is damaged, and its manifest cannot be read
    # seen: "Replaced  no release"
    def test_repairs_an_image_that_was_damaged_and_a_manifest_that_cannot_be_read(self) -> None:
        data = image("1")
        self.pack("1", data)
        (self.resources / image_name(data)).write_bytes(b"damaged")
        (self.resources / MANIFEST).write_text("{")
        self.assertIn("Replaced  no release\n", self.pack("1", data))
        self.assertEqual(self.verified_version(), "1")

    # fault: a killed run left its files
    def test_removes_what_a_killed_run_left_but_no_file_that_it_did_not_name(self) -> None:
        self.resources.mkdir()
        own = [f"{MANIFEST}.tmp-aB3dE6", f"{image_name(b'x')}.tmp-aB3dE6", image_name(b"x")]
        foreign = ["firmware.bin", f"{image_name(b'x')}.bak", "notes.tmp-aB3dE6", "firmware-0123456789ABCDEF.bin",
                   "firmware-0123456789abcdef.bin", "firmware-0123456789abcdef.bak.tmp-aB3dE6",
                   f"{MANIFEST}.tmp-aB3dE6.txt", f"{MANIFEST}.tmp-aB3"]
        for name in own + foreign:
            (self.resources / name).write_bytes(b"x")
        folder, link, target = image_name(b"folder"), image_name(b"target"), self.root / "somebody's image"
        (self.resources / folder).mkdir()
        target.write_bytes(b"target")
        (self.resources / link).symlink_to(target)
        self.pack("1", GOOD)
        self.assertEqual(self.names(), {MANIFEST, image_name(GOOD), folder, link, *foreign})

    # fault: the report cannot be printed
    # seen: "pack-release: the new release is in place, but: write standard output: …", "No space left on device"
    def test_says_that_the_release_is_in_place_when_only_its_report_cannot_be_printed(self) -> None:
        with open("/dev/full", "w") as full:
            done = run(*self.command("1", image("1")), stdout=full)
        self.assertEqual((done.returncode, done.stderr), (
            1, "pack-release: the new release is in place, but: write standard output: No space left on device\n"))
        self.assertEqual(self.verified_version(), "1")


class Refusing(PackReleaseTest):
    def setUp(self) -> None:
        super().setUp()
        self.pack("1", image("old"))

    # fault: the image is not complete, too large, damaged, or for another chip
    # seen: "The embedded file is not a complete QELMO firmware image.", "The application at 0x10000 is cut off: …"
    def test_an_image_that_the_application_would_refuse_or_the_chip_cannot_start(self) -> None:
        for data, fault in UNUSABLE:
            with self.subTest(fault):
                self.assert_refused(fault, self.command("2", data, "--accept-header-rewrite"))

    # fault: the image was built for other flash settings, so the tool would rewrite its header
    # seen: "The image's header bytes 2 and 3 are …, but the flashing tool would rewrite them to …"
    def test_a_header_that_the_flashing_tool_would_rewrite_unless_told_to_accept_it(self) -> None:
        # The codes that esptool 4.x writes for dio, 8MB and each clock of the ESP32-S3.
        for clock, code in {"80m": 0x3F, "40m": 0x30, "26m": 0x31, "20m": 0x32}.items():
            done = run(*self.command("2", image("new", size_and_clock=code), f"--frequency={clock}"))
            self.assertEqual(done.returncode, 0, done.stderr)
        for header, clock, present, written in (({"mode": 0}, "80m", "00 3F", "02 3F (dio, 8MB, 80m)"),
                                                ({}, "40m", "02 3F", "02 30 (dio, 8MB, 40m)")):
            self.assert_refused(
                f"The image's header bytes 2 and 3 are {present}, but the flashing tool would rewrite them to "
                f"{written}, …; build the image for these settings or give --accept-header-rewrite.",
                self.command("2", image("new", **header), f"--frequency={clock}"))
        self.pack("2", image("new", mode=0), "--accept-header-rewrite")
        self.assertEqual(self.verified_version(), "2")

    # fault: the image is missing, the manifest's name is that of a folder, or the given folder is not a bundle
    # seen: "open …: No such file or directory", "not an application bundle, because it has no Contents folder: …"
    def test_a_file_that_cannot_be_read_and_a_folder_that_is_no_bundle(self) -> None:
        command = self.command("2", GOOD)
        self.assert_refused(f"not an application bundle, because it has no Contents folder: {self.root}/no?where",
                            [*command[:2], self.root / "no\nwhere", *command[3:]])
        (self.resources / MANIFEST).unlink()
        (self.resources / MANIFEST).mkdir()
        self.assert_refused(f"read {self.resources / MANIFEST}: Is a directory", command)
        command[4].unlink()
        self.assert_refused(f"open {command[4]}: No such file or directory", command)

    # fault: an option or its value is missing, or the value cannot be shown or used
    # seen: "… is required", "--baud: not a positive integer", "not valid UTF-8", "must not begin with @"
    def test_a_command_line_that_is_not_understood_with_status_2(self) -> None:
        required = {"--bundle": self.bundle, "--image": "x", "--name": "Varnox", "--version": "2"}
        for option, values, message in [
                *((option, [None], f"{option} is required") for option in required),
                *((option, ["@file"], f"{option}: must not begin with @")
                  for option in ("--name", "--version", "--hardware", "--confirmation")),
                ("--name", ["\udcc3("], "--name: not valid UTF-8"),
                ("--name", ["1\n2", "\x7F", "\u2028"], "--name: holds a line break or another control character"),
                ("--hardware", ["--no-erase", ""], "--hardware: the value is missing"),
                ("--baud", ["0", "+1", "1e6", "115200 ", "9223372036854775808"], "--baud: not a positive integer"),
                ("--frequency", ["80M"], "--frequency: 80M not in {80m,40m,26m,20m}"),
                ("--after", ["reset"], "--after: reset not in {hard_reset,soft_reset,no_reset}")]:
            for value in values:
                options = [words for words in {**required, option: value}.items() if words[1] is not None]
                with self.subTest(options):
                    self.assert_refused(message, [PACK, *itertools.chain(*options)], 2)

    # fault: two runs work on one bundle at the same time
    # seen: "another pack-release is working on this bundle; try again when it has finished"
    def test_a_bundle_that_another_run_holds(self) -> None:
        folder = os.open(self.resources, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        fcntl.flock(folder, fcntl.LOCK_SH)  # an exclusive lock is refused then, too
        self.assert_refused("another pack-release is working on this bundle; try again when it has finished",
                            self.command("2", GOOD))


@unittest.skipUnless(sys.platform == "linux", "strace is for Linux")
class Interrupted(PackReleaseTest):
    """Release 2 replaces release 1. The image of release 0 and temporary files are still in the bundle."""

    def setUp(self) -> None:
        super().setUp()
        self.images = [image(str(n)) for n in range(3)]
        self.pack("0", self.images[0])
        self.pack("1", self.images[1])
        self.assertEqual(self.verified_version(), "1")
        for target in [MANIFEST, image_name(self.images[2])]:
            (self.resources / f"{target}.tmp-aB3dE6").write_bytes(b"half a file")
        shutil.copytree(self.resources, self.root / "before")
        self.packing = self.command("2", self.images[2])
        self.before = self.names()
        self.after = {"AppIcon.icns", MANIFEST, image_name(self.images[1]), image_name(self.images[2])}

    def restore(self) -> None:
        shutil.rmtree(self.resources)
        shutil.copytree(self.root / "before", self.resources)

    def traced(self, *options: str) -> tuple[subprocess.CompletedProcess[str], list[str]]:
        log = self.root / "trace"
        # The leak checker does not work under a tracer. Only builds with sanitizers have it.
        done = run(STRACE, "-f", "-qq", "-o", log, *options, *self.packing,
                   env={**os.environ, "ASAN_OPTIONS": "detect_leaks=0"})
        return done, [line.split(" ", 1)[1].strip() for line in log.read_text().splitlines()]

    def calls(self) -> list[tuple[str, int]]:
        """Every call from the first access to the bundle on, as (name, how many of that name so far)."""
        done, lines = self.traced("-e", f"trace={CALLS}")
        self.assertEqual((done.returncode, self.names()), (0, self.after), done.stderr)
        names = [line.split("(", 1)[0] for line in lines]
        first = next(at for at, line in enumerate(lines) if str(self.resources) in line)
        return [(name, names[:at + 1].count(name)) for at, name in enumerate(names) if at >= first]

    def test_flushes_each_file_before_it_gets_its_name_and_the_folder_afterwards(self) -> None:
        steps = [re.sub("(rename|unlink).*", r"\1", name) for name, _ in self.calls()]
        replacement = ["openat", "fchmod", "write", "fsync", "rename", "openat", "fsync"]
        self.assertEqual([step for step in steps[steps.index("fchmod") - 1:] if step != "unlink"],
                         2 * replacement + ["openat"] * 2 + ["write"])
        self.assertEqual(steps.count("unlink"), 3)

    # fault: pack-release is killed
    def test_killed_at_any_call_leaves_a_release_that_verifies_and_that_the_next_run_replaces(self) -> None:
        versions = []
        for name, number in self.calls():
            with self.subTest(killed_at=f"{name} {number}"):
                self.restore()
                done, _ = self.traced("-e", f"trace={name}", "-e", f"inject={name}:signal=KILL:when={number}")
                self.assertEqual(done.returncode, -9)
                versions.append(self.verified_version())
                self.pack("2", self.images[2])
                self.assertEqual(self.verified_version(), "2")
                self.assertEqual(self.names() | {image_name(self.images[1])}, self.after)
        self.assertRegex("".join(versions), "^1+2+$")

    # fault: the disk is full, or another call fails
    # seen: "pack-release: …: No space left on device", "the new release is in place"
    def test_a_call_that_fails_leaves_no_new_file_or_the_new_release(self) -> None:
        for name, number in self.calls():
            with self.subTest(failing=f"{name} {number}"):
                self.restore()
                done, lines = self.traced("-e", f"trace={name}", "-e", f"inject={name}:error=ENOSPC:when={number}")
                self.assertIn("(INJECTED)", "".join(lines))
                self.assertRegex(done.stderr, "^pack-release: .*: No space left on device\n$")
                self.assertEqual(done.returncode, 1)
                if self.verified_version() == "1":
                    self.assertEqual(contents(self.resources), contents(self.root / "before"))
                else:
                    self.assertRegex(done.stderr, "^pack-release: the new release is in place, but: ")
                    self.assertLessEqual(self.names(), self.before | self.after)


if __name__ == "__main__":
    if STRACE is None and sys.platform == "linux":
        print("this program is missing: strace", file=sys.stderr)
        sys.exit(CANNOT_RUN_HERE)
    unittest.main()
