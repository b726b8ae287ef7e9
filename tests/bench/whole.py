#!/usr/bin/python3
"""Measures whole requests: the container compared with a bare libfcgi loop.

    whole.py BUILD RESULT

BUILD is the folder of the preset `bench`. The figures are written to RESULT as JSON: "rows", "aims"
and "curves".
"""

import json
import os
import pathlib
import re
import resource
import signal
import statistics
import sys
import tempfile
import time

import fastcgi
from backend import Backend, Programs
from front import Lighttpd, Load, Nginx
from pages import FORM, PAGE, TEMPLATE, UPLOAD_TYPE, upload_of

ROUNDS = 5
AIMED_ROUNDS = 15  # where there is an aim: other guests of the host disturb some rounds
SECONDS = 1  # of load per round
# Requests of two runs: their difference has the requests alone, without start and stop.
FEW, MANY = 200, 1200
BURST = 3000  # queued requests
UPLOAD = 64 << 20
MEMORY_REQUESTS = 10_000


class Report:
    def __init__(self):
        self.rows, self.aims, self.curves = [], [], []

    def row(self, group, measure, subject, samples, unit):
        value = statistics.median(samples)
        print(f"{group}: {measure}, {subject}: {value:.6g} {unit}", file=sys.stderr)
        self.rows.append({"group": group, "measure": measure, "subject": subject, "value": value,
                          "unit": unit, "samples": samples})

    def aim(self, measure, figure, aim, better):
        print(f"** {measure}: {figure:.4g} (aim {aim:g})", file=sys.stderr)
        self.aims.append({"measure": measure, "figure": figure, "aim": aim, "better": better})

    def curve(self, title, x, y, subject, points):
        self.curves.append({"title": title, "x": x, "y": y, "subject": subject, "points": points})


def ratio(samples, others):
    """Returns the median of the ratios of two series that were measured in turn."""
    return statistics.median(one / other for one, other in zip(samples, others))


def counted(number, thing):
    return f"{number} {thing}" + ("" if number == 1 else "s")


class Bench:
    def __init__(self, build, folder):
        self.programs = Programs(build)
        self.folder = pathlib.Path(folder)
        self.report = Report()
        self.started = 0
        self.file = pathlib.Path(build) / "uploaded"  # on a disk

    def fresh(self):
        self.started += 1
        return self.folder / str(self.started)

    # ---- Through a front server

    def loads(self, front, programs, clients, query, form=None, rounds=ROUNDS):
        """Returns the samples of each program. The programs take turns, and each round has a new
        process, since the addresses of its memory and the cores of its threads matter."""
        samples = {program.name: [] for program in programs}
        for _ in range(rounds):
            for program in programs:
                with front(program, self.fresh()) as server:
                    samples[program.name].append(
                        Load(server, query, clients, SECONDS, server.sign_in(), form))
        return samples

    def note_loads(self, group, samples):
        for subject, loads in samples.items():
            for measure, unit, attribute in (
                    ("requests/s", "1/s", "rate"), ("median", "ms", "median"),
                    ("99th percentile", "ms", "percentile_99"),
                    ("back-end CPU time", "s/10,000", "cpu_seconds")):
                self.report.row(group, measure, subject,
                                [getattr(load, attribute) for load in loads], unit)

    def through_front_servers(self):
        for front in (Lighttpd, Nginx):
            for loops in (1, 2, 4):
                for clients in (1, 8):
                    self.page_through(front, loops, clients)

    def page_through(self, front, loops, clients):
        programs = [self.programs.default_bare_loop(loops), self.programs.bare_loop(loops),
                    self.programs.container(loops)]
        # One loop that is never idle shows what a request costs.
        is_aimed = (loops, clients) == (1, 8)
        samples = self.loads(front, programs, clients, PAGE,
                             rounds=AIMED_ROUNDS if is_aimed else ROUNDS)
        self.note_loads(f"page behind {front.name}, {counted(loops, 'loop')}, "
                        f"{counted(clients, 'client')}", samples)
        if is_aimed:
            self.aim_at(front, *samples.values())

    def aim_at(self, front, default, bare, container):
        def compare(attribute, others):
            return ratio([getattr(load, attribute) for load in container],
                         [getattr(load, attribute) for load in others])
        self.report.aim(f"requests/s behind {front.name}, container / bare loop without close wait",
                        compare("rate", bare), 0.95, "higher")
        if front is Lighttpd:
            self.report.aim("requests/s behind lighttpd, container / bare loop",
                            compare("rate", default), 3, "higher")
            self.report.aim("back-end CPU time behind lighttpd, container / bare loop",
                            compare("cpu_seconds", default), 0.6, "lower")

    def other_pages(self):
        for name, query, form in (("template page", TEMPLATE, None),
                                  ("form of 10 fields", "p=form", FORM)):
            for front in (Lighttpd, Nginx):
                programs = [self.programs.bare_loop(), self.programs.container()]
                self.note_loads(f"{name} behind {front.name}, 1 loop, 8 clients",
                                self.loads(front, programs, 8, query, form))

    # ---- Directly on the socket

    def costs(self):
        counts = {}
        for name, query, body in (("page", PAGE, None), ("template page", TEMPLATE, None),
                                  ("form of 10 fields", "p=form", FORM.encode())):
            for make in (self.programs.bare_loop, self.programs.container):
                counts[name, make] = self.costs_of(name, make, query, body)
        bare = counts["page", self.programs.bare_loop]
        container = counts["page", self.programs.container]
        self.report.aim("instructions per request, container / bare loop",
                        container["instructions"] / bare["instructions"], 1.5, "lower")
        self.report.aim("allocations per request beyond the bare loop's",
                        container["allocations"] - bare["allocations"], 20, "lower")
        # Rounded: whether there is one read(2) more depends on when the client closes.
        beyond = container["system calls"] - bare["system calls"] - container["times"]
        self.report.aim("system calls per request beyond the bare loop's, times(2) not counted",
                        round(beyond), 0, "lower")
        self.report.aim("calls of times(2) per request, one per clock reading of the session steps",
                        round(container["times"], 1), 4, "lower")

    def costs_of(self, name, make, query, body):
        counts = {}
        counts["instructions"] = self.difference(
            lambda times: self.instructions(make(), query, body, times))
        allocations, size = self.differences(
            lambda times: self.allocations(make, query, body, times))
        counts["allocations"] = allocations
        counts["bytes allocated"] = size
        calls, clock = self.differences(lambda times: self.system_calls(make(), query, body, times))
        counts["system calls"] = calls
        for measure, count in counts.items():
            self.report.row(f"cost of a request: {name}", measure, make().name, [count], "")
        counts["times"] = clock
        return counts

    def difference(self, measure):
        return (measure(MANY) - measure(FEW)) / (MANY - FEW)

    def differences(self, measure):
        return [(many - few) / (MANY - FEW) for few, many in zip(measure(FEW), measure(MANY))]

    def serve(self, program, query, body, times, prefix=()):
        with Backend(program, self.fresh(), prefix) as backend:
            data = fastcgi.request(query, cookie=backend.sign_in(), body=body)
            backend.send_repeatedly(data, times)

    def instructions(self, program, query, body, times):
        out = self.fresh()
        self.serve(program, query, body, times,
                   ["valgrind", "-q", "--tool=callgrind", f"--callgrind-out-file={out}"])
        return int(re.search(r"^(?:summary|totals): (\d+)", out.read_text(), re.M).group(1))

    def allocations(self, make, query, body, times):
        out = self.fresh()
        program = make(environment={"LD_PRELOAD": str(self.programs.allocation_counter),
                                    "ALLOCATIONS": str(out)})
        self.serve(program, query, body, times)
        return [int(number) for number in out.read_text().split()]

    def system_calls(self, program, query, body, times):
        """Returns the count of all system calls, and of those to times(2)."""
        out = self.fresh()
        self.serve(program, query, body, times, ["strace", "-f", "-qq", "-c", "-o", str(out)])
        rows = [line.split() for line in out.read_text().splitlines()]
        calls = {row[-1]: int(row[3]) for row in rows
                 if len(row) > 4 and re.fullmatch(r"[\d.]+", row[0])}
        return calls.pop("total"), calls.get("times", 0)

    def memory(self):
        samples = {}
        for make in (self.programs.bare_loop, self.programs.container):
            with Backend(make(), self.fresh()) as backend:
                data = fastcgi.request(PAGE, cookie=backend.sign_in())
                backend.send_repeatedly(data, MEMORY_REQUESTS)
                process = backend.process
                samples[make] = {"private memory": process.private_memory(),
                                 "resident memory": process.resident_memory(),
                                 "peak resident memory": process.peak_memory()}
            for measure, value in samples[make].items():
                self.report.row(f"memory after {MEMORY_REQUESTS:,} requests, 1 loop", measure,
                                make().name, [value], "KiB")
        bare, container = samples.values()
        for measure, aim in (("private memory", 256), ("resident memory", 512)):
            self.report.aim(f"{measure} beyond the bare loop's, 1 loop, KiB",
                            container[measure] - bare[measure], aim, "lower")

    def burst(self, program):
        """Returns the requests per second and the private memory of a back end that never waits:
        it is stopped until all requests are sent and queued."""
        with Backend(program, self.fresh()) as backend:
            data = fastcgi.request(PAGE, cookie=backend.sign_in())
            fastcgi.send(backend.path, data)
            os.kill(backend.process.pid, signal.SIGSTOP)
            connections = []
            for _ in range(BURST):
                connections.append(fastcgi.connect(backend.path))
                connections[-1].sendall(data)
            start = time.perf_counter()
            os.kill(backend.process.pid, signal.SIGCONT)
            # They are served in order, so waiting for the last one leaves the CPU to the program.
            connections.reverse()
            lengths = {len(fastcgi.receive(connections[0]))}
            seconds = time.perf_counter() - start
            lengths.update(len(fastcgi.receive(connection)) for connection in connections[1:])
            for connection in connections:
                connection.close()
            assert len(lengths) == 1
            memory = backend.process.private_memory()
        return BURST / seconds, memory

    def loops(self):
        counts = (1, 2, 4, 8)
        for make in (self.programs.bare_loop, self.programs.container):
            bursts = {loops: [] for loops in counts}
            for _ in range(AIMED_ROUNDS):
                for loops in counts:
                    bursts[loops].append(self.burst(make(loops)))
            rates = {loops: [rate for rate, _ in bursts[loops]] for loops in counts}
            for loops in counts:
                self.report.row(f"back end alone, {counted(loops, 'loop')}", "requests/s",
                                make().name, rates[loops], "1/s")
            self.report.curve("Loops", "loops", "requests/s", make().name,
                              [[loops, statistics.median(rates[loops])] for loops in counts])
            self.report.curve("Memory of the loops", "loops", "KiB private", make().name,
                              [[loops, statistics.median(memory for _, memory in bursts[loops])]
                               for loops in counts])
        self.report.aim("requests/s of the back end alone, 2 loops / 1 loop",
                        ratio(rates[2], rates[1]), 1.7, "higher")

    def uploads(self):
        environment = {"FILE": str(self.file)}
        programs = [self.programs.bare_loop(environment=environment),
                    self.programs.container(environment=environment)]
        samples, growth = self.times_of_uploads(programs)
        for program, seconds in zip(programs, samples):
            self.report.row("upload of 64 MiB, directly on the socket", "time", program.name,
                            seconds, "s")
        self.report.aim("upload of 64 MiB, speed, container / copying without parsing",
                        ratio(*samples), 0.8, "higher")
        self.report.aim("additional memory of an upload, KiB", growth, 256, "lower")

    def times_of_uploads(self, programs):
        """Returns the seconds of the uploads to each program, which take turns, and how much the
        peak memory of the last one has grown."""
        data = fastcgi.request("p=upload", body=upload_of(os.urandom(1 << 20) * (UPLOAD >> 20)),
                               content_type=UPLOAD_TYPE)
        backends = [Backend(program, self.fresh()) for program in programs]
        samples = [[] for _ in backends]
        try:
            for backend in backends:
                backend.send(PAGE)
            before = backends[-1].process.peak_memory()
            for _ in range(AIMED_ROUNDS):
                for backend, seconds in zip(backends, samples):
                    seconds.append(self.time_of_upload(backend, data))
                # The container came last; the bare loop stores the whole body.
                assert self.file.stat().st_size == UPLOAD
            return samples, backends[-1].process.peak_memory() - before
        finally:
            for backend in backends:
                backend.stop()
            self.file.unlink(missing_ok=True)

    @staticmethod
    def time_of_upload(backend, data):
        start = time.perf_counter()
        response = fastcgi.send(backend.path, data)
        seconds = time.perf_counter() - start
        assert "Status: 422" not in response
        return seconds


def main():
    build, result = sys.argv[1:]
    most = max(resource.getrlimit(resource.RLIMIT_NOFILE))
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
    with tempfile.TemporaryDirectory(prefix="bench.") as folder:
        bench = Bench(build, folder)
        os.environ["TEMPLATE"] = str(pathlib.Path(__file__).parent / "requests/page.html")
        for part in (bench.costs, bench.memory, bench.uploads, bench.loops,
                     bench.through_front_servers, bench.other_pages):
            part()
    pathlib.Path(result).write_text(json.dumps(vars(bench.report), indent=1))


if __name__ == "__main__":
    main()
