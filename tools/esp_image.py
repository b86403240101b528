"""Builds images that the ESP32-S3 can start: a program, a partition table, and the merged image of a whole flash."""

from __future__ import annotations

import hashlib
import struct
from typing import Sequence

ERASED = b"\xFF"
TABLE_AT = 0x8000
APPLICATION_AT = 0x10000

MAGIC = 0xE9
FLASH_MODE_DIO = 0x02
FLASH_8MB_80MHZ = 0x3F  # with these two bytes the flashing tool has no reason to rewrite the header
CHIP_ESP32S3 = 9
CHECKSUM_SEED = 0xEF


def xor_of(data: bytes) -> int:
    """The exclusive or of all bytes. Folds one large number in halves, because a loop over bytes is slow."""
    value, width = int.from_bytes(data, "little"), len(data)
    while width > 1:
        half = (width + 1) // 2
        value = (value >> (8 * half)) ^ (value & ((1 << (8 * half)) - 1))
        width = half
    return value


def program(entry: int, segments: Sequence[tuple[int, bytes]], *, chip: int = CHIP_ESP32S3,
            mode: int = FLASH_MODE_DIO, size_and_clock: int = FLASH_8MB_80MHZ, digest: bool = True) -> bytes:
    """Header, segments, checksum in the last byte of a 16-byte row, then the SHA-256 of all that."""
    image = bytearray(struct.pack("<BBBBI", MAGIC, len(segments), mode, size_and_clock, entry))
    # No write-protect pin (0xEE), default drive strengths, any chip revision up to 0.99.
    image += struct.pack("<B3xHBHH4xB", 0xEE, chip, 0, 0, 99, digest)
    checksum = CHECKSUM_SEED
    for address, data in segments:
        image += struct.pack("<II", address, len(data)) + data
        checksum ^= xor_of(data)
    image += bytes(15 - len(image) % 16) + bytes([checksum])
    return bytes(image) + (hashlib.sha256(image).digest() if digest else b"")


def partition_table(partitions: Sequence[tuple[str, int, int, int, int]]) -> bytes:
    """The partition table for rows of (label, type, subtype, offset, size)."""
    rows = b"".join(struct.pack("<2sBBII16sI", b"\xAA\x50", kind, subtype, offset, size, label.encode(), 0)
                    for label, kind, subtype, offset, size in partitions)
    return rows + b"\xEB\xEB" + ERASED * 14 + hashlib.md5(rows, usedforsecurity=False).digest()


def merged(loader: bytes, table: bytes, application: bytes) -> bytes:
    """The merged image. It ends after the application."""
    return (loader.ljust(TABLE_AT, ERASED) + table).ljust(APPLICATION_AT, ERASED) + application


def small_image(content: bytes, **header_of_loader: int) -> bytes:
    """A merged image for tests. It can be packed and holds the given bytes; nothing in it runs."""
    loader = program(0x403C9700, [(0x403C9700, bytes(16))], **header_of_loader)
    table = partition_table([("factory", 0, 0, APPLICATION_AT, 0x100000)])
    return merged(loader, table, program(0x40374000, [(0x40374000, content + bytes(-len(content) % 4))]))
