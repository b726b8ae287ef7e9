"""The small host of docs/hosts.md: serving, its timers, and stopping."""

import os
import signal
import stat
import time

import pytest

from service import Answer, Host, in_background, wait_until
from test_sessions import cookie_of
from test_stopping import connections_to, slow_request_under_way


def launch(start, seconds=60):
    # A shell that starts the tests in the background makes them, and what they start, ignore SIGINT.
    return start.start("env", "--default-signal=INT", start.build.folder / "tests/wire/small_host",
                       start.socket_path, str(seconds), log="host.log", env=start.environment)


def serving(start, seconds=60):
    """Starts the host and waits until it serves."""
    process = launch(start, seconds)
    start.wait_for_socket(process)
    assert b"method=GET" in start.cgi_fcgi("/servlet?p=facts")
    return Host(process, start.folder, start.folder / "host.log")


def test_pages_are_served_at_the_same_time(start):
    host = serving(start)
    slow = lambda: start.cgi_fcgi("/servlet?p=slow&ms=1000")
    begin = time.monotonic()
    with in_background(*[slow] * 4) as answers:
        wait_until(lambda: host.lines("begun") == ["slow"] * 4, "four requests in flight")
    assert [answer[-9:] for answer in answers] == [b"begin end"] * 4
    assert time.monotonic() - begin < 4
    assert host.stop() == 0


def test_no_user_outside_the_group_may_connect(start):
    launch(start)
    wait_until(lambda: os.path.exists(start.socket_path), "the socket")
    assert stat.S_IMODE(os.stat(start.socket_path).st_mode) == 0o660


def test_the_timer_keeps_a_session_alive_that_is_being_served(start):
    serving(start, seconds=1)
    cookie = cookie_of(Answer(start.cgi_fcgi("/servlet?p=count&interval=2")))
    slow = start.cgi_fcgi("/servlet?p=count&ms=3000", HTTP_COOKIE=cookie)
    assert slow.endswith(b"count 2")
    later = start.cgi_fcgi("/servlet?p=count&create=0", HTTP_COOKIE=cookie)
    assert later.endswith(b"count 3")


def test_the_request_in_flight_is_completed(start):
    host = serving(start)
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=1000")) as answers:
        slow_request_under_way(host)
        host.signal(signal.SIGTERM)
        time.sleep(0.3)
        assert host.process.poll() is None
    assert [answer[-9:] for answer in answers] == [b"begin end"]
    assert host.wait() == 0
    assert host.lines("destroyed") == ["slow"]
    assert not os.path.exists(start.socket_path)


def test_connected_clients_are_served_before_the_end(start):
    host = serving(start)
    slow = lambda: start.cgi_fcgi("/servlet?p=slow&ms=500")
    wait_until(lambda: connections_to(start.socket_path) == 0, "the end of the first connections")
    with in_background(*[slow] * 8) as answers:
        wait_until(lambda: connections_to(start.socket_path) == 8, "all being connected")
        host.signal(signal.SIGTERM)
    assert [answer[-9:] for answer in answers] == [b"begin end"] * 8
    assert host.wait() == 0


def test_a_second_signal_ends_it_at_once(start):
    host = serving(start)
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=20000")):
        slow_request_under_way(host)
        host.signal(signal.SIGTERM)
        wait_until(lambda: not os.path.exists(start.socket_path), "the end of accepting")
        host.signal(signal.SIGINT)
        assert host.wait() == -signal.SIGINT


def test_a_request_that_hangs_does_not_keep_it(start):
    host = serving(start)
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=20000")):
        slow_request_under_way(host)
        host.signal(signal.SIGTERM)
        assert host.wait() == -signal.SIGALRM


@pytest.mark.parametrize("name", ["SIGUSR1", "SIGPIPE"])
def test_the_signals_of_web_servers_do_not_stop_it(start, name):
    host = serving(start)
    host.signal(signal.Signals[name])
    for _ in range(6):  # more than there are threads
        assert b"method=GET" in start.cgi_fcgi("/servlet?p=facts")
    assert host.stop() == 0


def test_it_does_not_serve_without_all_listeners(start, folder):
    (folder / "no-listener").touch()
    assert launch(start).wait(30) == 78
    assert not os.path.exists(start.socket_path)
