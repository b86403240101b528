"""A valid release in its own bundle, and a home folder with a stand-in for the tool."""

from __future__ import annotations

import os
import shutil
import subprocess
from pathlib import Path

from support.built import BUNDLE, LIBRARIES, MANIFEST, PROGRAM, RESOURCES, TOOL
from support.child import run
from support.release_cases import image_of, manifest_of

class Installation:
    """The built program in a bundle with a valid release, and a home folder with a tool. Tests may change both."""

    def __init__(self, bundle: Path, has_window: bool) -> None:
        self.program, self.resources = bundle / PROGRAM, bundle / RESOURCES
        self.libraries, self.manifest_file = bundle / LIBRARIES, bundle / MANIFEST
        self.icon, self.image = self.resources / "AppIcon.icns", self.resources / "release-complete.bin"
        self.home = bundle.parent / "home"
        self.tool = self.home / TOOL
        for file in (self.program, self.icon, self.tool):
            file.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(BUNDLE / PROGRAM, self.program)
        if has_window:
            shutil.copytree(BUNDLE / LIBRARIES, self.libraries)
        self.icon.write_bytes(b"not a picture: the program has one of its own")
        self.image.write_bytes(image_of({}))
        self.tool.write_text("print('esptool.py v4.7.0'); print('4.7.0')")
        self.environment = dict(os.environ, HOME=str(self.home))
        self.write_manifest()

    def write_manifest(self, **changed: object) -> None:
        """Writes a valid manifest with these values changed. Each keyword is the path of a field."""
        self.manifest_file.write_bytes(manifest_of({"manifest": changed}))

    def run(self, *arguments: str, prefix: tuple = (), **options) -> subprocess.CompletedProcess:
        return run(*prefix, self.program, *arguments, **{"env": self.environment, **options})
