"""Runs the programs that are measured, and reads their memory and CPU time from /proc."""

import os
import pathlib
import re
import signal
import socket
import subprocess

import fastcgi

TIMEOUT = 60  # seconds
CLOSE_WAIT = "LIBFCGI_OS_CLOSE_POLL_TIMEOUT"
DEFAULT_CLOSE_WAIT = "2000"  # milliseconds, as libfcgi has it
BACKLOG = 4096  # connections
QUIET = {"APP_LOG": "stderr", "APP_LOG_LEVEL": "3"}


class Program:
    """A command with its environment, and its name in the report."""

    def __init__(self, name, command, environment=None):
        self.name = name
        self.command = [str(word) for word in command]
        self.environment = {**os.environ, **QUIET, **(environment or {})}


class Programs:
    """The programs that the preset `bench` builds."""

    def __init__(self, build):
        os.sync()  # see Process.private_memory()
        folder = pathlib.Path(build).resolve() / "tests/bench/requests"
        self.bare = folder / "bare_loop"
        self.prescribed = folder / "prescribed_loop"
        self.host = folder / "fcgi_host_bench"
        self.allocation_counter = folder / "libcount_allocations.so"

    def bare_loop(self, loops=1, environment=None):
        return Program("bare loop without close wait", [self.bare, loops],
                       {CLOSE_WAIT: "0", **(environment or {})})

    def default_bare_loop(self, loops=1):
        return Program("bare loop", [self.bare, loops], {CLOSE_WAIT: DEFAULT_CLOSE_WAIT})

    def prescribed_loop(self, loops=1, environment=None):
        return Program("prescribed loop", [self.prescribed, loops],
                       {CLOSE_WAIT: "0", **(environment or {})})

    def container(self, loops=1, environment=None):
        return Program("container", [self.host, f"--threads={loops}"], environment)


class Process:
    """The resources of a running process, as /proc shows them."""

    def __init__(self, pid):
        self.pid = pid

    def cpu_seconds(self):
        fields = pathlib.Path(f"/proc/{self.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def memory(self, *names):
        """Returns the sum of fields of /proc/PID/smaps_rollup, in KiB."""
        text = pathlib.Path(f"/proc/{self.pid}/smaps_rollup").read_text()
        return sum(int(re.search(rf"^{name}:\s+(\d+) kB$", text, re.M).group(1))
                   for name in names)

    def resident_memory(self):
        return self.memory("Rss")

    def private_memory(self):
        """Returns the size of the pages that the process has written, in KiB. Clean private pages
        are not counted: pages of a library are private as long as no other process has mapped it.
        Pages of a file just built are dirty until they are on the disk, so sync first."""
        return self.memory("Private_Dirty")

    def peak_memory(self):
        text = pathlib.Path(f"/proc/{self.pid}/status").read_text()
        return int(re.search(r"^VmHWM:\s+(\d+) kB$", text, re.M).group(1))


class Backend:
    """A program that serves a Unix socket; `prefix` is a command that traces it, such as strace."""

    def __init__(self, program, path, prefix=()):
        self.path = str(path)
        pathlib.Path(self.path).unlink(missing_ok=True)
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(self.path)
            listener.listen(BACKLOG)
            self.child = subprocess.Popen([*map(str, prefix), *program.command], stdin=listener,
                                          stderr=subprocess.DEVNULL, env=program.environment)
        self.is_traced = prefix[:1] == ["strace"]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    @property
    def process(self):
        pid = self.child.pid
        if self.is_traced:
            pid = int(pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()[0])
        return Process(pid)

    def send(self, *arguments, **options):
        return fastcgi.send(self.path, fastcgi.request(*arguments, **options))

    def send_repeatedly(self, data, times):
        """Sends the request `times` times; all responses must have the length of the first."""
        expected = len(fastcgi.send(self.path, data))
        for _ in range(times - 1):
            assert len(fastcgi.send(self.path, data)) == expected

    def sign_in(self):
        """Returns the cookie of a new session, or a made-up one if the program has no sessions."""
        cookie = re.search(r"^Set-Cookie: (\S+)", self.send("p=sign-in"), re.M)
        return cookie.group(1) if cookie else "JSESSIONID=55d0c8e3f2a81712345655d0c8e40010"

    def stop(self):
        if self.child.poll() is None:
            os.kill(self.process.pid, signal.SIGTERM)
            assert self.child.wait(TIMEOUT) == 0
