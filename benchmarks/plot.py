"""Draws a run as SVG: of the appends the rates as bars, and beside them p50 and p99 on a logarithmic scale; and how times
grow with a table.

Colours are chosen by the reader's light or dark scheme; the background is the page's own.
"""

import math
from xml.sax.saxutils import escape

ROW = 26
TOP = 64
NAMES = 232  # width of the stores' names
PANEL = 300
GAP = 84  # between the panels; the bars' numbers stand in it

STYLE = """
  text { font: 13px system-ui, sans-serif; fill: #24292f; }
  .title { font-weight: 600; }
  .small { font-size: 11px; fill: #57606a; }
  .grid { stroke: #d0d7de; stroke-width: 1; }
  .raw { fill: #8c959f; } .own { fill: #0969da; } .peer { fill: #bf8700; }
  .line { stroke: #8c959f; stroke-width: 2; }
  .hollow { fill: none; stroke-width: 2; }
  .hollow.raw { stroke: #8c959f; } .hollow.own { stroke: #0969da; } .hollow.peer { stroke: #bf8700; }
  @media (prefers-color-scheme: dark) {
    text { fill: #e6edf3; } .small { fill: #9198a1; } .grid { stroke: #3d444d; }
    .own { fill: #4493f8; } .peer { fill: #d29922; }
    .hollow { fill: none; } .hollow.own { stroke: #4493f8; } .hollow.peer { stroke: #d29922; }
  }
"""


def _text(x, y, words, anchor="start", kind=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" class="{kind}">{escape(words)}</text>'


def _step(most):
    """A round distance of grid lines, about four of them."""
    size = 10 ** math.floor(math.log10(most / 4))
    return min((size * factor for factor in (1, 2, 5, 10)), key=lambda step: abs(most / step - 4))


def _rates(bars, bottom):
    most = max(rate for _, rate, _, _, _ in bars)
    step = _step(most)
    for i in range(int(most / step) + 1):
        x = NAMES + PANEL * i * step / most
        yield f'<line class="grid" x1="{x:.1f}" y1="{TOP}" x2="{x:.1f}" y2="{bottom}"/>'
        yield _text(x, bottom + 16, f"{i * step / 1000:,.0f}", "middle", "small")
    for row, (_, rate, _, _, kind) in enumerate(bars):
        y = TOP + row * ROW
        width = PANEL * rate / most
        yield f'<rect class="{kind}" x="{NAMES}" y="{y + 4}" width="{width:.1f}" height="{ROW - 8}"/>'
        yield _text(NAMES + width + 6, y + 18, f"{rate / 1000:,.0f}", "start", "small")


def _latencies(bars, bottom):
    low = math.floor(math.log10(min(p50 for _, _, p50, _, _ in bars)))
    high = math.ceil(math.log10(max(p99 for _, _, _, p99, _ in bars)))
    left = NAMES + PANEL + GAP

    def place(nanoseconds):
        return left + PANEL * (math.log10(nanoseconds) - low) / (high - low)

    for power in range(low, high + 1):
        x = place(10 ** power)
        yield f'<line class="grid" x1="{x:.1f}" y1="{TOP}" x2="{x:.1f}" y2="{bottom}"/>'
        yield _text(x, bottom + 16, f"{10 ** power / 1000:g}", "middle", "small")
    for row, (_, _, p50, p99, kind) in enumerate(bars):
        y = TOP + row * ROW + ROW / 2
        yield f'<line class="line" x1="{place(p50):.1f}" y1="{y}" x2="{place(p99) - 5:.1f}" y2="{y}"/>'
        yield f'<circle class="{kind}" cx="{place(p50):.1f}" cy="{y}" r="5"/>'
        yield f'<circle class="hollow {kind}" cx="{place(p99):.1f}" cy="{y}" r="5"/>'


def appends(bars):
    """bars: (name, messages/s, p50 ns, p99 ns, kind) with kind one of raw, own, peer."""
    bottom = TOP + len(bars) * ROW
    width = NAMES + PANEL + GAP + PANEL + 24
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{bottom + 32}" '
             f'viewBox="0 0 {width} {bottom + 32}" role="img" aria-label="Append throughput and latency">',
             f"<style>{STYLE}</style>",
             _text(NAMES, 24, "Appends, 1000 messages a second", kind="title"),
             _text(NAMES, 44, "each handed to the operating system, without sync", kind="small"),
             _text(NAMES + PANEL + GAP, 24, "Latency, µs", kind="title"),
             _text(NAMES + PANEL + GAP, 44, "full circle: p50, open circle: p99; logarithmic", kind="small")]
    parts += [_text(NAMES - 10, TOP + row * ROW + 18, bar[0], "end") for row, bar in enumerate(bars)]
    parts += _rates(bars, bottom)
    parts += _latencies(bars, bottom)
    return "\n".join(parts + ["</svg>", ""])


CURVE = 190  # height and width of a panel of curves
CURVE_LEFT = 58
CURVE_GAP = 34


def _microseconds(power):
    return f"{10 ** power:g} µs" if power < 3 else f"{10 ** (power - 3):g} ms" if power < 6 else f"{10 ** (power - 6):g} s"


def _count(power):
    return {0: "1", 3: "1 k", 4: "10 k", 5: "100 k", 6: "1 M", 7: "10 M"}.get(power, f"1e{power}")


def _panel(title, curves, left, powers, sizes):
    low, high = powers
    first, last = sizes

    def x(size):
        return left + CURVE_LEFT + CURVE * (math.log10(size) - first) / max(1, last - first)

    def y(value):
        return TOP + CURVE - CURVE * (math.log10(value) - low) / (high - low)

    yield _text(left + CURVE_LEFT, 24, title, kind="title")
    for power in range(low, high + 1):
        yield (f'<line class="grid" x1="{left + CURVE_LEFT}" y1="{y(10 ** power):.1f}" x2="{left + CURVE_LEFT + CURVE}" '
               f'y2="{y(10 ** power):.1f}"/>')
        yield _text(left + CURVE_LEFT - 6, y(10 ** power) + 4, _microseconds(power), "end", "small")
    for power in range(first, last + 1):
        yield _text(x(10 ** power), TOP + CURVE + 18, _count(power), "middle", "small")
    for row, (name, points, kind) in enumerate(curves):
        path = " ".join(f"{x(size):.1f},{y(value):.1f}" for size, value in points)
        yield f'<polyline class="hollow {kind}" points="{path}"/>'
        for size, value in points:
            yield f'<circle class="{kind}" cx="{x(size):.1f}" cy="{y(value):.1f}" r="4"/>'
        yield f'<circle class="{kind}" cx="{left + CURVE_LEFT + 4}" cy="{40 + 14 * row}" r="4"/>'
        yield _text(left + CURVE_LEFT + 14, 44 + 14 * row, name, kind="small")


def growth(panels):
    """panels: (title, curves) with curves (name, points, kind), points (messages, microseconds); all axes logarithmic."""
    panels = [(title, [curve for curve in curves if curve[1]]) for title, curves in panels]
    points = [point for _, curves in panels for _, curve, _ in curves for point in curve]
    powers = (math.floor(math.log10(min(value for _, value in points))),
              math.ceil(math.log10(max(value for _, value in points))))
    sizes = (math.floor(math.log10(min(size for size, _ in points))), math.ceil(math.log10(max(size for size, _ in points))))
    step = CURVE_LEFT + CURVE + CURVE_GAP
    width = step * len(panels)
    height = TOP + CURVE + 36
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" viewBox="0 0 {width} {height}" '
             'role="img" aria-label="How times grow with the number of messages">', f"<style>{STYLE}</style>"]
    for number, (title, curves) in enumerate(panels):
        parts += _panel(title, curves, number * step, powers, sizes)
    return "\n".join(parts + ["</svg>", ""])
