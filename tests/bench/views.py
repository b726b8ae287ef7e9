#!/usr/bin/python3
"""Measures the processor time that the daemon needs for each page of the example telephone, in turn with
the container's page of requests/plugin.cpp, which is 1 KiB without a template.

    views.py BUILD RESULT

BUILD is the folder of the preset `bench`. The figures are written to RESULT as JSON.
"""
import json
import pathlib
import random
import re
import sys
import tempfile

import fastcgi
from backend import Programs
from figures import Figures, steadiest
from new_phone import NewPhone, Owner
from pages import PAGE

ROUNDS = 9
VIEWS = 200  # of each page in a round
SMALL_PAGE = "page of 1 KiB"
SMALL_CONTENT = 1024 * "x"
TIME, RATIO = "processor time", f"times the {SMALL_PAGE}"


def pages_of(page):
    """Returns the pages to which the navigation leads."""
    navigation = re.search(r"<nav\b.*?</nav>", page, re.S)[0]
    return list(dict.fromkeys(re.findall(r'href="/servlet\?p=([a-z-]+)"', navigation)))


def processor_time(process):
    """Returns the time that all threads have spent on a processor, system calls included, in
    nanoseconds."""
    return sum(int(path.read_text().split()[0])
               for path in pathlib.Path(f"/proc/{process.pid}/task").glob("*/schedstat"))


def time_of(backend, data, part):
    """Returns the processor time of a request in microseconds; its response must contain `part`."""
    before = processor_time(backend.process)
    for _ in range(VIEWS):
        answer = fastcgi.send(backend.address, data)
        assert part in answer
    return (processor_time(backend.process) - before) / VIEWS / 1000


class Views:
    def __init__(self, phone, www, container):
        owner = Owner(phone, www)
        self.requests = {
            name: (phone, owner.request(f"p={name}"), f'data-page="{name}"')
            for name in pages_of(owner.send("p=status"))}
        small = container.request(PAGE, cookie=container.sign_in())
        self.requests[SMALL_PAGE] = (container, small, SMALL_CONTENT)

    def measure(self):
        samples = {name: [] for name in self.requests}
        for _ in range(ROUNDS):
            for name, request in random.sample(list(self.requests.items()), len(self.requests)):
                samples[name].append(time_of(*request))
        return samples


def note(figures, samples):
    for name, times in samples.items():
        figures.row("view of a page", TIME, name, times, "µs")
        figures.row("view of a page", RATIO, name,
                    [one / other for one, other in zip(times, samples[SMALL_PAGE])], "")


def main():
    build, result = map(pathlib.Path, sys.argv[1:])
    random.seed(1)
    figures = Figures(build)
    with tempfile.TemporaryDirectory(prefix="bench.") as folder:
        sockets = pathlib.Path(folder)
        program = NewPhone(build.resolve())
        with program.start(sockets / "phone") as phone, \
                Programs(build).container().start(sockets / "container") as container:
            note(figures, steadiest(Views(phone, program.www, container).measure))
    result.write_text(json.dumps(vars(figures), indent=1))


if __name__ == "__main__":
    main()
