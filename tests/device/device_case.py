"""What the tests of the real esptool against the simulated device share."""

import os
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

import esptool_versions

HERE = Path(__file__).resolve().parent
# Without a build, the script's own.
CACHE = ["--cache", f"{os.environ['QELMO_BUILD']}/esptool-cache"] if "QELMO_BUILD" in os.environ else []
PYTHON = "/usr/bin/python3"
PORT = "/dev/cu.usbmodem101"
FLASH_SIZE = 8 * 1024 * 1024
ONLY_WHEN_BROKEN = 60  # seconds

home = ""  # the one with the tool, set once before the tests


def run(*command, env=os.environ, **options):
    return subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=ONLY_WHEN_BROKEN,
                          env={**env, "LC_ALL": "C"}, **options)


class DeviceTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.dump, self.events, self.ready = (self.folder / name for name in ("dump", "events", "ready"))

    def device(self, *options):
        """Plugs a device in for the rest of the test."""
        self.ready.unlink(missing_ok=True)
        process = subprocess.Popen(
            [PYTHON, HERE / "simulated_cardputer.py", "--port", PORT, "--flash-dump", self.dump,
             "--ready-file", self.ready, "--event-log", self.events, *map(str, options)])
        self.addCleanup(lambda: (process.kill(), process.wait()))
        self.addCleanup(lambda: os.path.islink(PORT) and os.unlink(PORT))
        self.wait_until(self.ready.exists, "the device did not become ready")
        return process

    def wait_until(self, condition, failure):
        end = time.monotonic() + ONLY_WHEN_BROKEN
        while not condition():
            self.assertLess(time.monotonic(), end, failure)
            time.sleep(0.01)

    def log(self):
        return self.events.read_text().splitlines()

    def wait_for(self, event, times=1):
        self.wait_until(lambda: self.log().count(event) >= times, f"no {event!r} in {self.log()}")

    def end(self, process):
        process.terminate()
        self.assertEqual(process.wait(ONLY_WHEN_BROKEN), 0)

    @staticmethod
    def of_the_tool(values):
        return esptool_versions.of_tool(home, values)

    @staticmethod
    def esptool(*arguments):
        return [PYTHON, f"{home}/.platformio/packages/tool-esptoolpy/esptool.py", "--chip", "esp32s3", *arguments]

    def tool(self, image, erase=True):
        path = self.folder / "image.bin"
        path.write_bytes(image)
        return (self.esptool("--port", PORT, "--baud", "921600", "--before", "default_reset", "--after", "hard_reset",
                             "write_flash")
                + ["--erase-all"] * erase
                + ["--flash_mode", "dio", "--flash_freq", "80m", "--flash_size", "8MB", "--verify", "0x0", path])

    def surroundings(self):
        return {"cwd": self.folder, "env": os.environ | {"HOME": home, "PYTHONDONTWRITEBYTECODE": "1"}}

    def flash(self, image, erase=True):
        return run(*self.tool(image, erase), **self.surroundings())

    def assert_flashed(self, image):
        result = self.flash(image)
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assertTrue(result.stdout.endswith("Hard resetting via RTS pin...\n"), result.stdout)
        self.assertTrue(self.dump.read_bytes() == image + b"\xff" * (FLASH_SIZE - len(image)), "flash != image")


def main():
    """Runs the tests of the calling script, with a /dev of their own and a home with the tool."""
    global home
    if "INSIDE_PRIVATE_DEV" not in os.environ:
        os.environ["INSIDE_PRIVATE_DEV"] = "yes"
        os.execv(HERE / "private-dev", ["private-dev", "--", PYTHON, "-B", *sys.argv])
    with tempfile.TemporaryDirectory() as home:
        if subprocess.call([HERE / "install-esptool", *CACHE, home]) != 0:
            return 1
        program = unittest.main(exit=False)
    return 0 if program.result.wasSuccessful() else 1
