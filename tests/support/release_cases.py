"""The cases of tests/release/release-cases.json, whose first lines explain the fields."""

from __future__ import annotations

import copy
import hashlib
import json
import re
import shutil
from pathlib import Path

TABLE = json.loads((Path(__file__).parents[1] / "release" / "release-cases.json").read_text())
RIGHT, CASES = TABLE["manifest"], TABLE["cases"]
PATHS = [*RIGHT, *(f"{outer}.{key}" for outer in ("binary", "flash") for key in RIGHT[outer])]


def field_of(manifest: dict, path: str) -> tuple[dict, str]:
    """The object that holds the field, and the field's key in it."""
    outer, _, key = path.rpartition(".")
    return (manifest[outer] if outer else manifest), key


def image_of(case: dict) -> bytes:
    change = case.get("image", {})
    image = bytearray(b"\xe9" + bytes(65535) + b"\xe9")
    length = change.get("length", len(image))
    image = image[:length].ljust(length, b"\0")
    for offset, value in change.get("bytes", {}).items():
        image[int(offset)] = value
    return bytes(image)


def manifest_of(case: dict) -> bytes:
    manifest, texts = copy.deepcopy(RIGHT), {}
    if case.get("image", {}).get("described"):
        image = image_of(case)
        manifest["binary"].update(size=len(image), sha256=hashlib.sha256(image).hexdigest())
    changes = case.get("manifest", {})
    for path, value in changes.items() if isinstance(changes, dict) else ():
        holder, key = field_of(manifest, path)
        holder[key] = f"({path})"
        texts[f'"({path})"'] = value["raw"] if isinstance(value, dict) and "raw" in value else json.dumps(value)
    for path in case.get("removed", ()):
        holder, key = field_of(manifest, path)
        del holder[key]
    text = changes if isinstance(changes, str) else json.dumps(manifest)
    for placeholder, replacement in texts.items():
        text = text.replace(placeholder, replacement)
    return (case.get("before", "") + text + case.get("after", "")).encode("latin-1")


def write_release(case: dict, resources: Path, tool: Path) -> None:
    places = {"resources": resources, "manifest": resources / "qelmo-varnox-flash-manifest.json",
              "image": resources / "release-complete.bin", "tool": tool}
    for folder in (resources, tool.parent):
        folder.mkdir(parents=True, exist_ok=True)
    places["manifest"].write_bytes(manifest_of(case))
    places["image"].write_bytes(image_of(case))
    tool.touch()
    for name, state in case.get("files", {}).items():
        place = places[name]
        if place.is_dir():
            shutil.rmtree(place)
        else:
            place.unlink()
        if state == "folder":
            place.mkdir()
        elif state == "file":
            place.touch()


def says(text: str, sentence: str) -> bool:
    """True when `text` is the sentence, in which "…" is any text."""
    return re.fullmatch(".*".join(map(re.escape, sentence.split("…"))), text) is not None
