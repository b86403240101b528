#!/usr/bin/python3
"""Real runs of pack-release, judged by the application's own --self-test."""

from __future__ import annotations

import fcntl
import hashlib
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

PACK = Path(os.environ["QELMO_BUILD"]) / "tools" / "pack-release"
FLASHER = Path(os.environ["QELMO_BUNDLE"]) / "Contents" / "MacOS" / "QelmoFlasher"
TOOLS = Path(__file__).resolve().parents[2] / "tools"
MAKE_SAMPLE = TOOLS / "make-sample-image"
sys.path.insert(0, str(TOOLS))
import esp_image  # noqa: E402

MANIFEST = "qelmo-varnox-flash-manifest.json"
INCOMPLETE = "The embedded file is not a complete QELMO firmware image."
STRACE = shutil.which("strace")
# Every call that can change what is on the disk, or that comes before one. "?": not on every processor.
CALLS = "openat,flock,fchmod,write,fsync,?rename,renameat,?renameat2,?unlink,unlinkat,?mkdir,mkdirat"


def image(content: str, **header_of_loader: int) -> bytes:
    return esp_image.small_image(content.encode(), **header_of_loader)


def image_name(data: bytes) -> str:
    return f"firmware-{hashlib.sha256(data).hexdigest()[:16]}.bin"


def contents(folder: Path) -> dict[str, tuple[int, bytes]]:
    """Mode and bytes of everything below `folder`."""
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
BUILD_AGAIN = "Build and merge the firmware again."
UNBOOTABLE = [  # an image, what is wrong with it, what to do if it is not BUILD_AGAIN
    (GOOD[:0x1000A],
     "application at 0x10000 is cut off: the header at 0x10000 needs 24 bytes, and 10 are left."),
    (GOOD[:0x1001C],
     "application at 0x10000 is cut off: the header of segment 1 at 0x10018 needs 8 bytes, and 4 are left."),
    (GOOD[:0x10040],
     "application at 0x10000 is cut off: segment 1 at 0x10020 needs 64 bytes, and 32 are left."),
    (GOOD[:0x10064],
     "application at 0x10000 is cut off: the checksum at 0x10060 needs 16 bytes, and 4 are left."),
    (GOOD[:0x10078],
     "application at 0x10000 is cut off: the SHA-256 at 0x10070 needs 32 bytes, and 8 are left."),
    (changed(GOOD, 0x1C, b"\xFF" * 4),
     "boot loader at 0x0 is cut off: segment 1 at 0x20 needs 4294967295 bytes, and 65504 are left."),
    (changed(GOOD, 0xC, b"\x05"),
     "boot loader at 0x0 is built for the chip with id 5, and the id of the ESP32-S3 is 9.",
     "Build it for the ESP32-S3."),
    (changed(GOOD, 0x1000D, b"\x01"),
     "application at 0x10000 is built for the chip with id 265, and the id of the ESP32-S3 is 9.",
     "Build it for the ESP32-S3."),
    (changed(GOOD, 0x10001, b"\x00"),
     "application at 0x10000 has 0 segments by its header, and only 1 to 16 are possible."),
    (changed(GOOD, 1, b"\x11"),
     "boot loader at 0x0 has 17 segments by its header, and only 1 to 16 are possible."),
    (changed(GOOD, 0x1006F, b"\x00"),
     "application at 0x10000 is damaged: the checksum at 0x1006F is 0x0, and the segments give 0xEF."),
    (changed(GOOD, 2, b"\x00"),
     "boot loader at 0x0 was changed after it was built: the SHA-256 at 0x40 is not that of its bytes.",
     "Build it again for these flash settings, and merge it unchanged."),
    (changed(GOOD, 0x8002, b"\x01"),
     "partition table at 0x8000 is damaged: the MD5 at 0x8030 is not that of its entries."),
]


class PackReleaseTest(unittest.TestCase):
    def setUp(self) -> None:
        self.root = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.bundle = self.root / "Some Flasher.app"
        self.resources = self.bundle / "Contents" / "Resources"
        (self.bundle / "Contents" / "MacOS").mkdir(parents=True)
        shutil.copy2(FLASHER, self.bundle / "Contents" / "MacOS" / FLASHER.name)
        tool = self.root / "home" / ".platformio" / "packages" / "tool-esptoolpy" / "esptool.py"
        tool.parent.mkdir(parents=True)
        tool.write_text("print('esptool.py v4.8.1')\nprint('4.8.1')\n")

    def command(self, version: str, data: bytes, *options: str) -> list[str]:
        source = self.root / f"{image_name(data)}.source"
        source.write_bytes(data)
        return [str(PACK), "--bundle", str(self.bundle), "--image", str(source), "--name", "Varnox",
                "--version", version, *options]

    def run_command(self, command: list[str]) -> subprocess.CompletedProcess[str]:
        # The leak checker cannot work under a tracer; it concerns builds with sanitizers only.
        return subprocess.run(command, capture_output=True, text=True, timeout=60,
                              env={**os.environ, "ASAN_OPTIONS": "detect_leaks=0"})

    def pack(self, version: str, data: bytes, *options: str) -> str:
        done = self.run_command(self.command(version, data, *options))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout

    def add_icon(self) -> None:
        (self.resources / "AppIcon.icns").write_bytes(b"icns")

    def verified_version(self) -> str:
        """The version that the application reports after it has verified the release."""
        done = subprocess.run([str(self.bundle / "Contents" / "MacOS" / FLASHER.name), "--self-test"],
                              env={**os.environ, "HOME": str(self.root / "home")}, capture_output=True,
                              text=True, timeout=60)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return re.search(r"^release=(.*)$", done.stdout, re.MULTILINE)[1]

    def names(self) -> set[str]:
        return {path.name for path in self.resources.iterdir()}

    def assert_refused(self, message: str, command: list[str], status: int = 1) -> None:
        before = contents(self.root)
        done = self.run_command(command)
        self.assertEqual((done.returncode, done.stdout, done.stderr),
                         (status, "", f"pack-release: {message}\n"))
        self.assertEqual(contents(self.root), before)


class Packing(PackReleaseTest):
    def test_makes_a_release_in_a_bundle_that_has_no_resource_folder_yet(self) -> None:
        source = self.root / "merged.bin"
        self.addCleanup(os.umask, os.umask(0o022))
        subprocess.run([sys.executable, "-B", str(MAKE_SAMPLE), str(source)], check=True, timeout=60)
        data = source.read_bytes()
        digest = hashlib.sha256(data).hexdigest()
        done = self.run_command([str(PACK), "--bundle", str(self.bundle), "--image", str(source),
                                 "--name", "Varnox", "--version", "1.2.3"])

        self.assertEqual((done.returncode, done.stderr, done.stdout), (0, "", (
            f"Packed    Varnox 1.2.3 into {self.bundle}\n"
            f"Image     {image_name(data)}, 8388608 bytes\n"
            f"SHA-256   {digest}\n"
            "Button    FLASH VERIFIED VARNOX\n"
            "Replaced  no release\n")))
        self.assertEqual(self.names(), {MANIFEST, image_name(data)})
        self.assertEqual(stat.S_IMODE(self.resources.stat().st_mode), 0o755)
        self.assertEqual(json.loads((self.resources / MANIFEST).read_text()), {
            "schemaVersion": 1, "name": "Varnox", "version": "1.2.3", "chipFamily": "ESP32-S3",
            "hardware": "Cardputer ADV",
            "binary": {"path": image_name(data), "offset": 0, "size": 8388608, "sha256": digest},
            "flash": {"baud": 921600, "flashSize": "8MB", "flashMode": "dio", "flashFrequency": "80m",
                      "eraseAllInternalFlash": True, "after": "hard_reset",
                      "confirmationText": "FLASH VARNOX"}})
        self.add_icon()
        self.assertEqual(self.verified_version(), "1.2.3")

    def test_writes_the_given_options_into_a_manifest_for_human_readers(self) -> None:
        done = self.run_command(self.command(
            "2 ü", image("a", size_and_clock=0x30), "--hardware", "Bench", "--baud", "115200", "--frequency=40m",
            "--after", "no_reset", "--no-erase", "--confirmation", "GO"))
        self.assertEqual((done.returncode, done.stderr), (
            0, "pack-release: warning: The window says 80 MHz for every release, and this one is flashed for 40m.\n"))
        text = (self.resources / MANIFEST).read_text(encoding="utf-8")
        self.assertTrue(text.startswith('{\n  "schemaVersion": 1,\n  "name": "Varnox",\n  "version": "2 ü",'))
        self.assertTrue(text.endswith("}\n"))
        self.assertEqual(json.loads(text)["hardware"], "Bench")
        self.assertEqual(json.loads(text)["flash"], {
            "baud": 115200, "flashSize": "8MB", "flashMode": "dio", "flashFrequency": "40m",
            "eraseAllInternalFlash": False, "after": "no_reset", "confirmationText": "GO"})

    def test_packs_firmware_of_every_shape_that_can_start(self) -> None:
        loader, table = GOOD[:0x60], GOOD[0x8000:0x8040]
        many = esp_image.program(0, [(0, b"abcd")] * 16, size_and_clock=0x2F)  # its own flash size does not count
        for data in (GOOD.ljust(1 << 23, b"\xFF"), esp_image.merged(loader, table[:0x20], many),
                     esp_image.merged(esp_image.program(0, [(0, b"abcd")], digest=False), table,
                                      esp_image.program(0, [(0, b"abcd")], digest=False))):
            self.pack("1", data)
            self.assertIn(image_name(data), self.names())

    def test_warns_of_a_missing_partition_table(self) -> None:
        done = self.run_command(self.command("1", changed(GOOD, 0x8000, b"\xFF" * 0x40)))
        self.assertEqual((done.returncode, done.stderr), (
            0, "pack-release: warning: There is no partition table at 0x8000. The firmware starts only if its boot "
               "loader looks for the table in another place.\n"))

    def test_keeps_the_replaced_release_s_image_and_removes_the_one_before(self) -> None:
        first, second, third = image("1"), image("2"), image("3")
        self.pack("1", first)
        self.assertIn("Replaced  Varnox 1\n", self.pack("2", second))
        self.assertEqual(self.names(), {MANIFEST, image_name(first), image_name(second)})
        self.pack("3", third)
        self.assertEqual(self.names(), {MANIFEST, image_name(second), image_name(third)})
        self.add_icon()
        self.assertEqual(self.verified_version(), "3")

    def test_keeps_the_replaced_image_however_its_manifest_spells_the_path(self) -> None:
        first = image("1")
        self.pack("1", first)
        manifest = self.resources / MANIFEST
        manifest.write_text(manifest.read_text().replace(image_name(first), "./" + image_name(first)))
        self.pack("2", image("2"))
        self.assertIn(image_name(first), self.names())

    # fault: the image of the bundle was damaged, and its manifest cannot be read
    # seen: "Replaced  no release"
    def test_repairs_an_image_that_was_damaged_and_a_manifest_that_cannot_be_read(self) -> None:
        data = image("1")
        self.pack("1", data)
        (self.resources / image_name(data)).write_bytes(b"damaged")
        (self.resources / MANIFEST).write_text("{")
        self.assertIn("Replaced  no release\n", self.pack("1", data))
        self.add_icon()
        self.assertEqual(self.verified_version(), "1")

    # fault: a killed run left its files
    def test_removes_what_a_killed_run_left_but_no_file_that_it_did_not_name(self) -> None:
        self.resources.mkdir()
        own = [f"{MANIFEST}.tmp-aB3dE6", f"{image_name(b'x')}.tmp-aB3dE6", image_name(b"x")]
        foreign = ["firmware.bin", "firmware-0123.bin", f"{image_name(b'x')}.bak", "notes.tmp-aB3dE6",
                   "firmware-0123456789ABCDEF.bin", "firmware-0123456789abcdef.bin",
                   f"{MANIFEST}.tmp-aB3dE6.txt", f"{MANIFEST}.tmp-aB3"]
        for name in own + foreign:
            (self.resources / name).write_bytes(b"x")
        folder = image_name(b"folder")
        (self.resources / folder).mkdir()
        target = self.root / "somebody's image"
        target.write_bytes(b"target")
        link = image_name(b"target")
        (self.resources / link).symlink_to(target)
        data = image("1")
        self.pack("1", data)
        self.assertEqual(self.names(), {MANIFEST, image_name(data), folder, link, *foreign})

    def test_keeps_the_image_that_it_was_given_even_beside_the_packed_ones(self) -> None:
        self.pack("1", image("1"))
        given = self.resources / "firmware-0123456789abcdef.bin"
        given.write_bytes(image("2"))
        done = self.run_command([str(PACK), "--bundle", str(self.bundle), "--image", str(given), "--name",
                                 "Varnox", "--version", "2"])
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(given.read_bytes(), image("2"))

    # fault: nothing can be printed
    # seen: "pack-release: the new release is in place, but: write standard output: …", "No space left on device"
    def test_says_that_the_release_is_in_place_when_only_its_report_cannot_be_printed(self) -> None:
        reading, unread = os.pipe()
        os.close(reading)
        for output, reason in ((os.open("/dev/full", os.O_WRONLY), "No space left on device"),
                               (unread, "Broken pipe")):
            with self.subTest(reason):
                done = subprocess.run(self.command("1", image("1")), stdout=output, stderr=subprocess.PIPE,
                                      text=True, timeout=60, check=False)
                os.close(output)
                self.assertEqual((done.returncode, done.stderr), (
                    1, f"pack-release: the new release is in place, but: write standard output: {reason}\n"))
        self.add_icon()
        self.assertEqual(self.verified_version(), "1")

    def test_prints_its_usage_on_request(self) -> None:
        done = self.run_command([str(PACK), "--help"])
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertIn("pack-release [OPTIONS]\n", done.stdout)


class Refusing(PackReleaseTest):
    def setUp(self) -> None:
        super().setUp()
        self.pack("1", image("old"))

    # fault: the image is not complete
    # seen: "The embedded file is not a complete QELMO firmware image."
    def test_says_what_the_application_would_say_of_an_incomplete_image(self) -> None:
        self.assert_refused(INCOMPLETE, self.prepared(image("")[:0x10000]))
        self.assert_refused(INCOMPLETE, self.prepared(b"\xE8" + image("")[1:]))
        self.assert_refused(INCOMPLETE, self.prepared(image("")[:0x10000] + b"\xE8"))

    # fault: the chip cannot start the image
    # seen: "application at 0x10000 is cut off: …", "boot loader at 0x0 is built for the chip with id 5, …", "application
    #     at 0x10000 has 0 segments by its header, …", "application at 0x10000 is damaged: …", "boot loader at 0x0 was
    #     changed after it was built: …", "partition table at 0x8000 is damaged: …"
    def test_refuses_what_the_chip_cannot_start(self) -> None:
        for data, fault, *advice in UNBOOTABLE:
            with self.subTest(fault):
                self.assert_refused(f"The {fault} {(advice or [BUILD_AGAIN])[0]}",
                                    self.prepared(data, "--accept-header-rewrite"))

    # fault: the image is larger than the flash
    # seen: "The image has 8388609 bytes, but the device's flash holds 8388608."
    def test_refuses_an_image_that_is_larger_than_the_flash_by_one_byte(self) -> None:
        self.assert_refused("The image has 8388609 bytes, but the device's flash holds 8388608.",
                            self.prepared(image("").ljust(8388609, b"\xFF")))

    # fault: the image was built for other flash settings, and the tool would rewrite its header
    # seen: "The image's header bytes 2 and 3 are 00 3F, but the flashing tool would rewrite them to 02 3F …"
    def test_refuses_a_header_that_the_flashing_tool_would_rewrite_unless_told_to_accept_it(self) -> None:
        data = image("new", mode=0)
        self.assert_refused(
            "The image's header bytes 2 and 3 are 00 3F, but the flashing tool would rewrite them to 02 3F "
            "(dio, 8MB, 80m), and the device would not hold the bytes that were verified; build the image "
            "for these settings or give --accept-header-rewrite.", self.prepared(data))
        self.pack("2", data, "--accept-header-rewrite")
        self.add_icon()
        self.assertEqual(self.verified_version(), "2")

    # fault: the image is missing or a folder
    # seen: "open …: No such file or directory", "read …: Is a directory"
    def test_names_the_image_that_cannot_be_read(self) -> None:
        command = self.prepared(image("new"))
        source = Path(command[command.index("--image") + 1])
        source.unlink()
        self.assert_refused(f"open {source}: No such file or directory", command)
        source.mkdir()
        self.assert_refused(f"read {source}: Is a directory", command)

    # fault: the given bundle is none
    # seen: "not an application bundle, it has no Contents folder: …"
    def test_refuses_a_folder_that_is_no_bundle(self) -> None:
        command = self.prepared(image("new"))
        at = command.index("--bundle") + 1
        for bundle in [self.root / "home", self.root / "nowhere", Path(command[0])]:
            command[at] = str(bundle)
            self.assert_refused(f"not an application bundle, it has no Contents folder: {bundle}", command)

    # fault: a folder is in the place of the manifest
    # seen: "read …: Is a directory"
    def test_refuses_a_folder_in_the_manifest_s_place(self) -> None:
        (self.resources / MANIFEST).unlink()
        (self.resources / MANIFEST).mkdir()
        self.assert_refused(f"read {self.resources / MANIFEST}: Is a directory", self.prepared(image("new")))

    @unittest.skipIf(os.access("/usr/bin/codesign", os.X_OK), "there is a signing tool here")
    # fault: the bundle shall be signed where nothing can sign
    # seen: "--sign: there is no /usr/bin/codesign here; bundles are signed on macOS"
    def test_refuses_to_sign_before_it_touches_anything_where_there_is_no_signing_tool(self) -> None:
        self.assert_refused("--sign: there is no /usr/bin/codesign here; bundles are signed on macOS",
                            self.prepared(image("new"), "--sign"))

    # fault: the command line has an unknown option
    # seen: "The following argument was not expected: --speed"
    def test_refuses_a_command_line_that_it_does_not_understand_with_status_2(self) -> None:
        self.assert_refused("The following argument was not expected: --speed", self.prepared(GOOD, "--speed"), 2)

    def prepared(self, data: bytes, *options: str) -> list[str]:
        return self.command("2", data, *options)


class TwoAtOnce(PackReleaseTest):
    # fault: two runs work on one bundle
    # seen: "another pack-release is at work on this bundle"
    def test_lets_nobody_in_while_another_one_holds_the_bundle(self) -> None:
        self.pack("1", image("1"))
        folder = os.open(self.resources, os.O_RDONLY)
        self.addCleanup(os.close, folder)
        fcntl.flock(folder, fcntl.LOCK_EX)
        self.assert_refused("another pack-release is at work on this bundle", self.command("2", image("2")))

    # fault: many runs start at once on one bundle
    # seen: "pack-release: another pack-release is at work on this bundle"
    def test_leaves_one_whole_release_of_one_that_reported_success(self) -> None:
        runs = [subprocess.Popen(self.command(str(n), image(str(n)).ljust(1 << 20)), text=True,
                                 stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) for n in range(6)]
        errors = [run.communicate(timeout=60)[1] for run in runs]
        packed = [str(n) for n, run in enumerate(runs) if run.returncode == 0]
        for run, error in zip(runs, errors):
            busy = (1, "pack-release: another pack-release is at work on this bundle\n")
            self.assertIn((run.returncode, error), [(0, ""), busy])
        self.add_icon()
        self.assertIn(self.verified_version(), packed)


@unittest.skipUnless(sys.platform == "linux", "strace is for Linux")
class Interrupted(PackReleaseTest):
    """Release 2 replaces release 1, with the image of release 0 and temporary files still lying about."""

    def setUp(self) -> None:
        super().setUp()
        self.images = [image(str(n)) for n in range(3)]
        self.pack("0", self.images[0])
        self.pack("1", self.images[1])
        self.add_icon()
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
        done = self.run_command([STRACE, "-f", "-qq", "-o", str(log), *options, *self.packing])
        return done, [line.split(" ", 1)[1].strip() for line in log.read_text().splitlines()]

    def calls(self) -> list[tuple[str, int]]:
        """Every call from the first touch of the bundle on, as (name, how many of that name so far)."""
        done, lines = self.traced("-e", f"trace={CALLS}")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(self.names(), self.after)
        count: dict[str, int] = {}
        found = []
        for line in lines:
            name = line.split("(", 1)[0]
            count[name] = count.get(name, 0) + 1
            if found or str(self.resources) in line:
                found.append((name, count[name]))
        return found

    def test_flushes_each_file_before_it_gets_its_name_and_the_folder_afterwards(self) -> None:
        steps = [re.sub("(rename|unlink).*", r"\1", name) for name, _ in self.calls()]
        replacement = ["openat", "fchmod", "write", "fsync", "rename", "openat", "fsync"]
        self.assertEqual([step for step in steps[steps.index("fchmod") - 1:] if step != "unlink"],
                         2 * replacement + ["openat"] * 2 + ["write"])
        self.assertEqual(steps.count("unlink"), 3)

    # fault: the run is killed
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
        self.assertEqual(sorted(versions), versions)
        self.assertEqual(set(versions), {"1", "2"})

    # fault: the disk is full, or another call fails
    # seen: "pack-release: …: No space left on device", "the new release is in place"
    def test_a_call_that_fails_leaves_no_new_file_or_the_new_release(self) -> None:
        for name, number in self.calls():
            with self.subTest(failing=f"{name} {number}"):
                self.restore()
                done, lines = self.traced("-e", f"trace={name}", "-e",
                                          f"inject={name}:error=ENOSPC:when={number}")
                self.assertTrue(any("(INJECTED)" in line for line in lines))
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
        sys.exit(77)
    unittest.main()
