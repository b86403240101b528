"""Writes a file in one step, for the other tools in this folder."""

import os


def write_whole(path: str, data: bytes) -> None:
    """Writes the complete file, or leaves the old file unchanged. Raises OSError."""
    part = f"{path}.{os.getpid()}.part"
    try:
        with open(part, "xb") as file:
            file.write(data)
        os.replace(part, path)
    except OSError:
        if os.path.exists(part):
            os.unlink(part)
        raise
