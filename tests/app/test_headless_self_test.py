"""Runs the whole program headless, in bundles made for each test, and looks at what it writes and returns."""

import hashlib
import json
import os
import shutil
import signal
import socket
import stat
import subprocess
import sys
import tempfile
import unittest
import unittest.mock
from pathlib import Path

EXECUTABLE = Path(os.environ["QELMO_BUNDLE"], "Contents", "MacOS", "QelmoFlasher")
LIMIT_SECONDS = 60  # only a broken program reaches it
NOBODY = 65534
PRIVATE_DEV = Path(__file__).resolve().parents[1] / "device" / "private-dev"
CANNOT_RUN_HERE = 77


def smallest_image() -> bytes:
    return b"\xe9" + bytes(65535) + b"\xe9"


class Installation:
    """A bundle with a valid release and a home folder with a tool, all changeable, at any path of bytes."""

    def __init__(self, bundle: bytes, home: bytes) -> None:
        self.home = home
        self.executable = bundle + b"/Contents/MacOS/QelmoFlasher"
        self.resources = bundle + b"/Contents/Resources"
        self.icon = self.resources + b"/AppIcon.icns"
        self.manifest_file = self.resources + b"/qelmo-varnox-flash-manifest.json"
        self.image = self.resources + b"/release-complete.bin"
        self.tool = home + b"/.platformio/packages/tool-esptoolpy/esptool.py"
        self.digest = hashlib.sha256(smallest_image()).hexdigest()
        self.manifest = {
            "schemaVersion": 1,
            "name": "Varnox",
            "version": "1.0.0",
            "chipFamily": "ESP32-S3",
            "hardware": "Cardputer ADV",
            "binary": {"path": "release-complete.bin", "offset": 0, "size": 65537, "sha256": self.digest},
            "flash": {
                "baud": 921600,
                "flashSize": "8MB",
                "flashMode": "dio",
                "flashFrequency": "80m",
                "eraseAllInternalFlash": True,
                "after": "hard_reset",
                "confirmationText": "FLASH VARNOX",
            },
        }
        for path in (self.executable, self.icon, self.tool):
            os.makedirs(os.path.dirname(path), exist_ok=True)
        shutil.copy(EXECUTABLE, self.executable)
        write(self.icon, b"an icon is never opened")
        write(self.image, smallest_image())
        self.set_tool("print('esptool.py v4.7.0'); print('4.7.0')")
        self.write_manifest()

    def write_manifest(self) -> None:
        write(self.manifest_file, json.dumps(self.manifest).encode())

    def set_tool(self, script: str) -> None:
        write(self.tool, script.encode())

    def run(self, *arguments, program=None, stdout=subprocess.PIPE, **options):
        environment = {**os.environ, "HOME": os.fsdecode(self.home)}
        return subprocess.run([program or self.executable, *arguments], env=environment, stdout=stdout,
                              stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, timeout=LIMIT_SECONDS,
                              **options)

    def report(self, release="1.0.0", button="FLASH VERIFIED VARNOX", esptool="4.7.0") -> bytes:
        return (f"app_bundle=OK\nrelease={release}\nflash_button={button}\nbinary_size=65537\n"
                f"sha256={self.digest}\nflash_address=0x0\nesptool={esptool}\nserial_access=NONE\n"
                "icon=AppIcon.icns\n").encode()


def write(path: bytes, content: bytes) -> None:
    with open(path, "wb") as file:
        file.write(content)


class HeadlessTest(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = tempfile.mkdtemp(prefix="qelmo-test-").encode()
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        os.chmod(self.folder, 0o755)
        self.app = self.install(b"QELMO Varnox Flasher.app")

    def install(self, name: bytes) -> Installation:
        return Installation(self.folder + b"/" + name, self.folder + b"/home")

    def assert_passes(self, result: subprocess.CompletedProcess, report: bytes) -> None:
        self.assertEqual((result.stdout, result.stderr, result.returncode), (report, b"", 0))

    def assert_fails(self, message: str | bytes, result: subprocess.CompletedProcess | None = None) -> None:
        result = result or self.app.run("--self-test")
        text = message.encode() if isinstance(message, str) else message
        self.assertEqual((result.stdout or b"", result.stderr, result.returncode),
                         (b"", b"self-test failed: " + text + b"\n", 1))

    def assert_windowed_start(self, result: subprocess.CompletedProcess) -> None:
        """Here the bundle has no window library, so the windowed start says one sentence and fails."""
        self.assertEqual((result.stdout, result.returncode), (b"", 1))
        self.assertTrue(result.stderr.startswith(b"The window cannot be opened: "), result.stderr)
        self.assertEqual(result.stderr.count(b"\n"), 1)
        self.assertTrue(result.stderr.endswith(b"\n"))
        self.assertNotIn(b"self-test failed", result.stderr)


class Report(HeadlessTest):
    def test_has_exactly_nine_lines_and_nothing_goes_to_standard_error(self):
        result = self.app.run("--self-test")
        self.assert_passes(result, self.app.report())
        self.assertEqual(result.stdout.count(b"\n"), 9)

    def test_is_written_line_by_line(self):
        reading, writing = socket.socketpair(socket.AF_UNIX, socket.SOCK_DGRAM)  # keeps each write apart
        with reading, writing:
            self.assertEqual(self.app.run("--self-test", stdout=writing).returncode, 0)
            reading.setblocking(False)
            writes = [reading.recv(4096) for _ in range(9)]
            self.assertRaises(BlockingIOError, reading.recv, 1)
        self.assertEqual(writes, self.app.report().splitlines(keepends=True))

    @unittest.skipUnless(sys.platform == "linux", "the language is made for Linux")
    def test_shows_its_numbers_the_same_in_a_language_that_groups_digits(self):
        german = {"LOCPATH": os.environ["QELMO_BUILD"] + "/tests/locale", "LC_ALL": "de_DE.UTF-8"}
        printed = subprocess.run(["/usr/bin/printf", "%'d", "65537"], env=german, capture_output=True, text=True,
                                 timeout=LIMIT_SECONDS, check=True)
        self.assertEqual(printed.stdout, "65.537", "the package locales is missing")
        with unittest.mock.patch.dict(os.environ, german):
            self.assert_passes(self.app.run("--self-test"), self.app.report())

    def test_says_nothing_after_release_when_the_version_is_empty(self):
        self.app.manifest["version"] = ""
        self.app.write_manifest()
        self.assert_passes(self.app.run("--self-test"), self.app.report(release=""))

    def test_inserts_values_as_they_are(self):
        self.app.manifest["version"] = " 1=2 €\t"
        self.app.manifest["flash"]["confirmationText"] = ""
        self.app.write_manifest()
        self.assert_passes(self.app.run("--self-test"),
                           self.app.report(release=" 1=2 €\t", button="FLASH VERIFIED "))

    def test_says_unknown_for_a_tool_that_prints_nothing(self):
        self.app.set_tool("pass")
        self.assert_passes(self.app.run("--self-test"), self.app.report(esptool="unknown"))

    def test_holds_the_computed_digest_in_lower_case(self):
        self.app.manifest["binary"]["sha256"] = self.app.digest.upper()
        self.app.write_manifest()
        self.assert_passes(self.app.run("--self-test"), self.app.report())


class Selection(HeadlessTest):
    def test_takes_the_argument_in_any_position(self):
        for arguments in (["--self-test"], ["x", "", "--self-test"], ["--self-test", "--verbose"],
                          ["--", "--self-test"], ["--self-test", "--self-test"]):
            with self.subTest(arguments):
                self.assert_passes(self.app.run(*arguments), self.app.report())

    def test_takes_the_program_path_for_an_argument_too(self):
        result = self.app.run(program="--self-test", executable=self.app.executable)
        self.assert_passes(result, self.app.report())

    def test_runs_headless_when_both_options_are_given(self):
        for arguments in (["--self-test", "--window-self-test"], ["--window-self-test", "--self-test"]):
            with self.subTest(arguments):
                self.assert_passes(self.app.run(*arguments), self.app.report())

    def test_is_not_chosen_by_a_near_miss(self):
        for argument in ("--self-test=1", "--self-tes", "--self-test ", "--SELF-TEST", "-self-test",
                         "---self-test", "self-test", "--window-self-test"):
            with self.subTest(argument):
                self.assert_windowed_start(self.app.run(argument))

    def test_is_not_chosen_without_arguments(self):
        self.assert_windowed_start(self.app.run())


class Failure(HeadlessTest):
    def test_of_the_icon_comes_before_the_manifest_is_read(self):
        os.remove(self.app.icon)
        write(self.app.manifest_file, b"not JSON")
        self.app.set_tool(f"open({os.fsdecode(self.folder)!r} + '/ran', 'w')")
        self.assert_fails("AppIcon.icns is missing from the application bundle")
        self.assertFalse(os.path.exists(self.folder + b"/ran"))

    # fault: the bundle has no icon
    # seen: "AppIcon.icns is missing from the application bundle"
    def test_of_the_icon_alone(self):
        os.remove(self.app.icon)
        self.assert_fails("AppIcon.icns is missing from the application bundle")

    # fault: the manifest is missing
    # seen: "The embedded flash manifest is missing."
    def test_of_a_missing_manifest(self):
        os.remove(self.app.manifest_file)
        self.assert_fails("The embedded flash manifest is missing.")

    # fault: a value of the manifest is wrong
    # seen: "self-test failed:"
    def test_of_each_value_of_the_manifest(self):
        for record, key, value, message in (
                (None, "schemaVersion", 2, "The embedded flash manifest version is unsupported."),
                (None, "chipFamily", "esp32-s3", "This release is not locked to ESP32-S3."),
                ("binary", "offset", 1, "The complete firmware must flash at address 0x0."),
                ("flash", "flashSize", "8mb", "The embedded flash geometry is not Cardputer ADV safe."),
                ("flash", "flashMode", "DIO", "The embedded flash geometry is not Cardputer ADV safe."),
                ("binary", "size", 1, "The embedded firmware size does not match its manifest."),
                ("binary", "sha256", "00", "The embedded firmware checksum is not trusted."),
                ("flash", "baud", "921600", "flash.baud: expected an integer, found a string")):
            with self.subTest(key):
                fields = self.app.manifest[record] if record else self.app.manifest
                before, fields[key] = fields[key], value
                self.app.write_manifest()
                self.assert_fails(message)
                fields[key] = before

    # fault: the manifest is not JSON
    # seen: "self-test failed: The flash manifest is not valid JSON:"
    def test_of_a_manifest_that_is_not_json_in_one_line(self):
        write(self.app.manifest_file, b"{\n")
        result = self.app.run("--self-test")
        self.assertEqual((result.stdout, result.returncode), (b"", 1))
        self.assertTrue(result.stderr.startswith(b"self-test failed: The flash manifest is not valid JSON: "))
        self.assertEqual(result.stderr.count(b"\n"), 1)

    # fault: the image is missing
    # seen: "No such file or directory"
    def test_of_a_missing_image(self):
        os.remove(self.app.image)
        self.assert_fails(b"open " + self.app.image + b": No such file or directory")

    # fault: the image is not complete
    # seen: "The embedded file is not a complete QELMO firmware image."
    def test_of_an_incomplete_image(self):
        image = bytes(65537)
        write(self.app.image, image)
        self.app.manifest["binary"]["sha256"] = hashlib.sha256(image).hexdigest()
        self.app.write_manifest()
        self.assert_fails("The embedded file is not a complete QELMO firmware image.")

    # fault: the tool is missing
    # seen: "The local Espressif tool is missing. Run BUILD-FULL-MAC.command once."
    def test_of_a_missing_tool(self):
        os.remove(self.app.tool)
        self.assert_fails("The local Espressif tool is missing. Run BUILD-FULL-MAC.command once.")

    # fault: the tool fails
    # seen: "Espressif tool check failed:"
    def test_of_the_tool_shows_its_raw_output(self):
        self.app.set_tool("import sys; print('no module'); sys.exit(1)")
        self.assert_fails("Espressif tool check failed: no module\n")

    # fault: the tool fails without a word
    # seen: "Espressif tool check failed:"
    def test_of_a_silent_tool_ends_behind_the_blank(self):
        self.app.set_tool("import sys; sys.exit(1)")
        self.assert_fails("Espressif tool check failed: ")

    # fault: the interpreter may not be executed
    # seen: "start /usr/bin/python3: Permission denied"
    def test_of_an_interpreter_that_cannot_be_started(self):
        result = self.app.run("--without-interpreter", "--", self.app.executable, "--self-test",
                              program=PRIVATE_DEV)
        if result.returncode == CANNOT_RUN_HERE:
            self.skipTest(result.stderr.decode())
        self.assert_fails("start /usr/bin/python3: Permission denied", result)

    # fault: the tool fails and prints bytes that are no text
    def test_of_a_tool_with_other_bytes_shows_replacement_characters_and_every_nul(self):
        self.app.set_tool("import os; os.write(1, b'a\\0b\\xff'); os._exit(1)")
        self.assert_fails("Espressif tool check failed: a\0b\ufffd")


class Place(HeadlessTest):
    def test_may_be_reached_through_a_symbolic_link(self):
        link = self.folder + b"/link"
        os.symlink(self.app.executable, link)
        self.assert_passes(self.app.run("--self-test", program=link), self.app.report())

    def test_may_have_any_path(self):
        for name in (b"my  app.app", "übung €.app".encode(), b"bytes \xff\xfe.app", b"line\nbreak.app",
                         b"plain"):
            with self.subTest(name):
                app = self.install(name)
                self.assert_passes(app.run("--self-test"), app.report())

    def test_is_found_from_a_relative_path(self):
        result = self.app.run("--self-test", program=b"./QelmoFlasher",
                              cwd=os.path.dirname(self.app.executable))
        self.assert_passes(result, self.app.report())

    # fault: the bundle has no window library
    # seen: "The window cannot be opened:"
    def test_without_a_window_library_is_named_in_one_sentence_whatever_its_path(self):
        self.assert_windowed_start(self.install("übung  €.app".encode()).run())

    # fault: nothing of the bundle and the home folder may be written
    def test_may_be_read_only(self):
        for folder, _, files in os.walk(self.folder):
            for name in files:
                path = os.path.join(folder, name)
                os.chmod(path, 0o555 if path == self.app.executable else 0o444)
            os.chmod(folder, 0o555)
        self.addCleanup(lambda: [os.chmod(folder, 0o755) for folder, _, _ in os.walk(self.folder)])
        user = {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.geteuid() == 0 else {}
        self.assert_passes(self.app.run("--self-test", **user), self.app.report())


class Streams(HeadlessTest):
    def closed(self, redirection: str) -> subprocess.CompletedProcess:
        return self.app.run("-c", f'exec "$0" --self-test {redirection}', self.app.executable,
                            program="/bin/sh")

    # fault: standard output is full
    # seen: "write standard output: No space left on device"
    def test_that_are_full_make_the_self_test_fail_in_one_sentence(self):
        with open("/dev/full", "wb") as full:
            self.assert_fails("write standard output: No space left on device",
                              self.app.run("--self-test", stdout=full))

    # fault: standard output is closed
    # seen: "write standard output: Bad file descriptor"
    def test_that_are_closed_make_the_self_test_fail_in_one_sentence(self):
        self.assert_fails("write standard output: Bad file descriptor", self.closed(">&-"))

    # fault: nobody reads standard output
    # seen: "write standard output: Broken pipe"
    def test_that_nobody_reads_make_the_self_test_fail_in_one_sentence(self):
        reading, writing = os.pipe()
        os.close(reading)
        result = self.app.run("--self-test", stdout=writing)
        os.close(writing)
        self.assert_fails("write standard output: Broken pipe", result)

    # fault: standard input and standard error are closed
    def test_for_input_and_errors_are_not_needed(self):
        self.assert_passes(self.closed("<&- 2>&-"), self.app.report())

    # fault: standard error is closed when the self-test fails
    def test_for_errors_are_not_needed_to_fail(self):
        os.remove(self.app.icon)
        self.assertEqual(self.closed("2>&-").returncode, 1)


class Children(HeadlessTest):
    # fault: the parent ignores the end of its children
    def test_are_reported_even_when_their_end_was_ignored_by_the_parent(self):
        ignored = {"preexec_fn": lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN)}
        self.assert_passes(self.app.run("--self-test", **ignored), self.app.report())
        self.app.set_tool("import sys; print('broken'); sys.exit(1)")
        self.assert_fails("Espressif tool check failed: broken\n", self.app.run("--self-test", **ignored))


if __name__ == "__main__":
    assert stat.S_IXUSR & EXECUTABLE.stat().st_mode, EXECUTABLE
    unittest.main()
