"""A program on a terminal of its own, as somebody at a keyboard meets it."""

import fcntl
import os
import pty
import select
import subprocess
import termios

ONLY_WHEN_BROKEN = 240  # seconds without a word; the real tool needs half a minute for a read on a busy machine


class Terminal:
    def __init__(self, command, **options):
        self._master, slave = pty.openpty()
        self.text = ""
        self._seen = 0
        self.process = subprocess.Popen(
            list(map(str, command)), stdin=slave, stdout=slave, stderr=slave, start_new_session=True,
            preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0), **options)
        os.close(slave)

    def wait_for(self, words):
        """Waits for words that come after those of the last call."""
        while (at := self.text.find(words, self._seen)) < 0:
            assert self._reads_on(), f"no {words!r} after {self.text[self._seen:]!r}"
        self._seen = at + len(words)

    def _reads_on(self):
        """False when the program has ended."""
        assert select.select([self._master], [], [], ONLY_WHEN_BROKEN)[0], f"nothing after {self.text!r}"
        try:
            self.text += os.read(self._master, 65536).decode("utf-8", "replace").replace("\r\n", "\n")
        except OSError:  # nobody has the other end open any more
            return False
        return True

    def type(self, text):
        os.write(self._master, text.encode())

    def hang_up(self):
        if self._master >= 0:
            os.close(self._master)
        self._master = -1

    def status(self):
        """Waits for the end; what was said until then is in `text`."""
        while self._master >= 0 and self._reads_on():
            pass
        return self.process.wait(ONLY_WHEN_BROKEN)

    def close(self):
        self.process.kill()
        self.process.wait()
        self.hang_up()
