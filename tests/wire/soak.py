"""Load-tests the whole stack: requests of all kinds, aborted uploads, and a daemon that is killed
again and again. Prints tables of lost responses, lost sessions and the growth of memory and
descriptors; with --document they replace those in a document. The exit status is 1 on a loss that
must not happen."""

import argparse
import collections
import datetime
import http.client
import multiprocessing
import os
import pathlib
import random
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time

import service

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tests/support"))
from marked_section import replace_section

CLIENTS = 4
THREADS = "4"
UPLOAD_SIZE = 1 << 20
UPLOAD_HEAD = (b"--cut\r\nContent-Disposition: form-data; name=\"image\"; filename=\"cut.bin\"\r\n"
               b"Content-Type: application/octet-stream\r\n\r\n")
UPLOAD_TAIL = b"\r\n--cut--\r\n"
MULTIPART = "multipart/form-data; boundary=cut"
FORM = "application/x-www-form-urlencoded"
GOOD_IMAGE = b"the earlier image"

# Requests besides those of the session page: method, target, body, status and a part of the
# response. ms=0 keeps the plug-in from recording them.
OTHERS = [
    ("GET", "/servlet?p=facts&ms=0&x=1&x=2", None, 200, b"x=1\nx=2\n"),
    ("GET", "/servlet?p=template&ms=0&x=a%26b", None, 200, b"<p>a&amp;b</p>"),
    ("GET", "/servlet?p=big&ms=0&lines=200", None, 200, b"b" * 99 + b"\n"),
    ("POST", "/servlet?p=facts&ms=0", b"x=from+a+form", 200, b"x=from a form\n"),
    ("GET", "/servlet?p=status&ms=0&code=403", None, 403, b"with a status"),
    ("GET", "/servlet?p=elsewhere&ms=0", None, 302, b""),
    ("GET", "/servlet?p=facts&ms=0&x=%3Cscript", None, 404, b"404 - Not Found"),
    ("GET", "/cgi-bin/Quillpage.tpx?page=Status.htm", None, 302, b""),
]


class Client:
    """A browser with a session, which counts lost responses and sessions."""

    def __init__(self, port, seed):
        self.port = port
        self.random = random.Random(seed)
        self.connection = None
        self.cookie = None
        self.visits = 0
        self.tally = collections.Counter()

    def send(self, method, target, body=None, headers=None):
        """Returns status, headers and body, or None without a response."""
        if self.connection is None:
            self.connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        try:
            self.connection.request(method, target, body, headers or {})
            response = self.connection.getresponse()
            return response.status, response, response.read()
        except (OSError, http.client.HTTPException):
            self.connection.close()
            self.connection = None
            return None

    def visit(self):
        """Requests a page that counts the visits in the session."""
        headers = {"Cookie": self.cookie} if self.cookie else {}
        response = self.send("GET", "/servlet?p=count&ms=0", headers=headers)
        self.tally["requests"] += 1
        if response is None or response[0] != 200:
            self.tally["responses lost"] += 1
            return
        count = int(response[2].removeprefix(b"count "))
        # A request whose response got lost may have been counted, too.
        if self.cookie and count <= self.visits:
            self.tally["sessions lost"] += 1
        if given := response[1].getheader("Set-Cookie"):
            self.cookie = given.strip()
        self.visits = count

    def visit_other_page(self):
        method, target, body, status, part = self.random.choice(OTHERS)
        response = self.send(method, target, body, {"Content-Type": FORM} if body else {})
        self.tally["requests"] += 1
        if response is None or response[0] != status or part not in response[2]:
            self.tally["responses lost"] += 1

    def abort_upload(self):
        sent = self.random.randrange(UPLOAD_SIZE)
        body = (UPLOAD_HEAD + os.urandom(UPLOAD_SIZE) + UPLOAD_TAIL)[:sent]
        length = len(UPLOAD_HEAD) + UPLOAD_SIZE + len(UPLOAD_TAIL)
        head = (f"POST /servlet?p=upload&ms=0 HTTP/1.1\r\nHost: phone\r\n"
                f"Content-Type: {MULTIPART}\r\nContent-Length: {length}\r\n\r\n").encode()
        with socket.create_connection(("127.0.0.1", self.port), 60) as connection:
            connection.sendall(head + body)
        self.tally["uploads aborted"] += 1

    def upload(self):
        response = self.send("POST", "/servlet?p=upload&ms=0",
                             UPLOAD_HEAD + GOOD_IMAGE + UPLOAD_TAIL, {"Content-Type": MULTIPART})
        return response is not None and response[2].startswith(b"complete cut.bin")


def run_share(port, seed, requests, uploads, results):
    client = Client(port, seed)
    for number in range(requests):
        client.visit() if number % 2 == 0 else client.visit_other_page()
        # Spreads the aborted uploads evenly over the requests.
        if number * uploads // requests < (number + 1) * uploads // requests:
            client.abort_upload()
    results.put(client.tally)


def run_until(port, seed, stopping, results):
    client = Client(port, seed)
    while not stopping.is_set():
        client.visit()
        client.visit_other_page()
    results.put(client.tally)


def collect(processes, results):
    tally = collections.Counter()
    for _ in processes:
        tally += results.get()
    for process in processes:
        process.join()
    return tally


def shares(count):
    """Divides a number among the clients."""
    return [count * (number + 1) // CLIENTS - count * number // CLIENTS
            for number in range(CLIENTS)]


def drive(port, requests, uploads, seed):
    """Sends so many requests and aborted uploads, divided among the clients."""
    results = multiprocessing.Queue()
    processes = [multiprocessing.Process(target=run_share,
                                         args=(port, seed + number, *share, results))
                 for number, share in enumerate(zip(shares(requests), shares(uploads)))]
    for process in processes:
        process.start()
    return collect(processes, results)


def private_memory(host):
    """Returns the size of the pages that the daemon has written, in KiB."""
    rollup = pathlib.Path(f"/proc/{host.process.pid}/smaps_rollup").read_text()
    return int(re.search(r"^Private_Dirty:\s+(\d+) kB$", rollup, re.M).group(1))


def descriptors(host):
    """Returns the count of open descriptors: the smallest within a second, without connections."""
    counts = []
    for _ in range(20):
        counts.append(len(os.listdir(f"/proc/{host.process.pid}/fd")))
        time.sleep(0.05)
    return min(counts)


def run_one_daemon(start, front, requests, uploads):
    """Returns the figures of one daemon that serves all requests. Growth is measured after the
    first tenth, which warms it up."""
    host = start.host("--threads", THREADS, "--timer", "1", stdin=start.shared_socket())
    assert Client(front.port, 0).upload(), host.log.read_text()
    tally = drive(front.port, requests // 10, uploads // 10, 1)
    memory, open_files = private_memory(host), descriptors(host)
    begin = time.monotonic()
    tally += drive(front.port, requests - requests // 10, uploads - uploads // 10, 100)
    taken = time.monotonic() - begin
    image = (start.folder / "uploads/image").read_bytes()
    figures = [
        ("requests", tally["requests"]),
        ("uploads aborted", tally["uploads aborted"]),
        ("requests per second", round(requests * 0.9 / taken)),
        ("responses lost", tally["responses lost"]),
        ("sessions lost", tally["sessions lost"]),
        ("private memory after 10 %, KiB", memory),
        ("growth of private memory, KiB", private_memory(host) - memory),
        ("growth of file descriptors", descriptors(host) - open_files),
        ("files left by aborted uploads", len(os.listdir(start.folder / "uploads")) - 1),
        ("earlier upload unchanged", "yes" if image == GOOD_IMAGE else "no"),
        ("exit status 0 after SIGTERM", "yes" if host.stop() == 0 else "no"),
    ]
    return figures


def run_killed_daemons(start, front, kills):
    """Returns the figures of daemons that are killed after some milliseconds each, while the
    listening socket stays open."""
    listener = start.sockets[-1]
    stopping = multiprocessing.Event()
    results = multiprocessing.Queue()
    processes = [multiprocessing.Process(target=run_until,
                                         args=(front.port, 1000 + number, stopping, results))
                 for number in range(CLIENTS)]
    chance = random.Random(1)
    for process in processes:
        process.start()
    for _ in range(kills):
        host = start.host("--threads", THREADS, stdin=listener)
        time.sleep(chance.random() * 0.05)
        host.process.kill()
        host.wait()
        start.processes.remove(host.process)
    host = start.host("--threads", THREADS, stdin=listener)
    time.sleep(3)  # lighttpd does not use a back end for a while after an error
    stopping.set()
    tally = collect(processes, results)
    client = Client(front.port, 0)
    good = [client.send("GET", "/servlet?p=facts&ms=0") for _ in range(100)]
    return [
        ("kills", kills),
        ("requests during the kills", tally["requests"]),
        ("responses lost with a killed daemon", tally["responses lost"]),
        ("of 100 later requests, successful",
         sum(one is not None and one[0] == 200 for one in good)),
        ("exit status 0 after SIGTERM", "yes" if host.stop() == 0 else "no"),
    ]


def table(requests, parts):
    commit = subprocess.run(["git", "describe", "--always", "--dirty"], cwd=ROOT, check=True,
                            stdout=subprocess.PIPE, text=True).stdout.strip()
    lines = [f"`scripts/soak {requests}`, {datetime.date.today()}, commit {commit}, "
             f"{os.cpu_count()} processors:", ""]
    for title, figures in parts:
        lines += [f"| {title} | |", "|---|---:|"]
        lines += [f"| {name} | {value:,} |" if isinstance(value, int) else f"| {name} | {value} |"
                  for name, value in figures]
        lines.append("")
    return "\n".join(lines)


def is_sound(parts):
    """Returns whether the figures show no loss. The growth of memory has no limit here."""
    expected = {"responses lost": 0, "sessions lost": 0, "growth of file descriptors": 0,
                "files left by aborted uploads": 0, "earlier upload unchanged": "yes",
                "exit status 0 after SIGTERM": "yes", "of 100 later requests, successful": 100}
    return all(value == expected.get(name, value)
               for _, figures in parts for name, value in figures)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=pathlib.Path)
    parser.add_argument("requests", type=int)
    parser.add_argument("--document", type=pathlib.Path)
    arguments = parser.parse_args()
    requests = arguments.requests

    folder = pathlib.Path(tempfile.mkdtemp(prefix="soak."))
    for name in ("uploads", "www/WEB-INFO", "state"):
        (folder / name).mkdir(parents=True)
    (folder / "page.html").write_text('<p><TMPL_VAR name="x"></p>')
    start = service.Starter(service.Build(arguments.build.resolve()), folder)
    start.environment["APP_LOG_LEVEL"] = "2"  # requests that fail on purpose are logged as errors
    try:
        front = start.front("lighttpd", ROOT / "packaging/front-servers")
        parts = [("one daemon", run_one_daemon(start, front, requests, requests // 100)),
                 ("killed daemons", run_killed_daemons(start, front, requests // 1000))]
    finally:
        start.end()
        shutil.rmtree(folder)
    text = table(requests, parts)
    print(text)
    if arguments.document:
        replace_section(arguments.document, "soak", text)
    return 0 if is_sound(parts) else 1


if __name__ == "__main__":
    sys.exit(main())
