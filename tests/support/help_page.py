"""The messages that docs/troubleshooting.md quotes in blocks, one per line. The line above a block names their source.

"(seen, 4.7 to 4.12)" names the versions of esptool that print a block; "(seen)" means every supported version."""

from __future__ import annotations

import re
from typing import NamedTuple, Optional

from support.built import ROOT
from support.release_cases import says

BLOCK = re.compile(r"\b(?P<who>program|tool|system|build command|packer) says(?: \((?P<mark>[^)\n]*)\))?[^\n]*:\n\n"
                   r"```\n(?P<lines>.*?)\n```$", re.MULTILINE | re.DOTALL)
SEEN = re.compile(r"seen(?:, (?P<first>[\d.]+)(?: to (?P<last>[\d.]+))?)?")

Version = tuple[int, ...]


def numbers(text: str) -> Version:
    return tuple(map(int, text.split(".")))


class Block(NamedTuple):
    who: str
    seen: Optional[tuple[Version, Version]]  # the first and the last version of the tool that prints it
    lines: list[str]

    def is_printed_by(self, version: Version) -> bool:
        if self.seen is None:
            return False
        first, last = self.seen
        return version[:len(first)] >= first and version[:len(last)] <= last

    def is_in(self, output: str) -> bool:
        lines = iter(output.splitlines())
        return all(any(says(line, sentence) for line in lines) for sentence in self.lines)


def versions_of(mark: str) -> Optional[tuple[Version, Version]]:
    if mark == "not tried":
        return None
    if not (seen := SEEN.fullmatch(mark)):
        raise ValueError(f"the mark of a tool's message must be (seen...) or (not tried), not ({mark})")
    first = seen["first"] or "4.5"
    return numbers(first), numbers(seen["last"] or seen["first"] or "4.12")


def blocks() -> list[Block]:
    page = (ROOT / "docs/troubleshooting.md").read_text()
    return [Block(found["who"], versions_of(found["mark"] or "") if found["who"] == "tool" else None,
                  found["lines"].splitlines()) for found in BLOCK.finditer(page)]
