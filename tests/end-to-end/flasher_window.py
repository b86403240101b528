"""The application's real window, seen through the desktop's accessibility bus and used with a real pointer."""

from __future__ import annotations

import os
import subprocess
import time
from pathlib import Path
from typing import Callable, Sequence

import gi

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, GLib  # noqa: E402

NAME_ON_THE_BUS = "QelmoFlasher"

# Only a broken program or machine takes this long.
LIMIT_SECONDS = 60


def wait_until(condition: Callable[[], object], what: str, seconds: float = LIMIT_SECONDS) -> object:
    deadline = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise AssertionError(f"did not happen within {seconds:.0f} s: {what}")
        time.sleep(0.02)


def role_of(view: Atspi.Accessible) -> str:
    """As Debian 12 calls it. In Debian 13, with AT-SPI 2.56, a push button is a "button"."""
    name = view.get_role_name()
    return "push button" if name == "button" else name


class FlasherWindow:
    """One run of the application. Use it in a with statement; the program is gone at its end."""

    def __init__(self, program: Path, home: Path, output: Path, prefix: Sequence[str | Path] = ()) -> None:
        """`prefix` is a command that runs the program; what the program writes goes to `output`."""
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
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()

    # What a person sees ----

    def status(self) -> str:
        return self._described("Status").get_name()

    def release(self) -> str:
        return self._described("Release").get_name()

    def log(self) -> str:
        views = self._all(role="text", name="Log")
        return Atspi.Text.get_text(views[0], 0, -1) if views else ""

    def selected_port(self) -> str:
        return Atspi.Accessible.get_name(self._only(role="combo box"))

    def is_enabled(self, role: str, name: str | None = None) -> bool:
        return self._only(role, name).get_state_set().contains(Atspi.StateType.ENABLED)

    def flash_button(self) -> str:
        names = [button.get_name() for button in self._all(role="push button")]
        return next(name for name in names if name.startswith("FLASH VERIFIED") or name == "VALIDATING RELEASE")

    def alert_texts(self) -> list[str]:
        """The texts of the open alert, or none."""
        return [label.get_name() for alert in self._alerts() for label in self._all("label", root=alert)
                if label.get_name()]

    def screenshot(self, path: Path) -> None:
        path.parent.mkdir(parents=True, exist_ok=True)
        subprocess.run(["import", "-window", "root", str(path)], check=True)

    # What a person does ----

    def press(self, title: str) -> None:
        """Clicks the button with the pointer, as soon as it is there, enabled and at rest."""
        box = wait_until(lambda: self._place_at_rest(title), f"an enabled button {title!r} at rest")
        subprocess.run(["xdotool", "mousemove", str(box.x + box.width // 2), str(box.y + box.height // 2),
                        "click", "1"], check=True)

    def activate(self, title: str) -> None:
        """Presses the button as an assistive tool does, which leaves the pointer alone."""
        button = wait_until(lambda: self._enabled_button(title), f"an enabled button {title!r}")
        Atspi.Action.do_action(button, 0)

    def answer(self, title: str, press: Callable[[str], None] | None = None) -> None:
        """Presses a button of the open alert and waits until the alert is gone."""
        wait_until(self._alerts, f"an alert with a button {title!r}")
        (press or self.press)(title)
        wait_until(lambda: not self._alerts(), "the end of the alert")

    def close(self) -> None:
        """Closes the window by the window manager's key, and waits for the end of the program."""
        windows = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^QELMO Varnox Flasher$"],
                                 check=True, capture_output=True, text=True).stdout.split()
        subprocess.run(["xdotool", "windowfocus", "--sync", windows[0], "key", "alt+F4"], check=True)
        wait_until(lambda: self.process.poll() is not None, "the end of the program")

    def type_keys(self, *keys: str) -> None:
        """Types on the keyboard, to whatever has its focus."""
        subprocess.run(["xdotool", "key", "--delay", "50", *keys], check=True)

    def focus(self) -> str:
        """The role and the name of what has the keyboard's focus."""
        for role in ("combo box", "push button", "text"):
            for view in self._all(role):
                if view.get_state_set().contains(Atspi.StateType.FOCUSED) and self._is_in_front(view):
                    return f"{role} {view.get_name()}"
        return ""

    def views(self) -> list[Atspi.Accessible]:
        """What the window holds, in the order in which an assistive tool reads it."""
        found: list[Atspi.Accessible] = []
        window = self._application().get_child_at_index(0)
        for index in range(window.get_child_count()):
            view = window.get_child_at_index(index)
            # A box says nothing; what is in it does.
            inside = [view.get_child_at_index(child) for child in range(view.get_child_count())]
            found += inside if view.get_role_name() == "filler" else [view]
        return found

    # Finding things ----

    def _application(self) -> Atspi.Accessible | None:
        desktop = Atspi.get_desktop(0)
        desktop.clear_cache()
        for index in range(desktop.get_child_count()):
            try:
                application = desktop.get_child_at_index(index)
                if application is not None and application.get_name() == NAME_ON_THE_BUS:
                    return application
            except GLib.Error:
                continue
        if self.process.poll() is not None:
            raise AssertionError(f"the program ended with {self.process.returncode}: "
                                 f"{self.output.read_text(errors='replace')}")
        return None

    def _all(self, role: str, name: str | None = None,
             root: Atspi.Accessible | None = None) -> list[Atspi.Accessible]:
        found: list[Atspi.Accessible] = []
        self._collect(root or self._application(), role, name, found)
        return found

    def _collect(self, item: Atspi.Accessible | None, role: str, name: str | None,
                 found: list[Atspi.Accessible]) -> None:
        if item is None:
            return
        try:
            item.clear_cache()
            if role_of(item) == role and name in (None, item.get_name()):
                found.append(item)
            for index in range(item.get_child_count()):
                self._collect(item.get_child_at_index(index), role, name, found)
        except GLib.Error:
            pass  # it went away while we looked

    def _only(self, role: str, name: str | None = None) -> Atspi.Accessible:
        found = self._all(role, name)
        if len(found) != 1:
            raise AssertionError(f"{len(found)} views with role {role!r} and name {name!r}")
        return found[0]

    def _described(self, description: str) -> Atspi.Accessible:
        return next(label for label in self._all("label") if label.get_description() == description)

    def _place_at_rest(self, title: str) -> Atspi.Rect | None:
        """Where an enabled button is, once its window has the focus and a window manager has placed it."""
        places = []
        for _ in range(2):
            button = self._enabled_button(title)
            if button is None or not self._is_in_front(button):
                return None
            places.append(Atspi.Component.get_extents(button, Atspi.CoordType.SCREEN))
            time.sleep(0.05)
        first, second = places
        return second if (first.x, first.y) == (second.x, second.y) else None

    def _enabled_button(self, title: str) -> Atspi.Accessible | None:
        buttons = [button for button in self._all("push button", title)
                   if button.get_state_set().contains(Atspi.StateType.ENABLED)]
        return buttons[0] if buttons else None

    def _is_in_front(self, item: Atspi.Accessible) -> bool:
        application = self._application()
        while item.get_parent() not in (None, application):
            item = item.get_parent()
        item.clear_cache()
        return item.get_state_set().contains(Atspi.StateType.ACTIVE)

    def _alerts(self) -> list[Atspi.Accessible]:
        return self._all("alert") + self._all("dialog")
