#!/usr/bin/python3
"""Measures requests per second and processor time of the container and of libfcgi loops, behind
front servers and alone, and the speed of uploads.

    loads.py BUILD RESULT

BUILD is the folder of the preset `bench`. The figures are written to RESULT as JSON. The front
server and the load share one core, the back end has one of its own. The programs take turns in a
random order, and each round has a new process, since the addresses of its memory matter.
"""

import json
import os
import pathlib
import random
import resource
import signal
import sys
import tempfile
import time

import fastcgi
from backend import Programs
from figures import Figures, Ratio, steadiest
from front import Lighttpd, Load, Nginx
from pages import FORM, PAGE, TEMPLATE, UPLOAD_TYPE, upload_of

ROUNDS = 9
SECONDS = 1  # of load per round
BURST = 3000  # queued requests
LOOPS = (1, 2, 4, 8)
UPLOAD = 64 << 20
# What is measured of a load: the name, the unit, and the attribute of Load.
MEASURES = {"requests/s": ("1/s", "rate"), "median time of a request": ("ms", "median"),
            "processor time of a request": ("µs", "cpu_time")}


def mixed(subjects):
    """Returns the subjects of all rounds, each round in an order of its own."""
    return [subject for _ in range(ROUNDS)
            for subject in random.sample(list(subjects), len(subjects))]


class Loads:
    def __init__(self, build, folder, figures):
        self.programs = Programs(build)
        self.folder = pathlib.Path(folder)
        self.figures = figures
        self.started = 0
        self.file = pathlib.Path(build) / "uploaded"  # on a disk

    def fresh(self):
        self.started += 1
        return self.folder / str(self.started)

    # ---- Through a front server

    def compare(self, group, front, programs, clients, query, form=None):
        """Returns the samples of each program and measure."""
        def measure():
            samples = {(program.name, name): [] for program in programs for name in MEASURES}
            for program in mixed(programs):
                with front(program, self.fresh()) as server:
                    load = Load(server, query, clients, SECONDS, server.sign_in(), form)
                for name, (_, attribute) in MEASURES.items():
                    samples[program.name, name].append(getattr(load, attribute))
            return samples
        samples = steadiest(measure)
        for (program, name), column in samples.items():
            self.figures.row(group, name, program, column, MEASURES[name][0])
        return samples

    def pages(self):
        for front in (Lighttpd, Nginx):
            self.page_behind(front)
        programs = [self.programs.bare_loop(), self.programs.container()]
        for name, query, form in (("template page", TEMPLATE, None),
                                  ("form of 10 fields", "p=form", FORM)):
            self.compare(f"{name} behind lighttpd, 1 loop, 8 clients", Lighttpd, programs, 8,
                         query, form)

    def page_behind(self, front):
        bare, default = self.programs.bare_loop(), self.programs.default_bare_loop()
        floor, container = self.programs.prescribed_loop(), self.programs.container()
        samples = self.compare(f"page behind {front.name}, 1 loop, 8 clients", front,
                               [default, bare, floor, container], 8, PAGE)
        def ratio(measure, other):
            return Ratio(samples[container.name, measure], samples[other.name, measure])
        where = f"behind {front.name}, container"
        self.figures.at_least(f"requests/s {where} / bare loop without close wait",
                              ratio("requests/s", bare), 0.95)
        if front is Lighttpd:
            self.figures.at_least(f"requests/s {where} / bare loop",
                                  ratio("requests/s", default), 3)
            self.figures.at_most(f"processor time {where} / bare loop",
                                 ratio("processor time of a request", default), 0.6)
            self.figures.at_most(f"processor time {where} / prescribed loop",
                                 ratio("processor time of a request", floor), 1.35)
            self.compare("page behind lighttpd, 1 loop, 1 client", front,
                         [bare, floor, container], 1, PAGE)

    # ---- Directly on the socket

    def burst(self, program):
        """Returns the requests per second and the private memory of a back end that never waits:
        it is stopped until all requests are sent and queued."""
        with program.start(self.fresh()) as backend:
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
            return BURST / seconds, backend.process.private_memory()

    def loops(self):
        for make in (self.programs.prescribed_loop, self.programs.container):
            memory = {loops: [] for loops in LOOPS}
            def measure():
                rates = {loops: [] for loops in LOOPS}
                for loops in mixed(LOOPS):
                    rate, private = self.burst(make(loops))
                    rates[loops].append(rate)
                    memory[loops].append(private)
                return rates
            rates = steadiest(measure)
            for loops, column in rates.items():
                self.figures.row(f"back end alone, {loops} loop{'s' * (loops > 1)}", "requests/s",
                                 make().name, column, "1/s")
                self.figures.row(f"back end alone, {loops} loop{'s' * (loops > 1)}",
                                 "private memory", make().name, memory[loops], "KiB")
        self.figures.at_least("requests/s of the back end alone, 2 loops / 1 loop",
                              Ratio(rates[2], rates[1]), 1.7)

    def uploads(self):
        environment = {"FILE": str(self.file)}
        programs = [self.programs.bare_loop(environment=environment),
                    self.programs.container(environment=environment)]
        data = fastcgi.request("p=upload", body=upload_of(os.urandom(1 << 20) * (UPLOAD >> 20)),
                               content_type=UPLOAD_TYPE)
        backends = {program.name: program.start(self.fresh()) for program in programs}
        container = backends[programs[1].name]
        try:
            for backend in backends.values():
                backend.send(PAGE)
            before = container.process.peak_memory()
            samples = steadiest(lambda: self.times_of_uploads(backends, data))
            growth = container.process.peak_memory() - before
            self.check_upload(container, data)
        finally:
            for backend in backends.values():
                backend.stop()
            self.file.unlink(missing_ok=True)
        for name, seconds in samples.items():
            self.figures.row("upload of 64 MiB, directly on the socket", "time", name, seconds, "s")
        self.figures.at_least("upload of 64 MiB, speed, container / copying without parsing",
                              Ratio(*samples.values()), 0.8)
        self.figures.at_most("additional memory of an upload, KiB", growth, 256)

    @staticmethod
    def times_of_uploads(backends, data):
        samples = {name: [] for name in backends}
        for name in mixed(backends):
            start = time.perf_counter()
            fastcgi.send(backends[name].path, data)
            samples[name].append(time.perf_counter() - start)
        return samples

    def check_upload(self, container, data):
        assert "Status: 422" not in fastcgi.send(container.path, data)
        assert self.file.stat().st_size == UPLOAD


def main():
    build, result = sys.argv[1:]
    most = max(resource.getrlimit(resource.RLIMIT_NOFILE))
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
    random.seed(1)
    figures = Figures(build)
    with tempfile.TemporaryDirectory(prefix="bench.") as folder:
        loads = Loads(build, folder, figures)
        os.environ["TEMPLATE"] = str(pathlib.Path(__file__).parent / "requests/page.html")
        for part in (loads.uploads, loads.loops, loads.pages):
            part()
    pathlib.Path(result).write_text(json.dumps(vars(figures), indent=1))


if __name__ == "__main__":
    main()
