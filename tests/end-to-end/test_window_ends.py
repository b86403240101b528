"""The window goes in the middle of a write, in every way there is: the device's flash is the image all the same."""

from __future__ import annotations

import ctypes
import os
import resource
import signal
import subprocess
import unittest
from pathlib import Path
from typing import Callable

from flasher_window import FlasherWindow, wait_until
from flashing_session import (CONFIRM, FLASH, OTHER_PORT, PORT, SAMPLE_IMAGE, START, FlashingSession, JobTest,  # noqa: F401
                              load_tests)

SLOW = ("--bytes-per-second", "200000")
PR_SET_CHILD_SUBREAPER = 36
# Runs a command as the leader of a session on the terminal that is named first.
ON_A_TERMINAL = ("import fcntl, os, sys, termios\n"
                 "os.setsid()\n"
                 "terminal = os.open(sys.argv[1], os.O_RDWR)\n"
                 "fcntl.ioctl(terminal, termios.TIOCSCTTY, 0)\n"
                 "os.dup2(terminal, 0)\n"
                 "os.execv(sys.argv[2], sys.argv[2:])\n")
# Runs a command where the shell cannot be started.
WITHOUT_A_SHELL = ("import os, subprocess, sys\n"
                   "subprocess.run(['mount', '--bind', '/dev/null', os.path.realpath('/bin/sh')], check=True)\n"
                   "os.execv(sys.argv[1], sys.argv[1:])\n")


def children_of(process: int) -> list[int]:
    tasks = Path(f"/proc/{process}/task").iterdir()
    return [int(child) for task in tasks for child in (task / "children").read_text().split()]


class WindowEndsTest(JobTest):
    @classmethod
    def setUpClass(cls) -> None:
        super().setUpClass()
        # What the window leaves behind becomes this process's child, so that its end can be waited for.
        ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1)
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

    def wait_for_end_of(self, process: int) -> int:
        """Reaps it; returns its exit status, or the number of its signal with a minus."""
        ended = wait_until(lambda: (waited := os.waitpid(process, os.WNOHANG))[0] and waited, f"the end of {process}")
        return os.waitstatus_to_exitcode(ended[1])

    def begin(self, window, **options) -> None:
        self.start_flash(window, **options)
        wait_until(lambda: "Writing at" in window.log(), "the first progress line")
        self.tool = self.tool_process(window)
        self.left = [child for child in children_of(window.process.pid) if child != self.tool]

    def expect_finished_flash(self, device) -> None:
        """The tool ends well, and nothing else is left of the job."""
        self.assertEqual(self.wait_for_end_of(self.tool), 0, device.event_lines())
        wait_until(lambda: "closed" in device.event_lines(), "the end of the tool's session")
        self.assertTrue(device.holds(SAMPLE_IMAGE), "the device's flash is the image, byte for byte")
        for helper in self.left:
            self.assertEqual(self.wait_for_end_of(helper), 0)
        self.assertEqual(children_of(os.getpid()), [device.process.pid])

    def end_and_expect_finished_flash(self, end: Callable[[FlasherWindow], None], status: int, prefix=()) -> None:
        with self.session.device(*SLOW) as device, self.session.window(prefix) as window:
            self.begin(window)
            end(window)
            wait_until(lambda: window.process.poll() is not None, "the end of the program")
            self.assertEqual(window.process.returncode, status)
            self.assertEqual(window.output.read_bytes(), b"")
            self.assertNotIn("closed", device.event_lines())
            self.expect_finished_flash(device)

    # fault: the window is closed during the write
    def test_closed_by_the_window_manager(self) -> None:
        self.end_and_expect_finished_flash(lambda window: window.close(), 0)

    # fault: the user quits during the write
    def test_quit_by_the_key(self) -> None:
        self.end_and_expect_finished_flash(lambda window: window.type_keys("ctrl+q"), 0)

    # fault: the window is killed, or crashes, during the write
    def test_killed_by_a_signal(self) -> None:
        for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT, signal.SIGKILL, signal.SIGSEGV):
            with self.subTest(number):
                self.end_and_expect_finished_flash(lambda window: window.process.send_signal(number), -number)

    # fault: the window's whole process group is killed during the write
    def test_killed_with_its_process_group(self) -> None:
        for number in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT, signal.SIGKILL):
            with self.subTest(number):
                self.end_and_expect_finished_flash(lambda window: os.killpg(window.process.pid, number), -number,
                                                   ["/usr/bin/setsid"])

    # fault: the terminal in which the program was started is closed during the write
    def test_hung_up_with_its_terminal(self) -> None:
        master, terminal = os.openpty()
        prefix = ["/usr/bin/python3", "-c", ON_A_TERMINAL, os.ttyname(terminal)]
        os.close(terminal)
        self.end_and_expect_finished_flash(lambda _: os.close(master), -signal.SIGHUP, prefix)

    # fault: the window is killed while the tool is stopped
    def test_killed_while_the_tool_is_stopped(self) -> None:
        def end(window) -> None:
            os.kill(self.tool, signal.SIGSTOP)
            window.process.kill()
            window.process.wait()
            os.kill(self.tool, signal.SIGCONT)

        self.end_and_expect_finished_flash(end, -signal.SIGKILL)

    # fault: the display goes away during the write
    # seen: "The window cannot go on: The X11 connection broke"
    def test_loses_its_display(self) -> None:
        reading, writing = os.pipe()
        server = subprocess.Popen(["Xvfb", "-displayfd", str(writing), "-nolisten", "tcp"], pass_fds=[writing],
                                  stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (server.kill(), server.wait()))
        os.close(writing)
        with open(reading) as report:
            display = report.readline().strip()
        with self.session.device(*SLOW) as device, self.session.window(
                ["/usr/bin/env", f"DISPLAY=:{display}"]) as window:
            self.begin(window, press=window.activate)
            server.kill()
            server.wait()
            wait_until(lambda: window.process.poll() is not None, "the end of the program")
            self.assertEqual(window.process.returncode, 1)
            self.assertRegex(window.output.read_text(), r"\AThe window cannot go on: The X11 connection broke.*\n\Z")
            self.expect_finished_flash(device)

    # fault: the user comes back to a new window while the job of the old one still writes
    # seen: "An earlier flash job is still running on …; it ends by itself, and then the port is free again."
    def test_refuses_the_port_of_a_job_that_still_runs(self) -> None:
        with self.session.device(*SLOW) as device:
            with self.session.window() as window:
                self.begin(window)
            with self.session.window() as window:
                os.kill(self.tool, signal.SIGSTOP)  # a look at a window takes its time
                window.press(FLASH)
                window.press(CONFIRM)
                wait_until(lambda: window.alert_texts()[:1] == ["QELMO Flasher stopped"], "the error alert")
                self.assertEqual(window.alert_texts()[1], f"An earlier flash job is still running on {PORT}; it ends "
                                 "by itself, and then the port is free again.")
                window.answer("OK")
                self.assertEqual(window.status(), "FLASHER COULD NOT START")
                self.assertTrue(window.log().endswith(START), window.log())
                self.assert_controls_are_back(window)
                self.assertEqual(children_of(window.process.pid), [])
                os.kill(self.tool, signal.SIGCONT)
                self.assertEqual(self.wait_for_end_of(self.tool), 0)
                self.assertTrue(device.holds(SAMPLE_IMAGE))
                for helper in self.left:
                    self.wait_for_end_of(helper)
                self.start_flash(window)
                self.expect_complete(window)

    # fault: what lets a job outlive its window cannot be started
    # seen: "FLASHER COULD NOT START", "QELMO Flasher stopped", "start /bin/sh: Permission denied"
    def test_nothing_is_started_that_could_not_outlive_the_window(self) -> None:
        prefix = ["/usr/bin/unshare", "-m", "/usr/bin/python3", "-c", WITHOUT_A_SHELL]
        with self.session.device() as device, self.session.window(prefix) as window:
            window.press(FLASH)
            window.press(CONFIRM)
            wait_until(lambda: window.alert_texts()[:1] == ["QELMO Flasher stopped"], "the error alert")
            self.assertEqual(window.alert_texts()[1], "start /bin/sh: Permission denied")
            window.answer("OK")
            self.assertEqual(window.status(), "FLASHER COULD NOT START")
            self.assert_controls_are_back(window)
            self.assertEqual(device.event_lines(), [])
            self.assertEqual(children_of(window.process.pid), [])

    def test_two_windows_flash_at_two_ports_at_the_same_time(self) -> None:
        start = START.replace(str(PORT), str(OTHER_PORT))
        second_folder = self.folder / "second"
        second_folder.mkdir()
        second = FlashingSession(second_folder, self.home)
        with self.session.device(*SLOW, "--port", str(OTHER_PORT)) as other:
            with self.session.window() as window:
                self.begin(window, start=start)
            # The first port is the one that is chosen when a window opens.
            with second.device() as device, second.window() as window:
                self.assertEqual(window.selected_port(), str(PORT))
                self.start_flash(window)
                self.expect_complete(window)
                self.assertTrue(device.holds(SAMPLE_IMAGE))
            self.assertEqual(self.wait_for_end_of(self.tool), 0)
            self.assertTrue(other.holds(SAMPLE_IMAGE))

    def test_the_tool_gets_what_the_program_was_started_with_and_nothing_else(self) -> None:
        os.environ["DESKTOP_STARTUP_ID"] = "launcher-1_TIME2"
        self.addCleanup(os.environ.pop, "DESKTOP_STARTUP_ID")
        with self.session.device(*SLOW) as device, self.session.window() as window:
            self.begin(window)
            tool, program = Path(f"/proc/{self.tool}"), Path(f"/proc/{window.process.pid}")
            given = dict(os.environ, HOME=str(self.home), PYTHONUNBUFFERED="1")
            self.assertEqual(sorted((tool / "environ").read_bytes().rstrip(b"\0").split(b"\0")),
                             sorted(os.fsencode(f"{name}={value}") for name, value in given.items()))
            open_files = {entry.name: os.readlink(entry) for entry in (tool / "fd").iterdir()}
            self.assertEqual(open_files["0"], os.readlink(program / "fd/0"))
            self.assertEqual(open_files["1"], open_files["2"])
            programs_own = {os.readlink(entry) for entry in (program / "fd").iterdir()}
            self.assertEqual({file for number, file in open_files.items() if number not in "012"} & programs_own, set())
            self.assertEqual(os.readlink(tool / "cwd"), os.readlink(program / "cwd"))
            window.process.kill()
            window.process.wait()
            self.expect_finished_flash(device)


if __name__ == "__main__":
    unittest.main(verbosity=2)
