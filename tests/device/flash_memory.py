"""The handheld's flash chip: 8 MiB that can be erased, programmed, digested and saved."""

import contextlib
import hashlib
import os
import tempfile
from typing import Iterator

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

    def read(self, address: int, size: int) -> bytearray:
        return self._cells[address:address + size]

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


class FlashRead:
    """Content of the flash on its way to the host: in blocks, of which no more are under way than the host
    takes, and in the end the digest of all."""

    def __init__(self, content: bytes, block_size: int, most_under_way: int) -> None:
        self._content, self._block_size, self._most_under_way = content, block_size, most_under_way
        self._sent = self._received = 0
        self.is_complete = False

    def acknowledge(self, received: int) -> None:
        """Raises ValueError when the host cannot have that many bytes."""
        if not self._received < received <= self._sent:
            raise ValueError
        self._received = received

    def packets(self) -> Iterator[tuple[int, bytes]]:
        """What may be sent now, each packet with the number of bytes that were sent before it."""
        while (self._sent < len(self._content)
               and self._sent - self._received < self._most_under_way * self._block_size):
            block = self._content[self._sent:self._sent + self._block_size]
            before = self._sent
            self._sent += len(block)
            yield before, block
        if self._received == len(self._content) and not self.is_complete:
            self.is_complete = True
            yield self._sent, hashlib.md5(self._content).digest()
