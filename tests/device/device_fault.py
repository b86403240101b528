"""What can be wrong with a device, and when."""

from typing import Callable, Optional

NEVER_ANSWERS = "never-answers"
OTHER_CHIP = "other-chip"
GARBAGE = "garbage"
UNPLUGGED = "unplugged"
BIT_ERROR = "bit-error"
STOPS_ANSWERING = "stops-answering"
UNPLUGGED_READING = "unplugged-reading"
READ_ERROR = "read-error"

AT_ONCE = (NEVER_ANSWERS, OTHER_CHIP, GARBAGE)
DURING_A_WRITE = (UNPLUGGED, BIT_ERROR, STOPS_ANSWERING)
DURING_A_READ = (UNPLUGGED_READING, READ_ERROR)
AT_A_PERCENTAGE = DURING_A_WRITE + DURING_A_READ
# A bit can only be wrong in a byte that is there.
IN_A_BYTE = (BIT_ERROR, READ_ERROR)


def parse(text: str) -> tuple[str, int]:
    """Takes "KIND" or "KIND@PERCENT" apart.  Raises ValueError with the whole sentence."""
    kind, at, percent = text.partition("@")
    if kind in AT_ONCE and not at:
        return kind, 0
    if kind in AT_ONCE:
        raise ValueError(f"the fault {kind} takes no percentage: {text}")
    if kind not in AT_A_PERCENTAGE:
        raise ValueError(f"unknown fault {text!r} (known: {', '.join(AT_ONCE + AT_A_PERCENTAGE)})")
    if not at:
        return kind, 50
    if not (percent.isascii() and percent.isdigit() and int(percent) <= 100):
        raise ValueError(f"the percentage of a fault is a number from 0 to 100: {text}")
    return kind, int(percent)


class Fault:
    """The one fault of a device.  It strikes once in every session, or only in the first one that meets it.
    With `turn` it strikes in that write, or read, of the device's life only; the first one is 1."""

    def __init__(self, text: Optional[str], once: bool, turn: Optional[int], log: Callable[[str], None]) -> None:
        self._kind, self._percent = parse(text) if text else ("", 0)
        self._text = f"{self._kind}@{self._percent}" if self._kind in AT_A_PERCENTAGE else self._kind
        self.once = once
        self._wanted_turn, self._turn = turn, 0
        self._log = log
        self._armed = bool(text)
        self._struck = False

    def is_armed(self, kind: str) -> bool:
        return self._armed and self._kind == kind

    def strike(self) -> None:
        if not self._struck:
            self._struck = True
            self._log(f"fault {self._text}")

    def begin(self, kinds: tuple[str, ...]) -> None:
        """A write, or a read, begins: `kinds` are the faults that it can meet."""
        self._turn += self._kind in kinds

    def due_after(self, kinds: tuple[str, ...], size: int) -> Optional[int]:
        """How many of `size` bytes are written, or read, before one of these faults strikes, if it still will."""
        if not self._armed or self._struck or self._kind not in kinds:
            return None
        if self._wanted_turn and self._turn != self._wanted_turn:
            return None
        due = -(-size * self._percent // 100)
        return min(due + 1, size) if self._kind in IN_A_BYTE else due

    def end_session(self) -> None:
        if self._struck and self.once:
            self._armed = False
        self._struck = False
