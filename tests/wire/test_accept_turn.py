"""The daemon reads a request within its turn to accept: one that does not come to its end holds up
all others. A connection of a front server can do that; one of a client of a web server
cannot."""

import contextlib
import http.client
import select
import time

import pytest

import fastcgi
import raw_http
from bad_records import Request
from facts import PAGE
from service import PATIENCE, wait_until

REQUEST = b"".join(Request(PAGE).records())
PARAMS_END = len(REQUEST) - len(b"".join(fastcgi.stream(fastcgi.STDIN, b"x=y")))
WHILE = 0.2  # seconds, within which a response would have arrived


def has_news(connection, seconds=WHILE):
    return bool(select.select([connection], [], [], seconds)[0])


@pytest.fixture(params=[1, 4], ids=["one thread", "four threads"])
def threads(request, start):
    start.host("--listen", start.socket_path, "--threads", str(request.param))


@pytest.fixture
def connect(start):
    with contextlib.ExitStack() as opened:
        yield lambda: opened.enter_context(fastcgi.connect(start.socket_path))


# How much of a request has arrived.
BEGINNINGS = {"nothing": 0, "half a record's head": 4, "half a beginning": 12, "a beginning": 16,
              "half the variables": 100, "all but the end of the variables": PARAMS_END - 1}


@pytest.fixture(params=BEGINNINGS.values(), ids=BEGINNINGS)
def size(request):
    return request.param


@pytest.fixture
def held(threads, connect, size):
    """Two connections: the daemon is reading the first, so the second one waits."""
    first, second = connect(), connect()
    first.sendall(REQUEST[:size])
    second.sendall(REQUEST)
    assert not has_news(second)
    return first, second


def test_a_request_waits_until_the_previous_connection_is_closed(held):
    first, second = held
    first.close()
    assert str(fastcgi.reply(second)) == "answer, complete"


def test_a_request_waits_until_the_previous_one_is_complete(held, size):
    first, second = held
    first.sendall(REQUEST[size:])
    assert str(fastcgi.reply(first)) == str(fastcgi.reply(second)) == "answer, complete"


def kept(connection, uri=PAGE):
    connection.sendall(fastcgi.begin(keep=True) + b"".join(Request(uri).records()[1:]))
    assert str(fastcgi.reply(connection, until_end=True)) == "answer, complete"


def test_a_kept_connection_blocks_the_only_thread(start, connect):
    start.host("--listen", start.socket_path, "--threads", "1")
    first, second = connect(), connect()
    kept(first)
    second.sendall(REQUEST)
    assert not has_news(second)
    kept(first)
    assert not has_news(second)
    first.close()
    assert str(fastcgi.reply(second)) == "answer, complete"


def test_a_kept_connection_waits_for_another_thread_to_accept(start, connect):
    # When the first thread has finished, the other one already holds the accept lock.
    slow = "/servlet?p=slow&ms=200"
    start.host("--listen", start.socket_path, "--threads", "2")
    first = connect()
    kept(first, slow)
    first.sendall(REQUEST)
    assert not has_news(first)
    second = connect()
    second.sendall(b"".join(Request(slow).records()))
    assert str(fastcgi.reply(first)) == str(fastcgi.reply(second)) == "answer, complete"


def test_half_a_form_blocks_one_thread_only(start, connect):
    start.host("--listen", start.socket_path, "--threads", "2")
    first, second, third = connect(), connect(), connect()
    first.sendall(REQUEST[:PARAMS_END])
    second.sendall(REQUEST)
    assert str(fastcgi.reply(second)) == "answer, complete"
    third.sendall(REQUEST[:PARAMS_END])
    with connect() as fourth:
        fourth.sendall(REQUEST)
        assert not has_news(fourth), "both threads read a form"
        first.close()
        assert str(fastcgi.reply(fourth)) == "answer, complete"


GET, FORM = raw_http.get(), raw_http.post("Content-Length: 3")
CHUNKED = raw_http.chunked(b"3\r\nx=y\r\n0\r\n\r\n")
# What a client sends before it pauses.
CLIENTS = {
    "nothing": (GET, 0), "half a line": (GET, 10), "a line": (GET, GET.index(b"Host")),
    "half a head": (GET, 50), "all but the last byte of a head": (GET, len(GET) - 1),
    "half the head of a form": (FORM, 100), "the head of a form": (FORM, len(FORM) - 3),
    "half a form": (FORM, len(FORM) - 1),
    "the head of a chunked form": (CHUNKED, len(CHUNKED) - 13),
    "half a chunk": (CHUNKED, len(CHUNKED) - 9),
    "all but the last chunk": (CHUNKED, len(CHUNKED) - 5),
}


@pytest.fixture(params=CLIENTS.values(), ids=CLIENTS)
def client(request, front):
    if front.kind == "apache" and request.param[0] == CHUNKED:
        pytest.skip("Apache refuses a body that comes in chunks")
    return request.param


def test_no_client_blocks_another(start, front, client):
    start.host("--listen", start.socket_path, "--threads", "1")
    whole, sent = client
    with contextlib.ExitStack() as opened:
        clients = [opened.enter_context(front.connect()) for _ in range(5)]
        for connection in clients:
            connection.sendall(whole[:sent])
        time.sleep(WHILE / 4)
        begin = time.monotonic()
        assert raw_http.ask(front, GET) == "200 x=y"
        assert time.monotonic() - begin < 2
        for connection in clients:
            connection.sendall(whole[sent:])
            assert raw_http.words(raw_http.received(connection)) == "200 x=y"


@pytest.mark.parametrize("beginning", [
    b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", b"\x16\x03\x01", b"\r\n", bytes(100)],
    ids=["HTTP/2", "TLS", "an empty line", "zero bytes"])
def test_a_client_of_another_protocol_blocks_no_other(start, front, beginning):
    start.host("--listen", start.socket_path, "--threads", "1")
    with contextlib.ExitStack() as opened:
        for _ in range(5):
            opened.enter_context(front.connect()).sendall(beginning)
        time.sleep(WHILE / 4)
        assert raw_http.ask(front, GET) == "200 x=y"


def test_a_client_that_keeps_its_connection_blocks_no_other(start, front):
    host = start.host("--listen", start.socket_path, "--threads", "1")
    assert raw_http.ask(front, GET) == "200 x=y"
    idle = host.descriptors()
    request = f"GET {raw_http.PAGE} HTTP/1.1\r\nHost: phone\r\n\r\n".encode()
    with contextlib.ExitStack() as opened:
        clients = [opened.enter_context(front.connect()) for _ in range(5)]
        for connection in clients * 2:
            connection.sendall(request)
            answer = http.client.HTTPResponse(connection)
            answer.begin()
            assert (answer.status, answer.read()[-4:]) == (200, b"x=y\n")
        assert raw_http.ask(front, GET) == "200 x=y"
        wait_until(lambda: host.descriptors() <= idle, "the connections to the daemon closing")


def test_half_an_upload_blocks_one_thread_only(start, front):
    start.host("--listen", start.socket_path, "--threads", "2")
    head = raw_http.raw("POST /servlet?p=upload HTTP/1.1", "Host: phone",
                        "Content-Type: multipart/form-data; boundary=edge",
                        f"Content-Length: {1 << 20}", body=b"x" * (1 << 19))
    with front.connect() as connection:
        connection.sendall(head)
        time.sleep(WHILE)
        assert raw_http.ask(front, GET) == "200 x=y"


@pytest.fixture
def backend(start):
    """A listening socket in the place of the daemon."""
    listener = start.shared_socket()
    listener.settimeout(PATIENCE)
    return listener


def test_a_request_reaches_the_daemon_when_it_is_complete(backend, front, client):
    whole, sent = client
    with front.connect() as connection:
        connection.sendall(whole[:sent])
        assert not has_news(backend)
        connection.sendall(whole[sent:])
        with backend.accept()[0] as incoming:
            first, *rest = until_end_of_stdin(incoming)
    assert first.kind == fastcgi.BEGIN_REQUEST
    assert first.content[2] == 0, "the connection is to be kept"
    assert {each.kind for each in rest} == {fastcgi.PARAMS, fastcgi.STDIN}


def until_end_of_stdin(connection):
    """Reads the records of one request, which must arrive without a pause."""
    connection.settimeout(2)
    received = []
    for record in fastcgi.records(connection):
        received.append(record)
        if record.kind == fastcgi.STDIN and not record.content:
            return received
    raise AssertionError(f"no end after {len(received)} records")
