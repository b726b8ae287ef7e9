"""What the daemon reports to the service manager: this test plays systemd, with a datagram socket."""

import contextlib
import os
import signal
import socket

import pytest

import fastcgi
from service import PATIENCE, in_background, wait_until
from test_operations import wait_for_status
from test_stopping import connections_to

WATCHDOG_SECONDS = 0.4  # several times as long as a request takes
SILENCE = 3 * WATCHDOG_SECONDS


class Manager:
    def __init__(self, address):
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(address)

    def message(self, patience=PATIENCE):
        """Returns the next message, or None if there is none for so many seconds."""
        self.socket.settimeout(patience)
        with contextlib.suppress(TimeoutError, BlockingIOError):
            return self.socket.recv(256).decode()
        return None

    def forget(self):
        """Drops the messages that have arrived."""
        self.socket.setblocking(False)
        with contextlib.suppress(BlockingIOError):
            while True:
                self.socket.recv(256)


@pytest.fixture
def manager(start, folder):
    path = str(folder / "notify")
    played = Manager(path)
    start.environment["NOTIFY_SOCKET"] = path
    yield played
    played.socket.close()


def watch(start):
    start.environment["WATCHDOG_USEC"] = str(int(WATCHDOG_SECONDS * 1e6))


def test_it_is_ready_once_it_serves_and_reports_that_it_stops(start, manager):
    host = start.host("--listen", start.socket_path, wait=False)
    assert manager.message() == "READY=1"
    # Without a further attempt.
    assert b"read" in start.cgi_fcgi("/servlet?p=body")
    host.signal(signal.SIGTERM)
    assert manager.message() == "STOPPING=1"
    assert host.wait() == 0
    assert manager.message(0) is None


def test_the_address_may_be_abstract(start):
    name = f"fcgi-host-{os.getpid()}"
    played = Manager("\0" + name)
    start.environment["NOTIFY_SOCKET"] = "@" + name
    start.host("--listen", start.socket_path, wait=False)
    assert played.message() == "READY=1"
    played.socket.close()


def test_a_daemon_that_cannot_serve_is_not_ready(start, manager, folder):
    (folder / "no-listener").touch()
    assert start.host(stdin=start.shared_socket(), wait=False).wait() == 78
    assert manager.message(0) is None


def test_a_manager_that_is_not_there_does_not_keep_it_from_serving(start, folder):
    start.environment["NOTIFY_SOCKET"] = str(folder / "nothing")
    host = start.host("--listen", start.socket_path)
    assert b"said" in start.cgi_fcgi("/servlet?p=talking")
    assert (f"fcgi_host: cannot notify the service manager at {folder}/nothing: No such file or directory\n"
            in host.log.read_text())
    assert host.stop() == 0


def test_there_is_no_watchdog_unless_it_is_asked_for(start, manager):
    start.host("--listen", start.socket_path)
    assert manager.message() == "READY=1"
    assert manager.message(SILENCE) is None


def test_the_watchdog_is_fed_while_it_is_idle(start, manager):
    watch(start)
    start.host("--listen", start.socket_path)
    assert manager.message() == "READY=1"
    for _ in range(6):
        assert manager.message() == "WATCHDOG=1"


@contextlib.contextmanager
def uploads(start, count):
    """Occupies so many loops: each page waits for its body, which ends with the block."""
    variables = fastcgi.variables({
        "REQUEST_METHOD": "POST", "REQUEST_URI": "/servlet?p=body&most=1",
        "QUERY_STRING": "p=body&most=1", "CONTENT_TYPE": "multipart/form-data; boundary=b",
        "CONTENT_LENGTH": "1"})
    with contextlib.ExitStack() as opened:
        connections = [opened.enter_context(fastcgi.connect(start.socket_path)) for _ in range(count)]
        for connection in connections:
            connection.sendall(
                fastcgi.begin() + b"".join(fastcgi.stream(fastcgi.PARAMS, variables)))
        yield
        for connection in connections:
            connection.sendall(b"".join(fastcgi.stream(fastcgi.STDIN, b"x")))
            assert fastcgi.reply(connection).output.endswith(b"read 1")


def wait_for_silence(manager):
    """Waits until the watchdog is no longer fed. It is once more at most: a loop may have taken a request
    since the last time."""
    wait_until(lambda: manager.message(WATCHDOG_SECONDS) is None, "silence")
    assert manager.message(SILENCE) is None


def test_a_long_upload_in_one_of_two_loops_does_not_matter(start, manager):
    watch(start)
    host = start.host("--listen", start.socket_path, "--threads", "2")
    with uploads(start, 1):
        wait_for_status(host, busy=1)
        manager.forget()
        for _ in range(8):  # twice the watchdog's time
            assert manager.message() == "WATCHDOG=1"


def test_the_watchdog_is_not_fed_while_all_loops_are_stuck(start, manager):
    watch(start)
    host = start.host("--listen", start.socket_path, "--threads", "2")
    with uploads(start, 2):
        wait_for_status(host, busy=2)
        wait_for_silence(manager)
        assert host.process.poll() is None
    assert manager.message() == "WATCHDOG=1"
    assert host.stop() == 0


def test_the_watchdog_is_not_fed_while_an_incomplete_request_keeps_all_others_waiting(start, manager):
    watch(start)
    host = start.host("--listen", start.socket_path, "--threads", "2")
    wait_for_status(host, busy=0)
    with fastcgi.connect(start.socket_path) as incomplete:
        incomplete.sendall(fastcgi.begin())
        with in_background(lambda: start.cgi_fcgi("/servlet?p=slow")) as answers:
            wait_until(lambda: connections_to(start.socket_path) == 2, "both being connected")
            wait_for_silence(manager)
            incomplete.close()
    assert [answer[-9:] for answer in answers] == [b"begin end"]
    assert manager.message() == "WATCHDOG=1"


def test_the_watchdog_is_fed_while_the_last_request_is_completed(start, manager):
    watch(start)
    host = start.host("--listen", start.socket_path, "--threads", "1")
    with uploads(start, 1):
        wait_for_status(host, busy=1)
        host.signal(signal.SIGTERM)
        while manager.message() != "STOPPING=1":
            pass
        for _ in range(8):
            assert manager.message() == "WATCHDOG=1"
    assert host.wait() == 0
