#!/usr/bin/python3
"""install-esptool with the real tool, and with stand-ins for bad copies and for pip. Nothing is downloaded."""

from __future__ import annotations

import base64
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support.built import ROOT, TOOL  # noqa: E402
from support.child import run  # noqa: E402
from support.real_tool import install_tool  # noqa: E402
from support.waiting import LIMIT_SECONDS, wait_until  # noqa: E402

INSTALL = ROOT / "packaging/install-esptool"

STUB = "esptool/targets/stub_flasher/stub_flasher_32s3.json"
LATER_STUB = "esptool/targets/stub_flasher/1/esp32s3.json"
DOWNLOAD = "run the same command without --from, which downloads esptool 4.8.1"
APT = "sudo apt install --no-install-recommends"
NO_STUB = "it lacks the program for the ESP32-S3 (Debian's package does not contain it)"
NO_REAL_STUB = "esp32s3.json, the program for the ESP32-S3, is damaged or a placeholder"

STAND_IN = """import sys

import intelhex
import serial

__version__ = "4.8.1"


def _main():
    print("options: --verify" if "--help" in sys.argv else f"esptool.py v{__version__}\\n{__version__}")
"""
STARTER = "import esptool\n\nesptool._main()\n"
# Copies an archive, waits, or fails with the given message.
PIP = """import os, shutil, signal, sys

option = dict(zip(sys.argv, sys.argv[1:]))
with open(os.environ["PIP_CALL"], "w") as call:
    call.write(" ".join(sys.argv[1:]) + open(option["--requirement"]).read())
does = os.environ["PIP"]
if does == "block":
    signal.pause()
if not os.path.exists(does):
    sys.exit("WARNING: Retrying\\n" + does)
os.mkdir(option["--dest"])
shutil.copy(does, option["--dest"])
"""


def stub(length: int) -> str:
    return json.dumps({"entry": 0x40378004, "text_start": 0x40378000, "data_start": 0x3FCB2BF4, "data": "AAAA",
                       "text": base64.b64encode(bytes(length)).decode()})


def write(folder: Path, files: dict[str, str]) -> Path:
    for name, text in files.items():
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        (folder / name).write_text(text)
    return folder


def stand_in(folder: Path) -> Path:
    """A tool that looks complete without a device, in the form of an installed package."""
    return write(folder, {"esptool/__init__.py": STAND_IN, "esptool/__main__.py": STARTER, LATER_STUB: stub(4096)})


def tree(folder: Path) -> dict[str, bytes | str | None]:
    return {str(path.relative_to(folder)): os.readlink(path) if path.is_symlink()
            else None if path.is_dir() else path.read_bytes() for path in folder.rglob("*")}


class InstallTest(unittest.TestCase):
    def setUp(self) -> None:
        self.folder = Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.home = self.folder / "home"
        self.home.mkdir()
        self.target = (self.home / TOOL).parent
        self.source = stand_in(self.folder / "source")
        self.modules = self.folder / "modules"  # a test can make Python find these before the system's
        self.pip_call = self.folder / "pip-call"

    def environment(self, **more: str | Path) -> dict[str, str]:
        kept = {name: os.environ[name] for name in ("PATH", "TMPDIR") if name in os.environ}
        return {**kept, "HOME": str(self.home), "LC_ALL": "C.UTF-8", **more}

    def assert_says(self, status: int, out: str, error: str, *arguments: str | Path, **environment: object) -> None:
        done = run(INSTALL, *arguments, env=self.environment(**environment))
        self.assertEqual((done.returncode, done.stdout, done.stderr), (status, out, error))

    def assert_installed(self, version: str, *arguments: str | Path, said: str = "", **environment: object) -> None:
        now = f"{said}esptool {version} is in {self.target} now. Press REFRESH BUILD in the window.\n"
        self.assert_says(0, now, "", *arguments, **environment)

    def assert_refused(self, what: str, next_step: str, *arguments: str | Path, said: str = "",
                       **environment: object) -> None:
        before = tree(self.home)
        line = f"install-esptool: {what}. Nothing was changed. Next: {next_step}\n"
        self.assert_says(1, said, line, *arguments, **environment)
        self.assertTrue(tree(self.home) == before)

    def pip(self, what: str) -> dict[str, str | Path]:
        """The environment with which Python finds a pip that does this."""
        write(self.modules, {"pip/__init__.py": "", "pip/__main__.py": PIP, "setuptools.py": ""})
        return {"PYTHONPATH": self.modules, "PIP": what, "PIP_CALL": self.pip_call}


class GoodCopies(InstallTest):
    def test_the_real_tool_is_put_in_place_unchanged_from_a_folder_and_from_archives(self) -> None:
        made = self.folder / "simulated"
        install_tool(made)
        source = (made / TOOL).parent
        (source / "package.json").unlink()
        write(source, {STUB: stub(4096)})
        archives = (Path(shutil.make_archive(str(self.folder / "e"), kind, source)) for kind in ("gztar", "zip"))
        for copy in (source, source.parent, *archives):
            with self.subTest(copy=copy.name):
                self.assert_installed("4.7.0", "--from", copy)
                self.assertTrue(tree(self.target) == tree(source))
                self.assertEqual(os.listdir(self.target.parent), [self.target.name])
                shutil.rmtree(self.home / ".platformio")

    def test_the_tool_that_python_has_is_preferred_to_a_download(self) -> None:
        self.assert_installed("4.8.1", **{**self.pip("not wanted"), "PYTHONPATH": self.source})
        self.assertEqual((self.target / "esptool.py").read_text(), STARTER)
        self.assertFalse(self.pip_call.exists())

    def test_one_version_of_known_content_is_downloaded_when_debians_package_is_incomplete(self) -> None:
        (stand_in(self.modules) / LATER_STUB).unlink()
        archive = shutil.make_archive(str(self.folder / "esptool-4.8.1"), "gztar", self.source)
        self.assert_installed("4.8.1", **self.pip(archive),
                              said=f"Not used: {self.modules}: {NO_STUB}.\nDownloading esptool 4.8.1...\n")
        self.assertRegex(self.pip_call.read_text(), "^download --no-deps --no-build-isolation --no-cache-dir .*"
                         "esptool==4.8.1 --hash=sha256:[0-9a-f]{64}\n$")


class BadCopies(InstallTest):
    # fault: the source is a copy of esptool that the window cannot flash with, or is no copy of esptool
    # seen: "it is esptool 5.3.1, and the flasher needs a 4.x", "it lacks the program for the ESP32-S3"
    def test_are_refused_before_anything_is_changed(self) -> None:
        # A file gets other content. A file without content is removed.
        code = "esptool/__init__.py"
        faults = [
            ("it is esptool 5.3.1, and the flasher needs a 4.x", {code: STAND_IN.replace("4.8.1", "5.3.1")}),
            ("its write_flash does not know --verify", {code: STAND_IN.replace("--verify", "--flash_mode")}),
            ("it does not start: ModuleNotFoundError: No module named 'absent'",
             {code: STAND_IN.replace("import sys", "import absent")}),
            (NO_STUB, {LATER_STUB: ""}), ("there is no esptool 4.x in it", {code: ""}),
            *((NO_REAL_STUB, {LATER_STUB: text}) for text in (stub(300), stub(4096)[:-9]))]
        for fault, files in faults:
            with self.subTest(fault):
                shutil.rmtree(self.source)
                [(name, text)] = files.items()
                write(stand_in(self.source), files)
                if not text:
                    (self.source / name).unlink()
                self.assert_refused(f"{self.source}: {fault}", DOWNLOAD, "--from", self.source)

    # fault: an archive is cut off, is not an archive, is far too large, or would write outside its folder
    # seen: "it is damaged, or it is not a .zip, .tar.gz or .whl file", "a file in it would be written elsewhere, …"
    def test_archives_are_refused_and_write_nothing_outside(self) -> None:
        def archive_of(member: str, size: int) -> Path:
            archive = self.folder / f"with {size} bytes.zip"
            with zipfile.ZipFile(archive, "w", zipfile.ZIP_DEFLATED) as zipped:
                zipped.writestr(member, bytes(size))
            return archive

        outside = self.folder / "outside"
        cut = Path(shutil.make_archive(str(self.folder / "cut"), "gztar", self.source))
        cut.write_bytes(cut.read_bytes()[:-300])
        for archive, fault in (
                (archive_of("../outside", 4), "a file in it would be written elsewhere, '../outside'"),
                (archive_of(str(outside), 5), f"a file in it would be written elsewhere, '{outside}'"),
                (archive_of("esptool/zeros", 65 << 20), "it is far too large to be esptool"),
                *((file, "it is damaged, or it is not a .zip, .tar.gz or .whl file") for file in (cut, INSTALL))):
            with self.subTest(archive.name):
                self.assert_refused(f"{archive}: {fault}", DOWNLOAD, "--from", archive)
                self.assertFalse(outside.exists())


class ToolThatIsThere(InstallTest):
    def test_stays_when_it_works_even_when_told_to_replace_it(self) -> None:
        stand_in(self.target)
        shutil.copy(self.target / "esptool/__main__.py", self.target / "esptool.py")
        before = tree(self.home)
        self.assert_says(0, f"esptool 4.8.1 is in {self.target} already, and it works. Nothing was changed.\n", "",
                         "--replace", "--from", self.folder)
        self.assertTrue(tree(self.home) == before)

    # fault: the tool that is installed cannot be used, and a replacement cannot be moved into its place
    # seen: "the tool in … cannot be used: …"
    def test_is_replaced_only_when_it_does_not_work_and_only_as_a_whole(self) -> None:
        stand_in(self.target)
        write(self.target, {"esptool.py": STARTER, LATER_STUB: "made up"})
        old = tree(self.target)
        self.assert_refused(f"the tool in {self.target} cannot be used: {NO_REAL_STUB}",
                            "run the same command with --replace, which keeps that tool under another name")
        # The first rename moves the old tool away, the second would move the new one into its place.
        strace = ("strace", "-qq", "-o", "/dev/null", "-e", "trace=/^rename", "-e",
                  "inject=/^rename:error=ENOSPC:when=2")
        result = run(*strace, INSTALL, "--replace", "--from", self.source, env=self.environment())
        self.assertRegex(result.stderr, r"^install-esptool: \S+: No space left on device. Nothing was changed. .*\n$")
        self.assertTrue(tree(self.target) == old)
        self.assertEqual(os.listdir(self.target.parent), [self.target.name])
        aside = self.target.with_name("tool-esptoolpy@old")
        self.assert_installed("4.8.1", "--replace", "--from", self.source,
                              said=f"The tool that was there before is in {aside}.\n")
        self.assertTrue(tree(aside) == old)
        self.assertEqual(sorted(os.listdir(self.target.parent)), [self.target.name, aside.name])


class NotPossible(InstallTest):
    # fault: a module or pip is missing, the computer is offline, or the download is not the known one
    # seen: "esptool is downloaded with pip, which is not installed", "the Python package index cannot be reached"
    def test_says_in_one_line_what_is_missing_and_the_command_that_brings_it(self) -> None:
        write(self.modules, {"intelhex.py": "raise ModuleNotFoundError(\"No module named 'intelhex'\")",
                             "pip.py": "raise ImportError"})
        self.assert_refused("/usr/bin/python3 lacks the module intelhex", f"{APT} python3-serial python3-intelhex",
                            "--from", self.source, PYTHONPATH=self.modules)
        write(self.modules, {"esptool/__init__.py": ""})
        not_taken = f"Not used: {self.modules}: there is no esptool.py in it.\n"
        self.assert_refused("esptool is downloaded with pip, which is not installed",
                            f"{APT} python3-pip python3-setuptools python3-serial python3-intelhex", said=not_taken,
                            PYTHONPATH=self.modules)
        (self.modules / "pip.py").unlink()
        elsewhere = ("run pip download --no-deps esptool==4.8.1 on another computer, then run this command here with "
                     "--from and that file")
        for said, fault, next_step in [
                ("ERROR: Could not find a version that satisfies it (from versions: none)",
                 "the Python package index cannot be reached; this computer may be offline", elsewhere),
                ("ERROR: THESE PACKAGES DO NOT MATCH THE HASHES FROM THE REQUIREMENTS FILE.",
                 "the downloaded file is not the expected esptool 4.8.1 and was not used",
                 "run the same command on another network")]:
            self.assert_refused(fault, next_step, said=f"{not_taken}Downloading esptool 4.8.1...\n", **self.pip(said))

    # fault: the source does not exist, the tool's folder cannot be made, or the script runs under sudo
    # seen: "there is no such file or folder", "Not a directory", "with sudo, the tool would go into root's home folder"
    def test_says_in_one_line_why_the_place_or_the_source_is_wrong(self) -> None:
        self.assert_refused("/nowhere: there is no such file or folder", "run it with --from and the correct path",
                            "--from", "/nowhere")
        if os.geteuid() == 0:
            self.assert_refused("with sudo, the tool would go into root's home folder",
                                "run the same command without sudo", SUDO_UID="1000")
        (self.home / ".platformio").write_text("no folder")
        self.assert_refused(f"{self.home}/.platformio/packages: Not a directory",
                            "fix that, then run the same command again", "--from", self.source)

    # fault: the script is interrupted while it downloads
    def test_leaves_nothing_behind_when_it_is_interrupted(self) -> None:
        write(self.modules, {"esptool/__init__.py": ""})
        environment = self.environment(**self.pip("block"))
        with subprocess.Popen([INSTALL], env=environment, stdout=subprocess.DEVNULL) as process:
            wait_until(self.pip_call.exists, "the call of pip")
            process.send_signal(signal.SIGHUP)
            self.assertEqual(process.wait(LIMIT_SECONDS), 128 + signal.SIGHUP)
        self.assertEqual(tree(self.home), {})


if __name__ == "__main__":
    unittest.main()
