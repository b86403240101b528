#!/usr/bin/python3
"""A Cardputer ADV (ESP32-S3, 8 MB of flash) on a pseudo-terminal, for the real flashing tool to work on."""

import sys

sys.dont_write_bytecode = True

import argparse  # noqa: E402
import os  # noqa: E402
import signal  # noqa: E402
import time  # noqa: E402
from typing import Callable, NoReturn, TextIO  # noqa: E402

import device_fault  # noqa: E402
import device_port  # noqa: E402
import esp32s3  # noqa: E402
import flash_memory  # noqa: E402
import slip  # noqa: E402

PROGRAM = "simulated_cardputer.py"


class OneLineParser(argparse.ArgumentParser):
    def error(self, message: str) -> NoReturn:
        self.exit(2, f"{PROGRAM}: {message}\n")


def positive(text: str) -> float:
    number = float(text)
    if not 0 < number < float("inf"):
        raise ValueError
    return number


def turn(text: str) -> int:
    number = int(text)
    if number < 1:
        raise ValueError
    return number


def parse_arguments() -> argparse.Namespace:
    parser = OneLineParser(prog=PROGRAM, description=__doc__, allow_abbrev=False)
    parser.add_argument("--port", required=True, metavar="PATH", help="link to make, e.g. /dev/cu.usbmodem101")
    parser.add_argument("--flash-dump", required=True, metavar="FILE", help="the flash after every session")
    parser.add_argument("--ready-file", metavar="FILE", help="written when the device can be opened")
    parser.add_argument("--fault", metavar="KIND[@PERCENT]",
                        help=", ".join(device_fault.AT_ONCE + device_fault.AT_A_PERCENTAGE)
                        + "; from unplugged on at a percentage of what is written or read (50)")
    parser.add_argument("--fault-once", action="store_true", help="the fault strikes in one session only")
    parser.add_argument("--fault-turn", type=turn, metavar="N", help="the fault strikes in the Nth write or read only")
    parser.add_argument("--bytes-per-second", type=positive, metavar="N", help="speed of the line from the host")
    parser.add_argument("--erase-seconds", type=positive, default=0, metavar="S", help="time of a whole erase")
    parser.add_argument("--event-log", metavar="FILE", help="one line for each event (standard output)")
    parser.add_argument("--initial-flash", metavar="FILE", help="what the flash holds at first (zeros)")
    arguments = parser.parse_args()
    try:
        if arguments.fault:
            device_fault.parse(arguments.fault)
        elif arguments.fault_once or arguments.fault_turn:
            raise ValueError("--fault-once and --fault-turn need --fault")
        arguments.flash = flash_memory.FlashMemory(read_initial_flash(arguments.initial_flash))
        for path in filter(None, (arguments.flash_dump, arguments.ready_file, arguments.event_log)):
            if not os.access(os.path.dirname(os.path.abspath(path)), os.W_OK) or os.path.isdir(path):
                raise ValueError(f"cannot write {path}")
    except ValueError as error:
        parser.error(str(error))
    return arguments


def read_initial_flash(path: str) -> bytes:
    if path is None:
        return b""
    try:
        with open(path, "rb") as file:
            content = file.read(flash_memory.SIZE + 1)
    except OSError as error:
        raise ValueError(f"cannot read {path}: {error.strerror}") from None
    if len(content) > flash_memory.SIZE:
        raise ValueError(f"{path} is larger than the flash ({flash_memory.SIZE} bytes)")
    return content


class SimulatedCardputer:
    def __init__(self, arguments: argparse.Namespace, port: device_port.DevicePort,
                 log: Callable[[str], None]) -> None:
        self._arguments, self._log = arguments, log
        self.port = port
        self._fault = device_fault.Fault(arguments.fault, arguments.fault_once, arguments.fault_turn, log)
        self._chip = esp32s3.Esp32S3(arguments.flash, self._fault, log, self.save_flash,
                                     lambda: self.port.pause(arguments.erase_seconds))
        self._line_is_free_at = 0.0

    def save_flash(self) -> None:
        self._arguments.flash.save(self._arguments.flash_dump)

    def serve(self) -> None:
        """Serves one host after the other.  Returns only when the device has been unplugged for good."""
        while True:
            self.port.wait_for_host()
            self._log("opened")
            try:
                self._talk()
            except device_port.HostGone:
                self._end_session()
            except esp32s3.Unplugged:
                self.port.unplug()
                self._end_session()
                if not self._fault.once:
                    return
                self._plug_in_again()

    def _talk(self) -> NoReturn:
        decoder = slip.Decoder()
        while True:
            data = self.port.read()
            self._keep_pace(len(data))
            for packet in decoder.feed(data):
                for answer in self._chip.answer(packet):
                    self.port.write(answer)

    def _keep_pace(self, size: int) -> None:
        if self._arguments.bytes_per_second:
            now = time.monotonic()
            self._line_is_free_at = max(now, self._line_is_free_at) + size / self._arguments.bytes_per_second
            self.port.pause(self._line_is_free_at - now)

    def _end_session(self) -> None:
        self._chip.reset()
        self._fault.end_session()
        self.save_flash()
        self._log("closed")

    def _plug_in_again(self) -> None:
        self.port.wait_until_released()
        self.port.close()
        self.port = device_port.DevicePort(self._arguments.port)
        self._log("plugged in again")


def end_on_signal(_number: int, _frame: object) -> NoReturn:
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    sys.exit(0)


def run(arguments: argparse.Namespace, port: device_port.DevicePort, events: TextIO) -> None:
    def log(event: str) -> None:
        print(event, file=events, flush=True)

    device = SimulatedCardputer(arguments, port, log)
    try:
        if arguments.ready_file:
            flash_memory.save_atomically(arguments.ready_file, os.fsencode(port.slave_path) + b"\n")
        device.serve()
    finally:
        device.port.close()
        device.save_flash()
        log("ended")


def main() -> int:
    arguments = parse_arguments()
    for number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(number, end_on_signal)
    try:
        port = device_port.DevicePort(arguments.port)
        try:
            with open(arguments.event_log or 1, "w", encoding="utf-8", closefd=bool(arguments.event_log)) as events:
                run(arguments, port, events)
        finally:
            port.close()
    except OSError as error:
        print(f"{PROGRAM}: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
