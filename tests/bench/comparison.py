#!/usr/bin/python3
"""Compares three pages, a to-do list, a JSON endpoint and an upload, written with this project and with
two other C++ frameworks. Checks that all three do the same, measures them behind the same lighttpd, and
prints a table.

    comparison.py NATIVE ARMHF SYSROOT

NATIVE and ARMHF are the folders that scripts/bench has built in, SYSROOT the libraries for ARM.
"""
import os
import pathlib
import random
import re
import statistics
import subprocess
import sys
import tempfile
import time

from backend import Program, Process, TIMEOUT
from figures import spread, steadiest
from front import CONFIG, Front, Load
from loads import SECONDS, mixed
from report import number, table

HERE = pathlib.Path(__file__).resolve().parent
SOURCES = HERE / "comparison"
sys.path += [str(SOURCES), str(HERE.parent / "support")]
import checks
from ports import free_port

CLIENTS = 8
THREADS = 2
MEMORY_REQUESTS = 2000
NUMBERS = '{"numbers": [1, 2, 3.5]}'
STRIP = "arm-linux-gnueabihf-strip"
# Every program on a device uses these.
SYSTEM = re.compile(r"(libc|libm|libgcc_s|libstdc\+\+|ld-linux-armhf)\.so")
FRAMEWORK = re.compile(r"lib(cpp-httplib|pistache)\.so")
# What the author of each program had to write for want of a function of the framework.
BY_HAND = {
    "fcgiServer": "nothing",
    "cpp-httplib": "sessions and their expiry, CSRF tokens, cookies, HTML templates and escaping, "
                   "checking text, security headers, storing the upload",
    "Pistache": "the same, and parsing forms and uploads, which it keeps in memory"}


class HttpProgram(Program):
    """A program that serves HTTP on the port that is its first argument."""

    paths = {"todo": "/todo", "add": "/todo", "sum": "/sum", "upload": "/upload"}
    config = SOURCES / "lighttpd-proxy.conf"

    def start(self, path, prefix=()):
        return HttpBackend(self, prefix)


class HttpBackend:
    def __init__(self, program, prefix):
        self.port = free_port()
        self.child = subprocess.Popen(
            [*prefix, *program.command, str(self.port), program.uploads], env=program.environment,
            stderr=subprocess.DEVNULL)
        self.process = Process(self.child.pid)

    def stop(self):
        self.child.terminate()
        assert self.child.wait(TIMEOUT) == 0


class PluginProgram(Program):
    """The daemon with the plug-in."""

    paths = {"todo": "/servlet?p=todo", "add": "/servlet?p=todo&q=add", "sum": "/servlet?p=sum",
             "upload": "/servlet?p=upload"}
    config = CONFIG / "lighttpd.conf"


class Lighttpd(Front):
    """The same web server for all, with a page as the sign that the back end is ready."""

    def __init__(self, program, folder):
        self.program = program
        super().__init__(program, folder)

    def command(self, program):
        back = getattr(self.backend, "port", 0)
        return ["env", f"BACK_PORT={back}", "lighttpd", "-D", "-f", str(program.config)]

    def wait(self):
        deadline = time.monotonic() + TIMEOUT
        while self.ask() != "200":
            assert time.monotonic() < deadline, self.program.name
            time.sleep(0.1)

    def ask(self):
        return subprocess.run(
            ["curl", "-s", "-o", "/dev/null", "-w", "%{http_code}", self.url("todo")],
            stdout=subprocess.PIPE, text=True, check=False).stdout

    def url(self, query):
        return f"http://127.0.0.1:{self.port}{self.program.paths[query]}"


class Comparison:
    def __init__(self, native, armhf, sysroot, folder):
        self.folder = pathlib.Path(folder)
        self.armhf = armhf
        self.libraries = sysroot / "usr/lib/arm-linux-gnueabihf"
        self.count = 0
        uploads = self.folder / "uploads"
        uploads.mkdir()
        plugin = PluginProgram("fcgiServer", [native / "container/host/fcgi_host",
                                              f"--threads={THREADS}"],
                               {"UPLOAD_FOLDER": str(uploads)})
        plugin.folder = native / "device/phone/www"
        plugin.sources = ["kit_pages.cpp", "www/WEB-INFO/templates/todo.html",
                          "www/WEB-INFO/servlet/servlet.xml"]
        plugin.files = ["libcomparison.so", "container/fcgiServer/libfcgiServer.so",
                        "container/platform/libdevice.so", "container/host/fcgi_host"]
        httplib = HttpProgram("cpp-httplib", [native / "pages/httplib_pages"])
        httplib.sources = ["httplib_pages.cpp", "by_hand.h"]
        httplib.files = ["httplib_pages"]
        pistache = HttpProgram("Pistache", [native / "pages/pistache_pages"])
        pistache.sources = ["pistache_pages.cpp", "by_hand.h"]
        pistache.files = ["pistache_pages"]
        self.programs = [plugin, httplib, pistache]
        for program in self.programs:
            program.uploads = str(uploads)

    def start(self, program):
        self.count += 1
        return Lighttpd(program, self.folder / str(self.count))

    def check(self):
        for program in self.programs:
            with self.start(program) as server:
                checks.check_all(server.port, program.paths, program.uploads, self.folder)

    def cookie(self, server):
        """Returns the cookies of a visitor with three items."""
        client = checks.Client(server.port, self.folder)
        checks.check_todo(client, server.program.paths)
        return client.cookies()

    def loads(self):
        samples = {}
        for program in mixed(self.programs):
            with self.start(program) as server:
                page = Load(server, "todo", CLIENTS, SECONDS, self.cookie(server))
                sums = Load(server, "sum", CLIENTS, SECONDS, "", NUMBERS, "application/json")
            samples.setdefault((program.name, "to-do list"), []).append(page.rate)
            samples.setdefault((program.name, "JSON"), []).append(sums.rate)
        return samples

    def memory(self, program):
        with self.start(program) as server:
            cookie = self.cookie(server)
            subprocess.run(["curl", "-s", "-o", "/dev/null", "-H", f"Cookie: {cookie}",
                            *[server.url("todo")] * MEMORY_REQUESTS], check=True)
            return server.process.memory("Pss_Dirty")

    def stripped(self, path):
        copy = self.folder / "stripped"
        subprocess.run([STRIP, "-o", copy, path], check=True)
        return copy.stat().st_size

    def needed(self, path):
        """Returns the libraries of the ARM system that a file needs, but not those of every program."""
        text = subprocess.run(["readelf", "-d", path], check=True, capture_output=True,
                              text=True).stdout
        return {name for name in re.findall(r"\(NEEDED\).*\[(.*)\]", text)
                if not SYSTEM.match(name) and (self.libraries / name).exists()}

    def sizes(self, program):
        """Returns the bytes of the program with its framework, and with all libraries that they
        need."""
        files = [self.armhf / name for name in program.files]
        waiting = set().union(*(self.needed(path) for path in files))
        libraries = set()
        while waiting:
            name = waiting.pop()
            libraries.add(name)
            waiting |= self.needed(self.libraries / name) - libraries
        framework = {name for name in libraries if FRAMEWORK.match(name)}
        own = sum(map(self.stripped, [*files, *(self.libraries / name for name in framework)]))
        return own, own + sum(self.stripped(self.libraries / name)
                              for name in libraries - framework)

    def rows(self):
        rates = steadiest(self.loads)

        def rate(program, page):
            samples = rates[program.name, page]
            return f"{number(statistics.median(samples))} ({100 * (spread(samples) or 0):.0f} %)"
        sizes = [self.sizes(program) for program in self.programs]
        lines = [sum(map(lines_of, program.sources)) for program in self.programs]
        return [
            ["lines of code, templates and configuration", *map(number, lines)],
            ["written by hand", *(BY_HAND[program.name] for program in self.programs)],
            ["program with its framework on armhf, bytes", *(number(own) for own, _ in sizes)],
            ["with the other libraries that it needs there, bytes", *(number(whole) for _, whole in sizes)],
            ["memory written, KiB", *(number(self.memory(each)) for each in self.programs)],
            ["to-do list, requests per second (spread)",
             *(rate(program, "to-do list") for program in self.programs)],
            ["JSON endpoint, requests per second (spread)",
             *(rate(program, "JSON") for program in self.programs)]]


def lines_of(name):
    """Counts the lines that are neither empty nor a comment alone."""
    lines = map(str.strip, (SOURCES / name).read_text().splitlines())
    return sum(bool(line) and not line.startswith("//") for line in lines)


def main():
    native, armhf, sysroot = map(pathlib.Path, sys.argv[1:])
    os.sync()
    random.seed(1)
    with tempfile.TemporaryDirectory(prefix="bench.", dir="/dev/shm") as folder:
        comparison = Comparison(native.resolve(), armhf.resolve(), sysroot.resolve(), folder)
        comparison.check()
        names = [program.name for program in comparison.programs]
        print("\n".join(table(["", *names], comparison.rows())))


if __name__ == "__main__":
    main()
