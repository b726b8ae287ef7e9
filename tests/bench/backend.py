"""Runs the programs that are measured, and reads their memory and CPU time from /proc."""

import os
import pathlib
import re
import signal
import socket
import subprocess
import time

import fastcgi

TIMEOUT = 60  # seconds
CLOSE_WAIT = "LIBFCGI_OS_CLOSE_POLL_TIMEOUT"
DEFAULT_CLOSE_WAIT = "2000"  # milliseconds, as libfcgi has it
BACKLOG = 4096  # connections
QUIET = {"APP_LOG": "stderr", "APP_LOG_LEVEL": "3"}
# The front server and the load share one core, the back end has one of its own.
FRONT_CORE, BACK_CORE = (sorted(os.sched_getaffinity(0)) * 2)[:2]


def pinned(core):
    """Returns the command words that run a command on one core."""
    return ["taskset", "-c", str(core)]


class Program:
    """A command with its environment, and its name in the report."""

    folder = None  # the front server's document root, if the program needs one

    def __init__(self, name, command, environment=None):
        self.name = name
        self.command = [str(word) for word in command]
        self.environment = {**os.environ, **QUIET, **(environment or {})}

    def start(self, path, prefix=()):
        return Backend(self, path, prefix)


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
    """The resources of a running process and its descendants, as /proc shows them."""

    def __init__(self, pid):
        self.pid = pid

    def members(self):
        """Returns the process and its descendants."""
        found = [self.pid]
        for pid in found:
            for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
                found += map(int, (task / "children").read_text().split())
        return found

    def file(self, name, pid=None):
        """Returns the text of a file of the process in /proc."""
        return pathlib.Path(f"/proc/{pid or self.pid}/{name}").read_text()

    def threads(self):
        return [int(path.name) for path in pathlib.Path(f"/proc/{self.pid}/task").iterdir()]

    def cpu_seconds(self):
        ticks = 0
        for pid in self.members():
            text = self.file("stat", pid)
            fields = text.rpartition(")")[2].split()
            ticks += int(fields[11]) + int(fields[12])
        return ticks / os.sysconf("SC_CLK_TCK")

    def memory(self, name):
        """Returns the sum of a field of /proc/PID/smaps_rollup, in KiB."""
        return sum(int(re.search(rf"^{name}:\s+(\d+) kB$",
                                 self.file("smaps_rollup", pid), re.M).group(1))
                   for pid in self.members())

    def resident_memory(self):
        return self.memory("Rss")

    def private_memory(self):
        """Returns the size of the pages that the process has written, in KiB. Clean private pages
        are not counted: pages of a library are private as long as no other process has mapped it.
        Pages of a file just built are dirty until they are on the disk, so sync first."""
        return self.memory("Private_Dirty")

    def peak_memory(self):
        return int(re.search(r"^VmHWM:\s+(\d+) kB$", self.file("status"), re.M).group(1))


class Backend:
    """A program that serves a Unix socket; `prefix` is a command that traces it, such as strace."""

    def __init__(self, program, path, prefix=()):
        self.path = str(path)
        pathlib.Path(self.path).unlink(missing_ok=True)
        self.is_traced = prefix[:1] == ["strace"]
        self.child = self.launch(program, [*map(str, prefix), *program.command])

    @property
    def address(self):
        """The path of the socket, or the address and the port."""
        return self.path

    def launch(self, program, command):
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(self.path)
            listener.listen(BACKLOG)
            return subprocess.Popen(command, stdin=listener, stderr=subprocess.DEVNULL,
                                    env=program.environment)

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

    def request(self, *arguments, **options):
        return fastcgi.request(*arguments, **options)

    def send(self, *arguments, **options):
        return fastcgi.send(self.address, self.request(*arguments, **options))

    def send_repeatedly(self, data, times):
        """Sends the request `times` times; all responses must have the length of the first."""
        expected = len(fastcgi.send(self.address, data))
        for _ in range(times - 1):
            assert len(fastcgi.send(self.address, data)) == expected

    def sign_in(self):
        """Returns the cookie of a new session, or a made-up one if the program has no sessions."""
        return fastcgi.cookie_of(re.search(r"^Set-Cookie: (.+)", self.send("p=sign-in"), re.M))

    def stop(self, stop_signal=signal.SIGTERM):
        if self.child.poll() is None:
            os.kill(self.process.pid, stop_signal)
            assert self.child.wait(TIMEOUT) == 0


class PhpFpm(Program):
    """PHP-FPM with its fastest settings for this page: a fixed number of workers, and compiled
    scripts and sessions in memory."""

    def __init__(self, binary, script, folder, workers=1):
        self.script = folder / "servlet"  # the path that lighttpd derives from the URL
        self.script.write_text(pathlib.Path(script).read_text())
        self.folder = folder
        self.workers = workers
        settings = {"zend_extension": "opcache", "opcache.validate_timestamps": 0,
                    "opcache.memory_consumption": 8, "opcache.interned_strings_buffer": 4,
                    "session.save_path": folder, "session.cache_limiter": "", "expose_php": 0}
        super().__init__("PHP-FPM", [binary, "--nodaemonize", "--allow-to-run-as-root", "-n",
                                     *(word for name, value in settings.items()
                                       for word in ("-d", f"{name}={value}")),
                                     "--fpm-config", folder / "php-fpm.conf"])

    def start(self, path, prefix=()):
        owner = f"user = {os.getuid()}\ngroup = {os.getgid()}\n" if os.getuid() == 0 else ""
        (self.folder / "php-fpm.conf").write_text(
            f"[global]\nerror_log = /dev/null\n[page]\n{owner}listen = {path}\n"
            f"listen.backlog = {BACKLOG}\npm = static\npm.max_children = {self.workers}\n"
            "security.limit_extensions =\n")
        return PhpFpmBackend(self, path, prefix)


class PhpFpmBackend(Backend):
    def __init__(self, program, path, prefix=()):
        self.script = str(program.script)
        super().__init__(program, path, prefix)

    def launch(self, program, command):
        child = subprocess.Popen(command, stderr=subprocess.DEVNULL, env=program.environment)
        deadline = time.monotonic() + TIMEOUT
        while not pathlib.Path(self.path).exists():
            assert time.monotonic() < deadline and child.poll() is None, program.command
            time.sleep(0.01)
        return child

    def request(self, *arguments, **options):
        return fastcgi.request(*arguments, script=self.script, **options)

    def stop(self, stop_signal=signal.SIGQUIT):
        super().stop(stop_signal)
