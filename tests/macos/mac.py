"""A folder that stands for a whole Mac, with a stand-in for each program that BUILD-FULL-MAC.command asks.

The script sees nothing of this machine but the plain tools that every macOS has too.
"""

from __future__ import annotations

import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
SCRIPT = "BUILD-FULL-MAC.command"
BUNDLE = "QELMO Varnox Flasher.app"
SECONDS = 60  # only a broken script reaches it

# What the script takes from macOS without asking.
PLAIN_TOOLS = ("awk", "bash", "cp", "dirname", "find", "grep", "head", "ls", "mkdir", "mv", "rm", "sort", "tail")

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

# The program of a bundle that a stand-in for the compiler made.
PROGRAM = """#!/bin/sh
echo "self-test $*" >>"$CALLS"
[ "$FAILING" != "self-test $1" ] || { echo 'self-test failed: this is why'; exit 1; }
"""

STAND_INS = {
    "uname": "echo Darwin",
    "sw_vers": "echo 26.0",
    "brew": """
case $1 in
    list) [ ! -e "$BREW/$3" ] || { echo "$3 $(cat "$BREW/$3")"; exit 0; }; exit 1 ;;
    --prefix) echo "$BREW/opt${2:+/$2}" ;;
esac""",
    "ninja": "",
    "rsvg-convert": "",
    "pio": """
[ "$FAILING" != pio ] || { echo 'Error: no network'; exit 1; }
[ "$FAILING" = pio-elsewhere ] || { mkdir -p "$TOOL_FOLDER"; cp "$BREW/esptool-4.py" "$TOOL_FOLDER/esptool.py"; }""",
    "cmake": """
case $1 in
    --preset) [ "$FAILING" != configure ] || { echo 'CMake Error: this is why'; exit 1; } ;;
    --build)
        [ "$FAILING" != compile ] || { echo 'error: this is why'; exit 1; }
        rm -rf "$2" && mkdir -p "$2" && cp -R "$PRODUCT"/. "$2" ;;
esac""",
    "macdeployqt": """
[ "$FAILING" != macdeployqt ] || { echo 'ERROR: this is why'; exit 1; }
[ "$FAILING" != plugin ] || { echo 'ERROR: Cannot resolve rpath'; exit 0; }
mkdir -p "$1/Contents/PlugIns/platforms" && echo cocoa >"$1/Contents/PlugIns/platforms/libqcocoa.dylib" &&
    chmod +x "$1/Contents/PlugIns/platforms/libqcocoa.dylib" """,
    "otool": r"""
printf '%s:\n\t@rpath/QtCore (compatibility)\n\t/usr/lib/libSystem.B.dylib (compatibility)\n' "$2"
[ "$FAILING" != outside ] || printf '\t/opt/homebrew/lib/libz.dylib (compatibility)\n'""",
    "mv": """
case "$FAILING $1" in
    "move "*"/unfinished/QELMO"*) echo 'mv: No space left on device'; exit 1 ;;
esac
exec "${0%/*}/../plain/mv" "$@"
""",
    "codesign": """
case "$FAILING $1" in
    'sign --force') echo 'detritus not allowed'; exit 1 ;;
    'verify --verify') echo 'a sealed resource is missing or invalid'; exit 1 ;;
esac""",
}


def executable(path: Path, text: str) -> None:
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    path.chmod(0o755)


class Mac:
    """A folder that stands for a whole Mac: fixed places, Homebrew, a home, and a checkout below blanks."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        self.checkout = folder / "my own checkout"
        self.system = folder / "system root"
        self.home = folder / "home of mine"
        self.commands = folder / "commands"
        self.homebrew = folder / "brew data"
        self.product = folder / "product"
        self.calls = folder / "calls"
        self.tool = self.home / ".platformio/packages/tool-esptoolpy/esptool.py"
        self.work = self.checkout / "build/macos"
        self.app = self.work / BUNDLE
        self.environment = {
            "PATH": f"{self.commands}:{folder / 'plain'}", "HOME": str(self.home), "CALLS": str(self.calls),
            "BREW": str(self.homebrew), "PRODUCT": str(self.product), "FAILING": "",
            "TOOL_FOLDER": str(self.tool.parent), "LC_ALL": "C.UTF-8",
            "BASH_COMPAT": "3.2",  # what a newer bash can tell of an older one, at least
        }
        self.furnish()

    def furnish(self) -> None:
        self.checkout.mkdir()
        self.home.mkdir()
        shutil.copy(ROOT / SCRIPT, self.checkout / SCRIPT)
        (self.folder / "plain").mkdir()
        for tool in (*PLAIN_TOOLS, "sh", "cat", "chmod"):  # the last three are for the stand-ins
            (self.folder / "plain" / tool).symlink_to(shutil.which(tool) or tool)
        for name, body in STAND_INS.items():
            self.stand_in(name, body)
        executable(self.system / "usr/bin/xcode-select", "#!/bin/sh\necho /Library/Developer/CommandLineTools\n")
        executable(self.system / "usr/bin/python3", '#!/bin/sh\nexec /usr/bin/python3 "$@"\n')
        (self.homebrew / "opt/qtbase/lib/cmake/Qt6").mkdir(parents=True)
        (self.homebrew / "opt/qtbase/bin").mkdir()
        (self.commands / "macdeployqt").rename(self.homebrew / "opt/qtbase/bin/macdeployqt")
        (self.homebrew / "qtbase").write_text("6.9.3 6.11.2_1")
        (self.homebrew / "nlohmann-json").write_text("3.12.0")
        (self.homebrew / "esptool-4.py").write_text(ESPTOOL_4)
        self.set_tool(ESPTOOL_4)
        self.set_product()

    def stand_in(self, name: str, body: str) -> None:
        executable(self.commands / name, f'#!/bin/sh\necho "{name} $*" >>"$CALLS"\n{body}\n')

    def set_tool(self, text: str) -> None:
        self.tool.parent.mkdir(parents=True, exist_ok=True)
        self.tool.write_text(text)

    def set_product(self) -> None:
        """What a build leaves, as far as the script looks at it."""
        contents = self.product / BUNDLE / "Contents"
        executable(contents / "MacOS/QelmoFlasher", PROGRAM)
        executable(contents / "Frameworks/libQelmoWindow.dylib", "a library")
        (contents / "Resources").mkdir()
        (contents / "Resources/sample.bin").write_text("the sample")
        executable(self.product / "tools/pack-release", """#!/bin/sh
echo "pack-release $*" >>"$CALLS"
[ "$FAILING" != pack ] || { echo 'pack-release: the image is incomplete'; exit 1; }
[ ! -e "$2/Contents/Resources/sample.bin" ] || { echo 'the sample is still there'; exit 1; }
""")

    def build(self, *arguments: object, failing: str = "", cwd: Path | None = None) -> subprocess.CompletedProcess[str]:
        return subprocess.run([str(self.checkout / SCRIPT), "--system-root", str(self.system), *map(str, arguments)],
                              env={**self.environment, "FAILING": failing}, cwd=cwd or self.folder, text=True,
                              capture_output=True, timeout=SECONDS, stdin=subprocess.DEVNULL)

    def called(self) -> list[str]:
        return self.calls.read_text().splitlines() if self.calls.exists() else []


class OnAMac(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="qelmo mac ")
        self.addCleanup(folder.cleanup)
        self.mac = Mac(Path(folder.name).resolve())

    def assert_built(self, done: subprocess.CompletedProcess[str]) -> dict[str, str]:
        """Every step has its one line, and nothing else was written. Returns the outcomes by step."""
        self.assertEqual((done.returncode, done.stderr), (0, ""), done.stdout)
        outcomes = dict(line.split(": ", 1) for line in done.stdout.splitlines())
        self.assertEqual(list(outcomes), STEPS)
        for step, outcome in outcomes.items():
            self.assertTrue(outcome.startswith("ok, "), step)
        self.assertEqual(outcomes["Application"], f"ok, {self.mac.app}")
        self.assertTrue((self.mac.app / "Contents/MacOS/QelmoFlasher").exists())
        self.assertFalse((self.mac.work / "unfinished").exists())
        return outcomes

    def assert_failed(self, step: str, outcome: str, following: str,
                      done: subprocess.CompletedProcess[str]) -> None:
        """The named step is the last one, says why and what to run next, and nothing half-made stays."""
        self.assertEqual((done.returncode, done.stderr), (1, ""), done.stdout)
        *before, failed, hint = done.stdout.splitlines()
        self.assertEqual([line.split(": ", 1)[0] for line in before], STEPS[:STEPS.index(step)])
        self.assertEqual((failed, hint), (f"{step}: failed, {outcome}", f"  Next: {following}"))
        self.assertFalse((self.mac.work / "unfinished").exists())
        self.assertFalse(self.mac.app.exists())
        self.assertEqual(subprocess.run(["bash", "-n", "-c", following], capture_output=True).returncode, 0,
                         "what to run next is a command")


def quoted(path: Path) -> str:
    """A path as bash's printf %q writes it."""
    return str(path).replace(" ", "\\ ")
