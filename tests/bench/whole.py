#!/usr/bin/python3
"""Measures whole requests: the container compared with a bare libfcgi loop.

    whole.py BUILD RESULT

BUILD is the folder of the preset `bench`. The figures are written to RESULT as JSON: "rows", "aims"
and "curves".
"""

import json
import os
import pathlib
import resource
import signal
import statistics
import sys
import tempfile
import time

import fastcgi
from backend import Backend, Programs
from figures import Figures
from front import Lighttpd, Load, Nginx
from pages import FORM, PAGE, TEMPLATE, UPLOAD_TYPE, upload_of

ROUNDS = 5
AIMED_ROUNDS = 15  # where there is an aim: other guests of the host disturb some rounds
SECONDS = 1  # of load per round
BURST = 3000  # queued requests
UPLOAD = 64 << 20


def ratio(samples, others):
    """Returns the median of the ratios of two series that were measured in turn."""
    return statistics.median(one / other for one, other in zip(samples, others))


def counted(number, thing):
    return f"{number} {thing}" + ("" if number == 1 else "s")


class Bench:
    def __init__(self, build, folder):
        self.programs = Programs(build)
        self.folder = pathlib.Path(folder)
        self.figures = Figures()
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
                self.figures.row(group, measure, subject,
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
        self.figures.at_least(
            f"requests/s behind {front.name}, container / bare loop without close wait",
            compare("rate", bare), 0.95)
        if front is Lighttpd:
            self.figures.at_least("requests/s behind lighttpd, container / bare loop",
                                  compare("rate", default), 3)
            self.figures.at_most("back-end CPU time behind lighttpd, container / bare loop",
                                 compare("cpu_seconds", default), 0.6)

    def other_pages(self):
        for name, query, form in (("template page", TEMPLATE, None),
                                  ("form of 10 fields", "p=form", FORM)):
            for front in (Lighttpd, Nginx):
                programs = [self.programs.bare_loop(), self.programs.container()]
                self.note_loads(f"{name} behind {front.name}, 1 loop, 8 clients",
                                self.loads(front, programs, 8, query, form))

    # ---- Directly on the socket

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
                self.figures.row(f"back end alone, {counted(loops, 'loop')}", "requests/s",
                             make().name, rates[loops], "1/s")
            self.figures.curve("Loops", "loops", "requests/s", make().name,
                              [[loops, statistics.median(rates[loops])] for loops in counts])
            self.figures.curve("Memory of the loops", "loops", "KiB private", make().name,
                              [[loops, statistics.median(memory for _, memory in bursts[loops])]
                               for loops in counts])
        self.figures.at_least("requests/s of the back end alone, 2 loops / 1 loop",
                              ratio(rates[2], rates[1]), 1.7)

    def uploads(self):
        environment = {"FILE": str(self.file)}
        programs = [self.programs.bare_loop(environment=environment),
                    self.programs.container(environment=environment)]
        samples, growth = self.times_of_uploads(programs)
        for program, seconds in zip(programs, samples):
            self.figures.row("upload of 64 MiB, directly on the socket", "time", program.name,
                            seconds, "s")
        self.figures.at_least("upload of 64 MiB, speed, container / copying without parsing",
                              ratio(*samples), 0.8)
        self.figures.at_most("additional memory of an upload, KiB", growth, 256)

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
        for part in (bench.uploads, bench.loops, bench.through_front_servers, bench.other_pages):
            part()
    pathlib.Path(result).write_text(json.dumps(vars(bench.figures), indent=1))


if __name__ == "__main__":
    main()
