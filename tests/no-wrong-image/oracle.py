"""A second judge of a release, written only from the rules of the checks: which verdict, in which words."""

from __future__ import annotations

import hashlib
import json
import os
import re
from pathlib import Path

from support.release_cases import RIGHT

INT64 = range(-(2**63), 2**63)
NOT_JSON = "The flash manifest is not valid JSON: "


class Refused(Exception):
    """The verdict. "…" matches the parser's own words."""


def verdict(bundle: Path, tool: Path) -> str:
    """ "OK" and the digest, or the message of the first fault."""
    try:
        return "OK " + judge(bundle / "Contents" / "Resources", tool)
    except Refused as refused:
        return str(refused)


def judge(folder: Path, tool: Path) -> str:
    file = folder / "qelmo-varnox-flash-manifest.json"
    require(file.exists(), "The embedded flash manifest is missing.")
    manifest = parsed(contents(file))
    require_record(manifest, RIGHT, "")
    require_values(manifest)
    image = contents(f"{folder}/{manifest['binary']['path']}")
    digest = judge_image(image, manifest["binary"])
    require(tool.exists(), "The local Espressif tool is missing. Run BUILD-FULL-MAC.command once.")
    return digest


def require(holds: bool, message: str) -> None:
    if not holds:
        raise Refused(message)


def require_values(manifest: dict) -> None:
    geometry = (manifest["flash"]["flashSize"], manifest["flash"]["flashMode"])
    require(manifest["schemaVersion"] == 1, "The embedded flash manifest version is unsupported.")
    require(manifest["chipFamily"] == "ESP32-S3", "This release is not locked to ESP32-S3.")
    require(manifest["binary"]["offset"] == 0, "The complete firmware must flash at address 0x0.")
    require(geometry == ("8MB", "dio"), "The embedded flash geometry is not Cardputer ADV safe.")


def judge_image(image: bytes, binary: dict) -> str:
    digest = hashlib.sha256(image).hexdigest()
    stated = "".join(c.lower() if c.isascii() else c for c in binary["sha256"])
    require(binary["size"] == len(image), "The embedded firmware size does not match its manifest.")
    require(len(image) > 0x10000 and {image[0], image[0x10000]} == {0xE9},
            "The embedded file is not a complete QELMO firmware image.")
    require(stated == digest, "The embedded firmware checksum is not trusted.")
    return digest


def contents(path: Path | str) -> bytes:
    shown = re.sub("[\0-\x1f\x7f-\x9f\u2028-\u202e\u2066-\u2069]", "?", str(path))
    try:
        with open(path, "rb") as file:
            return file.read()
    except ValueError:
        raise Refused(f"open {shown}: Invalid argument") from None  # a NUL
    except OSError as error:
        operation = "read" if isinstance(error, IsADirectoryError) else "open"
        raise Refused(f"{operation} {shown}: {os.strerror(error.errno)}") from None


class Float:
    """A number that is not a 64-bit integer, signed or unsigned."""


def parsed(data: bytes) -> object:
    require(b"\0" not in data, NOT_JSON + "it holds a NUL byte")

    def number(text: str) -> object:
        if float(text) in (float("inf"), float("-inf")):
            raise ValueError
        return Float()

    def integer(text: str) -> object:
        value = int(text)
        return value if value in INT64 or 0 <= value < 2**64 else number(text)

    def no_constant(text: str) -> object:
        raise ValueError(text)

    try:
        text = data.removeprefix("\uFEFF".encode()).decode("utf-8", errors="strict")
        value = json.loads(text, parse_float=number, parse_int=integer, parse_constant=no_constant)
        json.dumps(value, default=str, ensure_ascii=False).encode("utf-8")  # fails for half a surrogate pair
        return value
    except ValueError:
        raise Refused(NOT_JSON + "…") from None


def kind(value: object) -> str:
    kinds = {type(None): "null", dict: "an object", list: "an array", str: "a string", bool: "a boolean",
             int: "an integer", Float: "a number that is not a 64-bit integer"}
    return kinds[type(value)]


def require_record(value: object, right: dict, path: str) -> None:
    """Each field has the same type as in the right record."""
    require(isinstance(value, dict), f"{path or 'The flash manifest'}: expected an object, found {kind(value)}")
    for key, wanted in right.items():
        name = f"{path}.{key}" if path else key
        require(key in value, f"{name}: the key is missing")
        field = value[key]
        if isinstance(wanted, dict):
            require_record(field, wanted, name)
            continue
        require(kind(field) == kind(wanted), f"{name}: expected {kind(wanted)}, found {kind(field)}")
        require(kind(wanted) != kind(0) or field in INT64, f"{name}: the number does not fit a 64-bit integer")
