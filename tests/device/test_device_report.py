#!/usr/bin/python3
"""device-report with a stand-in for the flashing tool, and with the real one against the simulated device."""

import ast
import hashlib
import json
import os
import random
import re
import shutil
import signal
import stat
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import device_case
from device_case import FLASH_SIZE, HERE, PORT, PYTHON, DeviceTest, run
from esptool_versions import load_tests  # noqa: F401
from terminal import ONLY_WHEN_BROKEN, Terminal

ROOT = HERE.parents[1]
TOOLS = ROOT / "tools"
BUILD = Path(os.environ["QELMO_BUILD"])
BUNDLE = Path(os.environ["QELMO_BUNDLE"])
IMAGE = BUILD / "sample/sample-firmware.bin"
TOOL = ".platformio/packages/tool-esptoolpy/esptool.py"

sys.path.insert(0, str(TOOLS))
from device_report import difference, privacy, report  # noqa: E402
from device_report.flasher import Flasher  # noqa: E402

noise = random.Random(5)
CONTENT = noise.randbytes(FLASH_SIZE)

AGAIN = "Type stop to end here: "
NOTHING_WRITTEN = "Nothing was written to the device."
STILL_THE_SAME = "Nothing was written to the device; it holds what the backup holds."
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
AFTER_THE_BACKUP = STEPS[4:]


class ReportTest(DeviceTest):
    """Runs device-report in a terminal, with its output in a folder of the test's."""

    def setUp(self):
        super().setUp()
        self.output = self.folder / "out put"  # a blank, so that the command to paste has to be quoted
        self.backup = self.output / "backup.bin"

    def environment(self):
        raise NotImplementedError

    def start(self, *options, answer="yes\n"):
        terminal = Terminal([TOOLS / "device-report", "--build", BUILD, "--bundle", BUNDLE, "--output", self.output,
                             *options, PORT], env=self.environment(), cwd=self.folder)
        self.addCleanup(terminal.close)
        terminal.wait_for("Type yes to begin: ")
        terminal.type(answer)
        return terminal

    def report(self):
        return (self.output / "report.txt").read_text()

    def files(self):
        return sorted(os.listdir(self.output))

    def restore_by_hand(self, text):
        """Pastes the command that was said last into a shell."""
        command = re.findall(rf"^{PYTHON} .* write_flash .*$", text, re.MULTILINE)[-1]
        result = subprocess.run(["bash", "-c", command], env=self.environment(), stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=ONLY_WHEN_BROKEN)
        self.assertEqual(result.returncode, 0, result.stdout)
        return command

    def assert_says_how_to_restore(self, text):
        self.assertIn(f"The backup is {self.backup}. This command puts it back:", text)
        self.assertTrue(self.backup.read_bytes() == self.content)


class WithAStandIn(ReportTest):
    content = CONTENT

    def setUp(self):
        super().setUp()
        self.home, self.standin = self.folder / "home", self.folder / "standin"
        (self.home / TOOL).parent.mkdir(parents=True)
        shutil.copy(HERE / "standin_esptool.py", self.home / TOOL)
        self.standin.mkdir()
        (self.standin / "flash").write_bytes(self.content)
        self.plan()
        os.symlink("null", PORT)
        self.addCleanup(lambda: os.path.lexists(PORT) and os.unlink(PORT))

    def environment(self):
        return os.environ | {"HOME": str(self.home), "STANDIN": str(self.standin), "USER": "jane"}

    def plan(self, **actions):
        plan = {name.replace("_flash_", "_flash ").replace("_id_", "_id "): action for name, action in actions.items()}
        (self.standin / "plan.json").write_text(json.dumps(plan))
        self.calls_file().write_text("")

    def plan_for(self, call, action):
        (self.standin / "plan.json").write_text(json.dumps({call: action}))

    def calls_file(self):
        return self.standin / "calls"

    def calls(self):
        return [json.loads(line) for line in self.calls_file().read_text().splitlines()]

    def flash(self):
        return (self.standin / "flash").read_bytes()

    def assert_restored(self):
        self.assertTrue(self.flash() == self.content, "the device does not hold what it held")

    def assert_unwritten(self):
        self.assert_restored()
        self.assertFalse([call for call in self.calls() if "write_flash" in call])


class WholeRun(WithAStandIn):
    def test_leaves_the_device_as_it_was_with_the_backup_the_command_and_the_report(self):
        terminal = self.start()
        self.assertEqual(terminal.status(), 0, terminal.text)
        self.assertIn(THE_SAME, terminal.text)
        self.assert_restored()
        self.assert_says_how_to_restore(terminal.text)
        self.assertEqual(self.files(), ["backup.bin", "report.txt", "restore-command.txt"])
        self.assertEqual(stat.S_IMODE(self.backup.stat().st_mode), 0o400)
        self.assertEqual(stat.S_IMODE(self.output.stat().st_mode), 0o700)
        self.assertIn((self.output / "restore-command.txt").read_text().strip(), terminal.text)

    def test_flashes_with_the_applications_arguments_and_resets_only_where_nothing_is_read_afterwards(self):
        self.assertEqual(self.start().status(), 0)
        calls = self.calls()
        self.assertEqual([next(word for word in call if word.endswith(("_flash", "_id", "_mem"))) for call in calls],
                         [call.split()[0] for call, _, _ in STEPS])
        image = BUNDLE / "Contents/Resources" / json.loads(
            (BUNDLE / "Contents/Resources/qelmo-varnox-flash-manifest.json").read_text())["binary"]["path"]
        self.assertEqual(calls[4], ["--chip", "esp32s3", "--port", PORT, "--baud", "921600", "--before",
                                    "default_reset", "--after", "hard_reset", "write_flash", "--erase-all",
                                    "--flash_mode", "dio", "--flash_freq", "80m", "--flash_size", "8MB", "--verify",
                                    "0x0", str(image)])
        self.assertEqual(calls[6][8:], ["--after", "no_reset", "write_flash", "--flash_mode", "keep", "--flash_freq",
                                        "keep", "--flash_size", "keep", "0x0", str(self.backup)])
        self.assertEqual([call[9] for call in calls], ["no_reset"] * 4 + ["hard_reset"] + ["no_reset"] * 2
                         + ["hard_reset"])

    def test_reports_chip_port_versions_times_and_the_whole_log(self):
        self.assertEqual(self.start().status(), 0)
        text = self.report()
        for line in [r"result: everything was flashed, read back, compared and put back",
                     r"chip +ESP32-S3 \(QFN56\) \(revision v0\.2\)", r"kind of port +USB-Serial/JTAG, the chip's own",
                     r"port +" + PORT, r"flash size +8MB", r"usb +not told", r"python +Python 3\.\d+\.\d+",
                     r"esptool +4\.7\.0", r"pyserial +[\d.b]+", r"system +\S.*", r"release +Sample, not firmware 0.*",
                     r"sha256 +[0-9a-f]{64}", r"the two reads +equal, 8388608 bytes",
                     r"the flash and the image +equal, 8388608 bytes",
                     r"the restored flash and the backup +equal, 8388608 bytes"]:
            self.assertRegex(text, "(?m)^" + line + "$")
        for _, title, _ in STEPS:
            self.assertRegex(text, rf"(?m)^ *\d+\.\d s  {title}: done$")
            self.assertEqual(text.count(f"\n==> {title}\n"), 1)
        self.assertIn("\n8388608 (100 %)\n", text)
        self.assertNotIn("\b", text)
        self.assertIn(f"\nStarting verified full-image flash on {PORT}…\n", text)

    def test_masks_the_mac_address_in_every_spelling_and_the_home_folder(self):
        self.plan(flash_id_1="say usb-unit_F4:12:FA:5E:01:0B-if00 F4-12-FA-5E-01-0B serial=F412FA5E010B f412fa5e010b "
                             f"{self.home}/x jane janet")
        terminal = self.start()
        self.assertEqual(terminal.status(), 0)
        text = self.report()
        self.assertNotRegex(text, r"(?i)f4.?12.?fa.?5e.?01.?0b")
        self.assertIn("MAC: xx:xx:xx:xx:xx:xx\n", text)
        self.assertIn("usb-unit_xx:xx:xx:xx:xx:xx-if00 xx:xx:xx:xx:xx:xx serial=xxxxxxxxxxxx xxxxxxxxxxxx ~/x "
                      "USER janet\n", text)
        self.assertNotIn(str(self.home), text)

    def test_tells_how_the_flash_differs_when_the_tool_rewrote_the_header(self):
        digest = difference.loader_digest(IMAGE.read_bytes())
        places = [2, 3, *range(digest.start, digest.end)]
        self.plan(write_flash_1="flip " + " ".join(map(str, places)))
        terminal = self.start()
        self.assertEqual(terminal.status(), 0, terminal.text)
        self.assert_restored()
        self.assertIn("the flash and the image: equal but for what is explained: the tool rewrote the loader's header "
                      "(esptool does so from 4.8 on, when bytes 2 and 3 of the image are not 02 3f)\n"
                      "  0x000002 to 0x000003, 2 bytes, now fd c0: flash mode, size and frequency in the loader's "
                      f"header\n  0x{digest.start:06x} to 0x{digest.end - 1:06x}, 32 bytes: the digest of the "
                      "loader\n", self.report())

    # fault: the flashed device does not hold the image
    # seen: "DIFFERENT in 1 place, of which 1 cannot be explained:"
    def test_says_where_the_flash_differs_and_puts_the_backup_back_all_the_same(self):
        self.plan(write_flash_1="flip 0x12345")
        terminal = self.start()
        self.assertEqual(terminal.status(), 1)
        self.assert_restored()
        self.assertIn("DIFFERENT in 1 place, of which 1 cannot be explained:\n  0x012345 to 0x012345, 1 byte, now ",
                      terminal.text)
        self.assertIn("the flashed device did not hold the image; the backup was put back", terminal.text)
        self.assertIn(THE_SAME, terminal.text)

    # fault: the device does not hold the backup after it was put back
    # seen: "the restored flash differs from the backup"
    def test_notices_that_the_backup_did_not_arrive(self):
        self.plan(write_flash_2="flip 0x7fffff")
        terminal = self.start()
        self.assertEqual(terminal.status(), 1)
        self.assertIn("  0x7fffff to 0x7fffff, 1 byte, now ", terminal.text)
        self.assertIn("device-report: the restored flash differs from the backup\n" + NOT_THE_SAME, terminal.text)
        self.assert_says_how_to_restore(terminal.text)
        self.restore_by_hand(terminal.text)
        self.assert_restored()


class Question(WithAStandIn):
    def test_is_asked_before_the_device_is_touched_and_taken_as_no_by_anything_but_yes(self):
        for answer in ("no\n", "\n", "yesterday\n", "\x04"):
            terminal = self.start(answer=answer)
            self.assertEqual(terminal.status(), 1)
            self.assertTrue(terminal.text.endswith("Nothing was done.\n"), terminal.text)
            self.assertEqual(self.calls(), [])
            self.assertFalse(self.output.exists())

    def test_can_be_left_with_the_keyboard(self):
        terminal = self.start(answer="\x03")
        self.assertEqual(terminal.status(), 128 + signal.SIGINT)
        self.assertTrue(terminal.text.endswith("Nothing was done.\n"), terminal.text)
        self.assertFalse(self.output.exists())

    def test_says_what_will_be_done_and_where(self):
        terminal = self.start(answer="no\n")
        terminal.status()
        for words in (PORT, str(self.output), "Sample, not firmware 0.0.0-sample", "puts the backup back"):
            self.assertIn(words, terminal.text)


class Refusal(WithAStandIn):
    def refusal(self, *arguments):
        result = run(TOOLS / "device-report", "--build", BUILD, "--bundle", BUNDLE, *arguments,
                     env=self.environment())
        self.assertEqual(self.calls(), [])
        return result.returncode, result.stdout

    def assert_refused(self, words, *arguments):
        self.assertEqual(self.refusal("--output", self.output, *arguments), (1, f"device-report: {words}\n"))
        self.assertFalse(self.output.exists())

    def test_of_wrong_arguments_is_the_usage_in_one_line(self):
        usage = "usage: device-report [--build FOLDER] [--bundle APP] [--output FOLDER] PORT\n"
        for arguments in ([], [PORT, PORT], ["--surprise", PORT], ["--output"]):
            self.assertEqual(self.refusal(*arguments), (2, usage))

    def test_of_a_port_is_one_line(self):
        self.assert_refused("/dev/null is not the name of a Cardputer's port", "/dev/null")
        self.assert_refused("cu.usbmodem101 is not the name of a Cardputer's port", "cu.usbmodem101")
        self.assert_refused("there is no /dev/cu.usbmodem7", "/dev/cu.usbmodem7")

    def test_without_a_terminal_is_one_line(self):
        self.assert_refused("run it in a terminal: it asks before it begins", PORT)

    def test_without_the_program_says_how_to_build_it(self):
        self.assert_refused(f"{self.folder}/tools/flash-release is missing; build it: "
                            f"cmake --build {self.folder} --target flash-release", "--build", self.folder, PORT)

    # fault: the flashing tool is a version 5, or does not start
    # seen: "the flashing tool is needed in a version 4.x, not …"
    def test_of_another_tool_comes_before_the_device_is_touched(self):
        for program, words in (("print('5.1.0')", "5.1.0"), ("raise SystemExit(1)", "one that does not start")):
            (self.home / TOOL).write_text(program)
            self.assert_refused(f"the flashing tool is needed in a version 4.x, not {words}", PORT)

    # fault: the release in the bundle is damaged
    # seen: "The embedded flash manifest is missing."
    def test_of_the_release_is_the_applications_sentence(self):
        self.assert_refused("The embedded flash manifest is missing.", "--bundle", self.folder, PORT)

    # fault: there is a backup of an earlier run in the folder
    # seen: "device-report: … is there already, and no older backup is ever touched"
    def test_to_touch_an_older_backup(self):
        self.output.mkdir()
        self.backup.write_text("older")
        self.assertEqual(self.refusal("--output", self.output, PORT), (
            1, f"device-report: {self.output} is there already, and no older backup is ever touched\n"))
        self.assertEqual((self.backup.read_text(), self.files()), ("older", ["backup.bin"]))

    def test_of_a_place_that_cannot_be_written(self):
        self.assertEqual(self.refusal("--output", "/nowhere/at/all", PORT),
                         (1, "device-report: cannot write in /nowhere/at\n"))


class FullDisk(WithAStandIn):
    def mount(self, mebibytes):
        self.small = self.folder / "small"
        self.small.mkdir()
        if run("mount", "-t", "tmpfs", "-o", f"size={mebibytes}m", "small", self.small).returncode != 0:
            self.skipTest("no file system of a given size can be made here")
        self.addCleanup(run, "umount", self.small)
        self.output = self.small / "report"
        self.backup = self.output / "backup.bin"

    # fault: there is not enough room for the backup
    # seen: "device-report: there is not enough room in …: 17 MiB are needed"
    def test_is_noticed_before_the_device_is_touched(self):
        self.mount(12)
        result = run(TOOLS / "device-report", "--build", BUILD, "--bundle", BUNDLE, "--output", self.output, PORT,
                     env=self.environment())
        self.assertEqual((result.returncode, result.stdout), (
            1, f"device-report: there is not enough room in {self.small}: 17 MiB are needed\n"))
        self.assertEqual((self.calls(), os.listdir(self.small)), ([], []))

    # fault: the disk becomes full during the second read of the backup
    # seen: "could not read the whole flash, time 2 of 2: OSError: [Errno 28] No space left on device"
    def test_during_the_backup_leaves_no_half_of_it(self):
        self.mount(20)
        self.plan(read_flash_2=f"fill {self.small}")
        terminal = self.start()
        self.assertEqual(terminal.status(), 1)
        self.assertIn("device-report: could not read the whole flash, time 2 of 2: OSError: [Errno 28] No space left "
                      f"on device\n{NOTHING_WRITTEN}\nThere is no backup.\n", terminal.text)
        self.assertNotIn("backup.bin", self.files())
        self.assert_unwritten()


class ToolFails(WithAStandIn):
    # fault: the tool fails in a step before the backup is complete
    # seen: "could not …: A fatal error occurred: as planned", "Nothing was written to the device."
    def test_before_the_backup_is_complete(self):
        for call, title, state in STEPS[:4]:
            with self.subTest(title):
                self.calls_file().write_text("")
                self.plan_for(call, "fail")
                terminal = self.start()
                self.assertEqual(terminal.status(), 1)
                self.assertIn(f"device-report: could not {title}: A fatal error occurred: as planned\n{state}\n"
                              "There is no backup.\n", terminal.text)
                self.assert_unwritten()
                self.assertEqual(self.files(), ["report.txt"])
                self.assertIn(f" s  {title}: failed with status 2\n", self.report())
                shutil.rmtree(self.output)

    # fault: the tool fails in a step after the backup was made, and the user gives up
    # seen: "Type stop to end here:"
    def test_after_the_backup_and_the_user_gives_up(self):
        for call, title, state in AFTER_THE_BACKUP:
            with self.subTest(title):
                self.calls_file().write_text("")
                self.plan_for(call, "fail")
                terminal = self.start()
                terminal.wait_for(f"The backup is safe: {self.backup}\n")
                terminal.wait_for(AGAIN)
                terminal.type("stop\n")
                self.assertEqual(terminal.status(), 1)
                self.assertIn(f"\ndevice-report: could not {title}: ", terminal.text)
                self.assertIn(f"\n{state}\n", terminal.text)
                self.assert_says_how_to_restore(terminal.text)
                self.restore_by_hand(terminal.text)
                self.assert_restored()
                shutil.rmtree(self.output)

    # fault: the tool fails in a step after the backup was made, and the user tries again
    # seen: "Type stop to end here:"
    def test_after_the_backup_and_the_user_tries_again(self):
        self.plan(write_flash_1="fail", read_flash_3="fail", write_flash_3="fail", read_flash_5="fail")
        terminal = self.start()
        for _ in AFTER_THE_BACKUP:
            terminal.wait_for(AGAIN)
            terminal.type("\n")
        self.assertEqual(terminal.status(), 0, terminal.text)
        self.assert_restored()

    # fault: the two reads of the flash differ
    # seen: "the two reads of the flash differ, so there is no backup to rely on"
    def test_to_read_the_same_twice(self):
        self.plan(read_flash_2="flip 0x400000")
        terminal = self.start()
        self.assertEqual(terminal.status(), 1)
        self.assertIn("DIFFERENT in 1 place:\n  0x400000 to 0x400000, 1 byte, now ", terminal.text)
        self.assertIn("device-report: the two reads of the flash differ, so there is no backup to rely on\n"
                      f"{NOTHING_WRITTEN}\nThere is no backup.\n", terminal.text)
        self.assertEqual(self.files(), ["report.txt"])
        self.assert_unwritten()

    # fault: a read gives fewer bytes than the flash has, and the tool says nothing
    # seen: "8388607 bytes came instead of 8388608"
    def test_to_read_everything(self):
        self.plan(read_flash_1="short")
        terminal = self.start()
        self.assertEqual(terminal.status(), 1)
        self.assertIn("8388607 bytes came instead of 8388608", terminal.text)
        self.assert_unwritten()

    # fault: the chip has another flash
    # seen: "the flash has 4MB, not the 8MB of a Cardputer ADV"
    def test_to_find_a_flash_of_8_mb(self):
        text = (self.home / TOOL).read_text().replace("size: 8MB", "size: 4MB")
        (self.home / TOOL).write_text(text)
        terminal = self.start()
        self.assertEqual(terminal.status(), 1)
        self.assertIn("device-report: the flash has 4MB, not the 8MB of a Cardputer ADV\n", terminal.text)
        self.assert_unwritten()


class Stopped(WithAStandIn):
    def blocked_at(self, call, action="block"):
        shutil.rmtree(self.output, ignore_errors=True)
        self.calls_file().write_text("")
        self.plan_for(call, action)
        terminal = self.start()
        # Nothing may fill up the terminal meanwhile, so it is read until the step's title.
        terminal.wait_for(f"==> {dict((call, title) for call, title, _ in STEPS)[call]}\n")
        blocked = self.standin / "blocked"
        self.wait_until(lambda: blocked.exists() and blocked.read_text(), "the tool did not block")
        self.tool = int(blocked.read_text())
        blocked.unlink()
        return terminal

    def assert_the_tool_is_gone(self):
        try:
            state = Path(f"/proc/{self.tool}/stat").read_text().rpartition(")")[2].split()[0]
        except FileNotFoundError:
            return
        self.assertEqual(state, "Z", "the tool still runs")

    def assert_stopped(self, terminal, number, call, state):
        self.assertEqual(terminal.status(), 128 + number, terminal.text)
        self.assert_the_tool_is_gone()
        title = dict((call, title) for call, title, _ in STEPS)[call]
        said = self.report() if number == signal.SIGHUP else terminal.text
        self.assertIn(f"interrupted by {signal.Signals(number).name} (step: {title})\n", said)
        self.assertIn(f"{state}\n", said)
        self.assertEqual([name for name in self.files() if name.endswith(".part")], [])
        if (call, title, state) in AFTER_THE_BACKUP:
            command = (self.output / "restore-command.txt").read_text()
            if number != signal.SIGHUP:
                self.assert_says_how_to_restore(terminal.text)
                self.assertIn(command, terminal.text)
            self.restore_by_hand(command)
        else:
            self.assertIn("There is no backup.\n", said)
            self.assertEqual(self.files(), ["report.txt"])
            self.assert_unwritten()
        self.assert_restored()

    # fault: the user presses Ctrl+C in any step
    # seen: "interrupted by …"
    def test_by_the_keyboard_at_every_step(self):
        for call, title, state in STEPS:
            with self.subTest(title):
                terminal = self.blocked_at(call)
                terminal.type("\x03")
                self.assert_stopped(terminal, signal.SIGINT, call, state)

    # fault: the script is told to end
    # seen: "interrupted by …"
    def test_by_a_signal_to_end_at_every_step(self):
        for call, title, state in STEPS:
            with self.subTest(title):
                terminal = self.blocked_at(call)
                terminal.process.terminate()
                self.assert_stopped(terminal, signal.SIGTERM, call, state)

    # fault: the terminal's window is closed
    def test_by_closing_the_terminal_at_every_step(self):
        for call, title, state in STEPS:
            with self.subTest(title):
                terminal = self.blocked_at(call)
                terminal.hang_up()
                self.assert_stopped(terminal, signal.SIGHUP, call, state)

    # fault: the tool goes on although it is told to end
    # seen: "interrupted by …"
    def test_ends_a_tool_that_does_not_want_to_end(self):
        call, _, state = STEPS[4]
        terminal = self.blocked_at(call, "deaf")
        terminal.type("\x03")
        self.assert_stopped(terminal, signal.SIGINT, call, state)

    # fault: the user presses Ctrl+C at the question whether to try again
    def test_at_the_question_whether_to_try_again(self):
        self.plan(write_flash_1="fail")
        terminal = self.start()
        terminal.wait_for(AGAIN)
        terminal.type("\x03")
        self.assertEqual(terminal.status(), 128 + signal.SIGINT)
        self.assertIn(NOT_THE_SAME, terminal.text)
        self.restore_by_hand(terminal.text)
        self.assert_restored()


class Differences(unittest.TestCase):
    def setUp(self):
        self.image = IMAGE.read_bytes()

    def changed(self, *places):
        found = bytearray(self.image)
        for place in places:
            found[place] ^= 0xFF
        return bytes(found)

    def test_finds_the_loaders_digest_where_the_image_has_it(self):
        digest = difference.loader_digest(self.image)
        self.assertEqual(self.image[digest.start:digest.end], hashlib.sha256(self.image[:digest.start]).digest())
        self.assertIsNone(difference.loader_digest(b"\0" * 100))
        self.assertIsNone(difference.loader_digest(b"\xe9\x08" + b"\0" * 21 + b"\x01"))

    def test_explains_what_the_release_wrote_into_its_data_but_not_into_its_program(self):
        compared = difference.compare_with_release(self.image, self.changed(0x9000, 0x9001, 0x410000))
        self.assertEqual((compared.is_equal, compared.is_explained), (False, True))
        self.assertEqual(compared.lines, [
            "equal but for what is explained: the release, which the tool starts after the flash, wrote into its data",
            '  0x009000 to 0x009001, 2 bytes, now 00 00: the data partition "nvs"',
            '  0x410000 to 0x410000, 1 byte, now ' + f'{self.image[0x410000] ^ 255:02x}: the data partition "assets"'])
        compared = difference.compare_with_release(self.image, self.changed(0x9000, 0x10000))
        self.assertFalse(compared.is_explained)
        self.assertEqual(compared.lines[0], "DIFFERENT in 2 places, of which 1 cannot be explained:")

    def test_explains_nothing_in_the_backup(self):
        compared = difference.compare(self.image, self.changed(2))
        self.assertEqual((compared.is_equal, compared.is_explained), (False, False))

    def test_shows_no_more_places_than_somebody_reads(self):
        compared = difference.compare(self.image, self.changed(*range(0, 4000, 100)))
        self.assertEqual(compared.lines[0], "DIFFERENT in 40 places:")
        self.assertEqual((len(compared.lines), compared.lines[-1]), (22, "  and 20 more"))

    def test_finds_what_is_missing_at_the_end(self):
        self.assertEqual(difference.differing_ranges(b"abc", b"ab"), [(2, 3)])

    def test_expects_the_rest_of_the_flash_erased_or_as_it_was(self):
        with tempfile.NamedTemporaryFile() as image:
            image.write(b"\xe9" * 5000)
            image.flush()
            for erase, rest in (("yes", b"\xff" * (FLASH_SIZE - 8192)), ("no", CONTENT[8192:])):
                flasher = Flasher(Path(), Path(), PORT, {"image": image.name, "erase": erase})
                self.assertTrue(flasher.expected_after_flash(CONTENT) == b"\xe9" * 5000 + b"\xff" * 3192 + rest)


class Interpreter(unittest.TestCase):
    def test_of_macos_understands_the_script(self):
        for file in [TOOLS / "device-report", TOOLS / "whole_file.py", *(TOOLS / "device_report").glob("*.py")]:
            ast.parse(file.read_text(), feature_version=(3, 9))


class Words(unittest.TestCase):
    def test_of_the_chip_tell_the_kind_of_port(self):
        for value, kind in ((4, "USB-Serial/JTAG, the chip's own"), (3, "USB-OTG, the chip's own"),
                            (0, "UART, behind a bridge"), (9, "unknown (0x00000009)")):
            self.assertEqual(report.kind_of_port(f"Connecting...\n0x3fcef14c = 0x{value:08x}\n"), kind)
        self.assertIsNone(report.kind_of_port("nothing"))

    def test_of_the_system_tell_the_usb_device_without_its_serial_number(self):
        listing = ("/dev/ttyS0          \n    desc: n/a\n    hwid: n/a\n"
                   "/dev/ttyACM0        \n    desc: USB JTAG/serial debug unit\n"
                   "    hwid: USB VID:PID=303A:1001 SER=F4:12:FA:5E:01:0B LOCATION=1-2:1.0\n")
        self.assertEqual(report.usb_facts(listing, "/dev/ttyACM0"), "303A:1001, USB JTAG/serial debug unit")
        self.assertIsNone(report.usb_facts(listing, "/dev/ttyS0"))
        self.assertIsNone(report.usb_facts(listing, "/dev/ttyACM1"))

    def test_hide_an_address_in_a_ports_name_even_when_the_chip_did_not_tell_it(self):
        masked = privacy.Mask().masked
        self.assertEqual(masked("/dev/cu.usbmodemF412FA5E010B1 /dev/cu.usbmodem1101"),
                         "/dev/cu.usbmodemxxxxxxxxxxxx1 /dev/cu.usbmodem1101")
        for kept in ("md5 00112233445566778899aabbccddeeff", "2026-01-02 03:04", "4.7.0", "0x3fcef14c = 0x00000004"):
            self.assertEqual(masked(kept), kept)


class WithTheRealTool(ReportTest):
    """Reading 8 MiB takes the tool seconds, so each test uses its reads for several things."""

    def setUp(self):
        super().setUp()
        self.content = CONTENT

    def environment(self):
        return os.environ | {"HOME": device_case.home, "PYTHONDONTWRITEBYTECODE": "1"}

    def plug_in(self, *options):
        """A device that holds what the one before held."""
        held = self.folder / "held"
        held.write_bytes(self.dump.read_bytes() if self.dump.exists() else self.content)
        return self.device("--initial-flash", held, *options)

    def try_again(self, terminal, device, *options):
        terminal.wait_for(f"The backup is safe: {self.backup}\n")
        terminal.wait_for(AGAIN)
        device.wait()
        device = self.plug_in(*options)
        terminal.type("\n")
        return device

    # fault: the device is unplugged during each of the four steps after the backup, and plugged in again
    # seen: "Type stop to end here:"
    def test_survives_being_unplugged_at_every_step_after_the_backup(self):
        device = self.plug_in("--fault", "unplugged@30")
        terminal = self.start()
        device = self.try_again(terminal, device, "--fault", "unplugged-reading@5")
        device = self.try_again(terminal, device, "--fault", "unplugged@60")
        device = self.try_again(terminal, device, "--fault", "unplugged-reading@1")
        device = self.try_again(terminal, device)
        self.assertEqual(terminal.status(), 0, terminal.text)
        self.assertIn(THE_SAME, terminal.text)
        self.end(device)
        self.assertTrue(self.dump.read_bytes() == self.content)
        self.assertTrue(self.backup.read_bytes() == self.content)
        text = self.report()
        self.assertEqual(text.count("failed with status 1\n"), 4)
        self.assertIn("the flash and the image                 equal, 8388608 bytes\n".replace(" " * 17, " "),
                      re.sub(" {2,}", " ", text))
        self.assertNotRegex(text, r"(?i)f4.?12.?5e.?00.?01.?01")
        self.assertIn("MAC: xx:xx:xx:xx:xx:xx\n", text)
        self.assertRegex(text, r"(?m)^chip +ESP32-S3 .*\(revision v0\.2\)$")
        self.assertRegex(text, r"(?m)^kind of port +USB-Serial/JTAG, the chip's own$")

    # fault: the device is unplugged while the release is written, and the user gives up
    def test_says_a_command_that_puts_the_backup_back(self):
        device = self.plug_in("--fault", "unplugged@50")
        terminal = self.start()
        terminal.wait_for(AGAIN)
        device.wait()
        terminal.type("stop\n")
        self.assertEqual(terminal.status(), 1)
        self.assertIn(NOT_THE_SAME, terminal.text)
        self.assertFalse(self.dump.read_bytes() == self.content)
        device = self.plug_in()
        self.restore_by_hand(terminal.text)
        self.end(device)
        self.assertTrue(self.dump.read_bytes() == self.content)

    # fault: the two reads of the flash differ
    # seen: "the two reads of the flash differ, so there is no backup to rely on"
    def test_stops_when_the_reads_differ(self):
        device = self.plug_in("--fault", "read-error@75", "--fault-turn", "2")
        terminal = self.start()
        self.assertEqual(terminal.status(), 1)
        self.assertIn("  0x600000 to 0x600000, 1 byte", terminal.text)
        self.assertIn("the two reads of the flash differ, so there is no backup to rely on", terminal.text)
        self.assertFalse(self.backup.exists())
        self.assertNotIn("erase", self.log())
        self.end(device)
        self.assertTrue(self.dump.read_bytes() == self.content)

    # fault: the device is unplugged during the first read of the backup
    # seen: "Nothing was written to the device.", "There is no backup."
    def test_stops_when_the_device_is_unplugged_during_the_backup(self):
        device = self.plug_in("--fault", "unplugged-reading@2")
        terminal = self.start()
        self.assertEqual(terminal.status(), 1)
        self.assertIn(f"{NOTHING_WRITTEN}\nThere is no backup.\n", terminal.text)
        self.assertEqual(self.files(), ["report.txt"])
        device.wait()
        self.assertTrue(self.dump.read_bytes() == self.content)


if __name__ == "__main__":
    sys.exit(device_case.main())
