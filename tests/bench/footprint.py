#!/usr/bin/python3
"""Measures what the container takes on a device, prints that as tables, and puts them into a document.

    footprint.py BUILDS [--document FILE]

BUILDS is the folder that scripts/footprint builds in. The exit status is 1 where an aim is missed.
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
from backend import Backend, Program, Programs

ROOT = pathlib.Path(__file__).resolve().parents[2]
ARCHITECTURES = {"amd64": ("release", "strip"),
                 "armhf": ("release-armhf", "arm-linux-gnueabihf-strip"),
                 "arm64": ("release-arm64", "aarch64-linux-gnu-strip")}
VARIANTS = {"as shipped": "release-armhf",
            "all of it compiled for size": "footprint/small",
            "the linker drops unused sections": "footprint/sections",
            "link-time optimisation": "footprint/whole"}
SHIPPED = ("fcgiServer/libfcgiServer.so", "platform/libdevice.so", "host/fcgi_host")
MOST_BYTES_ON_ARMHF = 200 * 1024
MOST_BEYOND_BARE_LOOP = 256  # KiB
LOOPS = 2
REQUESTS = 10_000
SESSIONS = 10_000
FEW, MANY = 100, 600  # requests of two runs, whose difference is that of the requests alone
PAGE = "p=page&x=1"
FORM = "&".join(f"field{i}=value+{i}%21" for i in range(10))
UPLOAD = (b"--frontier\r\nContent-Disposition: form-data; name=\"file\"; filename=\"image\"\r\n"
          b"Content-Type: application/octet-stream\r\n\r\n" + 100 * 1024 * b"x" +
          b"\r\n--frontier--\r\n")
FORM_TYPE = "application/x-www-form-urlencoded"
UPLOAD_TYPE = "multipart/form-data; boundary=frontier"
# What is asked for: query, body, content type. An upload does write a file, which shows that such
# calls are counted.
KINDS = {"page": (PAGE, None, FORM_TYPE),
         "template page": ("p=template", None, FORM_TYPE),
         "form of 10 fields": ("p=form", FORM.encode(), FORM_TYPE),
         "upload of 100 KiB": ("p=upload", UPLOAD, UPLOAD_TYPE)}
PHONE_PAGES = ("status", "status-data", "phone", "accounts", "network", "audio", "security",
               "contacts", "settings-config", "settings-upgrade", "settings-autop")
SIGN_IN = b"user=admin&password=admin"
# Of a running thread's system call: the stack pointer is the last but one; see proc(5).
STACK_POINTER = re.compile(r"(0x[0-9a-f]+) 0x[0-9a-f]+$")
MAPPING = re.compile(r"^([0-9a-f]+)-([0-9a-f]+) .*?^Rss:\s+(\d+) kB", re.M | re.S)
# As strace tells of them, which shows the file behind each descriptor: what may end on a flash disk.
CHANGES = re.compile(r"\b(?:p?writev?(?:64)?|sendfile|f(?:data)?sync|ftruncate)\(\d+</(?!dev/)"
                     r"|\bopen(?:at)?\(.*O_(?:WRONLY|RDWR|CREAT)"
                     r"|\b(?:rename|unlink|mkdir|rmdir|link|symlink)(?:at2?)?\(")


def stripped_bytes(path, strip, folder):
    copy = folder / "stripped"
    subprocess.run([strip, "-o", copy, path], check=True)
    return copy.stat().st_size


def sizes(builds, folder):
    """By file, a size for each architecture."""
    table = {name: [stripped_bytes(builds / preset / name, strip, folder)
                    for preset, strip in ARCHITECTURES.values()] for name in SHIPPED}
    table["together"] = [sum(column) for column in zip(*table.values())]
    return table


def sizes_of_variants(builds, folder):
    _, strip = ARCHITECTURES["armhf"]
    return {what: [stripped_bytes(builds / build / name, strip, folder) for name in SHIPPED]
            for what, build in VARIANTS.items()}


def settle(backend, loops):
    """Until all loops wait for a request."""
    tasks = pathlib.Path(f"/proc/{backend.process.pid}/task")
    deadline = time.monotonic() + 30
    while len(list(tasks.iterdir())) < loops + 1:
        assert time.monotonic() < deadline
        time.sleep(0.01)
    time.sleep(0.2)


def ask_by_several(backend, data, times, clients):
    with concurrent.futures.ThreadPoolExecutor(clients) as pool:
        list(pool.map(lambda _: backend.ask_often(data, times // clients), range(clients)))


def stack_pointer(task):
    """Once it waits."""
    while not (found := STACK_POINTER.search((task / "syscall").read_text().strip())):
        time.sleep(0.01)
    return int(found.group(1), 16)


def stack_peak(pid):
    """The most that a loop has used of its stack, in KiB: a page that has been touched stays."""
    process = pathlib.Path(f"/proc/{pid}")
    mappings = [(int(begin, 16), int(end, 16), int(kib))
                for begin, end, kib in MAPPING.findall((process / "smaps").read_text())]
    peaks = []
    for task in (process / "task").iterdir():
        if task.name == str(pid):
            continue
        pointer = stack_pointer(task)
        peaks.append(next(kib for begin, end, kib in mappings if begin <= pointer < end))
    return max(peaks)


class Footprint:
    def __init__(self, builds, folder):
        self.builds = builds
        self.programs = Programs(builds / "bench")
        self.folder = folder
        self.started = 0

    def fresh(self):
        self.started += 1
        return self.folder / str(self.started)

    def after_start(self, loops):
        with Backend(self.programs.container(loops), self.fresh()) as backend:
            settle(backend, loops)
            return backend.process.private(), backend.process.resident()

    def of_a_session(self):
        """Bytes."""
        with Backend(self.programs.container(1), self.fresh()) as backend:
            data = fastcgi.request("p=sign-in")
            backend.ask_often(data, 10)
            before = backend.process.private()
            backend.ask_often(data, SESSIONS)
            return (backend.process.private() - before) * 1024 / SESSIONS

    def after_requests(self, program, requests):
        """Private memory, where as many clients as loops ask."""
        with Backend(program, self.fresh()) as backend:
            data = fastcgi.request(PAGE, cookie=backend.sign_in())
            ask_by_several(backend, data, requests, LOOPS)
            return backend.process.private()

    def of_a_loop(self):
        """Private memory of one more, in KiB, once each of them has served."""
        few, many = 1, 9
        return (self.of_busy_loops(many) - self.of_busy_loops(few)) / (many - few)

    def of_busy_loops(self, loops):
        with Backend(self.programs.container(loops), self.fresh()) as backend:
            data = fastcgi.request(PAGE, cookie=backend.sign_in())
            ask_by_several(backend, data, 200 * loops, 2 * loops)
            return backend.process.private()

    def container(self, environment=None):
        return self.programs.container(
            environment={"FILE": str(self.folder / "uploaded"), **(environment or {})})

    @staticmethod
    def ask(backend, kind, times):
        query, body, content_type = KINDS[kind]
        backend.ask_often(fastcgi.request(query, backend.sign_in(), body, content_type), times)

    def stack_of(self, kind):
        with Backend(self.container(), self.fresh()) as backend:
            self.ask(backend, kind, FEW)
            return stack_peak(backend.process.pid)

    def stack_of_the_phone(self):
        """After a sign-in, which hashes a password, and every page once."""
        host = self.builds / "bench/host/fcgi_host"
        with Backend(Program("phone", [host, "--threads=1"]), self.fresh()) as backend:
            answer = backend.ask("p=login&q=login", body=SIGN_IN)
            cookie = re.search(r"^Set-Cookie: (\S+?);? ", answer, re.M).group(1)
            for page in PHONE_PAGES:
                assert "Status: " not in backend.ask(f"p={page}", cookie=cookie), page
            return stack_peak(backend.process.pid)

    def of_one_request(self, count, kind):
        """By a counter of whole runs."""
        return (count(kind, MANY) - count(kind, FEW)) / (MANY - FEW)

    def allocations(self, kind, times):
        return self.allocated(kind, times)[0]

    def allocated_bytes(self, kind, times):
        return self.allocated(kind, times)[1]

    def allocated(self, kind, times):
        out = self.fresh()
        program = self.container({"LD_PRELOAD": str(self.programs.allocation_counter),
                                  "ALLOCATIONS": str(out)})
        with Backend(program, self.fresh()) as backend:
            self.ask(backend, kind, times)
        return [int(number) for number in out.read_text().split()]

    def file_changes(self, kind, times):
        """Calls that change a file."""
        out = self.fresh()
        with Backend(self.container(), self.fresh(),
                     ["strace", "-f", "-qq", "-y", "-s", "0", "-o", str(out)]) as backend:
            self.ask(backend, kind, times)
        return len(CHANGES.findall(out.read_text()))


def row(*cells):
    return f"| {' | '.join(cells)} |"


def table(head, rows):
    return [row(*head), row("---", *["---:"] * (len(head) - 1)), *(row(*cells) for cells in rows), ""]


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


def measured(footprint, together):
    """What is measured by running, as lines, and whether all aims are met; `together` is the sum of
    the stripped sizes on armhf."""
    private, resident = footprint.after_start(LOOPS)
    container = footprint.after_requests(footprint.programs.container(LOOPS), REQUESTS)
    bare = footprint.after_requests(footprint.programs.bare_loop(LOOPS), REQUESTS)
    lines = table(["memory on amd64", ""], [
        (f"after the start, private, {LOOPS} loops", f"{private:,} KiB"),
        (f"after the start, resident, {LOOPS} loops", f"{resident:,} KiB"),
        (f"after {REQUESTS:,} requests, private, {LOOPS} loops", f"{container:,} KiB"),
        (f"the same of a bare FastCGI loop with {LOOPS} threads", f"{bare:,} KiB"),
        ("of a session without attributes", f"{footprint.of_a_session():,.0f} bytes"),
        ("of one more loop that has served", f"{footprint.of_a_loop():,.0f} KiB")])

    lines += table(["one request on amd64", "allocations", "bytes of them", "stack at most",
                    "calls that change a file"], [
        (kind, f"{footprint.of_one_request(footprint.allocations, kind):,.1f}",
         f"{footprint.of_one_request(footprint.allocated_bytes, kind):,.0f}",
         f"{footprint.stack_of(kind):,} KiB",
         f"{footprint.of_one_request(footprint.file_changes, kind):,.1f}") for kind in KINDS])
    lines += [f"Stack at most of a loop that has served a sign-in and every page of the phone: "
              f"{footprint.stack_of_the_phone():,} KiB.", ""]

    aims = [("stripped on armhf, together, bytes", together, MOST_BYTES_ON_ARMHF),
            (f"private memory after {REQUESTS:,} requests with {LOOPS} loops, beyond the bare "
             "loop's, KiB", container - bare, MOST_BEYOND_BARE_LOOP)]
    lines += table(["aim", "figure", "at most", ""],
                   [(name, f"{figure:,}", f"{most:,}", "met" if figure <= most else "**missed**")
                    for name, figure, most in aims])
    return lines, all(figure <= most for _, figure, most in aims)


def write_into(document, text):
    """Between two marks, which stay."""
    before, mark, rest = document.read_text().partition("<!-- footprint -->\n")
    _, end, after = rest.partition("<!-- end of footprint -->\n")
    assert mark and end, f"{document} has no place for it"
    document.write_text(f"{before}{mark}\n{text}\n{end}{after}")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("builds", type=pathlib.Path)
    parser.add_argument("--document", type=pathlib.Path)
    arguments = parser.parse_args()
    builds = arguments.builds.resolve()
    with tempfile.TemporaryDirectory(prefix="footprint.") as name:
        folder = pathlib.Path(name)
        by_variant = sizes_of_variants(builds, folder)
        lines, is_met = measured(Footprint(builds, folder), sum(by_variant["as shipped"]))
        text = "\n".join(title() + size_tables(sizes(builds, folder), by_variant) + lines)
    print(text)
    if arguments.document:
        write_into(arguments.document, text)
    return 0 if is_met else 1


if __name__ == "__main__":
    sys.exit(main())
