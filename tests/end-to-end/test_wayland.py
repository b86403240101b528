"""The window on Wayland, the default of current desktops: what it tells the compositor, and one whole flash."""

from __future__ import annotations

import os
import subprocess
import sys
import unittest
from pathlib import Path
from unittest import mock

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from flashing_session import SessionTest  # noqa: E402
from support.built import BUNDLE, PROGRAM, ROOT  # noqa: E402
from support.child import run  # noqa: E402
from support.real_tool import load_tests  # noqa: E402, F401
from support.waiting import wait_until  # noqa: E402

APPLICATION = "io.qelmo.varnox-flasher"


class Wayland(SessionTest):
    def setUp(self) -> None:
        super().setUp()
        socket = Path(os.environ["XDG_RUNTIME_DIR"]) / "wayland-test"
        # Draws into memory only, with its own defaults instead of the user's.
        compositor = subprocess.Popen(["weston", "--backend=headless-backend.so", f"--socket={socket.name}",
                                       "--no-config", "--idle-time=0", "--width=1280", "--height=900"],
                                      stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(compositor.wait)
        self.addCleanup(compositor.terminate)
        wait_until(lambda: socket.exists() or compositor.poll() is not None, "a compositor")
        # The Wayland library then prints every message of the protocol.
        self.enterContext(mock.patch.dict(os.environ, WAYLAND_DISPLAY=socket.name, QT_QPA_PLATFORM="wayland",
                                          WAYLAND_DEBUG="1"))

    def test_the_window_names_its_desktop_entry_and_flashes_a_device(self) -> None:
        self.assertTrue((ROOT / f"packaging/{APPLICATION}.desktop").exists())
        with self.plugged_in() as device, self.window() as window:
            self.start_flash(window, press=window.activate)
            self.expect_complete(window, device, press=window.activate)
        told = window.output.read_text(errors="replace")
        self.assertIn(f'set_app_id("{APPLICATION}")', told)
        self.assertIn('set_title("QELMO Varnox Flasher")', told)
        for size in ("set_min_size(720, 650)", "set_max_size(720, 650)"):
            self.assertIn(size, told)

    def test_the_window_self_test_passes(self) -> None:
        done = run(BUNDLE / PROGRAM, "--window-self-test", env={**os.environ, "HOME": str(self.home)})
        self.assertEqual(done.returncode, 0, done.stderr)


if __name__ == "__main__":
    unittest.main()
