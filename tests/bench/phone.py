"""Runs the measured programs on the virtual phone, and reads their memory and instructions there."""

import pathlib
import subprocess
import sys
import time

from backend import TIMEOUT, Backend, Process

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path += [str(ROOT / "tests/device"), str(ROOT / "tests/support")]
import device_image
from ports import free_port
from virtual_phone import COUNTING, Console, VirtualPhone, second_disk

HERE = "/run/bench"  # on the phone
PORT = 9000


class PhoneFile:
    """A file on the phone."""

    def __init__(self, console, path):
        self.console, self.path = console, path

    def __str__(self):
        return self.path

    def read_text(self):
        return self.console.output(f"cat {self.path}")


class PhoneProcess(Process):
    def __init__(self, pid, console):
        super().__init__(pid)
        self.console = console

    def members(self):
        return [self.pid]

    def file(self, name, pid=None):
        return self.console.output(f"cat /proc/{pid or self.pid}/{name}")

    def threads(self):
        return [int(name) for name in self.console.output(f"ls /proc/{self.pid}/task").split()]

    def instructions(self):
        """Returns what all threads have executed, themselves and in the kernel; see COUNTING."""
        times = self.console.output(f"cat /proc/{self.pid}/task/*/schedstat")
        return sum(int(line.split()[0]) for line in times.splitlines())


class PhoneBackend(Backend):
    """A program on the phone that serves PORT there, to which `port` leads here."""

    def __init__(self, console, port, command):
        self.console, self.port = console, port
        self.pid = int(console.output(f"{command} >/dev/null 2>&1 & echo $!").split()[-1])
        deadline = time.monotonic() + TIMEOUT
        while not self.is_listening():
            assert time.monotonic() < deadline, f"no answer from {command}"
            time.sleep(0.1)

    @property
    def address(self):
        return ("127.0.0.1", self.port)

    def is_listening(self):
        return self.console.run(f"grep -q ':{PORT:04X} .* 0A ' /proc/net/tcp")[1] == 0

    @property
    def process(self):
        return PhoneProcess(self.pid, self.console)

    def stop(self, stop_signal="TERM"):
        printed, status = self.console.run(f"kill -{stop_signal} {self.pid}; wait {self.pid}")
        assert status == 0, printed


class PhoneProgram:
    def __init__(self, phone, command, environment):
        self.phone, self.command = phone, command
        self.words = " ".join(f"{name}={value}" for name, value in environment.items())

    def start(self, _path=None, _prefix=()):
        return PhoneBackend(self.phone.console, self.phone.port, self.command % f"env {self.words}")


class Phone:
    """A virtual phone with the programs that scripts/footprint has built in the folder `build`. They are the
    phone's own daemon with the plug-in of the benchmarks in place of its pages, and the bare loop."""

    def __init__(self, build, folder):
        self.machine = VirtualPhone(
            device_image.make(), free_port(), forwarded=[(free_port(), PORT)],
            options=(*COUNTING, *second_disk(archive(build, folder))))
        self.port = self.machine.forwarded[0][0]
        self.console = None
        self.files = 0

    def __enter__(self):
        self.machine.start()
        self.machine.wait_until_it_answers()
        self.console = Console(self.machine.console_path)
        self.console.output(f"mkdir {HERE} && tar -x -f /dev/vdb -C {HERE}")
        return self

    def __exit__(self, *_):
        self.machine.remove()

    def fresh(self):
        self.files += 1
        return PhoneFile(self.console, f"{HERE}/{self.files}")

    @property
    def allocation_counter(self):
        return f"{HERE}/libcount_allocations.so"

    def container(self, loops=1, environment=None):
        fixed = {"APP_LOG": "stderr", "APP_LOG_LEVEL": "3", "TEMPLATE": f"{HERE}/page.html",
                 "FILE": f"{HERE}/uploaded"}
        return PhoneProgram(
            self, f"unshare -m sh -c 'mount --bind {HERE}/WEB-INFO /phone/www/WEB-INFO && "
            f"exec %s fcgi_host --threads={loops} --listen=0.0.0.0:{PORT}'",
            {**fixed, **(environment or {})})

    def bare_loop(self, loops=1):
        return PhoneProgram(
            self, f"systemd-socket-activate --inetd -l 0.0.0.0:{PORT} %s {HERE}/bare_loop {loops}",
            {"LIBFCGI_OS_CLOSE_POLL_TIMEOUT": "0"})


def archive(build, folder):
    """Returns a tar archive of what the programs need on the phone."""
    tree = folder / "phone"
    (tree / "WEB-INFO/servlet").mkdir(parents=True)
    requests = build / "tests/bench/requests"
    for name in ("bare_loop", "libbench_plugin.so", "libcount_allocations.so"):
        subprocess.run(["arm-linux-gnueabihf-strip", "-o", tree / name, requests / name], check=True)
    (tree / "page.html").write_text((ROOT / "tests/bench/requests/page.html").read_text())
    configuration = (requests / "device/phone/www/WEB-INFO/servlet/servlet.xml").read_text()
    (tree / "WEB-INFO/servlet/servlet.xml").write_text(
        configuration.replace(str(requests / "libbench_plugin.so"), f"{HERE}/libbench_plugin.so"))
    packed = folder / "phone.tar"
    subprocess.run(["tar", "-c", "--owner=0", "--group=0", "-f", packed, "-C", tree, "."], check=True)
    return packed
