"""The packages of this build."""

from __future__ import annotations

import os
import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parents[1]))
from support import built  # noqa: E402
from support.built import BUILD  # noqa: E402

VERSION = os.environ["QELMO_PACKAGE_VERSION"]
PACKAGE = "qelmo-varnox-flasher"
PROGRAM = f"QELMO Varnox Flasher.app/{built.PROGRAM}"


def made(pattern: str) -> Path:
    """The one package whose name fits; another version's, made in the same folder before, does not."""
    [package] = (BUILD / "packages").glob(pattern)
    return package


def debian_package() -> Path:
    return made(f"{PACKAGE}_{VERSION}-*.deb")


def portable_tar() -> Path:
    return made(f"{PACKAGE}-{VERSION}-linux-*.tar.gz")
