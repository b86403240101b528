#!/usr/bin/python3
"""Plays the flashing tool for the tests of device-report, with a file in the place of the flash, and does what goes
wrong at the wanted call.

The folder in STANDIN holds: flash (the content), plan.json ({"COMMAND NUMBER": ACTION}), calls (the arguments of
each call, one line each). Actions: fail, block, deaf, flip ADDRESS..., say TEXT, short, small.
"""

import json
import os
import signal
import sys
from pathlib import Path

FOLDER = Path(os.environ["STANDIN"])
FLASH = FOLDER / "flash"
TALK = """esptool.py v4.7.0
Serial port {port}
Connecting...
Chip is ESP32-S3 (QFN56) (revision v0.2)
Features: WiFi, BLE, Embedded Flash 8MB (GD)
Crystal is 40MHz
MAC: f4:12:fa:5e:01:0b
Uploading stub..."""
ANSWERS = {"flash_id": "Manufacturer: c8\nDevice: 4017\nDetected flash size: 8MB",
           "read_mem": "0x3fcef14c = 0x00000004"}


def action_of(command):
    """Notes the call and returns what is planned for it."""
    with (FOLDER / "calls").open("a") as calls:
        calls.write(json.dumps(sys.argv[1:]) + "\n")
    number = sum(command in json.loads(line) for line in (FOLDER / "calls").read_text().splitlines())
    plan = json.loads((FOLDER / "plan.json").read_text())
    return plan.get(f"{command} {number}", "").split()


def flipped(content, addresses):
    changed = bytearray(content)
    for address in addresses:
        changed[int(address, 0)] ^= 0xFF
    return bytes(changed)


def write(image, erases, half):
    before = FLASH.read_bytes()
    rest = b"\xff" * len(before) if erases else before
    if half:
        image = image[:len(image) // 2]
    FLASH.write_bytes(image + rest[len(image):])


def main():
    if sys.argv[1:] == ["version"]:
        print("4.7.0")
        return 0
    command = next(word for word in sys.argv if word in ("flash_id", "read_mem", "read_flash", "write_flash"))
    action, *words = action_of(command) or ["do"]
    port = sys.argv[sys.argv.index("--port") + 1]
    print(TALK.format(port=port), flush=True)
    if action == "say":
        print(" ".join(words))
    if command == "write_flash":
        write(Path(sys.argv[-1]).read_bytes(), "--erase-all" in sys.argv, half=action in ("fail", "block", "deaf"))
        if action == "flip":
            FLASH.write_bytes(flipped(FLASH.read_bytes(), words))
    if action == "deaf":
        signal.signal(signal.SIGTERM, signal.SIG_IGN)
    if action in ("block", "deaf"):
        (FOLDER / "blocked").write_text(str(os.getpid()))
        while True:
            signal.pause()
    if action == "fail":
        print("A fatal error occurred: as planned\nFor troubleshooting steps visit a page")
        return 2
    if command == "read_flash":
        content = FLASH.read_bytes()
        content = flipped(content, words) if action == "flip" else content
        print("4194304 (50 %)\b\b\b\b\b\b\b\b\b\b\b\b\b\b8388608 (100 %)")
        Path(sys.argv[-1]).write_bytes(content[:-1] if action == "short" else content)
    answer = ANSWERS.get(command, "Hash of data verified.")
    print(answer.replace("8MB", "4MB") if action == "small" else answer)
    return 0


sys.exit(main())
