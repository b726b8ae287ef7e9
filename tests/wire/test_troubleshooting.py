"""Symptoms that docs/troubleshooting.md explains and no other test shows."""

import os
import re
import signal
import time

import pytest

from conftest import SOURCE
from service import in_background, wait_until
from test_operations import status
from test_pages import facts
from test_sessions import cookie_of, with_cookie
from test_stopping import slow_request_under_way


def test_a_page_that_writes_nothing_is_empty(web):
    answer = web.curl("/servlet?p=silent")
    assert (answer.status, answer.body.strip()) == (200, b"")


@pytest.mark.parametrize("template, number, reason", [
    ("<p>\n<TMPL_LOOP name=\"x\">\n", 2, r"page\.html:2: .*TMPL_LOOP"),
    ("<TMPL_INCLUDE name=\"frame.html\">\n", 1, r"page\.html:1: .*frame\.html"),
    (None, 1, r"page\.html:1: cannot read ")], ids=["wrong", "include missing", "missing"])
def test_a_page_with_a_bad_template_is_empty_and_logged(start, front, folder, template, number,
                                                        reason):
    host = start.host("--listen", start.socket_path)
    if template:
        (folder / "page.html").write_text(template)
    answer = front.curl("/servlet?p=template")
    assert (answer.status, answer.body) == (200, b"")
    log = host.log.read_text()
    assert f"HttpResponseImpl::flush() TMPL_write error ={number}!" in log
    assert re.search(reason, log), log


def test_no_daemon_listens(start, front):
    statuses = {"lighttpd": 503, "nginx": 502, "apache": 503}
    assert front.curl("/servlet?p=facts").status == statuses[front.kind]
    start.host("--listen", start.socket_path)
    # lighttpd tries again after a second.
    wait_until(lambda: front.curl("/servlet?p=facts").status == 200, "an answer", 3)


def test_a_daemon_that_ends_during_a_request(start, front):
    host = start.host("--listen", start.socket_path)
    host.signal(signal.SIGSTOP)
    with in_background(lambda: front.curl("/servlet?p=facts")) as answers:
        time.sleep(0.5)
        host.signal(signal.SIGKILL)
    assert answers[0].status == {"lighttpd": 500, "nginx": 502, "apache": 503}[front.kind]


def test_a_restart_ends_all_sessions(start, front):
    host = start.host("--listen", start.socket_path)
    cookie = cookie_of(front.curl("/servlet?p=count"))
    assert front.curl("/servlet?p=count", *with_cookie(cookie)).text == "count 2"
    host.stop()
    start.host("--listen", start.socket_path)
    wait_until(lambda: front.curl("/servlet?p=facts").status == 200, "the next daemon")
    answer = front.curl("/servlet?p=count&create=0", *with_cookie(cookie))
    assert answer.text == "no session"


def test_a_session_that_is_created_after_the_first_byte_has_no_cookie(web):
    answer = web.curl("/servlet?p=late")
    assert answer.text == "begun, session"
    assert answer.headers("Set-Cookie") == []


@pytest.mark.parametrize("field", ["p", "jumpto", "acc", "model"])
def test_a_field_with_a_reserved_name_is_refused_without_a_log_line(start, front, field):
    host = start.host("--listen", start.socket_path)
    assert front.curl("/servlet?p=facts").status == 200
    before = host.log.read_text()
    answer = front.curl("/servlet?p=facts", "--data", f"{field}=T 46")
    assert answer.status == 404
    assert host.log.read_text() == before


@pytest.mark.parametrize("options", [
    ("--data", "x=1", "--header", "Content-Type: text/plain"),
    ("--data", "{\"x\":1}", "--header", "Content-Type: application/json"),
    ("--form", "x=1"), ("--request", "PUT", "--data", "x=1")],
    ids=["another type", "JSON", "an upload that no page receives", "another method"])
def test_fields_that_do_not_arrive(web, options):
    assert facts(web.curl("/servlet?p=facts", *options))[1] == []


def test_an_upload_beyond_the_web_servers_limit_is_refused(web):
    head = ("POST /servlet?p=upload HTTP/1.1\r\nHost: phone\r\nConnection: close\r\n"
            "Content-Type: multipart/form-data; boundary=edge\r\n"
            f"Content-Length: {129 << 20}\r\n\r\n")
    with web.connect() as connection:
        connection.sendall(head.encode())
        assert connection.recv(100).startswith(b"HTTP/1.1 413")


def test_requests_wait_while_all_threads_are_busy(start, front):
    host = start.host("--listen", start.socket_path, "--threads", "1")
    with in_background(lambda: front.curl("/servlet?p=slow&ms=1500")):
        slow_request_under_way(host)
        figures = status(host)
        assert (figures["busy"], figures["loops"]) == (1, 1)
        begin = time.monotonic()
        assert front.curl("/servlet?p=facts").status == 200
        assert time.monotonic() - begin > 0.5


def test_a_socket_that_the_web_server_may_not_open(start):
    """nginx's workers run as another user if root starts it."""
    if os.getuid() != 0:
        pytest.skip("needs root")
    front = start.front("nginx", SOURCE / "packaging/front-servers")
    start.host("--listen", start.socket_path)
    os.chmod(start.socket_path, 0o600)
    assert front.curl("/servlet?p=facts").status == 502
    assert "(13: Permission denied)" in (start.folder / "nginx.log").read_text()
