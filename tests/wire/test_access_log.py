"""The access log of the web servers: it leads from a client's request to the daemon's log lines, and
contains nothing that is private."""

import os
import re
import signal

import pytest

from conftest import SOURCE
from service import wait_until

CONFIG = SOURCE / "packaging/front-servers"
# The same fields from all; the times are not.
TIMES = {"lighttpd": r"ms=\d+", "nginx": r"s=\d+\.\d{3} back_end_s=(?:\d+\.\d{3}|-)",
         "apache": r"us=\d+ first_byte_us=(?:\d+|-)"}
LINE = (r'(?P<time>\d{{4}}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:?\d\d) (?P<client>[0-9.]+) '
        r'"(?P<request>(?:[^"\\]|\\.)*)" (?P<status>\d{{3}}) (?P<bytes>\d+) {times}'
        r' (?P<mark>request=\d+ p=[A-Za-z0-9_-]+|-)')


class AccessLog:
    def __init__(self, front, path):
        self.path = path
        self.line = re.compile(LINE.format(times=TIMES[front.kind]))

    def lines(self):
        """Returns the fields of all lines, each of which must have the form of LINE."""
        found = []
        for line in self.path.read_text().splitlines():
            match = self.line.fullmatch(line)
            assert match, line
            found.append(match.groupdict())
        return found

    def wait_for(self, count):
        """Returns the fields of the lines once there are so many: a line may be written after the
        response."""
        wait_until(lambda: self.path.exists() and self.path.read_text().count("\n") >= count,
                   f"{count} lines")
        lines = self.lines()
        assert len(lines) == count
        return lines


@pytest.fixture
def log(front, start):
    return AccessLog(front, start.state / "access.log")


@pytest.fixture
def host(start, front):
    return start.host("--listen", start.socket_path, "--threads", "2", "--access-log-header")


def test_a_line_leads_to_the_daemons_lines_of_that_request(front, host, log):
    for name in "abc":
        front.curl("/servlet?p=facts")
        front.curl(f"/servlet?p=talking&x={name}")
    lines = log.wait_for(6)
    # The servers that buffer write the line of one request after the response to the next.
    marks = [line["mark"] for line in sorted(lines, key=lambda line: int(line["mark"].split()[0][8:]))]
    assert marks == [f"request={number} p={('talking', 'facts')[number % 2]}" for number in range(1, 7)]
    numbers = re.findall(r"request=(\d+): talking ends (\w)$", host.log.read_text(), re.M)
    assert numbers == [("2", "a"), ("4", "b"), ("6", "c")]
    assert {(line["client"], line["request"], line["status"]) for line in lines} \
        == {("127.0.0.1", "GET /servlet", "200")}


def test_a_refused_request_is_numbered_too(front, host, log):
    assert front.curl("/servlet?q=1").status == 404
    line, = log.wait_for(1)
    assert (line["status"], line["mark"]) == ("404", "request=1 p=-")


def test_a_page_that_takes_long_is_seen(front, host, log):
    front.curl("/servlet?p=talking&ms=300")
    log.wait_for(1)
    times = re.findall(r" (?:back_end_|first_byte_)?([um]?)s=([0-9.]+)", log.path.read_text())
    assert len(times) == (1 if front.kind == "lighttpd" else 2)
    for unit, time in times:
        assert float(time) * {"u": 1e-6, "m": 1e-3, "": 1}[unit] >= 0.25  # their clocks are coarse


def test_files_and_answers_of_the_web_server_have_no_number(front, host, log, start):
    (start.document_root / "page.css").write_text("a {}")
    assert front.curl("/page.css").status == 200
    assert front.curl("/missing.css").status == 404
    assert [(line["request"], line["mark"]) for line in log.wait_for(2)] \
        == [("GET /page.css", "-"), ("GET /missing.css", "-")]


@pytest.mark.parametrize("pages", [[], ["error-404.html", "error-503.html"]], ids=["none", "some"])
def test_pages_for_errors_do_not_hide_what_was_requested(front, log, start, pages):
    for page in pages:
        (start.document_root / page).write_text("<!DOCTYPE html><title>Error</title>")
    missing = front.curl("/missing.css").status
    unserved = front.curl("/servlet?p=facts").status
    assert (missing, unserved >= 500) == (404, True)
    assert [(line["request"], line["status"]) for line in log.wait_for(2)] \
        == [("GET /missing.css", "404"), ("GET /servlet", str(unserved))]


def test_a_request_that_finds_no_daemon_is_logged(front, log):
    status = front.curl("/servlet?p=facts").status
    line, = log.wait_for(1)
    assert (line["status"], line["mark"]) == (str(status), "-")


def test_queries_forms_and_headers_stay_out_of_it(front, host, log):
    secret = "sesame"
    front.curl(f"/servlet?p=facts&password={secret}", "--cookie", f"JSESSIONID={secret}",
               "--referer", f"http://phone/?{secret}", "--user", f"{secret}:{secret}",
               "--user-agent", secret)
    front.curl("/servlet?p=facts", "--data", f"password={secret}")
    front.curl(f"/page.css?{secret}")
    front.curl(f"/?{secret}")
    log.wait_for(4)
    assert secret not in log.path.read_text()


FORGED = ["/servlet?p=facts%0a%0d&x=1", "/servlet?p=facts%20request=9", "/servlet?p=a%22b", "/servlet?p=a,b",
          "/a%22%20200%201%20request=9%20p=facts", "/a%0A127.0.0.1%20b", "/servlet/a%0d%0ab?p=facts",
          "/servlet?p=" + "a" * 65, "/%C3%A4%1b[2J"]


def test_no_client_forges_a_line_or_a_number(front, host, log):
    for target in FORGED:
        front.curl(target, "--header", "X-Access-Log: request=9 p=admin",
                   "--header", "X-Forwarded-For: 192.0.2.1")
    for line in log.wait_for(len(FORGED)):
        assert line["client"] == "127.0.0.1"
        assert re.fullmatch(r"-|request=[1-8] p=(?:-|facts)", line["mark"]), line


def test_only_behind_lighttpd_do_clients_see_the_number(front, host):
    shown = front.curl("/servlet?p=facts").headers("X-Access-Log")
    assert shown == (["request=1 p=facts"] if front.kind == "lighttpd" else [])


def test_a_daemon_without_the_option_sends_no_header(start, front, log):
    start.host("--listen", start.socket_path)
    assert front.curl("/servlet?p=facts").headers("X-Access-Log") == []
    assert log.wait_for(1)[0]["mark"] == "-"


REOPEN = {"lighttpd": signal.SIGHUP, "nginx": signal.SIGUSR1, "apache": signal.SIGUSR1}


def test_it_is_rotated_with_the_signal_of_the_web_server(start, front, host, log):
    assert front.curl("/servlet?p=facts").status == 200
    log.wait_for(1)
    rotated = log.path.with_name("access.log.1")
    log.path.rename(rotated)
    start.processes[0].send_signal(REOPEN[front.kind])
    wait_until(log.path.exists, "the new file")
    assert front.curl("/servlet?p=facts").status == 200
    assert log.wait_for(1)[0]["mark"] == "request=2 p=facts"
    assert rotated.read_text().count("\n") == 1


@pytest.mark.parametrize("kind", ["lighttpd", "nginx", "apache"])
def test_a_full_disk_does_not_keep_pages_from_being_served(start, kind):
    (start.state / "access.log").symlink_to("/dev/full")
    front = start.front(kind, CONFIG)
    host = start.host("--listen", start.socket_path, "--threads", "2", "--access-log-header")
    for _ in range(3):
        assert front.curl("/servlet?p=facts").status == 200
    assert os.path.islink(start.state / "access.log")
    assert host.stop() == 0
