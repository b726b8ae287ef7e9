#!/usr/bin/env python3
"""Makes a report of measurements: tables on standard output, report.json, and with --docs the
page benchmarks.md with its picture.

    tests/bench/report.py --build build/bench --pieces PIECES.json [--whole WHOLE.json...]
                          [--docs docs]

PIECES.json is the output of the program `pieces`, run with --benchmark_out and several repetitions.
WHOLE.json is the output of counts.py or whole.py:

    {"rows":   [{"group", "measure", "subject", "value", "unit", "samples"}, ...],
     "aims":   [{"measure", "figure", "aim", "better": "higher" or "lower"}, ...],
     "curves": [{"title", "x", "y", "subject", "points": [[x, y], ...]}, ...]}
"""
import argparse
import datetime
import json
import os
import pathlib
import platform
import statistics
import subprocess

import chart

ROOT = pathlib.Path(__file__).resolve().parents[2]

# Operations drawn as curves, and what their size counts.
GROWING = [("map/look up", "entries"), ("map/insert", "entries"), ("session/create", "sessions"),
           ("session/look up", "sessions"), ("session/sweep", "sessions"),
           ("template/render", "rows"), ("template/fill and render", "rows"),
           ("request/construct", "parameters"), ("decode/query", "pairs")]

# Operation, size, the other subject, and the aim for its time divided by ours.
AIMS = [("decode/query", 10, "in place", 0.5), ("decode/cookie", 5, "in place", 0.5),
        ("template/fill and render", 50, "ctemplate", 1.0),
        ("template/render", 50, "ctemplate", 1.0),
        ("upload/MiB to a file", 64, "copy", 0.8)]
UPLOAD_MEMORY = ("upload/MiB to a file", 64, "ours")
UPLOAD_MEMORY_AIM = 256 * 1024


def spread(samples):
    """Returns the interquartile range of the samples divided by their median, or None for one."""
    if len(samples) < 2:
        return None
    lower, middle, upper = statistics.quantiles(samples, n=4, method="inclusive")
    return (upper - lower) / middle if middle else None


def is_met(aim):
    if aim["better"] == "higher":
        return aim["figure"] >= aim["aim"]
    return aim["figure"] <= aim["aim"]


def read_pieces(benchmarks):
    """Returns the samples in nanoseconds and the counters of each (operation, size, subject)."""
    to_nanoseconds = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    pieces = {}
    for run in benchmarks:
        if run["run_type"] != "iteration":
            continue
        if run.get("error_occurred"):
            raise ValueError(f"{run['name']}: {run['error_message']}")
        # Operations that wait for a disk are measured in real time, the others in CPU time.
        name, in_real_time, _ = run["run_name"].partition("/real_time")
        *operation, size, subject = name.split("/")
        time = run["real_time" if in_real_time else "cpu_time"]
        piece = pieces.setdefault(("/".join(operation), int(size), subject), {"samples": []})
        piece["samples"].append(time * to_nanoseconds[run["time_unit"]])
        for counter in ("allocations", "bytes", "peak bytes"):
            if counter in run:
                piece[counter] = run[counter]
    return dict(sorted(pieces.items()))


def time_of(piece):
    return statistics.median(piece["samples"])


def ratios_of(pieces):
    """Returns, for each other subject, its time divided by ours: above 1, ours is faster."""
    ratios = []
    for (operation, size, subject), piece in pieces.items():
        ours = pieces.get((operation, size, "ours"))
        if subject != "ours" and ours is not None:
            ratios.append({"operation": operation, "size": size, "subject": subject,
                           "ratio": time_of(piece) / time_of(ours)})
    return ratios


def aims_of(pieces, ratios):
    aims = []
    for operation, size, subject, aim in AIMS:
        for ratio in ratios:
            if (ratio["operation"], ratio["size"], ratio["subject"]) == (operation, size, subject):
                aims.append({"measure": f"{operation} of {size}, speed, ours / {subject}",
                             "figure": ratio["ratio"], "aim": aim, "better": "higher"})
    upload = pieces.get(UPLOAD_MEMORY)
    if upload is not None:
        aims.append({"measure": "upload of 64 MiB, peak heap, bytes",
                     "figure": upload["peak bytes"], "aim": UPLOAD_MEMORY_AIM, "better": "lower"})
    return aims


def curves_of(pieces):
    curves = {}
    for operation, counted in GROWING:
        for (other, size, subject), piece in pieces.items():
            if other == operation:
                curve = curves.setdefault((operation, subject), {
                    "title": operation, "x": counted, "y": "ns", "subject": subject,
                    "points": []})
                curve["points"].append([size, time_of(piece)])
    for curve in curves.values():
        curve["points"].sort()
    return list(curves.values())


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


def conditions_of(build, context):
    cache = cache_of(build)
    kind = cache["CMAKE_BUILD_TYPE"]
    flags = f"{cache['CMAKE_CXX_FLAGS']} {cache['CMAKE_CXX_FLAGS_' + kind.upper()]}"
    changed = output_of("git", "status", "--porcelain", "--untracked-files=no", "--", ".",
                        ":!docs/benchmarks.*")
    return {"processor": processor(), "cores": os.cpu_count(),
            "system": f"{platform.system()} {platform.release()}, {platform.machine()}",
            "load average before": ", ".join(f"{load:.1f}" for load in context["load_avg"]),
            "compiler": output_of(cache["CMAKE_CXX_COMPILER"], "--version").splitlines()[0],
            "flags": f"{kind}: {flags.strip()}",
            "commit": output_of("git", "rev-parse", "--short", "HEAD") +
                      (", modified" if changed else ""),
            "date": datetime.datetime.fromisoformat(context["date"]).date().isoformat()}


def noise_of(pieces, rows):
    spreads = [spread(piece["samples"]) for piece in pieces.values()]
    spreads += [spread(row["samples"]) for row in rows]
    known = [one for one in spreads if one is not None]
    if not known:
        return None
    return {"median": statistics.median(known), "largest": max(known)}


def make_report(pieces, whole, conditions):
    ratios = ratios_of(pieces)
    aims = whole["aims"] + aims_of(pieces, ratios)
    return {"conditions": conditions, "noise": noise_of(pieces, whole["rows"]),
            "aims": [{**aim, "met": is_met(aim)} for aim in aims], "rows": whole["rows"],
            "pieces": [{"operation": operation, "size": size, "subject": subject,
                        "ns": time_of(piece), "spread": spread(piece["samples"]),
                        **{name: value for name, value in piece.items() if name != "samples"}}
                       for (operation, size, subject), piece in pieces.items()],
            "ratios": ratios, "curves": whole["curves"] + curves_of(pieces)}


def number(value):
    """Formats a value with three significant digits and thousands separators."""
    if value == int(value) or abs(value) >= 100:
        return f"{value:,.0f}"
    return f"{value:.{2 if abs(value) >= 1 else 3}f}"


def percent(value):
    return "" if value is None else f"{100 * value:.0f} %"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return lines + ["| " + " | ".join(row) + " |" for row in rows]


def aims_table(aims):
    return table(["measure", "figure", "aim", ""],
                 [[aim["measure"], number(aim["figure"]),
                   f"{'at least' if aim['better'] == 'higher' else 'at most'} "
                   f"{number(aim['aim'])}", "met" if is_met(aim) else "**missed**"]
                  for aim in aims])


def whole_table(report):
    return table(["where", "measure", "subject", "value", "spread"],
                 [[row["group"], row["measure"], row["subject"],
                   f"{number(row['value'])} {row['unit']}", percent(spread(row["samples"]))]
                  for row in report["rows"]])


def pieces_table(report):
    ratios = {(one["operation"], one["size"], one["subject"]): one["ratio"]
              for one in report["ratios"]}
    rows = []
    for one in report["pieces"]:
        ratio = ratios.get((one["operation"], one["size"], one["subject"]))
        rows.append([one["operation"], number(one["size"]), one["subject"], number(one["ns"]),
                     percent(one["spread"]), number(round(one["allocations"], 1)),
                     number(round(one["bytes"], 1)), "" if ratio is None else number(ratio)])
    return table(["operation", "size", "subject", "ns", "spread", "allocations", "bytes",
                  "time / ours"], rows)


INTRODUCTION = """\
# Benchmarks

What a request costs, compared with the smallest possible libfcgi program, and what the pieces of a
request cost, compared with simpler code or another library. `scripts/bench` measures and writes
this page; [footprint.md](footprint.md) has the memory of sessions, loops and requests.

![Figures and their aims, and how times grow](benchmarks.svg)
"""

SPREAD = """
Each figure is the median of several repetitions in random order. The spread is the interquartile
range divided by the median: {median} for the median figure, {largest} for the worst. A difference
smaller than the spread is noise."""

WHOLE_REQUESTS = """
## Whole requests

The *bare loop* accepts a request, writes the same 1 KiB and finishes. At the end of each request
libfcgi waits up to two seconds for the front server to close the connection; *without close wait*,
that is switched off. The *container* is `fcgi_host` with a session, two listeners and a page.
"""

PIECES = """
## Pieces of a request

The time of one operation, and what it asks `malloc(3)` for: the count of allocations and the sum of
their sizes, without the allocator's own overhead. The size is the number of entries, parameters,
rows or bytes that the operation handles; the times of the map's operations are per entry. Uploads
are measured in real time, all others in CPU time.
"""


def document(report):
    noise = report["noise"]
    lines = [INTRODUCTION, "## Aims", ""] + aims_table(report["aims"])
    lines += ["", "## Conditions", ""] + table(
        ["", ""], [[name, str(value)] for name, value in report["conditions"].items()])
    if noise is not None:
        lines.append(SPREAD.format(median=percent(noise["median"]),
                                   largest=percent(noise["largest"])))
    if report["rows"]:
        lines += [WHOLE_REQUESTS] + whole_table(report)
    lines += [PIECES] + pieces_table(report)
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, required=True,
                        help="the build folder; report.json is written there")
    parser.add_argument("--pieces", type=pathlib.Path, required=True)
    parser.add_argument("--whole", type=pathlib.Path, nargs="+", default=[])
    parser.add_argument("--docs", type=pathlib.Path,
                        help="write benchmarks.md and benchmarks.svg into this folder")
    arguments = parser.parse_args()

    measured = json.loads(arguments.pieces.read_text())
    whole = {"rows": [], "aims": [], "curves": []}
    for part in arguments.whole:
        for name, figures in json.loads(part.read_text()).items():
            whole[name] += figures
    report = make_report(read_pieces(measured["benchmarks"]), whole,
                         conditions_of(arguments.build, measured["context"]))

    (arguments.build / "report.json").write_text(json.dumps(report, indent=1) + "\n")
    if arguments.docs is not None:
        (arguments.docs / "benchmarks.md").write_text(document(report))
        (arguments.docs / "benchmarks.svg").write_text(chart.draw(report["aims"],
                                                                  report["curves"]))
    print("\n".join(whole_table(report) + [""] if report["rows"] else []))
    print("\n".join(pieces_table(report) + [""] + aims_table(report["aims"])))


if __name__ == "__main__":
    main()
