#!/usr/bin/python3
"""device-report with a stand-in for the flashing tool, and with the real one against the simulated device."""

import ast
import json
import os
import random
import re
import shutil
import signal
import stat
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support import device  # noqa: E402
from support.built import BUILD, BUNDLE, MANIFEST, ROOT, SAMPLE_IMAGE, TOOL  # noqa: E402
from support.child import PYTHON, run  # noqa: E402
from support.device import FLASH_SIZE, PORT, DeviceTest  # noqa: E402
from support.real_tool import home_with_the_tool, load_tests  # noqa: E402, F401
from support.terminal import Terminal  # noqa: E402
from support.waiting import wait_until  # noqa: E402

TOOLS = ROOT / "tools"
sys.path.insert(0, str(TOOLS))
from device_report import difference, privacy, report  # noqa: E402
from device_report.flasher import Flasher  # noqa: E402

CONTENT = random.Random(5).randbytes(FLASH_SIZE)

AGAIN = "Type stop to end here: "
NO_BACKUP = "There is no backup.\n"
NOTHING_WRITTEN = "Nothing was written to the device."
NOT_THE_SAME = "THE DEVICE DOES NOT HOLD WHAT IT HELD BEFORE."
NOT_COMPARED = "The backup was put back, but not compared yet."
THE_SAME = "The device holds what it held before."
STEPS = [  # the tool's command, what is asked of it, and the state of the device while that runs
    ("flash_id 1", "ask the chip", NOTHING_WRITTEN),
    ("read_mem 1", "ask for the kind of port", NOTHING_WRITTEN),
    ("read_flash 1", "read the whole flash, time 1 of 2", NOTHING_WRITTEN),
    ("read_flash 2", "read the whole flash, time 2 of 2", NOTHING_WRITTEN),
    ("write_flash 1", "flash the release as the application does", NOT_THE_SAME),
    ("read_flash 3", "read the flash back", NOT_THE_SAME),
    ("write_flash 2", "put the backup back", NOT_THE_SAME),
    ("read_flash 4", "read the restored flash", NOT_COMPARED),
]
BEFORE_THE_BACKUP, AFTER_THE_BACKUP = STEPS[:4], STEPS[4:]


class ReportTest(DeviceTest):
    """Runs device-report in a terminal, with its output in a folder of the test's."""

    def setUp(self):
        super().setUp()
        self.put_output_in(self.folder)

    def put_output_in(self, folder):
        self.output = folder / "out put"  # a blank, so that the command to paste has to be quoted
        self.backup = self.output / "backup.bin"

    def command(self, *arguments):
        return [TOOLS / "device-report", "--build", BUILD, "--bundle", BUNDLE, "--output", self.output, *arguments]

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


class StandInTest(ReportTest):
    def setUp(self):
        super().setUp()
        self.home, self.standin = self.folder / "home", self.folder / "standin"
        self.tool, self.flash = self.home / TOOL, self.standin / "flash"
        self.tool.parent.mkdir(parents=True)
        shutil.copy(Path(__file__).with_name("standin_esptool.py"), self.tool)
        self.standin.mkdir()
        self.flash.write_bytes(CONTENT)
        self.plan({})
        self.environment = os.environ | {"HOME": str(self.home), "STANDIN": str(self.standin), "USER": "jane"}
        os.symlink("null", PORT)
        self.addCleanup(os.unlink, PORT)

    def plan(self, actions):
        """For the next run."""
        shutil.rmtree(self.output, ignore_errors=True)
        (self.standin / "plan.json").write_text(json.dumps(actions))
        (self.standin / "calls").write_text("")

    def calls(self):
        return [json.loads(line) for line in (self.standin / "calls").read_text().splitlines()]

    def assert_restored(self):
        self.assertTrue(self.flash.read_bytes() == CONTENT, "the device does not hold what it held")

    def assert_unwritten(self):
        self.assert_restored()
        self.assertFalse([call for call in self.calls() if "write_flash" in call])

    def assert_says_how_to_restore(self, said):
        self.assertIn(f"The backup is {self.backup}. This command puts it back:", said)
        self.assertTrue(self.backup.read_bytes() == CONTENT)
        self.paste(re.findall(rf"^{PYTHON} .* write_flash .*$", said, re.MULTILINE)[-1])

    def paste(self, command):
        """Into a shell."""
        result = run("bash", "-c", command, env=self.environment)
        self.assertEqual(result.returncode, 0, result.stdout)
        self.assert_restored()

    def assert_ends(self, status, *words):
        terminal = self.start()
        self.assertEqual(terminal.status(), status, terminal.text)
        for text in words:
            self.assertIn(text, terminal.text)
        return terminal.text


class WholeRun(StandInTest):
    def test_leaves_the_device_as_it_was_with_the_backup_the_command_and_the_report(self):
        self.plan({"flash_id 1": "say usb-unit_F4:12:FA:5E:01:0B-if00 F4-12-FA-5E-01-0B serial=F412fA5E010B "
                                 f"f412fa5e010b {self.home}/x jane janet"})
        said = self.assert_ends(0, THE_SAME, f"The backup is {self.backup}. This command puts it back:")
        self.assert_restored()
        self.assertEqual(self.files(), ["backup.bin", "report.txt", "restore-command.txt"])
        self.assertEqual([stat.S_IMODE(path.stat().st_mode) for path in (self.backup, self.output)], [0o400, 0o700])
        self.assertIn((self.output / "restore-command.txt").read_text().strip(), said)
        self.assert_flashed_with_the_applications_arguments(self.calls())
        self.assert_report_is_whole_and_impersonal(self.report())

    def assert_flashed_with_the_applications_arguments(self, calls):
        manifest = BUNDLE / MANIFEST
        image = manifest.with_name(json.loads(manifest.read_text())["binary"]["path"])
        self.assertEqual(calls[4], ["--chip", "esp32s3", "--port", str(PORT), "--baud", "921600", "--before",
                                    "default_reset", "--after", "hard_reset", "write_flash", "--erase-all",
                                    "--flash_mode", "dio", "--flash_freq", "80m", "--flash_size", "8MB", "--verify",
                                    "0x0", str(image)])
        self.assertEqual(calls[6][10:], ["write_flash", "--flash_mode", "keep", "--flash_freq", "keep", "--flash_size",
                                         "keep", "0x0", str(self.backup)])
        # No firmware may run before a read.
        self.assertEqual([call[9] for call in calls],
                         ["no_reset"] * 4 + ["hard_reset"] + ["no_reset"] * 2 + ["hard_reset"])

    def assert_report_is_whole_and_impersonal(self, text):
        for line in [r"result: everything was flashed, read back, compared and put back",
                     r"chip +ESP32-S3 \(QFN56\) \(revision v0\.2\)", r"kind of port +USB-Serial/JTAG, the chip's own",
                     rf"port +{PORT}", r"flash size +8MB", r"usb +not told", r"python +Python 3\.\d+\.\d+",
                     r"esptool +4\.7\.0", r"pyserial +[\d.b]+", r"system +\S.*", r"release +Sample, not firmware 0.*",
                     r"sha256 +[0-9a-f]{64}", r"the two reads +equal, 8388608 bytes",
                     r"the flash and the image +equal, 8388608 bytes",
                     r"the restored flash and the backup +equal, 8388608 bytes",
                     r"8388608 \(100 %\)", rf"Starting verified full-image flash on {PORT}…"]:
            self.assertRegex(text, f"(?m)^{line}$")
        for _, title, _ in STEPS:
            self.assertRegex(text, rf"(?m)^ *\d+\.\d s  {title}: done$")
            self.assertEqual(text.count(f"\n==> {title}\n"), 1)
        self.assertNotIn("\b", text)
        self.assertNotRegex(text, r"(?i)f4.?12.?fa.?5e.?01.?0b")
        self.assertIn("MAC: xx:xx:xx:xx:xx:xx\n", text)
        self.assertIn("usb-unit_xx:xx:xx:xx:xx:xx-if00 xx:xx:xx:xx:xx:xx serial=xxxxxxxxxxxx xxxxxxxxxxxx ~/x "
                      "USER janet\n", text)
        self.assertNotIn(str(self.home), text)

    # fault: the flashed device does not hold the image, or does not hold the backup after it was put back
    # seen: "DIFFERENT in 1 place, of which 1 cannot be explained:", "the restored flash differs from the backup"
    def test_says_how_the_flash_differs_and_puts_the_backup_back_all_the_same(self):
        digest = difference.loader_digest(SAMPLE_IMAGE.read_bytes())
        header = " ".join(map(str, [2, 3, *range(digest.start, digest.end)]))
        for call, places, status, words in (
                ("write_flash 1", header, 0, [
                    "the flash and the image: equal but for what is explained: the tool rewrote the loader's header "
                    "(esptool does so from 4.8 on, when bytes 2 and 3 of the image are not 02 3f)\n"
                    "  0x000002 to 0x000003, 2 bytes, now fd c0: flash mode, size and frequency in the loader's "
                    "header\n"
                    f"  0x{digest.start:06x} to 0x{digest.end - 1:06x}, 32 bytes: the digest of the loader\n"]),
                ("write_flash 1", "0x12345", 1, [
                    "DIFFERENT in 1 place, of which 1 cannot be explained:\n  0x012345 to 0x012345, 1 byte, now ",
                    "the flashed device did not hold the image; the backup was put back", THE_SAME]),
                ("write_flash 2", "0x7fffff", 1, [
                    "  0x7fffff to 0x7fffff, 1 byte, now ",
                    "device-report: the restored flash differs from the backup\n" + NOT_THE_SAME])):
            with self.subTest(places):
                self.plan({call: f"flip {places}"})
                said = self.assert_ends(status, *words)
                self.assertEqual(self.flash.read_bytes() == CONTENT, call == "write_flash 1")
                self.assert_says_how_to_restore(said)


class Question(StandInTest):
    def test_is_asked_before_the_device_is_touched_and_taken_as_no_by_anything_but_yes(self):
        for answer, status in (("no\n", 1), ("\n", 1), ("yesterday\n", 1), ("\x04", 1), ("\x03", 128 + signal.SIGINT)):
            with self.subTest(answer):
                terminal = self.start(answer)
                self.assertEqual(terminal.status(), status)
                self.assertTrue(terminal.text.endswith("Nothing was done.\n"), terminal.text)
                for words in (str(PORT), str(self.output), "Sample, not firmware 0.0.0-sample", "puts the backup back"):
                    self.assertIn(words, terminal.text)
                self.assertEqual((self.calls(), self.output.exists()), ([], False))


class Refusal(StandInTest):
    def assert_refused(self, line, *arguments, status=1):
        with self.subTest(line):
            result = run(*self.command(*arguments), env=self.environment)
            self.assertEqual((result.returncode, result.stdout + result.stderr), (status, f"{line}\n"))
            self.assertEqual(self.calls(), [])

    # fault: the arguments are wrong, the port is missing or none of a Cardputer, there is no terminal, program or place
    #     to write, the release in the bundle is damaged, or a backup of an earlier run is in the folder
    # seen: "The embedded flash manifest is missing.", "device-report: … is there already, and no older backup is ever
    #     touched"
    def test_is_one_line_before_the_device_is_touched(self):
        usage = "usage: device-report [--build FOLDER] [--bundle APP] [--output FOLDER] PORT"
        for arguments in ((), (PORT, PORT), ("--surprise", PORT), ("--output",)):
            self.assert_refused(usage, *arguments, status=2)
        for port in ("/dev/null", "cu.usbmodem101"):
            self.assert_refused(f"device-report: {port} is not the name of a Cardputer's port", port)
        self.assert_refused("device-report: there is no /dev/cu.usbmodem7", "/dev/cu.usbmodem7")
        self.assert_refused("device-report: run it in a terminal: it asks before it begins", PORT)
        self.assert_refused(f"device-report: {self.folder}/tools/flash-release is missing; build it: cmake --build "
                            f"{self.folder} --target flash-release", "--build", self.folder, PORT)
        self.assert_refused("device-report: The embedded flash manifest is missing.", "--bundle", self.folder, PORT)
        self.assert_refused("device-report: cannot write in /nowhere/at", "--output", "/nowhere/at/all", PORT)
        self.assertFalse(self.output.exists())
        self.output.mkdir()
        self.backup.write_text("older")
        self.assert_refused(f"device-report: {self.output} is there already, and no older backup is ever touched",
                            PORT)
        self.assertEqual((self.backup.read_text(), self.files()), ("older", ["backup.bin"]))

    # fault: the flashing tool is a version 5, or does not start
    # seen: "the flashing tool is needed in a version 4.x, not …"
    def test_of_another_tool_comes_before_the_device_is_touched(self):
        for program, words in (("print('5.1.0')", "5.1.0"), ("raise SystemExit(1)", "one that does not start")):
            self.tool.write_text(program)
            self.assert_refused(f"device-report: the flashing tool is needed in a version 4.x, not {words}", PORT)

    # fault: there is not enough room for the backup
    # seen: "device-report: there is not enough room in …: 17 MiB are needed"
    def test_of_a_disk_without_room_for_the_backup_leaves_nothing(self):
        small = self.folder / "small"
        small.mkdir()
        if run("mount", "-t", "tmpfs", "-o", "size=12m", "small", small).returncode != 0:
            self.skipTest("no file system of a given size can be made here")
        self.addCleanup(run, "umount", small)
        self.put_output_in(small)
        self.assert_refused(f"device-report: there is not enough room in {small}: 17 MiB are needed", PORT)
        self.assertEqual(os.listdir(small), [])


class ToolFails(StandInTest):
    # fault: the tool fails before the backup is complete, the two reads of the flash differ, a read gives fewer bytes
    #     than the flash has, or the chip has another flash
    # seen: "could not …: A fatal error occurred: as planned", "the two reads of the flash differ, so there is no backup
    #     to rely on", "8388607 bytes came instead of 8388608", "the flash has 4MB, not the 8MB of a Cardputer ADV",
    #     "Nothing was written to the device."
    def test_before_the_backup_is_complete(self):
        rows = [(call, "fail", f"could not {title}: A fatal error occurred: as planned")
                for call, title, _ in BEFORE_THE_BACKUP]
        rows += [("read_flash 2", "flip 0x400000",
                  "the two reads of the flash differ, so there is no backup to rely on"),
                 ("read_flash 1", "short",
                  "could not read the whole flash, time 1 of 2: 8388607 bytes came instead of 8388608"),
                 ("flash_id 1", "small", "the flash has 4MB, not the 8MB of a Cardputer ADV")]
        for call, action, sentence in rows:
            with self.subTest(sentence):
                self.plan({call: action})
                self.assert_ends(1, f"device-report: {sentence}\n{NOTHING_WRITTEN}\n{NO_BACKUP}")
                self.assertEqual(self.files(), ["report.txt"])
                self.assert_unwritten()
                self.assertEqual(": failed with status 2\n" in self.report(), action == "fail")

    # fault: the tool fails in a step after the backup was made, and the user gives up
    # seen: "Type stop to end here:"
    def test_after_the_backup_and_the_user_gives_up(self):
        rows = [(step, "stop\n", 1, "could not") for step in AFTER_THE_BACKUP]
        rows.append((AFTER_THE_BACKUP[0], "\x03", 128 + signal.SIGINT, "interrupted by SIGINT"))
        for (call, title, state), answer, status, words in rows:
            with self.subTest(title, status=status):
                self.plan({call: "fail"})
                terminal = self.start()
                terminal.wait_for(f"\ncould not {title}: ")
                terminal.wait_for(f"The backup is safe: {self.backup}\n")
                terminal.wait_for(AGAIN)
                terminal.type(answer)
                self.assertEqual(terminal.status(), status)
                self.assertIn(f"\ndevice-report: {words} ", terminal.text)
                self.assertIn(f"\n{state}\n", terminal.text)
                self.assert_says_how_to_restore(terminal.text)


class Stopped(StandInTest):
    WAYS = {signal.SIGINT: lambda terminal: terminal.type("\x03"),
            signal.SIGTERM: lambda terminal: terminal.process.terminate(),
            signal.SIGHUP: lambda terminal: terminal.hang_up()}

    def stop(self, number, step, action="block"):
        call, title, state = step
        self.plan({call: action})
        terminal = self.start()
        # Nothing may fill up the terminal meanwhile, so it is read until the step's title.
        terminal.wait_for(f"==> {title}\n")
        blocked = self.standin / "blocked"
        tool = int(wait_until(lambda: blocked.exists() and blocked.read_text(), "a blocked tool"))
        blocked.unlink()
        self.WAYS[number](terminal)
        self.assertEqual(terminal.status(), 128 + number, terminal.text)
        # It may wait for whoever reaps orphans.
        self.assertIn(run("ps", "-o", "state=", "-p", tool).stdout.strip(), ("", "Z"), "the tool still runs")
        said = self.report() if number == signal.SIGHUP else terminal.text
        self.assertIn(f"interrupted by {number.name} (step: {title})\n", said)
        self.assertIn(f"{state}\n", said)
        self.assertEqual([name for name in self.files() if name.endswith(".part")], [])
        if step in AFTER_THE_BACKUP:
            if number != signal.SIGHUP:
                self.assert_says_how_to_restore(said)
            self.paste((self.output / "restore-command.txt").read_text())
        else:
            self.assertIn(NO_BACKUP, said)
            self.assertEqual(self.files(), ["report.txt"])
            self.assert_unwritten()

    # fault: the user presses Ctrl+C in any step, the terminal's window is closed, or the script is told to end
    # seen: "interrupted by …"
    def test_ends_the_tool_and_says_what_the_device_holds(self):
        for number, steps in ((signal.SIGINT, STEPS), (signal.SIGTERM, STEPS[2:5:2]), (signal.SIGHUP, STEPS[2:5:2])):
            for step in steps:
                with self.subTest(step[1], way=number.name):
                    self.stop(number, step)

    # fault: the tool goes on although it is told to end
    # seen: "interrupted by …"
    def test_ends_a_tool_that_does_not_want_to_end(self):
        self.stop(signal.SIGINT, STEPS[4], "deaf")


class Pure(unittest.TestCase):
    """What needs no terminal and no tool."""

    def test_difference_is_explained_in_the_releases_data_but_not_in_its_program_or_the_backup(self):
        image = SAMPLE_IMAGE.read_bytes()

        def changed(*places):
            found = bytearray(image)
            for place in places:
                found[place] ^= 0xFF
            return bytes(found)

        compared = difference.compare_with_release(image, changed(0x9000, 0x9001, 0x410000))
        self.assertEqual((compared.is_equal, compared.is_explained), (False, True))
        self.assertEqual(compared.lines, [
            "equal but for what is explained: the release, which the tool starts after the flash, wrote into its data",
            '  0x009000 to 0x009001, 2 bytes, now 00 00: the data partition "nvs"',
            f'  0x410000 to 0x410000, 1 byte, now {image[0x410000] ^ 255:02x}: the data partition "assets"'])
        self.assertFalse(difference.compare_with_release(image, changed(0x9000, 0x10000)).is_explained)
        self.assertFalse(difference.compare(image, changed(2)).is_explained)
        compared = difference.compare(image, changed(*range(0, 4000, 100)))
        self.assertEqual(compared.lines[0], "DIFFERENT in 40 places:")
        self.assertEqual((len(compared.lines), compared.lines[-1]), (22, "  and 20 more"))
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

    def test_address_in_a_ports_name_is_hidden_even_when_the_chip_did_not_tell_it(self):
        self.assertEqual(privacy.Mask().masked("/dev/cu.usbmodemF412FA5E010B1 /dev/cu.usbmodem1101 4.7.0 0x3fcef14c"),
                         "/dev/cu.usbmodemxxxxxxxxxxxx1 /dev/cu.usbmodem1101 4.7.0 0x3fcef14c")

    def test_script_is_understood_by_the_interpreter_of_macos(self):
        for file in [TOOLS / "device-report", TOOLS / "whole_file.py", *(TOOLS / "device_report").glob("*.py")]:
            ast.parse(file.read_text(), feature_version=(3, 9))


class WithTheRealTool(ReportTest):
    def setUp(self):
        super().setUp()
        self.environment = os.environ | {"HOME": str(home_with_the_tool()), "PYTHONDONTWRITEBYTECODE": "1"}

    # fault: the device is unplugged during each of the four steps after the backup, and plugged in again
    # seen: "Type stop to end here:"
    def test_survives_being_unplugged_at_every_step_after_the_backup(self):
        held = self.folder / "held"
        held.write_bytes(CONTENT)
        plugged_in = self.device("--initial-flash", held, "--fault", "unplugged@30")
        terminal = self.start()
        for fault in (["--fault", "unplugged-reading@5"], ["--fault", "unplugged@60"],
                      ["--fault", "unplugged-reading@1"], []):
            terminal.wait_for(f"The backup is safe: {self.backup}\n")
            terminal.wait_for(AGAIN)
            plugged_in.process.wait()
            plugged_in.dump.rename(held)
            plugged_in = self.device("--initial-flash", held, *fault)
            terminal.type("\n")
        self.assertEqual(terminal.status(), 0, terminal.text)
        self.assertIn(THE_SAME, terminal.text)
        plugged_in.wait_for("closed")
        self.assertTrue(plugged_in.dump.read_bytes() == CONTENT == self.backup.read_bytes())
        text = self.report()
        self.assertEqual(text.count("failed with status 1\n"), 4)
        self.assertNotRegex(text, r"(?i)f4.?12.?5e.?00.?01.?01")
        for line in ("MAC: xx:xx:xx:xx:xx:xx", r"chip +ESP32-S3 .*\(revision v0\.2\)",
                     "kind of port +USB-Serial/JTAG, the chip's own", "the flash and the image +equal, 8388608 bytes"):
            self.assertRegex(text, f"(?m)^{line}$")


if __name__ == "__main__":
    device.main()
