"""The lines in which the daemon says that it is ready, and why it stopped."""

import re
import signal
import subprocess

import pytest

from service import in_background, wait_until
from test_stopping import slow_request_under_way


def lines(host, begin):
    return [line for line in host.log.read_text().splitlines() if f"fcgi_host: {begin} " in line]


def figures(line):
    return dict(re.findall(r"(\w+)=(\S+)", line))


def ready(host):
    """Returns the figures of the line that says that the daemon is ready, once it is there."""
    wait_until(lambda: lines(host, "ready"), "the line")
    line, = lines(host, "ready")
    assert " notice [65]: fcgi_host: ready " in line
    return figures(line)


def stopped(host):
    line, = lines(host, "stopped")
    assert " notice [65]: fcgi_host: stopped " in line
    return figures(line)


def test_one_line_says_that_it_is_ready(start, build):
    host = start.host("--listen", start.socket_path, "--threads", "3")
    version = subprocess.run([build.host, "--version"], capture_output=True, text=True, check=True)
    assert ready(host) == {
        "version": version.stdout.split()[1], "socket": start.socket_path, "loops": "3",
        "configuration": str(build.folder / "tests/wire/device/phone/www/WEB-INFO/servlet/servlet.xml")}


def test_the_socket_of_a_supervisor_is_named(start):
    host = start.host(stdin=start.shared_socket())
    assert ready(host)["socket"] == start.socket_path


def test_a_daemon_that_cannot_serve_is_never_ready(start, folder):
    (folder / "no-listener").touch()
    host = start.host(stdin=start.shared_socket(), wait=False)
    assert host.wait() == 78
    assert lines(host, "ready") == lines(host, "stopped") == []


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGHUP])
def test_one_line_says_which_signal_stopped_it_and_how_many_requests_it_finished(start, number):
    host = start.host("--listen", start.socket_path)
    for uri in ("/servlet?p=facts", "/servlet?p=unknown", "/servlet?q=1"):
        start.cgi_fcgi(uri)
    host.signal(number)
    assert host.wait() == 0
    assert stopped(host) == {"reason": number.name, "status": "0", "finished": "3", "unfinished": "0"}


def test_the_last_request_counts_as_finished(start):
    host = start.host("--listen", start.socket_path)
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=500")) as answers:
        slow_request_under_way(host)
        host.signal(signal.SIGTERM)
    assert [answer[-9:] for answer in answers] == [b"begin end"]
    assert host.wait() == 0
    assert stopped(host) == {"reason": "SIGTERM", "status": "0", "finished": "1", "unfinished": "0"}


def test_a_request_that_takes_too_long_counts_as_unfinished(start):
    host = start.host("--listen", start.socket_path, "--drain", "0")
    start.cgi_fcgi("/servlet?p=facts")
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=3000")):
        slow_request_under_way(host)
        host.signal(signal.SIGHUP)
        assert host.wait() == 75
    assert stopped(host) == {"reason": "SIGHUP", "status": "75", "finished": "1", "unfinished": "1"}


def test_a_second_signal_is_seen_in_the_status(start):
    host = start.host("--listen", start.socket_path)
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=3000")):
        slow_request_under_way(host)
        host.signal(signal.SIGTERM)
        wait_until(lambda: "fcgi_host: stopping" in host.log.read_text(), "stopping")
        host.signal(signal.SIGINT)
        assert host.wait() == 130
    assert stopped(host) == {"reason": "SIGTERM", "status": "130", "finished": "0", "unfinished": "1"}


@pytest.mark.parametrize("moment", ["serving", "stopping"])
def test_a_failure_of_the_main_thread_ends_the_daemon_with_a_reason(start, folder, moment):
    host = start.host("--listen", start.socket_path, "--timer", "1")
    start.cgi_fcgi("/servlet?p=facts")
    with in_background(lambda: start.cgi_fcgi("/servlet?p=slow&ms=3000")):
        slow_request_under_way(host)
        if moment == "stopping":
            host.signal(signal.SIGTERM)
            wait_until(lambda: "fcgi_host: stopping" in host.log.read_text(), "stopping")
        (folder / "failure").touch()
        host.signal(signal.SIGUSR2)
        assert host.wait() == 71
    assert stopped(host) == {"reason": "failure", "status": "71", "finished": "1", "unfinished": "1"}
    assert "fcgi_host: simulated failure\n" in host.log.read_text()


def test_both_lines_are_logged_whatever_the_threshold_is(start):
    start.environment["APP_LOG_LEVEL"] = "3"
    host = start.host("--listen", start.socket_path)
    wait_until(lambda: lines(host, "ready"), "the line")
    assert host.stop() == 0
    (first,), (last,) = lines(host, "ready"), lines(host, "stopped")
    assert " error [65]: " in first and " error [65]: " in last
