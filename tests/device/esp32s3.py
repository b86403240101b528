"""An ESP32-S3 as a flashing host sees it: the ROM loader, and the stub that the host uploads into RAM."""

import hashlib
import struct
import zlib
from typing import Callable, Iterator, Optional

import fault
import slip

MAGIC_REGISTER = 0x40001000
# What identifies a chip: the register's value, and the id in its security information.
MAGIC_ESP32S3, ID_ESP32S3 = 9, 9
MAGIC_ESP32C3, ID_ESP32C3 = 0x6921506F, 5

SPI_COMMAND, SPI_USER_2, SPI_DATA_0 = 0x60002000, 0x60002020, 0x60002058
SPI_EXECUTE = 1 << 18
SPI_READ_ID = 0x9F
ID_OF_AN_8_MB_FLASH = 0x1740C8

# The registers after a reset. Every other one reads as 0.
REGISTERS_AFTER_RESET = {
    MAGIC_REGISTER: MAGIC_ESP32S3,
    0x3FCEF14C: 4,           # the console is the chip's own USB serial port
    0x60007044: 0x5E000101,  # MAC address, lower 32 bits
    0x60007048: 0x0000F412,  # MAC address, upper 16 bits
    0x60007050: 0x0B080000,  # revision v0.2, 8 MB of flash inside
    0x60007054: 2,           # the flash's maker
    0x6000706C: 1,
}

FLASH_BEGIN, FLASH_END, MEM_BEGIN, MEM_END, MEM_DATA, SYNC = 0x02, 0x04, 0x05, 0x06, 0x07, 0x08
WRITE_REG, READ_REG, SPI_SET_PARAMS, CHANGE_BAUDRATE = 0x09, 0x0A, 0x0B, 0x0F
FLASH_DEFL_BEGIN, FLASH_DEFL_DATA, FLASH_DEFL_END = 0x10, 0x11, 0x12
SPI_FLASH_MD5, GET_SECURITY_INFO, ERASE_FLASH, READ_FLASH = 0x13, 0x14, 0xD0, 0xD2

SYNC_ANSWERS = 8
STUB_GREETING = b"OHAI"
REFUSED = b"\1\5"

# Fewer than hosts allow: this many fit into the pseudo-terminal, so writing them never waits for a host that writes.
MOST_BLOCKS_UNDER_WAY = 4

# What a device outside its boot mode sends: text of its firmware, or bytes at another speed.
GARBAGE = b"I (8) firmware: \xe9\xfe\x00\x1b[0m\r\n"

# A pseudo-terminal has no modem lines, so the starter of the flashing tool reports them in a packet of its own. A
# loader request begins with a zero byte, so the two cannot be confused.
MODEM_LINES = b"LINE"
DTR, RTS = 0x002, 0x004


class Unplugged(Exception):
    """The device was unplugged."""


class Hung(Exception):
    """The chip stopped in the middle of a request and does not answer."""


class Esp32S3:
    def __init__(self, cells: bytearray, wrong: fault.Fault, log: Callable[[str], None],
                 save: Callable[[], None]) -> None:
        self._cells, self._fault, self._log, self._save = cells, wrong, log, save
        self._in_reset = False
        self._commands = {
            SYNC: self._sync, READ_REG: self._read_register, WRITE_REG: self._write_register,
            GET_SECURITY_INFO: self._security_info, CHANGE_BAUDRATE: self._change_baud_rate,
            MEM_BEGIN: self._accept, MEM_DATA: self._accept, MEM_END: self._start_stub,
            SPI_SET_PARAMS: self._accept, ERASE_FLASH: self._erase_flash, FLASH_BEGIN: self._accept,
            FLASH_DEFL_BEGIN: self._begin_write, FLASH_DEFL_DATA: self._write_block, FLASH_DEFL_END: self._end_write,
            SPI_FLASH_MD5: self._md5, READ_FLASH: self._begin_read, FLASH_END: self._accept,
        }
        self.reset()

    def reset(self) -> None:
        """Returns to the ROM loader and forgets everything but the flash."""
        self._registers = dict(REGISTERS_AFTER_RESET)
        self._synced = self._stub_runs = self._hung = False
        self._inflater = zlib.decompressobj()
        self._address = self._size = self._written = 0
        self._content: Optional[bytearray] = None  # what is being read

    def answer(self, packet: bytes) -> Iterator[bytes]:
        """The answers to one packet from the host, SLIP-encoded. Like the ROM, it does not answer noise."""
        if packet.startswith(MODEM_LINES) and len(packet) == len(MODEM_LINES) + 1:
            self._follow_modem_lines(packet[-1])
            return
        if self._content is not None and len(packet) == 4:
            yield from map(slip.encode, self._send_read(*struct.unpack("<I", packet)))
            return
        if len(packet) < 8:
            return
        direction, command, length, _checksum = struct.unpack_from("<BBHI", packet)
        if direction != 0 or length != len(packet) - 8 or self._fault.strikes(fault.NEVER_ANSWERS):
            return
        if self._fault.strikes(fault.GARBAGE):
            yield GARBAGE
        elif not self._hung:
            yield from map(slip.encode, self._execute(command, packet[8:]))

    def _execute(self, command: int, body: bytes) -> Iterator[bytes]:
        stub_ran = self._stub_runs
        try:
            result = self._commands[command](body) if command in self._commands else None
        except Hung:
            self._hung = True
            return
        value, data = (result, b"") if isinstance(result, int) else (0, result or b"")
        status = (REFUSED if result is None else b"\0\0") + (b"" if stub_ran and command != SYNC else b"\0\0")
        answer = struct.pack("<BBHI", 1, command, len(data) + len(status), value) + data + status
        yield from [answer] * (SYNC_ANSWERS if command == SYNC else 1)
        if self._stub_runs and not stub_ran:
            yield STUB_GREETING
        if command == READ_FLASH:
            yield from self._send_read(0)

    def _follow_modem_lines(self, lines: int) -> None:
        """RTS alone holds the chip in reset. When it leaves reset, DTR selects the loader or the firmware."""
        if lines & (DTR | RTS) == RTS:
            self._in_reset = True
        elif self._in_reset and not lines & RTS:
            self._in_reset = False
            self.reset()
            self._log("download mode" if lines & DTR else "reset")

    @staticmethod
    def _accept(_body: bytes) -> bytes:
        return b""

    def _sync(self, _body: bytes) -> int:
        # Hosts synchronise only after a reset. If the host cannot report its modem lines, the chip has not noticed that
        # reset.
        if self._stub_runs:
            self.reset()
        if not self._synced:
            self._synced = True
            self._log("sync")
        return 0x20120707  # not 0, which would mean that a stub already runs

    def _read_register(self, body: bytes) -> int:
        (address,) = struct.unpack("<I", body)
        if address == MAGIC_REGISTER and self._fault.strikes(fault.OTHER_CHIP):
            return MAGIC_ESP32C3
        return self._registers.get(address, 0)

    def _write_register(self, body: bytes) -> bytes:
        for address, value, mask, _delay in struct.iter_unpack("<IIII", body):
            self._registers[address] = (self._registers.get(address, 0) & ~mask) | (value & mask)
            if address == SPI_COMMAND and value & mask & SPI_EXECUTE:
                command = self._registers.get(SPI_USER_2, 0) & 0xFF
                self._registers[SPI_DATA_0] = ID_OF_AN_8_MB_FLASH if command == SPI_READ_ID else 0
                self._registers[SPI_COMMAND] &= ~SPI_EXECUTE
        return b""

    def _security_info(self, _body: bytes) -> bytes:
        chip = ID_ESP32C3 if self._fault.strikes(fault.OTHER_CHIP) else ID_ESP32S3
        return struct.pack("<I8xII", 0, chip, 0)

    def _change_baud_rate(self, body: bytes) -> bytes:
        self._log(f"baud {struct.unpack_from('<I', body)[0]}")
        return b""

    def _start_stub(self, body: bytes) -> bytes:
        stay, _entry = struct.unpack("<II", body)
        if not stay:
            self._stub_runs = True
            self._log("stub uploaded")
        return b""

    def _erase_flash(self, _body: bytes) -> bytes:
        self._log("erase")
        if self._fault.strikes(fault.UNPLUGGED_ERASING):
            raise Unplugged
        self._cells[:] = b"\xff" * len(self._cells)
        return b""

    def _begin_write(self, body: bytes) -> bytes:
        self._size, _blocks, _block_size, self._address = struct.unpack_from("<IIII", body)
        self._log(f"write begin {self._size}")
        self._written = 0
        self._inflater = zlib.decompressobj()
        self._store(b"")
        return b""

    def _write_block(self, body: bytes) -> bytes:
        self._store(self._inflater.decompress(body[16:]))
        return b""

    def _store(self, data: bytes) -> None:
        due = self._fault.due_after(self._size)
        if due is not None and due <= self._written + len(data):
            before = due - self._written
            self._append(data[:before])
            data = data[before:]
            if self._fault.strikes(fault.UNPLUGGED):
                raise Unplugged
            if self._fault.strikes(fault.STOPS_ANSWERING):
                raise Hung
            self._fault.strikes(fault.BIT_ERROR)
            self._cells[self._address + due - 1] ^= 1
        self._append(data)

    def _append(self, data: bytes) -> None:
        start = self._address + self._written
        self._cells[start:start + len(data)] = data
        tenths = self._written * 10 // self._size
        self._written += len(data)
        for tenth in range(tenths + 1, self._written * 10 // self._size + 1):
            self._log(f"write {tenth * 10}%")

    def _end_write(self, _body: bytes) -> bytes:
        self._save()
        return b""

    def _md5(self, body: bytes) -> bytes:
        address, size = struct.unpack_from("<II", body)
        digest = hashlib.md5(memoryview(self._cells)[address:address + size]).digest()
        self._log(f"md5 {digest.hex()}")
        return digest

    def _begin_read(self, body: bytes) -> bytes:
        address, size, self._block_size, _most_under_way = struct.unpack("<IIII", body)
        self._content, self._sent = self._cells[address:address + size], 0
        return b""

    def _send_read(self, received: int) -> Iterator[bytes]:
        """What may be sent now: blocks, while only a few are unacknowledged, and finally the digest of everything."""
        content = self._content
        while self._sent < len(content) and self._sent - received < MOST_BLOCKS_UNDER_WAY * self._block_size:
            block = bytes(content[self._sent:self._sent + self._block_size])
            self._sent += len(block)
            yield block
        if received == len(content):
            self._content = None
            yield hashlib.md5(content).digest()
