"""Reads Mach-O files. For each architecture it returns the oldest macOS, the file's own name, the libraries that it
loads, and its run paths.

Runs with Python 3.9, which Apple's command line tools have.
"""

from __future__ import annotations

import struct
from typing import Iterator, NamedTuple

ONE, ONE_SWAPPED = 0xFEEDFACF, 0xCFFAEDFE
SEVERAL = {0xCAFEBABE: ">5I", 0xCAFEBABF: ">2I2Q2I"}  # each with the layout of one entry of its table
LC_ID_DYLIB, LC_RPATH, LC_BUILD_VERSION = 0x0D, 0x8000001C, 0x32  # the last one since macOS 10.14
# The usual kind, weak, re-exported, and two kinds for libraries that load each other.
LOADS_A_LIBRARY = (0x0C, 0x80000018, 0x8000001F, 0x20, 0x80000023)
PLATFORM_MACOS = 1


class MachOError(Exception):
    """What is wrong with a file, without its name."""


class Image(NamedTuple):
    """One architecture of a file."""

    cpu: int
    type: int
    minimum: str  # the oldest macOS, such as "14.0"; empty if the file names none
    name: str  # the library's own name; not a dependency
    libraries: tuple[str, ...]
    run_paths: tuple[str, ...]


def as_numbers(version: str) -> tuple[int, ...]:
    """For comparisons: 9.0 is older than 13.0, and 13 equals 13.0."""
    numbers = [int(number) for number in version.split(".")]
    return tuple((numbers + [0, 0, 0])[:3])


def as_version(packed: int) -> str:
    version = f"{packed >> 16}.{packed >> 8 & 0xFF}"
    return f"{version}.{packed & 0xFF}" if packed & 0xFF else version


def load_commands(raw: bytes, count: int) -> Iterator[tuple[int, bytes]]:
    at = 32
    for _ in range(count):
        command, size = struct.unpack_from("<2I", raw, at)
        if size < 8 or at + size > len(raw):
            raise MachOError("a load command is longer than the file")
        yield command, raw[at:at + size]
        at += size


def text_of(command: bytes) -> str:
    return command[struct.unpack_from("<I", command, 8)[0]:].split(b"\0")[0].decode()


def image(raw: bytes) -> Image:
    magic, cpu, _, file_type, count = struct.unpack_from("<5I", raw)
    if magic != ONE:
        raise MachOError("it contains an architecture that is not 64-bit little-endian")
    minimum, name, libraries, run_paths = "", "", [], []
    for kind, command in load_commands(raw, count):
        if kind == LC_BUILD_VERSION:
            platform, oldest = struct.unpack_from("<2I", command, 8)
            if platform != PLATFORM_MACOS:
                raise MachOError("it is not for macOS")
            minimum = as_version(oldest)
        elif kind == LC_ID_DYLIB:
            name = text_of(command)
        elif kind == LC_RPATH:
            run_paths.append(text_of(command))
        elif kind in LOADS_A_LIBRARY:
            libraries.append(text_of(command))
    return Image(cpu, file_type, minimum, name, tuple(libraries), tuple(run_paths))


def images(path: str) -> list[Image]:
    """One image for each architecture; none if the file is not a Mach-O file. Errors: MachOError, OSError."""
    with open(path, "rb") as file:
        raw = file.read()
    magic = struct.unpack(">I", raw[:4])[0] if len(raw) > 32 else 0
    try:
        if magic == ONE_SWAPPED:
            return [image(raw)]
        if magic not in SEVERAL:
            return []
        entry = struct.Struct(SEVERAL[magic])
        table = [entry.unpack_from(raw, 8 + entry.size * number)
                 for number in range(struct.unpack_from(">I", raw, 4)[0])]
        return [image(raw[offset:offset + size]) for _, _, offset, size, *_ in table]
    except (struct.error, UnicodeDecodeError) as error:
        raise MachOError(f"its header is damaged: {error}") from error
