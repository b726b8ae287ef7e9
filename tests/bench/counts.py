#!/usr/bin/python3
"""Counts what a request costs: instructions, allocations, system calls and memory of the container,
of a bare libfcgi loop, and of the prescribed loop, which makes only the calls that the container's
interface promises. Hardly depends on the load of the machine.

    counts.py BUILD RESULT

BUILD is the folder of the preset `bench`. The figures are written to RESULT as JSON.
"""
import collections
import json
import os
import pathlib
import re
import statistics
import sys
import tempfile

import growth
from backend import Programs
from counting import Counter
from figures import Figures, Ratio
from pages import FORM, PAGE, TEMPLATE

MEMORY_REQUESTS = 2000
MEMORY_ROUNDS = 9  # processes; where the libraries are loaded decides on some pages
KINDS = {"page": (PAGE, None), "template page": (TEMPLATE, None),
         "form of 10 fields": ("p=form", FORM.encode())}
COUNTED = ("instructions", "allocations", "bytes allocated", "system calls")
RENDERED = "template/fill and render"
ROWS = 50
# A mapping in /proc/PID/smaps: its name, and two of its fields.
MAPPING = re.compile(r"^[0-9a-f]+-[0-9a-f]+ (?P<flags>\S+) \S+ \S+ \S+ *(?P<name>.*)\n"
                     r"(?:.*\n)*?Rss: +(?P<resident>\d+) kB\n"
                     r"(?:.*\n)*?Private_Dirty: +(?P<private>\d+) kB\n", re.M)


class Counts:
    def __init__(self, build, folder, figures):
        self.build = pathlib.Path(build)
        self.folder = pathlib.Path(folder)
        self.programs = Programs(build)
        self.counter = Counter(self.folder)
        self.figures = figures

    def requests(self):
        """Counts per request, and returns the counts of each kind and program."""
        counts = {}
        programs = [("page", self.programs.prescribed_loop)]
        programs += [(kind, make) for kind in KINDS
                     for make in (self.programs.bare_loop, self.programs.container)]
        for kind, make in programs:
            values = [self.counter.instructions(make(), *KINDS[kind]),
                      *self.counter.allocations(make, self.programs.allocation_counter,
                                                *KINDS[kind]),
                      self.counter.system_calls(make(), *KINDS[kind])]
            counts[kind, make().name] = dict(zip(COUNTED, values))
            for measure, value in zip(COUNTED, values):
                self.figures.row(f"cost of a request: {kind}", measure, make().name,
                                 [round(value, 1)], "")
        return counts

    def memory(self):
        """Returns the private and the resident memory of each program, in KiB."""
        makes = (self.programs.prescribed_loop, self.programs.bare_loop, self.programs.container)
        samples = {make().name: [] for make in makes}
        mappings = {make().name: [] for make in makes}
        for _ in range(MEMORY_ROUNDS):
            for make in makes:
                pair, found = self.memory_of(make())
                samples[make().name].append(pair)
                mappings[make().name].append(found)
        self.figures.tables["mappings"] = {
            name: medians_of(mappings[name])
            for name in (self.programs.prescribed_loop().name, self.programs.container().name)}
        medians = {}
        for name, pairs in samples.items():
            medians[name] = [statistics.median(column) for column in zip(*pairs)]
            for measure, column in zip(("private", "resident"), zip(*pairs)):
                self.figures.row(f"memory after {MEMORY_REQUESTS:,} requests, 1 loop",
                                 f"{measure} memory", name, column, "KiB")
        return medians

    def memory_of(self, program):
        with program.start(self.counter.fresh()) as backend:
            data = backend.request(PAGE, cookie=backend.sign_in())
            backend.send_repeatedly(data, MEMORY_REQUESTS)
            process = backend.process
            return ((process.private_memory(), process.resident_memory()),
                    mappings_of(process.pid))

    def profile(self):
        """Notes the instructions of a page by function."""
        self.figures.tables["functions"] = {
            program.name: [[*key, round(count)] for key, count in
                           self.counter.instructions_by_function(program, PAGE).items() if count]
            for program in (self.programs.prescribed_loop(), self.programs.container())}

    def speed_against_ctemplate(self):
        """Returns how many times as fast as ctemplate ours fills and renders a page, a Ratio."""
        pieces = growth.run_pieces(self.build, self.counter.fresh(), f"^{RENDERED}/{ROWS}/", 15)
        return Ratio(*(pieces[RENDERED, ROWS, subject]["samples"]
                       for subject in ("ctemplate", "ours")))

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


def mappings_of(pid):
    """Returns the private and the resident KiB of each file or kind of memory in a process."""
    sums = collections.defaultdict(lambda: [0, 0])
    for mapping in MAPPING.finditer(pathlib.Path(f"/proc/{pid}/smaps").read_text()):
        name = mapping["name"].rpartition("/")[2] or "other memory"
        if mapping["name"].startswith("/"):
            name += ", written" if "w" in mapping["flags"] else ", read"
        sums[name][0] += int(mapping["private"])
        sums[name][1] += int(mapping["resident"])
    return dict(sums)


def medians_of(samples):
    names = {name for sample in samples for name in sample}
    return {name: [statistics.median(sample.get(name, [0, 0])[column] for sample in samples)
                   for column in (0, 1)] for name in sorted(names)}


def main():
    build, result = sys.argv[1:]
    figures = Figures(build)
    with tempfile.TemporaryDirectory(prefix="bench.") as folder:
        os.environ["TEMPLATE"] = str(pathlib.Path(__file__).parent / "requests/page.html")
        counts = Counts(build, folder, figures)
        counts.aims()
        counts.profile()
    pathlib.Path(result).write_text(json.dumps(vars(figures), indent=1))


if __name__ == "__main__":
    main()
