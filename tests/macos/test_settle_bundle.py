#!/usr/bin/python3
"""tools/macos/settle-bundle on a bundle as macdeployqt leaves it: what goes, what counts, what the bundle asks for."""

from __future__ import annotations

import plistlib
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

import mach_o_files
from mach_o_files import in_framework, mach_o, rpath, write

TOOL = Path(__file__).resolve().parents[2] / "tools/macos/settle-bundle"
PYTHON = "/usr/bin/python3"  # Apple's is at the same place
SECONDS = 60  # only a broken tool reaches it
WHOLE = "nothing is taken from outside, for macOS 14.0 and later\n"
HOMEBREWS_LIBRARY = "/opt/homebrew/lib/libz.1.dylib"


class Settling(unittest.TestCase):
    def setUp(self) -> None:
        folder = tempfile.TemporaryDirectory(prefix="qelmo settle ")
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name).resolve()
        self.app = self.folder / "An Application.app"
        self.contents = self.app / "Contents"
        self.frameworks, self.plugins = self.contents / "Frameworks", self.contents / "PlugIns"
        self.core = self.frameworks / in_framework("QtCore")
        self.program = self.contents / "MacOS/QelmoFlasher"
        self.property_list = self.contents / "Info.plist"
        self.furnish()

    def furnish(self) -> None:
        shutil.rmtree(self.app, ignore_errors=True)
        write(self.program, mach_o(mach_o_files.EXECUTABLE, minimum="13.0"), 0o755)
        self.property_list.write_bytes(plistlib.dumps({"CFBundleName": "Ours", "LSMinimumSystemVersion": "13.0"}))
        mach_o_files.write_deployed_qt(self.contents)

    def settle(self) -> subprocess.CompletedProcess[str]:
        return subprocess.run([PYTHON, "-B", TOOL, self.app], capture_output=True, text=True, timeout=SECONDS)

    def assert_said(self, said: str) -> None:
        done = self.settle()
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, said, ""))

    def assert_taken_from_outside(self, reference: str, file: Path) -> None:
        self.assert_said(f"but {file.name} still uses {reference}: it runs on this Mac only\n")

    def assert_refused(self, reason: str) -> None:
        done = self.settle()
        self.assertEqual((done.returncode, done.stdout, done.stderr), (1, "", f"settle-bundle: {reason}\n"))

    def minimum(self) -> str:
        return plistlib.loads(self.property_list.read_bytes())["LSMinimumSystemVersion"]


class WhatGoes(Settling):
    def files(self, folder: Path) -> list[str]:
        return sorted(str(file.relative_to(folder)) for file in folder.rglob("*")
                      if file.is_file() and not file.is_symlink() and "Resources" not in file.parts[-2])

    def test_only_the_platform_and_the_style_stay_of_the_plugins_and_no_empty_folder(self) -> None:
        self.assert_said(WHOLE)
        self.assertEqual(self.files(self.plugins), ["platforms/libqcocoa.dylib", "styles/libqmacstyle.dylib"])
        self.assertEqual(sorted(path.name for path in self.plugins.iterdir()), ["platforms", "styles"])

    def test_libraries_that_only_the_others_used_go_with_all_of_their_folder(self) -> None:
        self.assert_said(WHOLE)
        self.assertEqual(self.files(self.frameworks),
                         [*map(in_framework, ("QtCore", "QtDBus", "QtGui", "QtWidgets")), "libQelmoWindow.dylib",
                          "libpcre2-16.0.dylib"])
        self.assertFalse((self.frameworks / "QtNetwork.framework").exists())

    def test_two_libraries_that_need_nobody_but_each_other_go(self) -> None:
        for name, other in (("liba.dylib", "libb.dylib"), ("libb.dylib", "liba.dylib")):
            write(self.frameworks / name, mach_o(name=f"@rpath/{name}", needs=[f"@loader_path/{other}"]))
        self.assert_said(WHOLE)
        self.assertFalse((self.frameworks / "liba.dylib").exists())

    def test_what_is_no_library_stays(self) -> None:
        (self.frameworks / "licences.txt").write_text("of Qt")
        self.assert_said(WHOLE)
        self.assertTrue((self.frameworks / "licences.txt").exists())

    def test_a_second_time_changes_nothing(self) -> None:
        self.assert_said(WHOLE)
        before = sorted(self.app.rglob("*"))
        self.assert_said(WHOLE)
        self.assertEqual(sorted(self.app.rglob("*")), before)


class WhatCounts(Settling):
    def test_a_library_of_homebrews_in_any_file_whatever_its_mode(self) -> None:
        for file in (self.program, self.frameworks / "libQelmoWindow.dylib", self.core,
                     self.frameworks / "libpcre2-16.0.dylib", self.plugins / "platforms/libqcocoa.dylib",
                     self.plugins / "styles/libqmacstyle.dylib"):
            with self.subTest(file.name):
                self.furnish()
                # Still in need of everything else, so that nothing is removed.
                needs = ("libpcre2-16.0.dylib", in_framework("QtWidgets"), in_framework("QtGui"))
                write(file, mach_o(needs=[HOMEBREWS_LIBRARY,
                                          *(f"@executable_path/../Frameworks/{name}" for name in needs)]))
                self.assert_taken_from_outside(HOMEBREWS_LIBRARY, file)

    def test_what_a_library_calls_itself_is_no_dependency(self) -> None:
        for name in (f"{mach_o_files.HOMEBREW}/{in_framework('QtCore')}", "@rpath/nothing/of/this/name"):
            with self.subTest(name):
                write(self.core, mach_o(name=name))
                self.assert_said(WHOLE)

    def test_a_library_that_is_nowhere(self) -> None:
        for reference in (rpath("QtSvg"), "@loader_path/libnone.dylib", "@executable_path/../Frameworks/libnone.dylib"):
            with self.subTest(reference):
                write(self.core, mach_o(needs=[reference], run_paths=["@loader_path/../../.."]))
                self.assert_taken_from_outside(reference, self.core)

    def test_a_path_that_leads_out_of_the_bundle(self) -> None:
        write(self.folder / "libz.dylib", mach_o())
        for reference, run_path in (("@rpath/libz.dylib", str(self.folder)),
                                    ("@rpath/libz.dylib", "@executable_path/../../.."),
                                    ("@loader_path/../../../../../../libz.dylib", "")):
            with self.subTest((reference, run_path)):
                write(self.core, mach_o(needs=[reference], run_paths=[run_path] if run_path else []))
                self.assert_taken_from_outside(reference, self.core)

    def test_the_first_run_path_that_has_the_library_as_the_loader_does(self) -> None:
        write(self.folder / "libz.dylib", mach_o())
        write(self.frameworks / "libz.dylib", mach_o())
        inside, outside = "@loader_path/../../..", str(self.folder)
        write(self.core, mach_o(needs=["@rpath/libz.dylib"], run_paths=["/none", inside, outside]))
        self.assert_said(WHOLE)
        write(self.core, mach_o(needs=["@rpath/libz.dylib"], run_paths=[outside, inside]))
        self.assert_taken_from_outside("@rpath/libz.dylib", self.core)

    def test_a_framework_may_use_the_run_paths_of_the_window_library_and_a_plugin_may_not(self) -> None:
        write(self.frameworks / in_framework("QtGui"), mach_o(needs=[rpath("QtCore"), rpath("QtDBus")]))
        self.assert_said(WHOLE)
        plugin = self.plugins / "styles/libqmacstyle.dylib"
        write(plugin, mach_o(mach_o_files.PLUGIN, needs=[rpath("QtGui")]))
        self.assert_said(WHOLE)  # by QtCore's, which loads it
        write(self.core, mach_o())
        self.assert_taken_from_outside(rpath("QtGui"), plugin)

    def test_each_architecture_of_a_file(self) -> None:
        good, bad = mach_o(), mach_o(needs=[HOMEBREWS_LIBRARY], cpu=mach_o_files.X86_64)
        write(self.core, mach_o_files.universal((mach_o_files.ARM64, good), (mach_o_files.X86_64, good)))
        self.assert_said(WHOLE)
        write(self.core, mach_o_files.universal((mach_o_files.ARM64, good), (mach_o_files.X86_64, bad)))
        self.assert_taken_from_outside(HOMEBREWS_LIBRARY, self.core)


class WhatItAsksFor(Settling):
    def test_the_newest_system_that_any_file_inside_asks_for(self) -> None:
        self.assert_said(WHOLE)
        self.assertEqual(self.minimum(), "14.0")
        write(self.core, mach_o(minimum="14.5", before_mojave=True))
        self.assert_said(WHOLE.replace("14.0", "14.5"))
        write(self.plugins / "styles/libqmacstyle.dylib", mach_o(minimum="26.0.1"))
        self.assert_said(WHOLE.replace("14.0", "26.0.1"))
        self.assertEqual(self.minimum(), "26.0.1")

    def test_a_file_that_was_removed_asks_for_nothing(self) -> None:
        write(self.plugins / "imageformats/libqsvg.dylib", mach_o(minimum="26.0"))
        self.assert_said(WHOLE)

    def test_it_is_never_lowered_and_numbers_are_compared_as_such(self) -> None:
        self.property_list.write_bytes(plistlib.dumps({"LSMinimumSystemVersion": "15"}))
        self.assert_said(WHOLE.replace("14.0", "15"))
        self.assertEqual(self.minimum(), "15")
        self.property_list.write_bytes(plistlib.dumps({"LSMinimumSystemVersion": "9.0"}))
        self.assert_said(WHOLE)

    def test_the_other_keys_stay(self) -> None:
        self.settle()
        self.assertEqual(plistlib.loads(self.property_list.read_bytes()),
                         {"CFBundleName": "Ours", "LSMinimumSystemVersion": "14.0"})


class RefusedBundle(Settling):
    def test_a_bundle_without_qt(self) -> None:
        self.core.unlink()
        self.assert_refused(f"{self.core} is not there, or no Mach-O file")

    def test_a_damaged_library(self) -> None:
        whole = self.core.read_bytes()
        for raw, reason in ((whole[:60], "a load command is longer than the file"),
                            (whole[:16] + b"\xff" + whole[17:], "its header is damaged: .*"),
                            (mach_o(platform=2), "it is not for macOS")):
            with self.subTest(reason):
                write(self.core, raw)
                done = self.settle()
                self.assertEqual((done.returncode, done.stdout), (1, ""))
                self.assertRegex(done.stderr, rf"\Asettle-bundle: .*/QtCore: {reason}\n\Z")

    def test_a_property_list_that_is_missing_or_none(self) -> None:
        self.property_list.write_text("no list")
        self.assertEqual(self.settle().returncode, 1)
        self.property_list.unlink()
        self.assert_refused(f"[Errno 2] No such file or directory: '{self.property_list}'")

    def test_another_command_line(self) -> None:
        done = subprocess.run([PYTHON, "-B", TOOL], capture_output=True, text=True, timeout=SECONDS)
        self.assertEqual((done.returncode, done.stderr), (2, "usage: settle-bundle APP\n"))


if __name__ == "__main__":
    unittest.main()
