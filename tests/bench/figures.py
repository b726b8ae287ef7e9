"""Collects what was measured: rows with their samples, aims, and curves."""
import datetime
import os
import pathlib
import platform
import statistics
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
STEADY = 0.2  # the largest spread of a figure that is shown
ATTEMPTS = 3


def spread(samples):
    """Returns the interquartile range of the samples divided by their median, or None for one."""
    if len(samples) < 2:
        return None
    lower, middle, upper = statistics.quantiles(samples, n=4, method="inclusive")
    return (upper - lower) / middle if middle else None


def is_steady(known_spread):
    return known_spread is None or known_spread <= STEADY


def steadiest(measure):
    """Calls `measure` until no spread exceeds the limit, a few times at most, and returns the
    steadiest result. It returns a dictionary with a list of samples for each figure."""
    results = []
    for _ in range(ATTEMPTS):
        samples = measure()
        results.append((max(spread(column) or 0 for column in samples.values()), samples))
        if is_steady(results[-1][0]):
            break
    return min(results, key=lambda result: result[0])[1]


class Ratio:
    """The median of one series divided by that of another, which was measured in turn with it."""

    def __init__(self, samples, others):
        self.figure = statistics.median(samples) / statistics.median(others)
        self.spread = spread([one / other for one, other in zip(samples, others)])


class Figures:
    def __init__(self, build):
        self.conditions = conditions_of(pathlib.Path(build))
        self.rows, self.aims, self.curves, self.tables = [], [], [], {}

    def row(self, group, measure, subject, samples, unit):
        value = statistics.median(samples)
        print(f"{group}: {measure}, {subject}: {value:.6g} {unit}", file=sys.stderr)
        self.rows.append({"group": group, "measure": measure, "subject": subject, "value": value,
                          "unit": unit, "samples": list(samples)})

    def at_most(self, measure, figure, aim):
        self._aim(measure, figure, aim, "lower")

    def at_least(self, measure, figure, aim):
        self._aim(measure, figure, aim, "higher")

    def _aim(self, measure, figure, aim, better):
        """Adds an aim for a number or a Ratio."""
        known = figure.spread if isinstance(figure, Ratio) else None
        figure = figure.figure if isinstance(figure, Ratio) else figure
        print(f"** {measure}: {figure:.4g} (aim {aim:g})", file=sys.stderr)
        self.aims.append({"measure": measure, "figure": figure, "aim": aim, "better": better,
                          "spread": known})

    def curve(self, title, x, y, subject, points):
        self.curves.append({"title": title, "x": x, "y": y, "subject": subject, "points": points})


def output_of(*command):
    return subprocess.run(command, cwd=ROOT, check=True, capture_output=True,
                          text=True).stdout.strip()


def cache_of(build):
    """Returns the entries of CMake's cache."""
    entries = {}
    for line in (build / "CMakeCache.txt").read_text().splitlines():
        key, equals, value = line.partition("=")
        if equals and ":" in key and not key.startswith(("#", "//")):
            entries[key.partition(":")[0]] = value
    return entries


def processor():
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.partition(":")[2].strip()
    return platform.machine()


def conditions_of(build):
    cache = cache_of(build)
    kind = cache["CMAKE_BUILD_TYPE"]
    flags = f"{cache['CMAKE_CXX_FLAGS']} {cache['CMAKE_CXX_FLAGS_' + kind.upper()]}"
    changed = output_of("git", "status", "--porcelain", "--untracked-files=no", "--", ".",
                        ":!docs")
    return {"date": datetime.date.today().isoformat(),
            "commit": output_of("git", "rev-parse", "--short", "HEAD") +
                      (", modified" if changed else ""),
            "processor": f"{processor()}, {os.cpu_count()} cores",
            "system": f"{platform.system()} {platform.release()}, {platform.machine()}",
            "load average before": ", ".join(f"{load:.1f}" for load in os.getloadavg()),
            "compiler": output_of(cache["CMAKE_CXX_COMPILER"], "--version").splitlines()[0],
            "flags": f"{kind}: {flags.strip()}"}
