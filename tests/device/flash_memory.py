"""The handheld's flash chip: 8 MiB that can be erased, programmed, digested and saved."""

import contextlib
import hashlib
import os
import tempfile

SIZE = 8 * 1024 * 1024
SECTOR = 4096


def save_atomically(path: str, content: bytes) -> None:
    folder = os.path.dirname(os.path.abspath(path))
    descriptor, beside = tempfile.mkstemp(prefix=".", suffix=".part", dir=folder)
    try:
        with os.fdopen(descriptor, "wb") as file:
            file.write(content)
        os.replace(beside, path)
    except BaseException:
        with contextlib.suppress(FileNotFoundError):  # a signal may come when the file has its name already
            os.unlink(beside)
        raise


class FlashMemory:
    def __init__(self, initial: bytes = b"") -> None:
        self._cells = bytearray(initial.ljust(SIZE, b"\0"))
        self._saved = False

    def erase(self, start: int = 0, end: int = SIZE) -> None:
        self._cells[start:end] = b"\xff" * (end - start)
        self._saved = False

    def program(self, address: int, data: bytes) -> None:
        self._cells[address:address + len(data)] = data
        self._saved = False

    def flip_bit(self, address: int) -> None:
        self._cells[address] ^= 1
        self._saved = False

    def md5(self, address: int, size: int) -> bytes:
        return hashlib.md5(memoryview(self._cells)[address:address + size]).digest()

    def save(self, path: str) -> None:
        """Writes the whole chip to `path`; costs nothing while the file is still up to date."""
        if not (self._saved and os.path.exists(path)):
            save_atomically(path, self._cells)
            self._saved = True


class ImageWrite:
    """One image on its way into the flash.  Like the chip's stub, it erases each sector on reaching it."""

    def __init__(self, flash: FlashMemory, address: int, size: int) -> None:
        self.address = address
        self.size = size
        self.written = 0
        self._flash = flash
        self._erased_to = address // SECTOR * SECTOR

    def append(self, data: bytes) -> None:
        start = self.address + self.written
        end = start + len(data)
        if end > self._erased_to:
            erase_to = -(-end // SECTOR) * SECTOR
            self._flash.erase(self._erased_to, erase_to)
            self._erased_to = erase_to
        self._flash.program(start, data)
        self.written += len(data)
