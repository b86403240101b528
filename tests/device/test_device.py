#!/usr/bin/python3
"""The real esptool with the simulated device: what each fault does, and what the help page says about it."""

import contextlib
import fcntl
import os
import random
import select
import subprocess
import sys
import termios
import tty
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support import device, help_page  # noqa: E402
from support.built import TOOL  # noqa: E402
from support.child import PYTHON, run  # noqa: E402
from support.device import FLASH_SIZE, PORT, UNPLUGGED_WORDS, DeviceTest  # noqa: E402
from support.real_tool import (LOCKS_THE_PORT, MODULES, OTHER_CHIP, VERIFIES_TWICE,  # noqa: E402, F401
                               home_with_the_tool, installed_version, load_tests, of_the_tool)

IMAGE = b"\0" + random.Random(20).randbytes(1024 * 1024 + 99)
IMAGE_OF_ANOTHER_CHIP = b"\xe9" + bytes(50000)  # a header without segments, whose chip id is 0
UNTOUCHED = bytes(FLASH_SIZE)
CONNECTED = ["opened", "download mode", "sync", "stub uploaded", "baud 921600"]
BOOT_LOG = b"rst:0x15 (USB_UART_CHIP_RESET),boot:0x8 (SPI_FAST_FLASH_BOOT)\r\n"
PERCENTAGES = (0, 1, 50, 99)


class ToolTest(DeviceTest):
    def setUp(self):
        super().setUp()
        # The tool's seven attempts to connect differ only in the time that they take.
        self.configure("connect_attempts = 1")
        self.surroundings = {"cwd": self.folder, "stderr": subprocess.STDOUT, "env": os.environ | {
            "HOME": str(home_with_the_tool()), "PYTHONDONTWRITEBYTECODE": "1", "LC_ALL": "C"}}

    def configure(self, *settings):
        (self.folder / "esptool.cfg").write_text("\n".join(("[esptool]", *settings)))

    @staticmethod
    def esptool(*arguments):
        return [PYTHON, home_with_the_tool() / TOOL, "--chip", "esp32s3", "--port", PORT, "--baud", "921600",
                *arguments]

    def job(self, image=IMAGE):
        path = self.folder / "image.bin"
        path.write_bytes(image)
        return self.esptool("--before", "default_reset", "--after", "hard_reset", "write_flash", "--erase-all",
                            "--flash_mode", "dio", "--flash_freq", "80m", "--flash_size", "8MB", "--verify", "0x0",
                            path)

    def flash(self, image=IMAGE):
        return run(*self.job(image), **self.surroundings)


class Faults(ToolTest):
    def rows(self):
        """A fault, the tool's status, words of its output, and the flash afterwards."""
        noise = "Possible serial noise or corruption."
        yield "never-answers", 2, "Failed to connect to ESP32-S3: No serial data received.", UNTOUCHED
        yield "garbage", 2, f"Failed to connect to ESP32-S3: Invalid head of packet (0x49): {noise}", UNTOUCHED
        yield "other-chip", 2, of_the_tool(OTHER_CHIP), UNTOUCHED
        yield "unplugged-erasing", 1, UNPLUGGED_WORDS, UNTOUCHED
        for percent in PERCENTAGES:
            silent = "The chip stopped responding." if percent else f"Serial data stream stopped: {noise}"
            written = IMAGE[:-(-len(IMAGE) * percent // 100)]
            left = written.ljust(FLASH_SIZE, b"\xff")
            wrong = bytearray(IMAGE.ljust(FLASH_SIZE, b"\xff"))
            wrong[len(written)] ^= 1
            yield f"unplugged@{percent}", 1, UNPLUGGED_WORDS, left
            yield f"stops-answering@{percent}", 2, f"A fatal error occurred: {silent}", left
            yield f"bit-error@{percent}", 2, "MD5 of file does not match data in flash!", bytes(wrong)

    # fault: the device never answers, is not in its boot mode, or is another chip; during the erase, or at 0, 1, 50 or
    #     99 % of the write, it is unplugged, stops answering or stores a wrong bit; the port is missing, denied, busy or
    #     not a serial port; the tool lacks a module; the image is for another chip
    # seen: "No serial data received.", "Wrong --chip argument?", "A serial exception error occurred"
    def test_every_one_ends_the_job_with_the_words_of_the_help_page(self):
        outputs = dict(self.outputs_without_a_device())
        for fault, status, words, left in self.rows():
            with self.subTest(fault), device.SimulatedDevice(self.folder, "--fault", fault) as plugged_in:
                result = self.flash()
                self.assertEqual(result.returncode, status, result.stdout)
                self.assertIn(words, result.stdout)
                self.assertNotIn("Hash of data verified.", result.stdout)
                plugged_in.wait_for("closed")
                self.assertEqual([event for event in plugged_in.event_lines() if event.startswith("fault")],
                                 [f"fault {fault}"])
                self.assertTrue(plugged_in.dump.read_bytes() == left, "the flash that is left")
                if fault != "unplugged-erasing":  # the page shows the words of a write
                    outputs[fault] = result.stdout
        outputs["nothing wrong"] = self.output_of_a_right_job()
        outputs["image of another chip"] = self.flash(IMAGE_OF_ANOTHER_CHIP).stdout
        self.assert_page_shows(outputs)

    # fault: the flashing tool is version 5
    # seen: "No such option: --verify"
    def test_a_tool_of_version_5_refuses_the_job_before_the_port_is_touched(self):
        plugged_in = self.device()
        result = self.flash()
        self.assertEqual(result.returncode, 2, result.stdout)
        self.assertIn("No such option: --verify", result.stdout)
        self.assertEqual(plugged_in.event_lines(), [])
        self.assert_page_shows(dict(self.outputs_without_modules(), flash=result.stdout))

    def output_of_a_right_job(self):
        plugged_in = self.device()
        result = self.flash()
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assertTrue(result.stdout.endswith("Hard resetting via RTS pin...\n"), result.stdout)
        plugged_in.wait_for("closed")
        self.assertTrue(plugged_in.holds(IMAGE), "flash != image")
        events = plugged_in.event_lines()
        digests = [event for event in events if event.startswith("md5 ")]
        self.assertEqual(len(digests), 2 if of_the_tool(VERIFIES_TWICE) else 1)
        self.assertEqual(events, CONNECTED + ["erase", f"write begin {len(IMAGE)}"]
                         + [f"write {percent}%" for percent in range(10, 101, 10)] + digests + ["reset", "closed"])
        return result.stdout

    def assert_page_shows(self, outputs):
        """The blocks that the page marks as seen with this version match these outputs."""
        seen = [block for block in help_page.blocks() if block.is_printed_by(installed_version())]
        for block in seen:
            with self.subTest("no case prints what the page marks as seen", wanted=block.lines):
                self.assertTrue(any(block.is_in(output) for output in outputs.values()))
        for case, output in outputs.items():
            with self.subTest("the page shows nothing of this case", case=case):
                self.assertTrue(any(block.is_in(output) for block in seen), output)

    def outputs_without_modules(self):
        """A Python without the system's modules, except one other module that the tool needs."""
        for module in of_the_tool(MODULES):
            other = "intelhex" if module == "serial" else "serial"
            modules = self.folder / f"without-{module}"
            modules.mkdir()
            found = run(PYTHON, "-c", f"import {other}; print({other}.__path__[0])").stdout.strip()
            (modules / other).symlink_to(found)
            surroundings = self.surroundings | {"env": self.surroundings["env"] | {"PYTHONPATH": str(modules)}}
            yield f"no {module}", run(PYTHON, "-S", home_with_the_tool() / TOOL, "version", **surroundings).stdout

    def outputs_without_a_device(self):
        yield from self.outputs_without_modules()
        yield "no such port", self.flash().stdout
        os.symlink("null", PORT)
        yield "port of another kind", self.flash().stdout
        os.unlink(PORT)
        # Root may open everything, even a root only in its own namespace.
        few = ["setpriv", "--bounding-set", "-all", "--inh-caps", "-all"] if os.geteuid() == 0 else []
        cases = [("port denied", lambda slave: os.fchmod(slave, 0)),
                 ("port busy", lambda slave: fcntl.ioctl(slave, termios.TIOCEXCL))]
        if of_the_tool(LOCKS_THE_PORT):
            cases.append(("port locked", lambda slave: fcntl.flock(slave, fcntl.LOCK_EX)))
        for case, spoil in cases:
            with self.terminal() as (_, slave):
                spoil(slave)
                yield case, run(*few, *self.job(), **self.surroundings).stdout
        yield "firmware that runs", self.output_with_running_firmware()

    @staticmethod
    @contextlib.contextmanager
    def terminal():
        """A port without a device."""
        master, slave = os.openpty()
        tty.setraw(slave)
        os.symlink(os.ttyname(slave), PORT)
        yield master, slave
        os.unlink(PORT)
        os.close(master)
        os.close(slave)

    def output_with_running_firmware(self):
        """A device that answers everything with its boot log."""
        # The tool looks for the log only once, after this delay.
        self.configure("connect_attempts = 1", "reset_delay = 1")
        with self.terminal() as (master, _), open(self.folder / "output", "w+", encoding="utf-8") as output:
            host = subprocess.Popen(list(map(str, self.job())), stdout=output, **self.surroundings)
            while host.poll() is None:
                if select.select([master], [], [], 0.05)[0]:
                    os.read(master, 4096)
                    os.write(master, BOOT_LOG)
            self.configure("connect_attempts = 1")
            output.seek(0)
            return output.read()


if __name__ == "__main__":
    device.main()
