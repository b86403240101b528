"""A pseudo-terminal with the name of a serial device."""

import errno
import os
import select
import time
import tty


class HostGone(Exception):
    """No host has the device open any more."""


class DevicePort:
    """For use by one thread only. Errors: OSError if the terminal or the link cannot be created."""

    def __init__(self, link: str) -> None:
        self._link = link
        self._master, slave = os.openpty()
        tty.setraw(slave)  # otherwise the line discipline would echo the answers
        os.symlink(os.ttyname(slave), link)
        os.close(slave)  # while this slave is open, the master cannot see that the host has closed its slave
        self._plugged_in = True

    def wait_for_host(self) -> None:
        while self._is_closed_by_host():
            time.sleep(0.01)  # poll cannot wait here: without a host, it reports the closed end at once every time

    def _is_closed_by_host(self) -> bool:
        poller = select.poll()
        poller.register(self._master, select.POLLIN)
        return any(events & select.POLLHUP and not events & select.POLLIN for _, events in poller.poll(0))

    def read(self) -> bytes:
        return self._call(os.read, self._master, 65536)

    def write(self, data: bytes) -> None:
        while data:
            data = data[self._call(os.write, self._master, data):]

    @staticmethod
    def _call(operation, *arguments):
        try:
            return operation(*arguments)
        except OSError as error:
            if error.errno == errno.EIO:
                raise HostGone from None
            raise

    def pause(self, seconds: float) -> None:
        """Waits, but returns at once when the host has gone."""
        poller = select.poll()
        poller.register(self._master, 0)
        poller.poll(max(0.0, seconds) * 1000)

    def unplug(self) -> None:
        """Removes the device. A host that has it open gets an input/output error."""
        if self._plugged_in:
            self._plugged_in = False
            os.unlink(self._link)
            os.close(self._master)
