"""The programs that are measured, and what the system tells of them."""

import os
import pathlib
import re
import signal
import socket
import subprocess

import fastcgi

PATIENCE = 60  # seconds
WAIT = "LIBFCGI_OS_CLOSE_POLL_TIMEOUT"
SHIPPED_WAIT = "2000"  # milliseconds, the kit's own
LINE = 4096  # connections that may wait to be accepted
QUIET = {"APP_LOG": "stderr", "APP_LOG_LEVEL": "3"}


class Program:
    """A program as it is started, with what it is called in the report."""

    def __init__(self, name, command, environment=None):
        self.name = name
        self.command = [str(word) for word in command]
        self.environment = {**os.environ, **QUIET, **(environment or {})}


class Programs:
    """What the preset `bench` has built."""

    def __init__(self, build):
        os.sync()  # see Process.private()
        folder = pathlib.Path(build).resolve() / "tests/bench/requests"
        self.bare = folder / "bare_loop"
        self.host = folder / "fcgi_host_bench"
        self.allocation_counter = folder / "libcount_allocations.so"

    def bare_loop(self, loops=1, environment=None):
        return Program("bare loop without the wait", [self.bare, loops],
                       {WAIT: "0", **(environment or {})})

    def shipped_bare_loop(self, loops=1):
        return Program("bare loop as the kit ships", [self.bare, loops], {WAIT: SHIPPED_WAIT})

    def container(self, loops=1, environment=None):
        return Program("container", [self.host, f"--threads={loops}"], environment)


class Process:
    """What the system tells of a running process."""

    def __init__(self, pid):
        self.pid = pid

    def processor_seconds(self):
        fields = pathlib.Path(f"/proc/{self.pid}/stat").read_text().rpartition(")")[2].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def memory(self, *names):
        """The sum of figures of /proc/PID/smaps_rollup, in KiB."""
        text = pathlib.Path(f"/proc/{self.pid}/smaps_rollup").read_text()
        return sum(int(re.search(rf"^{name}:\s+(\d+) kB$", text, re.M).group(1))
                   for name in names)

    def resident(self):
        return self.memory("Rss")

    def private(self):
        """What it has written. Pages of libraries count as private, too, while nobody else has
        them, which says nothing of the program; and as written, while those of a file that was
        just built are not on the disk yet."""
        return self.memory("Private_Dirty")

    def peak(self):
        text = pathlib.Path(f"/proc/{self.pid}/status").read_text()
        return int(re.search(r"^VmHWM:\s+(\d+) kB$", text, re.M).group(1))


class Backend:
    """A program that serves a socket of ours, perhaps under another one that watches it."""

    def __init__(self, program, path, prefix=()):
        self.path = str(path)
        pathlib.Path(self.path).unlink(missing_ok=True)
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(self.path)
            listener.listen(LINE)
            self.child = subprocess.Popen([*map(str, prefix), *program.command], stdin=listener,
                                          stderr=subprocess.DEVNULL, env=program.environment)
        self.is_watched = prefix[:1] == ["strace"]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    @property
    def process(self):
        pid = self.child.pid
        if self.is_watched:
            pid = int(pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()[0])
        return Process(pid)

    def ask(self, *arguments, **options):
        return fastcgi.ask(self.path, fastcgi.request(*arguments, **options))

    def ask_often(self, data, times):
        """Each answer must be as long as the first."""
        expected = len(fastcgi.ask(self.path, data))
        for _ in range(times - 1):
            assert len(fastcgi.ask(self.path, data)) == expected

    def sign_in(self):
        """The cookie of a session; none where there are no sessions."""
        cookie = re.search(r"^Set-Cookie: (\S+)", self.ask("p=sign-in"), re.M)
        return cookie.group(1) if cookie else "JSESSIONID=55d0c8e3f2a81712345655d0c8e40010"

    def stop(self):
        if self.child.poll() is None:
            os.kill(self.process.pid, signal.SIGTERM)
            assert self.child.wait(PATIENCE) == 0
