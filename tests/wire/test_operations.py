"""Signals that query and control a running daemon, and its log."""

import contextlib
import os
import re
import signal
import time

import pytest

import fastcgi
from service import in_background, wait_until
from test_stopping import Load, slow_request_under_way

STATUS = re.compile(r"fcgi_host: status( [a-z_]+=\d+)+$")
KEYS = ["uptime_s", "requests", "busy", "loops", "sessions", "private_kib", "resident_kib"]


def status_lines(host):
    complete, _, _ = host.log.read_text().rpartition("\n")  # the last line may be under way
    return [line for line in complete.splitlines() if "fcgi_host: status" in line]


def status(host):
    """Requests a status line and returns its figures."""
    before = len(status_lines(host))
    host.signal(signal.SIGUSR2)
    wait_until(lambda: len(status_lines(host)) > before, "the status line")
    line = status_lines(host)[-1]
    assert STATUS.search(line), line
    return {key: int(value) for key, value in re.findall(r"(\w+)=(\d+)", line)}


def wait_for_status(host, **expected):
    """Waits for these figures: a response arrives a little before its request ends."""
    wait_until(lambda: expected.items() <= status(host).items(), str(expected))


def test_the_status_is_one_line_of_the_log(start):
    host = start.host("--listen", start.socket_path, "--threads", "3")
    figures = status(host)
    assert list(figures) == KEYS
    assert figures["loops"] == 3
    assert figures["uptime_s"] < 30
    assert " notice [65]: fcgi_host: status " in status_lines(host)[0]
    assert len(status_lines(host)) == 1


def test_the_status_counts_seconds(start):
    host = start.host("--listen", start.socket_path)
    begin = time.monotonic()
    first = status(host)["uptime_s"]
    time.sleep(2)
    later = status(host)["uptime_s"]
    assert 1 <= later - first <= time.monotonic() - begin + 1


def test_the_status_counts_requests(start):
    host = start.host("--listen", start.socket_path)
    assert status(host)["requests"] == 0
    for uri in ("/servlet?p=facts", "/servlet?p=unknown", "/servlet?q=1", "/servlet?key=1"):
        start.cgi_fcgi(uri)
    assert status(host)["requests"] == 4


def test_the_status_counts_the_loops_that_serve(start):
    host = start.host("--listen", start.socket_path, "--threads", "4")
    wait_for_status(host, busy=0)
    # Each page waits for its body, so that the requests last until this test ends them.
    variables = fastcgi.variables({
        "REQUEST_METHOD": "POST", "REQUEST_URI": "/servlet?p=body&most=1",
        "QUERY_STRING": "p=body&most=1", "CONTENT_TYPE": "multipart/form-data; boundary=b",
        "CONTENT_LENGTH": "1"})
    with contextlib.ExitStack() as opened:
        connections = [opened.enter_context(fastcgi.connect(start.socket_path)) for _ in range(3)]
        for connection in connections:
            connection.sendall(
                fastcgi.begin() + b"".join(fastcgi.stream(fastcgi.PARAMS, variables)))
        wait_for_status(host, busy=3, requests=3)
        for connection in connections:
            connection.sendall(b"".join(fastcgi.stream(fastcgi.STDIN, b"x")))
            assert fastcgi.reply(connection).output.endswith(b"read 1")
    wait_for_status(host, busy=0, requests=3)
    assert host.stop() == 0


def test_the_status_counts_sessions_until_they_have_expired(start):
    host = start.host("--listen", start.socket_path, "--timer", "1")
    assert status(host)["sessions"] == 0
    for _ in range(5):
        start.cgi_fcgi("/servlet?p=count&interval=2")
    start.cgi_fcgi("/servlet?p=count&create=0")
    assert status(host)["sessions"] == 5
    wait_for_status(host, sessions=0)
    assert host.stop() == 0


def test_sessions_may_come_and_go_while_they_are_counted(start):
    host = start.host("--listen", start.socket_path, "--threads", "4", "--timer", "1")
    ask = lambda: [start.cgi_fcgi("/servlet?p=count&interval=2") for _ in range(60)]
    with in_background(ask, ask) as answers:
        while len(answers) < 2:
            host.signal(signal.SIGUSR2)
            time.sleep(0.005)
    assert all(answer.endswith(b"count 1") for answer in sum(answers, []))
    wait_for_status(host, sessions=0, requests=120)
    assert host.stop() == 0


def test_the_status_shows_the_memory_in_use(start):
    host = start.host("--listen", start.socket_path)
    start.cgi_fcgi("/servlet?p=facts")
    figures = status(host)
    resident = host.memory("VmRSS") // 1024
    assert 0 < figures["private_kib"] < figures["resident_kib"]
    # The kernel updates VmRSS less often.
    assert abs(figures["resident_kib"] - resident) < 0.25 * resident


@pytest.mark.skipif(os.geteuid() != 0, reason="takes root")
def test_a_daemon_without_privileges_shows_its_status(start):
    os.chmod(start.folder, 0o755)
    os.chmod(start.state, 0o777)
    host = start.host("--listen", start.socket_path, "--user", "nobody")
    assert status(host)["private_kib"] > 0


def test_twenty_signals_in_a_row_do_no_harm(start):
    host = start.host("--listen", start.socket_path, "--threads", "1")
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=500")) as answers:
        slow_request_under_way(host)
        for _ in range(20):
            host.signal(signal.SIGUSR2)
    wait_until(lambda: status_lines(host), "a status line")
    assert [answer[-9:] for answer in answers] == [b"begin end"]
    assert 1 <= len(status_lines(host)) <= 20
    assert status(host)["requests"] == 1
    assert host.stop() == 0


def test_no_request_is_lost_while_the_status_is_requested(start, front):
    host = start.host("--listen", start.socket_path, "--threads", "4")
    load = Load(front, 6)
    try:
        for _ in range(60):
            host.signal(signal.SIGUSR2)
            time.sleep(0.02)
        wait_until(lambda: load.answered >= 40, "requests answered")
    finally:
        load.end()
    assert load.lost == []
    wait_for_status(host, busy=0, requests=load.answered)
    assert host.stop() == 0


def test_a_stopping_daemon_shows_its_status(start):
    host = start.host("--listen", start.socket_path)
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=2000")) as answers:
        slow_request_under_way(host)
        host.signal(signal.SIGTERM)
        wait_until(lambda: "fcgi_host: stopping" in host.log.read_text(), "stopping")
        assert status(host)["busy"] == 1
        assert host.process.poll() is None
    assert [answer[-9:] for answer in answers] == [b"begin end"]
    assert host.wait() == 0


def test_the_timer_runs_however_often_the_status_is_requested(start):
    host = start.host("--listen", start.socket_path, "--timer", "1")
    start.cgi_fcgi("/servlet?p=count&interval=2")
    end = time.monotonic() + 5
    while time.monotonic() < end:
        host.signal(signal.SIGUSR2)
        time.sleep(0.01)
    assert status(host)["sessions"] == 0


MORE, LESS = signal.SIGRTMIN + 1, signal.SIGRTMIN + 2
PROBES = {3: "/servlet?p=facts&x=<", 4: "/servlet?p=unknown"}  # each logs a line at that level


def threshold_lines(host):
    return re.findall(r"fcgi_host: threshold level=(\d) before=(\d)$", host.log.read_text(), re.M)


def change_threshold(host, number):
    """Returns the threshold after this signal and before it."""
    count = len(threshold_lines(host))
    host.signal(number)
    wait_until(lambda: len(threshold_lines(host)) > count, "the new threshold")
    return tuple(map(int, threshold_lines(host)[-1]))


def levels_logged(start, host):
    """Returns those levels of the requests in PROBES that are logged now."""
    logged = set()
    for level, uri in PROBES.items():
        before = len(host.log_lines())
        start.cgi_fcgi(uri)
        if len(host.log_lines()) > before:
            logged.add(level)
    return logged


def test_the_log_threshold_is_raised_and_lowered_while_it_runs(start):
    host = start.host("--listen", start.socket_path)
    assert levels_logged(start, host) == {3, 4}
    assert [change_threshold(host, LESS) for _ in range(2)] == [(5, 6), (4, 5)]
    assert levels_logged(start, host) == {3, 4}
    assert change_threshold(host, LESS) == (3, 4)
    assert levels_logged(start, host) == {3}
    assert change_threshold(host, MORE) == (4, 3)
    assert levels_logged(start, host) == {3, 4}
    assert host.stop() == 0


def test_no_signal_keeps_errors_out_of_the_log(start):
    host = start.host("--listen", start.socket_path)
    for _ in range(20):
        host.signal(LESS)
    # One line for each signal: real-time signals are queued.
    wait_until(lambda: len(threshold_lines(host)) == 20, "twenty lines")
    assert threshold_lines(host)[-1] == ("3", "3")
    assert 3 in levels_logged(start, host)
    for _ in range(20):
        host.signal(MORE)
    wait_until(lambda: len(threshold_lines(host)) == 40, "forty lines")
    assert threshold_lines(host)[-1] == ("7", "7")


def test_a_threshold_below_errors_stays_until_it_is_raised(start):
    start.environment["APP_LOG_LEVEL"] = "1"
    host = start.host("--listen", start.socket_path)
    assert change_threshold(host, LESS) == (1, 1)
    assert levels_logged(start, host) == set()
    assert [change_threshold(host, MORE) for _ in range(2)] == [(2, 1), (3, 2)]
    assert levels_logged(start, host) == {3}


def test_the_status_is_logged_whatever_the_threshold_is(start):
    start.environment["APP_LOG_LEVEL"] = "2"
    host = start.host("--listen", start.socket_path)
    assert status(host)["requests"] == 0


def test_an_invalid_threshold_is_logged_and_the_default_used(start):
    start.environment["APP_LOG_LEVEL"] = "loud"
    host = start.host("--listen", start.socket_path)
    assert change_threshold(host, LESS) == (5, 6)
    line = "warning [log]: APP_LOG_LEVEL=loud is not a level from 0 to 7; the threshold is 6"
    assert host.log_lines()[0].endswith(line)


def test_no_request_is_lost_while_the_threshold_changes(start, front):
    host = start.host("--listen", start.socket_path, "--threads", "4")
    load = Load(front, 6)
    try:
        for number in range(60):
            host.signal((MORE, LESS)[number % 2])
            time.sleep(0.02)
        wait_until(lambda: load.answered >= 40, "requests answered")
    finally:
        load.end()
    assert load.lost == []
    wait_until(lambda: len(threshold_lines(host)) == 60, "a line for each signal")
    assert host.stop() == 0


# Thread, request and message of a log line of the page.
MARKED = re.compile(r" information \[70\] (thread=\d+) (request=\d+): talking (\w+) (\w+)$", re.M)


def test_log_lines_of_concurrent_requests_can_be_distinguished(start):
    host = start.host("--listen", start.socket_path, "--threads", "2")
    ask = lambda name: lambda: start.cgi_fcgi(f"/servlet?p=talking&ms=1000&x={name}")
    with in_background(ask("a"), ask("b")):
        pass
    lines = {(word, name): (thread, number)
             for thread, number, word, name in MARKED.findall(host.log.read_text())}
    assert len(lines) == 4
    for name in "ab":
        assert lines["begins", name] == lines["ends", name]
    (thread, number), (other_thread, other_number) = lines["ends", "a"], lines["ends", "b"]
    assert {number, other_number} == {"request=1", "request=2"}
    assert {thread, other_thread} == {"thread=1", "thread=2"}
    assert host.stop() == 0


def test_requests_are_counted_in_the_log_as_in_the_status(start):
    host = start.host("--listen", start.socket_path, "--threads", "1")
    for name in "abc":
        start.cgi_fcgi("/servlet?p=facts")
        start.cgi_fcgi(f"/servlet?p=talking&x={name}")
    marks = [(thread, number) for thread, number, word, _ in MARKED.findall(host.log.read_text())
             if word == "ends"]
    assert marks == [("thread=1", f"request={number}") for number in (2, 4, 6)]
    assert status(host)["requests"] == 6


def test_log_lines_outside_a_request_have_no_mark(start):
    host = start.host("--listen", start.socket_path)
    start.cgi_fcgi("/servlet?p=talking")
    status(host)
    assert host.stop() == 0
    lines = host.log.read_text().splitlines()
    marked = [line for line in lines if "request=" in line]
    assert len(marked) == 2 and all("talking" in line for line in marked)
    assert any("PluginLoader" in line for line in lines)
    assert any("accept request failed" in line for line in lines)


def test_a_device_log_without_a_threshold_is_enough(start, build):
    """Only the request marks and the threshold are missing."""
    start.environment["LD_LIBRARY_PATH"] = str(build.folder / "tests/wire/plain")
    host = start.host("--listen", start.socket_path)
    assert b"said" in start.cgi_fcgi("/servlet?p=talking&x=a")
    assert " information [70]: talking ends a" in host.log.read_text()
    assert status(host)["requests"] == 1
    host.signal(MORE)
    wait_until(lambda: "fcgi_host: this device's log has no threshold" in host.log.read_text(),
               "the answer")
    assert host.stop() == 0
