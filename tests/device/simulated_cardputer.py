#!/usr/bin/python3 -B
"""A Cardputer ADV (ESP32-S3, 8 MB of flash) on a pseudo-terminal, for use with the real flashing tool."""

import argparse
import signal
import sys
import time
from pathlib import Path
from typing import Callable, NoReturn

import device_port
import esp32s3
import fault
import slip

FLASH_SIZE = 8 * 1024 * 1024


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__, allow_abbrev=False)
    parser.add_argument("--port", required=True, metavar="PATH", help="link to make, e.g. /dev/cu.usbmodem101")
    parser.add_argument("--flash-dump", required=True, metavar="FILE",
                        help="file to which the flash is written after every session")
    parser.add_argument("--fault", type=fault.Fault, default="", metavar="KIND[@PERCENT]",
                        help=", ".join(fault.AT_ONCE + fault.DURING_A_WRITE)
                        + "; the last three strike when PERCENT of the data has been written (default: 50)")
    parser.add_argument("--bytes-per-second", type=float, metavar="N", help="speed of the line from the host")
    parser.add_argument("--event-log", default="/dev/stdout", metavar="FILE",
                        help="file for one line per event (default: standard output)")
    parser.add_argument("--initial-flash", type=argparse.FileType("rb"), metavar="FILE",
                        help="the initial content of the flash (default: zeros)")
    return parser.parse_args()


class SimulatedCardputer:
    def __init__(self, arguments: argparse.Namespace, log: Callable[[str], None]) -> None:
        initial = arguments.initial_flash
        self._cells = bytearray((initial.read() if initial else b"").ljust(FLASH_SIZE, b"\0"))
        self._arguments, self._log = arguments, log
        self._line_is_free_at = 0.0
        self.port = device_port.DevicePort(arguments.port)
        arguments.fault.log = log
        self._chip = esp32s3.Esp32S3(self._cells, arguments.fault, log, self.save_flash)

    def save_flash(self) -> None:
        beside = Path(f"{self._arguments.flash_dump}.part")
        beside.write_bytes(self._cells)
        beside.replace(self._arguments.flash_dump)

    def serve(self) -> None:
        """Serves one host after another. Returns only when the device has been unplugged."""
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
                return

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
        self.save_flash()
        self._log("closed")


def end_on_signal(_number: int, _frame: object) -> NoReturn:
    signal.signal(signal.SIGTERM, signal.SIG_IGN)
    signal.signal(signal.SIGINT, signal.SIG_IGN)
    sys.exit(0)


def main() -> NoReturn:
    arguments = parse_arguments()
    for number in (signal.SIGTERM, signal.SIGINT):
        signal.signal(number, end_on_signal)
    with open(arguments.event_log, "w", encoding="utf-8", buffering=1) as events:
        device = SimulatedCardputer(arguments, lambda event: print(event, file=events))
        try:
            device.serve()
        finally:
            device.port.unplug()
            device.save_flash()


if __name__ == "__main__":
    main()
