"""Draws aims as bars and growth as curves, in one SVG picture."""
import math
from xml.sax.saxutils import escape

WIDTH = 900
MARGIN = 24

# Bars: the aim stands at one place for all of them.
NAME_WIDTH = 430
BAR_HEIGHT = 26
AIM_AT = NAME_WIDTH + 190
BAR_LIMIT = 1.6  # times the aim; longer bars are cut and end in an arrow

# Curves, in panels side by side.
COLUMNS = 3
PANEL_WIDTH = (WIDTH - 2 * MARGIN) / COLUMNS
PANEL_HEIGHT = 210
PLOT_LEFT, PLOT_RIGHT, PLOT_TOP, PLOT_BOTTOM = 44, 16, 42, 38

STYLE = """
svg { --paper: #ffffff; --ink: #1f2328; --faint: #d5dae0; --first: #0b62d6; --second: #b35900;
      --third: #6f42c1; --good: #1a7f37; --bad: #c0362c; }
@media (prefers-color-scheme: dark) {
  svg { --paper: #0d1117; --ink: #e6edf3; --faint: #343b44; --first: #6cb0ff; --second: #f0a04b;
        --third: #c297ff; --good: #4ac26b; --bad: #ff7b72; } }
.paper { fill: var(--paper); }
text { fill: var(--ink); font: 12px sans-serif; }
.title { font-weight: bold; }
.small { font-size: 10px; }
.end { text-anchor: end; }
.middle { text-anchor: middle; }
.grid { stroke: var(--faint); }
.aim { stroke: var(--ink); stroke-width: 2; stroke-dasharray: 4 3; }
.met { fill: var(--good); }
.missed { fill: var(--bad); }
.line { fill: none; stroke-width: 2; }
.s0 { stroke: var(--first); } .s1 { stroke: var(--second); } .s2 { stroke: var(--third); }
.f0 { fill: var(--first); } .f1 { fill: var(--second); } .f2 { fill: var(--third); }
"""
SERIES = 3


def text(x, y, content, kind=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" class="{kind}">{escape(content)}</text>'


def line(x1, y1, x2, y2, kind):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" class="{kind}"/>'


def short(value):
    """A number in few letters."""
    for size, letter in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if value >= size:
            return f"{value / size:.3g}{letter}"
    return f"{value:.3g}"


def share_of(aim):
    """The figure as a multiple of its aim, which may be nothing at all."""
    if aim["aim"] == 0:
        return 1 if aim["figure"] == 0 else math.inf
    return aim["figure"] / aim["aim"]


def bar(aim, top):
    share = share_of(aim)
    width = min(share, BAR_LIMIT) * (AIM_AT - NAME_WIDTH)
    middle = top + BAR_HEIGHT / 2
    sign = "≥" if aim["better"] == "higher" else "≤"
    label = f"{short(aim['figure'])} ({sign} {short(aim['aim'])})"
    kind = "met" if aim["met"] else "missed"
    cut = " →" if share > BAR_LIMIT else ""
    return [text(NAME_WIDTH - 8, middle + 4, aim["measure"], "end"),
            f'<rect x="{NAME_WIDTH}" y="{top + 5:.1f}" width="{width:.1f}" '
            f'height="{BAR_HEIGHT - 10}" class="{kind}"/>',
            text(max(NAME_WIDTH + width, AIM_AT) + 8, middle + 4, f"{label} {kind}{cut}")]


def bars(aims, top):
    """The drawing, and where it ends."""
    parts = [text(MARGIN, top + 14, "Each figure by its aim: ≥ is to be reached, ≤ not to be "
                  "passed", "title")]
    begin = top + 24
    end = begin + len(aims) * BAR_HEIGHT
    for number, aim in enumerate(aims):
        parts += bar(aim, begin + number * BAR_HEIGHT)
    return parts + [line(AIM_AT, begin, AIM_AT, end, "aim")], end


def decades(values):
    """The powers of ten around the values."""
    low = math.floor(math.log10(min(values)) + 1e-9)
    return low, max(math.ceil(math.log10(max(values)) - 1e-9), low + 1)


def scale(value, exponents, begin, end):
    low, high = exponents
    return begin + (math.log10(value) - low) / (high - low) * (end - begin)


def drawable(curve):
    """Only what has a logarithm can be drawn."""
    return [(x, y) for x, y in curve["points"] if x > 0 and y > 0]


def grid(x_range, y_range, left, right, top, bottom):
    parts = []
    for exponent in range(x_range[0], x_range[1] + 1):
        x = scale(10.0 ** exponent, x_range, left, right)
        parts += [line(x, top, x, bottom, "grid"),
                  text(x, bottom + 13, short(10.0 ** exponent), "small middle")]
    for exponent in range(y_range[0], y_range[1] + 1):
        y = scale(10.0 ** exponent, y_range, bottom, top)
        parts += [line(left, y, right, y, "grid"),
                  text(left - 5, y + 3, short(10.0 ** exponent), "small end")]
    return parts


def panel(curves, x0, y0):
    """Curves of one title, ours first and so in one colour everywhere; logarithmic axes."""
    curves = sorted(curves, key=lambda curve: curve["subject"] != "ours")
    left, right = x0 + PLOT_LEFT, x0 + PANEL_WIDTH - PLOT_RIGHT
    top, bottom = y0 + PLOT_TOP, y0 + PANEL_HEIGHT - PLOT_BOTTOM
    points = [point for curve in curves for point in drawable(curve)]
    if not points:
        return []
    x_range, y_range = decades([x for x, _ in points]), decades([y for _, y in points])
    first = curves[0]
    parts = [text(x0, y0 + 14, f"{first['title']}, {first['y']}", "title"),
             text((left + right) / 2, bottom + 26, first["x"], "small middle")]
    parts += grid(x_range, y_range, left, right, top, bottom)
    legend = left
    for number, curve in enumerate(curves):
        series = number % SERIES
        path = " ".join(f"{scale(x, x_range, left, right):.1f},"
                        f"{scale(y, y_range, bottom, top):.1f}" for x, y in drawable(curve))
        parts += [f'<polyline points="{path}" class="line s{series}"/>',
                  f'<rect x="{legend:.1f}" y="{y0 + 24:.1f}" width="10" height="10" '
                  f'class="f{series}"/>',
                  text(legend + 14, y0 + 33, curve["subject"], "small")]
        legend += 26 + 6 * len(curve["subject"])
    return parts


def draw(aims, curves):
    """The picture as a text."""
    parts, end = bars(aims, MARGIN) if aims else ([], MARGIN)
    titles = {}
    for curve in curves:
        titles.setdefault((curve["title"], curve["x"], curve["y"]), []).append(curve)
    begin = end + MARGIN
    for number, same in enumerate(titles.values()):
        parts += panel(same, MARGIN + number % COLUMNS * PANEL_WIDTH,
                       begin + number // COLUMNS * PANEL_HEIGHT)
    height = begin + math.ceil(len(titles) / COLUMNS) * PANEL_HEIGHT
    return "\n".join([f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height:.0f}" '
                      'role="img" aria-label="Benchmarks: figures by their aims, and growth">',
                      f"<style>{STYLE}</style>",
                      '<rect class="paper" width="100%" height="100%"/>', *parts, "</svg>", ""])
