#!/usr/bin/python3
"""In a Debian that never saw this project, the package installs, flashes and is removed without a trace."""

from __future__ import annotations

import base64
import json
import os
import platform
import shutil
import stat
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path
from typing import NoReturn

from test_packages import PACKAGE, PROGRAM, debian_package, portable_tar
from support.built import BUILD, ROOT, SAMPLE_IMAGE, TOOL
from support.child import CANNOT_RUN_HERE
from support.real_tool import install_tool

PLACE = BUILD / "clean-root"
DEBIAN, SHARED, ARCHIVES = PLACE / "root", PLACE / "shared", PLACE / "archives"
HOME = "/mnt/shared/home"  # its path inside the root
OWNER = ("runuser", "-u", "owner", "--", "env", "HOME=/home/owner")

# A display and tools to use it. They are installed only after the package has worked without them.
DESKTOP = ["xvfb", "openbox", "dbus-daemon", "dbus-bin", "at-spi2-core", "gir1.2-atspi-2.0", "python3-gi",
           "xdotool", "fonts-dejavu-core"]
# The parts of apt's configuration that differ between Debian releases.
SOURCES = ("sources.list", "sources.list.d", "trusted.gpg", "trusted.gpg.d", "keyrings", "preferences.d")
NEXT_DEBIAN = "trixie"
# What the package system itself writes whenever it installs or removes anything, and the user's own files.
RECORDS = ("var/log/", "var/lib/dpkg/", "var/lib/apt/", "var/cache/apt/", "var/cache/debconf/",
           "var/cache/ldconfig/", "etc/ld.so.cache/", "dev/", "proc/", "tmp/", "mnt/", "home/owner/")


def cannot_run_here(reason: str) -> NoReturn:
    print(f"test_clean_root: {reason}", file=sys.stderr)
    sys.exit(CANNOT_RUN_HERE)


def this_debian() -> tuple[str, str]:
    """The running release's name, and the mirror from which this machine's apt gets it."""
    codename = platform.freedesktop_os_release().get("VERSION_CODENAME", "")
    targets = subprocess.run(
        ["apt-get", "indextargets", "--format", "$(ORIGIN)|$(CODENAME)|$(COMPONENT)|$(REPO_URI)",
         "Created-By: Packages"], capture_output=True, text=True).stdout.splitlines()
    for target in targets:
        if codename and target.startswith(f"Debian|{codename}|main|"):
            return codename, target.rpartition("|")[2]
    cannot_run_here("apt names no mirror of this machine's Debian release (run apt-get update once)")


def base(codename: str, mirror: str) -> Path:
    """A minimal Debian, made once."""
    folder = PLACE / codename
    if not folder.exists():
        part = folder.with_suffix(".part")
        shutil.rmtree(part, ignore_errors=True)
        subprocess.run(["unshare", "-m", "debootstrap", "--variant=minbase", codename, part, mirror], check=True,
                       stdout=subprocess.DEVNULL)
        subprocess.run(["chroot", part, "apt-get", "clean"], check=True)
        part.rename(folder)
    return folder


def take_apt_configuration(sources: tuple[str, ...]) -> None:
    """Copies this machine's package sources into the root, but not its credentials (auth.conf)."""
    for name in ("apt.conf.d", *sources):
        source, target = Path("/etc/apt", name), DEBIAN / "etc/apt" / name
        if source.exists():
            subprocess.run(["cp", "--recursive", source, target.parent], check=True)
        elif target.is_file():
            target.unlink()
    for name in ("/etc/resolv.conf", "/etc/hosts"):
        shutil.copy(name, DEBIAN / name.lstrip("/"))


def make_root(codename: str) -> None:
    """With this machine's Debian release, or with another one from the same mirror."""
    own, mirror = this_debian()
    for folder in (DEBIAN, SHARED):
        shutil.rmtree(folder, ignore_errors=True)
    for folder in (SHARED / "home", ARCHIVES / "partial"):
        folder.mkdir(parents=True, exist_ok=True)
    subprocess.run(["cp", "--archive", base(codename, mirror), DEBIAN], check=True)
    take_apt_configuration(SOURCES if codename == own else ())
    apt_get("update")


def in_root(*command: str) -> str:
    """The output of the command, which must succeed. The command may begin with variables."""
    result = subprocess.run(
        [ROOT / "tests/packaging/in-root", DEBIAN, "--show", ROOT, "/mnt/repo", "--show", BUILD, "/mnt/build",
         "--share", SHARED, "/mnt/shared", "--share", ARCHIVES, "/var/cache/apt/archives", "--", *command],
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if result.returncode != 0:
        raise AssertionError(f"{' '.join(command)} ended with {result.returncode}:\n{result.stdout}")
    return result.stdout


def apt_get(*arguments: str) -> str:
    return in_root("apt-get", "-q", "-y", "--no-install-recommends", "-o", "APT::Sandbox::User=root",
                   "-o", "APT::Keep-Downloaded-Packages=true", *arguments)


def files() -> set[tuple]:
    found = set()
    for path in DEBIAN.rglob("*"):
        name = str(path.relative_to(DEBIAN))
        if not f"{name}/".startswith(RECORDS):
            about = path.lstat()
            found.add((name, oct(about.st_mode), about.st_uid, about.st_gid,
                       0 if stat.S_ISDIR(about.st_mode) else about.st_size))
    return found


def tearDownModule() -> None:
    if DEBIAN.exists():
        shutil.rmtree(DEBIAN)


def package_of(version: str) -> str:
    """The package as its maker makes it, by its path inside the root. Another version also has another image."""
    image, build = PLACE / "merged.bin", PLACE / "shipping"
    PLACE.mkdir(exist_ok=True)
    data = bytearray(SAMPLE_IMAGE.read_bytes())
    data[-1] = version.encode()[-1]
    image.write_bytes(data)
    for command in (
            ["cmake", "-G", "Ninja", "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
             "-DQELMO_TESTS=OFF", f"-DQELMO_PACK_RELEASE={BUILD}/tools/pack-release",
             f"-DQELMO_RELEASE_IMAGE={image}", f"-DQELMO_RELEASE_VERSION={version}",
             "-DQELMO_RELEASE_NAME=Varnox R&D"],
            ["cmake", "--build", build, "--target", "QelmoFlasher", "QelmoWindow", "bundle", "packaging"],
            ["cpack", "--config", build / "CPackConfig.cmake"]):
        subprocess.run(command, check=True, cwd=build if build.exists() else PLACE, stdout=subprocess.DEVNULL)
    [package] = build.glob(f"packages/{PACKAGE}_{version}+app*.deb")
    return f"/mnt/build/{package.relative_to(BUILD)}"


def archive_of_tool() -> str:
    """A complete tool as an owner may have it, by its path inside the root. The simulated device does not run its
    stub."""
    with tempfile.TemporaryDirectory() as home:
        install_tool(Path(home))
        tool = (Path(home) / TOOL).parent
        [stub] = tool.glob("esptool/targets/stub_flasher/**/*32s3.json")
        content = json.loads(stub.read_text())
        stub.write_text(json.dumps({**content, "text": base64.b64encode(bytes(4096)).decode()}))
        subprocess.run(["tar", "-C", tool.parent, "-czf", SHARED / "esptool.tar.gz", tool.name], check=True)
    return "/mnt/shared/esptool.tar.gz"


class CleanRoot(unittest.TestCase):
    # fault: the tool and pip are missing; the sample's package is installed over the package of a release
    # seen: "The local Espressif tool is missing. Run BUILD-FULL-MAC.command once.", "without --allow-downgrades"
    def test_an_owner_of_the_package_gets_the_tool_flashes_two_releases_and_removes_it_without_a_trace(self) -> None:
        sample = f"/mnt/build/packages/{debian_package().name}"
        packages = {version: package_of(version) for version in ("1.2.3", "1.2.4")}
        for codename in dict.fromkeys((this_debian()[0], NEXT_DEBIAN)):
            with self.subTest(codename):
                make_root(codename)
                apt_get("install", sample)
                self.try_in_the_smallest_debian()
                apt_get("purge", PACKAGE)  # its dependencies stay
                in_root("useradd", "--create-home", "owner")
                apt_get("install", *DESKTOP)
                before = files()
                self.assertEqual([name for name, *_ in before if "qelmo" in name], [])
                apt_get("install", packages["1.2.3"])
                self.get_the_tool()
                self.flash("1.2.3")
                apt_get("install", packages["1.2.4"])
                self.flash("1.2.4")
                with self.assertRaisesRegex(AssertionError, "without --allow-downgrades"):
                    apt_get("install", sample)
                self.assertIn("release=1.2.4", self.as_owner(PACKAGE, "--self-test").splitlines())
                self.assertNotEqual(files(), before)
                apt_get("purge", PACKAGE)
                self.assertEqual(sorted(files() ^ before), [])
                self.assertNotIn(f"\n{PACKAGE}\n", in_root("dpkg-query", "-W", "-f", "${Package}\\n"))

    def try_in_the_smallest_debian(self) -> None:
        """The package's dependencies are all that it and the portable tar archive need."""
        # The tool's script refuses to install if the tool does not start with the package's own dependencies.
        in_root("/mnt/repo/tests/device/install-esptool", "--cache", "/mnt/build/esptool-cache", HOME)
        in_root(f"HOME={HOME}", "QT_QPA_PLATFORM=offscreen", PACKAGE, "--window-self-test")
        in_root("tar", "-C", "/mnt/shared", "-xzf", f"/mnt/build/packages/{portable_tar().name}")
        for program in (PACKAGE, f"/mnt/shared/{portable_tar().name.removesuffix('.tar.gz')}/{PROGRAM}"):
            said = in_root(f"HOME={HOME}", program, "--self-test")
            self.assertEqual(len(said.splitlines()), 9, said)

    def get_the_tool(self) -> None:
        command = f"{PACKAGE}-install-esptool"
        for refused, words in (((PACKAGE, "--self-test"),
                                "The local Espressif tool is missing. Run BUILD-FULL-MAC.command once."),
                               ((command,), "esptool is downloaded with pip, which is not installed")):
            with self.assertRaisesRegex(AssertionError, words):
                self.as_owner(*refused)
        self.assertIn(" is in /home/owner/.platformio/packages/tool-esptoolpy now.",
                      self.as_owner(command, "--from", archive_of_tool()))

    def flash(self, version: str) -> None:
        self.assertIn(f"release={version}", self.as_owner(PACKAGE, "--self-test").splitlines())
        # The upgrade removed the previous release's image.
        self.assertEqual(len(list(DEBIAN.glob(f"usr/lib/{PACKAGE}/*/Contents/Resources/*.bin"))), 1)
        # The device's port is a link in /dev, made by the user who runs the simulated device.
        print(in_root(
            "QELMO_BUILD=/mnt/build", "QELMO_BUNDLE=/mnt/build",
            "/mnt/repo/tests/device/private-dev", "--", "bash", "-c",
            'chmod 1777 /dev && install -d -o owner /tmp/device && exec "$@"', "-", *OWNER,
            "/mnt/repo/tests/support/with-display", "--window-manager", "--accessibility", "--",
            "/usr/bin/python3", "-B", "/mnt/repo/tests/packaging/flash_installed.py", f"/usr/bin/{PACKAGE}",
            "/home/owner", "/tmp/device"), end="")

    @staticmethod
    def as_owner(*command: str) -> str:
        return in_root(*OWNER, *command)


if __name__ == "__main__":
    if os.geteuid() != 0:
        cannot_run_here("only root can make a clean root")
    if not shutil.which("debootstrap"):
        cannot_run_here("debootstrap is not installed")
    unittest.main(failfast=True)
