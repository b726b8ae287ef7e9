#!/usr/bin/python3
"""Prints the results of scripts/fuzz in the given folder: the executions of each fuzzer, then the
line and branch coverage of all of them together, by source and by folder.

Exits with 1 if a fuzzer did not finish.
"""
import collections
import json
import os
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
WATCHED = ("QKSTL", "examples", "fcgiServer", "platform")


def number_in(log, name):
    found = re.search(rf"stat::{name}: *(\d+)", log)
    return int(found.group(1)) if found else None


def print_executions(results):
    complete = True
    print(f"{'fuzzer':<28}{'executions':>14}{'per second':>12}")
    for path in sorted(results.glob("*.log")):
        log = path.read_text(errors="replace")
        executions = number_in(log, "number_of_executed_units")
        if executions is None:
            complete = False
            print(f"{path.stem:<28}{'did not finish':>26}")
        else:
            rate = number_in(log, "average_exec_per_sec")
            print(f"{path.stem:<28}{executions:>14,}{rate:>12,}")
    return complete


def share(counts):
    if not counts["count"]:
        return f"{'':>18}"
    percent = 100 * counts["covered"] / counts["count"]
    ratio = f"{counts['covered']}/{counts['count']}"
    return f"{ratio:>10}{percent:>6.1f} %"


def print_coverage(results):
    report = json.loads((results / "coverage.json").read_text())
    folders = collections.defaultdict(lambda: collections.defaultdict(collections.Counter))
    print(f"\n{'source':<42}{'lines':>18}{'branches':>18}")
    for file in report["data"][0]["files"]:
        path = pathlib.Path(os.path.relpath(file["filename"], ROOT))
        if path.parts[0] not in WATCHED:
            continue
        summary = file["summary"]
        print(f"{str(path):<42}{share(summary['lines'])}{share(summary['branches'])}")
        for kind in ("lines", "branches"):
            counts = {name: summary[kind][name] for name in ("count", "covered")}
            folders[path.parent][kind].update(counts)
    print()
    for folder, summary in sorted(folders.items()):
        print(f"{str(folder) + '/':<42}{share(summary['lines'])}{share(summary['branches'])}")


def main():
    results = pathlib.Path(sys.argv[1])
    complete = print_executions(results)
    print_coverage(results)
    return 0 if complete else 1


sys.exit(main())
