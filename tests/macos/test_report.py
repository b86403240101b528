#!/usr/bin/python3
"""tools/macos/report as a whole, with stand-ins for what only a Mac has: each fact, each way that one fails or hangs,
and nothing personal in the file."""

from __future__ import annotations

import re
import shutil
import signal
import subprocess
import unittest
import zipfile

import mac
import mach_o_files
from mac import BUNDLE, ROOT, SCRIPT, executable, run
from support.waiting import LIMIT_SECONDS, wait_until

SECTIONS = ["System", "Compilers", "Homebrew and Qt", SCRIPT, "Tests", "Self-tests", "Bundle", "Python and the tool",
            "Pictures"]
PICTURES = ["Picture ready", "Picture changed image", "Picture without the tool"]
FILES = ["changed-image.png", "ready.png", "report.txt", "without-tool.png"]

# None of them holds another one, so each has to be replaced by itself.
USER, FULL_NAME, HOST, COMPUTER = "dgale", "Dorothea Öl-Mann", "emerald-city.example.org", "Toto’s Notebook"
LOCAL_NAME = "Totos-Notebook-2"
SERIAL, HARDWARE_ID = "C02XK1ZZJG5H", "6F1B3A5E-0000-1111-2222-333344445555"

LEAK = '[ -z "$LEAK" ] || echo "$LEAK"'

# Besides those of the build command. What they do when the test asks for it in FAILING, each does on its own.
STAND_INS = {
    "xcrun": 'case $1 in --find) echo /usr/bin/clang++ ;; *) echo 26.0 ;; esac',
    "clang++": "echo 'Apple clang version 17.0.0 (clang-1700.4.4.1)'",
    "git": "echo 0123456789abcdef",
    "ctest": r"""
[ "$FAILING" != ctest ] || {
    printf '98%% tests passed, 1 tests failed out of 50\n\t 48 - ui_tests (Skipped)\n\t  7 - Sha256.Vectors (Failed)\n'
    exit 8
}
echo '100% tests passed, 0 tests failed out of 50'""",
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
    "id": f"""[ "$1" = -F ] && echo '{FULL_NAME}' || echo "$USER_NAME" """,
    "hostname": 'echo "$HOST"',
    "scutil": f"""
case $2 in
    ComputerName) echo "$COMPUTER" ;;
    LocalHostName) echo {LOCAL_NAME} ;;
    *) echo "$2: not set"; exit 1 ;;
esac""",
    "ioreg": f"""echo ' "IOPlatformSerialNumber" = "{SERIAL}"'; echo ' "IOPlatformUUID" = "{HARDWARE_ID}"'""",
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
[ "$FAILING" != sign ] || {{
    cp -R "$PRODUCT/{BUNDLE}" build/macos/tree
    echo "Build: ok, $PWD/build/macos/tree"
    echo 'Signature: failed, detritus not allowed'
    exit 1
}}
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
        for name in ("report", "redact.awk"):
            shutil.copy(ROOT / "tools/macos" / name, self.checkout / "tools/macos")
        executable(self.checkout / SCRIPT, BUILD_COMMAND)
        for name, body in STAND_INS.items():
            self.stand_in(name, body)
        executable(self.homebrew / "opt/qtbase/bin/qtpaths", "#!/bin/sh\necho 6.11.2\n")
        executable(self.system / "usr/bin/python3", f'#!/bin/sh\n{LEAK}\nexec /usr/bin/python3 "$@"\n')
        self.result = self.work / "qelmo-report.zip"
        self.environment |= {
            "HANGING": str(self.folder / "hanging"), "SYSTEM": str(self.system), "PLAIN": str(self.folder / "plain"),
            "USER_NAME": USER, "HOST": HOST, "COMPUTER": COMPUTER, "LEAK": ""}
        self.command = [self.checkout / "tools/macos/report", "--system-root", self.system]

    def set_product(self) -> None:
        contents = self.product / BUNDLE / "Contents"
        mach_o_files.write_deployed_qt(contents)
        executable(contents / "MacOS/QelmoFlasher", PROGRAM)
        (contents / "Resources").mkdir()
        (contents / "Resources/sample.bin").write_text("x" * 200)

    def stand_in(self, name: str, body: str) -> None:
        """In all but those that tell the report what is personal, LEAK comes first."""
        tells = name in ("id", "hostname", "scutil", "ioreg", "uname", "sleep", "zip", "osascript")
        super().stand_in(name, body if tells else f"{LEAK}\n{body}")

    def report(self, failing: str = "") -> subprocess.CompletedProcess[str]:
        return run(*self.command, env={**self.environment, "FAILING": failing}, cwd=self.checkout, errors="replace")

    def text(self) -> str:
        with zipfile.ZipFile(self.result) as file:
            return file.read("report.txt").decode(errors="replace")

    def processes(self) -> str:
        """Those that the report's commands left behind."""
        return run("pgrep", "--list-full", "--full", self.folder).stdout


class OnAMac(mac.OnAMac):
    kind = Mac

    def facts(self, failing: str = "") -> dict[str, str]:
        """Runs it to its end. The file's summary names each fact once, and the terminal showed the same."""
        done = self.mac.report(failing)
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
        summary = self.mac.text().split("\n\n")[1].splitlines()
        facts = dict(line.split(": ", 1) for line in summary)
        self.assertEqual(re.findall("^([^:\n]+): (?:ok|failed|not tried), ", done.stdout, re.MULTILINE),
                         [line.split(": ", 1)[0] for line in summary])
        self.assert_nothing_is_left()
        return facts

    def assert_nothing_is_left(self) -> None:
        super().assert_nothing_is_left()
        self.assertEqual(list(self.mac.work.glob("*unfinished*")), [])
        self.assertEqual(self.mac.processes(), "")

    def assert_all_but(self, facts: dict[str, str], **different: str) -> None:
        """Only the named ones are not ok."""
        self.assertEqual({name: value for name, value in facts.items() if not value.startswith("ok, ")}, different)


class Facts(OnAMac):
    def test_each_has_its_line_and_each_section_its_text(self) -> None:
        facts = self.facts()
        self.assert_all_but(facts)
        self.assertEqual(len(facts), 44, "none is left out")
        self.assertEqual(facts, {
            **facts, "macOS": "ok, macOS 26.1 25B78 ", "Rosetta": "ok, no", "Processor": "ok, Apple M2",
            "Qt": f"ok, 6.11.2 in {self.mac.homebrew}/opt/qtbase",
            "Tests": "ok, 100% tests passed, 0 tests failed out of 50",
            "Application": f"ok, <checkout>/build/macos/{BUNDLE}", "Self-test": "ok, release=1.2.3 esptool=4.5.1",
            "Window self-test's file": "ok, window_self_test=OK", "Signature": "ok, Signature=adhoc",
            "Self-test without the tool": "ok, self-test failed: there is no tool",
            "Self-test with a changed image": "ok, self-test failed: the digest is wrong",
            "Minimum system of QtCore": "ok, 14.0",
            "Build versions of QtCore": "ok, platform MACOS minos 14.0 sdk 26.0 ",
            "Libraries of the cocoa plugin": "ok, @rpath/QtCore /usr/lib/libSystem.B.dylib ",
            "Picture ready": "ok, ready.png"})
        self.assertEqual(re.findall(r"^==== (.*) ====$", self.mac.text(), re.MULTILINE), SECTIONS)
        self.assertIn("the compiler was here", self.mac.text())
        with zipfile.ZipFile(self.mac.result) as file:
            self.assertEqual(sorted(file.namelist()), FILES)
        captured = [call.partition(" /")[0] for call in self.mac.called() if call.startswith("screencapture")]
        self.assertEqual(captured, ["screencapture -x -o -l 4711"] * 3, "of its own window and of nothing else")
        asked = [re.sub(" HOME=.*", "", call) for call in self.mac.called() if call.startswith("program")]
        self.assertEqual(asked, ["program --self-test", "program --window-self-test", "program --self-test",
                                 "program --self-test", "program ", "program ", "program "], "and never to flash")


NO_TESTS = 'not tried, they are not configured; "brew install googletest" may help'
NO_PICTURE = "failed, status 1: no picture was taken: see System Settings, Privacy & Security, Screen Recording"
EXCEPTIONS_END_IT = "failed, exceptions end the program: status 134, which is signal 6"
KILLED = "failed, the system killed the program, perhaps for its signature: status 137, which is signal 9"
CUT_OFF = "failed, cut off after 90 s: "
NOT_REFUSED = "failed, it was not refused: status 0, release=1.2.3"
REFUSED = ("Self-test without the tool", "Self-test with a changed image")

# What the stand-ins are asked for, and the facts that are then not ok. What comes after is still asked.
FAULTS = {
    "configure": {"Tests configured": "failed, status 1: CMake Error: this is why",
                  "Tests compiled": NO_TESTS, "Tests": NO_TESTS},
    "compile": {"Tests compiled": "failed, status 1: error: this is why"},
    "ctest": {"Tests": "failed, status 8: 98% tests passed, 1 tests failed out of 50: Sha256.Vectors"},
    "verify": {"Signature verified": "failed, status 1: a sealed resource is missing or invalid"},
    "window": dict.fromkeys(PICTURES, "failed, status 1: no window appeared"),
    "screencapture": dict.fromkeys(PICTURES, NO_PICTURE),
    # The build left an application, because the compiler was done.
    "sign": {"Build command": "failed, status 1: Signature: failed, detritus not allowed"},
    "abort": dict.fromkeys(REFUSED, EXCEPTIONS_END_IT), "kill": dict.fromkeys(REFUSED, KILLED),
    "accept": dict.fromkeys(REFUSED, NOT_REFUSED),
    "deaf": dict.fromkeys(("Self-test", *REFUSED), CUT_OFF),
    "child": {}}  # What a command leaves running ends with it.


class Failing(OnAMac):
    # fault: a program that the report runs fails, or does not end
    # seen: "failed, cut off after 90 s"
    def test_each_command_alone_and_what_follows_is_still_asked(self) -> None:
        for failing, different in FAULTS.items():
            with self.subTest(failing):
                self.assert_all_but(self.facts(failing), **different)

    def test_bytes_that_are_no_text_do_no_harm(self) -> None:
        self.mac.stand_in("clang++", r"printf 'Apple \000\002clang\377'")
        self.assertEqual(self.facts("build")["Compiler"], "ok, Apple clang\N{REPLACEMENT CHARACTER}")

    def test_a_build_that_fails_early_leaves_no_application_to_look_at_not_even_an_older_one(self) -> None:
        shutil.copytree(self.mac.product / BUNDLE, self.mac.app)
        (self.mac.work / "build.log").write_text("of an earlier run")
        facts = self.facts("build")
        self.assertEqual(facts["Build command"], "failed, status 1: Homebrew packages: failed, missing: qtbase")
        self.assertEqual(facts["Application"], "failed, the build left none; an older one is not looked at")
        for name in ("Self-test", "Self-test with a changed image", "Picture ready"):
            self.assertEqual(facts[name], "not tried, there is no application")
        self.assertNotIn("of an earlier run", self.mac.text())
        self.assertFalse([call for call in self.mac.called() if call.startswith("program")])

    def test_without_the_command_line_tools_nothing_is_touched_that_opens_their_dialogue(self) -> None:
        executable(self.mac.system / "usr/bin/xcode-select", "#!/bin/sh\necho 'xcode-select: error' >&2\nexit 2\n")
        executable(self.mac.system / "usr/bin/python3", '#!/bin/sh\necho touched >>"$CALLS"\n')
        facts = self.facts("build")
        self.assertEqual(facts["Command line tools"], "failed, status 2: xcode-select: error")
        self.assertEqual(facts["Python"], "not tried, the command line tools bring Python")
        touched = {call.split(" ")[0] for call in self.mac.called()}
        self.assertEqual(touched & {"touched", "brew", "git", "clang++", "xcrun", "otool", "vtool", "ctest"}, set())

    # fault: the report's file cannot be written
    # seen: "report: the file cannot be written."
    def test_a_file_that_cannot_be_written_leaves_the_one_before(self) -> None:
        self.mac.work.mkdir(parents=True)
        self.mac.result.write_text("of an earlier run")
        done = self.mac.report("zip")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr.splitlines()[-1], "report: the file cannot be written.")
        self.assertEqual(self.mac.result.read_text(), "of an earlier run")
        self.assert_nothing_is_left()

    def test_another_system_or_a_wrong_command_line_ends_it_at_once(self) -> None:
        done = run(*self.mac.command, "--fast", env=self.mac.environment)
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
        process = subprocess.Popen(self.mac.command, env={**self.mac.environment, "FAILING": "wait"}, text=True,
                                   cwd=self.mac.checkout, stdout=subprocess.PIPE, stdin=subprocess.DEVNULL)
        wait_until(lambda: "waiting" in self.mac.called(), "the self-test")
        process.send_signal(sent)
        said, _ = process.communicate(timeout=LIMIT_SECONDS)
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

    def test_only_whole_names_are_and_ordinary_words_stay(self) -> None:
        home, folder, leaves = self.mac.home, self.mac.folder, "it runs on this Mac only"
        for names, printed, reported in (
                ({"USER_NAME": "ann"}, "annotation, channel, Ann, ann_x, /Users/ann/x, /Users/anna/y, ann's",
                 "annotation, channel, <user>, ann_x, /Users/<user>/x, /Users/anna/y, <user>'s"),
                # A short name is a word as well.
                ({"USER_NAME": "a"}, "a sealed resource in /Users/a/x or /Users/a or /Users/ab is a/b",
                 "a sealed resource in /Users/<user>/x or /Users/<user> or /Users/ab is a/b"),
                ({}, f"{home}2/x {home}-old {home}.bak {home}. {home}",
                 f"{home}2/x {folder}/<user>-old {folder}/<user>.bak ~. ~"),
                # Apple's name for a Mac that has none of its own.
                *(({"HOST": f"{host}.lan", "COMPUTER": "Mac"}, f"{leaves}, {host}, {host}.lan",
                   f"{leaves}, {host}, <host>") for host in ("Mac", "MacBook-Pro-2", "localhost"))):
            with self.subTest(printed):
                self.mac.environment |= {"USER_NAME": USER, "LEAK": printed, **names}
                self.mac.report("build")
                self.assertIn(f"$ sw_vers\n{reported}\n", self.mac.text())

    def test_the_summary_keeps_its_own_words_and_no_half_of_a_name(self) -> None:
        self.mac.environment |= {"USER_NAME": "build"}
        self.mac.stand_in("clang++", f"echo {'x' * 281} build")
        facts = self.facts()
        self.assert_all_but(facts)
        self.assertRegex(facts["Compiler"], "xxx <use$")


class WithTheRealPrograms(OnAMac):
    def test_the_build_command_and_the_application(self) -> None:
        """The real command with its own stand-ins, and the program of this build: it refuses what it must."""
        self.use_built_programs()
        shutil.copy(ROOT / SCRIPT, self.mac.checkout / SCRIPT)
        facts = self.facts()
        self.assertEqual(facts["Build command"], "ok, Qt in the bundle: ok, nothing is taken from outside, for macOS 14.0 and later")
        self.assertRegex(facts["Self-test"], "^ok, release=.+ esptool=4.5.1$")
        self.assertEqual(facts["Window self-test"], "ok, window_self_test=OK")
        self.assertEqual(facts["Self-test without the tool"], "ok, self-test failed: The local Espressif tool is "
                                                              "missing. Run BUILD-FULL-MAC.command once.")
        self.assertEqual(facts["Self-test with a changed image"],
                         "ok, self-test failed: The embedded firmware checksum is not trusted.")
        self.assertEqual(facts["Picture changed image"], "ok, changed-image.png")


if __name__ == "__main__":
    unittest.main()
