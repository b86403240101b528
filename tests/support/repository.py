"""The files of the repository as they are here, including changed and new ones."""

import subprocess
from pathlib import Path

from support.built import ROOT


def files() -> list[str]:
    listed = subprocess.run(["git", "ls-files", "-z", "--cached", "--others", "--exclude-standard"], cwd=ROOT, check=True,
                            capture_output=True, text=True).stdout
    return [name for name in listed.split("\0") if name and (ROOT / name).exists()]


def copy_files(folder: Path) -> None:
    folder.mkdir(parents=True, exist_ok=True)
    subprocess.run(["cp", "--parents", "--no-dereference", "--preserve=mode", "--target-directory", folder, *files()],
                   cwd=ROOT, check=True)
