"""SLIP framing, as the chip's serial loader uses it."""

from typing import Iterator

END, ESCAPED_END = b"\xc0", b"\xdb\xdc"
ESCAPE, ESCAPED_ESCAPE = b"\xdb", b"\xdb\xdd"


def encode(packet: bytes) -> bytes:
    return END + packet.replace(ESCAPE, ESCAPED_ESCAPE).replace(END, ESCAPED_END) + END


class Decoder:
    """Splits a byte stream into frames. If a host ends in the middle of a packet, the unfinished part becomes a frame
    of its own. The receiver recognises such a frame by its length."""

    def __init__(self) -> None:
        self._pending = bytearray()

    def feed(self, data: bytes) -> Iterator[bytes]:
        self._pending += data
        if END in data:
            *frames, self._pending = self._pending.split(END)
            # END first: unescaping the escape first would create new "DB DC" pairs.
            yield from (bytes(frame.replace(ESCAPED_END, END).replace(ESCAPED_ESCAPE, ESCAPE))
                        for frame in frames if frame)
