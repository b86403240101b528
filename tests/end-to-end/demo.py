"""The main job as a show: verify the bundle, flash a simulated Cardputer through the window, compare the flash."""

from __future__ import annotations

import os
import subprocess
import sys
import tempfile
from pathlib import Path

from flasher_window import FlasherWindow, wait_until
from flashing_session import (BUILD, BUNDLE, PORT, PROGRAM, SAMPLE_IMAGE, SimulatedDevice, install_tool,
                              require_private_dev)

# Slow enough to watch, fast enough for a coffee-free run.
LINE_BYTES_PER_SECOND = "120000"
RESULTS = BUILD / "demo"


def say(text: str) -> None:
    print(f"== {text}", flush=True)


def headless_self_test(home: Path) -> None:
    subprocess.run([BUNDLE / PROGRAM, "--self-test"], check=True,
                   env=dict(os.environ, HOME=str(home)))


def copy_new_lines(window: FlasherWindow, shown: int) -> int:
    log = window.log()
    print(log[shown:], end="", flush=True)
    return len(log)


def flash_by_program(window: FlasherWindow, on_own_display: bool) -> None:
    def picture(name: str) -> None:
        if on_own_display:
            window.screenshot(RESULTS / f"{name}.png")

    # On somebody's desktop the pointer is theirs; there the buttons are pressed as an assistive tool does.
    press = window.press if on_own_display else window.activate
    picture("1-ready")
    press(window.flash_button())
    wait_until(window.alert_texts, "the confirmation")
    picture("2-confirmation")
    window.answer("ERASE + FLASH", press)
    follow_job(window, picture)
    wait_until(window.alert_texts, "the success alert")
    picture("4-complete")
    window.answer("Done", press)


def follow_job(window: FlasherWindow, picture=lambda name: None) -> None:
    shown = len(window.log())
    pictured = False

    def ended() -> bool:
        nonlocal shown, pictured
        shown = copy_new_lines(window, shown)
        if not pictured and "(50 %)" in window.log():
            picture("3-flashing")
            pictured = True
        return window.status() in ("FLASH COMPLETE", "FLASH FAILED", "FLASHER COULD NOT START")

    wait_until(ended, "the end of the job", seconds=180)


def flash_by_person(window: FlasherWindow) -> None:
    say(f"Your turn: press the flash button. The simulated device is {PORT}.")
    wait_until(lambda: window.status() == "FLASH COMPLETE", "your flash", seconds=3600)


def main() -> int:
    require_private_dev()
    RESULTS.mkdir(parents=True, exist_ok=True)
    on_own_display = "--own-display" in sys.argv
    with tempfile.TemporaryDirectory() as folder:
        home = Path(folder) / "home"
        home.mkdir()
        say("The real flashing tool, in a home folder made for this run")
        install_tool(home)
        say("Headless self-test")
        headless_self_test(home)
        say("A simulated Cardputer ADV in boot mode, and the window")
        with SimulatedDevice(Path(folder), "--bytes-per-second", LINE_BYTES_PER_SECOND) as device, \
                FlasherWindow(BUNDLE / PROGRAM, home, RESULTS / "streams.txt") as window:
            if "--interactive" in sys.argv:
                flash_by_person(window)
            else:
                flash_by_program(window, on_own_display)
            (RESULTS / "log.txt").write_text(window.log())
            status = window.status()
            same = device.holds(SAMPLE_IMAGE)
    say(f"The window says {status}. The device's flash "
        + ("is the image, byte for byte." if same else "DIFFERS from the image."))
    say(f"Log and screenshots: {RESULTS}")
    return 0 if same and status == "FLASH COMPLETE" else 1


if __name__ == "__main__":
    sys.exit(main())
