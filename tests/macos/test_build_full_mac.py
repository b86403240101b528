#!/usr/bin/python3
"""BUILD-FULL-MAC.command with stand-ins for what only a Mac has: each step, and each way in which it fails. The packer,
the self-tests, the interpreter and the work on the bundle after macdeployqt are real."""

from __future__ import annotations

import plistlib
import re
import shutil
import sys
import unittest
from pathlib import Path
from typing import Callable

import mach_o_files
from mac import BUNDLE, ESPTOOL_5, ROOT, SCRIPT, Mac, OnAMac, executable, quoted, run

sys.path.insert(0, str(ROOT / "tools"))
import esp_image  # noqa: E402


class Good(OnAMac):
    def oldest_system(self) -> str:
        return plistlib.loads((self.mac.app / "Contents/Info.plist").read_bytes())["LSMinimumSystemVersion"]

    def test_every_step_says_ok_and_signing_is_the_last_change_before_the_self_tests(self) -> None:
        outcomes = self.assert_built(self.mac.build())
        qt = self.mac.homebrew / "opt/qtbase"
        self.assertEqual([outcomes[step] for step in (PACKAGED, PYTHON, "Release", "Qt in the bundle")],
                         [f"Qt 6.11.2 in {qt}", "version 4.5.1, accepts --verify", "the sample, which is not firmware",
                          "nothing is taken from outside, for macOS 14.0 and later"])
        self.assertEqual(self.oldest_system(), "14.0")
        called = self.mac.called()
        self.assertIn(f"cmake --preset release -B {self.mac.work}/tree -DQELMO_TESTS=OFF "
                      f"-DCMAKE_PREFIX_PATH={qt};{self.mac.homebrew}", called)
        called = [call for call in called if re.match("macdeployqt|xattr|codesign|self-test|mv", call)]
        app = self.mac.temporary / Path(called[0].split(f"/{BUNDLE} ")[0]).name / BUNDLE
        self.assertEqual(called, [
            f"macdeployqt {app} -executable={app}/Contents/Frameworks/libQelmoWindow.dylib",
            f"xattr -cr {app}",
            f"codesign --force --deep --sign - {app}",
            f"codesign --verify --deep --strict {app}",
            "self-test --self-test",
            "self-test --window-self-test",
            f"mv {app} {self.mac.work}/arriving",
            f"mv {self.mac.work}/arriving {self.mac.app}"])

    def test_qt_can_stay_outside_the_bundle_and_tmpdir_can_be_unset(self) -> None:
        del self.mac.environment["TMPDIR"]
        self.assertEqual(self.assert_built(self.mac.build("--use-installed-qt"))["Qt in the bundle"],
                         f"left in {self.mac.homebrew}/opt/qtbase; the application runs on this Mac only")
        self.assertEqual(self.oldest_system(), "13.0")
        [signed] = [call for call in self.mac.called() if call.startswith(("macdeployqt", "xattr"))]
        self.assertRegex(signed, "^xattr -cr /tmp/qelmo-varnox-build")

    def test_a_missing_esptool_is_installed_by_programs_outside_the_path(self) -> None:
        brew = self.mac.system / "opt/homebrew/bin/brew"
        for name, path in (("brew", brew), ("pio", self.mac.home / ".platformio/penv/bin/pio")):
            path.parent.mkdir(parents=True)
            (self.mac.commands / name).rename(path)
        shutil.rmtree(self.mac.tool.parent)
        self.mac.environment["PLATFORMIO_CORE_DIR"] = "/elsewhere"  # the application looks in the user's folder only
        outcomes = self.assert_built(self.mac.build())
        self.assertEqual((outcomes["Homebrew"], outcomes["PlatformIO's esptool"]),
                         (str(brew), f"installed as {self.mac.tool}"))
        self.assertIn("pio pkg install -g -t platformio/tool-esptoolpy@~1.40501.0", self.mac.called())

    def test_the_oldest_qt_in_one_package_works_even_on_a_system_that_homebrew_has_dropped(self) -> None:
        (self.mac.homebrew / "qtbase").unlink()
        (self.mac.homebrew / "qt").write_text("6.9.2")
        (self.mac.homebrew / "opt/qtbase").rename(self.mac.homebrew / "opt/qt")
        self.mac.environment["MACOS"] = "13.7.8"
        self.assertEqual(self.assert_built(self.mac.build())[PACKAGED], f"Qt 6.9.2 in {self.mac.homebrew}/opt/qt")

    def test_one_command_replaces_version_5(self) -> None:
        self.mac.set_tool(ESPTOOL_5)
        following = self.mac.build().stdout.split("Next: ")[1]
        self.assert_built(run("bash", "-c", following, env=self.mac.environment, cwd=self.mac.folder))
        self.assertTrue(Path(f"{self.mac.tool.parent}@5/esptool.py").exists())


# ---- changes to a Mac that is in order; a word is something that a stand-in understands ----

Fault = str | Callable[[Mac], object]


def tool_that_says(said: str) -> Fault:
    return lambda mac: mac.set_tool(f"import sys; sys.exit({said!r})")


def xcrun_that_says(said: str) -> Fault:
    """Fails only when the compiler is started. Finding the compiler may say nothing about the licence."""
    return lambda mac: executable(mac.system / "usr/bin/xcrun",
                                  f"#!/bin/sh\n[ $1 = --find ] || {{ echo {said!r} >&2; exit 1; }}\n")


def without(*paths: str) -> Fault:
    return lambda mac: run("rm", "-r", *(mac.folder / path for path in paths))


def with_qt(version: str, macos: str = "26.0") -> Fault:
    def change(mac: Mac) -> None:
        (mac.homebrew / "qtbase").write_text(version)
        mac.environment["MACOS"] = macos
    return change


def homebrew_of_an_intel_mac(mac: Mac) -> None:
    (mac.commands / "brew").unlink()
    executable(mac.system / "usr/local/bin/brew", f"#!/bin/sh\necho {quoted(mac.system)}/usr/local\n")


def no_tool_and_no_network(mac: Mac) -> None:
    shutil.rmtree(mac.tool.parent)
    mac.stand_in("pio", "echo 'Error: no network'; exit 1")


PACKAGES = {"commands/cmake": "cmake", "commands/ninja": "ninja", "commands/rsvg-convert": "librsvg",
            "brew data/cli11": "cli11", "brew data/nlohmann-json": "nlohmann-json", "brew data/qtbase": "qtbase"}
TOOL = "home of mine/.platformio/packages/tool-esptoolpy"
GONE, THROWN_AWAY = (f"xcrun: error: invalid active developer path ({path}), missing xcrun at: {path}/usr/bin/xcrun"
                     for path in ("/Library/Developer/CommandLineTools", "/Applications/Xcode.app/Contents/Developer"))
GET_HOMEBREW = '/bin/bash -c "$(curl -fsSL https://raw.githubusercontent.com/Homebrew/install/HEAD/install.sh)"'
XCODE, PACKAGED, PYTHON = "Xcode command line tools", "Homebrew packages", "esptool under Apple's Python"
VERSION_5 = "esptool 5 removed --verify, which this application needs"

REINSTALL, INSTALL = (f'pio pkg install -g {option}-t "platformio/tool-esptoolpy@~1.40501.0"' for option in ("-f ", ""))
MODULES = '"{mac.system}/usr/bin/python3" -m pip install --user pyserial intelhex'
ASIDE = 'mv "{mac.tool.parent}" "{mac.tool.parent}@5" && {mac.again}'
LOG, WITHOUT_QT = 'less "{mac.work}/build.log"', "{mac.again} --use-installed-qt"

FAULTS: list[tuple[Fault, str, str, str]] = [  # and the step that fails, what it says, what to run next
    (lambda mac: mac.stand_in("uname", "echo Linux"), "macOS", "this is not a Mac", "./check"),
    (lambda mac: mac.environment.update(PROCESSOR="x86_64"), "macOS",
     "this Terminal runs under Rosetta, as an Intel program", "arch -arm64 {mac.again}"),
    (xcrun_that_says(GONE), XCODE, "the tools are missing from /Library/Developer/CommandLineTools",
     "xcode-select --install"),
    (xcrun_that_says("You have not agreed to the Xcode license agreements."), XCODE,
     "the licence of Xcode is not accepted yet", "sudo xcodebuild -license"),
    (xcrun_that_says(THROWN_AWAY), XCODE, f"no compiler in /Library/Developer/CommandLineTools: {THROWN_AWAY}",
     "sudo xcode-select --reset"),
    (without("commands/brew"), "Homebrew", "not installed", GET_HOMEBREW),
    (homebrew_of_an_intel_mac, "Homebrew",
     "the Homebrew in {mac.system}/usr/local is for Intel processors, but this Mac has Apple's", GET_HOMEBREW),
    (without(*PACKAGES), PACKAGED, f"missing: {' '.join(PACKAGES.values())}",
     f"brew install {' '.join(PACKAGES.values())}"),
    *((with_qt(old), PACKAGED, f"Qt {old} is too old; 6.9.2 or newer is needed", "brew upgrade qtbase")
      for old in ("6.9.1", "5.15.16")),
    (with_qt("", macos="13.7.8"), PACKAGED, "Homebrew's Qt needs macOS 14, and this is 13.7.8",
     "softwareupdate --list"),
    (without("brew data/opt/qtbase/lib"), PACKAGED,
     "the development files of Qt are missing in {mac.homebrew}/opt/qtbase", "brew reinstall qtbase"),
    (without(TOOL, "commands/pio"), "PlatformIO's esptool",
     "esptool is missing, and so is PlatformIO, which installs it", "brew install platformio"),
    (no_tool_and_no_network, "PlatformIO's esptool", "PlatformIO did not install it: Error: no network", INSTALL),
    (lambda mac: mac.tool.parent.rename(f"{mac.tool.parent}@1.40501.0"), "PlatformIO's esptool",
     "a suitable version is there under another folder name",
     'mv "{mac.tool.parent}@1.40501.0" "{mac.tool.parent}"'),
    *((tool_that_says(module), PYTHON, module, MODULES) for module in (
        "Pyserial is not installed for /usr/bin/python3.", "ModuleNotFoundError: No module named 'intelhex'")),
    (tool_that_says("SyntaxError: half a file"), PYTHON, "it does not start: SyntaxError: half a file", REINSTALL),
    (tool_that_says("TypeError: unsupported operand type(s) for |: 'type' and 'type'"), PYTHON, VERSION_5, ASIDE),
    (lambda mac: mac.set_tool(ESPTOOL_5), PYTHON, VERSION_5, ASIDE),
    ("configure", "Build", "the build cannot be configured", LOG),
    ("compile", "Build", "the application cannot be compiled", LOG),
    ("macdeployqt", "Qt in the bundle", "macdeployqt: ERROR: this is why", WITHOUT_QT),
    ("plugin", "Qt in the bundle", "macdeployqt left out Qt's plugin for macOS: ERROR: Cannot resolve rpath",
     WITHOUT_QT),
    (without(f"what macdeployqt adds/Frameworks/{mach_o_files.in_framework('QtCore')}"), "Qt in the bundle",
     "settle-bundle: …/QtCore is missing or is not a Mach-O file", WITHOUT_QT),
    ("sign", "Signature", "detritus not allowed", LOG),
    ("verify", "Signature", "the signature is not valid: a sealed resource is missing or invalid", LOG),
    ("self-test --self-test", "Self-test", "self-test failed: this is why", LOG),
    ("self-test --window-self-test", "Window self-test", "self-test failed: this is why", LOG),
]


class Failing(OnAMac):
    def test_the_failing_step_says_why_and_what_to_run_next_and_leaves_nothing_half_built(self) -> None:
        for fault, step, outcome, following in FAULTS:
            with self.subTest(step, outcome=outcome):
                self.make_mac()
                if callable(fault):
                    fault(self.mac)
                done = self.mac.build(failing="" if callable(fault) else fault)
                self.assert_failed(step, outcome, following, done)

    def test_without_the_command_line_tools_the_interpreter_is_not_touched(self) -> None:
        executable(self.mac.system / "usr/bin/xcode-select", "#!/bin/sh\necho 'xcode-select: error' >&2\nexit 2\n")
        executable(self.mac.system / "usr/bin/python3", '#!/bin/sh\necho touched >>"$CALLS"\n')
        self.assert_failed(XCODE, "not installed", "xcode-select --install", self.mac.build())
        self.assertEqual([call.split()[0] for call in self.mac.called()], ["uname", "uname", "sw_vers"])

    def test_the_command_line(self) -> None:
        for arguments, said in (
                (["--imag", "x"], "--imag: unknown option"), (["--image"], "--image: the value is missing"),
                (["--accept-header-rewrite"], "--image, --name and --version belong together"),
                (["--image", "none.bin", "--name", "N", "--version", "1"],
                 f"--image: there is no file to read at {self.mac.folder}/none.bin")):
            with self.subTest(arguments):
                done = self.mac.build(*arguments)
                self.assertEqual((done.returncode, done.stdout), (2, ""))
                self.assertEqual(done.stderr.splitlines()[0], f"{SCRIPT}: {said}")
                self.assertFalse((self.mac.checkout / "build").exists())


class WithTheRealPrograms(OnAMac):
    def test_a_release_of_ones_own_is_found_from_any_folder_packed_and_accepted_by_both_self_tests(self) -> None:
        self.use_built_programs()
        elsewhere = self.mac.folder / "some where"
        elsewhere.mkdir()
        (elsewhere / "merged image.bin").write_bytes(esp_image.small_image(b"firmware", mode=0))
        release = ("--image", "merged image.bin", "--name", "Varnox", "--version", "1.2.3")
        self.assert_failed("Release", "pack-release: The image's header …; build the image for these settings or give "
                           "--accept-header-rewrite.", '"{mac.work}/tree/tools/pack-release" --help',
                           self.mac.build(*release, cwd=elsewhere))
        outcomes = self.assert_built(self.mac.build(*release, "--accept-header-rewrite", cwd=elsewhere))
        self.assertEqual(outcomes["Release"], "Varnox 1.2.3")
        log = (self.mac.work / "build.log").read_text()
        self.assertIn("\nrelease=1.2.3\n", log)
        self.assertIn("\nwindow_self_test=OK\n", log)
        names = sorted(file.suffix for file in (self.mac.app / "Contents/Resources").iterdir())
        self.assertEqual(names, [".bin", ".icns", ".json", ".txt"], "one image, the new one, and the help")


class OldBash(unittest.TestCase):
    """The scripts are written for macOS: its bash is 3.2, and its tools are not GNU's."""

    GNU_OPTIONS = (r"\b(cp|df|dirname|grep|ls|mkdir|mktemp|mv|rm|tail)\b[^|;&\n]* --\w+", r"\bcp -\w*[aX]",
                   r"\b(cp|mv) -\w*[tT]", r"\b(readlink|realpath)\b", r"\bsed -\w*i", r"\bstat -\w*c", r"-printf\b",
                   r"\bgrep -\w*P", r"\b(head|tail) -n -", r"(?<![-\w])(timeout|date -d)\b")
    NEWER_BASH = (r"\b(declare|local|typeset) -\w*[An]", r"\$\{\w+(,|\^)", r"\b(mapfile|readarray|coproc)\b", r"&>>",
                  r"\|&", r"\$\{\w+@", r"\[-\d", r"\[\[? -v ", r";;?&", r"%\(", r"\bwait -n",
                  r"\$\{\w+\[@\]\}")  # an array that may be empty

    def test_nothing_is_used_that_macos_does_not_have(self) -> None:
        for script in (SCRIPT, "tools/macos/report"):
            lines = [line for line in (ROOT / script).read_text().splitlines() if not line.lstrip().startswith("#")]
            for pattern in (*self.GNU_OPTIONS, *self.NEWER_BASH):
                self.assertEqual([line for line in lines if re.search(pattern, line)], [], f"{script}: {pattern}")


if __name__ == "__main__":
    unittest.main()
