"""The windowed program as a whole process: the window self-test, and starts that fail."""

from __future__ import annotations

import os
import resource
import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.child import NOBODY, ORDINARY_USER, limit  # noqa: E402
from support.release import Installation  # noqa: E402

REPORT = Path("/tmp/qelmo-flasher-window-self-test.txt")
PASSED = ("window_self_test=OK\nwindow_visible=true\nwindow_title=QELMO Varnox Flasher\nicon_resource=OK\n"
          "refresh_button_title=REFRESH BUILD\nflash_button_title=FLASH VERIFIED VARNOX\n")
FAILED = PASSED.replace("self_test=OK", "self_test=FAILED")
WITHOUT_RELEASE = FAILED.replace("FLASH VERIFIED VARNOX", "VALIDATING RELEASE")


def remove_report() -> None:
    if REPORT.is_dir() and not REPORT.is_symlink():
        REPORT.rmdir()
    REPORT.unlink(missing_ok=True)


class WindowedProcess(unittest.TestCase):
    def setUp(self) -> None:
        # Not below /tmp, which some tests hide.
        self.folder = Path(tempfile.mkdtemp(prefix="qelmo-window-", dir="/var/tmp"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.folder.chmod(0o755)
        self.addCleanup(remove_report)
        remove_report()
        self.install("QELMO Varnox Flasher.app")

    def install(self, name: str) -> None:
        self.app = Installation(self.folder / name, has_window=True)
        self.app.environment |= {"QT_QPA_PLATFORM": "offscreen"}

    def self_test(self, **options) -> subprocess.CompletedProcess:
        return self.app.run("--window-self-test", **options)

    def assert_ended(self, done: subprocess.CompletedProcess, status: int = 0, output: str = PASSED,
                     errors: str = "") -> None:
        self.assertEqual((done.returncode, done.stdout or "", done.stderr), (status, output, errors))
        self.assertEqual(list(REPORT.parent.glob(REPORT.name + ".*")), [])

    def assert_reported(self, done: subprocess.CompletedProcess, status: int = 0, report: str = PASSED) -> None:
        self.assert_ended(done, status, report)
        self.assertEqual((REPORT.read_text(), REPORT.is_symlink()), (report, False))


class SelfTestReport(WindowedProcess):
    def test_it_goes_to_the_file_and_to_standard_output_and_nothing_else_is_said(self) -> None:
        self.app.environment |= {"QT_LOGGING_RULES": "*=true", "QT_STYLE_OVERRIDE": "nosuch"}
        self.assert_reported(self.app.run("-platform", "nosuch", "--window-self-test", "-x"))

    # fault: the bundle has no icon, or the release is not valid
    # seen: "self_test=FAILED", "resource=MISSING", "VALIDATING RELEASE"
    def test_a_missing_icon_or_an_invalid_release_fails_it(self) -> None:
        self.app.icon.rename(self.folder / "icon")
        self.assert_reported(self.self_test(), 1, FAILED.replace("resource=OK", "resource=MISSING"))
        (self.folder / "icon").rename(self.app.icon)
        self.app.manifest_file.write_text("{}")
        self.assert_reported(self.self_test(), 1, WITHOUT_RELEASE)

    # fault: the name of the bundle's folder contains a token that the loader expands in a path, such as $ORIGIN
    def test_the_bundle_may_be_in_a_folder_of_any_name(self) -> None:
        (self.folder / "decoys").mkdir()
        (self.folder / "decoys/libQelmoWindow.so").write_bytes(b"no library")
        for name in ("$ORIGIN", "$LIB", "${PLATFORM}", "a:b;c d", "übung"):
            with self.subTest(name):
                self.install(name)
                self.app.environment |= {"LD_LIBRARY_PATH": str(self.folder / "decoys")}
                self.assert_reported(self.self_test())

    # fault: another user's file or link, or a folder, has the name of the report file
    def test_replaces_anything_but_a_folder_and_follows_no_link(self) -> None:
        victim = self.folder / "victim"
        victim.write_text("precious")
        for put in (lambda: REPORT.write_text("old\n" * 1000), lambda: REPORT.symlink_to(victim)):
            put()
            os.lchown(REPORT, NOBODY if os.geteuid() == 0 else -1, -1)
            self.assert_reported(self.self_test())
            self.assertEqual(victim.read_text(), "precious")
            REPORT.unlink()
        REPORT.mkdir()
        self.assert_ended(self.self_test())
        self.assertEqual(list(REPORT.iterdir()), [])

    # fault: standard output is full or closed
    # seen: "The report cannot be printed: write standard output: …"
    def test_an_unusable_standard_output_leaves_the_status_of_the_verdict(self) -> None:
        words = "The report cannot be printed: write standard output: "
        for status, report, redirection, error in ((0, PASSED, ">&-", "Bad file descriptor"),
                                                   (1, WITHOUT_RELEASE, ">/dev/full", "No space left on device")):
            done = self.self_test(prefix=("sh", "-c", f'exec "$0" "$@" {redirection}'))
            self.assert_ended(done, status, "", f"{words}{error}\n")
            self.assertEqual(REPORT.read_text(), report)
            self.app.manifest_file.write_text("{}")


class SystemFaults(WindowedProcess):
    # fault: the user may start no threads, or there are too few descriptors for Qt
    # seen: "The flasher cannot run: start the window: …"
    def test_the_limits_of_threads_and_descriptors_are_named_in_one_sentence(self) -> None:
        sentence = "The flasher cannot run: start the window: {}\n".format
        self.assert_ended(self.self_test(**limit(resource.RLIMIT_NPROC, 0), **ORDINARY_USER), 1, "",
                          sentence("Resource temporarily unavailable"))
        for number in range(4, 13):
            self.assert_ended(self.self_test(**limit(resource.RLIMIT_NOFILE, number)), 1, "",
                              sentence("Too many open files"))

    # fault: no display can be used
    # seen: "No display is available."
    def test_no_display_is_one_sentence(self) -> None:
        display = "No display is available. Run with --self-test to check the release without a window.\n"
        self.app.environment |= {"QT_QPA_PLATFORM": "xcb", "DISPLAY": ":4711"}
        self.assert_ended(self.app.run(), 1, "", display)
        del self.app.environment["DISPLAY"]
        self.assert_ended(self.app.run(), 1, "", display)


if __name__ == "__main__":
    unittest.main()
