"""A pseudo-terminal that is known under the name of a serial device."""

import ctypes
import errno
import os
import select
import struct
import tty

IN_OPEN, IN_DELETE_SELF = 0x00000020, 0x00000400

_libc = ctypes.CDLL(None, use_errno=True)


class SlaveWatch:
    """Tells when a slave is opened, and when the last host has let go of one whose master is gone: neither
    can be waited for on the master itself, which only says "closed" over and over."""

    def __init__(self, path: str) -> None:
        self._descriptor = _libc.inotify_init1(os.O_CLOEXEC)
        if self._descriptor < 0:
            raise OSError(ctypes.get_errno(), "cannot watch " + path)
        if _libc.inotify_add_watch(self._descriptor, os.fsencode(path), IN_OPEN | IN_DELETE_SELF) < 0:
            number = ctypes.get_errno()
            os.close(self._descriptor)
            raise OSError(number, "cannot watch " + path)

    def wait_for(self, wanted: int) -> None:
        seen = 0
        while not seen & wanted:
            events = os.read(self._descriptor, 4096)
            while events:
                _watch, mask, _cookie, name_length = struct.unpack_from("iIII", events)
                seen |= mask
                events = events[16 + name_length:]

    def close(self) -> None:
        if self._descriptor >= 0:
            os.close(self._descriptor)
            self._descriptor = -1


class HostGone(Exception):
    """No host has the device open any more."""


class DevicePort:
    """Threads: one only.  Errors: OSError naming the link, which is then not there."""

    def __init__(self, link: str) -> None:
        self._link = link
        self._master, slave = os.openpty()
        tty.setraw(slave)  # or the line discipline would echo the answers
        self.slave_path = os.ttyname(slave)
        os.close(slave)  # a slave kept open here would hide that the host has closed its own
        self._watch = SlaveWatch(self.slave_path)
        os.symlink(self.slave_path, link)
        self._plugged_in = True

    def wait_for_host(self) -> None:
        while self._is_closed_by_host():
            self._watch.wait_for(IN_OPEN)

    def _is_closed_by_host(self) -> bool:
        poller = select.poll()
        poller.register(self._master, select.POLLIN)
        return any(events & select.POLLHUP and not events & select.POLLIN for _, events in poller.poll(0))

    def read(self) -> bytes:
        """Waits for bytes from the host."""
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
        """Lets time pass, but not after the host has gone."""
        poller = select.poll()
        poller.register(self._master, 0)
        poller.poll(max(0.0, seconds) * 1000)

    def unplug(self) -> None:
        """Takes the device away; a host that has it open meets an input/output error."""
        if self._plugged_in:
            self._plugged_in = False
            os.unlink(self._link)
            os.close(self._master)

    def wait_until_released(self) -> None:
        """After `unplug`: waits until no host holds what is left of the device."""
        self._watch.wait_for(IN_DELETE_SELF)

    def close(self) -> None:
        self.unplug()
        self._watch.close()
