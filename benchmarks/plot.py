"""Draws the appends of a run as SVG: rates as bars, and beside them p50 and p99 on a logarithmic scale.

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
