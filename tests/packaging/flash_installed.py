"""Runs in the clean root: the installed program flashes a simulated device through its window."""

from __future__ import annotations

import json
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.built import MANIFEST  # noqa: E402
from support.device import PORT, SimulatedDevice, require_private_dev  # noqa: E402
from support.flasher_window import FlasherWindow  # noqa: E402
from support.waiting import wait_until  # noqa: E402

ENDS = ("FLASH COMPLETE", "FLASH FAILED", "FLASHER COULD NOT START")


def main(program: Path, home: Path, folder: Path) -> int:
    require_private_dev()
    manifest = program.resolve().parents[2] / MANIFEST
    image = manifest.with_name(json.loads(manifest.read_text())["binary"]["path"])
    with SimulatedDevice(folder) as device, FlasherWindow(program, home, folder / "streams.txt") as window:
        window.press(window.flash_button())
        window.answer("ERASE + FLASH")
        wait_until(lambda: window.status() in ENDS, "the end of the job", seconds=180)
        status = window.status()
        log = window.log()
        same = device.holds(image.read_bytes())
        if status == "FLASH COMPLETE":
            window.answer("Done")
            window.close()
    if status != "FLASH COMPLETE" or not same:
        print(log)
    print(f"{status} on {PORT}; the device's flash {'is' if same else 'is NOT'} the image beside {manifest}")
    return 0 if same and status == "FLASH COMPLETE" else 1


if __name__ == "__main__":
    sys.exit(main(*map(Path, sys.argv[1:])))
