#!/usr/bin/python3
"""The Debian package and the portable tar archive: their contents, and what the validators report."""

from __future__ import annotations

import json
import os
import shutil
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support import built  # noqa: E402
from support.built import BUILD, BUNDLE, LIBRARIES, MANIFEST, RESOURCES  # noqa: E402
from support.child import run  # noqa: E402
from support.real_tool import install_tool  # noqa: E402

VERSION = os.environ["QELMO_PACKAGE_VERSION"]
PACKAGE, APP_ID = "qelmo-varnox-flasher", "io.qelmo.varnox-flasher"
PROGRAM = f"{BUNDLE.name}/{built.PROGRAM}"
README = BUILD / "packaging/README.txt"
RULES = f"usr/lib/udev/rules.d/70-{PACKAGE}.rules"
HELP = f"usr/share/doc/{PACKAGE}/TROUBLESHOOTING.txt"


def debian_package() -> Path:
    """This build's package. The folder may also contain packages of other versions."""
    [package] = (BUILD / "packages").glob(f"{PACKAGE}_{VERSION}-*.deb")
    return package


def portable_tar() -> Path:
    [package] = (BUILD / "packages").glob(f"{PACKAGE}-{VERSION}-linux-*.tar.gz")
    return package


def bundle_files(folder: str) -> set[str]:
    image = json.loads((BUNDLE / MANIFEST).read_text())["binary"]["path"]
    return {f"{folder}{name}" for name in (
        "Contents/Info.plist", PROGRAM.partition("/")[2], f"{LIBRARIES}/libQelmoWindow.so",
        f"{RESOURCES}/AppIcon.icns", MANIFEST, f"{RESOURCES}/{image}")}


def files_below(folder: Path) -> set[str]:
    return {str(path.relative_to(folder)) for path in folder.rglob("*")
            if path.is_symlink() or not path.is_dir()}


def said_by(*command: str | Path) -> str:
    done = run(*command, env=dict(os.environ, LC_ALL="C.UTF-8"))
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}: {done.stdout + done.stderr}")
    return done.stdout + done.stderr


class DebianPackage(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        cls.package = debian_package()
        cls.root = Path(cls.enterClassContext(tempfile.TemporaryDirectory()))
        said_by("dpkg-deb", "-x", cls.package, cls.root)
        cls.entry = cls.root / f"usr/share/applications/{APP_ID}.desktop"
        cls.metainfo = cls.root / f"usr/share/metainfo/{APP_ID}.metainfo.xml"
        cls.page = cls.root / f"usr/share/man/man1/{PACKAGE}.1.gz"
        cls.manual = said_by("env", "MANWIDTH=500", "man", "-E", "UTF-8", "-l", "-Tutf8", cls.page)

    def field(self, name: str) -> str:
        return said_by("dpkg-deb", "-f", self.package, name).strip()

    def test_holds_these_files_and_no_others(self) -> None:
        icons = "usr/share/icons/hicolor"
        expected = bundle_files(f"usr/lib/{PACKAGE}/{BUNDLE.name}/") | {
            f"usr/bin/{PACKAGE}", f"usr/bin/{PACKAGE}-install-esptool", f"usr/share/applications/{APP_ID}.desktop",
            f"usr/share/metainfo/{APP_ID}.metainfo.xml", f"{icons}/scalable/apps/{APP_ID}.svg",
            f"{icons}/48x48/apps/{APP_ID}.png", f"{icons}/128x128/apps/{APP_ID}.png",
            f"{icons}/256x256/apps/{APP_ID}.png", f"usr/share/man/man1/{PACKAGE}.1.gz",
            f"usr/share/man/man1/{PACKAGE}-install-esptool.1.gz", RULES, HELP,
            f"usr/share/doc/{PACKAGE}/changelog.Debian.gz", f"usr/share/doc/{PACKAGE}/copyright",
            f"usr/share/lintian/overrides/{PACKAGE}"}
        self.assertEqual(files_below(self.root), expected)

    def test_has_the_commands_that_start_the_program_install_the_tool_and_open_the_help(self) -> None:
        self.assertEqual(os.readlink(self.root / "usr/bin" / PACKAGE), f"../lib/{PACKAGE}/{PROGRAM}")
        said = said_by(self.root / f"usr/bin/{PACKAGE}-install-esptool", "--help")
        self.assertTrue(said.startswith(f"usage: {PACKAGE}-install-esptool "), said)
        self.assertIn(f"Exec=xdg-open /{HELP}", self.entry.read_text())

    def test_depends_on_what_is_linked_and_on_what_is_only_seen_at_run_time(self) -> None:
        names = {entry.split()[0].removesuffix("t64") for entry in self.field("Depends").split(", ")}
        self.assertLessEqual({"libc6", "libqt6core6", "libqt6gui6", "libqt6widgets6", "libssl3",
                              "qt6-image-formats-plugins", "python3", "python3-serial", "python3-intelhex"}, names)

    def test_says_that_it_carries_the_sample_and_which_version(self) -> None:
        changelog = self.root / f"usr/share/doc/{PACKAGE}/changelog.Debian.gz"
        version = said_by("dpkg-parsechangelog", "-l", changelog, "-S", "Version").strip()
        self.assertEqual(version, self.field("Version"))
        metainfo = self.metainfo.read_text()
        for text in (self.package.name, portable_tar().name, self.field("Description"), metainfo, self.manual):
            self.assertIn("sample", text)
        self.assertIn(f'<release version="{VERSION}"', metainfo)
        self.assertIn(VERSION, self.manual)

    def test_gives_the_addresses_of_the_build_everywhere(self) -> None:
        homepage, maintainer, support = (os.environ[f"QELMO_{name}"] for name in ("HOMEPAGE", "MAINTAINER", "SUPPORT"))
        self.assertEqual((self.field("Homepage"), self.field("Maintainer")), (homepage, maintainer))
        self.assertIn(maintainer, (self.root / f"usr/share/doc/{PACKAGE}/copyright").read_text())
        for text in (self.metainfo.read_text(), self.manual, README.read_text()):
            for address in (homepage, support, maintainer.partition("<")[2].rstrip(">")):
                self.assertIn(address, text)

    def test_passes_the_validators(self) -> None:
        self.assertEqual(said_by("desktop-file-validate", self.entry), "")
        self.assertNotRegex(said_by("appstreamcli", "validate", "--no-net", self.metainfo), r"(?m)^[EW]:")
        if shutil.which("udevadm") and "verify" in said_by("udevadm", "--help"):  # from systemd 254 on
            said_by("udevadm", "verify", self.root / RULES)
        self.assertEqual(said_by("lintian", "--allow-root", "--no-cfg", "--fail-on", "error,warning", self.package), "")
        page = run("man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", self.page)
        self.assertEqual((page.returncode, page.stderr), (0, ""))


class PortableTar(unittest.TestCase):
    def test_holds_the_bundle_and_what_a_reader_needs_in_one_folder_and_runs_from_anywhere(self) -> None:
        folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        said_by("tar", "-C", folder, "-xzf", portable_tar())
        [top] = folder.iterdir()
        self.assertEqual(top.name, portable_tar().name.removesuffix(".tar.gz"))
        self.assertEqual(files_below(top), bundle_files(f"{BUNDLE.name}/") | {
            "README.txt", "TROUBLESHOOTING.txt", "copyright", "install-esptool", f"70-{PACKAGE}.rules"})
        self.assertEqual((top / "README.txt").read_text(), README.read_text())
        install_tool(folder / "home")
        self.assertTrue(said_by(top / "install-esptool", "--help").startswith("usage: "))
        said = said_by("env", f"HOME={folder / 'home'}", top / PROGRAM, "--self-test")
        self.assertEqual(len(said.splitlines()), 9, said)


if __name__ == "__main__":
    unittest.main()
