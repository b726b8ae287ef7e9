"""Attack: hold the daemon's two request loops, or the web server's threads, by uploads that never come.

A stranger announces an upload and sends nothing. The web server forwards it as it arrives, that is, at
once, and the daemon refuses it. Neither may wait for the rest while users want to be served."""

import concurrent.futures
import contextlib
import threading
import time

import pytest

import raw_http
from fixtures import SOURCE

# One after the other: each attack alone keeps a web server and the daemon busy.
pytestmark = pytest.mark.xdist_group("loops held")

SECONDS = 8
STRANGERS = 50  # per second
USERS = 5  # per second
SOON = 2  # seconds

UPLOAD = raw_http.raw(
    "POST /servlet?p=settings-config&q=import HTTP/1.1", "Host: 127.0.0.1",
    "Content-Type: multipart/form-data; boundary=edge", "Content-Length: 1000")


class Strangers:
    """Announces STRANGERS uploads a second, each on a connection of its own that stays open."""

    def __init__(self, front):
        self.front = front
        self.connections = []
        self.ends = threading.Event()
        self.thread = threading.Thread(target=self.run)

    def run(self):
        begin = time.monotonic()
        while not self.ends.wait(max(0, begin + len(self.connections) / STRANGERS - time.monotonic())):
            with contextlib.suppress(OSError):  # the web server may refuse them
                self.connections.append(self.front.connect())
                self.connections[-1].sendall(UPLOAD)

    def __enter__(self):
        self.thread.start()
        return self

    def __exit__(self, *_):
        self.ends.set()
        self.thread.join()
        for connection in self.connections:
            connection.close()


def ask_for_a_page(front):
    """Returns the answer's status and how long it took."""
    begin = time.monotonic()
    page = raw_http.get("/servlet?p=login&q=loginForm", host="Host: 127.0.0.1")
    return raw_http.ask(front, page), time.monotonic() - begin


@pytest.mark.parametrize("kind", ["lighttpd", "nginx", "apache"])
def test_uploads_that_never_come_hold_up_no_user(start, kind):
    start.phone("--threads", "2")
    front = start.front(kind, SOURCE / "packaging/front-servers")
    with Strangers(front) as strangers, concurrent.futures.ThreadPoolExecutor(99) as users:
        answers = []
        for _ in range(SECONDS * USERS):
            answers.append(users.submit(ask_for_a_page, front))
            time.sleep(1 / USERS)
        answers = [each.result() for each in answers]
    assert len(strangers.connections) > SECONDS * STRANGERS / 2
    assert [status for status, _ in answers] == ["200"] * SECONDS * USERS
    assert max(seconds for _, seconds in answers) < SOON
