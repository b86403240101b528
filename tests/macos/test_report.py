#!/usr/bin/python3
"""tools/macos/report as a whole, with stand-ins for what only a Mac has: each fact, each way that one fails or hangs,
and nothing personal in the file."""

from __future__ import annotations

import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
import unittest
import zipfile
from pathlib import Path
from unittest import mock

import mac
import test_build_full_mac as build_command
from mac import BUNDLE, ROOT, SCRIPT, SECONDS, executable
from test_build_full_mac import BUILT, BUILT_BUNDLE

OURS = ("tools/macos/report", "tools/macos/redact.awk")
PLAIN_TOOLS = ("awk", "cut", "date", "dd", "env", "find", "head", "od", "sleep", "tr")  # besides those of the build command

SECTIONS = ["System", "Compilers", "Homebrew and Qt", SCRIPT, "Tests", "Self-tests", "Bundle", "Python and the tool",
            "Pictures"]
EXAMINED = ["the program", "the window library", "QtCore", "the cocoa plugin"]
FACTS = ["macOS", "Kernel", "Rosetta", "Processor", "Command line tools", "Compiler found", "Compiler", "SDK", "Commit",
         "Homebrew", "Homebrew prefix", "Qt", "CMake", "Build command", "Application", "Tests configured",
         "Tests compiled", "Tests", "Self-test", "Window self-test", "Window self-test's file",
         "Self-test without the tool", "Self-test with a changed image", "Signature", "Signature verified",
         *(f"{what} of {name}" for name in EXAMINED for what in ("Minimum system", "Build versions", "Libraries")),
         "Python", "Module pyserial", "Module intelhex", "esptool",
         "Picture ready", "Picture changed image", "Picture without the tool"]
FILES = ["changed-image.png", "ready.png", "report.txt", "without-tool.png"]

# None of them holds another one, so each has to be replaced by itself.
USER, FULL_NAME, HOST, COMPUTER = "dgale", "Dorothea Öl-Mann", "emerald-city.example.org", "Toto’s Notebook"
LOCAL_NAME = "Totos-Notebook-2"
SERIAL, HARDWARE_ID = "C02XK1ZZJG5H", "6F1B3A5E-0000-1111-2222-333344445555"

LEAK = '[ -z "$LEAK" ] || echo "$LEAK"'

# What the stand-ins do when the test asks for it in FAILING, each on its own.
STAND_INS = {
    "sw_vers": r"[ $# = 0 ] || { echo 26.1; exit; }; printf 'ProductName:\t\tmacOS\nProductVersion:\t\t26.1\nBuildVersion:\t\t25B78\n'",
    "uname": """
case $1 in
    -s) echo Darwin ;;
    -m) echo arm64 ;;
    *) echo 'Darwin 25.1.0 Darwin Kernel Version 25.1.0 arm64' ;;
esac""",
    "sysctl": """
case $2 in
    sysctl.proc_translated) echo 0 ;;
    *) echo 'Apple M2' ;;
esac""",
    "xcrun": 'case $1 in --find) echo /usr/bin/clang++ ;; *) echo 26.0 ;; esac',
    "clang++": "echo 'Apple clang version 17.0.0 (clang-1700.4.4.1)'",
    "git": "echo 0123456789abcdef",
    "brew": """
case $1 in
    --version) echo 'Homebrew 6.0.1' ;;
    --prefix) echo "$BREW" ;;
    list) echo 'qtbase 6.11.2' ;;
esac""",
    "cmake": """
case "$FAILING $1" in
    *" --version") echo 'cmake version 4.3.4' ;;
    "configure "*) echo 'CMake Error: Could NOT find GTest'; exit 1 ;;
    "compile --build") echo 'error: this test does not compile'; exit 1 ;;
    *) echo '[2/2] Linking' ;;
esac""",
    "ctest": r"""
[ "$FAILING" != ctest ] || {
    printf '98%% tests passed, 1 tests failed out of 50\n\t 48 - ui_tests (Skipped)\n\t  7 - Sha256.Vectors (Failed)\n'
    exit 8
}
echo '100% tests passed, 0 tests failed out of 50'""",
    "codesign": """
[ "$FAILING" != verify ] || [ "$1" = -dv ] || { echo 'a sealed resource is missing or invalid'; exit 1; }
case $1 in -dv) echo 'Signature=adhoc' ;; *) echo 'valid on disk' ;; esac""",
    "otool": r"""
case $1 in
    -l) printf 'cmd LC_BUILD_VERSION\n minos 14.0\n   sdk 26.0\n' ;;
    *) printf '%s:\n\t@rpath/QtCore (compatibility)\n\t/usr/lib/libSystem.B.dylib (compatibility)\n' "$2" ;;
esac""",
    "vtool": r"printf ' platform MACOS\n    minos 14.0\n      sdk 26.0\n'",
    "osascript": '[ "$FAILING" = window ] || echo 4711',
    "screencapture": """
[ "$FAILING" != screencapture ] || { echo 'could not create image from window'; exit 1; }
echo picture >"$5" """,
    "id": """[ "$1" = -F ] && echo "$FULL_NAME" || echo "$USER_NAME" """,
    "hostname": 'echo "$HOST"',
    "scutil": """
case $2 in
    ComputerName) echo "$COMPUTER" ;;
    LocalHostName) echo "$LOCAL_NAME" ;;
    *) echo "$2: not set"; exit 1 ;;
esac""",
    "ioreg": r"""
printf '    "IOPlatformSerialNumber" = "%s"\n    "IOPlatformUUID" = "%s"\n' "$SERIAL" "$HARDWARE_ID" """,
    "zip": """
[ "$FAILING" != zip ] || { echo 'zip I/O error: No space left on device' >&2; exit 14; }
[ "$1 $2 $3 $4" = "-q -r -D -X" ] && exec /usr/bin/python3 -m zipfile -c "$5" *""",
    # A limit is reached as soon as a command says that it hangs; for a second the tests do not wait.
    "sleep": """
case $1 in
    30 | 90 | 5400)
        until [ -e "$HANGING" ]; do "$PLAIN/sleep" 0.1; done
        rm "$HANGING" ;;
    *) "$PLAIN/sleep" 0.1 ;;
esac""",
}

BUILD_COMMAND = f"""#!/bin/sh
echo "{SCRIPT} $*" >>"$CALLS"
mkdir -p build/macos/tree
cd "${{0%/*}}"
echo "macOS: ok, 26.1"
[ "$FAILING" != build ] || {{ echo 'Homebrew packages: failed, missing: qtbase'; exit 1; }}
echo "the compiler was here, in $HOME/.cache, ${{0%/*}} and $LEAK" >build/macos/build.log
case $FAILING in
    sign) cp -R "$PRODUCT/{BUNDLE}" build/macos/tree; echo "Build: ok, $PWD/build/macos/tree"
        echo 'Signature: failed, detritus not allowed'; exit 1 ;;
esac
rm -rf 'build/macos/{BUNDLE}'
cp -R "$PRODUCT/{BUNDLE}" build/macos
echo "Qt in the bundle: ok, nothing is taken from outside"
echo "Application: ok, $PWD/build/macos/{BUNDLE}"
"""

PROGRAM = """#!/bin/sh
echo "program $* HOME=$HOME" >>"$CALLS"
[ -z "$LEAK" ] || echo "$LEAK"
refuse() {
    [ "$FAILING" != abort ] || kill -ABRT $$
    [ "$FAILING" != kill ] || kill -KILL $$
    [ "$FAILING" != accept ] || { echo 'release=1.2.3'; exit 0; }
    echo "self-test failed: $1" >&2
    exit 1
}
case "$FAILING $1" in
    'hang --self-test') : >"$HANGING"; exec "$PLAIN/sleep" 1000 ;;
    'deaf --self-test') trap '' TERM; : >"$HANGING"; while :; do "$PLAIN/sleep" 1; done ;;
    'child --self-test') "$PLAIN/sleep" 1000 & ;;
    'wait --self-test') echo waiting >>"$CALLS"; exec "$PLAIN/sleep" 1000 ;;
esac
case $1 in
    --self-test)
        [ -e "$HOME/.platformio" ] || refuse 'there is no tool'
        case $(cat "${0%/MacOS/*}/Resources/sample.bin") in *[!x]*) refuse 'the digest is wrong' ;; esac
        printf 'release=1.2.3\\nesptool=4.5.1\\n' ;;
    --window-self-test)
        mkdir -p "$SYSTEM/tmp"
        echo window_self_test=OK | tee "$SYSTEM/tmp/qelmo-flasher-window-self-test.txt" ;;
    *) exec "$PLAIN/sleep" 1000 ;;
esac
"""


class Mac(mac.Mac):
    """The Mac of the build command's tests, with what the report asks it besides."""

    def furnish(self) -> None:
        super().furnish()
        for tool in (*PLAIN_TOOLS, "tee"):
            (self.folder / "plain" / tool).symlink_to(shutil.which(tool) or tool)
        for name in OURS:
            (self.checkout / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / name, self.checkout / name)
        executable(self.checkout / SCRIPT, BUILD_COMMAND)
        for name, body in STAND_INS.items():
            self.stand_in(name, body)
        executable(self.homebrew / "opt/qtbase/bin/qtpaths", "#!/bin/sh\necho 6.11.2\n")
        executable(self.system / "usr/bin/python3", f'#!/bin/sh\n{LEAK}\nexec /usr/bin/python3 "$@"\n')
        (self.folder / "temporary").mkdir()
        (self.folder / "runtime").mkdir(mode=0o700)
        self.result = self.work / "qelmo-report.zip"
        self.environment |= {
            "TMPDIR": f"{self.folder}/temporary/", "XDG_RUNTIME_DIR": f"{self.folder}/runtime",
            "HANGING": str(self.folder / "hanging"), "SYSTEM": str(self.system), "PLAIN": str(self.folder / "plain"),
            "USER_NAME": USER, "FULL_NAME": FULL_NAME, "HOST": HOST, "COMPUTER": COMPUTER,
            "LOCAL_NAME": LOCAL_NAME, "SERIAL": SERIAL, "HARDWARE_ID": HARDWARE_ID, "LEAK": ""}

    def set_product(self) -> None:
        contents = self.product / BUNDLE / "Contents"
        executable(contents / "MacOS/QelmoFlasher", PROGRAM)
        for library in ("Frameworks/libQelmoWindow.dylib", "Frameworks/QtCore.framework/Versions/A/QtCore",
                        "PlugIns/platforms/libqcocoa.dylib"):
            executable(contents / library, "a library")
        (contents / "Resources").mkdir()
        (contents / "Resources/sample.bin").write_text("x" * 200)

    def stand_in(self, name: str, body: str) -> None:
        """In all but those that tell the report what is personal, LEAK comes first."""
        tells = name in ("id", "hostname", "scutil", "ioreg", "uname", "sleep", "zip", "osascript")
        super().stand_in(name, body if tells else f"{LEAK}\n{body}")

    def command(self) -> list[str]:
        return [str(self.checkout / "tools/macos/report"), "--system-root", str(self.system)]

    def report(self, failing: str = "") -> subprocess.CompletedProcess[str]:
        return subprocess.run(self.command(), env={**self.environment, "FAILING": failing}, cwd=self.checkout,
                              text=True, errors="replace", capture_output=True, timeout=SECONDS,
                              stdin=subprocess.DEVNULL)

    def text(self) -> str:
        with zipfile.ZipFile(self.result) as file:
            return file.read("report.txt").decode(errors="replace")

    def processes(self) -> list[str]:
        """Those that the report's commands left behind."""
        commands = [path.read_bytes() for path in Path("/proc").glob("[0-9]*/cmdline") if path.exists()]
        return [command.decode(errors="replace") for command in commands if os.fsencode(self.folder) in command]


class OnAMac(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="qelmo mac ")
        self.addCleanup(folder.cleanup)
        self.mac = Mac(Path(folder.name).resolve())

    def facts(self, failing: str = "") -> dict[str, str]:
        """Runs it to its end. The file's summary names each fact once, and the terminal showed the same."""
        done = self.mac.report(failing)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
        summary = self.mac.text().split("\n\n")[1].splitlines()
        facts = dict(line.split(": ", 1) for line in summary)
        self.assertEqual(len(facts), len(summary))
        shown = [line.split(": ")[0] for line in done.stdout.splitlines() if re.match(r"[^:]+: (ok|failed|not tried), ",
                                                                                      line)]
        self.assertEqual(shown, list(facts))
        self.assert_nothing_is_left()
        return facts

    def assert_nothing_is_left(self) -> None:
        self.assertEqual(list((self.mac.folder / "temporary").iterdir()), [])
        self.assertEqual(list(self.mac.work.glob("*unfinished*")), [])
        self.assertEqual(self.mac.processes(), [])

    def assert_all_but(self, facts: dict[str, str], **different: str) -> None:
        """Every fact is there, and only the named ones are not ok."""
        self.assertEqual(list(facts), FACTS)
        self.assertEqual({name: value for name, value in facts.items() if not value.startswith("ok, ")},
                         different)


class Facts(OnAMac):
    def test_each_has_its_line_and_each_section_its_text(self) -> None:
        facts = self.facts()
        self.assert_all_but(facts)
        for name, value in {
                "macOS": "macOS 26.1 25B78 ", "Rosetta": "no", "Processor": "Apple M2", "Qt": "6.11.2 in "
                f"{self.mac.homebrew}/opt/qtbase", "Tests": "100% tests passed, 0 tests failed out of 50",
                "Application": f"<checkout>/build/macos/{BUNDLE}", "Self-test": "release=1.2.3 esptool=4.5.1",
                "Window self-test's file": "window_self_test=OK", "Signature": "Signature=adhoc",
                "Self-test without the tool": "self-test failed: there is no tool",
                "Self-test with a changed image": "self-test failed: the digest is wrong",
                "Minimum system of QtCore": "14.0", "Build versions of QtCore": "platform MACOS minos 14.0 sdk 26.0 ",
                "Libraries of the cocoa plugin": "@rpath/QtCore /usr/lib/libSystem.B.dylib ",
                "Picture ready": "ready.png"}.items():
            with self.subTest(name):
                self.assertEqual(facts[name], f"ok, {value}")
        self.assertEqual(re.findall(r"^==== (.*) ====$", self.mac.text(), re.MULTILINE), SECTIONS)
        self.assertIn("the compiler was here", self.mac.text())

    def test_the_file_holds_the_text_and_the_three_pictures_of_its_own_window(self) -> None:
        self.facts()
        with zipfile.ZipFile(self.mac.result) as file:
            self.assertEqual(sorted(file.namelist()), FILES)
        captured = [call for call in self.mac.called() if call.startswith("screencapture")]
        self.assertEqual([re.sub(r" [^ ]*/[^/]*$", "", call.replace(str(self.mac.folder), "")) for call in captured],
                         ["screencapture -x -o -l 4711"] * 3)

    def test_it_says_first_what_it_does_and_where_the_file_will_be(self) -> None:
        introduction = self.mac.report().stdout.split("macOS: ")[0]
        for what in (str(self.mac.result), "BUILD-FULL-MAC.command", "is not sent anywhere", "opens no serial port",
                     "your names, this Mac's names and its serial number are replaced", "Control-C"):
            self.assertIn(what, introduction)

    def test_the_program_is_never_asked_for_anything_but_the_self_tests_and_its_window(self) -> None:
        self.facts()
        asked = [re.sub(" HOME=.*", "", call) for call in self.mac.called() if call.startswith("program")]
        self.assertEqual(asked, ["program --self-test", "program --window-self-test", "program --self-test",
                                 "program --self-test", "program ", "program ", "program "])


class Failing(OnAMac):
    def test_each_command_alone_and_the_others_are_still_asked(self) -> None:
        library = str(self.mac.home / ".platformio/packages/tool-esptoolpy")
        for failing, different in {
                "configure": {
                    "Tests configured": "failed, status 1: CMake Error: Could NOT find GTest",
                    "Tests compiled": 'not tried, they are not configured; "brew install googletest" may help',
                    "Tests": 'not tried, they are not configured; "brew install googletest" may help'},
                "compile": {"Tests compiled": "failed, status 1: error: this test does not compile"},
                "ctest": {"Tests": "failed, status 8: 98% tests passed, 1 tests failed out of 50: Sha256.Vectors"},
                "verify": {"Signature verified": "failed, status 1: a sealed resource is missing or invalid"},
                "window": dict.fromkeys(("Picture ready", "Picture changed image", "Picture without the tool"),
                                        "failed, status 1: no window appeared"),
                "screencapture": dict.fromkeys(
                    ("Picture ready", "Picture changed image", "Picture without the tool"),
                    "failed, status 1: no picture was taken: see System Settings, Privacy & Security, Screen "
                    "Recording")}.items():
            with self.subTest(failing):
                self.assert_all_but(self.facts(failing), **different)
        shutil.rmtree(library)
        with self.subTest("no tool"):
            self.assertRegex(self.facts()["esptool"], "^failed, status 2: .*No such file")

    def test_bytes_that_are_no_text_do_no_harm(self) -> None:
        self.mac.stand_in("clang++", r"printf 'Apple \000\002clang\377, not the last line\nlast'")
        facts = self.facts("build")
        self.assertEqual(facts["Compiler"], "ok, Apple clang\N{REPLACEMENT CHARACTER}, not the last line")
        self.assertIn("\nlast\n-> status 0\n", self.mac.text())

    def test_a_build_that_fails_early_leaves_no_application_to_look_at_not_even_an_older_one(self) -> None:
        shutil.copytree(self.mac.product / BUNDLE, self.mac.app)
        (self.mac.work / "build.log").write_text("of an earlier run")
        facts = self.facts("build")
        self.assertEqual(facts["Build command"], "failed, status 1: Homebrew packages: failed, missing: qtbase")
        self.assertEqual(facts["Application"], "failed, the build left none; an older one is not looked at")
        for name in ("Self-test", "Self-test with a changed image", "Picture ready"):
            self.assertEqual(facts[name], "not tried, there is no application")
        self.assertEqual(facts["esptool"], "ok, 4.5.1")
        self.assertNotIn("of an earlier run", self.mac.text())
        self.assertFalse([call for call in self.mac.called() if call.startswith("program")])
        self.assertEqual(re.findall(r"^==== (.*) ====$", self.mac.text(), re.MULTILINE), SECTIONS)

    def test_a_build_that_fails_after_the_compiler_leaves_one_that_is_looked_at(self) -> None:
        self.assert_all_but(self.facts("sign"), **{
            "Build command": "failed, status 1: Signature: failed, detritus not allowed"})

    def test_exceptions_that_end_the_program_are_called_out(self) -> None:
        ended = "failed, exceptions end the program: status 134, which is signal 6"
        self.assert_all_but(self.facts("abort"), **{"Self-test without the tool": ended,
                                                    "Self-test with a changed image": ended})

    def test_a_program_that_the_system_kills_is_no_fault_of_exceptions(self) -> None:
        self.assertEqual(self.facts("kill")["Self-test with a changed image"],
                         "failed, the system killed the program, perhaps for its signature: status 137, which is "
                         "signal 9")

    def test_a_self_test_that_ought_to_be_refused_and_is_not_is_a_failure(self) -> None:
        facts = self.facts("accept")
        self.assertEqual(facts["Self-test with a changed image"],
                         "failed, it was not refused: status 0, release=1.2.3")

    def test_without_the_command_line_tools_nothing_is_touched_that_opens_their_dialogue(self) -> None:
        executable(self.mac.system / "usr/bin/xcode-select", "#!/bin/sh\necho 'xcode-select: error' >&2\nexit 2\n")
        executable(self.mac.system / "usr/bin/python3", '#!/bin/sh\necho touched >>"$CALLS"\n')
        facts = self.facts("build")
        self.assertEqual(facts["Command line tools"], "failed, status 2: xcode-select: error")
        self.assertEqual(facts["Python"], "not tried, the command line tools bring Python")
        touched = {call.split(" ")[0] for call in self.mac.called()}
        self.assertEqual(touched & {"touched", "brew", "git", "clang++", "xcrun", "otool", "vtool", "ctest"}, set())

    # fault: a program that the report runs does not end
    # seen: "failed, cut off after 90 s"
    def test_a_program_that_hangs_is_cut_off_and_what_follows_is_still_asked(self) -> None:
        for failing in ("hang", "deaf"):
            with self.subTest(failing):
                facts = self.facts(failing)
                self.assertEqual(facts["Self-test"], "failed, cut off after 90 s: ")
                self.assertEqual(facts["Window self-test"], "ok, window_self_test=OK")
                self.assertEqual(facts["Picture ready"], "ok, ready.png")

    def test_what_a_command_leaves_running_ends_with_it(self) -> None:
        self.assert_all_but(self.facts("child"))

    # fault: the report's file cannot be written
    # seen: "report: the file cannot be written."
    def test_a_file_that_cannot_be_written_leaves_the_one_before(self) -> None:
        self.facts()
        before = self.mac.result.read_bytes()
        done = self.mac.report("zip")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr.splitlines()[-1], "report: the file cannot be written.")
        self.assertEqual(self.mac.result.read_bytes(), before)
        self.assert_nothing_is_left()

    def test_another_system_or_a_wrong_command_line_ends_it_at_once(self) -> None:
        done = subprocess.run([*self.mac.command(), "--fast"], env=self.mac.environment, capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stdout, done.stderr.splitlines()[0]),
                         (2, "", "report: --fast: unknown option"))
        self.mac.stand_in("uname", "echo Linux")
        done = self.mac.report()
        self.assertEqual((done.returncode, done.stdout, done.stderr),
                         (1, "", "report: this is no Mac; ./check is for this system.\n"))
        self.assertFalse(self.mac.work.exists())


class Interrupted(OnAMac):
    # fault: somebody ends the report before it is done
    # seen: "report: interrupted; no report was written."
    def test_it_leaves_no_process_and_no_file_and_says_where_the_build_is(self) -> None:
        self.mac.work.mkdir(parents=True)
        self.mac.result.write_text("of an earlier run")
        for sent, status in ((signal.SIGINT, 130), (signal.SIGTERM, 143), (signal.SIGHUP, 129)):
            with self.subTest(sent.name):
                said, ended = self.interrupt(sent)
                self.assertEqual(ended, status)
                self.assertIn("report: interrupted; no report was written.\n"
                              f"  What was built so far is in {self.mac.work}.\n"
                              f"  The log of the build is {self.mac.work}/build.log.\n"
                              f"  The report of an earlier run is still {self.mac.result}.\n", said)
                self.assertEqual(self.mac.result.read_text(), "of an earlier run")
                self.assertTrue(self.mac.app.exists())
                self.assert_nothing_is_left()

    def interrupt(self, sent: signal.Signals) -> tuple[str, int]:
        self.mac.calls.unlink(missing_ok=True)
        process = subprocess.Popen(self.mac.command(), env={**self.mac.environment, "FAILING": "wait"}, text=True,
                                   cwd=self.mac.checkout, stdout=subprocess.PIPE, stdin=subprocess.DEVNULL)
        deadline = time.monotonic() + SECONDS
        while "waiting" not in self.mac.called():
            self.assertIsNone(process.poll())
            self.assertLess(time.monotonic(), deadline, "the self-test was not reached")
            time.sleep(0.05)
        process.send_signal(sent)
        said, _ = process.communicate(timeout=SECONDS)
        return said, process.returncode


class Personal(OnAMac):
    """Each stand-in prints the text that the test sets; what becomes of it is read in the report."""

    def test_nothing_of_it_is_in_the_file(self) -> None:
        home, checkout = str(self.mac.home), str(self.mac.checkout)
        escaped = home.replace(" ", "\\ ")
        personal = [home, checkout, escaped, home.replace(" ", "%20"), "home of mine", USER, FULL_NAME, HOST,
                    HOST.split(".")[0], COMPUTER, LOCAL_NAME, SERIAL, HARDWARE_ID]
        self.mac.environment["LEAK"] = "; ".join([
            *personal, USER.capitalize(), HOST.upper(), f"-I{home}/include", f"file:///private{home}/x",
            f"{checkout}/a b/c.cpp:3:", f"{USER}@{HOST}", f"<{USER}>"])
        self.mac.report()
        text = self.mac.text()
        for secret in personal:
            self.assertNotIn(secret.lower(), text.lower())
        places = re.split(r"^==== .* ====$", text, flags=re.MULTILINE)
        for section, place in zip(SECTIONS, places[1:]):
            with self.subTest(section):
                self.assertIn("~; <checkout>; ~; ~; ", place)
                self.assertIn("; -I~/include; file://~/x; <checkout>/a b/c.cpp:3:; <user>@<host>; <<user>>", place)

    def report_of(self, leak: str, **environment: str) -> str:
        """What became of the text in the first command's output."""
        self.mac.environment |= {"LEAK": leak, **environment}
        self.mac.report("build")
        return re.findall(r"^\$ sw_vers\n(.*)$", self.mac.text(), re.MULTILINE)[0]

    def test_a_name_in_another_word_stays(self) -> None:
        self.assertEqual(self.report_of("annotation, channel, Ann, ann_x, /Users/ann/x, /Users/anna/y, ann's",
                                        USER_NAME="ann"),
                         "annotation, channel, <user>, ann_x, /Users/<user>/x, /Users/anna/y, <user>'s")

    def test_a_user_named_as_a_word_leaves_the_sentences(self) -> None:
        self.assertEqual(self.report_of("a sealed resource in /Users/a/x or /Users/a or /Users/ab is a/b",
                                        USER_NAME="a"),
                         "a sealed resource in /Users/<user>/x or /Users/<user> or /Users/ab is a/b")

    def test_a_user_named_as_a_fact_leaves_the_summary(self) -> None:
        self.mac.environment |= {"USER_NAME": "build"}
        self.assert_all_but(self.facts())

    def test_a_folder_that_only_begins_as_the_home_folder_does_stays(self) -> None:
        home = self.mac.home
        self.assertEqual(self.report_of(f"{home}2/x {home}-old {home}.bak {home}. {home}"),
                         f"{home}2/x {self.mac.folder}/<user>-old {self.mac.folder}/<user>.bak ~. ~")

    def test_the_name_that_apple_gives_every_mac_is_not_personal(self) -> None:
        leaves = "it runs on this Mac only"
        for host in ("Mac", "MacBook-Pro-2", "localhost"):
            with self.subTest(host):
                self.assertEqual(self.report_of(f"{leaves}, {host}, {host}.lan", HOST=f"{host}.lan", COMPUTER="Mac"),
                                 f"{leaves}, {host}, <host>")

    def test_a_name_at_the_end_of_a_long_value_is_not_cut_in_half(self) -> None:
        self.mac.stand_in("clang++", f"echo {'x' * 270} {USER}")
        self.assertIn("x <user>", self.facts("build")["Compiler"])
        self.mac.stand_in("clang++", f"echo {'x' * 283} {USER}")
        self.assertNotIn(USER[:2], self.facts("build")["Compiler"])


class WithTheRealPrograms(OnAMac):
    def test_the_build_command_and_the_application(self) -> None:
        """The real command with its own stand-ins, and the program of this build: it refuses what it must."""
        if not (BUILT_BUNDLE / "Contents/Frameworks/libQelmoWindow.so").exists():
            self.skipTest("this build has no window")
        shutil.rmtree(self.mac.product)
        shutil.copytree(BUILT_BUNDLE, self.mac.product / BUNDLE)
        (self.mac.product / "tools").mkdir()
        shutil.copy2(BUILT / "tools/pack-release", self.mac.product / "tools")
        shutil.copy(ROOT / SCRIPT, self.mac.checkout / SCRIPT)
        for name, body in mac.STAND_INS.items():
            if name not in ("uname", "sw_vers", "macdeployqt"):
                self.mac.stand_in(name, body)
        self.mac.environment["QT_QPA_PLATFORM"] = "offscreen"
        facts = self.facts()
        self.assertEqual(facts["Build command"], "ok, Qt in the bundle: ok, nothing is taken from outside, for macOS 14.0 and later")
        self.assertRegex(facts["Self-test"], "^ok, release=.+ esptool=4.5.1$")
        self.assertEqual(facts["Window self-test"], "ok, window_self_test=OK")
        self.assertEqual(facts["Self-test without the tool"], "ok, self-test failed: The local Espressif tool is "
                                                              "missing. Run BUILD-FULL-MAC.command once.")
        self.assertEqual(facts["Self-test with a changed image"],
                         "ok, self-test failed: The embedded firmware checksum is not trusted.")
        self.assertEqual(facts["Picture changed image"], "ok, changed-image.png")


class OldBash(build_command.OldBash):
    """The same check of another script."""

    def setUp(self) -> None:
        script = mock.patch.object(build_command, "SCRIPT", OURS[0])
        script.start()
        self.addCleanup(script.stop)


if __name__ == "__main__":
    unittest.main()
