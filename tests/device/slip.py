"""SLIP framing, as the chip's serial loader uses it."""

from typing import Iterator

END = b"\xc0"
ESCAPED_END = b"\xdb\xdc"
ESCAPE = b"\xdb"
ESCAPED_ESCAPE = b"\xdb\xdd"

# Four times the largest request; more than that without an END is not a frame but noise.
LONGEST_FRAME = 65536


def encode(packet: bytes) -> bytes:
    return END + packet.replace(ESCAPE, ESCAPED_ESCAPE).replace(END, ESCAPED_END) + END


class Decoder:
    """Collects a byte stream and gives out its frames; what a dying host left unfinished becomes a frame
    of its own, which the receiver recognises by its length."""

    def __init__(self) -> None:
        self._pending = bytearray()

    def feed(self, data: bytes) -> Iterator[bytes]:
        self._pending += data
        if END not in data:
            if len(self._pending) > LONGEST_FRAME:
                self._pending.clear()
            return
        *frames, self._pending = self._pending.split(END)
        for frame in frames:
            if frame:
                # END first: undoing the escape of the escape would otherwise make new "DB DC" pairs.
                yield bytes(frame.replace(ESCAPED_END, END).replace(ESCAPED_ESCAPE, ESCAPE))
