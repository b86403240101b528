"""Draws the rooms and what they include as SVG.  The same arrows give the same text everywhere."""

from typing import Iterator
from xml.sax.saxutils import escape

WIDTH, HEIGHT, PITCH = 180, 40, 84  # of a box; from one box to the next
LEFT, TOP = 290, 20  # of the column
BESIDE = {"Qt": (20, 1.5), "tools": (20, 3)}  # boxes that are not in the column: their left edge and their row
BULGE = 55  # of an arc, for each row that it passes
GAP = 8  # between the ends of two arcs on one side of a box

HEAD = """<svg xmlns="http://www.w3.org/2000/svg" width="{width:g}" height="{height}" font-family="sans-serif">
<title>The rooms and what they include</title>
<defs><marker id="tip" viewBox="0 0 8 8" refX="8" refY="4" markerWidth="7" markerHeight="7" orient="auto">\
<path d="M0 0 8 4 0 8z"/></marker></defs>
<rect width="100%" height="100%" fill="white"/>
"""
ARROW = '<path d="{path}" fill="none" stroke="black"{style} marker-end="url(#tip)"/>\n'
BOX = ('<rect x="{x:g}" y="{y:g}" width="{width}" height="{height}" rx="8" fill="#eef3f8" stroke="black"/>\n'
       '<text x="{middle:g}" y="{base:g}" font-size="15" text-anchor="middle">{name}</text>\n')

Arrow = tuple[str, str]


class Drawing:
    def __init__(self, column: list[str], arrows: set[Arrow], dashed: set[Arrow]) -> None:
        """`column` is the rooms from top to bottom."""
        self.column, self.arrows, self.dashed = column, sorted(arrows | dashed), dashed

    def row(self, room: str) -> float:
        return BESIDE[room][1] if room in BESIDE else self.column.index(room)

    def corner(self, room: str) -> tuple[float, float]:
        return BESIDE[room][0] if room in BESIDE else LEFT, TOP + PITCH * self.row(room)

    def length(self, arrow: Arrow) -> float:
        return self.row(arrow[1]) - self.row(arrow[0])

    def is_arc(self, arrow: Arrow) -> bool:
        return not BESIDE.keys() & set(arrow) and self.length(arrow) != 1

    def end_of_arc(self, arrow: Arrow, room: str) -> float:
        """Longer arcs go around shorter ones, and what arrives is above what leaves: so few of them cross."""
        arcs = sorted(filter(self.is_arc, self.arrows), key=self.length)
        ends = [arc for arc in arcs if arc[1] == room] + [arc for arc in reversed(arcs) if arc[0] == room]
        return self.corner(room)[1] + HEIGHT / 2 + GAP * (ends.index(arrow) - (len(ends) - 1) / 2)

    def path(self, arrow: Arrow) -> str:
        (start_x, start_y), (end_x, end_y) = map(self.corner, arrow)
        if self.is_arc(arrow):
            side, bulge = LEFT + WIDTH, LEFT + WIDTH + BULGE * abs(self.length(arrow))
            start_y, end_y = (self.end_of_arc(arrow, room) for room in arrow)
            return f"M{side} {start_y:g}C{bulge:g} {start_y:g} {bulge:g} {end_y:g} {side} {end_y:g}"
        if start_x == end_x:
            return f"M{start_x + WIDTH / 2:g} {start_y + HEIGHT:g}V{end_y:g}"
        start_x, end_x = (start_x + WIDTH, end_x) if start_x < end_x else (start_x, end_x + WIDTH)
        return f"M{start_x:g} {start_y + HEIGHT / 2:g}L{end_x:g} {end_y + HEIGHT / 2:g}"

    def parts(self) -> Iterator[str]:
        for arrow in self.arrows:
            yield ARROW.format(path=self.path(arrow), style=' stroke-dasharray="5 4"' if arrow in self.dashed else "")
        for room in [*self.column, *BESIDE]:
            x, y = self.corner(room)
            yield BOX.format(x=x, y=y, width=WIDTH, height=HEIGHT, middle=x + WIDTH / 2, base=y + HEIGHT / 2 + 5,
                             name=escape(room))

    def svg(self) -> str:
        width = LEFT + WIDTH + BULGE * (len(self.column) - 1) * 0.75 + 20
        height = 2 * TOP + HEIGHT + PITCH * (len(self.column) - 1)
        return HEAD.format(width=width, height=height) + "".join(self.parts()) + "</svg>\n"
