"""Draws cost over rows as an SVG that reads well on light and on dark pages."""

import math
from xml.sax.saxutils import escape

WIDTH, HEIGHT = 760, 440
LEFT, RIGHT, TOP, BOTTOM = 76, 150, 56, 56
LABEL_HEIGHT = 17

STYLE = """
  svg { font: 13px system-ui, "Segoe UI", Roboto, Helvetica, Arial, sans-serif; }
  .page { fill: #ffffff; } .title { fill: #1f2328; font-size: 15px; font-weight: 600; }
  .axis { fill: #59636e; } .grid { stroke: #d1d9e0; }
  .s0 { --colour: #0969da; } .s1 { --colour: #6e7781; } .s2 { --colour: #8250df; } .s3 { --colour: #bc4c00; }
  polyline { fill: none; stroke: var(--colour); stroke-width: 2.5; stroke-linejoin: round; }
  .s1 polyline { stroke-dasharray: 6 4; }
  circle { fill: var(--colour); stroke: #ffffff; stroke-width: 1.5; } .name { fill: var(--colour); font-weight: 600; }
  @media (prefers-color-scheme: dark) {
    .page { fill: #0d1117; } .title { fill: #f0f6fc; } .axis { fill: #9198a1; } .grid { stroke: #30363d; }
    .s0 { --colour: #58a6ff; } .s1 { --colour: #9198a1; } .s2 { --colour: #bc8cff; } .s3 { --colour: #f0883e; }
    circle { stroke: #0d1117; }
  }
"""


def duration(seconds: float) -> str:
    for limit, factor, unit in ((1e-3, 1e6, "µs"), (1, 1e3, "ms")):
        if seconds < limit:
            return f"{seconds * factor:.3g} {unit}"
    return f"{seconds:.3g} s"


def spread(places: list[float]) -> list[float]:
    """The places, in ascending order, moved apart as far as labels need."""
    moved = []
    for place in places:
        moved.append(max(place, moved[-1] + LABEL_HEIGHT) if moved else place)
    return moved


def draw(title: str, series: dict[str, dict[int, float]]) -> str:
    """`series` gives for each name the seconds at each number of rows; four names at most."""
    rows = sorted(next(iter(series.values())))
    seconds = [value for points in series.values() for value in points.values()]
    low, high = math.floor(math.log10(min(seconds))), math.ceil(math.log10(max(seconds)))
    right, bottom = WIDTH - RIGHT, HEIGHT - BOTTOM

    def x(count: float) -> float:
        return LEFT + (right - LEFT) * math.log(count / rows[0]) / math.log(rows[-1] / rows[0])

    def y(value: float) -> float:
        return bottom - (bottom - TOP) * (math.log10(value) - low) / (high - low)

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" role="img">',
             f"<title>{escape(title)}</title>", f"<style>{STYLE}</style>",
             f'<rect class="page" width="{WIDTH}" height="{HEIGHT}" rx="6"/>',
             f'<text class="title" x="{LEFT}" y="30">{escape(title)}</text>']
    for exponent in range(low, high + 1):
        place = y(10**exponent)
        parts.append(f'<line class="grid" x1="{LEFT}" x2="{right}" y1="{place:.1f}" y2="{place:.1f}"/>')
        parts.append(f'<text class="axis" x="{LEFT - 10}" y="{place + 4:.1f}" text-anchor="end">'
                     f"{duration(10**exponent)}</text>")
    for count in rows:
        parts.append(f'<line class="grid" x1="{x(count):.1f}" x2="{x(count):.1f}" y1="{TOP}" y2="{bottom}"/>')
        parts.append(f'<text class="axis" x="{x(count):.1f}" y="{bottom + 22}" text-anchor="middle">{count:,}</text>')
    parts.append(f'<text class="axis" x="{(LEFT + right) / 2}" y="{HEIGHT - 12}" text-anchor="middle">'
                 "stored notifications of the user</text>")

    names = list(series)
    by_height = sorted(names, key=lambda name: y(series[name][rows[-1]]))
    label_places = dict(zip(by_height, spread([y(series[name][rows[-1]]) for name in by_height])))
    # What comes first in the series is drawn last, and so on top.
    for name in reversed(names):
        points = [(x(count), y(value)) for count, value in sorted(series[name].items())]
        parts.append(f'<g class="s{names.index(name)}">')
        parts.append('<polyline points="' + " ".join(f"{px:.1f},{py:.1f}" for px, py in points) + '"/>')
        parts += [f'<circle cx="{px:.1f}" cy="{py:.1f}" r="4"/>' for px, py in points]
        parts.append(f'<text class="name" x="{right + 12}" y="{label_places[name] + 4:.1f}">{escape(name)}</text></g>')
    return "\n".join(parts + ["</svg>", ""])
