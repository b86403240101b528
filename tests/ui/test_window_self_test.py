"""The windowed program as whole processes: the window self-test, a start that fails, and an ordinary session."""

from __future__ import annotations

import glob
import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

REPORT = "/tmp/qelmo-flasher-window-self-test.txt"
PRIVATE_DEV = pathlib.Path(__file__).parents[1] / "device" / "private-dev"
TITLE = "QELMO Varnox Flasher"
SECONDS = 60  # only a broken program reaches it

PASSED = (
    "window_self_test=OK\n"
    "window_visible=true\n"
    f"window_title={TITLE}\n"
    "icon_resource=OK\n"
    "refresh_button_title=REFRESH BUILD\n"
    "flash_button_title=FLASH VERIFIED VARNOX\n"
)
FAILED_WITHOUT_RELEASE = PASSED.replace("=OK", "=FAILED", 1).replace("FLASH VERIFIED VARNOX", "VALIDATING RELEASE")


def remove(path: str) -> None:
    if os.path.isdir(path) and not os.path.islink(path):
        shutil.rmtree(path)
    elif os.path.lexists(path):
        os.unlink(path)


class Bundle:
    """A copy of the built application with a small release, and a home folder with a tool."""

    def __init__(self, folder: pathlib.Path):
        built = pathlib.Path(os.environ["QELMO_BUNDLE"])
        self.root = folder / f"{TITLE}.app"
        self.contents = self.root / "Contents"
        self.resources = self.contents / "Resources"
        for part in ("MacOS", "Frameworks"):
            shutil.copytree(built / "Contents" / part, self.contents / part)
        self.resources.mkdir()
        self.icon = self.resources / "AppIcon.icns"
        self.icon.write_bytes(b"not a picture: the program has one of its own")
        self.manifest = self.resources / "qelmo-varnox-flash-manifest.json"
        self.write_release()
        self.home = folder / "home"
        self.tool = self.home / ".platformio/packages/tool-esptoolpy/esptool.py"
        self.tool.parent.mkdir(parents=True)
        self.tool.write_text("print('4.5.1')\n")

    @property
    def executable(self) -> str:
        return str(self.contents / "MacOS" / "QelmoFlasher")

    def write_release(self) -> None:
        image = bytearray(65537)
        image[0] = image[65536] = 0xE9
        (self.resources / "release-complete.bin").write_bytes(image)
        self.manifest.write_text(json.dumps({
            "schemaVersion": 1, "name": "Varnox", "version": "1.0.0", "chipFamily": "ESP32-S3",
            "hardware": "Cardputer ADV",
            "binary": {"path": "release-complete.bin", "offset": 0, "size": len(image),
                       "sha256": hashlib.sha256(image).hexdigest()},
            "flash": {"baud": 921600, "flashSize": "8MB", "flashMode": "dio", "flashFrequency": "80m",
                      "eraseAllInternalFlash": True, "after": "hard_reset", "confirmationText": "FLASH VARNOX"},
        }))


class WindowedProcess(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="qelmo-window-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.addCleanup(remove, REPORT)
        remove(REPORT)
        self.bundle = Bundle(self.folder)
        self.environment = dict(os.environ, HOME=str(self.bundle.home))

    def run_program(self, *prefix: str, arguments: tuple[str, ...] = ("--window-self-test",),
                    **options) -> subprocess.CompletedProcess:
        options.setdefault("stdout", subprocess.PIPE)
        return subprocess.run([*prefix, self.bundle.executable, *arguments], stderr=subprocess.PIPE, text=True,
                              env=self.environment, timeout=SECONDS, check=False, **options)

    def assert_passed(self, done: subprocess.CompletedProcess) -> None:
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, PASSED, ""))

    def assert_one_sentence(self, done: subprocess.CompletedProcess, beginning: str) -> None:
        self.assertEqual(done.returncode, 1)
        self.assertTrue(done.stderr.startswith(beginning), done.stderr)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertTrue(done.stderr.endswith("\n"), done.stderr)

    def assert_no_temporary_file(self) -> None:
        self.assertEqual(glob.glob(REPORT + ".*"), [])


class SelfTestReport(WindowedProcess):
    def test_it_goes_to_the_file_and_to_standard_output(self) -> None:
        self.assert_passed(self.run_program())
        self.assertEqual(pathlib.Path(REPORT).read_text(), PASSED)
        self.assert_no_temporary_file()

    def test_it_replaces_a_stale_file(self) -> None:
        pathlib.Path(REPORT).write_text("old\n" * 1000)
        self.assert_passed(self.run_program())
        self.assertEqual(pathlib.Path(REPORT).read_text(), PASSED)

    def test_the_toolkits_messages_do_not_reach_standard_error(self) -> None:
        self.environment["QT_LOGGING_RULES"] = "*=true"
        self.environment["QT_STYLE_OVERRIDE"] = "nosuch"
        self.assert_passed(self.run_program())

    # fault: the bundle's folder is named like what the loader replaces in a path
    def test_the_bundle_may_be_in_a_folder_of_any_name(self) -> None:
        decoys = self.folder / "decoys"
        decoys.mkdir()
        (decoys / "libQelmoWindow.so").write_bytes(b"no library")
        self.environment["LD_LIBRARY_PATH"] = str(decoys)
        for name in ("$ORIGIN", "$LIB", "${PLATFORM}", "a:b;c d", "übung"):
            with self.subTest(name):
                self.bundle = Bundle(self.folder / name)
                self.environment["HOME"] = str(self.bundle.home)
                self.assert_passed(self.run_program())

    def test_the_argument_may_stand_anywhere(self) -> None:
        self.assert_passed(self.run_program(arguments=("-platform", "nosuch", "--window-self-test", "-x")))

    # fault: the bundle has no icon
    # seen: "self_test=FAILED", "resource=MISSING"
    def test_a_missing_icon_fails_it(self) -> None:
        self.bundle.icon.unlink()
        done = self.run_program()
        expected = PASSED.replace("self_test=OK", "self_test=FAILED").replace("resource=OK", "resource=MISSING")
        self.assertEqual((done.returncode, done.stdout, done.stderr), (1, expected, ""))
        self.assertEqual(pathlib.Path(REPORT).read_text(), expected)

    # fault: the release is not valid
    # seen: "VALIDATING RELEASE"
    def test_an_invalid_release_fails_it(self) -> None:
        self.bundle.manifest.write_text("{}")
        done = self.run_program()
        self.assertEqual((done.returncode, done.stdout, done.stderr), (1, FAILED_WITHOUT_RELEASE, ""))
        self.assertEqual(pathlib.Path(REPORT).read_text(), FAILED_WITHOUT_RELEASE)

    # fault: a folder stands where the report file goes
    def test_a_folder_in_the_files_place_changes_nothing(self) -> None:
        os.mkdir(REPORT)
        self.assert_passed(self.run_program())
        self.assertTrue(os.path.isdir(REPORT))
        self.assert_no_temporary_file()

    # fault: /tmp is read-only
    def test_a_readonly_tmp_changes_nothing(self) -> None:
        done = self.run_program(str(PRIVATE_DEV), "--readonly-tmp", "--")
        if done.returncode == 77:
            self.skipTest(done.stderr)
        self.assert_passed(done)
        self.assertFalse(os.path.exists(REPORT))

    # fault: a link stands where the report file goes
    def test_a_symbolic_link_in_the_files_place_is_replaced_and_not_followed(self) -> None:
        victim = self.folder / "victim"
        victim.write_text("precious")
        os.symlink(victim, REPORT)
        self.assert_passed(self.run_program())
        self.assertEqual(victim.read_text(), "precious")
        self.assertFalse(os.path.islink(REPORT))
        self.assertEqual(pathlib.Path(REPORT).read_text(), PASSED)

    @unittest.skipUnless(os.geteuid() == 0, "needs a file of another user")
    # fault: another user's file stands where the report file goes
    def test_another_users_file_is_replaced_where_the_system_allows_it(self) -> None:
        pathlib.Path(REPORT).write_text("window_self_test=OK\n")
        os.chown(REPORT, 65534, 65534)
        self.bundle.manifest.write_text("{}")
        done = self.run_program()
        self.assertEqual((done.returncode, done.stdout, done.stderr), (1, FAILED_WITHOUT_RELEASE, ""))
        self.assertEqual(pathlib.Path(REPORT).read_text(), FAILED_WITHOUT_RELEASE)

    # fault: standard output is full
    # seen: "The report cannot be printed: write standard output: No space left on device"
    def test_a_full_standard_output_leaves_the_status_of_the_verdict(self) -> None:
        sentence = "The report cannot be printed: write standard output: No space left on device\n"
        for manifest, status, report in ((None, 0, PASSED), ("{}", 1, FAILED_WITHOUT_RELEASE)):
            with self.subTest(status), open("/dev/full", "w", encoding="utf-8") as full:
                if manifest:
                    self.bundle.manifest.write_text(manifest)
                done = self.run_program(stdout=full)
                self.assertEqual((done.returncode, done.stderr), (status, sentence))
                self.assertEqual(pathlib.Path(REPORT).read_text(), report)

    # fault: standard output is closed
    # seen: "The report cannot be printed:"
    def test_a_closed_standard_output_leaves_the_status_of_the_verdict(self) -> None:
        done = self.run_program("sh", "-c", 'exec "$0" "$@" >&-')
        self.assertEqual((done.returncode, done.stderr.count("\n")), (0, 1))
        self.assertTrue(done.stderr.startswith("The report cannot be printed: "), done.stderr)
        self.assertEqual(pathlib.Path(REPORT).read_text(), PASSED)


class StartThatFails(WindowedProcess):
    # fault: no display can be used
    # seen: "The window cannot be opened: no display can be used."
    def test_without_a_display_it_is_one_sentence(self) -> None:
        for display in (None, ":4711"):
            with self.subTest(display=display):
                self.environment.pop("DISPLAY", None)
                if display:
                    self.environment["DISPLAY"] = display
                done = self.run_program(arguments=())
                self.assert_one_sentence(done, "The window cannot be opened: no display can be used.")
                self.assertEqual(done.stdout, "")

    # fault: the bundle has no window library
    # seen: "The window cannot be opened:"
    def test_without_the_window_library_it_is_one_sentence(self) -> None:
        shutil.rmtree(self.bundle.contents / "Frameworks")
        done = self.run_program()
        self.assert_one_sentence(done, "The window cannot be opened: ")
        self.assertEqual(done.stdout, "")
        self.assertFalse(os.path.exists(REPORT))


class Session(WindowedProcess):
    """The user's way: the real keyboard and mouse of the X server, through the window manager."""

    def start(self) -> subprocess.Popen:
        program = subprocess.Popen([self.bundle.executable, "--window-self-test-not"], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True, env=self.environment)
        self.addCleanup(program.kill)
        return program

    @staticmethod
    def xdotool(*arguments: str) -> str:
        return subprocess.run(["xdotool", *arguments], stdout=subprocess.PIPE, text=True, timeout=SECONDS,
                              check=False).stdout

    def window(self) -> str:
        return self.xdotool("search", "--onlyvisible", "--name", f"^{TITLE}$").strip()

    def wait_until(self, condition):
        """Returns what the condition returns, once that is true."""
        end = time.monotonic() + SECONDS
        while not (result := condition()):
            self.assertLess(time.monotonic(), end, "it did not happen in time")
            time.sleep(0.01)
        return result

    def wait_for_window(self) -> None:
        """Until the main window has the keyboard."""
        window = self.wait_until(self.window)
        self.xdotool("windowactivate", "--sync", window)
        self.wait_until(lambda: self.xdotool("getwindowfocus").strip() == window)

    def assert_quits_silently(self, program: subprocess.Popen) -> None:
        self.xdotool("key", "alt+F4")
        output, errors = program.communicate(timeout=SECONDS)
        self.assertEqual((program.returncode, output, errors), (0, "", ""))
        self.assertFalse(os.path.exists(REPORT))

    def test_closing_the_window_ends_the_program_without_a_word(self) -> None:
        program = self.start()
        self.wait_for_window()
        self.assert_quits_silently(program)


if __name__ == "__main__":
    if shutil.which("xdotool") is None:
        print("this program is missing: xdotool", file=sys.stderr)
        sys.exit(77)
    unittest.main()
