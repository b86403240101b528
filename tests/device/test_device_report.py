#!/usr/bin/python3
"""device-report with the real flashing tool, against the simulated device."""

import ast
import os
import stat
import sys
import tempfile
import unittest
from pathlib import Path
from unittest import mock

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support import device  # noqa: E402
from support.built import BUILD, BUNDLE, ROOT, SAMPLE_IMAGE, TOOL  # noqa: E402
from support.child import run  # noqa: E402
from support.device import FLASH_SIZE, PORT, DeviceTest  # noqa: E402
from support.real_tool import home_with_the_tool, load_tests  # noqa: E402, F401
from support.terminal import Terminal  # noqa: E402
from support.waiting import wait_until  # noqa: E402

TOOLS = ROOT / "tools"
sys.path.insert(0, str(TOOLS))
from device_report import difference, privacy, report  # noqa: E402
from device_report.flasher import Flasher  # noqa: E402

CONTENT = (bytes(range(251)) * (FLASH_SIZE // 251 + 1))[:FLASH_SIZE]

AGAIN = "Type stop to end here: "
NO_BACKUP = "There is no backup.\n"
NOTHING_WRITTEN = "Nothing was written to the device."
NOT_THE_SAME = "THE DEVICE DOES NOT HOLD WHAT IT HELD BEFORE."
THE_SAME = "The device holds what it held before."
GIVE_UP = "give up"  # in the place of a fault
READ, FLASH = "read the whole flash, time 1 of 2", "flash the release as the application does"
STEPS = ["ask the chip", "ask for the kind of port", READ, "read the whole flash, time 2 of 2", FLASH,
         "read the flash back", "put the backup back", "read the restored flash"]


class ReportTest(DeviceTest):
    """Runs device-report in a terminal, with its output in a folder of the test's."""

    def setUp(self):
        super().setUp()
        self.put_output_in("out put")  # a blank, so that the command to paste has to be quoted
        self.environment = os.environ | {"HOME": str(home_with_the_tool()), "PYTHONDONTWRITEBYTECODE": "1"}
        self.plugged_in = None

    def put_output_in(self, name):
        self.output = self.folder / name
        self.backup = self.output / "backup.bin"

    def command(self, *arguments):
        return [TOOLS / "device-report", "--build", BUILD, "--bundle", BUNDLE, "--output", self.output, *arguments]

    def plug_in(self, content, *options):
        held = self.folder / "held"
        held.write_bytes(content)
        if self.plugged_in:
            self.plugged_in.__exit__()
        self.plugged_in = self.device("--initial-flash", held, *options)

    def plug_in_again(self, *options):
        self.plugged_in.__exit__()
        self.plug_in(self.plugged_in.dump.read_bytes(), *options)

    def start(self, answer="yes\n"):
        terminal = Terminal(self.command(PORT), env=self.environment, cwd=self.folder)
        self.addCleanup(terminal.close)
        terminal.wait_for("Type yes to begin: ")
        terminal.type(answer)
        return terminal

    def report(self):
        return (self.output / "report.txt").read_text()

    def files(self):
        return sorted(os.listdir(self.output))

    def assert_device_holds_what_it_held(self):
        events = self.plugged_in.event_lines
        wait_until(lambda: events().count("closed") == events().count("opened"), "the end of the tool")
        self.assertTrue(self.plugged_in.dump.read_bytes() == CONTENT, "the device does not hold what it held")

    def assert_end(self, state, said):
        """Said is what the device holds and, once there is a backup, a command that puts it back."""
        self.assertIn(f"\n{state}\n", said)
        if state == NOTHING_WRITTEN:
            self.assertIn(NO_BACKUP, said)
            self.assertEqual(self.files(), ["report.txt"])
            self.assert_device_holds_what_it_held()
            return
        self.assertEqual(self.files(), ["backup.bin", "report.txt", "restore-command.txt"])
        self.assertTrue(self.backup.read_bytes() == CONTENT)
        command = (self.output / "restore-command.txt").read_text()
        self.assertIn(f"The backup is {self.backup}. This command puts it back:\n\n{command}", said)
        result = run("bash", "-c", command, env=self.environment)
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assert_device_holds_what_it_held()


class WholeRun(ReportTest):
    # fault: the device is unplugged during each of the four steps after the backup, and plugged in again
    # seen: "Type stop to end here:"
    def test_leaves_the_device_as_it_was_though_it_is_unplugged_at_every_step(self):
        self.plug_in(CONTENT, "--fault", "unplugged@30")
        terminal, starts_firmware = self.start(), []
        for fault in ("unplugged-reading@5", "unplugged@60", "unplugged-reading@1", ""):
            terminal.wait_for(f"The backup is safe: {self.backup}\n")
            terminal.wait_for(AGAIN)
            starts_firmware.append("reset" in self.plugged_in.event_lines())
            self.plug_in_again("--fault", fault)
            terminal.type("\n")
        self.assertEqual(starts_firmware, [False, True, False, False], "after the flash only, and not before a read")
        self.assertEqual(terminal.status(), 0, terminal.text)
        self.assertEqual([stat.S_IMODE(path.stat().st_mode) for path in (self.backup, self.output)], [0o400, 0o700])
        self.assert_device_holds_what_it_held()
        self.assert_end(THE_SAME, terminal.text)
        self.assert_report_is_whole_and_impersonal(self.report())

    def assert_report_is_whole_and_impersonal(self, text):
        for line in [r"result: everything was flashed, read back, compared and put back",
                     r"chip +ESP32-S3 .*\(revision v0\.2\)", r"kind of port +USB-Serial/JTAG, the chip's own",
                     rf"port +{PORT}", r"flash size +8MB", r"usb +not told", r"python +Python 3\.\d+\.\d+",
                     r"esptool +4\.\d+.*", r"pyserial +[\d.b]+", r"system +\S.*", r"release +Sample, not firmware 0.*",
                     r"sha256 +[0-9a-f]{64}", r"the two reads +equal, 8388608 bytes",
                     r"the flash and the image +equal, 8388608 bytes",
                     r"the restored flash and the backup +equal, 8388608 bytes", r"MAC: xx:xx:xx:xx:xx:xx",
                     r"8388608 \(100 %\)", rf"Starting verified full-image flash on {PORT}…"]:
            self.assertRegex(text, f"(?m)^{line}$")
        for title in STEPS:
            self.assertRegex(text, rf"(?m)^ *\d+\.\d s  {title}: done$")
        self.assertEqual(text.count(": failed with status 1\n"), 4)
        self.assertNotRegex(text, r"(?i)\x08|f4.?12.?5e.?00.?01.?01")
        self.assertNotIn(self.environment["HOME"], text)


class Failure(ReportTest):
    def rows(self):
        """Faults, a new device for each; what the device holds in the end, and other words about it."""
        yield ["unplugged-reading@5"], NOTHING_WRITTEN, f"could not {READ}: "
        yield ["wrong-reading@50"], NOTHING_WRITTEN, "the two reads of the flash differ, so there is no backup"
        yield ["unplugged@30", GIVE_UP], NOT_THE_SAME, f"could not {FLASH}: "
        yield (["unplugged@30", "wrong-reading@50"], THE_SAME,
               "the flashed device did not hold the image; the backup was put back")
        yield (["unplugged@30", "unplugged-reading@5", "unplugged@60", "wrong-reading@50"], NOT_THE_SAME,
               "the restored flash differs from the backup")

    # fault: the device is unplugged before the backup is complete, or afterwards, and the user gives up; the two reads of
    #     the flash differ; the flashed device does not hold the image, or not the backup after it was put back
    # seen: "the two reads of the flash differ, so there is no backup", "the flashed device did not hold the
    #     image; the backup was put back", "the restored flash differs from the backup", "Nothing was written to the
    #     device."
    def test_is_said_with_what_the_device_holds(self):
        for number, (faults, state, words) in enumerate(self.rows()):
            with self.subTest(words):
                self.put_output_in(f"out put {number}")
                self.plug_in(CONTENT, "--fault", faults[0])
                terminal = self.start()
                for fault in faults[1:]:
                    terminal.wait_for(AGAIN)
                    self.plug_in_again("--fault", fault.replace(GIVE_UP, ""))
                    terminal.type("stop\n" if fault == GIVE_UP else "\n")
                self.assertEqual(terminal.status(), 1, terminal.text)
                self.assertIn(f"\ndevice-report: {words}", terminal.text)
                self.assert_end(state, terminal.text)


class Stop(ReportTest):
    # fault: the user presses Ctrl+C while the flash is read, or the terminal's window is closed while it is written
    # seen: "interrupted by …"
    def test_ends_the_tool_and_says_what_the_device_holds(self):
        self.plug_in(CONTENT, "--bytes-per-second", 400000)
        terminal = self.start()
        terminal.wait_for(f"==> {READ}\n")
        terminal.type("\x03")
        self.assertEqual(terminal.status(), 130, terminal.text)
        self.assertIn(f"interrupted by SIGINT (step: {READ})\n", terminal.text)
        self.assert_end(NOTHING_WRITTEN, terminal.text)

        self.put_output_in("out put 2")
        terminal = self.start()
        terminal.wait_for(f"==> {FLASH}\n")
        self.plugged_in.wait_for("write 10%")
        terminal.hang_up()
        self.assertEqual(terminal.status(), 129)
        self.assertIn(f"interrupted by SIGHUP (step: {FLASH})\n", self.report())
        self.assert_end(NOT_THE_SAME, self.report().replace("~", self.environment["HOME"]))


class Refusal(ReportTest):
    def setUp(self):
        super().setUp()
        os.symlink("null", PORT)
        self.addCleanup(os.unlink, PORT)

    def test_is_every_answer_but_yes(self):
        for answer, status in (("no\n", 1), ("yesterday\n", 1), ("\x03", 130)):
            with self.subTest(answer):
                terminal = self.start(answer)
                self.assertEqual(terminal.status(), status)
                self.assertTrue(terminal.text.endswith("Nothing was done.\n"), terminal.text)
                for words in (str(PORT), str(self.output), "Sample, not firmware 0.0.0-sample", "puts the backup back"):
                    self.assertIn(words, terminal.text)
                self.assertFalse(self.output.exists())

    # fault: the arguments are wrong, the port is missing or none of a Cardputer, there is no terminal, program or place
    #     to write, the release in the bundle is damaged, the tool is a version 5, or an earlier backup is in the folder
    # seen: "The embedded flash manifest is missing.", "the flashing tool is needed in a version 4.x, not …",
    #     "device-report: … is there already, and no older backup is ever touched"
    def test_is_one_line_before_the_device_is_touched(self):
        older, tool = self.folder / "older", self.folder / "home" / TOOL
        for folder in (older, tool.parent):
            folder.mkdir(parents=True)
        tool.write_text("print('5.1.0')")
        other_tool = self.environment | {"HOME": str(self.folder / "home")}
        usage = "usage: device-report [--build FOLDER] [--bundle APP] [--output FOLDER] PORT"
        for line, arguments, options in (
                (usage, [], {}), (usage, ["--surprise", PORT], {}),
                ("/dev/null is not the name of a Cardputer's port", ["/dev/null"], {}),
                ("there is no /dev/cu.usbmodem7", ["/dev/cu.usbmodem7"], {}),
                ("run it in a terminal: it asks before it begins", [PORT], {}),
                (f"{older}/tools/flash-release is missing; build it: cmake --build {older} --target flash-release",
                 ["--build", older, PORT], {}),
                ("The embedded flash manifest is missing.", ["--bundle", older, PORT], {}),
                ("the flashing tool is needed in a version 4.x, not 5.1.0", [PORT], {"env": other_tool}),
                ("cannot write in /nowhere/at", ["--output", "/nowhere/at/all", PORT], {}),
                (f"{older} is there already, and no older backup is ever touched", ["--output", older, PORT], {})):
            with self.subTest(line):
                result = run(*self.command(*arguments), **{"env": self.environment, **options})
                expected = (2, f"{line}\n") if line == usage else (1, f"device-report: {line}\n")
                self.assertEqual((result.returncode, result.stdout + result.stderr), expected)
        self.assertEqual((os.listdir(older), self.output.exists()), ([], False))


class Pure(unittest.TestCase):
    """What needs no terminal and no tool."""

    def test_difference_is_explained_in_the_releases_data_but_not_in_its_program_or_the_backup(self):
        image = SAMPLE_IMAGE.read_bytes()

        def changed(*places):
            found = bytearray(image)
            for place in places:
                found[place] ^= 0xFF
            return bytes(found)

        compared = difference.compare_with_release(image, changed(2, 3, 0x9000, 0x9001, 0x410000))
        self.assertEqual((compared.is_equal, compared.is_explained), (False, True))
        self.assertEqual(compared.lines, [
            "equal but for what is explained: the tool rewrote the loader's header (esptool does so from 4.8 on, when "
            "bytes 2 and 3 of the image are not 02 3f); the release, which the tool starts after the flash, wrote into "
            "its data",
            "  0x000002 to 0x000003, 2 bytes, now fd c0: flash mode, size and frequency in the loader's header",
            '  0x009000 to 0x009001, 2 bytes, now 00 00: the data partition "nvs"',
            f'  0x410000 to 0x410000, 1 byte, now {image[0x410000] ^ 255:02x}: the data partition "assets"'])
        digest = difference.loader_digest(image)
        self.assertTrue(difference.compare_with_release(image, changed(digest.start, digest.end - 1)).is_explained)
        self.assertFalse(difference.compare_with_release(image, changed(digest.end)).is_explained)
        self.assertFalse(difference.compare_with_release(image, changed(0x9000, 0x10000)).is_explained)
        self.assertFalse(difference.compare(image, changed(2)).is_explained)
        compared = difference.compare(image, changed(*range(0, 4000, 100)))
        self.assertEqual((compared.lines[0], len(compared.lines), compared.lines[-1]),
                         ("DIFFERENT in 40 places:", 22, "  and 20 more"))
        self.assertEqual(difference.differing_ranges(b"abc", b"ab"), [(2, 3)])

    def test_rest_of_the_flash_is_expected_erased_or_as_it_was(self):
        with tempfile.NamedTemporaryFile() as image:
            image.write(b"\xe9" * 5000)
            image.flush()
            for erase, rest in (("yes", b"\xff" * (FLASH_SIZE - 8192)), ("no", CONTENT[8192:])):
                flasher = Flasher(Path(), Path(), str(PORT), {"image": image.name, "erase": erase})
                self.assertTrue(flasher.expected_after_flash(CONTENT) == b"\xe9" * 5000 + b"\xff" * 3192 + rest)

    def test_usb_device_is_told_without_its_serial_number(self):
        listing = ("/dev/ttyS0          \n    desc: n/a\n    hwid: n/a\n"
                   "/dev/ttyACM0        \n    desc: USB JTAG/serial debug unit\n"
                   "    hwid: USB VID:PID=303A:1001 SER=F4:12:FA:5E:01:0B LOCATION=1-2:1.0\n")
        self.assertEqual(report.usb_facts(listing, "/dev/ttyACM0"), "303A:1001, USB JTAG/serial debug unit")
        self.assertIsNone(report.usb_facts(listing, "/dev/ttyS0"))

    def test_report_hides_addresses_in_every_spelling_and_the_user(self):
        with mock.patch.dict(os.environ, HOME="/home/jane", LOGNAME="jane"):
            self.assertEqual(
                privacy.Mask().masked("MAC: f4:12:fa:5e:01:0b usb-F4-12-FA-5E-01-0B-if00 serial=F412fA5E010B "
                                      "/dev/cu.usbmodemF412FA5E010C1 4.7.0 0x3fcef14c /home/jane/x jane janet"),
                "MAC: xx:xx:xx:xx:xx:xx usb-xx:xx:xx:xx:xx:xx-if00 serial=xxxxxxxxxxxx "
                "/dev/cu.usbmodemxxxxxxxxxxxx1 4.7.0 0x3fcef14c ~/x USER janet")

    def test_script_is_understood_by_the_interpreter_of_macos(self):
        for file in [TOOLS / "device-report", TOOLS / "whole_file.py", *(TOOLS / "device_report").glob("*.py")]:
            ast.parse(file.read_text(), feature_version=(3, 9))


if __name__ == "__main__":
    device.main()
