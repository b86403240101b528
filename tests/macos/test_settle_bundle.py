#!/usr/bin/python3
"""tools/macos/settle-bundle on a bundle as macdeployqt leaves it: what goes, what it reports, which macOS is
required."""

from __future__ import annotations

import plistlib
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

import mach_o_files
from mach_o_files import in_framework, mach_o, rpath, write

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.built import ROOT  # noqa: E402
from support.child import run  # noqa: E402

TOOL = ROOT / "tools/macos/settle-bundle"
WHOLE = "nothing is taken from outside, for macOS 14.0 and later\n"
HOMEBREWS_LIBRARY = "/opt/homebrew/lib/libz.1.dylib"


class SettleBundle(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory(prefix="qelmo settle "))).resolve()
        self.app = self.folder / "An Application.app"
        self.contents = self.app / "Contents"
        self.frameworks, self.plugins = self.contents / "Frameworks", self.contents / "PlugIns"
        self.core = self.frameworks / in_framework("QtCore")
        self.style = self.plugins / "styles/libqmacstyle.dylib"
        self.program = self.contents / "MacOS/QelmoFlasher"
        self.property_list = self.contents / "Info.plist"
        self.furnish()

    def furnish(self) -> None:
        shutil.rmtree(self.app, ignore_errors=True)
        write(self.program, mach_o(minimum="13.0"), 0o755)
        self.property_list.write_bytes(plistlib.dumps({"CFBundleName": "Ours", "LSMinimumSystemVersion": "13.0"}))
        mach_o_files.write_deployed_qt(self.contents)

    def assert_said(self, said: str) -> None:
        done = run(TOOL, self.app)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, said, ""))

    def assert_taken_from_outside(self, reference: str, file: Path) -> None:
        self.assert_said(f"but {file.name} still uses {reference}: it runs on this Mac only\n")

    def assert_refused(self, reason: str) -> None:
        done = run(TOOL, self.app)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertRegex(done.stderr, rf"\Asettle-bundle: {reason}\n\Z")

    def test_only_what_the_window_needs_stays_and_a_second_run_changes_nothing(self) -> None:
        (self.frameworks / "licences.txt").write_text("of Qt")  # not a library
        for name, other in (("liba.dylib", "libb.dylib"), ("libb.dylib", "liba.dylib")):
            write(self.frameworks / name, mach_o(name=f"@rpath/{name}", needs=[f"@loader_path/{other}"]))
        for _ in range(2):
            self.assert_said(WHOLE)
            self.assertEqual(sorted(str(path.relative_to(self.plugins)) for path in self.plugins.rglob("*")),
                             ["platforms", "platforms/libqcocoa.dylib", "styles", "styles/libqmacstyle.dylib"])
            self.assertEqual(sorted(path.name for path in self.frameworks.iterdir()),
                             ["QtCore.framework", "QtDBus.framework", "QtGui.framework", "QtWidgets.framework",
                              "libQelmoWindow.dylib", "libpcre2-16.0.dylib", "licences.txt"])

    def test_a_library_is_reported_if_it_is_homebrews_missing_or_outside_the_bundle(self) -> None:
        write(self.folder / "libz.dylib", mach_o())
        inside, outside = "@loader_path/../../..", str(self.folder)
        for file, reference, run_paths, is_outside in (
                *((file, HOMEBREWS_LIBRARY, [], True)
                  for file in (self.program, self.frameworks / "libpcre2-16.0.dylib", self.style)),
                (self.core, rpath("QtSvg"), [inside], True), (self.core, "@loader_path/libnone.dylib", [], True),
                (self.core, str(self.frameworks / "libz.dylib"), [], True),  # other Macs do not have this folder
                (self.core, "@executable_path/../Frameworks/libz.dylib", [], False),
                (self.core, "@rpath/libz.dylib", ["@executable_path/../../.."], True),
                # The loader uses the first run path that has the library.
                (self.core, "@rpath/libz.dylib", ["/none", outside, inside], True)):
            with self.subTest(file.name, reference=reference, run_paths=run_paths):
                self.furnish()
                write(self.frameworks / "libz.dylib", mach_o())
                # A library's own name is not a dependency.
                write(file, mach_o(name="@rpath/none", needs=[reference], run_paths=run_paths))
                if is_outside:
                    self.assert_taken_from_outside(reference, file)
                else:
                    self.assert_said(WHOLE)

    def test_a_framework_may_use_the_run_paths_of_the_window_library_and_a_plugin_may_not(self) -> None:
        write(self.frameworks / in_framework("QtGui"), mach_o(needs=[rpath("QtCore"), rpath("QtDBus")]))
        self.assert_said(WHOLE)
        write(self.style, mach_o(needs=[rpath("QtGui")]))
        self.assert_said(WHOLE)  # found by the run paths of QtCore, which loads it
        write(self.core, mach_o())
        self.assert_taken_from_outside(rpath("QtGui"), self.style)

    def test_each_architecture_of_a_file_is_checked(self) -> None:
        write(self.core, mach_o_files.universal(mach_o(), mach_o()))
        self.assert_said(WHOLE)
        write(self.core, mach_o_files.universal(mach_o(), mach_o(needs=[HOMEBREWS_LIBRARY])))
        self.assert_taken_from_outside(HOMEBREWS_LIBRARY, self.core)

    def test_requires_the_newest_system_that_a_kept_file_requires_and_never_an_older_one_than_before(self) -> None:
        leaves = self.plugins / "imageformats/libqsvg.dylib"
        for file, before, after in ((leaves, "15", "15"), (leaves, "9.0", "14.0"), (self.style, "13.0", "26.0.1")):
            self.furnish()
            write(file, mach_o(minimum="26.0.1"))
            ours = {"CFBundleName": "Ours"}
            self.property_list.write_bytes(plistlib.dumps({**ours, "LSMinimumSystemVersion": before}))
            self.assert_said(WHOLE.replace("14.0", after))
            self.assertEqual(plistlib.loads(self.property_list.read_bytes()), {**ours, "LSMinimumSystemVersion": after})

    def test_a_damaged_bundle_is_refused(self) -> None:
        self.property_list.unlink()
        self.assert_refused(r"\[Errno 2\] No such file or directory: '.*/Info.plist'")
        whole = self.core.read_bytes()
        for raw, reason in ((whole[:60], "a load command is longer than the file"),
                            (mach_o(platform=2), "it is not for macOS")):
            write(self.core, raw)
            self.assert_refused(f".*/QtCore: {reason}")
        self.core.unlink()
        self.assert_refused(".*/QtCore is missing or is not a Mach-O file")


if __name__ == "__main__":
    unittest.main()
