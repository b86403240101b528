"""An ESP32-S3 as a flashing host sees it: the loader in ROM, and the stub that the host uploads into RAM."""

import struct
import zlib
from typing import Callable, Iterator, Optional

import device_fault
import flash_memory
import slip

MAGIC_REGISTER = 0x40001000
# What a chip is known by: the register's value, and the id in its security information.
MAGIC_ESP32S3, ID_ESP32S3 = 9, 9
MAGIC_ESP32C3, ID_ESP32C3 = 0x6921506F, 5

SPI_COMMAND, SPI_USER_2, SPI_DATA_0 = 0x60002000, 0x60002020, 0x60002058
SPI_EXECUTE = 1 << 18
SPI_READ_ID = 0x9F
ID_OF_AN_8_MB_FLASH = 0x1740C8

# What the registers hold after a reset; every other one reads as 0.
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

SYNC_PATTERN = b"\x07\x07\x12\x20" + 32 * b"\x55"
SYNC_ANSWERS = 8
STUB_GREETING = b"OHAI"

# Fewer blocks than hosts allow: they fit into the pseudo-terminal, so that writing them never waits for a host that
# waits for its own bytes to be read.
MOST_BLOCKS_UNDER_WAY = 4

# What a device that was not brought into its boot mode has to say: text of its firmware, or bytes of another speed.
GARBAGE = b"I (8) firmware: \xe9\xfe\x00\x1b[0m\r\n"

# The starter of the flashing tool reports the modem lines in a packet of its own, since a pseudo-terminal
# has none.  A loader request begins with a zero byte, so the two cannot be confused.
MODEM_LINES = b"LINE"
DTR, RTS = 0x002, 0x004

INVALID_MESSAGE = 0x05
BAD_CHECKSUM = {False: 0x07, True: 0xC1}  # the ROM's and the stub's word for it
NOT_IN_FLASH_MODE, INFLATE_ERROR, NOT_ENOUGH_DATA, TOO_MUCH_DATA = 0xC2, 0xC3, 0xC4, 0xC5


class Unplugged(Exception):
    """The device has been pulled out."""


class Hung(Exception):
    """The chip has stopped in the middle of a request and gives no answer."""


class Refused(Exception):
    def __init__(self, code: int) -> None:
        super().__init__(f"refused with {code:#x}")
        self.code = code


def checksum(data: bytes) -> int:
    """0xEF xor every byte, by halving one large number: a loop over the bytes would dominate the run time."""
    folded, width = int.from_bytes(data, "little"), 1
    while width < len(data):
        width *= 2
    while width > 1:
        width //= 2
        folded = (folded >> (8 * width)) ^ (folded & ((1 << (8 * width)) - 1))
    return 0xEF ^ folded


class Esp32S3:
    def __init__(self, flash: flash_memory.FlashMemory, fault: device_fault.Fault,
                 log: Callable[[str], None], save: Callable[[], None], erase: Callable[[], None]) -> None:
        self._flash, self._fault = flash, fault
        self._log, self._save, self._wait_for_erase = log, save, erase
        self._in_reset = False
        self._rom_commands = {
            SYNC: self._sync, READ_REG: self._read_register, WRITE_REG: self._write_register,
            GET_SECURITY_INFO: self._security_info, CHANGE_BAUDRATE: self._change_baud_rate,
            MEM_BEGIN: self._begin_upload, MEM_DATA: self._upload, MEM_END: self._start_stub,
        }
        self._stub_commands = self._rom_commands | {
            SPI_SET_PARAMS: lambda body: b"", ERASE_FLASH: self._erase_flash, FLASH_BEGIN: self._begin_nothing,
            FLASH_DEFL_BEGIN: self._begin_write, FLASH_DEFL_DATA: self._write_block,
            FLASH_DEFL_END: self._end_write, SPI_FLASH_MD5: self._md5, READ_FLASH: self._begin_read,
            FLASH_END: self._leave_stub,
        }
        self.reset()

    def reset(self) -> None:
        """Back into the ROM's loader, forgetting everything but the flash."""
        self._registers = dict(REGISTERS_AFTER_RESET)
        self._synced = self._stub_runs = self._hung = False
        self._upload_missing = 0
        self._write: Optional[flash_memory.ImageWrite] = None
        self._read: Optional[flash_memory.FlashRead] = None
        self._unplugged_after: Optional[int] = None

    def answer(self, packet: bytes) -> Iterator[bytes]:
        """Gives what answers one packet of the host, framed for the line.  Noise is met with silence, as by the ROM."""
        if packet.startswith(MODEM_LINES) and len(packet) == len(MODEM_LINES) + 1:
            self._follow_modem_lines(packet[-1])
            return
        if self._read is not None and len(packet) == 4:
            yield from map(slip.encode, self._follow_read(self._read, packet))
            return
        if len(packet) < 8:
            return
        direction, command, length, stated_sum = struct.unpack_from("<BBHI", packet)
        body = packet[8:]
        if direction != 0 or length != len(body):
            return
        if self._fault.is_armed(device_fault.NEVER_ANSWERS):
            self._fault.strike()
            return
        if self._fault.is_armed(device_fault.GARBAGE):
            self._fault.strike()
            yield GARBAGE
            return
        if self._hung:
            return
        yield from map(slip.encode, self._execute(command, body, stated_sum))
        if command == READ_FLASH and self._read is not None:
            yield from map(slip.encode, self._send_read(self._read))

    def _execute(self, command: int, body: bytes, stated_sum: int) -> Iterator[bytes]:
        stub_ran = self._stub_runs
        value, data, error = 0, b"", 0
        try:
            handler = (self._stub_commands if stub_ran else self._rom_commands).get(command)
            if handler is None:
                raise Refused(INVALID_MESSAGE)
            if command in (MEM_DATA, FLASH_DEFL_DATA) and checksum(body[16:]) != stated_sum:
                raise Refused(BAD_CHECKSUM[stub_ran])
            result = handler(body)
            value, data = (result, b"") if isinstance(result, int) else (0, result)
        except Refused as refusal:
            error = refusal.code
        except struct.error:
            error = INVALID_MESSAGE
        except Hung:
            self._hung = True
            return
        status = bytes([bool(error), error]) + (b"" if stub_ran and command != SYNC else b"\0\0")
        answer = struct.pack("<BBHI", 1, command, len(data) + len(status), value) + data + status
        yield from [answer] * (SYNC_ANSWERS if command == SYNC else 1)
        if self._stub_runs and not stub_ran:
            yield STUB_GREETING

    def _follow_modem_lines(self, lines: int) -> None:
        """RTS alone holds the chip in reset; on leaving it, DTR decides between the loader and the firmware."""
        if lines & (DTR | RTS) == RTS:
            self._in_reset = True
        elif self._in_reset and not lines & RTS:
            self._in_reset = False
            self.reset()
            self._save()
            self._log("download mode" if lines & DTR else "reset")

    # ---- the ROM's commands ----

    def _sync(self, body: bytes) -> int:
        if body != SYNC_PATTERN:
            raise Refused(INVALID_MESSAGE)
        # Hosts synchronise after a reset only; one that cannot report its modem lines has reset the chip unseen.
        if self._stub_runs:
            self.reset()
        if not self._synced:
            self._synced = True
            self._log("sync")
        return 0x20120707  # anything but 0, which would mean that a stub is running already

    def _read_register(self, body: bytes) -> int:
        (address,) = struct.unpack("<I", body)
        if address == MAGIC_REGISTER and self._is_other_chip():
            return MAGIC_ESP32C3
        return self._registers.get(address, 0)

    def _is_other_chip(self) -> bool:
        if self._fault.is_armed(device_fault.OTHER_CHIP):
            self._fault.strike()
            return True
        return False

    def _write_register(self, body: bytes) -> bytes:
        for address, value, mask, _delay in struct.iter_unpack("<IIII", body):
            self._registers[address] = (self._registers.get(address, 0) & ~mask) | (value & mask)
            if address == SPI_COMMAND and value & mask & SPI_EXECUTE:
                self._run_spi_command()
        return b""

    def _run_spi_command(self) -> None:
        command = self._registers.get(SPI_USER_2, 0) & 0xFF
        self._registers[SPI_DATA_0] = ID_OF_AN_8_MB_FLASH if command == SPI_READ_ID else 0
        self._registers[SPI_COMMAND] &= ~SPI_EXECUTE

    def _security_info(self, _body: bytes) -> bytes:
        return struct.pack("<I8xII", 0, ID_ESP32C3 if self._is_other_chip() else ID_ESP32S3, 0)

    def _change_baud_rate(self, body: bytes) -> bytes:
        baud, _current = struct.unpack("<II", body)
        self._log(f"baud {baud}")
        return b""

    def _begin_upload(self, body: bytes) -> bytes:
        self._upload_missing, _blocks, _block_size, _address = struct.unpack("<IIII", body)
        return b""

    def _upload(self, body: bytes) -> bytes:
        size = struct.unpack_from("<IIII", body)[0]
        if size != len(body) - 16 or size > self._upload_missing:
            raise Refused(INVALID_MESSAGE)
        self._upload_missing -= size
        return b""

    def _start_stub(self, body: bytes) -> bytes:
        stay, _entry = struct.unpack("<II", body)
        if self._upload_missing:
            raise Refused(INVALID_MESSAGE)
        if not stay:
            self._stub_runs = True
            self._log("stub uploaded")
        return b""

    # ---- the stub's commands ----

    def _erase_flash(self, _body: bytes) -> bytes:
        self._log("erase")
        self._wait_for_erase()
        self._flash.erase()
        return b""

    def _begin_nothing(self, body: bytes) -> bytes:
        size = struct.unpack_from("<IIII", body)[0]
        if size:
            raise Refused(INVALID_MESSAGE)  # uncompressed writing is not what this device is flashed with
        return b""

    def _begin_write(self, body: bytes) -> bytes:
        size, _blocks, _block_size, address = struct.unpack_from("<IIII", body)
        if address + size > flash_memory.SIZE:
            raise Refused(TOO_MUCH_DATA)
        self._log(f"write begin {size}")
        self._fault.begin(device_fault.DURING_A_WRITE)
        self._write = flash_memory.ImageWrite(self._flash, address, size)
        self._inflater = zlib.decompressobj()
        self._store(self._write, b"")
        return b""

    def _write_block(self, body: bytes) -> bytes:
        if self._write is None:
            raise Refused(NOT_IN_FLASH_MODE)
        try:
            data = self._inflater.decompress(body[16:])
        except zlib.error:
            raise Refused(INFLATE_ERROR) from None
        if len(data) > self._write.size - self._write.written:
            raise Refused(TOO_MUCH_DATA)
        self._store(self._write, data)
        return b""

    def _store(self, write: flash_memory.ImageWrite, data: bytes) -> None:
        due = self._fault.due_after(device_fault.DURING_A_WRITE, write.size)
        if due is not None and due <= write.written + len(data):
            before = due - write.written
            self._append(write, data[:before])
            data = data[before:]
            self._fault.strike()
            if self._fault.is_armed(device_fault.UNPLUGGED):
                raise Unplugged
            if self._fault.is_armed(device_fault.STOPS_ANSWERING):
                raise Hung
            self._flash.flip_bit(write.address + due - 1)
        self._append(write, data)

    def _append(self, write: flash_memory.ImageWrite, data: bytes) -> None:
        if data:
            tenths_before = write.written * 10 // write.size
            write.append(data)
            for tenth in range(tenths_before + 1, write.written * 10 // write.size + 1):
                self._log(f"write {tenth * 10}%")

    def _end_write(self, _body: bytes) -> bytes:
        if self._write is None:
            raise Refused(NOT_IN_FLASH_MODE)
        if self._write.written != self._write.size:
            raise Refused(NOT_ENOUGH_DATA)
        self._write = None
        self._save()
        return b""

    def _md5(self, body: bytes) -> bytes:
        address, size, _, _ = struct.unpack("<IIII", body)
        digest = self._flash.md5(address, size)
        self._log(f"md5 {digest.hex()}")
        return digest

    def _begin_read(self, body: bytes) -> bytes:
        address, size, block_size, most_under_way = struct.unpack("<IIII", body)
        if address + size > flash_memory.SIZE or not 0 < block_size <= flash_memory.SECTOR or not most_under_way:
            raise Refused(INVALID_MESSAGE)
        self._log(f"read begin {size}")
        self._fault.begin(device_fault.DURING_A_READ)
        content = self._flash.read(address, size)
        self._unplugged_after = due = self._fault.due_after(device_fault.DURING_A_READ, size)
        if due is not None and self._fault.is_armed(device_fault.READ_ERROR):
            self._unplugged_after = None
            self._fault.strike()
            content[due - 1] ^= 1
        self._read = flash_memory.FlashRead(bytes(content), block_size, min(most_under_way, MOST_BLOCKS_UNDER_WAY))
        return b""

    def _follow_read(self, read: flash_memory.FlashRead, packet: bytes) -> Iterator[bytes]:
        try:
            read.acknowledge(*struct.unpack("<I", packet))
        except ValueError:
            self._read = None
            return
        yield from self._send_read(read)

    def _send_read(self, read: flash_memory.FlashRead) -> Iterator[bytes]:
        for sent, packet in read.packets():
            if self._unplugged_after is not None and sent >= self._unplugged_after:
                self._fault.strike()
                raise Unplugged
            yield packet
        if read.is_complete:
            self._read = None
            self._log("read end")

    def _leave_stub(self, body: bytes) -> bytes:
        (stay,) = struct.unpack("<I", body)
        if not stay:
            self.reset()
            self._save()
            self._log("loader")
        return b""
