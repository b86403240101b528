"""Run in the clean root: the installed program flashes a simulated device through its window."""

from __future__ import annotations

import json
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "end-to-end"))
from flasher_window import FlasherWindow, wait_until  # noqa: E402
from flashing_session import MANIFEST, PORT, SimulatedDevice, require_private_dev  # noqa: E402

ENDS = ("FLASH COMPLETE", "FLASH FAILED", "FLASHER COULD NOT START")


def main(program: Path, home: Path, folder: Path) -> int:
    require_private_dev()
    resources = program.resolve().parents[1] / "Resources"
    image = resources / json.loads((resources / MANIFEST).read_text())["binary"]["path"]
    with SimulatedDevice(folder) as device, FlasherWindow(program, home, folder / "streams.txt") as window:
        window.press(window.flash_button())
        window.answer("ERASE + FLASH")
        wait_until(lambda: window.status() in ENDS, "the end of the job", seconds=180)
        status = window.status()
        log = window.log()
        same = device.holds(image)
        if status == "FLASH COMPLETE":
            window.answer("Done")
            window.close()
    if status != "FLASH COMPLETE" or not same:
        print(log)
    print(f"{status} on {PORT}; the device's flash {'is' if same else 'is NOT'} the image of {resources}")
    return 0 if same and status == "FLASH COMPLETE" else 1


if __name__ == "__main__":
    sys.exit(main(*map(Path, sys.argv[1:])))
