"""Compares two versions of the flash's contents and names the known causes of differences."""

from __future__ import annotations

import struct
from typing import Iterator, List, NamedTuple, Optional

SECTOR = 4096
NEAR = 8  # differing bytes that are closer than this form one range
MOST_RANGES = 20

LOADER_MAGIC, LOADER_HEADER, DIGEST_FLAG_AT, DIGEST_SIZE = 0xE9, 24, 23, 32
REWRITTEN_HEADER = (2, 4)  # flash mode; size and frequency

TABLE_AT, TABLE_ENTRY, TABLE_MAGIC, DATA_PARTITION = 0x8000, 32, b"\xAA\x50", 1


class Range(NamedTuple):
    start: int
    end: int

    def is_inside(self, start: int, end: int) -> bool:
        return start <= self.start and self.end <= end


class Partition(NamedTuple):
    name: str
    kind: int
    start: int
    end: int


class Comparison(NamedTuple):
    is_equal: bool
    is_explained: bool  # equal, or every difference has a known and harmless cause
    lines: List[str]


def differing_ranges(expected: bytes, found: bytes) -> List[Range]:
    ranges: List[Range] = []
    for at in range(0, max(len(expected), len(found)), SECTOR):
        wanted, had = expected[at:at + SECTOR], found[at:at + SECTOR]
        if wanted == had:
            continue
        for offset in range(max(len(wanted), len(had))):
            if wanted[offset:offset + 1] == had[offset:offset + 1]:
                continue
            place = at + offset
            if ranges and place - ranges[-1].end < NEAR:
                ranges[-1] = Range(ranges[-1].start, place + 1)
            else:
                ranges.append(Range(place, place + 1))
    return ranges


def loader_digest(image: bytes) -> Optional[Range]:
    """Where the boot loader at the start of the image has its digest, or None if it has none."""
    if len(image) < LOADER_HEADER or image[0] != LOADER_MAGIC or image[DIGEST_FLAG_AT] != 1:
        return None
    at = LOADER_HEADER
    for _ in range(image[1]):
        if at + 8 > len(image):
            return None
        at += 8 + struct.unpack_from("<I", image, at + 4)[0]
    # The checksum is the last byte of a row of 16.
    at = (at // 16 + 1) * 16
    return Range(at, at + DIGEST_SIZE)


def partitions(image: bytes) -> Iterator[Partition]:
    for at in range(TABLE_AT, TABLE_AT + SECTOR, TABLE_ENTRY):
        entry = image[at:at + TABLE_ENTRY]
        if len(entry) < TABLE_ENTRY or entry[:2] != TABLE_MAGIC:
            return
        kind, _subtype, start, size, label = struct.unpack_from("<BBII16s", entry, 2)
        yield Partition(label.rstrip(b"\0").decode("ascii", "replace"), kind, start, start + size)


def cause_of(one: Range, digest: Optional[Range], table: List[Partition]) -> Optional[str]:
    if one.is_inside(*REWRITTEN_HEADER):
        return "flash mode, size and frequency in the loader's header"
    if digest and one.is_inside(*digest):
        return "the digest of the loader"
    for partition in table:
        if partition.kind == DATA_PARTITION and one.is_inside(partition.start, partition.end):
            return f'the data partition "{partition.name}"'
    return None


def describe(one: Range, found: bytes, cause: Optional[str] = None) -> str:
    size = one.end - one.start
    shown = found[one.start:one.end].hex(" ") if size <= 4 else ""
    return (f"  0x{one.start:06x} to 0x{one.end - 1:06x}, {size} byte{'s' * (size != 1)}"
            + f", now {shown}" * bool(shown) + f": {cause}" * bool(cause))


def shortened(lines: List[str]) -> List[str]:
    more = len(lines) - MOST_RANGES
    return lines if more <= 0 else lines[:MOST_RANGES] + [f"  and {more} more"]


def compare(expected: bytes, found: bytes) -> Comparison:
    """For the backup: every difference counts."""
    if expected == found:
        return Comparison(True, True, [f"equal, {len(found)} bytes"])
    ranges = differing_ranges(expected, found)
    return Comparison(False, False, [f"DIFFERENT in {len(ranges)} place{'s' * (len(ranges) != 1)}:"]
                      + shortened([describe(one, found) for one in ranges]))


def compare_with_release(expected: bytes, found: bytes) -> Comparison:
    """For the release: the tool may have rewritten the loader's header, and the release, which was started in
    between, may have written into its data partitions."""
    if expected == found:
        return compare(expected, found)
    ranges, digest, table = differing_ranges(expected, found), loader_digest(expected), list(partitions(expected))
    causes = [cause_of(one, digest, table) for one in ranges]
    lines = shortened([describe(one, found, cause) for one, cause in zip(ranges, causes)])
    if not all(causes):
        return Comparison(False, False, [f"DIFFERENT in {len(ranges)} place{'s' * (len(ranges) != 1)}, of which "
                                         f"{causes.count(None)} cannot be explained:"] + lines)
    reasons = []
    if any(cause and "loader" in cause for cause in causes):
        reasons.append("the tool rewrote the loader's header (esptool does so from 4.8 on, when bytes 2 and 3 of the "
                       "image are not 02 3f)")
    if any(cause and "partition" in cause for cause in causes):
        reasons.append("the release, which the tool starts after the flash, wrote into its data")
    return Comparison(False, True, ["equal except for explained differences: " + "; ".join(reasons)] + lines)
