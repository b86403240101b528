"""The packages of this build."""

from __future__ import annotations

import os
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ["QELMO_BUILD"])
VERSION = os.environ["QELMO_PACKAGE_VERSION"]
PACKAGE = "qelmo-varnox-flasher"
BUNDLE_NAME = "QELMO Varnox Flasher.app"
PROGRAM = f"{BUNDLE_NAME}/Contents/MacOS/QelmoFlasher"


def made(pattern: str) -> Path:
    """The one package whose name fits; another version's, made in the same folder before, does not."""
    name = pattern.format(version=VERSION)
    found = list((BUILD / "packages").glob(name))
    if len(found) != 1:
        raise SystemExit(f"{BUILD}/packages holds {len(found)} of {name}, not one")
    return found[0]


def debian_package() -> Path:
    return made(PACKAGE + "_{version}-*.deb")


def portable_tar() -> Path:
    return made(PACKAGE + "-{version}-linux-*.tar.gz")
