#!/usr/bin/python3
"""Two builds of one commit in different folders, by different users with different settings, give the same bytes."""

from __future__ import annotations

import os
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support import child  # noqa: E402
from support.built import ROOT  # noqa: E402
from support.repository import copy_files  # noqa: E402

BUNDLE = "QELMO Varnox Flasher.app"
STEP_SECONDS = 900

# Folder, variables, umask, jobs, and a command that runs cpack as another user.
BUILDERS = [
    ("one", {"LC_ALL": "C.UTF-8", "TZ": "UTC"}, 0o022, 2, []),
    ("somewhere else/and deeper", {"LC_ALL": "C", "TZ": "Asia/Kathmandu", "GZIP": "-1"}, 0o077, 1,
     ["unshare", "--user", "--map-user=1234", "--map-group=1234"])]


def run(command: list[str], folder: Path, **settings) -> str:
    done = child.run(*command, cwd=folder, stderr=subprocess.STDOUT, timeout=STEP_SECONDS, **settings)
    if done.returncode != 0:
        raise AssertionError(f"{command} in {folder} ended with {done.returncode}:\n{done.stdout[-4000:]}")
    return done.stdout


def built(root: Path, folder: str, variables: dict[str, str], umask: int, jobs: int, somebody: list[str]) -> Path:
    source = root / folder
    # The files as they are here, and the commit to which they belong.
    run(["git", "clone", "-q", "--no-checkout", "--depth", "1", ROOT.as_uri(), source], root)
    copy_files(source)
    environment = {**os.environ, **variables, "HOME": str(source.parent)}
    environment.pop("SOURCE_DATE_EPOCH", None)
    for command in (["cmake", "-G", "Ninja", "-S", ".", "-B", "build", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
                     "-DQELMO_TESTS=OFF"],
                    ["cmake", "--build", "build", "-j", jobs],
                    [*somebody, "cmake", "-E", "chdir", "build", "cpack"]):
        run(command, source, env=environment, umask=umask)
    return source / "build"


def results(build: Path) -> dict[str, Path]:
    """The build's products for others, by names that do not depend on the folder."""
    found = [path for path in (build / BUNDLE).rglob("*") if path.is_file()]
    found += [*build.glob("packages/*.deb"), *build.glob("packages/*.tar.gz"), *build.glob("*.cdx.json"),
              build / "tools" / "pack-release"]
    return {str(path.relative_to(build)): path for path in sorted(found)}


class TwoFolders(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        root = Path(cls.enterClassContext(tempfile.TemporaryDirectory(prefix="qelmo-two-folders-")))
        cls.one, cls.other = (results(built(root, *builder)) for builder in BUILDERS)

    def test_hold_the_same_files_with_the_same_bytes(self) -> None:
        self.assertEqual(list(self.one), list(self.other))
        for expected in ["MacOS/QelmoFlasher", "Frameworks/libQelmoWindow.so", ".deb", ".tar.gz", ".cdx.json"]:
            self.assertTrue(any(name.endswith(expected) for name in self.one), f"no {expected}")
        for name, path in self.one.items():
            if path.read_bytes() != self.other[name].read_bytes():
                self.fail(f"{name} differs; diffoscope tells where")


if __name__ == "__main__":
    unittest.main()
