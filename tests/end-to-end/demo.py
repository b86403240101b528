"""Demonstrates the main job: verifies the bundle, flashes a simulated Cardputer through the window, checks the
flash."""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from flashing_session import COMPLETE, CONFIRM, FAILED, IMAGE  # noqa: E402
from support.built import BUILD, BUNDLE, PROGRAM  # noqa: E402
from support.device import PORT, SimulatedDevice, require_private_dev  # noqa: E402
from support.flasher_window import FlasherWindow  # noqa: E402
from support.real_tool import home_with_the_tool  # noqa: E402
from support.waiting import wait_until  # noqa: E402

RESULTS = BUILD / "demo"


def say(text: str) -> None:
    print(f"== {text}", flush=True)


def flash_by_program(window: FlasherWindow, on_own_display: bool) -> str:
    """Returns the window's last status."""
    def picture(name: str) -> None:
        if on_own_display:
            window.screenshot(RESULTS / f"{name}.png")

    # On a user's desktop the pointer belongs to the user, so buttons are pressed as an assistive tool does.
    press = window.press if on_own_display else window.activate
    picture("1-ready")
    press(window.flash_button())
    wait_until(window.alert_texts, "the confirmation")
    picture("2-confirmation")
    window.answer(CONFIRM, press)
    window.wait_for_log("(50 %)")
    picture("3-flashing")
    wait_until(lambda: window.status() in (COMPLETE, FAILED), "the end of the job", seconds=180)
    status, log = window.status(), window.log()
    print(log)
    (RESULTS / "log.txt").write_text(log)
    if status == COMPLETE:
        wait_until(window.alert_texts, "the success alert")
        picture("4-complete")
        window.answer("Done", press)
    return status


def flash_by_person(window: FlasherWindow, device: SimulatedDevice) -> None:
    say(f"Your turn: press the flash button. The simulated device is {PORT}. Close the window to end.")
    if status := window.wait_for_end_of_program(seconds=float("inf")):
        sys.exit(f"demo: the window ended with {status}")
    # A flash continues after its window was closed.
    wait_until(lambda: device.event_lines()[-1:] in ([], ["closed"]), "the end of the flash", seconds=180)


def main() -> int:
    require_private_dev()
    shutil.rmtree(RESULTS, ignore_errors=True)
    RESULTS.mkdir(parents=True)
    interactive = "--interactive" in sys.argv
    with tempfile.TemporaryDirectory() as folder:
        say("The real flashing tool, in a home folder made for this run")
        home = home_with_the_tool()
        say("Headless self-test")
        subprocess.run([BUNDLE / PROGRAM, "--self-test"], check=True, env=dict(os.environ, HOME=str(home)))
        say("A simulated Cardputer ADV in boot mode, and the window")
        with SimulatedDevice(Path(folder), "--bytes-per-second", "120000") as device, \
                FlasherWindow(BUNDLE / PROGRAM, home, RESULTS / "streams.txt") as window:
            if interactive:
                flash_by_person(window, device)
            else:
                say(f"The window's last status: {flash_by_program(window, '--own-display' in sys.argv)}")
                device.wait_for("closed")
            same = device.holds(IMAGE)
    say("The device's flash " + ("is the image, byte for byte." if same else "is not the image."))
    say(f"In {RESULTS}: {', '.join(sorted(file.name for file in RESULTS.iterdir()))}")
    return 0 if same or interactive else 1


if __name__ == "__main__":
    sys.exit(main())
