"""Files that are either complete or absent."""

from __future__ import annotations

import fcntl
import os
from pathlib import Path


def sync(path: Path) -> None:
    """Waits until the file, or the folder's list of names, is on the disk."""
    descriptor = os.open(path, os.O_RDONLY)
    try:
        # On macOS fsync leaves the bytes in the cache of the disk.
        if hasattr(fcntl, "F_FULLFSYNC") and path.is_file():
            fcntl.fcntl(descriptor, fcntl.F_FULLFSYNC)
        else:
            os.fsync(descriptor)
    finally:
        os.close(descriptor)


def settle(temporary: Path, final: Path) -> None:
    """Gives a finished file its final name and waits until both are on the disk."""
    sync(temporary)
    os.replace(temporary, final)
    sync(final.parent)
