"""Draws aims as bars and growth as curves, in one SVG picture."""
import io
import math

from matplotlib import rc_context
from matplotlib.figure import Figure
from matplotlib.ticker import FuncFormatter, LogLocator, NullLocator

BAR_LIMIT = 1.6  # times the aim; longer bars are cut and end in an arrow
COLUMNS = 3  # of curves side by side

WIDTH = 12  # inches, as all sizes of figures
BAR_HEIGHT = 0.32
PANEL_HEIGHT = 2.7

GOOD, BAD, GRID = "#1a7f37", "#c0362c", "#d5dae0"
SERIES = ("#0b62d6", "#b35900", "#6f42c1")
# A page in dark colours shows the picture on its own white paper. Equal figures make equal files:
# texts stay texts, and names inside the file come from a fixed salt.
STYLE = {"svg.hashsalt": "benchmarks", "svg.fonttype": "none", "font.size": 9,
         "font.family": "sans-serif", "text.parse_math": False, "savefig.facecolor": "white"}
METADATA = {"Title": "Benchmarks: figures and their aims, and how times grow", "Date": None,
            "Creator": None}


def short(value):
    """Returns a number in few characters."""
    for size, letter in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if value >= size:
            return f"{value / size:.3g}{letter}"
    return f"{value:.3g}"


def share_of(aim):
    """Returns the figure as a multiple of its aim, which may be 0."""
    if aim["aim"] == 0:
        return 1 if aim["figure"] == 0 else math.inf
    return aim["figure"] / aim["aim"]


def label_of(aim):
    sign = "≥" if aim["better"] == "higher" else "≤"
    verdict = "met" if aim["met"] else "missed"
    cut = " →" if share_of(aim) > BAR_LIMIT else ""
    return f"{short(aim['figure'])} ({sign} {short(aim['aim'])}) {verdict}{cut}"


def draw_aims(axes, aims):
    axes.set_title("Figures and their aims: at least ≥, at most ≤", loc="left", weight="bold")
    widths = [min(share_of(aim), BAR_LIMIT) for aim in aims]
    bars = axes.barh([aim["measure"] for aim in aims], widths, height=0.6,
                     color=[GOOD if aim["met"] else BAD for aim in aims])
    for number, (bar, aim, width) in enumerate(zip(bars, aims, widths)):
        bar.set_gid(f"{'met' if aim['met'] else 'missed'}-{number}")
        axes.annotate(label_of(aim), (max(width, 1), number), xytext=(6, 0),
                      textcoords="offset points", va="center")
    axes.axvline(1, color="black", linestyle="--")  # the place of all aims
    axes.set_xlim(0, BAR_LIMIT * 1.35)
    axes.xaxis.set_visible(False)
    axes.invert_yaxis()
    axes.spines[["top", "right", "bottom"]].set_visible(False)


def decades(values):
    """Returns the powers of ten around the values."""
    low = math.floor(math.log10(min(values)))
    return 10 ** low, 10 ** max(math.ceil(math.log10(max(values))), low + 1)


def drawable(curve):
    """Returns the points that a logarithmic axis can show."""
    return [(x, y) for x, y in curve["points"] if x > 0 and y > 0]


def draw_curves(axes, curves):
    """Draws the curves of one title; ours comes first and so has one colour everywhere."""
    curves = sorted(curves, key=lambda curve: curve["subject"] != "ours")
    first = curves[0]
    axes.set_title(f"{first['title']}, {first['y']}", loc="left", weight="bold")
    axes.set_xlabel(first["x"])
    x_values, y_values = zip(*(point for curve in curves for point in drawable(curve)))
    axes.set(xlim=decades(x_values), ylim=decades(y_values))
    for number, curve in enumerate(curves):
        axes.loglog(*zip(*drawable(curve)), color=SERIES[number % len(SERIES)],
                    label=curve["subject"], gid=f"curve-{first['title']}-{number}")
    for axis in axes.xaxis, axes.yaxis:
        axis.set_major_locator(LogLocator(numticks=8))
        axis.set_minor_locator(NullLocator())
        axis.set_major_formatter(FuncFormatter(lambda value, _: short(value)))
    axes.grid(color=GRID)
    axes.legend(frameon=False, fontsize="small")


def draw(aims, curves):
    """Returns the picture as the text of an SVG file."""
    titles = {}
    for curve in filter(drawable, curves):
        titles.setdefault((curve["title"], curve["x"], curve["y"]), []).append(curve)
    heights = [1 + BAR_HEIGHT * len(aims), PANEL_HEIGHT * math.ceil(len(titles) / COLUMNS)]
    file = io.StringIO()
    with rc_context(STYLE):
        figure = Figure(figsize=(WIDTH, sum(heights)), layout="constrained")
        upper, lower = figure.subfigures(2, height_ratios=[max(height, 0.1) for height in heights])
        if aims:
            draw_aims(upper.subplots(), aims)
        grid = lower.add_gridspec(max(math.ceil(len(titles) / COLUMNS), 1), COLUMNS)
        for number, same in enumerate(titles.values()):
            draw_curves(lower.add_subplot(grid[divmod(number, COLUMNS)]), same)
        figure.savefig(file, format="svg", metadata=METADATA)
    return file.getvalue()
