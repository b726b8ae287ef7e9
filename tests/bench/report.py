#!/usr/bin/env python3
"""Prints the figures of one part of the benchmarks, and with --docs writes them into the documents.

    report.py PART RESULT [--docs docs]

PART is counts, loads, growth, peers or views, and RESULT the file that PART.py wrote. In benchmarks.md and
benchmark-tables.md the part's figures stand between marks of its name. growth also draws
benchmarks.svg. The exit status is 1 if an aim of `counts` is missed.
"""
import argparse
import json
import pathlib
import sys

import chart
import growth
import views
from figures import ROOT, Ratio, is_steady, spread

sys.path.insert(0, str(ROOT / "tests/support"))
from marked_section import replace_section

FUNCTIONS = 20  # lines of the profile


def is_met(aim):
    if aim["better"] == "higher":
        return aim["figure"] >= aim["aim"]
    return aim["figure"] <= aim["aim"]


def number(value):
    """Formats a value with three significant digits and thousands separators."""
    if value == int(value) or abs(value) >= 100:
        return f"{value:,.0f}"
    return f"{value:.{2 if abs(value) >= 1 else 3}f}"


def percent(value):
    return "" if value is None else f"{100 * value:.0f} %"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    return lines + ["| " + " | ".join(row) + " |" for row in rows] + [""]


def verdict(aim):
    if not is_steady(aim["spread"]):
        return "left out"
    return "met" if is_met(aim) else "**missed**"


def shown(value, unit, known_spread):
    """Returns a figure, unless it was so unsteady that it says nothing."""
    if not is_steady(known_spread):
        return "left out"
    return f"{number(value)} {unit}".rstrip()


def aims_table(aims):
    return table(["measure", "figure", "spread", "aim", ""],
                 [[aim["measure"], shown(aim["figure"], "", aim["spread"]), percent(aim["spread"]),
                   f"{'at least' if aim['better'] == 'higher' else 'at most'} "
                   f"{number(aim['aim'])}", verdict(aim)] for aim in aims])


def rows_table(rows):
    return table(["where", "measure", "subject", "value", "spread"],
                 [[row["group"], row["measure"], row["subject"],
                   shown(row["value"], row["unit"], spread(row["samples"])),
                   percent(spread(row["samples"]))] for row in rows])


def conditions_table(conditions):
    return table(["", ""], [[name, value] for name, value in conditions.items()])


def pieces_table(tables):
    ratios = {(one["operation"], one["size"], one["subject"]): one["ratio"]
              for one in tables["ratios"]}
    rows = []
    for one in tables["pieces"]:
        ratio = ratios.get((one["operation"], one["size"], one["subject"]))
        rows.append([one["operation"], number(one["size"]), one["subject"],
                     shown(one["ns"], "", one["spread"]), percent(one["spread"]),
                     number(round(one["allocations"], 1)), number(round(one["bytes"], 1)),
                     "" if ratio is None else number(ratio)])
    return table(["operation", "size", "subject", "ns", "spread", "allocations", "bytes",
                  "time / ours"], rows)


def duration(nanoseconds):
    for size, unit in ((1e9, "s"), (1e6, "ms"), (1e3, "µs")):
        if nanoseconds >= size:
            return f"{number(nanoseconds / size)} {unit}"
    return f"{number(nanoseconds)} ns"


def growth_table(curves):
    """Shows what an operation, or one item of it, costs at each size, and where that bends."""
    ours = {curve["title"]: curve for curve in curves if curve["subject"] == "ours"}
    sizes = [10 ** digits for digits in range(6)]
    rows = []
    for operation, curve in ours.items():
        costs = growth.costs_of(operation, curve["points"])
        bend = growth.bend_of(costs)
        of = f"{operation}, one of the {curve['x']}" if growth.GROWING[operation][1] else operation
        rows.append([of, curve["x"], *(duration(costs[size]) if size in costs else ""
                                       for size in sizes),
                     "nowhere" if bend is None else f"at {bend:,} {curve['x']}"])
    return table(["cost of", "size in", *(f"{size:,}" for size in sizes), "bends"], rows)


def difference_table(heads, ours, floors, lines=None):
    """Compares two dictionaries of numbers: the largest differences, the rest in one line, and the
    sum."""
    keys = sorted({*ours, *floors}, key=lambda key: floors.get(key, 0) - ours.get(key, 0))
    listed = keys[:lines]
    parts = [(key, ours.get(key, 0), floors.get(key, 0)) for key in listed]
    if lines is not None and len(keys) > lines:
        parts.append(("all others", sum(ours.get(key, 0) for key in keys[lines:]),
                      sum(floors.get(key, 0) for key in keys[lines:])))
    parts.append(("together", sum(ours.values()), sum(floors.values())))
    return table(heads, [[name, number(one), number(other), number(one - other)]
                         for name, one, other in parts])


def profile_tables(tables):
    """Shows where the instructions and the memory of the container are beyond the floor's."""
    floors, ours = (tables["functions"][name] for name in ("prescribed loop", "container"))
    heads = ["container", "prescribed loop", "difference"]

    def summed(functions, key):
        sums = {}
        for library, function, count in functions:
            name = key(library, function)
            sums[name] = sums.get(name, 0) + count
        return sums
    lines = ["Instructions of a page with a session, by library and by function:", ""]
    for title, key, count in (("library", lambda library, _: library, None),
                              ("function", lambda library, function: f"`{function}`, {library}",
                               FUNCTIONS)):
        lines += difference_table([title, *heads], summed(ours, key), summed(floors, key), count)
    for column, kind in enumerate(("private", "resident")):
        memory = [{name: pair[column] for name, pair in tables["mappings"][subject].items()
                   if pair[column]} for subject in ("container", "prescribed loop")]
        lines += [f"The {kind} memory by mapping, in KiB:", ""]
        lines += difference_table(["mapping", *heads], *memory)
    return lines


def subjects_table(result):
    subjects = list(dict.fromkeys(row["subject"] for row in result["rows"]))
    measures = list(dict.fromkeys((row["measure"], row["unit"]) for row in result["rows"]))
    values = {(row["subject"], row["measure"]):
              shown(row["value"], "", spread(row["samples"])) for row in result["rows"]}
    return table(["", *(f"{measure}, {unit}" if unit else measure for measure, unit in measures)],
                 [[subject, *(values[subject, measure] for measure, _ in measures)]
                  for subject in subjects])


# ---- What each result means

def figure_of(result, beginning):
    aim = next(aim for aim in result["aims"] if aim["measure"].startswith(beginning))
    return shown(aim["figure"], "", aim["spread"])


def samples_of(result, measure, subject):
    return next(row["samples"] for row in result["rows"]
                if (row["measure"], row["subject"]) == (measure, subject))


def results_of_counts(result):
    def figure(beginning):
        return figure_of(result, beginning)
    return [
        f"- A page with a session executes **{figure('page: instructions')} times** the "
        "instructions of the prescribed loop: what is above 1 is the container's own work.",
        f"- Allocations beyond the prescribed loop's: **{figure('page: allocations')}**; system "
        f"calls beyond it: **{figure('page: system calls')}**. One call more or less depends on "
        "when the client closes the connection.",
        f"- A template page of 20 variables and 50 rows executes "
        f"**{figure('template page: instructions')} instructions** with "
        f"**{figure('template page: allocations')} allocations**, and a form of ten fields "
        f"**{figure('form of 10')} more** than the page.",
        "- Speed of filling and rendering 50 rows, compared with Google's ctemplate: "
        f"**{figure('fill and render')}**.",
        f"- The process needs **{figure('private memory')} KiB** more memory of its own than the "
        f"prescribed loop, and **{figure('resident memory')} KiB** more in RAM, of which most are "
        "pages of shared libraries that other programs use, too."]


def results_of_loads(result):
    def figure(beginning):
        return figure_of(result, beginning)
    return [
        "- Requests per second behind lighttpd, compared with a bare loop that waits for nothing: "
        f"**{figure('requests/s behind lighttpd, container / bare loop without')}**. Where that is "
        "about 1, the web server sets the pace, not the container.",
        "- Processor time behind lighttpd, system calls included, compared with the prescribed "
        f"loop: **{figure('processor time behind lighttpd, container / prescribed')}**. Less than "
        "for instructions, since most of a request's time is spent in the kernel.",
        "- Requests per second of two loops on two cores, compared with one loop: "
        f"**{figure('requests/s of the back end alone')}**. One request is accepted at a time; "
        "more loops help while pages wait for something else."]


def results_of_growth(result):
    curves = {curve["title"]: curve for curve in result["curves"] if curve["subject"] == "ours"}
    bend = growth.bend_of(dict(curves["session/look up"]["points"]))
    times = dict(curves["session/look up"]["points"])
    most = max(times)
    where = f"the curve bends at {bend:,}" if bend else "the curve does not bend"
    return [f"- A session is found in **{duration(times[min(times)])}** among {min(times):,}, and "
            f"in **{duration(times[most])}** among {most:,}: {where}. `--max-sessions` keeps a "
            "device below that."]


def results_of_peers(result):
    def times(measure):
        ratio = Ratio(*(samples_of(result, measure, subject)
                        for subject in ("PHP-FPM", "container")))
        return shown(ratio.figure, "times", ratio.spread)
    missing = ", ".join(name for name, is_packaged in result["tables"]["packaged"].items()
                        if not is_packaged)
    return [f"- PHP-FPM, compared with the container: **{times('processor time of a request')}** the "
            f"processor time for the same page, **{times('written memory')}** the memory. Debian 12 "
            f"does not package {missing}."]


def results_of_views(result):
    times = {row["subject"]: row for row in result["rows"]
             if row["measure"] == views.TIME and row["subject"] != views.SMALL_PAGE}
    least, most = (chosen(times.values(), key=lambda row: row["value"]) for chosen in (min, max))
    return ["- The pages of the example telephone: from "
            f"**{shown(least['value'], 'µs', spread(least['samples']))}** of processor time "
            f"({least['subject']}) to **{shown(most['value'], 'µs', spread(most['samples']))}** "
            f"({most['subject']})."]


RESULTS = {"counts": results_of_counts, "loads": results_of_loads, "growth": results_of_growth,
           "peers": results_of_peers, "views": results_of_views}


def tables_of(part, result):
    """Returns the tables for benchmarks.md and for benchmark-tables.md."""
    rows = rows_table(result["rows"])
    if part == "counts":
        return aims_table(result["aims"]), rows
    if part == "loads":
        return aims_table(result["aims"]), rows
    if part == "growth":
        return growth_table(result["curves"]), (aims_table(result["aims"]) +
                                                pieces_table(result["tables"]))
    return subjects_table(result), rows


def stamp(part, conditions):
    return [f"`scripts/bench --{part}`, {conditions['date']}, commit {conditions['commit']}:", ""]


def write(part, result, docs):
    front, behind = tables_of(part, result)
    head = stamp(part, result["conditions"])
    replace_section(docs / "benchmarks.md", f"results of {part}",
                    "\n".join(RESULTS[part](result)) + "\n")
    replace_section(docs / "benchmarks.md", part, "\n".join(head + front))
    replace_section(docs / "benchmark-tables.md", part,
                    "\n".join(head + conditions_table(result["conditions"]) + behind))
    if part == "counts":
        replace_section(docs / "benchmark-tables.md", "profile",
                        "\n".join(head + profile_tables(result["tables"])))
    if part == "growth":
        (docs / "benchmarks.svg").write_text(chart.draw(
            [{**aim, "met": is_met(aim)} for aim in result["aims"] if is_steady(aim["spread"])],
            result["curves"]))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("part", choices=RESULTS)
    parser.add_argument("result", type=pathlib.Path)
    parser.add_argument("--docs", type=pathlib.Path, help="write the documents in this folder")
    arguments = parser.parse_args()
    result = json.loads(arguments.result.read_text())
    front, behind = tables_of(arguments.part, result)
    if arguments.part == "counts":
        print("\n".join(profile_tables(result["tables"])))
    print("\n".join(behind + front + RESULTS[arguments.part](result)))
    if arguments.docs is not None:
        write(arguments.part, result, arguments.docs)
    is_checked = arguments.part == "counts"
    return 1 if is_checked and not all(map(is_met, result["aims"])) else 0


if __name__ == "__main__":
    sys.exit(main())
