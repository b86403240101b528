"""Child processes that end when the script ends."""

from __future__ import annotations

import contextlib
import os
import re
import signal
import subprocess
from typing import Callable, Iterator, NamedTuple, Optional, Sequence

STOPPING_SIGNALS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP, signal.SIGQUIT)
# The tool overwrites its progress with backspaces; the log keeps only the last state.
REDRAWN = re.compile(r"[^\n]*\x08")


class Interrupted(Exception):
    def __init__(self, number: int) -> None:
        super().__init__(signal.Signals(number).name)
        self.number = number


class Signals:
    """Turns the first signal that asks to stop into `Interrupted`. Later ones are ignored, so that the last lines
    are printed."""

    def __init__(self) -> None:
        self._held = False
        self._pending: Optional[int] = None

    def install(self) -> None:
        for number in STOPPING_SIGNALS:
            signal.signal(number, self._handle)

    @staticmethod
    def ignore() -> None:
        for number in STOPPING_SIGNALS:
            signal.signal(number, signal.SIG_IGN)

    def _handle(self, number: int, _frame: object) -> None:
        if self._pending is None:
            self._pending = number
            self._raise_pending()

    def _raise_pending(self) -> None:
        if self._pending is not None and not self._held:
            self.ignore()
            raise Interrupted(self._pending)

    @contextlib.contextmanager
    def hold(self) -> Iterator[None]:
        """A signal that arrives inside the block is raised at its end."""
        self._held = True
        try:
            yield
        finally:
            self._held = False
        self._raise_pending()


class Ended(NamedTuple):
    status: int
    output: str


class Children:
    """Runs one child after the other. Each has its own session: Ctrl+C reaches only this script, which then ends the
    child and everything that the child has started."""

    def __init__(self, signals: Signals, show: Callable[[bytes], None]) -> None:
        self._signals, self._show = signals, show

    def run(self, command: Sequence[str], keep: Callable[[str], None] = lambda text: None) -> Ended:
        """Shows the output as it arrives and passes it to `keep` at the end, however the child ends."""
        output = bytearray()
        process = None
        try:
            with self._signals.hold():
                process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                           stderr=subprocess.STDOUT, start_new_session=True,
                                           env={**os.environ, "PYTHONUNBUFFERED": "1"})
            while chunk := os.read(process.stdout.fileno(), 65536):
                output += chunk
                self._show(chunk)
            process.wait()
        finally:
            if process is not None and process.returncode is None:
                end_group(process)
            text = REDRAWN.sub("", output.decode("utf-8", "replace").replace("\r", "\n"))
            keep(text)
        return Ended(process.returncode, text)


def end_group(process: subprocess.Popen) -> None:
    """Ends the child and everything that it has started: all of them are in its group."""
    with contextlib.suppress(ProcessLookupError, PermissionError):
        os.killpg(process.pid, signal.SIGKILL)
    process.stdout.close()
    process.wait()
