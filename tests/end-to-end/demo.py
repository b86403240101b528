"""The main job as a show: verify the bundle, flash a simulated Cardputer through the window, compare the flash."""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

from flasher_window import FlasherWindow, GLib, wait_until
from flashing_session import (BUILD, BUNDLE, PORT, PROGRAM, SAMPLE_IMAGE, SimulatedDevice, install_tool,
                              require_private_dev)

# Slow enough to watch, fast enough for a coffee-free run.
LINE_BYTES_PER_SECOND = "120000"
RESULTS = BUILD / "demo"
COMPLETE = "FLASH COMPLETE"


def say(text: str) -> None:
    print(f"== {text}", flush=True)


def headless_self_test(home: Path) -> None:
    subprocess.run([BUNDLE / PROGRAM, "--self-test"], check=True,
                   env=dict(os.environ, HOME=str(home)))


class Show:
    """What the window shows, and showed last when somebody has closed it."""

    def __init__(self, window: FlasherWindow) -> None:
        self.window = window
        self.status, self.log = window.status(), window.log()
        self._has_alert = self._is_answered = False

    def look(self) -> None:
        """Prints the new lines of the log."""
        try:
            has_alert, status, log = bool(self.window.alert_texts()), self.window.status(), self.window.log()
        except (AssertionError, StopIteration, GLib.Error):
            return  # it is being closed
        print(log[len(self.log):], end="", flush=True)
        self._is_answered = self._has_alert and not has_alert
        self._has_alert, self.status, self.log = has_alert, status, log or self.log

    def is_over(self) -> bool:
        """Whether somebody has pressed "Done" after a flash, or has closed the window."""
        self.look()
        return self.is_closed() or (self.status == COMPLETE and self._is_answered)

    def is_closed(self) -> bool:
        return self.window.process.poll() is not None


def flash_by_program(show: Show, on_own_display: bool) -> None:
    window = show.window

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
    follow_job(show, picture)
    wait_until(window.alert_texts, "the success alert")
    picture("4-complete")
    window.answer("Done", press)


def follow_job(show: Show, picture) -> None:
    pictured = False

    def ended() -> bool:
        nonlocal pictured
        show.look()
        if not pictured and "(50 %)" in show.log:
            picture("3-flashing")
            pictured = True
        return show.is_closed() or show.status in (COMPLETE, "FLASH FAILED", "FLASHER COULD NOT START")

    wait_until(ended, "the end of the job", seconds=180)


def flash_by_person(show: Show) -> None:
    say(f"Your turn: press the flash button. The simulated device is {PORT}.")
    wait_until(show.is_over, "the end of your flash", seconds=float("inf"))
    if show.window.process.poll():
        sys.exit(f"demo: the window ended with {show.window.process.returncode}")


def wait_for_end_of_job(show: Show, device: SimulatedDevice) -> None:
    """A flash goes on when its window is closed."""
    def ended() -> bool:
        events = device.event_lines()
        return not events or events[-1] == "closed"

    if show.is_closed() and not ended():
        say("The window is closed, and the flash goes on to its end.")
    wait_until(ended, "the end of the flash", seconds=180)


def report(show: Show, same: bool, interactive: bool) -> int:
    """Returns the exit status. Somebody may also close the window without a flash."""
    (RESULTS / "log.txt").write_text(show.log)
    say(f"The window's last status: {show.status}. The device's flash "
        + ("is the image, byte for byte." if same else "is not the image."))
    say(f"In {RESULTS}: {', '.join(sorted(file.name for file in RESULTS.iterdir()))}")
    return 0 if (same if show.status == COMPLETE else interactive) else 1


def main() -> int:
    require_private_dev()
    shutil.rmtree(RESULTS, ignore_errors=True)
    RESULTS.mkdir(parents=True)
    interactive = "--interactive" in sys.argv
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
            show = Show(window)
            if interactive:
                flash_by_person(show)
            else:
                flash_by_program(show, "--own-display" in sys.argv)
            wait_for_end_of_job(show, device)
            same = device.holds(SAMPLE_IMAGE)
    return report(show, same, interactive)


if __name__ == "__main__":
    sys.exit(main())
