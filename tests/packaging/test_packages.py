#!/usr/bin/python3
"""The Debian package and the portable tar: what is in them, and what the validators say."""

from __future__ import annotations

import json
import os
import subprocess
import tarfile
import tempfile
import unittest
from configparser import ConfigParser
from pathlib import Path

from packages import BUILD, BUNDLE_NAME, PACKAGE, PROGRAM, ROOT, VERSION, debian_package, portable_tar

APP_ID = "io.qelmo.varnox-flasher"
README = BUILD / "packaging/README.txt"
CONTENTS = f"usr/lib/{PACKAGE}/{BUNDLE_NAME}/Contents"
RULES = f"usr/lib/udev/rules.d/70-{PACKAGE}.rules"
HELP = f"usr/share/doc/{PACKAGE}/TROUBLESHOOTING.txt"


def image_name(resources: Path) -> str:
    manifest = json.loads((resources / "qelmo-varnox-flash-manifest.json").read_text())
    return manifest["binary"]["path"]


def bundle_files(contents: str, image: str) -> set[str]:
    return {f"{contents}/{name}" for name in (
        "Info.plist", "MacOS/QelmoFlasher", "Frameworks/libQelmoWindow.so", "Resources/AppIcon.icns",
        "Resources/qelmo-varnox-flash-manifest.json", f"Resources/{image}")}


def files_below(folder: Path) -> set[str]:
    return {str(path.relative_to(folder)) for path in folder.rglob("*")
            if path.is_symlink() or not path.is_dir()}


class PackageTest(unittest.TestCase):
    def run_tool(self, *command: str | Path) -> str:
        result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                env=dict(os.environ, LC_ALL="C.UTF-8"))
        self.assertEqual(result.returncode, 0, result.stdout)
        return result.stdout


class DebianPackage(PackageTest):
    @classmethod
    def setUpClass(cls) -> None:
        cls.package = debian_package()
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.root = Path(folder.name)
        subprocess.run(["dpkg-deb", "-x", cls.package, cls.root], check=True)

    def field(self, name: str) -> str:
        return self.run_tool("dpkg-deb", "-f", self.package, name).strip()

    def test_holds_these_files_and_no_others(self) -> None:
        icons = "usr/share/icons/hicolor"
        expected = bundle_files(CONTENTS, image_name(self.root / CONTENTS / "Resources")) | {
            f"usr/bin/{PACKAGE}", f"usr/bin/{PACKAGE}-install-esptool", f"usr/share/applications/{APP_ID}.desktop",
            f"usr/share/metainfo/{APP_ID}.metainfo.xml", f"{icons}/scalable/apps/{APP_ID}.svg",
            f"{icons}/48x48/apps/{APP_ID}.png", f"{icons}/128x128/apps/{APP_ID}.png",
            f"{icons}/256x256/apps/{APP_ID}.png", f"usr/share/man/man1/{PACKAGE}.1.gz",
            f"usr/share/man/man1/{PACKAGE}-install-esptool.1.gz", RULES, HELP,
            f"usr/share/doc/{PACKAGE}/changelog.Debian.gz", f"usr/share/doc/{PACKAGE}/copyright",
            f"usr/share/lintian/overrides/{PACKAGE}"}
        self.assertEqual(files_below(self.root), expected)

    def test_starts_the_program_of_the_bundle_by_a_link(self) -> None:
        link = self.root / "usr/bin" / PACKAGE
        self.assertEqual(os.readlink(link), f"../lib/{PACKAGE}/{PROGRAM}")
        self.assertTrue(link.resolve().is_relative_to(self.root))
        self.assertTrue(os.access(link, os.X_OK))

    def test_belongs_to_root_and_only_root_may_change_it(self) -> None:
        for line in self.run_tool("dpkg-deb", "-c", self.package).splitlines():
            mode, owner = line.split()[:2]
            self.assertEqual(owner, "root/root", line)
            self.assertIn(mode, ("drwxr-xr-x", "-rw-r--r--", "-rwxr-xr-x", "lrwxrwxrwx"), line)

    def test_depends_on_what_is_linked_and_on_what_is_only_seen_at_run_time(self) -> None:
        # From Debian 13 on, names of libraries whose time has 64 bits end so.
        names = {entry.split()[0].removesuffix("t64") for entry in self.field("Depends").split(", ")}
        linked = {"libc6", "libqt6core6", "libqt6gui6", "libqt6widgets6", "libssl3"}
        at_run_time = {"qt6-image-formats-plugins", "python3", "python3-serial", "python3-intelhex"}
        self.assertEqual((linked | at_run_time) - names, set())

    def test_has_the_version_of_its_changelog(self) -> None:
        changelog = self.root / f"usr/share/doc/{PACKAGE}/changelog.Debian.gz"
        self.assertEqual(self.field("Version"),
                         self.run_tool("dpkg-parsechangelog", "-l", changelog, "-S", "Version").strip())

    def test_says_that_it_carries_the_sample(self) -> None:
        self.assertIn("sample", self.package.name)
        self.assertIn("sample", portable_tar().name)
        description, metainfo, page = self.field("Description"), self.metainfo().read_text(), self.manual_page()
        for text in (*description.split("\n", 1), metainfo, page):
            self.assertIn("a sample", text)
        self.assertIn(f'<release version="{VERSION}"', metainfo)
        self.assertIn(VERSION, page)

    def test_gives_the_addresses_of_the_build_everywhere(self) -> None:
        homepage, maintainer, support = (os.environ[f"QELMO_{name}"] for name in ("HOMEPAGE", "MAINTAINER", "SUPPORT"))
        self.assertEqual((self.field("Homepage"), self.field("Maintainer")), (homepage, maintainer))
        self.assertIn(maintainer, (self.root / f"usr/share/doc/{PACKAGE}/copyright").read_text())
        for text in (self.metainfo().read_text(), self.manual_page(), README.read_text()):
            for address in (homepage, support, maintainer.partition("<")[2].rstrip(">")):
                self.assertIn(address, text)

    def metainfo(self) -> Path:
        return self.root / f"usr/share/metainfo/{APP_ID}.metainfo.xml"

    def manual_page(self) -> str:
        page = self.root / f"usr/share/man/man1/{PACKAGE}.1.gz"
        return self.run_tool("env", "MANWIDTH=500", "man", "-E", "UTF-8", "-l", "-Tutf8", page)

    def test_has_a_valid_desktop_file(self) -> None:
        entry = self.root / f"usr/share/applications/{APP_ID}.desktop"
        self.assertEqual(self.run_tool("desktop-file-validate", entry), "")

    def test_opens_the_help_from_the_menu(self) -> None:
        entry = ConfigParser(interpolation=None)
        entry.read(self.root / f"usr/share/applications/{APP_ID}.desktop")
        self.assertEqual(entry["Desktop Entry"]["Actions"], "help;")
        self.assertEqual(entry["Desktop Action help"]["Exec"], f"xdg-open /{HELP}")
        self.assertIn("xdg-utils", self.field("Recommends"))
        self.assertEqual((self.root / HELP).read_bytes(), (ROOT / "docs/troubleshooting.md").read_bytes())

    def test_has_the_command_that_installs_the_tool(self) -> None:
        said = self.run_tool(self.root / f"usr/bin/{PACKAGE}-install-esptool", "--help")
        self.assertTrue(said.startswith(f"usage: {PACKAGE}-install-esptool "), said)

    def test_has_valid_metainfo(self) -> None:
        said = self.run_tool("appstreamcli", "validate", "--no-net", self.metainfo())
        self.assertNotRegex(said, r"(?m)^[EW]:")

    def test_has_a_manual_page_without_warnings(self) -> None:
        page = self.root / f"usr/share/man/man1/{PACKAGE}.1.gz"
        result = subprocess.run(["man", "--warnings", "-E", "UTF-8", "-l", "-Tutf8", "-Z", page], text=True,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        for section in ("SYNOPSIS", "TROUBLESHOOTING"):
            self.assertIn(section, result.stdout)
        other = page.with_name(f"{PACKAGE}-install-esptool.1.gz")
        self.assertEqual(os.readlink(other), page.name)

    def test_pleases_lintian(self) -> None:
        said = self.run_tool("lintian", "--allow-root", "--no-cfg", "--fail-on", "error,warning",
                             self.package)
        self.assertEqual(said, "")


class PortableTar(PackageTest):
    @classmethod
    def setUpClass(cls) -> None:
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = Path(folder.name) / "any where"
        with tarfile.open(portable_tar()) as tar:
            tar.extractall(cls.folder)
        cls.top = cls.folder / portable_tar().name.removesuffix(".tar.gz")

    def test_holds_the_bundle_and_what_a_reader_needs_in_one_folder(self) -> None:
        self.assertEqual(os.listdir(self.folder), [self.top.name])
        contents = f"{BUNDLE_NAME}/Contents"
        bundle = bundle_files(contents, image_name(self.top / contents / "Resources"))
        self.assertEqual(files_below(self.top), bundle | {
            "README.txt", "TROUBLESHOOTING.txt", "copyright", "install-esptool", f"70-{PACKAGE}.rules"})
        self.assertTrue(os.access(self.top / "install-esptool", os.X_OK))
        self.assertEqual((self.top / "README.txt").read_text(), README.read_text())

    def test_runs_from_any_folder(self) -> None:
        home = self.folder / "home"
        subprocess.run([ROOT / "tests/device/install-esptool", "--cache", BUILD / "esptool-cache", home],
                       check=True)
        said = subprocess.run([self.top / PROGRAM, "--self-test"], env=dict(os.environ, HOME=str(home)),
                              text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual((said.returncode, len(said.stdout.splitlines())), (0, 9), said.stdout)


if __name__ == "__main__":
    unittest.main(verbosity=2)
