"""Runs the whole program headless, in bundles made for each test, and checks its output and exit status."""

from __future__ import annotations

import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.child import run  # noqa: E402
from support.release import Installation  # noqa: E402
from support.release_cases import RIGHT  # noqa: E402

DIGEST = RIGHT["binary"]["sha256"]
NAMES = [os.fsdecode(b"my  \xc3\xbc \xff.app"), "line\nbreak.app", "plain"]


def report(release="1.0.0", button="FLASH VERIFIED VARNOX", esptool="4.7.0") -> str:
    return (f"app_bundle=OK\nrelease={release}\nflash_button={button}\nbinary_size=65537\nsha256={DIGEST}\n"
            f"flash_address=0x0\nesptool={esptool}\nserial_access=NONE\nicon=AppIcon.icns\n")


class HeadlessTest(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(tempfile.mkdtemp(prefix="qelmo-test-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.folder.chmod(0o755)
        # Without the window's library, a windowed start fails with one sentence.
        self.app = Installation(self.folder / "QELMO Varnox Flasher.app", has_window=False)

    def self_test(self, **options) -> subprocess.CompletedProcess:
        return self.app.run("--self-test", **options)

    def assert_passes(self, result: subprocess.CompletedProcess, expected: str = report()) -> None:
        self.assertEqual((result.stdout, result.stderr, result.returncode), (expected, "", 0))

    def assert_fails(self, message: str, result: subprocess.CompletedProcess) -> None:
        self.assertEqual((result.stdout or "", result.stderr, result.returncode),
                         ("", f"self-test failed: {message}\n", 1))

    def assert_windowed_start(self, result: subprocess.CompletedProcess) -> None:
        self.assertEqual((result.stdout, result.returncode), ("", 1))
        self.assertRegex(result.stderr, r"\AThe window cannot be opened: [^\n]*\n\Z")


class Report(HeadlessTest):
    def test_has_exactly_nine_lines_each_in_a_write_of_its_own_and_nothing_goes_to_standard_error(self):
        reading, writing = socket.socketpair(socket.AF_UNIX, socket.SOCK_DGRAM)  # keeps each write apart
        with reading, writing:
            result = self.self_test(stdout=writing)
            self.assertEqual((result.stderr, result.returncode), ("", 0))
            reading.setblocking(False)
            writes = [reading.recv(4096).decode() for _ in range(9)]
            self.assertRaises(BlockingIOError, reading.recv, 1)
        self.assertEqual(writes, report().splitlines(keepends=True))

    def test_holds_empty_values_an_unknown_tool_and_the_computed_digest_in_lower_case(self):
        self.app.write_manifest(**{"version": "", "flash.confirmationText": "", "binary.sha256": DIGEST.upper()})
        self.app.tool.write_text("pass")
        self.assert_passes(self.self_test(), report(release="", button="FLASH VERIFIED ", esptool="unknown"))


class Selection(HeadlessTest):
    def test_accepts_the_argument_in_any_position_and_prefers_it_to_the_windows_one(self):
        for arguments in (["x", "", "--self-test"], ["--self-test", "--verbose"], ["--", "--self-test"],
                          ["--self-test", "--window-self-test"], ["--window-self-test", "--self-test"]):
            with self.subTest(arguments):
                self.assert_passes(self.app.run(*arguments))
        self.assert_passes(run("--self-test", executable=self.app.program, env=self.app.environment))

    def test_ignores_a_similar_argument(self):
        for argument in ("--self-test=1", "--self-tes", "--self-test ", "--SELF-TEST", "-self-test", "---self-test"):
            with self.subTest(argument):
                self.assert_windowed_start(self.app.run(argument))


class Failure(HeadlessTest):
    # fault: the bundle has no icon
    # seen: "AppIcon.icns is missing from the application bundle"
    def test_of_the_icon_comes_before_the_manifest_is_read(self):
        self.app.icon.unlink()
        self.app.manifest_file.write_text("not JSON")
        self.assert_fails("AppIcon.icns is missing from the application bundle", self.self_test())

    # fault: a value of the manifest is wrong, or the image is missing
    # seen: "This release is not locked to ESP32-S3.", "No such file or directory"
    def test_of_the_release_comes_before_the_tool_is_run(self):
        self.app.tool.write_text(f"open({str(self.folder)!r} + '/ran', 'w')")
        self.app.image.unlink()
        self.assert_fails(f"open {self.app.image}: No such file or directory", self.self_test())
        self.app.write_manifest(chipFamily="esp32-s3")
        self.assert_fails("This release is not locked to ESP32-S3.", self.self_test())
        self.assertFalse((self.folder / "ran").exists())

    # fault: the tool fails and prints bytes that are not text; the parent ignores SIGCHLD
    # seen: "Espressif tool check failed:"
    def test_of_the_tool_shows_its_raw_output(self):
        ignored = {"preexec_fn": lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN)}
        self.assert_passes(self.self_test(**ignored))
        self.app.tool.write_text("import os; os.write(1, b'a\\0b\\xff'); os._exit(1)")
        self.assert_fails("Espressif tool check failed: a\0b\ufffd", self.self_test(**ignored))


class Place(HeadlessTest):
    # fault: the bundle has no window library
    # seen: "The window cannot be opened:"
    def test_may_have_any_path(self):
        for name in NAMES:
            with self.subTest(name):
                self.app = Installation(self.folder / name, has_window=False)
                self.assert_passes(self.self_test())
                self.assert_windowed_start(self.app.run())
        link = self.folder / "link"
        link.symlink_to(self.app.program)
        for program, folder in ((link, None), ("./QelmoFlasher", self.app.program.parent)):
            self.assert_passes(run(program, "--self-test", env=self.app.environment, cwd=folder))


class Streams(HeadlessTest):
    def closed(self, redirection: str) -> subprocess.CompletedProcess:
        return self.self_test(prefix=("/bin/sh", "-c", f'exec "$0" "$@" {redirection}'))

    # fault: standard output is full or closed, or nobody reads it
    # seen: "write standard output: No space left on device", "write standard output: Bad file descriptor",
    #     "write standard output: Broken pipe"
    def test_that_cannot_be_written_make_the_self_test_fail_in_one_sentence(self):
        with open("/dev/full", "w", encoding="utf-8") as full:
            self.assert_fails("write standard output: No space left on device", self.self_test(stdout=full))
        reading, writing = os.pipe()
        os.close(reading)
        self.assert_fails("write standard output: Broken pipe", self.self_test(stdout=writing))
        os.close(writing)
        self.assert_fails("write standard output: Bad file descriptor", self.closed(">&-"))

    # fault: standard input and standard error are closed
    def test_for_input_and_errors_are_not_needed(self):
        self.assert_passes(self.closed("<&- 2>&-"))


if __name__ == "__main__":
    unittest.main()
