"""What can be wrong with a device, and when."""

from typing import Callable, Optional

NEVER_ANSWERS = "never-answers"
OTHER_CHIP = "other-chip"
GARBAGE = "garbage"
UNPLUGGED = "unplugged"
BIT_ERROR = "bit-error"
STOPS_ANSWERING = "stops-answering"

AT_ONCE = (NEVER_ANSWERS, OTHER_CHIP, GARBAGE)
DURING_THE_WRITE = (UNPLUGGED, BIT_ERROR, STOPS_ANSWERING)


def parse(text: str) -> tuple[str, int]:
    """Takes "KIND" or "KIND@PERCENT" apart.  Raises ValueError with the whole sentence."""
    kind, at, percent = text.partition("@")
    if kind in AT_ONCE and not at:
        return kind, 0
    if kind in AT_ONCE:
        raise ValueError(f"the fault {kind} takes no percentage: {text}")
    if kind not in DURING_THE_WRITE:
        raise ValueError(f"unknown fault {text!r} (known: {', '.join(AT_ONCE + DURING_THE_WRITE)})")
    if not at:
        return kind, 50
    if not (percent.isascii() and percent.isdigit() and int(percent) <= 100):
        raise ValueError(f"the percentage of a fault is a number from 0 to 100: {text}")
    return kind, int(percent)


class Fault:
    """The one fault of a device.  It strikes once in every session, or only in the first one that meets it."""

    def __init__(self, text: Optional[str], once: bool, log: Callable[[str], None]) -> None:
        self._kind, self._percent = parse(text) if text else ("", 0)
        self._text = f"{self._kind}@{self._percent}" if self._kind in DURING_THE_WRITE else self._kind
        self.once = once
        self._log = log
        self._armed = bool(text)
        self._struck = False

    def is_armed(self, kind: str) -> bool:
        return self._armed and self._kind == kind

    def strike(self) -> None:
        if not self._struck:
            self._struck = True
            self._log(f"fault {self._text}")

    def due_after(self, size: int) -> Optional[int]:
        """How many bytes of an image of `size` bytes are written before the fault strikes, if it still will."""
        if not self._armed or self._struck or self._kind not in DURING_THE_WRITE:
            return None
        due = -(-size * self._percent // 100)
        # A bit can only flip in a byte that is there.
        return min(due + 1, size) if self._kind == BIT_ERROR else due

    def end_session(self) -> None:
        if self._struck and self.once:
            self._armed = False
        self._struck = False
