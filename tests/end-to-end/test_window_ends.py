"""However the window ends in the middle of a write, the device's flash then holds the image."""

from __future__ import annotations

import ctypes
import os
import resource
import signal
import subprocess
import sys
import unittest
from pathlib import Path
from typing import Callable, Iterator, Sequence

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from flashing_session import CONFIRM, FLASH, IMAGE, START, SessionTest  # noqa: E402
from support.device import PORT  # noqa: E402
from support.flasher_window import FlasherWindow  # noqa: E402
from support.real_tool import load_tests  # noqa: E402, F401
from support.waiting import wait_until  # noqa: E402

SLOW = ("--bytes-per-second", "200000")
PR_SET_CHILD_SUBREAPER = 36
# Runs a command as the leader of a session on a terminal.
ON_THE_TERMINAL = 'exec setsid --ctty "$@" <"$0"'


def children_of(process: int) -> list[int]:
    tasks = Path(f"/proc/{process}/task").iterdir()
    return [int(child) for task in tasks for child in (task / "children").read_text().split()]


class WindowEndsTest(SessionTest):
    @classmethod
    def setUpClass(cls) -> None:
        # Processes that the window leaves running become children of this process, so that it can wait for them.
        ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1)
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

    def wait_for_end_of(self, process: int) -> int:
        """Reaps it. Returns its exit status, or the negative number of its signal."""
        ended = wait_until(lambda: (waited := os.waitpid(process, os.WNOHANG))[0] and waited, f"the end of {process}")
        return os.waitstatus_to_exitcode(ended[1])

    def begin(self, window, **options) -> None:
        self.start_flash(window, **options)
        window.wait_for_log("Writing at")
        self.tool = self.tool_process(window)
        self.left = [child for child in children_of(window.process.pid) if child != self.tool]

    def expect_finished_flash(self, device) -> None:
        for process in (self.tool, *self.left):
            self.assertEqual(self.wait_for_end_of(process), 0, device.event_lines())
        device.wait_for("closed")
        self.assertTrue(device.holds(IMAGE), "the device's flash is the image, byte for byte")

    def ends(self) -> Iterator[tuple[str, int, Callable[[FlasherWindow], object], Sequence[str]]]:
        """What happens, the program's status then, how to make it happen, and a command that runs the program."""
        yield "closed by the window manager", 0, lambda window: window.close(), ()
        yield "quit by the key", 0, lambda window: window.type_keys("ctrl+q"), ()
        yield "crashed", -signal.SIGSEGV, lambda window: window.process.send_signal(signal.SIGSEGV), ()
        for number in (signal.SIGINT, signal.SIGKILL):
            yield (f"{number.name} to the process group", -number,
                   lambda window, number=number: os.killpg(window.process.pid, number), ["/usr/bin/setsid"])
        master, terminal = os.openpty()
        prefix = ["/bin/sh", "-c", ON_THE_TERMINAL, os.ttyname(terminal)]
        os.close(terminal)
        yield "its terminal closed", -signal.SIGHUP, lambda _: os.close(master), prefix
        yield "killed while the tool is stopped", -signal.SIGKILL, self.kill_while_the_tool_is_stopped, ()

    def kill_while_the_tool_is_stopped(self, window: FlasherWindow) -> None:
        os.kill(self.tool, signal.SIGSTOP)
        window.process.kill()
        window.process.wait()
        os.kill(self.tool, signal.SIGCONT)

    # fault: during the write the window is closed, quit or killed, or crashes, or its terminal is closed
    def test_the_flash_finishes_however_the_window_ends(self) -> None:
        for what, status, end, prefix in self.ends():
            with self.subTest(what), self.plugged_in(*SLOW) as device, self.window(prefix) as window:
                self.begin(window)
                end(window)
                self.assertEqual(window.wait_for_end_of_program(), status)
                self.assertEqual(window.output.read_bytes(), b"")
                self.assertNotIn("closed", device.event_lines())
                self.expect_finished_flash(device)
                self.assertEqual(children_of(os.getpid()), [device.process.pid])

    # fault: the display goes away during the write
    # seen: "The window closed because of an error: The X11 connection broke"
    def test_loses_its_display(self) -> None:
        reading, writing = os.pipe()
        server = subprocess.Popen(["Xvfb", "-displayfd", str(writing), "-nolisten", "tcp"], pass_fds=[writing],
                                  stderr=subprocess.DEVNULL)
        self.addCleanup(lambda: (server.kill(), server.wait()))
        os.close(writing)
        with open(reading) as report:
            display = report.readline().strip()
        with self.plugged_in(*SLOW) as device, self.window(
                ["/usr/bin/env", f"DISPLAY=:{display}"]) as window:
            self.begin(window, press=window.activate)
            server.kill()
            server.wait()
            self.assertEqual(window.wait_for_end_of_program(), 1)
            self.assertRegex(window.output.read_text(),
                             r"\AThe window closed because of an error: The X11 connection broke.*\n\Z")
            self.expect_finished_flash(device)

    # fault: the user opens a new window while the job of the old one still writes
    # seen: "An earlier flash job is still running on …. Wait until it ends, then flash again."
    def test_refuses_the_port_of_a_job_that_still_runs(self) -> None:
        with self.plugged_in(*SLOW) as device:
            with self.window() as window:
                self.begin(window)
            with self.window() as window:
                os.kill(self.tool, signal.SIGSTOP)  # checking the window takes time
                window.press(FLASH)
                window.press(CONFIRM)
                self.expect_alert(window, "QELMO Flasher stopped", f"An earlier flash job is still running on {PORT}. "
                                  "Wait until it ends, then flash again.")
                window.answer("OK")
                self.assertEqual(window.status(), "FLASHER COULD NOT START")
                self.assert_controls_are_back(window)
                self.assertTrue(window.log().endswith(START), window.log())
                self.assertEqual(children_of(window.process.pid), [])
                os.kill(self.tool, signal.SIGCONT)
                self.expect_finished_flash(device)
                self.start_flash(window)
                self.expect_complete(window, device)


if __name__ == "__main__":
    unittest.main(verbosity=2)
