"""Waiting for an event."""

from __future__ import annotations

import time
from typing import Callable

# Only a broken program or machine takes this long.
LIMIT_SECONDS = 60


def wait_until(condition: Callable[[], object], what: str, seconds: float = LIMIT_SECONDS):
    """Calls the condition until its result is true, then returns the result."""
    deadline = time.monotonic() + seconds
    while not (result := condition()):
        if time.monotonic() > deadline:
            raise AssertionError(f"did not happen within {seconds:.0f} s: {what}")
        time.sleep(0.01)
    return result
