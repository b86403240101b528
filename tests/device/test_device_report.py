#!/usr/bin/python3
"""device-report: one run with the real flashing tool and the simulated device, and each failure with a stand-in."""

import ast
import io
import os
import re
import stat
import sys
import unittest
from pathlib import Path
from unittest import mock

import pexpect

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support import device  # noqa: E402
from support.built import BUILD, BUNDLE, ROOT, SAMPLE_IMAGE, TOOL  # noqa: E402
from support.child import run  # noqa: E402
from support.device import FLASH_SIZE, PORT, DeviceTest  # noqa: E402
from support.real_tool import home_with_the_tool, load_tests  # noqa: E402, F401
from support.waiting import wait_until  # noqa: E402

TOOLS = ROOT / "tools"
sys.path.insert(0, str(TOOLS))
from device_report import difference, privacy  # noqa: E402

ONLY_WHEN_BROKEN = 240  # seconds without output; the real tool needs half a minute for a read on a busy machine

CONTENT = (bytes(range(251)) * (FLASH_SIZE // 251 + 1))[:FLASH_SIZE]

AGAIN, WAITING, HANG_UP = "Type stop to end here: ", "waiting as ", "hang up"
NO_BACKUP = "There is no backup.\n"
NOTHING_WRITTEN = "Nothing was written to the device."
NOT_THE_SAME = "THE DEVICE DOES NOT HOLD WHAT IT HELD BEFORE."
THE_SAME = "The device holds what it held before."
READ, FLASH = "read the whole flash, time 1 of 2", "flash the release as the application does"
STEPS = ["ask the chip", "ask for the kind of port", READ, "read the whole flash, time 2 of 2", FLASH,
         "read the flash back", "put the backup back", "read the restored flash"]

# A tool whose device is a file next to it. Each word of a plan says what one read or write does.
STAND_IN = """
import os, pathlib, signal, sys

here, arguments = pathlib.Path(__file__).parent, sys.argv[1:]
device, plan = here / "device", here / "plan"
if arguments == ["version"]:
    sys.exit(print("4.7.0"))
if "flash_id" in arguments:
    print("Detected flash size: 8MB")
if not {"read_flash", "write_flash"} & set(arguments):
    sys.exit()
does, _, later = plan.read_text().partition(" ")
plan.write_text(later)
source, target = map(pathlib.Path, (device, arguments[-1]) if "read_flash" in arguments else (arguments[-1], device))
content = bytearray(source.read_bytes())
content[4711] ^= does != "good"
target.write_bytes(content)
if does == "fail":
    sys.exit("A fatal error occurred: this is why")
if does == "wait":
    print("waiting as", os.getpid(), flush=True)
    signal.pause()
"""


class ReportTest(DeviceTest):
    def use(self, home, output):
        self.environment = os.environ | {"PYTHONDONTWRITEBYTECODE": "1", "HOME": str(home)}
        self.output = self.folder / output
        self.backup = self.output / "backup.bin"

    def use_stand_in(self, plan="", output="out put"):
        self.use(self.folder / "home", output)
        folder = (self.folder / "home" / TOOL).parent
        folder.mkdir(parents=True, exist_ok=True)
        self.held = folder / "device"
        self.held.write_bytes(CONTENT)
        for name, text in (("esptool.py", STAND_IN), ("plan", f"{plan} good")):
            (folder / name).write_text(text)

    def command(self, *arguments):
        return [TOOLS / "device-report", "--build", BUILD, "--bundle", BUNDLE, "--output", self.output, *arguments]

    def start(self, answer="yes\n"):
        program, *arguments = map(str, self.command(PORT))
        terminal = pexpect.spawn(program, arguments, env=self.environment, cwd=str(self.folder), encoding="utf-8",
                                 timeout=ONLY_WHEN_BROKEN)
        self.addCleanup(terminal.close)
        terminal.logfile_read = self.said = io.StringIO(newline=None)
        terminal.expect_exact("Type yes to begin: ")
        terminal.send(answer)
        return terminal

    def assert_ends(self, terminal, status):
        if not terminal.ptyproc.fileobj.closed:
            terminal.expect(pexpect.EOF)
        self.assertEqual(terminal.wait(), status, self.said.getvalue())

    def report(self):
        return (self.output / "report.txt").read_text()


class WholeRun(ReportTest):
    def plug_in(self, content, *options):
        held = self.folder / "held"
        held.write_bytes(content)
        return self.device("--initial-flash", held, *options)

    def test_restores_the_device_with_the_real_tool_even_if_it_is_unplugged_once(self):
        self.use(home_with_the_tool(), "out put")
        plugged_in, terminal = self.plug_in(CONTENT, "--fault", "unplugged@30"), self.start()
        terminal.expect_exact(f"The backup is safe: {self.backup}\r\n")
        terminal.expect_exact(AGAIN)
        plugged_in.__exit__()
        plugged_in = self.plug_in(plugged_in.dump.read_bytes())
        terminal.send("\n")
        self.assert_ends(terminal, 0)
        self.assertIn(f"\n{THE_SAME}\n", self.said.getvalue())
        wait_until(lambda: plugged_in.event_lines()[-2:] == ["reset", "closed"], "the end of the tool")
        self.assertEqual(plugged_in.event_lines().count("reset"), 2, "after the flash and at the end")
        self.assertTrue(plugged_in.dump.read_bytes() == CONTENT == self.backup.read_bytes())
        self.assertEqual([stat.S_IMODE(path.stat().st_mode) for path in (self.backup, self.output)], [0o400, 0o700])
        self.assert_report_is_whole_and_impersonal(self.report())

    def assert_report_is_whole_and_impersonal(self, text):
        for line in [r"result: everything was flashed, read back, compared and put back",
                     r"chip +ESP32-S3 .*\(revision v0\.2\)", r"kind of port +USB-Serial/JTAG, the chip's own",
                     rf"port +{PORT}", r"flash size +8MB", r"usb +unknown", r"python +Python 3\.\d+\.\d+",
                     r"esptool +4\.\d+.*", r"pyserial +[\d.b]+", r"system +\S.*", r"release +Sample, not firmware 0.*",
                     r"sha256 +[0-9a-f]{64}", r"the two reads +equal, 8388608 bytes",
                     r"the flash and the image +equal, 8388608 bytes",
                     r"the restored flash and the backup +equal, 8388608 bytes", r"MAC: xx:xx:xx:xx:xx:xx",
                     r"8388608 \(100 %\)", rf"Starting verified full-image flash on {PORT}…"]:
            self.assertRegex(text, f"(?m)^{line}$")
        for title in STEPS:
            self.assertRegex(text, rf"(?m)^ *\d+\.\d s  {title}: done$")
        self.assertNotRegex(text, r"(?i)\x08|f4.?12.?5e.?00.?01.?01")
        self.assertNotIn(self.environment["HOME"], text)


class WithAStandIn(ReportTest):
    def setUp(self):
        super().setUp()
        os.symlink("null", PORT)
        self.addCleanup(os.unlink, PORT)
        self.use_stand_in()


class Failure(WithAStandIn):
    def assert_end(self, state, said):
        """`said` contains what the device holds and, once there is a backup, a command that restores it."""
        self.assertIn(f"\n{state}\n", said)
        if state == NOTHING_WRITTEN:
            self.assertIn(NO_BACKUP, said)
            self.assertEqual(os.listdir(self.output), ["report.txt"])
        else:
            self.assertEqual(sorted(os.listdir(self.output)), ["backup.bin", "report.txt", "restore-command.txt"])
            self.assertTrue(self.backup.read_bytes() == CONTENT)
            command = (self.output / "restore-command.txt").read_text()
            self.assertIn(f"The backup is {self.backup}. This command puts it back:\n\n{command}", said)
            self.assertEqual(run("bash", "-c", command, env=self.environment).returncode, 0)
        self.assertTrue(self.held.read_bytes() == CONTENT, "the device does not hold what it held")

    # fault: the device is unplugged in a step, and the user tries again or gives up; what is read differs from what was
    #     read or written before; the user presses Ctrl+C, or the terminal's window is closed
    # seen: "Type stop to end here:", "Nothing was written to the device.", "interrupted by …"
    def test_is_reported_with_what_the_device_holds(self):
        for number, (plan, reactions, status, words, state) in enumerate((
                ("fail", [], 1, f"could not {READ}: A fatal error occurred: this is why", NOTHING_WRITTEN),
                ("good wrong", [], 1, "the two reads of the flash differ, so there is no backup", NOTHING_WRITTEN),
                ("good good fail", [(AGAIN, "stop\n")], 1, f"could not {FLASH}: ", NOT_THE_SAME),
                ("good good fail good fail wrong fail good good", [(AGAIN, "\n")] * 3, 1,
                 "the flashed device did not hold the image; the backup was put back", THE_SAME),
                ("good good good good good wrong", [], 1, "the restored flash differs from the backup", NOT_THE_SAME),
                ("wait", [(WAITING, "\x03")], 130, f"interrupted by SIGINT (step: {READ})\n", NOTHING_WRITTEN),
                ("good good wait", [(WAITING, HANG_UP)], 129, f"interrupted by SIGHUP (step: {FLASH})\n",
                 NOT_THE_SAME))):
            with self.subTest(words):
                self.use_stand_in(plan, f"out put {number}")
                terminal = self.start()
                for prompt, answer in reactions:
                    terminal.expect_exact(prompt)
                    terminal.ptyproc.fileobj.close() if answer == HANG_UP else terminal.send(answer)
                self.assert_ends(terminal, status)
                self.assertIn(f"\nresult: {words}", self.report())
                if (WAITING, HANG_UP) not in reactions:
                    self.assertIn(f"\ndevice-report: {words}", self.said.getvalue())
                self.assert_end(state, self.report().replace("~", self.environment["HOME"]))
                for tool in re.findall(r"waiting as (\d+)", self.report()):
                    self.assertFalse(os.path.exists(f"/proc/{tool}"), "the tool")


class Refusal(WithAStandIn):
    def test_is_every_answer_but_yes(self):
        for answer, status in (("yesterday\n", 1), ("\x03", 130)):
            self.assert_ends(self.start(answer), status)
            self.assertRegex(self.said.getvalue(), r"Nothing was done\.\n\Z")
            for words in (str(PORT), str(self.output), "Sample, not firmware 0.0.0-sample", "puts the backup back"):
                self.assertIn(words, self.said.getvalue())
            self.assertFalse(self.output.exists())

    # fault: an argument, the release, the tool or a folder is wrong
    # seen: "The embedded flash manifest is missing.", "esptool 4.x is needed, and the installed one is …"
    def test_is_one_line_before_the_device_is_touched(self):
        older, tool = self.folder / "older", self.folder / "other" / TOOL
        for folder in (older, tool.parent):
            folder.mkdir(parents=True)
        tool.write_text("print('5.1.0')")
        other_tool = self.environment | {"HOME": str(self.folder / "other")}
        usage = "usage: device-report [--build FOLDER] [--bundle APP] [--output FOLDER] PORT"
        for line, arguments, options in (
                (usage, [], {}), (usage, ["--surprise", PORT], {}),
                ("/dev/null is not the name of a Cardputer's port", ["/dev/null"], {}),
                ("there is no /dev/cu.usbmodem7", ["/dev/cu.usbmodem7"], {}),
                ("run it in a terminal: it asks before it begins", [PORT], {}),
                (f"{older}/tools/flash-release is missing; build it: cmake --build {older} --target flash-release",
                 ["--build", older, PORT], {}),
                ("The embedded flash manifest is missing.", ["--bundle", older, PORT], {}),
                ("esptool 4.x is needed, and the installed one is 5.1.0", [PORT], {"env": other_tool}),
                ("cannot write in /nowhere/at", ["--output", "/nowhere/at/all", PORT], {}),
                (f"{older} already exists and is never overwritten; name another folder with --output",
                 ["--output", older, PORT], {})):
            with self.subTest(line):
                result = run(*self.command(*arguments), **{"env": self.environment, **options})
                expected = (2, f"{line}\n") if line == usage else (1, f"device-report: {line}\n")
                self.assertEqual((result.returncode, result.stdout + result.stderr), expected)
        self.assertEqual((os.listdir(older), self.output.exists()), ([], False))


class Pure(unittest.TestCase):
    def test_script_is_understood_by_the_interpreter_of_macos(self):
        for file in [TOOLS / "device-report", TOOLS / "whole_file.py", *(TOOLS / "device_report").glob("*.py")]:
            ast.parse(file.read_text(), feature_version=(3, 9))

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
            "equal except for explained differences: the tool rewrote the loader's header (esptool does so from 4.8 on, "
            "when bytes 2 and 3 of the image are not 02 3f); the release, which the tool starts after the flash, wrote "
            "into its data",
            "  0x000002 to 0x000003, 2 bytes, now fd c0: flash mode, size and frequency in the loader's header",
            '  0x009000 to 0x009001, 2 bytes, now 00 00: the data partition "nvs"',
            f'  0x410000 to 0x410000, 1 byte, now {image[0x410000] ^ 255:02x}: the data partition "assets"'])
        digest = difference.loader_digest(image)
        self.assertTrue(difference.compare_with_release(image, changed(digest.start, digest.end - 1)).is_explained)
        for place in (digest.end, 0x10000):
            self.assertFalse(difference.compare_with_release(image, changed(0x9000, place)).is_explained)
        self.assertFalse(difference.compare(image, changed(2)).is_explained)
        compared = difference.compare(image, changed(*range(0, 4000, 100)))
        self.assertEqual((compared.lines[0], len(compared.lines), compared.lines[-1]),
                         ("DIFFERENT in 40 places:", 22, "  and 20 more"))
        self.assertEqual(difference.differing_ranges(b"abc", b"ab"), [(2, 3)])

    def test_report_hides_addresses_in_every_spelling_and_the_user(self):
        with mock.patch.dict(os.environ, HOME="/home/jane", LOGNAME="jane"):
            self.assertEqual(
                privacy.Mask().masked("MAC: f4:12:fa:5e:01:0b usb-F4-12-FA-5E-01-0B-if00 serial=F412fA5E010B "
                                      "/dev/cu.usbmodemF412FA5E010C1 4.7.0 0x3fcef14c /home/jane/x jane janet"),
                "MAC: xx:xx:xx:xx:xx:xx usb-xx:xx:xx:xx:xx:xx-if00 serial=xxxxxxxxxxxx "
                "/dev/cu.usbmodemxxxxxxxxxxxx1 4.7.0 0x3fcef14c ~/x USER janet")


if __name__ == "__main__":
    device.main()
