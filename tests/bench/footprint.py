#!/usr/bin/python3
"""Measures the container's sizes, memory, stacks and file writes, and prints them as tables.

    footprint.py BUILDS [--document FILE]

BUILDS is the folder that scripts/footprint builds in. With --document the tables replace those in
FILE. The exit status is 1 if an aim is missed.
"""
import argparse
import concurrent.futures
import datetime
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import fastcgi
from backend import TIMEOUT, Backend, Programs
from counting import FEW, MANY, Counter
from new_phone import NewPhone, Owner
from pages import FORM, FORM_TYPE, PAGE, TEMPLATE, UPLOAD_TYPE, upload_of
from phone import Phone

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/support"))
from marked_section import replace_section

ARCHITECTURES = {"amd64": ("release", "strip"),
                 "armhf": ("release-armhf", "arm-linux-gnueabihf-strip"),
                 "arm64": ("release-arm64", "aarch64-linux-gnu-strip")}
VARIANTS = {"as shipped": "release-armhf",
            "everything compiled for size": "footprint/small",
            "unused sections dropped by the linker": "footprint/sections",
            "link-time optimisation": "footprint/whole"}
SHIPPED = ("fcgiServer/libfcgiServer.so", "platform/libdevice.so", "host/fcgi_host")
MAX_ARMHF_SIZE = 200 * 1024  # bytes
MAX_BEYOND_BARE_LOOP = 256  # KiB
MAX_SESSION = 512  # bytes
LOOPS = 2
REQUESTS = 10_000
SESSIONS = 10_000
# Query, body and content type of each request. The upload writes a file, which proves that file
# writes are counted.
KINDS = {"page": (PAGE, None, FORM_TYPE),
         "template page": (TEMPLATE, None, FORM_TYPE),
         "form of 10 fields": ("p=form", FORM.encode(), FORM_TYPE),
         "upload of 100 KiB": ("p=upload", upload_of(100 * 1024 * b"x"), UPLOAD_TYPE)}
PHONE_PAGES = ("status", "status-data", "phone", "accounts", "network", "audio", "security",
               "contacts", "settings-config", "settings-upgrade", "settings-autop")
# The stack pointer is the last but one field of /proc/PID/task/TID/syscall; see proc(5).
STACK_POINTER = re.compile(r"(0x[0-9a-f]+) 0x[0-9a-f]+$")
MAPPING = re.compile(r"^([0-9a-f]+)-([0-9a-f]+) .*?^Rss:\s+(\d+) kB", re.M | re.S)
# System calls in the output of strace -y that may write to a flash disk.
FILE_WRITES = re.compile(r"\b(?:p?writev?(?:64)?|sendfile|f(?:data)?sync|ftruncate)\(\d+</(?!dev/)"
                     r"|\bopen(?:at)?\(.*O_(?:WRONLY|RDWR|CREAT)"
                     r"|\b(?:rename|unlink|mkdir|rmdir|link|symlink)(?:at2?)?\(")


def stripped_bytes(path, strip, folder):
    copy = folder / "stripped"
    subprocess.run([strip, "-o", copy, path], check=True)
    return copy.stat().st_size


def sizes(builds, folder):
    """Returns the sizes of each file for all architectures."""
    table = {name: [stripped_bytes(builds / preset / name, strip, folder)
                    for preset, strip in ARCHITECTURES.values()] for name in SHIPPED}
    table["together"] = [sum(column) for column in zip(*table.values())]
    return table


def sizes_of_variants(builds, folder):
    _, strip = ARCHITECTURES["armhf"]
    return {what: [stripped_bytes(builds / build / name, strip, folder) for name in SHIPPED]
            for what, build in VARIANTS.items()}


def settle(backend, loops):
    """Waits until all loops wait for a request."""
    deadline = time.monotonic() + TIMEOUT
    while len(backend.process.threads()) < loops + 1:
        assert time.monotonic() < deadline
        time.sleep(0.01)
    time.sleep(0.2)


def send_concurrently(backend, data, times, clients):
    with concurrent.futures.ThreadPoolExecutor(clients) as pool:
        list(pool.map(lambda _: backend.send_repeatedly(data, times // clients), range(clients)))


def stack_pointer(process, thread):
    """Waits until the thread blocks in a system call, and returns its stack pointer."""
    while not (found := STACK_POINTER.search(process.file(f"task/{thread}/syscall").strip())):
        time.sleep(0.01)
    return int(found.group(1), 16)


def stack_peak(process):
    """Returns the largest stack of all loops, in KiB: the resident pages, which are all that were
    ever touched."""
    mappings = [(int(begin, 16), int(end, 16), int(kib))
                for begin, end, kib in MAPPING.findall(process.file("smaps"))]
    peaks = []
    for thread in process.threads():
        if thread == process.pid:
            continue
        pointer = stack_pointer(process, thread)
        peaks.append(next(kib for begin, end, kib in mappings if begin <= pointer < end))
    return max(peaks)


class Footprint:
    """Measures programs, on this machine or on the phone."""

    def __init__(self, programs, counter):
        self.programs = programs
        self.counter = counter
        self.fresh = counter.fresh

    def after_start(self, loops):
        with self.programs.container(loops).start(self.fresh()) as backend:
            settle(backend, loops)
            return backend.process.private_memory(), backend.process.resident_memory()

    def memory_per_session(self):
        """Returns the growth of private memory per session, in bytes."""
        with self.programs.container(1).start(self.fresh()) as backend:
            data = fastcgi.request("p=sign-in")
            backend.send_repeatedly(data, 10)
            before = backend.process.private_memory()
            backend.send_repeatedly(data, SESSIONS)
            return (backend.process.private_memory() - before) * 1024 / SESSIONS

    def after_requests(self, program, requests):
        """Returns the private memory after requests of as many clients as there are loops."""
        with program.start(self.fresh()) as backend:
            data = fastcgi.request(PAGE, cookie=backend.sign_in())
            send_concurrently(backend, data, requests, LOOPS)
            return backend.process.private_memory()

    def memory_per_loop(self):
        """Returns the private memory of each further loop that has served requests, in KiB."""
        few, many = 1, 9
        return (self.with_busy_loops(many) - self.with_busy_loops(few)) / (many - few)

    def with_busy_loops(self, loops):
        with self.programs.container(loops).start(self.fresh()) as backend:
            data = fastcgi.request(PAGE, cookie=backend.sign_in())
            send_concurrently(backend, data, 200 * loops, 2 * loops)
            return backend.process.private_memory()

    def container(self, environment=None):
        return self.programs.container(environment=environment)

    def memory(self):
        """Returns a cell for each row of the table of memory, and two figures that have an aim."""
        private, resident = self.after_start(LOOPS)
        container = self.after_requests(self.programs.container(LOOPS), REQUESTS)
        bare = self.after_requests(self.programs.bare_loop(LOOPS), REQUESTS)
        session = self.memory_per_session()
        return [f"{private:,} KiB", f"{resident:,} KiB", f"{container:,} KiB", f"{bare:,} KiB",
                f"{session:,.0f} bytes", f"{self.memory_per_loop():,.0f} KiB"], container - bare, session

    @staticmethod
    def send(backend, kind, times):
        query, body, content_type = KINDS[kind]
        data = fastcgi.request(query, backend.sign_in(), body, content_type)
        backend.send_repeatedly(data, times)

    def stack_of(self, kind):
        with self.container().start(self.fresh()) as backend:
            self.send(backend, kind, FEW)
            return stack_peak(backend.process)

    def allocations(self, kind):
        """Returns the number of allocations of a request and the sum of their bytes."""
        return self.counter.allocations(self.container, self.programs.allocation_counter,
                                        *KINDS[kind])


class HostFootprint(Footprint):
    """Measures programs on this machine."""

    def __init__(self, builds, folder):
        super().__init__(Programs(builds / "bench"), Counter(folder))
        self.builds = builds
        self.folder = folder

    def container(self, environment=None):
        return super().container({"FILE": str(self.folder / "uploaded"), **(environment or {})})

    def stack_of_the_phone(self):
        """Returns the stack after a sign-in, which hashes a password, and all pages."""
        program = NewPhone(self.builds / "bench")
        with program.start(self.fresh()) as backend:
            owner = Owner(backend, program.www)
            for page in PHONE_PAGES:
                assert "Status: " not in owner.send(f"p={page}"), page
            return stack_peak(backend.process)

    def file_writes(self, kind):
        """Returns the number of system calls of a request that write files."""
        def count(times):
            out = self.fresh()
            with Backend(self.container(), self.fresh(),
                         ["strace", "-f", "-qq", "-y", "-s", "0", "-o", str(out)]) as backend:
                self.send(backend, kind, times)
            return {"": len(FILE_WRITES.findall(out.read_text()))}
        return self.counter.per_request(count)[""]


class PhoneCounter(Counter):
    """Counts on the phone."""

    def __init__(self, phone):
        super().__init__(None)
        self.fresh = phone.fresh

    def instructions_of(self, program, query, body, content_type):
        """Returns the instructions of a request, of the program and of the kernel for it."""
        with program.start() as backend:
            data = backend.request(query, cookie=backend.sign_in(), body=body, content_type=content_type)
            backend.send_repeatedly(data, FEW)
            before = backend.process.instructions()
            backend.send_repeatedly(data, MANY)
            return (backend.process.instructions() - before) / MANY


class PhoneFootprint(Footprint):
    """Measures programs on the phone."""

    def __init__(self, phone):
        super().__init__(phone, PhoneCounter(phone))

    def instructions(self, kind):
        return self.counter.instructions_of(self.container(), *KINDS[kind])


def row(*cells):
    return f"| {' | '.join(cells)} |"


def table(head, rows):
    line = row("---", *["---:"] * (len(head) - 1))
    return [row(*head), line, *(row(*cells) for cells in rows), ""]


def title():
    commit = subprocess.run(["git", "rev-parse", "--short", "HEAD"], cwd=ROOT, check=True,
                            capture_output=True, text=True).stdout.strip()
    return [f"`scripts/footprint`, {datetime.date.today()}, commit {commit}:", ""]


def size_tables(by_file, by_variant):
    lines = table(["stripped, bytes", *ARCHITECTURES],
                  [(pathlib.Path(name).name, *(f"{size:,}" for size in column))
                   for name, column in by_file.items()])
    return lines + table(
        ["stripped on armhf, bytes", *(pathlib.Path(name).name for name in SHIPPED), "together"],
        [(what, *(f"{size:,}" for size in [*files, sum(files)]))
         for what, files in by_variant.items()])


def memory_table(host, phone):
    names = [f"private, after the start, {LOOPS} loops", f"resident, after the start, {LOOPS} loops",
             f"private, after {REQUESTS:,} requests, {LOOPS} loops",
             f"the same of a bare libfcgi loop with {LOOPS} threads",
             "private, per session without attributes",
             "private, per further loop that has served requests"]
    return table(["memory", "amd64", "on the device"], zip(names, host, phone))


def request_tables(host, phone):
    columns = ["allocations", "bytes allocated", "stack, peak"]
    on_host = [(*request_cells(host, kind), f"{host.file_writes(kind):,.1f}") for kind in KINDS]
    on_phone = [(*request_cells(phone, kind), f"{phone.instructions(kind):,.0f}") for kind in KINDS]
    return (table(["one request on amd64", *columns, "file writes"], on_host) +
            table(["one request on the device", *columns, "instructions"], on_phone))


def request_cells(footprint, kind):
    allocations, size = footprint.allocations(kind)
    return kind, f"{allocations:,.1f}", f"{size:,.0f}", f"{footprint.stack_of(kind):,} KiB"


def aims_table(aims):
    return table(["aim", "figure", "at most", ""],
                 [(name, f"{figure:,.0f}", f"{most:,}", "met" if figure <= most else "**missed**")
                  for name, figure, most in aims])


def measured(host, phone, together):
    """Measures running programs, and returns the tables and whether all aims are met; `together` is
    the sum of the stripped sizes on armhf."""
    cells, beyond_bare_loop, session = host.memory()
    lines = memory_table(cells, phone.memory()[0]) + request_tables(host, phone)
    lines += ["Peak stack of a loop on amd64 that has served a sign-in and every page of the phone: "
              f"{host.stack_of_the_phone():,} KiB.", ""]
    aims = [("stripped on armhf, together, bytes", together, MAX_ARMHF_SIZE),
            (f"private memory after {REQUESTS:,} requests, {LOOPS} loops, beyond the bare loop's, "
             "KiB", beyond_bare_loop, MAX_BEYOND_BARE_LOOP),
            ("private memory per session without attributes, bytes", session, MAX_SESSION)]
    return lines + aims_table(aims), all(figure <= most for _, figure, most in aims)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("builds", type=pathlib.Path)
    parser.add_argument("--document", type=pathlib.Path)
    arguments = parser.parse_args()
    builds = arguments.builds.resolve()
    with tempfile.TemporaryDirectory(prefix="footprint.") as name:
        folder = pathlib.Path(name)
        by_variant = sizes_of_variants(builds, folder)
        with Phone(builds / "footprint/device", folder) as phone:
            lines, is_met = measured(HostFootprint(builds, folder), PhoneFootprint(phone),
                                     sum(by_variant["as shipped"]))
        text = "\n".join(title() + size_tables(sizes(builds, folder), by_variant) + lines)
    print(text)
    if arguments.document:
        replace_section(arguments.document, "footprint", text)
    return 0 if is_met else 1


if __name__ == "__main__":
    sys.exit(main())
