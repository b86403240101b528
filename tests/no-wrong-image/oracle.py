"""A second judge of a release, written from the rules of its checks alone: which verdict, in which words."""

from __future__ import annotations

import hashlib
import json
import os
from pathlib import Path

INT64 = range(-(2**63), 2**63)
NOT_JSON = "The flash manifest is not valid JSON: "

TEXT, INTEGER, BOOLEAN = "a string", "an integer", "a boolean"
BINARY = {"path": TEXT, "offset": INTEGER, "size": INTEGER, "sha256": TEXT}
FLASH = {"baud": INTEGER, "flashSize": TEXT, "flashMode": TEXT, "flashFrequency": TEXT,
         "eraseAllInternalFlash": BOOLEAN, "after": TEXT, "confirmationText": TEXT}
DOCUMENT = {"schemaVersion": INTEGER, "name": TEXT, "version": TEXT, "chipFamily": TEXT, "hardware": TEXT,
            "binary": BINARY, "flash": FLASH}


class Refused(Exception):
    """The verdict; one that ends in "..." leaves open what follows: the parser's own words."""


def verdict(bundle: Path, has_tool: bool) -> str:
    """ "OK" and the digest, or the message of the first fault."""
    try:
        return "OK " + judge(bundle / "Contents" / "Resources", has_tool)
    except Refused as refused:
        return str(refused)


def agree(expected: str, found: str) -> bool:
    return found.startswith(expected[:-3]) if expected.endswith("...") else found == expected


def judge(folder: Path, has_tool: bool) -> str:
    file = folder / "qelmo-varnox-flash-manifest.json"
    if not file.exists():
        raise Refused("The embedded flash manifest is missing.")
    manifest = parsed(contents(file))
    require_record(manifest, DOCUMENT, "")
    require_values(manifest)
    image = contents(f"{folder}/{manifest['binary']['path']}")
    digest = judge_image(image, manifest["binary"])
    if not has_tool:
        raise Refused("The local Espressif tool is missing. Run BUILD-FULL-MAC.command once.")
    return digest


def require_values(manifest: dict) -> None:
    geometry = (manifest["flash"]["flashSize"], manifest["flash"]["flashMode"])
    for holds, message in (
            (manifest["schemaVersion"] == 1, "The embedded flash manifest version is unsupported."),
            (manifest["chipFamily"] == "ESP32-S3", "This release is not locked to ESP32-S3."),
            (manifest["binary"]["offset"] == 0, "The complete firmware must flash at address 0x0."),
            (geometry == ("8MB", "dio"), "The embedded flash geometry is not Cardputer ADV safe.")):
        if not holds:
            raise Refused(message)


def judge_image(image: bytes, binary: dict) -> str:
    digest = hashlib.sha256(image).hexdigest()
    if binary["size"] != len(image):
        raise Refused("The embedded firmware size does not match its manifest.")
    if len(image) <= 0x10000 or {image[0], image[0x10000]} != {0xE9}:
        raise Refused("The embedded file is not a complete QELMO firmware image.")
    lower = "".join(c.lower() if c.isascii() else c for c in binary["sha256"])
    if lower != digest:
        raise Refused("The embedded firmware checksum is not trusted.")
    return digest


def contents(path: Path | str) -> bytes:
    try:
        with open(path, "rb") as file:
            return file.read()
    except ValueError:
        raise Refused(f"open {shown(path)}: Invalid argument") from None  # a NUL
    except OSError as error:
        operation = "read" if isinstance(error, IsADirectoryError) else "open"
        raise Refused(f"{operation} {shown(path)}: {os.strerror(error.errno)}") from None


def shown(path: Path | str) -> str:
    return "".join("?" if ord(c) < 0x20 or ord(c) == 0x7F else c for c in str(path))


class Float:
    """A number that is no 64-bit integer, signed or not."""


def parsed(data: bytes) -> object:
    if b"\0" in data:
        raise Refused(NOT_JSON + "it holds a NUL byte")

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
        raise Refused(NOT_JSON + "...") from None


def kind(value: object) -> str:
    kinds = {type(None): "null", dict: "an object", list: "an array", str: TEXT, bool: BOOLEAN, int: INTEGER,
             Float: "a number that is not a 64-bit integer"}
    return kinds[type(value)]


def require_record(value: object, fields: dict, path: str) -> None:
    if not isinstance(value, dict):
        raise Refused(f"{path or 'The flash manifest'}: expected an object, found {kind(value)}")
    for key, wanted in fields.items():
        name = f"{path}.{key}" if path else key
        if key not in value:
            raise Refused(f"{name}: the key is missing")
        field = value[key]
        if isinstance(wanted, dict):
            require_record(field, wanted, name)
        elif kind(field) != wanted:
            raise Refused(f"{name}: expected {wanted}, found {kind(field)}")
        elif wanted == INTEGER and field not in INT64:
            raise Refused(f"{name}: the number does not fit a 64-bit integer")
