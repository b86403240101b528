"""Writes what macdeployqt leaves in a bundle: small Mach-O files with real headers, in Homebrew's modes and names."""

from __future__ import annotations

import struct
from pathlib import Path
from typing import Sequence

ARM64, LIBRARY = (0x0100000C, 0), 6
HOMEBREW = "/opt/homebrew/opt/qtbase/lib"
SYSTEM = ("/usr/lib/libSystem.B.dylib", "/System/Library/Frameworks/AppKit.framework/Versions/C/AppKit")


def packed(version: str) -> int:
    major, minor, patch = (*map(int, version.split(".")), 0, 0)[:3]
    return major << 16 | minor << 8 | patch


def command(kind: int, *numbers: int, text: str | None = None) -> bytes:
    """The text is at the end; the first number is where it begins."""
    raw = b"" if text is None else text.encode() + b"\0"
    if text is not None:
        numbers = (12 + 4 * len(numbers), *numbers)
    raw = struct.pack(f"<{len(numbers)}I", *numbers) + raw
    raw += bytes(-len(raw) % 8)
    return struct.pack("<2I", kind, 8 + len(raw)) + raw


def mach_o(name: str = "", needs: Sequence[str] = (), run_paths: Sequence[str] = (), minimum: str = "14.0",
           platform: int = 1) -> bytes:
    commands = [command(0x0D, 1, 1 << 16, 1 << 16, text=name)] if name else []
    commands.append(command(0x32, platform, packed(minimum), packed("26.0"), 0))
    commands += [command(0x0C, 2, 1 << 16, 1 << 16, text=library) for library in (*needs, *SYSTEM)]
    commands += [command(0x8000001C, text=path) for path in run_paths]
    raw = b"".join(commands)
    return struct.pack("<8I", 0xFEEDFACF, *ARM64, LIBRARY, len(commands), len(raw), 0x85, 0) + raw


def universal(one: bytes, other: bytes) -> bytes:
    table = struct.pack(">12I", 0xCAFEBABE, 2, *ARM64, 4096, len(one), 12, *ARM64, 8192, len(other), 12)
    return table.ljust(4096, b"\0") + one.ljust(4096, b"\0") + other


def write(file: Path, raw: bytes, mode: int = 0o444) -> None:
    file.parent.mkdir(parents=True, exist_ok=True)
    file.unlink(missing_ok=True)
    file.write_bytes(raw)
    file.chmod(mode)


def in_framework(module: str) -> str:
    return f"{module}.framework/Versions/A/{module}"


def rpath(module: str) -> str:
    return f"@rpath/{in_framework(module)}"


def write_framework(frameworks: Path, module: str, *needs: str) -> None:
    """Found by a run path, so it still names itself by its place in Homebrew."""
    write(frameworks / in_framework(module),
          mach_o(name=f"{HOMEBREW}/{in_framework(module)}", needs=needs, run_paths=["@loader_path/../../.."]))
    (frameworks / f"{module}.framework/{module}").symlink_to(f"Versions/A/{module}")


def write_deployed_qt(contents: Path) -> None:
    """The window needs Widgets. SVG images need a module that is missing, JPEG images a library that exists."""
    frameworks = contents / "Frameworks"
    write(frameworks / "libQelmoWindow.dylib",
          mach_o(name="@rpath/libQelmoWindow.dylib", minimum="13.0", run_paths=["@loader_path"],
                 needs=[f"@loader_path/{in_framework(module)}" for module in ("QtWidgets", "QtGui", "QtCore")]), 0o755)
    for module, *needs in (("QtCore", "@loader_path/../../../libpcre2-16.0.dylib"), ("QtDBus", rpath("QtCore")),
                           ("QtGui", rpath("QtCore"), rpath("QtDBus")), ("QtNetwork", rpath("QtCore")),
                           ("QtWidgets", rpath("QtGui"), rpath("QtCore"))):
        write_framework(frameworks, module, *needs)
    for name in ("libpcre2-16.0.dylib", "libjpeg.8.dylib"):
        write(frameworks / name, mach_o(name=f"@executable_path/../Frameworks/{name}"))
    for plugin, *needs in (("platforms/libqcocoa.dylib", rpath("QtGui"), rpath("QtCore")),
                           ("styles/libqmacstyle.dylib", rpath("QtWidgets"), rpath("QtGui"), rpath("QtCore")),
                           ("imageformats/libqjpeg.dylib", "@loader_path/../../Frameworks/libjpeg.8.dylib"),
                           ("imageformats/libqsvg.dylib", rpath("QtSvg"), rpath("QtGui")),
                           ("tls/libqsecuretransportbackend.dylib", rpath("QtNetwork")),
                           ("platforms/libqminimal.dylib", rpath("QtGui"))):
        write(contents / "PlugIns" / plugin, mach_o(needs=needs, run_paths=["@loader_path/../../Frameworks"]))
