"""Removes personal data from a report that is sent to others."""

from __future__ import annotations

import getpass
import os
import re
from typing import List, Pattern, Tuple

MAC = re.compile(r"(?<![0-9A-Fa-f])(?:[0-9A-Fa-f]{2}[:-]){5,7}[0-9A-Fa-f]{2}(?![0-9A-Fa-f])")
# On macOS the name of a port may contain the device's serial number, which is its MAC address.
MAC_IN_A_PORT = re.compile(r"(usbmodem|usbserial-?)[0-9A-Fa-f]{12}")
MASK = "xx:xx:xx:xx:xx:xx"
SHORT_MASK = "xxxxxxxxxxxx"


def home_folders() -> List[str]:
    home = os.path.expanduser("~")
    return sorted({home, os.path.realpath(home)} - {"/"}, key=len, reverse=True)


def user_name() -> str:
    try:
        return getpass.getuser()
    except (KeyError, OSError):
        return ""


class Mask:
    """Removes MAC addresses in every spelling, the home folder and the user's name."""

    def __init__(self) -> None:
        self._personal: List[Tuple[Pattern[str], str]] = [
            (re.compile(re.escape(home) + r"(?![\w.-])"), "~") for home in home_folders()]
        if user_name():
            self._personal.append((re.compile(rf"(?<!\w){re.escape(user_name())}(?!\w)"), "USER"))

    def masked(self, text: str) -> str:
        spellings = {re.sub("[:-]", "", found)[:12] for found in MAC.findall(text)}
        text = MAC_IN_A_PORT.sub(rf"\g<1>{SHORT_MASK}", MAC.sub(MASK, text))
        for digits in spellings:
            text = re.sub("[:_-]?".join(re.findall("..", digits)), SHORT_MASK, text, flags=re.IGNORECASE)
        for pattern, replacement in self._personal:
            text = pattern.sub(replacement, text)
        return text
