#!/usr/bin/python3
"""tools/macos/report with stand-ins for what only a Mac has: its facts, failures, and no personal data in the file."""

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
FILES = ["changed-image.png", "ready.png", "report.txt", "without-tool.png"]

# None of them contains another, so each has to be replaced separately.
USER, FULL_NAME, HOST, COMPUTER = "dgale", "Dorothea Öl-Mann", "emerald-city.example.org", "Toto’s Notebook"
LOCAL_NAME = "Totos-Notebook-2"
SERIAL, HARDWARE_ID = "C02XK1ZZJG5H", "6F1B3A5E-0000-1111-2222-333344445555"

LEAK = '[ -z "$LEAK" ] || echo "$LEAK"'

# In addition to those of the build command. Each decides by itself what to do when FAILING names it.
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
    "otool": r"printf 'QtCore:\n\t@rpath/QtCore (compatibility)\n\t/usr/lib/libSystem.B.dylib (compatibility)\n'",
    "vtool": r"printf ' platform MACOS\n    minos 14.0\n      sdk 26.0\n'",
    "osascript": "echo 4711",
    "screencapture": 'echo picture >"$5"',
    "id": f"""[ "$1" = -F ] && echo '{FULL_NAME}' || echo "$USER_NAME" """,
    "hostname": 'echo "$HOST"',
    "scutil": f"""[ "$2" = ComputerName ] && echo '{COMPUTER}' || echo {LOCAL_NAME}""",
    "ioreg": f"""echo ' "IOPlatformSerialNumber" = "{SERIAL}"'; echo ' "IOPlatformUUID" = "{HARDWARE_ID}"'""",
    "zip": """
[ "$1 $2 $3 $4" = "-q -r -D -X" ] && exec /usr/bin/python3 -m zipfile -c "$5" *""",
    # A time limit is over as soon as a command reports that it hangs. Shorter waits take 0.1 seconds.
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
mkdir -p build/macos
cd "${{0%/*}}"
echo "macOS: ok, 26.1"
[ "$FAILING" != build ] || {{ echo 'Homebrew packages: failed, missing: qtbase'; exit 1; }}
echo "the compiler was here, in $HOME/.cache, ${{0%/*}} and $LEAK" >build/macos/build.log
rm -rf 'build/macos/{BUNDLE}'
cp -R "$PRODUCT/{BUNDLE}" build/macos
echo "Qt in the bundle: ok, nothing is taken from outside"
echo "Application: ok, $PWD/build/macos/{BUNDLE}"
"""

PROGRAM = """#!/bin/sh
echo "program $* HOME=$HOME" >>"$CALLS"
[ -z "$LEAK" ] || echo "$LEAK"
refuse() { echo "self-test failed: $1" >&2; exit 1; }
case "$FAILING $1" in
    'deaf --self-test') trap '' TERM; : >"$HANGING"; while :; do "$PLAIN/sleep" 1; done ;;
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
    """The Mac of the build command's tests, with what the report needs in addition."""

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
            "USER_NAME": USER, "HOST": HOST, "LEAK": ""}
        self.command = [self.checkout / "tools/macos/report", "--system-root", self.system]

    def set_product(self) -> None:
        contents = self.product / BUNDLE / "Contents"
        mach_o_files.write_deployed_qt(contents)
        executable(contents / "MacOS/QelmoFlasher", PROGRAM)
        (contents / "Resources").mkdir()
        (contents / "Resources/sample.bin").write_text("x" * 200)

    def stand_in(self, name: str, body: str) -> None:
        """Puts LEAK first, except in the stand-ins that tell the report what is personal."""
        tells = name in ("id", "hostname", "scutil", "ioreg", "uname", "sleep", "zip", "osascript")
        super().stand_in(name, body if tells else f"{LEAK}\n{body}")

    def report(self, failing: str = "") -> subprocess.CompletedProcess[str]:
        return run(*self.command, env={**self.environment, "FAILING": failing}, cwd=self.checkout, errors="replace")

    def text(self) -> str:
        with zipfile.ZipFile(self.result) as file:
            return file.read("report.txt").decode(errors="replace")


class OnAMac(mac.OnAMac):
    kind = Mac

    def facts(self, failing: str = "") -> dict[str, str]:
        """Runs the report to its end. The file's summary names each fact once, and the terminal showed the same."""
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
        left_running = run("pgrep", "--list-full", "--full", self.mac.folder).stdout
        self.assertEqual(left_running, "")


class Facts(OnAMac):
    def test_each_has_its_line_and_each_section_its_text(self) -> None:
        facts = self.facts()
        self.assertEqual([name for name, value in facts.items() if not value.startswith("ok, ")], [])
        self.assertEqual(len(facts), 40, "none is left out")
        self.assertEqual(facts, {
            **facts, "macOS": "ok, macOS 26.1 25B78 ", "Rosetta": "ok, no", "Processor": "ok, Apple M2",
            "Qt": f"ok, 6.11.2 in {self.mac.homebrew}/opt/qtbase",
            "Tests": "ok, 100% tests passed, 0 tests failed out of 50",
            "Application": f"ok, <checkout>/build/macos/{BUNDLE}", "Self-test": "ok, release=1.2.3 esptool=4.5.1",
            "Window self-test's file": "ok, window_self_test=OK", "Signature": "ok, Signature=adhoc",
            "Self-test without the tool": "ok, self-test failed: there is no tool",
            "Self-test with a changed image": "ok, self-test failed: the digest is wrong",
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


class Failing(OnAMac):
    # fault: a program that the report runs fails or does not exit
    # seen: "failed, cut off after 90 s"
    def test_a_failing_command_does_not_stop_the_report(self) -> None:
        for failing, different in (
                ("ctest", {"Tests": "failed, status 8: 98% tests passed, 1 tests failed out of 50: Sha256.Vectors"}),
                ("deaf", dict.fromkeys(("Self-test", "Self-test without the tool", "Self-test with a changed image"),
                                       "failed, cut off after 90 s: "))):
            facts = self.facts(failing)
            self.assertEqual({name: value for name, value in facts.items() if not value.startswith("ok, ")}, different)

    def test_a_build_that_fails_early_leaves_no_application_to_look_at_not_even_an_older_one(self) -> None:
        shutil.copytree(self.mac.product / BUNDLE, self.mac.app)
        (self.mac.work / "build.log").write_text("of an earlier run")
        facts = self.facts("build")
        self.assertEqual(facts["Build command"], "failed, status 1: Homebrew packages: failed, missing: qtbase")
        self.assertEqual(facts["Application"], "failed, the build produced none; an older one is not examined")
        self.assertEqual((facts["Self-test"], facts["Picture ready"]), ("not tried, there is no application",) * 2)
        self.assertNotIn("of an earlier run", self.mac.text())

    # fault: the report is interrupted
    # seen: "report: interrupted; no report was written."
    def test_an_interruption_leaves_no_process_and_no_file_and_says_where_the_build_is(self) -> None:
        self.mac.work.mkdir(parents=True)
        self.mac.result.write_text("of an earlier run")
        process = subprocess.Popen(self.mac.command, env={**self.mac.environment, "FAILING": "wait"}, text=True,
                                   cwd=self.mac.checkout, stdout=subprocess.PIPE, stdin=subprocess.DEVNULL)
        wait_until(lambda: "waiting" in self.mac.called(), "the self-test")
        process.send_signal(signal.SIGHUP)
        said, _ = process.communicate(timeout=LIMIT_SECONDS)
        self.assertEqual(process.returncode, 128 + signal.SIGHUP)
        self.assertIn("report: interrupted; no report was written.\n"
                      f"  What was built so far is in {self.mac.work}.\n"
                      f"  The log of the build is {self.mac.work}/build.log.\n"
                      f"  The report of an earlier run is still {self.mac.result}.\n", said)
        self.assertEqual(self.mac.result.read_text(), "of an earlier run")
        self.assertTrue(self.mac.app.exists())
        self.assert_nothing_is_left()


class Personal(OnAMac):
    def test_data_is_not_in_the_file(self) -> None:
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
        for section, place in zip(SECTIONS, places[1:], strict=True):
            with self.subTest(section):
                self.assertIn("~; <checkout>; ~; ~; ", place)
                self.assertIn("; -I~/include; file://~/x; <checkout>/a b/c.cpp:3:; <user>@<host>; <<user>>", place)


if __name__ == "__main__":
    unittest.main()
