"""The fault that the simulated device has; it has at most one."""

from typing import Callable, Optional

NEVER_ANSWERS, OTHER_CHIP, GARBAGE, UNPLUGGED_ERASING = "never-answers", "other-chip", "garbage", "unplugged-erasing"
UNPLUGGED, BIT_ERROR, STOPS_ANSWERING = "unplugged", "bit-error", "stops-answering"

AT_ONCE = (NEVER_ANSWERS, OTHER_CHIP, GARBAGE, UNPLUGGED_ERASING)
DURING_A_WRITE = (UNPLUGGED, BIT_ERROR, STOPS_ANSWERING)


class Fault:
    """"KIND" or "KIND@PERCENT". A fault during a write strikes once. Raises ValueError for an unknown kind."""

    def __init__(self, text: str) -> None:
        self._kind, _, percent = text.partition("@")
        if text and self._kind not in AT_ONCE + DURING_A_WRITE:
            raise ValueError
        self._percent = int(percent or 50)
        self._struck = False
        self.log: Callable[[str], None] = print

    def strikes(self, kind: str) -> bool:
        """Whether the fault is of this kind. Logs it the first time."""
        if self._kind != kind:
            return False
        if not self._struck:
            self._struck = True
            self.log(f"fault {kind}" + f"@{self._percent}" * (kind in DURING_A_WRITE))
        return True

    def due_after(self, size: int) -> Optional[int]:
        """How many of `size` bytes are written before the fault strikes, or None if it does not strike any more."""
        if self._struck or self._kind not in DURING_A_WRITE:
            return None
        due = -(-size * self._percent // 100)
        # A bit can only be wrong in a byte that was written.
        return min(due + 1, size) if self._kind == BIT_ERROR else due
