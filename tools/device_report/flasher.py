"""The application's flash job, and the flashing tool on its own, as command lines."""

from __future__ import annotations

from pathlib import Path
from typing import Dict, List, NamedTuple, Tuple

FLASH_SIZE = 8 * 1024 * 1024
BUNDLE = "QELMO Varnox Flasher.app"
BAUD = "921600"
# Here the ROM loader stores through which kind of port it is connected.
PORT_REGISTER = "0x3FCEF14C"
# Without these three the tool would rewrite the header of the loader in the backup.
KEEP = ("--flash_mode", "keep", "--flash_freq", "keep", "--flash_size", "keep")

# For each kind of build: its build folder and the folder that contains its bundle, both below the repository.
BUILDS = (("build", "build"), ("build/macos/tree", "build/macos"))


def default_build(root: Path) -> Tuple[Path, Path]:
    """The build folder and the bundle of the first build that exists; those of ./check if there is none."""
    for build, above_bundle in BUILDS:
        if (root / above_bundle / BUNDLE).is_dir() and (root / build / "CMakeCache.txt").exists():
            return root / build, root / above_bundle / BUNDLE
    return root / "build", root / "build" / BUNDLE


class Flasher(NamedTuple):
    """One port, and what the application would flash it with."""
    program: Path
    bundle: Path
    port: str
    facts: Dict[str, str]

    @property
    def python(self) -> str:
        return self.facts["python"]

    def image(self) -> bytes:
        return Path(self.facts["image"]).read_bytes()

    def flash_release(self) -> List[str]:
        return [str(self.program), str(self.bundle), self.port]

    def tool(self, *arguments: str) -> List[str]:
        return [self.python, self.facts["esptool"], *arguments]

    def at_device(self, after: str, *arguments: str) -> List[str]:
        return self.tool("--chip", "esp32s3", "--port", self.port, "--baud", BAUD, "--before", "default_reset",
                         "--after", after, *arguments)

    def chip(self) -> List[str]:
        return self.at_device("no_reset", "flash_id")

    def kind_of_port(self) -> List[str]:
        return self.at_device("no_reset", "read_mem", PORT_REGISTER)

    def read(self, file: Path, after: str) -> List[str]:
        return self.at_device(after, "read_flash", "0", hex(FLASH_SIZE), str(file))

    def write(self, file: Path, after: str) -> List[str]:
        return self.at_device(after, "write_flash", *KEEP, "0x0", str(file))

    def expected_after_flash(self, before: bytes) -> bytes:
        image = self.image()
        if self.facts["erase"] == "yes":
            return image.ljust(FLASH_SIZE, b"\xff")
        # Only whole sectors can be erased.
        sectors = -(-len(image) // 4096) * 4096
        return image.ljust(sectors, b"\xff") + before[sectors:]


def facts_of(output: str) -> Dict[str, str]:
    return {key: value for key, _, value in (line.partition("=") for line in output.splitlines())}
