"""A folder that simulates a whole Mac: stand-ins for what BUILD-FULL-MAC.command runs, and plain tools of macOS."""

from __future__ import annotations

import plistlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

import mach_o_files

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support import built  # noqa: E402
from support.built import ROOT, TOOL  # noqa: E402
from support.child import run  # noqa: E402

SCRIPT = "BUILD-FULL-MAC.command"
BUNDLE = "QELMO Varnox Flasher.app"

# Tools of macOS that the scripts and the stand-ins use without a check.
PLAIN_TOOLS = ("awk", "bash", "cat", "chmod", "cp", "cut", "date", "dd", "dirname", "env", "find", "grep", "head", "ls",
               "mkdir", "mktemp", "mv", "od", "rm", "sh", "sleep", "tail", "tee", "tr", "wc")
SIGNALS = (signal.SIGHUP, signal.SIGINT, signal.SIGTERM)

# The start of each stand-in. Call number $AT sends a signal, before or after its work.
CALL = """#!/bin/sh
hit() { [ "$(wc -l <"$CALLS")" -ne "${AT:-0}" ] || kill -s "$SIGNAL" -- "$TARGET"; }
echo "NAME $*" >>"$CALLS"
[ "$WHEN" = after ] || hit
"""

STEPS = ["macOS", "Xcode command line tools", "Homebrew", "Homebrew packages", "PlatformIO's esptool",
         "esptool under Apple's Python", "Build", "Release", "Qt in the bundle", "Signature", "Self-test",
         "Window self-test", "Application"]

ESPTOOL_4 = """
import sys
if sys.argv[1:] == ["version"]:
    print("esptool.py v4.5.1\\n4.5.1")
elif sys.argv[1:] == ["write_flash", "--help"]:
    print("usage: esptool write_flash [--verify] <address> <filename>")
else:
    sys.exit("not expected here: " + " ".join(sys.argv[1:]))
"""
ESPTOOL_5 = ESPTOOL_4.replace("4.5.1", "5.1.0").replace("[--verify] ", "")

# The program of a bundle that the compiler's stand-in made.
PROGRAM = CALL.replace("NAME", "self-test") + """\
[ "$FAILING" != "self-test $1" ] || { echo 'self-test failed: this is why'; exit 1; }
"""

STAND_INS = {
    "uname": """
case $1 in
    -s) echo Darwin ;;
    -m) echo "$PROCESSOR" ;;
    *) echo 'Darwin 25.1.0' ;;
esac""",
    "sw_vers": r"""
case $1 in
    -productVersion) echo "$MACOS" ;;
    *) printf 'ProductName:\t\tmacOS\nProductVersion:\t\t26.1\nBuildVersion:\t\t25B78\n' ;;
esac""",
    "sysctl": """
case $2 in
    hw.optional.arm64) echo "$APPLE_SILICON" ;;
    sysctl.proc_translated) echo 0 ;;
    *) echo 'Apple M2' ;;
esac""",
    "brew": """
case $1 in
    list) [ ! -e "$BREW/$3" ] || { echo "$3 $(cat "$BREW/$3")"; exit 0; }; exit 1 ;;
    --prefix) echo "$BREW${2:+/opt/$2}" ;;
esac""",
    "ninja": "",
    "rsvg-convert": "",
    "pio": """
[ -z "${PLATFORMIO_CORE_DIR:-}" ] || exit 1
mkdir -p "$TOOL_FOLDER"; cp "$BREW/esptool-4.py" "$TOOL_FOLDER/esptool.py" """,
    "cmake": """
case $1 in
    --version) echo 'cmake version 4.3.4' ;;
    --preset) [ "$FAILING" != configure ] || { echo 'CMake Error: this is why'; exit 1; } ;;
    --build)
        [ "$FAILING" != compile ] || { echo 'error: this is why'; exit 1; }
        rm -rf "$2" && mkdir -p "$2" && cp -R "$PRODUCT"/. "$2" ;;
esac""",
    "macdeployqt": """
[ "$FAILING" != macdeployqt ] || { echo 'ERROR: this is why'; exit 1; }
[ "$FAILING" != plugin ] || { echo 'ERROR: Cannot resolve rpath'; exit 0; }
cp -R "$DEPLOYED"/. "$1/Contents" """,
    "xattr": "",
    "mv": """
case "$FAILING $1 $2" in
    'new '*/arriving | 'in '*'/arriving '*.app | 'in, and back '*.app)
        echo 'mv: No space left on device'; exit 1 ;;
esac
"${0%/*}/../plain/mv" "$@" || exit
[ "$WHEN" = before ] || hit
""",
    "codesign": """
case "$FAILING $1" in
    'sign --force') echo 'detritus not allowed'; exit 1 ;;
    'verify --verify') echo 'a sealed resource is missing or invalid'; exit 1 ;;
    *' -dv') echo 'Signature=adhoc' ;;
esac""",
}


def executable(path: Path, text: str) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    path.chmod(0o755)


class Mac:
    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.checkout, self.system = folder / "my own checkout", folder / "system root"
        self.home, self.temporary = folder / "home of mine", folder / "temporary files"
        self.commands, self.homebrew = folder / "commands", folder / "brew data"
        self.product, self.deployed = folder / "product", folder / "what macdeployqt adds"
        self.calls = folder / "calls"
        self.tool = self.home / TOOL
        self.work = self.checkout / "build/macos"
        self.app = self.work / BUNDLE
        self.environment = {
            "PATH": f"{self.commands}:{folder / 'plain'}", "HOME": str(self.home), "CALLS": str(self.calls),
            "BREW": str(self.homebrew), "PRODUCT": str(self.product), "FAILING": "",
            "TOOL_FOLDER": str(self.tool.parent), "LC_ALL": "C.UTF-8",
            "DEPLOYED": str(self.deployed), "TMPDIR": f"{self.temporary}/", "WHEN": "before",
            "PROCESSOR": "arm64", "APPLE_SILICON": "1", "MACOS": "26.0",
            "BASH_COMPAT": "3.2",  # the closest that a newer bash comes to macOS's
        }
        self.again = f"{quoted(self.checkout / SCRIPT)} --system-root {quoted(self.system)}"
        self.furnish()

    def furnish(self) -> None:
        for folder in (self.checkout, self.home, self.temporary):
            folder.mkdir()
        for file in (SCRIPT, "tools/macos/settle-bundle", "tools/macos/mach_o.py", "tools/whole_file.py"):
            (self.checkout / file).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(ROOT / file, self.checkout / file)
        (self.folder / "plain").mkdir()
        for tool in PLAIN_TOOLS:
            (self.folder / "plain" / tool).symlink_to(shutil.which(tool) or tool)
        for name, body in STAND_INS.items():
            self.stand_in(name, body)
        for name, body in {"xcrun": "echo /Library/Developer/CommandLineTools/usr/bin/clang++",
                           "xcode-select": "echo /Library/Developer/CommandLineTools",
                           "python3": 'exec /usr/bin/python3 "$@"'}.items():
            executable(self.system / "usr/bin" / name, f"#!/bin/sh\n{body}\n")
        (self.homebrew / "opt/qtbase/lib/cmake/Qt6").mkdir(parents=True)
        (self.homebrew / "opt/qtbase/bin").mkdir()
        (self.commands / "macdeployqt").rename(self.homebrew / "opt/qtbase/bin/macdeployqt")
        for name, text in {"qtbase": "6.9.3 6.11.2_1", "cli11": "2.6.1", "nlohmann-json": "3.12.0",
                           "esptool-4.py": ESPTOOL_4}.items():
            (self.homebrew / name).write_text(text)
        self.set_tool(ESPTOOL_4)
        self.set_product()
        mach_o_files.write_deployed_qt(self.deployed)

    def stand_in(self, name: str, body: str) -> None:
        executable(self.commands / name, CALL.replace("NAME", name) + body + "\n")

    def set_tool(self, text: str) -> None:
        self.tool.parent.mkdir(parents=True, exist_ok=True)
        self.tool.write_text(text)

    def set_product(self) -> None:
        """The products of a build, as far as the script uses them."""
        contents = self.product / BUNDLE / "Contents"
        executable(contents / "MacOS/QelmoFlasher", PROGRAM)
        mach_o_files.write(contents / "Frameworks/libQelmoWindow.dylib", mach_o_files.mach_o(), 0o755)
        (contents / "Info.plist").write_bytes(plistlib.dumps({"LSMinimumSystemVersion": "13.0"}))

    def build(self, *arguments: object, failing: str = "", cwd: Path | None = None) -> subprocess.CompletedProcess[str]:
        return run(self.checkout / SCRIPT, "--system-root", self.system, *arguments, cwd=cwd or self.folder,
                   env={**self.environment, "FAILING": failing})

    def build_and_hit(self, at: int, number: signal.Signals, target: str = "the group",
                      when: str = "before") -> subprocess.CompletedProcess[str]:
        """Call number `at` sends the signal to the script, or to the script and everything that it has started."""
        self.calls.unlink(missing_ok=True)
        sign = "-" if target == "the group" else ""
        # The process that started these tests may ignore some signals, and bash cannot trap those.
        return run("/usr/bin/env", "--default-signal", "/bin/sh", "-c",
                   f'TARGET={sign}$$ && export TARGET && exec "$0" "$@"', self.checkout / SCRIPT, "--system-root",
                   self.system, cwd=self.folder, start_new_session=True,
                   env={**self.environment, "AT": str(at), "SIGNAL": number.name[3:], "WHEN": when})

    def called(self) -> list[str]:
        return self.calls.read_text().splitlines() if self.calls.exists() else []


class OnAMac(unittest.TestCase):
    kind = Mac

    def setUp(self) -> None:
        self.make_mac()

    def make_mac(self) -> None:
        folder = self.enterContext(tempfile.TemporaryDirectory(prefix="qelmo mac "))
        self.mac = self.kind(Path(folder).resolve())

    def use_built_programs(self) -> None:
        """Uses the bundle and the packer of this build instead of those of the compiler's stand-in."""
        if not (built.BUNDLE / built.LIBRARIES / "libQelmoWindow.so").exists():
            self.skipTest("this build has no window")
        shutil.rmtree(self.mac.product)
        shutil.copytree(built.BUNDLE, self.mac.product / BUNDLE)
        (self.mac.product / "tools").mkdir()
        shutil.copy2(built.BUILD / "tools/pack-release", self.mac.product / "tools")
        self.mac.environment.update(QT_QPA_PLATFORM="offscreen", XDG_RUNTIME_DIR=str(self.mac.folder))

    def assert_built(self, done: subprocess.CompletedProcess[str]) -> dict[str, str]:
        """Every step has printed one line, and nothing else was printed. Returns the outcomes by step."""
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
        outcomes = dict(line.split(": ok, ", 1) for line in done.stdout.splitlines())
        self.assertEqual(list(outcomes), STEPS)
        self.assertEqual(outcomes["Application"], str(self.mac.app))
        self.assertTrue((self.mac.app / "Contents/MacOS/QelmoFlasher").exists())
        self.assert_nothing_is_left()
        return outcomes

    def assert_nothing_is_left(self) -> None:
        """Wherever the build ended, it left none of its temporary files."""
        self.assertEqual(list(self.mac.temporary.glob("*")), [])
        for name in ("arriving", "previous"):
            self.assertFalse((self.mac.work / name).exists(), name)

    def assert_failed(self, step: str, outcome: str, following: str, done: subprocess.CompletedProcess[str]) -> None:
        """The named step is the last one. It says why it failed ("…" is variable text) and what to run next, and leaves
        nothing half-built."""
        outcome, following = (text.format(mac=self.mac) for text in (outcome, following))
        self.assertEqual((done.returncode, done.stderr), (1, ""), done.stdout)
        *before, failed, hint = done.stdout.splitlines()
        self.assertEqual([line.split(": ", 1)[0] for line in before], STEPS[:STEPS.index(step)])
        self.assertRegex(failed, "^" + re.escape(f"{step}: failed, {outcome}").replace("…", ".*") + "$")
        self.assertEqual(hint, f"  Next: {following}")
        self.assert_nothing_is_left()
        self.assertFalse(self.mac.app.exists())
        self.assertEqual(run("bash", "-n", "-c", following).returncode, 0, "what to run next is a command")


def quoted(path: Path) -> str:
    """A path as bash's printf %q writes it."""
    return str(path).replace(" ", "\\ ")
