"""The application's real window, read through the accessibility bus and used with a real pointer."""

from __future__ import annotations

import contextlib
import os
import subprocess
import time
from pathlib import Path
from typing import Callable, Sequence

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

from support.waiting import LIMIT_SECONDS, wait_until  # noqa: E402

NAME_ON_THE_BUS = "QelmoFlasher"


def role_of(view: Atspi.Accessible) -> str:
    """The role as Debian 12 names it. Debian 13, with AT-SPI 2.56, calls a push button a "button"."""
    name = view.get_role_name()
    return "push button" if name == "button" else name


class FlasherWindow:
    """One run of the application. Use it in a with statement, whose end also ends the program."""

    def __init__(self, program: Path, home: Path, output: Path, prefix: Sequence[str | Path] = ()) -> None:
        """`prefix` is a command that runs the program. The program's output goes to `output`."""
        self.output = output
        with open(output, "wb") as streams:
            self.process = subprocess.Popen(
                [*prefix, program], env=dict(os.environ, HOME=str(home)),
                stdin=subprocess.DEVNULL, stdout=streams, stderr=subprocess.STDOUT)

    def __enter__(self) -> FlasherWindow:
        try:
            wait_until(lambda: self._application() is not None, "the application on the accessibility bus")
            wait_until(lambda: self.log() != "", "the first log line")
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_: object) -> None:
        self.process.kill()
        self.process.wait()

    def status(self) -> str:
        return next(label.get_name() for label in self._all("label") if label.get_description() == "Status")

    def log(self) -> str:
        views = self._all("text", "Log")
        return Atspi.Text.get_text(views[0], 0, -1) if views else ""

    def wait_for_log(self, words: str) -> None:
        wait_until(lambda: words in self.log(), f"{words!r} in the log")

    def selected_port(self) -> str:
        [combo_box] = self._all("combo box")
        return combo_box.get_name()

    def is_enabled(self, role: str, name: str | None = None) -> bool:
        [found] = self._all(role, name)
        return found.get_state_set().contains(Atspi.StateType.ENABLED)

    def flash_button(self) -> str:
        names = [button.get_name() for button in self._all("push button")]
        return next(name for name in names if name.startswith("FLASH VERIFIED") or name == "VALIDATING RELEASE")

    def wait_for_end_of_program(self, seconds: float = LIMIT_SECONDS) -> int:
        wait_until(lambda: self.process.poll() is not None, "the end of the program", seconds)
        return self.process.returncode

    def alert_texts(self) -> list[str]:
        return [label.get_name() for alert in self._alerts() for label in self._all("label", root=alert)
                if label.get_name()]

    def screenshot(self, path: Path) -> None:
        subprocess.run(["import", "-window", "root", str(path)], check=True)

    def press(self, title: str) -> None:
        """Clicks the button with the pointer as soon as it exists, is enabled and does not move."""
        box = wait_until(lambda: self._place_at_rest(title), f"an enabled button {title!r} at rest")
        subprocess.run(["xdotool", "mousemove", str(box.x + box.width // 2), str(box.y + box.height // 2),
                        "click", "1"], check=True)

    def activate(self, title: str) -> None:
        """Presses the button as an assistive tool does, without moving the pointer."""
        Atspi.Action.do_action(wait_until(lambda: self._enabled_button(title), f"an enabled button {title!r}"), 0)

    def answer(self, title: str, press: Callable[[str], None] | None = None) -> None:
        """Presses a button of the open alert and waits until the alert is gone."""
        wait_until(self._alerts, f"an alert with a button {title!r}")
        (press or self.press)(title)
        wait_until(lambda: not self._alerts(), "the end of the alert")

    def close(self) -> None:
        """Closes the window with the window manager's key and waits until the program exits."""
        windows = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^QELMO Varnox Flasher$"],
                                 check=True, capture_output=True, text=True).stdout.split()
        subprocess.run(["xdotool", "windowfocus", "--sync", windows[0], "key", "alt+F4"], check=True)
        self.wait_for_end_of_program()

    def type_keys(self, *keys: str) -> None:
        """Types on the keyboard, into whatever has the focus."""
        subprocess.run(["xdotool", "key", "--delay", "50", *keys], check=True)

    def focus(self) -> str:
        """The role and the name of what has the keyboard focus."""
        views = [(role, view) for role in ("combo box", "push button", "text") for view in self._all(role)]
        return next((f"{role} {view.get_name()}" for role, view in views
                     if view.get_state_set().contains(Atspi.StateType.FOCUSED) and self._is_in_front(view)), "")

    def _application(self) -> Atspi.Accessible | None:
        desktop = Atspi.get_desktop(0)
        desktop.clear_cache()
        for index in range(desktop.get_child_count()):
            with contextlib.suppress(GLib.Error):
                application = desktop.get_child_at_index(index)
                if application is not None and application.get_name() == NAME_ON_THE_BUS:
                    return application
        if self.process.poll() is not None:
            raise AssertionError(f"the program ended with {self.process.returncode}: "
                                 f"{self.output.read_text(errors='replace')}")
        return None

    def _all(self, role: str, name: str | None = None, root: Atspi.Accessible | None = None) -> list[Atspi.Accessible]:
        found, items = [], [root or self._application()]
        while items:
            with contextlib.suppress(GLib.Error):  # it disappeared meanwhile
                if (item := items.pop()) is not None:
                    item.clear_cache()
                    if role_of(item) == role and name in (None, item.get_name()):
                        found.append(item)
                    items += [item.get_child_at_index(index) for index in reversed(range(item.get_child_count()))]
        return found

    def _place_at_rest(self, title: str) -> Atspi.Rect | None:
        """The place of an enabled button, or None until its window is active and the button has stopped moving."""
        def place() -> Atspi.Rect | None:
            button = self._enabled_button(title)
            return (Atspi.Component.get_extents(button, Atspi.CoordType.SCREEN)
                    if button is not None and self._is_in_front(button) else None)

        if (first := place()) is None:
            return None
        time.sleep(0.05)
        second = place()
        return second if second is not None and (first.x, first.y) == (second.x, second.y) else None

    def _enabled_button(self, title: str) -> Atspi.Accessible | None:
        return next((button for button in self._all("push button", title)
                     if button.get_state_set().contains(Atspi.StateType.ENABLED)), None)

    def _is_in_front(self, item: Atspi.Accessible) -> bool:
        application = self._application()
        while item.get_parent() not in (None, application):
            item = item.get_parent()
        item.clear_cache()
        return item.get_state_set().contains(Atspi.StateType.ACTIVE)

    def _alerts(self) -> list[Atspi.Accessible]:
        return self._all("alert") + self._all("dialog")
