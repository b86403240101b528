#!/usr/bin/python3
"""The oldest Qt that the build takes, on each system. The project itself is configured, with a stand-in for Qt."""

from __future__ import annotations

import glob
import re
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
TAKEN = "this Qt is taken"
# No compiler for macOS is there, and none is needed to get as far as Qt.
MACOS = ("-DCMAKE_SYSTEM_NAME=Darwin", "-DCMAKE_CXX_COMPILER_FORCED=ON", "-DCMAKE_OSX_SYSROOT=/",
         "-DCMAKE_INSTALL_NAME_TOOL=/bin/false", "-DCMAKE_HAVE_LIBC_PTHREAD=ON")

THIS_MACHINES_QT = ";".join(glob.glob("/usr/lib/*/cmake/Qt6") + glob.glob("/lib/*/cmake/Qt6"))


def outcome(qt: str, *options: str) -> str:
    """TAKEN, or the version that the build asked for instead of `qt`."""
    with tempfile.TemporaryDirectory() as folder:
        config = Path(folder, "Qt6Config.cmake")
        config.write_text(f'message(FATAL_ERROR "{TAKEN}")\n')
        Path(folder, "Qt6ConfigVersion.cmake").write_text(
            f'set(PACKAGE_VERSION {qt})\n'
            'if(NOT PACKAGE_FIND_VERSION VERSION_GREATER PACKAGE_VERSION)\n'
            '    set(PACKAGE_VERSION_COMPATIBLE ON)\nendif()\n')
        said = subprocess.run(
            ["cmake", "-G", "Ninja", "-S", ROOT, "-B", f"{folder}/build", f"-DQt6_DIR={folder}",
             f"-DCMAKE_IGNORE_PATH={THIS_MACHINES_QT}", *options],
            capture_output=True, text=True, check=False, timeout=100).stderr
    if TAKEN in said:
        return TAKEN
    asked = re.search(r'requested version "([\d.]+)"', " ".join(said.split()))
    return asked[1] if asked else said


class OldestQt(unittest.TestCase):
    def test_on_macos_is_the_one_that_the_build_command_asks_for(self) -> None:
        oldest = re.search(r"^oldest_qt=([\d.]+)", (ROOT / "BUILD-FULL-MAC.command").read_text(), re.M)[1]
        self.assertEqual(outcome("6.9.1", *MACOS), oldest)
        self.assertEqual(outcome(oldest, *MACOS), TAKEN)

    def test_on_macos_may_be_older_only_when_it_is_said(self) -> None:
        self.assertEqual(outcome("6.4.2", *MACOS, "-DQELMO_OLDEST_QT=6.4"), TAKEN)

    def test_elsewhere_is_the_one_of_debian_12(self) -> None:
        self.assertEqual(outcome("6.3.2"), "6.4")
        self.assertEqual(outcome("6.4.0"), TAKEN)


if __name__ == "__main__":
    unittest.main()
