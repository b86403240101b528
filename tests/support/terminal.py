"""A program on a terminal of its own, as somebody at a keyboard meets it."""

import fcntl
import os
import pty
import select
import subprocess
import termios
import time

ONLY_WHEN_BROKEN = 240  # seconds; the real tool needs half a minute for a read on a busy machine


class Terminal:
    def __init__(self, command, **options):
        self._master, slave = pty.openpty()
        self.text = ""
        self._seen = 0
        self.process = subprocess.Popen(
            [str(part) for part in command], stdin=slave, stdout=slave, stderr=slave, start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0), **options)
        os.close(slave)

    def wait_for(self, words):
        """Waits for words that come after those of the last call."""
        end = time.monotonic() + ONLY_WHEN_BROKEN
        while (at := self.text.find(words, self._seen)) < 0:
            if time.monotonic() > end or not self._read_on(end):
                raise AssertionError(f"no {words!r} after {self.text[self._seen:]!r}")
        self._seen = at + len(words)

    def _read_on(self, end):
        """False when the program has ended."""
        if not select.select([self._master], [], [], max(0.0, end - time.monotonic()))[0]:
            return False
        try:
            data = os.read(self._master, 65536)
        except OSError:  # nobody has the other end open any more
            return False
        self.text += data.decode("utf-8", "replace").replace("\r\n", "\n")
        return bool(data)

    def type(self, text):
        os.write(self._master, text.encode())

    def hang_up(self):
        os.close(self._master)
        self._master = -1

    def status(self):
        """Waits for the end; what was said until then is in `text`."""
        end = time.monotonic() + ONLY_WHEN_BROKEN
        while self._master >= 0 and self._read_on(end):
            pass
        return self.process.wait(ONLY_WHEN_BROKEN)

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        if self._master >= 0:
            self.hang_up()
