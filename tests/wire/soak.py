"""The whole stack for a long time: requests of all kinds, uploads that are cut off, and a daemon
that is killed again and again. Prints what has grown and what was lost, as a table, and puts that
table into a document. The exit status is 1 where something was lost that must not be."""

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
CLIENTS = 4
THREADS = "4"
UPLOAD_SIZE = 1 << 20
UPLOAD_HEAD = (b"--cut\r\nContent-Disposition: form-data; name=\"image\"; filename=\"cut.bin\"\r\n"
               b"Content-Type: application/octet-stream\r\n\r\n")
UPLOAD_TAIL = b"\r\n--cut--\r\n"
MULTIPART = "multipart/form-data; boundary=cut"
FORM = "application/x-www-form-urlencoded"
GOOD_IMAGE = b"the image that stands there"

# What is asked besides the session's own page, and what must be in the answer. ms=0 keeps the
# plug-in from taking notes.
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
    """One browser with a session. Counts what it lost."""

    def __init__(self, port, seed):
        self.port = port
        self.random = random.Random(seed)
        self.connection = None
        self.cookie = None
        self.visits = 0
        self.tally = collections.Counter()

    def ask(self, method, target, body=None, headers=None):
        """Status, headers and body; nothing when there was no answer."""
        if self.connection is None:
            self.connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        try:
            self.connection.request(method, target, body, headers or {})
            answer = self.connection.getresponse()
            return answer.status, answer, answer.read()
        except (OSError, http.client.HTTPException):
            self.connection.close()
            self.connection = None
            return None

    def visit(self):
        """A page that counts the visits in the session."""
        headers = {"Cookie": self.cookie} if self.cookie else {}
        answer = self.ask("GET", "/servlet?p=count&ms=0", headers=headers)
        self.tally["asked"] += 1
        if answer is None or answer[0] != 200:
            self.tally["answers lost"] += 1
            return
        count = int(answer[2].removeprefix(b"count "))
        # An answer that got lost may have been counted all the same.
        if self.cookie and count <= self.visits:
            self.tally["sessions lost"] += 1
        if given := answer[1].getheader("Set-Cookie"):
            self.cookie = given.strip()
        self.visits = count

    def look_elsewhere(self):
        method, target, body, status, part = self.random.choice(OTHERS)
        answer = self.ask(method, target, body, {"Content-Type": FORM} if body else {})
        self.tally["asked"] += 1
        if answer is None or answer[0] != status or part not in answer[2]:
            self.tally["answers lost"] += 1

    def cut_an_upload_off(self):
        sent = self.random.randrange(UPLOAD_SIZE)
        body = (UPLOAD_HEAD + os.urandom(UPLOAD_SIZE) + UPLOAD_TAIL)[:sent]
        length = len(UPLOAD_HEAD) + UPLOAD_SIZE + len(UPLOAD_TAIL)
        head = (f"POST /servlet?p=upload&ms=0 HTTP/1.1\r\nHost: phone\r\n"
                f"Content-Type: {MULTIPART}\r\nContent-Length: {length}\r\n\r\n").encode()
        with socket.create_connection(("127.0.0.1", self.port), 60) as connection:
            connection.sendall(head + body)
        self.tally["uploads cut off"] += 1

    def upload(self):
        answer = self.ask("POST", "/servlet?p=upload&ms=0", UPLOAD_HEAD + GOOD_IMAGE + UPLOAD_TAIL,
                          {"Content-Type": MULTIPART})
        return answer is not None and answer[2].startswith(b"complete cut.bin")


def run_share(port, seed, requests, uploads, results):
    client = Client(port, seed)
    for number in range(requests):
        client.visit() if number % 2 == 0 else client.look_elsewhere()
        # Evenly between the requests.
        if number * uploads // requests < (number + 1) * uploads // requests:
            client.cut_an_upload_off()
    results.put(client.tally)


def run_until(port, seed, stopping, results):
    client = Client(port, seed)
    while not stopping.is_set():
        client.visit()
        client.look_elsewhere()
    results.put(client.tally)


def collect(processes, results):
    tally = collections.Counter()
    for _ in processes:
        tally += results.get()
    for process in processes:
        process.join()
    return tally


def shares(count):
    """Of a number, one for each client."""
    return [count * (number + 1) // CLIENTS - count * number // CLIENTS
            for number in range(CLIENTS)]


def drive(port, requests, uploads, seed):
    """This many in all, by several clients."""
    results = multiprocessing.Queue()
    processes = [multiprocessing.Process(target=run_share,
                                         args=(port, seed + number, *share, results))
                 for number, share in enumerate(zip(shares(requests), shares(uploads)))]
    for process in processes:
        process.start()
    return collect(processes, results)


def private_memory(host):
    """What nobody else uses and is written to, in KiB."""
    rollup = pathlib.Path(f"/proc/{host.process.pid}/smaps_rollup").read_text()
    return int(re.search(r"^Private_Dirty:\s+(\d+) kB$", rollup, re.M).group(1))


def descriptors(host):
    """Once no connection is open any more."""
    counts = []
    for _ in range(20):
        counts.append(len(os.listdir(f"/proc/{host.process.pid}/fd")))
        time.sleep(0.05)
    return min(counts)


def soak(start, front, requests, uploads):
    """Figures of one daemon that serves all of them. The first tenth brings everything into memory
    that a request ever needs."""
    host = start.host("--threads", THREADS, "--timer", "1", stdin=start.shared_socket())
    assert Client(front.port, 0).upload(), host.log.read_text()
    tally = drive(front.port, requests // 10, uploads // 10, 1)
    memory, open_files = private_memory(host), descriptors(host)
    begin = time.monotonic()
    tally += drive(front.port, requests - requests // 10, uploads - uploads // 10, 100)
    taken = time.monotonic() - begin
    image = (start.folder / "uploads/image").read_bytes()
    figures = [
        ("requests", tally["asked"]),
        ("uploads cut off", tally["uploads cut off"]),
        ("requests a second", round(requests * 0.9 / taken)),
        ("answers lost", tally["answers lost"]),
        ("sessions lost", tally["sessions lost"]),
        ("private memory before, KiB", memory),
        ("private memory gained, KiB", private_memory(host) - memory),
        ("file descriptors gained", descriptors(host) - open_files),
        ("files of cut uploads left", len(os.listdir(start.folder / "uploads")) - 1),
        ("image that stood there is whole", "yes" if image == GOOD_IMAGE else "no"),
        ("stopped in order", "yes" if host.stop() == 0 else "no"),
    ]
    return figures


def kill_again_and_again(start, front, kills):
    """Figures of daemons that each serve for some milliseconds and are killed, while a supervisor
    keeps the socket."""
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
    time.sleep(3)  # the web server tries a daemon again that it took for dead
    stopping.set()
    tally = collect(processes, results)
    answers = Client(front.port, 0)
    good = [answers.ask("GET", "/servlet?p=facts&ms=0") for _ in range(100)]
    return [
        ("kills", kills),
        ("requests meanwhile", tally["asked"]),
        ("answers lost with a killed daemon", tally["answers lost"]),
        ("of 100 requests afterwards, answered", sum(one is not None and one[0] == 200
                                                     for one in good)),
        ("stopped in order", "yes" if host.stop() == 0 else "no"),
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
    """What holds whatever the machine does; how much memory may be gained is said elsewhere."""
    wanted = {"answers lost": 0, "sessions lost": 0, "file descriptors gained": 0,
              "files of cut uploads left": 0, "image that stood there is whole": "yes",
              "stopped in order": "yes", "of 100 requests afterwards, answered": 100}
    return all(value == wanted.get(name, value) for _, figures in parts for name, value in figures)


def write_into(document, text):
    """Between two marks, which stay."""
    before, mark, rest = document.read_text().partition("<!-- soak -->\n")
    _, end, after = rest.partition("<!-- end of soak -->\n")
    assert mark and end, f"{document} has no place for it"
    document.write_text(f"{before}{mark}\n{text}\n{end}{after}")


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
        parts = [("one daemon", soak(start, front, requests, requests // 100)),
                 ("killed daemons", kill_again_and_again(start, front, requests // 1000))]
    finally:
        start.end()
        shutil.rmtree(folder)
    text = table(requests, parts)
    print(text)
    if arguments.document:
        write_into(arguments.document, text)
    return 0 if is_sound(parts) else 1


if __name__ == "__main__":
    sys.exit(main())
