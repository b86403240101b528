#!/usr/bin/python3
"""The real esptool against the sample image and the simulated device, and the two scripts that make that possible."""

import os
import random
import re
import shutil
import signal
import stat
import subprocess
import sys
import time

import device_case
from device_case import CACHE, FLASH_SIZE, HERE, ONLY_WHEN_BROKEN, PORT, PYTHON, DeviceTest, run
from esptool_versions import OTHER_CHIP, RECONNECTS, VERIFIES_TWICE, load_tests  # noqa: F401

MAKE_SAMPLE = HERE.parents[1] / "tools" / "make-sample-image"
DEAD_PROXY = "http://127.0.0.1:9"

noise = random.Random(20)
RANDOM_IMAGE = b"\0" + noise.randbytes(1024 * 1024 + 99)
FIRMWARE_IMAGE = (b"\0" + noise.randbytes(400 * 1024)).ljust(FLASH_SIZE, b"\xff")

TENTHS = [f"write {percent}%" for percent in range(10, 101, 10)]
CONNECTED = ["opened", "download mode", "sync", "stub uploaded", "baud 921600"]
GARBAGE_WORDS = "Failed to connect to ESP32-S3: Invalid head of packet (0x49): Possible serial noise or corruption."
UNPLUGGED_WORDS = "A serial exception error occurred: Could not configure port: (5, 'Input/output error')"
PERCENTAGES = (0, 1, 50, 99)


def first_part(percent):
    """What of the image is written when a fault strikes at this percentage."""
    return RANDOM_IMAGE[:-(-len(RANDOM_IMAGE) * percent // 100)]


class SampleImage(DeviceTest):
    def test_both_images_are_valid_for_the_tool(self):
        sample, application = self.folder / "sample.bin", self.folder / "application.bin"
        self.assertEqual(run(PYTHON, "-B", MAKE_SAMPLE, sample).returncode, 0)
        application.write_bytes(sample.read_bytes()[0x10000:])
        for path in (sample, application):
            with self.subTest(path.name):
                result = run(*self.esptool("image_info", "--version", "2", path), **self.surroundings())
                self.assertEqual(result.returncode, 0, result.stdout)
                self.assertRegex(result.stdout, r"(?m)^Chip ID: 9( \(ESP32-S3\))?$")
                self.assertRegex(result.stdout, r"Checksum: 0x[0-9a-f]+ \(valid\)")
                self.assertRegex(result.stdout, r"Validation hash: [0-9a-f]{64} \(valid\)")


class Flashing(DeviceTest):
    def test_makes_the_flash_equal_to_the_image_and_starts_the_firmware(self):
        self.device()
        self.assert_flashed(FIRMWARE_IMAGE)
        self.wait_for("closed")
        digests = [event for event in self.log() if event.startswith("md5 ")]
        self.assertEqual(len(digests), 2 if self.of_the_tool(VERIFIES_TWICE) else 1)
        self.assertEqual(self.log(), CONNECTED + ["erase", f"write begin {FLASH_SIZE}"] + TENTHS
                         + digests + ["reset", "closed"])

    def test_erases_what_the_image_does_not_cover(self):
        self.device()
        self.assert_flashed(RANDOM_IMAGE)

    def test_without_a_whole_erase_spares_the_sectors_behind_the_image(self):
        before = noise.randbytes(FLASH_SIZE)
        (self.folder / "before").write_bytes(before)
        self.device("--initial-flash", self.folder / "before")
        self.assertEqual(self.flash(RANDOM_IMAGE, erase=False).returncode, 0)
        padded = RANDOM_IMAGE.ljust(-(-len(RANDOM_IMAGE) // 4096) * 4096, b"\xff")
        self.assertTrue(self.dump.read_bytes() == padded + before[len(padded):])
        self.assertNotIn("erase", self.log())

    # fault: the flashing tool is killed during the write
    def test_is_possible_again_after_a_host_died_in_the_middle_of_a_frame(self):
        self.device("--bytes-per-second", 500_000)
        host = subprocess.Popen(self.tool(RANDOM_IMAGE), stdout=subprocess.DEVNULL, **self.surroundings())
        self.wait_for("write 10%")
        host.kill()
        host.wait()
        self.wait_for("closed")
        self.assertNotIn("reset", self.log())
        self.assert_flashed(FIRMWARE_IMAGE)

    # fault: the flashing tool is killed during the erase
    def test_that_waits_for_the_erase_can_be_given_up(self):
        device = self.device("--erase-seconds", 10 * ONLY_WHEN_BROKEN)
        host = subprocess.Popen(self.tool(RANDOM_IMAGE), stdout=subprocess.DEVNULL, **self.surroundings())
        self.wait_for("erase")
        host.kill()
        host.wait()
        self.wait_for("closed")
        self.end(device)


class Reading(DeviceTest):
    START, SIZE = 0x3000, 0x20000

    def setUp(self):
        super().setUp()
        self.content = noise.randbytes(FLASH_SIZE)
        (self.folder / "before").write_bytes(self.content)

    def plug_in(self, *options):
        return self.device("--initial-flash", self.folder / "before", *options)

    def read(self, after="no_reset"):
        """The tool's end and what it has written into its file."""
        file = self.folder / "read"
        file.unlink(missing_ok=True)
        result = run(*self.esptool("--port", PORT, "--baud", "921600", "--after", after, "read_flash",
                                   hex(self.START), hex(self.SIZE), file), **self.surroundings())
        return result, file.read_bytes() if file.exists() else None

    def expected(self):
        return self.content[self.START:self.START + self.SIZE]

    def test_gives_the_host_what_the_flash_holds_and_changes_nothing(self):
        self.plug_in()
        for after, last in (("no_reset", "loader"), ("hard_reset", "reset")):
            result, content = self.read(after)
            self.assertEqual(result.returncode, 0, result.stdout)
            self.assertTrue(content == self.expected())
            self.wait_for(last)
        self.wait_for("closed", 2)
        self.assertEqual(self.log(), CONNECTED + [f"read begin {self.SIZE}", "read end", "loader", "closed"]
                         + CONNECTED + [f"read begin {self.SIZE}", "read end", "reset", "closed"])
        self.assertTrue(self.dump.read_bytes() == self.content)

    # fault: the device is unplugged at 0, 1, 50 or 99 % of a read
    def test_can_be_unplugged(self):
        for percent in PERCENTAGES:
            device = self.plug_in("--fault", f"unplugged-reading@{percent}", "--fault-once")
            result, content = self.read()
            self.assertEqual((result.returncode, content), (1, None), result.stdout)
            self.wait_for("plugged in again")
            self.assertIn(f"fault unplugged-reading@{percent}", self.log())
            self.assertTrue(self.read()[1] == self.expected())
            self.end(device)
            self.assertTrue(self.dump.read_bytes() == self.content)

    # fault: a read gives one wrong bit, and a digest that fits it
    def test_can_be_wrong_in_one_read_only(self):
        self.plug_in("--fault", "read-error@50", "--fault-turn", "2")
        wrong = []
        for _ in range(3):
            result, content = self.read()
            self.assertEqual(result.returncode, 0, result.stdout)
            wrong.append([at for at, byte in enumerate(self.expected()) if content[at] != byte])
        self.assertEqual(wrong, [[], [self.SIZE // 2], []])


class Device(DeviceTest):
    def test_leaves_no_port_and_a_whole_dump_behind_when_it_is_ended(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            device = self.device()
            device.send_signal(number)
            self.assertEqual(device.wait(ONLY_WHEN_BROKEN), 0)
            self.assertFalse(os.path.lexists(PORT))
            self.assertEqual(self.dump.read_bytes(), bytes(FLASH_SIZE))
            self.assertEqual(self.log(), ["ended"])
            self.dump.unlink()

    def test_survives_many_hosts_and_rests_when_none_has_it_open(self):
        device = self.device()
        for _ in range(100):
            host = os.open(PORT, os.O_RDWR | os.O_NOCTTY)
            os.write(host, b"\xc0half a frame")
            os.close(host)
        self.wait_for("closed")

        def rests():
            """A process that waits for an event uses no time at all, whatever else happens meanwhile."""
            clock = (~device.pid << 3) | 2  # the process's own, as clock_getcpuclockid(3) makes it
            before = time.clock_gettime_ns(clock)
            run(PYTHON, "-c", "import hashlib")
            return time.clock_gettime_ns(clock) == before

        self.wait_until(rests, "the device is busy without a host")
        self.assert_flashed(RANDOM_IMAGE)
        self.end(device)

    def test_refuses_bad_input_in_one_line_and_leaves_nothing_behind(self):
        (self.folder / "large").write_bytes(bytes(FLASH_SIZE + 1))
        required = ["--port", PORT, "--flash-dump", self.dump]
        for options, complaint in [
            (["--port", PORT], "the following arguments are required: --flash-dump"),
            (required + ["--fault", "fire"], "unknown fault 'fire' (known: never-answers, other-chip, garbage, "
                                             "unplugged, bit-error, stops-answering, unplugged-reading, read-error)"),
            (required + ["--fault", "unplugged@101"],
             "the percentage of a fault is a number from 0 to 100: unplugged@101"),
            (required + ["--fault", "other-chip@5"], "the fault other-chip takes no percentage: other-chip@5"),
            (required + ["--fault-once"], "--fault-once and --fault-turn need --fault"),
            (required + ["--fault-turn", "0"], "argument --fault-turn: invalid turn value: '0'"),
            (required + ["--bytes-per-second", "0"], "argument --bytes-per-second: invalid positive value: '0'"),
            (required + ["--initial-flash", "/nowhere"], "cannot read /nowhere: No such file or directory"),
            (required + ["--initial-flash", self.folder / "large"],
             f"{self.folder}/large is larger than the flash (8388608 bytes)"),
            (required + ["--event-log", "/nowhere/events"], "cannot write /nowhere/events"),
            (required + ["--surprise"], "unrecognized arguments: --surprise"),
        ]:
            with self.subTest(complaint):
                result = run(PYTHON, HERE / "simulated_cardputer.py", *options)
                self.assertEqual((result.returncode, result.stdout), (2, f"simulated_cardputer.py: {complaint}\n"))
                self.assertFalse(os.path.lexists(PORT) or self.dump.exists())

    def test_takes_no_name_that_is_taken(self):
        os.symlink("/dev/null", PORT)
        self.addCleanup(os.unlink, PORT)
        result = run(PYTHON, HERE / "simulated_cardputer.py", "--port", PORT, "--flash-dump", self.dump)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stdout, r"^simulated_cardputer.py: .*File exists: .*cu.usbmodem101'\n$")
        self.assertEqual(os.readlink(PORT), "/dev/null")


class Faults(DeviceTest):
    def fail_then_succeed(self, fault, status, words):
        """Returns the flash as the failed job left it."""
        device = self.device("--fault", fault, "--fault-once")
        result = self.flash(RANDOM_IMAGE)
        self.assertEqual(result.returncode, status, f"{fault}: {result.stdout}")
        self.assertIn(words, result.stdout, fault)
        self.assertNotIn("Hash of data verified.", result.stdout, fault)
        self.wait_for("closed")
        self.assertEqual([event for event in self.log() if event.startswith("fault")], [f"fault {fault}"])
        left = self.dump.read_bytes()
        self.assert_flashed(RANDOM_IMAGE)
        self.end(device)
        return left

    def connect_once_only(self):
        """The tool's own seven attempts, and its waits for an unplugged device, differ in nothing but the time that
        they take."""
        (self.folder / "esptool.cfg").write_text("[esptool]\nconnect_attempts = 1\n")

    # fault: the device never answers
    # seen: "Failed to connect to ESP32-S3: No serial data received."
    def test_a_device_that_never_answers(self):
        self.connect_once_only()
        left = self.fail_then_succeed("never-answers", 2, "Failed to connect to ESP32-S3: No serial data received.")
        self.assertEqual(left, bytes(FLASH_SIZE))

    # fault: the device was not brought into its boot mode: it answers with garbage
    # seen: "Possible serial noise or corruption."
    def test_a_device_that_answers_garbage(self):
        self.connect_once_only()
        left = self.fail_then_succeed("garbage", 2, GARBAGE_WORDS)
        self.assertEqual(left, bytes(FLASH_SIZE))

    # fault: another chip is at the port
    # seen: "This chip is ESP32-C3 not ESP32-S3. Wrong --chip argument?"
    def test_another_chip(self):
        left = self.fail_then_succeed("other-chip", 2, self.of_the_tool(OTHER_CHIP))
        self.assertEqual(left, bytes(FLASH_SIZE))
        # From 4.9 on the tool always goes by the chip's id; older versions do when they are not told the chip.
        self.device("--fault", "other-chip")
        result = run(*self.esptool("--chip", "auto", "--port", PORT, "--no-stub", "chip_id"), **self.surroundings())
        self.assertIn("Detecting chip type... ESP32-C3\n", result.stdout)

    # fault: the device is unplugged during the erase
    # seen: "A serial exception error occurred"
    def test_a_device_unplugged_during_the_erase(self):
        device = self.device("--erase-seconds", 10 * ONLY_WHEN_BROKEN)
        host = subprocess.Popen(self.tool(RANDOM_IMAGE), stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                **self.surroundings())
        self.wait_for("erase")
        self.end(device)
        output = host.communicate(timeout=ONLY_WHEN_BROKEN)[0]
        self.assertEqual(host.returncode, 1, output)
        self.assertIn(UNPLUGGED_WORDS, output)
        self.assertEqual(self.dump.read_bytes(), bytes(FLASH_SIZE))
        self.device()
        self.assert_flashed(RANDOM_IMAGE)

    # fault: the device is unplugged at 0, 1, 50 or 99 % of the write
    # seen: "A serial exception error occurred"
    def test_a_device_unplugged_during_the_write(self):
        self.connect_once_only()
        for percent in PERCENTAGES:
            device = self.device("--fault", f"unplugged@{percent}")
            result = self.flash(RANDOM_IMAGE)
            self.assertEqual(result.returncode, 1, result.stdout)
            self.assertIn(UNPLUGGED_WORDS, result.stdout)
            self.assertEqual(device.wait(ONLY_WHEN_BROKEN), 0)
            self.assertFalse(os.path.lexists(PORT))
            self.assertEqual(self.log()[-3:], [f"fault unplugged@{percent}", "closed", "ended"])
            left = self.dump.read_bytes()
            self.assertTrue(left == first_part(percent).ljust(FLASH_SIZE, b"\xff"), f"the flash after {percent} %")
        self.device()
        self.assert_flashed(RANDOM_IMAGE)

    # fault: the device is unplugged at 0, 1, 50 or 99 % of the write, and plugged in again
    def test_a_device_that_is_plugged_in_again(self):
        for percent in PERCENTAGES:
            device = self.device("--fault", f"unplugged@{percent}", "--fault-once")
            if not self.of_the_tool(RECONNECTS):
                self.assertEqual(self.flash(RANDOM_IMAGE).returncode, 1)
                self.wait_for("plugged in again")
            self.assert_flashed(RANDOM_IMAGE)
            self.wait_for("closed", 2)
            self.assertEqual([self.log().count(event) for event in (f"fault unplugged@{percent}", "opened")], [1, 2])
            self.end(device)

    # fault: one bit of the flash is wrong, at 0, 1, 50 or 99 % of the image
    # seen: "MD5 of file does not match data in flash!"
    def test_one_wrong_bit_in_the_flash(self):
        for percent in PERCENTAGES:
            left = self.fail_then_succeed(f"bit-error@{percent}", 2, "MD5 of file does not match data in flash!")
            wrong = [(at, left[at] ^ byte) for at, byte in enumerate(RANDOM_IMAGE) if left[at] != byte]
            self.assertEqual(wrong, [(len(first_part(percent)), 1)])

    # fault: the device stops answering at 0, 1, 50 or 99 % of the write
    # seen: "Serial data stream stopped: Possible serial", "The chip stopped responding."
    def test_a_device_that_stops_answering(self):
        for percent in PERCENTAGES:
            words = "The chip stopped responding." if percent else "Serial data stream stopped: Possible serial"
            left = self.fail_then_succeed(f"stops-answering@{percent}", 2, f"A fatal error occurred: {words}")
            self.assertTrue(left == first_part(percent).ljust(FLASH_SIZE, b"\xff"), f"the flash after {percent} %")

    def test_a_fault_that_is_not_limited_strikes_again(self):
        self.device("--fault", "bit-error@99")
        for times in (1, 2):
            self.assertEqual(self.flash(RANDOM_IMAGE).returncode, 2)
            self.wait_for("fault bit-error@99", times)


class Version5(DeviceTest):
    # fault: the flashing tool is a version 5
    # seen: "No such option: --verify"
    def test_a_tool_of_version_5_refuses_the_job_before_the_port_is_touched(self):
        self.device()
        result = self.flash(RANDOM_IMAGE)
        self.assertEqual(result.returncode, 2, result.stdout)
        self.assertIn("No such option: --verify", result.stdout)
        self.assertEqual(self.log(), [])


class PrivateDev(DeviceTest):
    """Nested in the private /dev of this whole file, as test harnesses are."""

    def ways(self):
        ways = [[HERE / "private-dev", "--using", way] for way in ("root", "user", "bubblewrap")]
        return ([way for way in ways if run(*way, "--", "true").returncode == 0]
                or self.skipTest("none can be made in another"))

    def test_shows_no_serial_device_and_makes_new_terminals(self):
        os.symlink("null", PORT)
        self.addCleanup(os.unlink, PORT)
        for way in self.ways():
            with self.subTest(way[-1]):
                result = run(*way, "--", PYTHON, "-c",
                             "import os; os.symlink(os.ttyname(os.openpty()[1]), '/dev/ttyACM0');"
                             "print(*sorted(set(os.listdir('/dev')) - {'core', 'tty'}))")
                self.assertEqual(result.stdout,
                                 "fd full null ptmx pts random shm stderr stdin stdout ttyACM0 urandom zero\n")
                self.assertFalse(os.path.lexists("/dev/ttyACM0"))

    def test_passes_on_the_exit_status_and_signals(self):
        for way in self.ways():
            with self.subTest(way[-1]):
                self.assertEqual(run(*way, "--", "bash", "-c", "exit 42").returncode, 42)
                up = self.folder / "up"
                loop = f"trap 'exit 9' TERM; touch {up}; while :; do sleep 0.05; done"
                process = subprocess.Popen([*way, "--", "bash", "-c", loop])
                self.wait_until(up.exists, "the command did not start")
                process.terminate()
                self.assertEqual(process.wait(ONLY_WHEN_BROKEN), 9)
                up.unlink()

    def test_hides_the_interpreter_from_the_command_only(self):
        for way in self.ways():
            with self.subTest(way[-1]):
                result = run(*way, "--without-interpreter", "--", "bash", "-c", f"{PYTHON} -c 'print(1)'")
                self.assertEqual(result.returncode, 126)
                self.assertEqual(run(PYTHON, "-c", "print(1)").stdout, "1\n")

    def test_protects_tmp_for_the_command_only(self):
        for way in self.ways():
            with self.subTest(way[-1]):
                result = run(*way, "--readonly-tmp", "--", "bash", "-c", f"echo x > {self.folder}/x")
                self.assertIn("Read-only file system", result.stdout)
                (self.folder / "y").touch()

    def check(self):
        result = run(HERE / "private-dev", "--check")
        return result.returncode, result.stdout

    def test_is_none_with_a_port(self):
        self.assertEqual(self.check(), (0, ""))
        os.symlink("null", PORT)
        self.addCleanup(os.unlink, PORT)
        self.assertEqual(self.check(), (1, "private-dev: this /dev is not private\n"))

    def test_is_none_with_a_real_device(self):
        try:
            os.mknod("/dev/other", stat.S_IFCHR | 0o600, os.makedev(1, 3))
        except PermissionError:
            self.skipTest("only root can make a device")
        self.addCleanup(os.unlink, "/dev/other")
        self.assertEqual(self.check(), (1, "private-dev: this /dev is not private\n"))

    def test_does_not_use_a_dev_with_a_serial_device_in_it(self):
        os.symlink("null", "/dev/ttyUSB7")
        self.addCleanup(os.unlink, "/dev/ttyUSB7")
        result = run(HERE / "private-dev", "--using", "own", "--", "true")
        self.assertEqual(result.returncode, 77)
        self.assertRegex(result.stdout, r"^private-dev: no private /dev can be made here: .*\n$")


class InstallEsptool(DeviceTest):
    def install(self, *arguments, **environment):
        default = {name: value for name, value in os.environ.items() if name != "QELMO_ESPTOOL"}
        return run(HERE / "install-esptool", *CACHE, *arguments, env=default | environment)

    def test_needs_no_network_a_second_time_and_replaces_its_own_tool(self):
        self.assertEqual(self.install(self.folder).returncode, 0)
        for _ in range(2):
            result = self.install(self.folder, http_proxy=DEAD_PROXY, https_proxy=DEAD_PROXY)
            self.assertEqual((result.returncode, result.stdout), (0, ""))
            packages = self.folder / ".platformio/packages"
            self.assertEqual(os.listdir(packages), ["tool-esptoolpy"])
            version = run(PYTHON, "-B", packages / "tool-esptoolpy/esptool.py", "version").stdout
            self.assertRegex(version, r"^esptool.py v(4[.\d]+)\n\1\n$")

    def test_takes_another_version_from_a_folder(self):
        given = self.folder / "given"
        shutil.copytree(f"{device_case.home}/.platformio/packages/tool-esptoolpy", given)
        package = given / "esptool/__init__.py"
        package.write_text(re.sub('(?m)^__version__ = .*', '__version__ = "4.99.1"', package.read_text()))
        result = self.install(self.folder, QELMO_ESPTOOL=str(given))
        self.assertEqual((result.returncode, result.stdout), (0, ""))
        tool = self.folder / ".platformio/packages/tool-esptoolpy/esptool.py"
        self.assertTrue(run(PYTHON, "-B", tool, "version").stdout.endswith("\n4.99.1\n"))
        self.assertTrue(tool.read_bytes() == (HERE / "esptool_starter.py").read_bytes())

    # fault: the folder for another version of the real tool holds none
    # seen: "install-esptool: QELMO_ESPTOOL: there is no esptool.py beside a folder esptool in …"
    def test_refuses_a_folder_without_a_tool(self):
        result = self.install(self.folder, QELMO_ESPTOOL=str(self.folder))
        self.assertEqual((result.returncode, result.stdout), (1, "install-esptool: QELMO_ESPTOOL: there is no "
                                                              f"esptool.py beside a folder esptool in {self.folder}\n"))
        self.assertEqual(os.listdir(self.folder), [])

    # fault: the real tool is to be fetched without a network
    def test_says_in_one_line_that_there_is_no_network(self):
        result = self.install("--cache", self.folder / "cache", self.folder,
                              http_proxy=DEAD_PROXY, https_proxy=DEAD_PROXY)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stdout, r"^install-esptool: cannot (fetch|download) .*\n$")
        self.assertEqual(os.listdir(self.folder / ".platformio/packages"), [])

    # fault: there is a tool of somebody else's in the home folder
    # seen: "install-esptool: … is a tool of somebody else's and is left alone"
    def test_leaves_somebody_elses_tool_alone(self):
        theirs = self.folder / ".platformio/packages/tool-esptoolpy"
        theirs.mkdir(parents=True)
        result = self.install(self.folder)
        self.assertEqual((result.returncode, result.stdout), (
            1, f"install-esptool: {theirs} is a tool of somebody else's and is left alone\n"))
        self.assertEqual(os.listdir(theirs), [])


if __name__ == "__main__":
    sys.exit(device_case.main())
