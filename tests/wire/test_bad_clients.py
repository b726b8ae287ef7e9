"""Clients that send invalid HTTP to lighttpd, nginx and Apache: each gets the expected response, and
the next client the usual one."""

import re
import socket
import time

import pytest

import raw_http
from bad_bodies import CHUNKS, LENGTHS, PIPELINES
from bad_headers import HEADERS
from bad_request_lines import ADDRESSES, LINES
from conftest import SOURCE
from service import wait_until

PAUSE = 0.0005


@pytest.fixture(scope="module", params=["lighttpd", "nginx", "apache"])
def front(request, daemon_host, start_once):
    return start_once.front(request.param, SOURCE / "packaging/front-servers")


@pytest.fixture(autouse=True)
def answered_and_logged(front, daemon_host):
    yield
    assert raw_http.ask(front, raw_http.get()) == "200 x=y"
    assert daemon_host.log_lines()


def as_parameter(group, name, data, lighttpd, nginx=None, apache=None):
    nginx = nginx or lighttpd
    apache = apache or nginx
    return pytest.param(data, {"lighttpd": lighttpd, "nginx": nginx, "apache": apache},
                        id=f"{group}: {name}")


GROUPS = {"line": LINES, "address": ADDRESSES, "header": HEADERS, "length": LENGTHS,
          "chunks": CHUNKS, "several": PIPELINES}


@pytest.mark.parametrize("data, expected", [
    as_parameter(group, *row) for group, rows in GROUPS.items() for row in rows])
def test_http_that_no_browser_sends(front, data, expected):
    assert raw_http.ask(front, data, expected[front.kind]) == expected[front.kind]


def test_the_document_lists_these_answers():
    shown = {row[0]: as_parameter(group, *row).values[1]
             for group, rows in GROUPS.items() for row in rows}
    text = (SOURCE / "docs/front-servers.md").read_text()
    table = text.partition("| what a client sends |")[2].partition("\n\n")[0].splitlines()[2:]
    assert len(table) > 30
    for line in table:
        name, *cells = [cell.strip() for cell in line.strip("|").split("|")]
        assert cells == [told(shown[name][kind]) for kind in ("lighttpd", "nginx", "apache")], name


def told(expected):
    """Returns the word of the document for an answer."""
    status, _, rest = expected.partition(" ")
    session = re.fullmatch("session=(.*) x=y", rest)
    if session:
        return f"the session is `{session.group(1)}`"
    return "goes on" if status in ("200", "302") else status


UPLOAD_BODY = (b"--edge\r\nContent-Disposition: form-data; name=\"image\"; filename=\"i\"\r\n\r\n"
               b"0123456789\r\n--edge--\r\n")
UPLOAD = raw_http.raw(
    "POST /servlet?p=upload HTTP/1.1", "Host: phone", "Connection: close",
    "Content-Type: multipart/form-data; boundary=edge", f"Content-Length: {len(UPLOAD_BODY)}",
    body=UPLOAD_BODY)
UPLOAD_HEAD = UPLOAD[:-len(UPLOAD_BODY)]
GET, POST = raw_http.get(), raw_http.post("Content-Length: 3")
CHUNKED = raw_http.chunked(b"1\r\nx\r\n2\r\n=y\r\n0\r\n\r\n")


def send_and_close(front, data):
    with front.connect() as connection:
        connection.sendall(data)


@pytest.mark.parametrize("data, size", [
    pytest.param(data, size, id=f"{name} after {size} bytes")
    for name, data in (("page", GET), ("form", POST), ("chunks", CHUNKED))
    for size in range(len(data))])
def test_a_client_that_hangs_up_sends_the_daemon_no_request(front, daemon_host, data, size):
    before = daemon_host.lines("requests")
    send_and_close(front, data[:size])
    assert raw_http.ask(front, raw_http.get("/servlet?p=facts&next=1")) == "200"
    assert daemon_host.lines("requests")[len(before):] == ["/servlet?p=facts&next=1"]


@pytest.mark.parametrize("size", range(0, len(UPLOAD_BODY) - 2, 2))
def test_an_upload_is_discarded_when_its_client_hangs_up(front, daemon_host, size):
    uploads = daemon_host.folder / "uploads"
    (uploads / "image").unlink(missing_ok=True)
    send_and_close(front, UPLOAD_HEAD + UPLOAD_BODY[:size])
    assert raw_http.ask(front, raw_http.get()) == "200 x=y"
    assert not (uploads / "image").exists()
    wait_until(lambda: not list(uploads.iterdir()), "the upload being dropped")


@pytest.mark.parametrize("data, expected", [
    (GET, "200 x=y"), (POST, "200 x=y"), (UPLOAD, "200"), (CHUNKED, "200 x=y")],
    ids=["page", "form", "upload", "chunks"])
def test_a_client_that_sends_byte_by_byte_is_answered(front, data, expected):
    if front.kind == "apache" and data == CHUNKED:
        pytest.skip("Apache refuses a body that comes in chunks")
    with front.connect() as connection:
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        for byte in data:
            connection.sendall(bytes([byte]))
            time.sleep(PAUSE)
        assert raw_http.words(raw_http.received(connection)) == expected


def test_a_slow_reader_receives_the_complete_response(front):
    with front.connect() as connection:
        connection.sendall(raw_http.raw("GET /servlet?p=big&lines=20000 HTTP/1.0"))
        received = b""
        while piece := connection.recv(0x10000):
            received += piece
            time.sleep(20 * PAUSE)
    assert received.count(b"b" * 99 + b"\n") == 20000


def test_a_client_that_does_not_read_affects_no_other(front):
    for _ in range(5):
        send_and_close(front, raw_http.get("/servlet?p=big&lines=20000"))
