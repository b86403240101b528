"""The script that gives a command a display of its own: its status, and that it leaves nothing behind."""

from __future__ import annotations

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

WITH_DISPLAY = str(pathlib.Path(__file__).parents[1] / "with-display")
EVERYTHING = ("--window-manager", "--accessibility")
SECONDS = 60  # only a broken program reaches it


def processes_with(text: str) -> list[str]:
    """The running processes in whose environment this text stands."""
    found = []
    for entry in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if text.encode() in (entry / "environ").read_bytes():
                found.append((entry / "cmdline").read_text().replace("\0", " "))
        except OSError:
            continue  # it has ended meanwhile, or is another user's
    return found


class WithDisplay(unittest.TestCase):
    def setUp(self) -> None:
        # Its files go here, and the environment of all that it starts names the folder.
        self.folder = tempfile.mkdtemp(prefix="qelmo-display-")
        self.addCleanup(shutil.rmtree, self.folder)

    def start(self, *arguments: str, **environment: str) -> subprocess.Popen:
        process = subprocess.Popen([WITH_DISPLAY, *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True,
                                   env=dict(os.environ, TMPDIR=self.folder, **environment))
        self.addCleanup(process.kill)
        return process

    def run_script(self, *arguments: str, given: str = "", **environment: str) -> tuple[int, str, str]:
        process = self.start(*arguments, **environment)
        output, errors = process.communicate(given, timeout=SECONDS)
        return process.returncode, output, errors

    def assert_nothing_is_left(self) -> None:
        self.assertEqual(os.listdir(self.folder), [])
        self.assert_no_process_is_left()

    def assert_no_process_is_left(self) -> None:
        end = time.monotonic() + SECONDS
        while processes_with(self.folder):
            self.assertLess(time.monotonic(), end, processes_with(self.folder))
            time.sleep(0.01)

    def test_passes_input_output_and_status_through(self) -> None:
        status, output, errors = self.run_script("--", "sh", "-c", "cat; echo error >&2; exit 42", given="words")
        self.assertEqual((status, output, errors), (42, "words", "error\n"))
        self.assert_nothing_is_left()

    def test_makes_the_screen_as_large_as_the_scale_says(self) -> None:
        for scale, size in (("1", "1280 900\n"), ("2", "2560 1800\n")):
            with self.subTest(scale=scale):
                self.assertEqual(self.run_script("--scale", scale, "--", "xdotool", "getdisplaygeometry"),
                                 (0, size, ""))

    def test_ends_window_manager_buses_and_leftovers_with_the_command(self) -> None:
        status, output, _ = self.run_script(*EVERYTHING, "--", "sh", "-c",
                                            "sleep 1000 >&- 2>&- & xprop -root _NET_SUPPORTING_WM_CHECK; "
                                            "echo $DBUS_SESSION_BUS_ADDRESS $QT_LINUX_ACCESSIBILITY_ALWAYS_ON")
        self.assertEqual(status, 0)
        self.assertIn("window id # 0x", output)
        self.assertRegex(output, r"\nunix:path=\S+ 1\n$")
        self.assert_nothing_is_left()

    def test_leaves_nothing_behind_when_it_is_told_to_end(self) -> None:
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(signal=number.name):
                process = self.start(*EVERYTHING, "--", "sh", "-c", "echo running; exec sleep 1000")
                self.assertEqual(process.stdout.readline(), "running\n")
                process.send_signal(number)
                process.communicate(timeout=SECONDS)
                self.assertEqual(process.returncode, 128 + number)
                self.assert_nothing_is_left()

    def test_ends_all_processes_when_it_is_killed(self) -> None:
        process = self.start(*EVERYTHING, "--", "sh", "-c", "echo running; exec sleep 1000")
        self.assertEqual(process.stdout.readline(), "running\n")
        process.kill()
        process.communicate(timeout=SECONDS)
        self.assert_no_process_is_left()

    def test_names_each_missing_program_in_one_line(self) -> None:
        few = pathlib.Path(self.folder) / "few"
        few.mkdir()
        for name in ("bash", "env", "setpriv", "setsid"):
            (few / name).symlink_to(shutil.which(name))
        status, output, errors = self.run_script("--window-manager", "--", "true", PATH=str(few))
        self.assertEqual((status, output), (77, ""))
        self.assertEqual(errors, "with-display: this program is missing: Xvfb\n"
                                 "with-display: this program is missing: openbox\n")

    # A helper that breaks down must not look like one that is not installed.
    def test_fails_when_a_helper_does_not_start(self) -> None:
        broken = pathlib.Path(self.folder) / "broken"
        broken.mkdir()
        (broken / "dbus-send").symlink_to(shutil.which("false"))
        status, output, errors = self.run_script("--accessibility", "--", "true",
                                                 PATH=f"{broken}:{os.environ['PATH']}")
        self.assertEqual((status, output, errors), (1, "", "with-display: the AT-SPI bus did not start\n"))

    def test_refuses_a_wrong_use(self) -> None:
        for arguments in ((), ("--",), ("--scale", "x", "--", "true"), ("true",)):
            with self.subTest(arguments=arguments):
                status, _, errors = self.run_script(*arguments)
                self.assertEqual(status, 2)
                self.assertTrue(errors.startswith("usage: with-display "), errors)


if __name__ == "__main__":
    for program in ("Xvfb", "openbox", "dbus-daemon", "xdotool", "xprop"):
        if shutil.which(program) is None:
            print(f"this program is missing: {program}", file=sys.stderr)
            sys.exit(77)
    unittest.main()
