#!/usr/bin/python3
"""Counts what a request costs: instructions, allocations, system calls and memory of the container,
of a bare libfcgi loop, and of the prescribed loop, which makes only the calls that the container's
interface promises.

    counts.py BUILD RESULT

BUILD is the folder of the preset `bench`. The figures are written to RESULT as JSON: "rows" and
"aims". The exit status is 1 if an aim is missed.
"""
import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

import fastcgi
import report
from backend import Backend, Programs
from figures import Figures
from pages import FORM, PAGE, TEMPLATE

# Requests of two runs: their difference has the requests alone, without start and stop.
FEW, MANY = 200, 1200
MEMORY_REQUESTS = 2000
MEMORY_ROUNDS = 9  # processes; where the libraries are loaded decides on some pages
KINDS = {"page": (PAGE, None), "template page": (TEMPLATE, None),
         "form of 10 fields": ("p=form", FORM.encode())}
COUNTED = ("instructions", "allocations", "bytes allocated", "system calls")
RENDERED = "template/fill and render"
ROWS = 50


class Counts:
    def __init__(self, build, folder, figures):
        self.build = pathlib.Path(build)
        self.programs = Programs(build)
        self.folder = pathlib.Path(folder)
        self.figures = figures
        self.started = 0

    def fresh(self):
        self.started += 1
        return self.folder / str(self.started)

    def requests(self):
        """Counts per request, and returns the counts of each kind and program."""
        counts = {}
        programs = [("page", self.programs.prescribed_loop)]
        programs += [(kind, make) for kind in KINDS
                     for make in (self.programs.bare_loop, self.programs.container)]
        for kind, make in programs:
            query, body = KINDS[kind]
            values = [self.instructions(make(), query, body),
                      *self.allocations(make, query, body),
                      self.system_calls(make(), query, body)]
            counts[kind, make().name] = dict(zip(COUNTED, values))
            for measure, value in zip(COUNTED, values):
                self.figures.row(f"cost of a request: {kind}", measure, make().name, [value], "")
        return counts

    def serve(self, program, query, body, times, prefix=()):
        with Backend(program, self.fresh(), prefix) as backend:
            data = fastcgi.request(query, cookie=backend.sign_in(), body=body)
            backend.send_repeatedly(data, times)

    def per_request(self, count):
        """Returns the numbers of one request; `count` counts them over a whole run."""
        return [(many - few) / (MANY - FEW) for few, many in zip(count(FEW), count(MANY))]

    def instructions(self, program, query, body):
        def count(times):
            out = self.fresh()
            self.serve(program, query, body, times,
                       ["valgrind", "-q", "--tool=callgrind", f"--callgrind-out-file={out}"])
            return [int(re.search(r"^(?:summary|totals): (\d+)", out.read_text(), re.M).group(1))]
        return self.per_request(count)[0]

    def allocations(self, make, query, body):
        """Returns the number of allocations and the sum of their bytes."""
        def count(times):
            out = self.fresh()
            program = make(environment={"LD_PRELOAD": str(self.programs.allocation_counter),
                                        "ALLOCATIONS": str(out)})
            self.serve(program, query, body, times)
            return [int(number) for number in out.read_text().split()]
        return self.per_request(count)

    def system_calls(self, program, query, body):
        def count(times):
            out = self.fresh()
            self.serve(program, query, body, times, ["strace", "-f", "-qq", "-c", "-o", str(out)])
            return [int(re.search(r" (\d+) +(?:\d+ +)?total$", out.read_text(), re.M).group(1))]
        return self.per_request(count)[0]

    def memory(self):
        """Returns the private and the resident memory of each program, in KiB."""
        makes = (self.programs.prescribed_loop, self.programs.bare_loop, self.programs.container)
        samples = {make().name: [] for make in makes}
        for _ in range(MEMORY_ROUNDS):
            for make in makes:
                samples[make().name].append(self.memory_of(make()))
        medians = {}
        for name, pairs in samples.items():
            medians[name] = [statistics.median(column) for column in zip(*pairs)]
            for measure, column in zip(("private", "resident"), zip(*pairs)):
                self.figures.row(f"memory after {MEMORY_REQUESTS:,} requests, 1 loop",
                                 f"{measure} memory", name, list(column), "KiB")
        return medians

    def memory_of(self, program):
        with Backend(program, self.fresh()) as backend:
            data = fastcgi.request(PAGE, cookie=backend.sign_in())
            backend.send_repeatedly(data, MEMORY_REQUESTS)
            return backend.process.private_memory(), backend.process.resident_memory()

    def speed_against_ctemplate(self):
        """Returns how many times as fast as ctemplate ours fills and renders a page."""
        out = self.fresh()
        subprocess.run(
            [self.build / "tests/bench/pieces", f"--benchmark_filter=^{RENDERED}/{ROWS}/",
             "--benchmark_repetitions=15", "--benchmark_min_time=0.05",
             "--benchmark_enable_random_interleaving=true", f"--benchmark_out={out}",
             "--benchmark_out_format=json"], check=True, stdout=subprocess.DEVNULL)
        pieces = report.read_pieces(json.loads(out.read_text())["benchmarks"])
        return (report.time_of(pieces[RENDERED, ROWS, "ctemplate"]) /
                report.time_of(pieces[RENDERED, ROWS, "ours"]))

    def aims(self):
        """Compares the container with the prescribed loop."""
        counts, memory = self.requests(), self.memory()
        floor, container = self.programs.prescribed_loop().name, self.programs.container().name
        page, template, form = (counts[kind, container] for kind in KINDS)
        least = counts["page", floor]
        private, resident = (ours - floors
                             for ours, floors in zip(memory[container], memory[floor]))
        at_most = self.figures.at_most
        at_most("page: instructions, container / prescribed loop",
                page["instructions"] / least["instructions"], 1.35)
        at_most("page: allocations beyond the prescribed loop's",
                round(page["allocations"] - least["allocations"], 1), 10)
        # Rounded: whether there is one read(2) more depends on when the client closes.
        at_most("page: system calls beyond the prescribed loop's",
                round(page["system calls"] - least["system calls"]), 0)
        at_most("template page: instructions", round(template["instructions"]), 130_000)
        at_most("template page: allocations", round(template["allocations"], 1), 70)
        at_most("form of 10 fields: instructions beyond the page's",
                round(form["instructions"] - page["instructions"]), 9_000)
        self.figures.at_least(f"fill and render {ROWS} rows: speed, ours / ctemplate",
                              self.speed_against_ctemplate(), 2.5)
        at_most("private memory beyond the prescribed loop's, KiB", private, 64)
        at_most("resident memory beyond the prescribed loop's, KiB", resident, 700)


def main():
    build, result = sys.argv[1:]
    figures = Figures()
    with tempfile.TemporaryDirectory(prefix="bench.") as folder:
        os.environ["TEMPLATE"] = str(pathlib.Path(__file__).parent / "requests/page.html")
        Counts(build, folder, figures).aims()
    pathlib.Path(result).write_text(json.dumps(vars(figures), indent=1))
    print("\n".join(report.aims_table(figures.aims)))
    return 0 if all(map(report.is_met, figures.aims)) else 1


if __name__ == "__main__":
    sys.exit(main())
