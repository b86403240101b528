"""What the build has made."""

import os
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("QELMO_BUILD", ROOT / "build"))
BUNDLE = Path(os.environ.get("QELMO_BUNDLE", BUILD / "QELMO Varnox Flasher.app"))
SAMPLE_IMAGE = BUILD / "sample/sample-firmware.bin"

# Inside a bundle.
PROGRAM = "Contents/MacOS/QelmoFlasher"
LIBRARIES = "Contents/Frameworks"
RESOURCES = "Contents/Resources"
MANIFEST = f"{RESOURCES}/qelmo-varnox-flash-manifest.json"
# Below a home folder.
TOOL = ".platformio/packages/tool-esptoolpy/esptool.py"
