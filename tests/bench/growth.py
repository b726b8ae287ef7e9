#!/usr/bin/python3
"""Measures how the cost of each piece of a request grows with its size.

    growth.py BUILD RESULT

BUILD is the folder of the preset `bench`, whose program `pieces` is run. The figures are written to
RESULT as JSON.
"""
import json
import pathlib
import statistics
import subprocess
import sys

from figures import ATTEMPTS, Figures, Ratio, is_steady, spread

REPETITIONS = 5
MINIMUM_TIME = 0.05  # seconds of each repetition

# Operations drawn as curves, what their size counts, and whether their time should grow with it.
GROWING = {"session/look up": ("sessions", False), "session/create": ("sessions", False),
           "session/create at the limit": ("sessions", False), "session/sweep": ("sessions", True),
           "map/look up": ("entries", False), "map/insert": ("entries", False),
           "template/render": ("rows", True), "template/fill and render": ("rows", True),
           "request/construct": ("parameters", True), "decode/query": ("pairs", True),
           "decode/form": ("fields", True), "upload/MiB to a file": ("MiB", True)}
BENT = 2  # times the smallest cost at a smaller size

# Operation, size, the other subject, and the aim for its time divided by ours.
AIMS = [("decode/query", 10, "in place", 0.5), ("decode/cookie", 5, "in place", 0.5),
        ("template/fill and render", 50, "ctemplate", 2.5),
        ("template/render", 50, "ctemplate", 1.0),
        ("upload/MiB to a file", 64, "copy", 0.8)]
UPLOAD_MEMORY = ("upload/MiB to a file", 64, "ours")
UPLOAD_MEMORY_AIM = 256 * 1024


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


def run_pieces(build, result, pattern=".", repetitions=REPETITIONS):
    """Runs the benchmarks whose names match, in random order, and returns them as read_pieces()."""
    subprocess.run(
        [pathlib.Path(build) / "tests/bench/pieces", f"--benchmark_filter={pattern}",
         f"--benchmark_repetitions={repetitions}", f"--benchmark_min_time={MINIMUM_TIME}",
         "--benchmark_enable_random_interleaving=true", f"--benchmark_out={result}",
         "--benchmark_out_format=json"], check=True, stdout=subprocess.DEVNULL)
    return read_pieces(json.loads(pathlib.Path(result).read_text())["benchmarks"])


def steady_pieces(build, result):
    """Runs all benchmarks, and those whose spread is too large again."""
    pieces = run_pieces(build, result)
    for _ in range(ATTEMPTS - 1):
        unsteady = [key for key, piece in pieces.items() if not is_steady(spread(piece["samples"]))]
        if not unsteady:
            break
        names = "|".join("/".join(map(str, key)) for key in unsteady)
        for key, piece in run_pieces(build, result, f"^({names})(/|$)").items():
            pieces[key] = min(piece, pieces[key], key=lambda one: spread(one["samples"]))
    return pieces


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


def add_aims(figures, pieces):
    for operation, size, subject, aim in AIMS:
        ours, other = (pieces.get((operation, size, name)) for name in ("ours", subject))
        if ours is not None and other is not None:
            figures.at_least(f"{operation} of {size}, speed, ours / {subject}",
                             Ratio(other["samples"], ours["samples"]), aim)
    upload = pieces.get(UPLOAD_MEMORY)
    if upload is not None:
        figures.at_most("upload of 64 MiB, peak heap, bytes", upload["peak bytes"],
                        UPLOAD_MEMORY_AIM)


def add_curves(figures, pieces):
    for operation, (counted, _) in GROWING.items():
        subjects = {subject for other, _, subject in pieces if other == operation}
        for subject in sorted(subjects):
            points = sorted([size, time_of(piece)]
                            for (other, size, other_subject), piece in pieces.items()
                            if (other, other_subject) == (operation, subject))
            figures.curve(operation, counted, "ns", subject, points)


def costs_of(operation, points):
    """Returns the cost at each size: of the operation if its time should be constant, else of one
    item."""
    is_linear = GROWING[operation][1]
    return {size: time / size if is_linear else time for size, time in points}


def bend_of(costs):
    """Returns the first size at which the cost is more than BENT times what it was at a smaller
    size, or None."""
    least = None
    for size, cost in sorted(costs.items()):
        if least is not None and cost > BENT * least:
            return size
        least = cost if least is None else min(least, cost)
    return None


def main():
    build, result = sys.argv[1:]
    figures = Figures(build)
    pieces = steady_pieces(build, pathlib.Path(build) / "pieces.json")
    add_aims(figures, pieces)
    add_curves(figures, pieces)
    figures.tables["pieces"] = [
        {"operation": operation, "size": size, "subject": subject, "ns": time_of(piece),
         "spread": spread(piece["samples"]),
         **{name: value for name, value in piece.items() if name != "samples"}}
        for (operation, size, subject), piece in pieces.items()]
    figures.tables["ratios"] = ratios_of(pieces)
    pathlib.Path(result).write_text(json.dumps(vars(figures), indent=1))


if __name__ == "__main__":
    main()
