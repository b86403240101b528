#!/usr/bin/python3
"""Starts the esptool package in this folder and adds the modem lines that a pseudo-terminal lacks: where DTR and RTS
fail with ENOTTY, it stores them and reports each change to the other end in a SLIP packet."""

import errno
import fcntl
import os
import struct
import termios

CHANGES = {
    termios.TIOCMSET: lambda lines, bits: bits,
    termios.TIOCMBIS: lambda lines, bits: lines | bits,
    termios.TIOCMBIC: lambda lines, bits: lines & ~bits,
}

ioctl_of_the_system = fcntl.ioctl
lines_of = {}


def report(descriptor, lines):
    try:
        os.write(descriptor, b"\xc0LINE" + bytes([lines & (termios.TIOCM_DTR | termios.TIOCM_RTS)]) + b"\xc0")
    except BlockingIOError:
        pass  # the other end is closed


def ioctl_with_modem_lines(descriptor, request, argument=0, *rest):
    try:
        return ioctl_of_the_system(descriptor, request, argument, *rest)
    except OSError as error:
        wanted = request == termios.TIOCMGET or request in CHANGES
        if error.errno != errno.ENOTTY or not wanted:
            raise
    lines = lines_of.get(descriptor, 0)
    if request == termios.TIOCMGET:
        return struct.pack("I", lines)
    lines_of[descriptor] = CHANGES[request](lines, struct.unpack("I", argument)[0])
    report(descriptor, lines_of[descriptor])
    return argument


if __name__ == "__main__":
    fcntl.ioctl = ioctl_with_modem_lines
    import esptool

    esptool._main()
