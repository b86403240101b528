"""The report, the only file that is sent to us."""

from __future__ import annotations

import platform
import re
import time
from typing import Dict, List, NamedTuple, Optional

from device_report.privacy import Mask

KIND_OF_PORT = {4: "USB-Serial/JTAG, the chip's own", 3: "USB-OTG, the chip's own", 0: "UART, through a bridge"}


class Step(NamedTuple):
    title: str
    seconds: float
    result: str


def system() -> str:
    version = platform.mac_ver()[0]
    return (f"macOS {version}, " if version else "") + platform.platform()


def first(pattern: str, text: str) -> Optional[str]:
    found = re.search(pattern, text, re.MULTILINE | re.IGNORECASE)
    return found[1].strip() if found else None


def chip_facts(output: str) -> Dict[str, Optional[str]]:
    """The facts about the chip in the output of the tool."""
    return {"chip": first(r"^Chip is (.*)$", output), "features": first(r"^Features: (.*)$", output),
            "crystal": first(r"^Crystal is (.*)$", output), "flash maker": first(r"^Manufacturer: (.*)$", output),
            "flash device": first(r"^Device: (.*)$", output),
            "flash size": first(r"^Detected flash size: (.*)$", output)}


def kind_of_port(output: str) -> Optional[str]:
    value = first(r"^0x3fcef14c = (0x[0-9a-f]+)", output)
    if value is None:
        return None
    return KIND_OF_PORT.get(int(value, 16) & 0xFF, f"unknown ({value})")


def usb_facts(listing: str, port: str) -> Optional[str]:
    """From pyserial's list of ports: the two numbers and the name of the USB device, without its serial number."""
    block = first(rf"^{re.escape(port)}\s*$((?:\n[ \t]+.*)+)", listing)
    if block is None:
        return None
    ids, name = first(r"VID:PID=([0-9a-f:]+)", block), first(r"desc: (.*)$", block)
    return f"{ids}, {name}" if ids else None


class Report:
    def __init__(self) -> None:
        self._facts: Dict[str, str] = {"date": time.strftime("%Y-%m-%d %H:%M %z"), "system": system()}
        self._steps: List[Step] = []
        self._log: List[str] = []

    def add_facts(self, facts: Dict[str, Optional[str]]) -> None:
        self._facts.update({key: value or "unknown" for key, value in facts.items()})

    def add_step(self, step: Step) -> None:
        self._steps.append(step)

    def note(self, text: str) -> None:
        """Adds a line, or the output of a program, to the log."""
        self._log.append(text if text.endswith("\n") else text + "\n")

    def text(self, result: str) -> str:
        width = max(map(len, self._facts))
        parts = ["Report of a device that was flashed\n\n", f"result: {result}\n\n"]
        parts += [f"{key:<{width}}  {value}\n" for key, value in self._facts.items()]
        parts += ["\nSteps\n\n"]
        parts += [f"{step.seconds:7.1f} s  {step.title}: {step.result}\n" for step in self._steps]
        parts += ["\nLog\n\n", *self._log]
        return Mask().masked("".join(parts))
