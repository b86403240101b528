#!/usr/bin/python3
"""BUILD-FULL-MAC.command as a whole, with stand-ins for what only a Mac has: each step, each way that it fails.

Where Linux can do the real thing, the real thing is done: the packer, the program with both its self-tests, the
interpreter, and what becomes of the bundle between macdeployqt and the signature.
"""

from __future__ import annotations

import os
import plistlib
import re
import shutil
import subprocess
import sys
import unittest
from pathlib import Path

import mach_o_files
from mac import BUNDLE, ESPTOOL_5, ROOT, SCRIPT, SECONDS, STAND_INS, OnAMac, executable, quoted

sys.path.insert(0, str(ROOT / "tools"))
import esp_image  # noqa: E402

BUILT = Path(os.environ["QELMO_BUILD"])
BUILT_BUNDLE = Path(os.environ["QELMO_BUNDLE"])


class Good(OnAMac):
    def test_every_step_says_ok_and_the_last_one_says_where_the_application_is(self) -> None:
        outcomes = self.assert_built(self.mac.build())
        prefix = self.mac.homebrew / "opt/qtbase"
        self.assertEqual(outcomes["Homebrew packages"], f"ok, Qt 6.11.2 in {prefix}")
        self.assertEqual(outcomes["esptool under Apple's Python"], "ok, version 4.5.1, accepts --verify")
        self.assertEqual(outcomes["Release"], "ok, the sample, which is no firmware")
        self.assertEqual(outcomes["Qt in the bundle"], "ok, nothing is taken from outside, for macOS 14.0 and later")

    def test_the_application_asks_for_the_system_that_the_qt_inside_needs(self) -> None:
        self.assert_built(self.mac.build())
        values = plistlib.loads((self.mac.app / "Contents/Info.plist").read_bytes())
        self.assertEqual(values, {"LSMinimumSystemVersion": "14.0"})
        self.assert_built(self.mac.build("--use-installed-qt"))
        values = plistlib.loads((self.mac.app / "Contents/Info.plist").read_bytes())
        self.assertEqual(values, {"LSMinimumSystemVersion": "13.0"})

    def test_it_builds_without_tests_in_a_folder_of_its_own_against_homebrews_qt(self) -> None:
        self.assert_built(self.mac.build())
        prefix = f"{self.mac.homebrew}/opt/qtbase;{self.mac.homebrew}/opt"
        self.assertIn(f"cmake --preset release -B {self.mac.work}/tree -DQELMO_TESTS=OFF "
                      f"-DCMAKE_PREFIX_PATH={prefix}", self.mac.called())

    def test_signing_is_the_last_change_and_both_self_tests_run_on_what_was_signed(self) -> None:
        self.assert_built(self.mac.build())
        called = [call for call in self.mac.called() if re.match("macdeployqt|xattr|codesign|self-test|mv", call)]
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

    def test_a_release_of_ones_own_is_found_from_any_folder_and_takes_the_samples_place(self) -> None:
        elsewhere = self.mac.folder / "some where"
        elsewhere.mkdir()
        (elsewhere / "merged image.bin").write_text("an image")
        done = self.mac.build("--image", "merged image.bin", "--name", "Varnox", "--version", "1.2.3", cwd=elsewhere)
        self.assertEqual(self.assert_built(done)["Release"], "ok, Varnox 1.2.3")
        packed = next(call for call in self.mac.called() if call.startswith("pack-release"))
        self.assertTrue(packed.endswith(f"/{BUNDLE} --image {elsewhere}/merged image.bin --name Varnox --version 1.2.3"))

    def test_a_second_run_replaces_the_first_ones_application(self) -> None:
        self.assert_built(self.mac.build())
        (self.mac.app / "stale").write_text("of the first run")
        self.assert_built(self.mac.build())
        self.assertFalse((self.mac.app / "stale").exists())

    def test_a_run_that_fails_keeps_the_application_of_the_one_before(self) -> None:
        self.assert_built(self.mac.build())
        self.assertEqual(self.mac.build(failing="sign").returncode, 1)
        self.assertTrue((self.mac.app / "Contents/MacOS/QelmoFlasher").exists())

    def test_a_missing_esptool_is_installed_in_the_users_folder_whatever_platformio_is_told(self) -> None:
        self.mac.tool.unlink()
        self.mac.tool.parent.rmdir()
        self.mac.stand_in("pio", '[ -z "${PLATFORMIO_CORE_DIR:-}" ] || exit 1\n' + STAND_INS["pio"])
        self.mac.environment["PLATFORMIO_CORE_DIR"] = "/elsewhere"
        outcomes = self.assert_built(self.mac.build())
        self.assertEqual(outcomes["PlatformIO's esptool"], f"ok, installed as {self.mac.tool}")
        self.assertIn("pio pkg install -g -t platformio/tool-esptoolpy@~1.40501.0", self.mac.called())

    def test_the_undivided_qt_of_before_serves_as_well(self) -> None:
        (self.mac.homebrew / "qtbase").rename(self.mac.homebrew / "qt")
        (self.mac.homebrew / "opt/qtbase").rename(self.mac.homebrew / "opt/qt")
        (self.mac.homebrew / "qt").write_text("6.9.2")
        outcomes = self.assert_built(self.mac.build())
        self.assertEqual(outcomes["Homebrew packages"], f"ok, Qt 6.9.2 in {self.mac.homebrew}/opt/qt")

    def test_homebrew_and_platformio_are_found_although_finder_knows_no_path_to_them(self) -> None:
        for name, folder in (("brew", self.mac.system / "opt/homebrew/bin"),
                             ("pio", self.mac.home / ".platformio/penv/bin")):
            folder.mkdir(parents=True)
            (self.mac.commands / name).rename(folder / name)
        self.mac.tool.unlink()
        self.assertEqual(self.assert_built(self.mac.build())["Homebrew"],
                         f"ok, {self.mac.system}/opt/homebrew/bin/brew")

    def test_qt_can_be_left_where_it_is(self) -> None:
        outcomes = self.assert_built(self.mac.build("--use-installed-qt"))
        self.assertEqual(outcomes["Qt in the bundle"],
                         f"ok, left in {self.mac.homebrew}/opt/qtbase: it runs on this Mac only")
        self.assertFalse([call for call in self.mac.called() if call.startswith("macdeployqt")])

    def test_a_library_from_outside_is_named(self) -> None:
        mach_o_files.write(self.mac.deployed / "Frameworks/libpcre2-16.0.dylib",
                           mach_o_files.mach_o(needs=["/opt/homebrew/lib/libz.1.dylib"]))
        outcomes = self.assert_built(self.mac.build())
        self.assertEqual(outcomes["Qt in the bundle"], "ok, but libpcre2-16.0.dylib still uses "
                         "/opt/homebrew/lib/libz.1.dylib: it runs on this Mac only")

    def test_homebrews_own_folder_comes_first_on_apple_silicon_and_only_there(self) -> None:
        for folder in ("opt/homebrew/bin", "usr/local/bin"):
            (self.mac.system / folder).mkdir(parents=True)
            shutil.copy(self.mac.commands / "brew", self.mac.system / folder)
        self.assertEqual(self.assert_built(self.mac.build())["Homebrew"],
                         f"ok, {self.mac.system}/opt/homebrew/bin/brew")
        (self.mac.commands / "brew").unlink()
        self.mac.environment.update(PROCESSOR="x86_64", APPLE_SILICON="")
        self.assertEqual(self.assert_built(self.mac.build())["Homebrew"], f"ok, {self.mac.system}/usr/local/bin/brew")

    def test_a_folder_for_temporary_files_is_known_without_the_variable(self) -> None:
        del self.mac.environment["TMPDIR"]
        self.assert_built(self.mac.build())
        deployed = next(call for call in self.mac.called() if call.startswith("macdeployqt"))
        self.assertTrue(deployed.startswith("macdeployqt /tmp/qelmo-varnox-build."), deployed)
        self.assertFalse(Path(deployed.split()[1]).parent.exists())


class Missing(OnAMac):
    def test_a_mac(self) -> None:
        self.mac.stand_in("uname", "echo Linux")
        self.assert_failed("macOS", "this is another system", "./check", self.mac.build())

    def test_the_command_line_tools_and_the_interpreter_is_not_touched(self) -> None:
        executable(self.mac.system / "usr/bin/xcode-select", "#!/bin/sh\necho 'xcode-select: error' >&2\nexit 2\n")
        executable(self.mac.system / "usr/bin/python3", '#!/bin/sh\necho touched >>"$CALLS"\n')
        self.assert_failed("Xcode command line tools", "not installed", "xcode-select --install", self.mac.build())
        self.assertEqual([call.split()[0] for call in self.mac.called()], ["uname", "uname", "sw_vers"])

    def assert_compiler_is_missed(self, said: str, outcome: str, following: str) -> None:
        executable(self.mac.system / "usr/bin/xcrun", f"#!/bin/sh\ncat >&2 <<'EOF'\n{said}\nEOF\nexit 1\n")
        self.assert_failed("Xcode command line tools", outcome, following, self.mac.build())

    def test_the_command_line_tools_after_an_upgrade_of_the_system(self) -> None:
        self.assert_compiler_is_missed(
            "xcrun: error: invalid active developer path (/Library/Developer/CommandLineTools), missing xcrun at: "
            "/Library/Developer/CommandLineTools/usr/bin/xcrun",
            "they are gone from /Library/Developer/CommandLineTools", "xcode-select --install")

    def test_the_agreement_to_xcodes_licence_which_only_the_compilers_start_asks_for(self) -> None:
        for first in ("exit 69", 'case $1 in --find) echo /usr/bin/clang++; exit 0 ;; esac; exit 69'):
            with self.subTest(first):
                executable(self.mac.system / "usr/bin/xcrun", f"""#!/bin/sh
say() {{ echo "You have not agreed to the Xcode license agreements. Please run 'sudo xcodebuild -license' from \
within a Terminal window to review and agree to the Xcode and Apple SDKs license." >&2; }}
trap say EXIT
{first}
""")
                self.assert_failed("Xcode command line tools", "the licence of Xcode is not accepted yet",
                                   "sudo xcodebuild -license", self.mac.build())

    def test_an_xcode_that_was_thrown_away(self) -> None:
        said = ("xcrun: error: invalid active developer path (/Applications/Xcode.app/Contents/Developer), missing "
                "xcrun at: /Applications/Xcode.app/Contents/Developer/usr/bin/xcrun")
        self.assert_compiler_is_missed(said, f"no compiler in /Library/Developer/CommandLineTools: {said}",
                                       "sudo xcode-select --reset")

    def test_a_homebrew_for_apples_processor(self) -> None:
        brew = self.mac.system / "usr/local/bin/brew"
        executable(brew, f'#!/bin/sh\necho "brew $*" >>"$CALLS"\necho {quoted(self.mac.system)}/usr/local\n')
        (self.mac.commands / "brew").unlink()
        done = self.mac.build()
        self.assert_failed("Homebrew", f"the one in {self.mac.system}/usr/local is for Intel processors, and this one "
                           "is Apple's", done.stdout.split("Next: ")[1].rstrip("\n"), done)
        self.assertIn("Next: /bin/bash -c \"$(curl -fsSL https://", done.stdout)
        self.assertNotIn("brew list --versions qtbase", self.mac.called())

    def test_a_terminal_for_apples_processor(self) -> None:
        self.mac.environment["PROCESSOR"] = "x86_64"
        self.assert_failed("macOS", "this Terminal runs under Rosetta, as an Intel program",
                           f"arch -arm64 {self.mac.again()}", self.mac.build())

    def test_a_macos_that_homebrew_has_qt_for_before_homebrew_is_asked_for_it(self) -> None:
        self.mac.environment["MACOS"] = "13.7.8"
        self.assert_built(self.mac.build())
        for version in ("6.9.1", None):
            (self.mac.homebrew / "qtbase").unlink()
            if version:
                (self.mac.homebrew / "qtbase").write_text(version)
            shutil.rmtree(self.mac.work, ignore_errors=True)
            self.assert_failed("Homebrew packages", "Homebrew's Qt needs macOS 14, and this is 13.7.8",
                               "softwareupdate --list", self.mac.build())

    def test_homebrew(self) -> None:
        (self.mac.commands / "brew").unlink()
        done = self.mac.build()
        self.assert_failed("Homebrew", "not installed", done.stdout.split("Next: ")[1].rstrip("\n"), done)
        self.assertIn("Next: /bin/bash -c \"$(curl -fsSL https://", done.stdout)

    def test_each_package_alone(self) -> None:
        for path, package in ((self.mac.commands / "cmake", "cmake"), (self.mac.commands / "ninja", "ninja"),
                              (self.mac.commands / "rsvg-convert", "librsvg"),
                              (self.mac.homebrew / "cli11", "cli11"),
                              (self.mac.homebrew / "nlohmann-json", "nlohmann-json"),
                              (self.mac.homebrew / "qtbase", "qtbase")):
            with self.subTest(package):
                path.rename(self.mac.folder / "away")
                self.assert_failed("Homebrew packages", f"missing: {package}", f"brew install {package}",
                                   self.mac.build())
                (self.mac.folder / "away").rename(path)

    def test_all_packages_in_one_command(self) -> None:
        for path in (*(self.mac.commands / name for name in ("cmake", "ninja", "rsvg-convert")),
                     *(self.mac.homebrew / name for name in ("cli11", "nlohmann-json", "qtbase"))):
            path.unlink()
        names = "cmake ninja librsvg cli11 nlohmann-json qtbase"
        self.assert_failed("Homebrew packages", f"missing: {names}", f"brew install {names}", self.mac.build())

    def test_platformio_when_it_is_needed(self) -> None:
        self.mac.tool.unlink()
        (self.mac.commands / "pio").unlink()
        self.assert_failed("PlatformIO's esptool", "it is not there, nor is PlatformIO to get it",
                           "brew install platformio", self.mac.build())

    def test_qt_for_developers(self) -> None:
        shutil.rmtree(self.mac.homebrew / "opt/qtbase/lib")
        self.assert_failed("Homebrew packages", f"there is no Qt for developers in {self.mac.homebrew}/opt/qtbase",
                           "brew reinstall qtbase", self.mac.build())

    def test_a_module_of_the_tool(self) -> None:
        python = self.mac.system / "usr/bin/python3"
        for said in ("Pyserial is not installed for /usr/bin/python3.",
                     "ModuleNotFoundError: No module named 'intelhex'"):
            with self.subTest(said):
                self.mac.set_tool(f"import sys; sys.exit({said!r})")
                self.assert_failed("esptool under Apple's Python", said,
                                   f'"{python}" -m pip install --user pyserial intelhex', self.mac.build())


class TooOldOrTooNew(OnAMac):
    def test_a_qt_that_cannot_be_linked(self) -> None:
        for version in ("6.9.1", "6.8.9", "5.15.16"):
            with self.subTest(version):
                (self.mac.homebrew / "qtbase").write_text(version)
                self.assert_failed("Homebrew packages",
                                   f"Qt is {version}, and 6.9.2 is the oldest that can be linked here",
                                   "brew upgrade qtbase", self.mac.build())

    def test_an_esptool_without_verify(self) -> None:
        self.assert_version_5_is_refused(ESPTOOL_5)

    def test_an_esptool_that_is_too_new_for_apples_python(self) -> None:
        for said in ("TypeError: unsupported operand type(s) for |: 'type' and 'type'",
                     "ModuleNotFoundError: No module named 'rich_click'"):
            with self.subTest(said):
                self.assert_version_5_is_refused(f"import sys; sys.exit({said!r})")

    def assert_version_5_is_refused(self, tool: str) -> None:
        self.mac.set_tool(tool)
        path = self.mac.tool.parent
        self.assert_failed("esptool under Apple's Python", "it is version 5, which does not know --verify any more",
                           f'mv "{path}" "{path}@5" && {self.mac.again()}', self.mac.build())

    def test_the_way_out_of_version_5_is_one_command(self) -> None:
        self.mac.set_tool(ESPTOOL_5)
        following = self.mac.build().stdout.split("Next: ")[1]
        done = subprocess.run(["bash", "-c", following], env=self.mac.environment, capture_output=True, text=True,
                              timeout=SECONDS, cwd=self.mac.folder)
        self.assert_built(done)
        self.assertTrue(Path(f"{self.mac.tool.parent}@5/esptool.py").exists())

    def test_a_version_4_that_platformio_put_beside_the_place_is_moved_there(self) -> None:
        self.mac.tool.parent.rename(f"{self.mac.tool.parent}@1.40501.0")
        path = self.mac.tool.parent
        self.assert_failed("PlatformIO's esptool", "a version that fits stands beside the place",
                           f'mv "{path}@1.40501.0" "{path}"', self.mac.build())
        self.assertFalse([call for call in self.mac.called() if call.startswith("pio")])


class Failing(OnAMac):
    def log(self) -> str:
        return f'less "{self.mac.work}/build.log"'

    def without_qt(self) -> str:
        return f"{self.mac.again()} --use-installed-qt"

    def test_platformio(self) -> None:
        shutil.rmtree(self.mac.tool.parent)
        package = '"platformio/tool-esptoolpy@~1.40501.0"'
        self.assert_failed("PlatformIO's esptool", "PlatformIO did not install it: Error: no network",
                           f"pio pkg install -g -t {package}", self.mac.build(failing="pio"))
        self.assert_failed("PlatformIO's esptool", f"PlatformIO installed it, but not as {self.mac.tool}",
                           f"pio pkg install -g -f -t {package}", self.mac.build(failing="pio-elsewhere"))

    def test_an_esptool_that_does_not_start(self) -> None:
        self.mac.set_tool("import sys; sys.exit('SyntaxError: half a file')")
        self.assert_failed("esptool under Apple's Python", "it does not start: SyntaxError: half a file",
                           'pio pkg install -g -f -t "platformio/tool-esptoolpy@~1.40501.0"', self.mac.build())

    def test_the_build(self) -> None:
        self.assert_failed("Build", "it cannot be configured", self.log(), self.mac.build(failing="configure"))
        self.assertIn("CMake Error: this is why", (self.mac.work / "build.log").read_text())
        self.assert_failed("Build", "it cannot be compiled", self.log(), self.mac.build(failing="compile"))
        shutil.rmtree(self.mac.product / BUNDLE)
        done = self.mac.build()
        self.assertRegex(done.stdout, r"Build: failed, its bundle cannot be copied: .*No such file or directory\n")
        self.mac.temporary.rmdir()
        self.assertRegex(self.mac.build().stdout,
                         r"Build: failed, there is no temporary folder: .*\n  Next: df -h \".*\"\n\Z")
        self.mac.temporary.mkdir()

    def test_the_folder_for_it(self) -> None:
        (self.mac.checkout / "build").write_text("no folder")
        done = self.mac.build()
        self.assertEqual((done.returncode, done.stderr), (1, ""))
        self.assertEqual(done.stdout.splitlines()[-2:], [
            f"Build folder: failed, nothing can be written in {self.mac.work}", f'  Next: ls -la "{self.mac.checkout}"'])

    def test_the_packer_in_its_own_words(self) -> None:
        image = self.mac.folder / "merged.bin"
        image.write_text("half an image")
        self.assert_failed("Release", "pack-release: the image is incomplete",
                           f'"{self.mac.work}/tree/tools/pack-release" --help',
                           self.mac.build("--image", image, "--name", "N", "--version", "1", failing="pack"))

    def test_the_deployment_of_qt(self) -> None:
        self.assert_failed("Qt in the bundle", "macdeployqt: ERROR: this is why", self.without_qt(),
                           self.mac.build(failing="macdeployqt"))
        # macdeployqt ends with 0 in these cases, too.
        self.assert_failed("Qt in the bundle",
                           "macdeployqt left out Qt's plugin for macOS: ERROR: Cannot resolve rpath",
                           self.without_qt(), self.mac.build(failing="plugin"))
        core = f"Frameworks/{mach_o_files.in_framework('QtCore')}"
        (self.mac.deployed / core).unlink()
        done = self.mac.build()
        self.assertRegex(done.stdout,
                         rf"Qt in the bundle: failed, settle-bundle: .*/{core} is not there, or no Mach-O file\n")
        self.assertTrue(done.stdout.endswith(f"\n  Next: {self.without_qt()}\n"))

    def test_the_signature(self) -> None:
        self.assert_failed("Signature", "detritus not allowed", self.log(), self.mac.build(failing="sign"))
        self.assert_failed("Signature", "it does not verify: a sealed resource is missing or invalid", self.log(),
                           self.mac.build(failing="verify"))

    def test_either_self_test(self) -> None:
        for step, option in (("Self-test", "--self-test"), ("Window self-test", "--window-self-test")):
            with self.subTest(step):
                self.assert_failed(step, "self-test failed: this is why", self.log(),
                                   self.mac.build(failing=f"self-test {option}"))

    def test_the_command_line(self) -> None:
        for arguments, said in (
                (["--imag", "x"], "--imag: unknown option"),
                (["--image"], "--image: the value is missing"),
                (["--image", ""], "--image: the value is missing"),
                (["--name", "Varnox"], "--image, --name and --version belong together"),
                (["--accept-header-rewrite"], "--image, --name and --version belong together"),
                (["--image", "none.bin", "--name", "N", "--version", "1"],
                 f"--image: there is no file to read at {self.mac.folder}/none.bin")):
            with self.subTest(arguments):
                done = self.mac.build(*arguments)
                self.assertEqual((done.returncode, done.stdout), (2, ""))
                self.assertEqual(done.stderr.splitlines()[0], f"{SCRIPT}: {said}")
                self.assertEqual(self.mac.called(), [])
                self.assertFalse((self.mac.checkout / "build").exists())


class WithTheRealPrograms(OnAMac):
    """The built bundle and packer in place of the compiler's stand-in."""

    def setUp(self) -> None:
        super().setUp()
        window = BUILT_BUNDLE / "Contents/Frameworks/libQelmoWindow.so"
        if not window.exists():
            self.skipTest("this build has no window")
        shutil.rmtree(self.mac.product)
        shutil.copytree(BUILT_BUNDLE, self.mac.product / BUNDLE)
        (self.mac.product / "tools").mkdir()
        shutil.copy2(BUILT / "tools/pack-release", self.mac.product / "tools")
        self.mac.environment.update(QT_QPA_PLATFORM="offscreen", XDG_RUNTIME_DIR=str(self.mac.folder))
        self.image = self.mac.folder / "merged.bin"

    def test_a_merged_image_becomes_a_release_that_both_self_tests_accept(self) -> None:
        self.image.write_bytes(esp_image.small_image(b"firmware"))
        self.assert_built(self.mac.build("--image", self.image, "--name", "Varnox", "--version", "1.2.3"))
        log = (self.mac.work / "build.log").read_text()
        self.assertIn("\nrelease=1.2.3\n", log)
        self.assertIn("\nwindow_self_test=OK\n", log)
        names = sorted(file.suffix for file in (self.mac.app / "Contents/Resources").iterdir())
        self.assertEqual(names, [".bin", ".icns", ".json", ".txt"], "one image, the new one, and the help")

    def test_an_image_whose_header_would_be_rewritten_needs_the_word_of_who_builds(self) -> None:
        self.image.write_bytes(esp_image.small_image(b"firmware", mode=0))
        release = ("--image", self.image, "--name", "Varnox", "--version", "1.2.3")
        self.assertRegex(self.mac.build(*release).stdout, r"\nRelease: failed, .* give --accept-header-rewrite\.\n")
        self.assert_built(self.mac.build(*release, "--accept-header-rewrite"))

    def test_an_image_that_is_no_firmware_stops_it_with_the_packers_sentence(self) -> None:
        self.image.write_bytes(bytes(65537))
        done = self.mac.build("--image", self.image, "--name", "Varnox", "--version", "1.2.3")
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stdout, r"\nRelease: failed, pack-release: .+\n  Next: .+\n\Z")
        self.assertFalse(self.mac.app.exists())


class OldBash(unittest.TestCase):
    def assert_without(self, patterns: dict[str, str]) -> None:
        text = (ROOT / SCRIPT).read_text()
        code = "\n".join(line for line in text.splitlines() if not line.lstrip().startswith("#"))
        for what, pattern in patterns.items():
            with self.subTest(what):
                self.assertEqual(re.findall(pattern, code), [])

    def test_nothing_is_used_that_only_gnus_tools_have(self) -> None:
        self.assert_without({
            "long options": r"\b(cp|df|dirname|grep|ls|mkdir|mktemp|mv|rm|tail)\b[^|;&\n]* --\w+",
            "attributes": r"\bcp -\w*[aX]", "no target": r"\b(cp|mv) -\w*[tT]", "links": r"\b(readlink|realpath)\b", "sed": r"\bsed -\w*i",
            "stat": r"\bstat -\w*c", "find": r"-printf\b", "grep": r"\bgrep -\w*P", "lines": r"\b(head|tail) -n -",
            "time": r"(?<![-\w])(timeout|date -d)\b"})

    def test_nothing_is_used_that_bash_3_2_does_not_have(self) -> None:
        self.assert_without({
                "associative arrays": r"\b(declare|local|typeset) -\w*A", "references": r"\b(declare|local) -\w*n",
                "letter case": r"\$\{\w+(,|\^)", "mapfile": r"\b(mapfile|readarray)\b", "&>>": r"&>>", "|&": r"\|&",
                "transformations": r"\$\{\w+@", "negative indexes": r"\[-\d", "[[ -v": r"\[\[? -v ",
                "fall through": r";;?&", "coproc": r"\bcoproc\b", "printf times": r"%\(",
                "an array that may be empty": r"\$\{\w+\[@\]\}", "wait -n": r"\bwait -n"})


if __name__ == "__main__":
    unittest.main()
