#!/usr/bin/python3
"""Compares the container with what could serve the same page behind the same lighttpd.

    peers.py BUILD RESULT

BUILD is the folder of the preset `bench`. The figures are written to RESULT as JSON.
"""
import glob
import json
import pathlib
import random
import subprocess
import sys
import tempfile

from backend import PhpFpm, Programs
from counting import Counter
from figures import Figures, steadiest
from front import Lighttpd, Load
from loads import SECONDS, mixed
from pages import PAGE

PAGE_SCRIPT = pathlib.Path(__file__).parent / "peers/page.php"
CLIENTS = 8
MEMORY_REQUESTS = 2000
# Looked for in the package registry, as a package of that name or part of one.
WANTED = {"CppCMS": "cppcms", "fastcgi++": "fastcgi(pp|\\+\\+)", "kcgi": "kcgi",
          "PHP-FPM": "^php-fpm$"}


def packaged():
    """Returns which of the wanted programs the package registry has."""
    names = subprocess.run(["apt-cache", "pkgnames"], check=True, capture_output=True,
                           text=True).stdout
    return {name: subprocess.run(["grep", "-qE", pattern], input=names, text=True,
                                 check=False).returncode == 0
            for name, pattern in WANTED.items()}


class Peers:
    def __init__(self, build, folder, figures):
        self.folder = pathlib.Path(folder)
        self.counter = Counter(self.folder)
        self.figures = figures
        programs = Programs(build)
        php_folder = self.folder / "php"
        php_folder.mkdir()
        binary = sorted(glob.glob("/usr/sbin/php-fpm*"))[-1]
        self.programs = [programs.bare_loop(), programs.prescribed_loop(), programs.container(),
                         PhpFpm(binary, PAGE_SCRIPT, php_folder)]

    def loads(self):
        samples = {(program.name, measure): [] for program in self.programs
                   for measure in ("rate", "cpu_time")}
        for program in mixed(self.programs):
            with Lighttpd(program, self.counter.fresh()) as server:
                load = Load(server, PAGE, CLIENTS, SECONDS, server.sign_in())
            for measure in ("rate", "cpu_time"):
                samples[program.name, measure].append(getattr(load, measure))
        return samples

    def memory_of(self, program):
        with program.start(self.counter.fresh()) as backend:
            data = backend.request(PAGE, cookie=backend.sign_in())
            backend.send_repeatedly(data, MEMORY_REQUESTS)
            process = backend.process
            # Divides pages that a program's processes share among them.
            return process.memory("Pss_Dirty"), process.resident_memory()

    def measure(self):
        group = f"page behind lighttpd, {CLIENTS} clients"
        samples = steadiest(self.loads)
        for program in self.programs:
            written, resident = self.memory_of(program)
            for measure, column, unit in (
                    ("requests/s", samples[program.name, "rate"], "1/s"),
                    ("processor time of a request", samples[program.name, "cpu_time"], "µs"),
                    ("instructions of a request", [self.counter.instructions(program, PAGE)], ""),
                    ("written memory", [written], "KiB"),
                    ("resident memory, all processes", [resident], "KiB")):
                self.figures.row(group, measure, program.name, column, unit)


def main():
    build, result = sys.argv[1:]
    random.seed(1)
    figures = Figures(build)
    figures.tables["packaged"] = packaged()
    with tempfile.TemporaryDirectory(prefix="bench.", dir="/dev/shm") as folder:
        Peers(build, folder, figures).measure()
    pathlib.Path(result).write_text(json.dumps(vars(figures), indent=1))


if __name__ == "__main__":
    main()
