"""Starting, stopping and restarting the daemon without losing a request."""

import http.client
import os
import pathlib
import resource
import signal
import socket
import threading
import time

import pytest

import fastcgi
from ports import is_listening
from service import in_background, wait_until

STOP_SIGNALS = [signal.SIGTERM, signal.SIGINT, signal.SIGHUP]


def slow_request_under_way(host):
    wait_until(lambda: host.lines("begun"), "the request reaching its page")


class Load:
    """Clients that send one request after the other until they are stopped."""

    def __init__(self, front, clients):
        self.front = front
        self.stopping = threading.Event()
        self.answered = 0
        self.lost = []
        self.lock = threading.Lock()
        self.threads = [threading.Thread(target=self.run, args=(number,))
                        for number in range(clients)]
        for thread in self.threads:
            thread.start()

    def run(self, number):
        target = f"/servlet?p=slow&ms={number * 5}"
        while not self.stopping.is_set():
            try:
                # A new connection each time, so that keep-alive has no influence.
                connection = http.client.HTTPConnection("127.0.0.1", self.front.port, timeout=60)
                connection.request("GET", target)
                answer = connection.getresponse()
                outcome = (answer.status, answer.read())
                connection.close()
            except (OSError, http.client.HTTPException) as problem:
                outcome = problem
            with self.lock:
                if outcome == (200, b"begin end"):
                    self.answered += 1
                else:
                    self.lost.append(outcome)

    def end(self):
        self.stopping.set()
        for thread in self.threads:
            thread.join()


def test_no_request_is_lost_over_restarts_under_load(start, front):
    listener = start.shared_socket()
    host = start.host("--threads", "4", stdin=listener)
    load = Load(front, 6)
    try:
        for _ in range(6):
            before = load.answered
            wait_until(lambda: load.answered >= before + 20, "requests answered")
            assert host.stop() == 0
            host = start.host("--threads", "4", stdin=listener)
        before = load.answered
        wait_until(lambda: load.answered >= before + 20, "requests answered")
    finally:
        load.end()
    assert load.lost == []
    assert host.stop() == 0


def test_two_daemons_on_one_socket_stop_one_after_the_other(start, front):
    listener = start.shared_socket()
    hosts = [start.host("--threads", "2", stdin=listener) for _ in range(2)]
    load = Load(front, 4)
    try:
        for _ in range(3):
            before = load.answered
            wait_until(lambda: load.answered >= before + 20, "requests answered")
            assert hosts.pop(0).stop() == 0
            hosts.append(start.host("--threads", "2", stdin=listener))
    finally:
        load.end()
    assert load.lost == []
    assert [host.stop() for host in hosts] == [0, 0]


@pytest.mark.parametrize("number", STOP_SIGNALS)
def test_an_in_flight_request_is_completed_before_the_daemon_ends(start, front, number):
    listener = start.shared_socket()
    host = start.host("--threads", "2", stdin=listener)
    with in_background(lambda: front.curl("/servlet?p=slow&ms=1500")) as answers:
        slow_request_under_way(host)
        host.signal(number)
        time.sleep(0.5)
        assert host.process.poll() is None, "it ended before the request did"
    assert [answer.text for answer in answers] == ["begin end"]
    assert host.wait() == 0
    assert "fcgi_host: stopping; finishing the requests under way\n" in host.log.read_text()


def test_nothing_is_accepted_while_the_last_request_is_completed(start, front):
    listener = start.shared_socket()
    first = start.host("--threads", "4", stdin=listener)
    with in_background(lambda: front.curl("/servlet?p=slow&ms=1500")) as answers:
        slow_request_under_way(first)
        first.signal(signal.SIGTERM)
        time.sleep(0.5)
        later = threading.Thread(target=lambda: answers.append(front.curl("/servlet?p=facts")))
        later.start()
        time.sleep(0.3)
        assert len(answers) == 0, "a request was accepted after the signal"
        start.host("--threads", "1", stdin=listener)
        later.join()
    assert [answer.status for answer in answers] == [200, 200]
    assert first.wait() == 0


@pytest.mark.parametrize("number", STOP_SIGNALS)
@pytest.mark.parametrize("threads", ["1", "4"])
def test_an_idle_daemon_ends_at_once_and_removes_its_socket(start, number, threads):
    host = start.host("--listen", start.socket_path, "--threads", threads)
    start.cgi_fcgi("/servlet?p=slow")
    begin = time.monotonic()
    host.signal(number)
    assert host.wait() == 0
    assert time.monotonic() - begin < 2
    assert not os.path.exists(start.socket_path)


def test_the_plug_ins_are_torn_down(start):
    host = start.host("--listen", start.socket_path)
    start.cgi_fcgi("/servlet?p=slow")
    assert host.lines("destroyed") == []
    assert host.stop() == 0
    assert host.lines("destroyed") == ["slow"]


def test_a_shared_socket_stays_open_and_its_file_in_place(start):
    listener = start.shared_socket()
    assert start.host(stdin=listener).stop() == 0
    assert is_listening(start.socket_path)


def test_an_idle_daemon_ends_though_the_file_of_its_shared_socket_is_gone(start):
    listener = start.shared_socket()
    host = start.host("--threads", "4", stdin=listener)
    start.cgi_fcgi("/servlet?p=slow")
    os.unlink(start.socket_path)
    assert host.stop() == 0
    assert host.lines("destroyed") == ["slow"]


@pytest.mark.parametrize("address", ["127.0.0.1", "0.0.0.0"])
def test_an_idle_daemon_ends_that_was_passed_a_port(start, address):
    with socket.socket() as listener:
        listener.bind((address, 0))
        listener.listen()
        host = start.host("--threads", "4", stdin=listener)
        time.sleep(0.3)
        assert host.stop() == 0


def test_a_stop_signal_during_the_start_is_obeyed(start):
    listener = start.shared_socket()
    for delay in (0.005, 0.01, 0.02, 0.05):
        host = start.host(stdin=listener, wait=False)
        time.sleep(delay)
        host.signal(signal.SIGTERM)
        # Before the daemon has blocked the signal, the signal kills it.
        assert host.wait() in (0, -signal.SIGTERM)


def test_an_idle_daemon_takes_no_time_to_stop(start, build):
    taken = []
    for _ in range(5):
        host = start.host("--listen", start.socket_path, "--threads", "4")
        start.cgi_fcgi("/servlet?p=slow")
        begin = time.monotonic()
        assert host.stop() == 0
        taken.append(time.monotonic() - begin)
    # The quickest of several, since the machine may be busy; a sanitizer searches for leaks at exit.
    assert min(taken) < (2 if build.sanitized else 0.25), taken


@pytest.mark.parametrize("threads", ["1", "4"])
def test_an_idle_daemon_abandons_no_request(start, threads):
    host = start.host("--listen", start.socket_path, "--drain", "0", "--threads", threads)
    start.cgi_fcgi("/servlet?p=slow")
    assert host.stop() == 0
    assert "requests under way after" not in host.log.read_text()


@pytest.mark.parametrize("seconds, least, most", [(0, 0, 2), (1, 1, 3)])
def test_a_request_that_takes_too_long_does_not_keep_the_daemon(start, seconds, least, most):
    host = start.host("--listen", start.socket_path, "--drain", str(seconds))
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=20000")):
        slow_request_under_way(host)
        begin = time.monotonic()
        host.signal(signal.SIGTERM)
        assert host.wait() == 75
        assert least <= time.monotonic() - begin < most
    assert (f"fcgi_host: ended with requests under way after {seconds} s\n"
            in host.log.read_text())


def test_requests_have_five_seconds_to_finish_by_default(start):
    host = start.host("--listen", start.socket_path)
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=20000"),
                       lambda: start.cgi_fcgi("/servlet?p=slow&ms=3500")) as answers:
        wait_until(lambda: len(host.lines("begun")) == 2, "the requests reaching their page")
        begin = time.monotonic()
        assert host.signal(signal.SIGTERM) or host.wait() == 75
        assert 5 <= time.monotonic() - begin < 7
    assert sorted(answer[-9:] for answer in answers)[1] == b"begin end"


@pytest.mark.parametrize("limits", [[], ["--drain", "0"]], ids=["by default", "at once"])
def test_connections_that_are_still_open_delay_the_end_by_two_seconds_at_most(start, limits):
    host = start.host("--listen", start.socket_path, "--threads", "1", *limits)
    variables = fastcgi.variables({"REQUEST_METHOD": "GET", "REQUEST_URI": "/servlet?p=slow",
                                   "QUERY_STRING": "p=slow", "REMOTE_ADDR": "127.0.0.1"})
    with fastcgi.connect(start.socket_path) as connection:
        connection.sendall(fastcgi.begin() + b"".join(fastcgi.stream(fastcgi.PARAMS, variables)))
        assert fastcgi.reply(connection, until_end=True).output.endswith(b"begin end")
        begin = time.monotonic()
        assert host.stop() == 0
        assert time.monotonic() - begin < 4
    assert host.lines("destroyed") == ["slow"]


# The first two stop other FastCGI programs; the daemon ignores the others.
@pytest.mark.parametrize("number", [signal.SIGPIPE, signal.SIGUSR1, signal.SIGURG, signal.SIGWINCH,
                                    signal.SIGCHLD, signal.SIGCONT])
def test_other_signals_do_not_stop_the_daemon(start, number):
    host = start.host("--listen", start.socket_path, "--threads", "1")
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=500")) as answers:
        slow_request_under_way(host)
        host.signal(number)
    host.signal(number)
    answers.append(start.cgi_fcgi("/servlet?p=slow"))
    assert [answer[-9:] for answer in answers] == [b"begin end"] * 2
    assert host.stop() == 0


@pytest.mark.parametrize("number, status", [(signal.SIGTERM, 143), (signal.SIGINT, 130)])
def test_a_second_signal_ends_the_daemon_at_once(start, number, status):
    host = start.host("--listen", start.socket_path)
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=20000")):
        slow_request_under_way(host)
        begin = time.monotonic()
        host.signal(signal.SIGTERM)
        time.sleep(0.3)
        assert host.process.poll() is None
        host.signal(number)
        assert host.wait() == status
        assert time.monotonic() - begin < 5
    assert host.lines("destroyed") == []
    assert "fcgi_host: ended at once by a second signal\n" in host.log.read_text()


def connections_to(path):
    """Counts the connections of a socket, both accepted and pending."""
    connected = "03"
    rows = [line.split() for line in pathlib.Path("/proc/net/unix").read_text().splitlines()]
    return sum(row[-1] == str(path) and row[5] in ("02", connected) for row in rows)


def test_pending_clients_are_served_before_the_daemons_own_socket_is_closed(start):
    host = start.host("--listen", start.socket_path, "--threads", "1")
    first = lambda: start.cgi_fcgi("/servlet?p=slow&ms=600")
    pending = lambda: start.cgi_fcgi("/servlet?p=slow&ms=10")
    wait_until(lambda: connections_to(start.socket_path) == 0, "the end of the first connection")
    with in_background(first) as answer:
        slow_request_under_way(host)
        host.signal(signal.SIGSTOP)  # so that none is answered before all are connected
        with in_background(*[pending] * 4) as answers:
            try:
                wait_until(lambda: connections_to(start.socket_path) == 5, "all being connected")
                host.signal(signal.SIGTERM)
            finally:
                host.signal(signal.SIGCONT)
    assert [text[-9:] for text in answer + answers] == [b"begin end"] * 5
    assert host.wait() == 0


def test_a_client_that_hangs_up_does_not_end_the_daemon(start, front):
    host = start.host("--listen", start.socket_path)
    for _ in range(3):
        connection = front.connect()
        connection.sendall(b"GET /servlet?p=big&lines=100000 HTTP/1.1\r\nHost: phone\r\n\r\n")
        connection.recv(100)
        connection.close()
    assert front.curl("/servlet?p=facts").status == 200
    assert host.stop() == 0


def test_a_process_without_descriptors_left_serves_again_later(start):
    host = start.host("--listen", start.socket_path, "--threads", "1")
    assert b"begin end" in start.cgi_fcgi("/servlet?p=slow")
    pid = host.process.pid
    enough = resource.prlimit(pid, resource.RLIMIT_NOFILE)
    resource.prlimit(pid, resource.RLIMIT_NOFILE, (3, enough[1]))
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow")) as answers:
        wait_until(lambda: "accept request failed" in host.log.read_text(), "the failure")
        resource.prlimit(pid, resource.RLIMIT_NOFILE, enough)
    assert b"begin end" in answers[0]
    assert host.stop() == 0


def test_a_request_lost_with_a_killed_daemon_is_noticed(start, front):
    """Proves that the tests under load can fail."""
    host = start.host("--listen", start.socket_path)
    load = Load(front, 2)
    wait_until(lambda: load.answered > 5, "requests answered")
    host.process.kill()
    wait_until(lambda: load.lost, "a lost request")
    load.end()
