"""Unread request bodies: no response is lost when the page reads the body in part or not at all, and
no thread waits for a front server to send more or to close its connection."""

import contextlib
import http.client
import re
import select
import socket
import struct
import threading
import time

import pytest

import fastcgi
from conftest import SOURCE
from ports import free_port, is_listening
from service import PATIENCE, wait_until

MIB = 1 << 20
HEAD = (b"--edge\r\nContent-Disposition: form-data; name=\"image\"; filename=\"image.bin\"\r\n"
        b"Content-Type: application/octet-stream\r\n\r\n")
TAIL = b"\r\n--edge--\r\n"
MULTIPART = "multipart/form-data; boundary=edge"
WAIT = "LIBFCGI_OS_CLOSE_POLL_TIMEOUT"
ANSWERED = b"read 0"
NOT_FOUND = "<h1>404 - Not Found</h1>"

# The address of a request, and the expected response to a body of `size` bytes.
CASES = {
    "read": (f"/servlet?p=body&most={100 * MIB}", lambda size: (200, f"read {size}")),
    "unread": ("/servlet?p=body", lambda size: (200, "read 0")),
    "read in part": ("/servlet?p=body&most=4096", lambda size: (200, "read 4096")),
    "refused by a listener": ("/servlet?p=forbidden", lambda size: (200, "refused")),
    "refused with a status": ("/servlet?p=status&code=403", lambda size: (403, "with a status")),
    "refused by the screening": ("/servlet?p=body&y=%3Cb", lambda size: (404, NOT_FOUND)),
    "refused without a page": ("/servlet?q=1", lambda size: (404, NOT_FOUND)),
}


def multipart(size):
    """Returns an upload of `size` bytes in all."""
    return HEAD + b"x" * (size - len(HEAD) - len(TAIL)) + TAIL


def send(connection, body, pause):
    """Sends sixteen pieces with a pause after each. The web server may close the connection after its
    response, before it has read them all."""
    piece = len(body) // 16
    with contextlib.suppress(BrokenPipeError, ConnectionResetError):
        for begin in range(0, len(body), piece):
            connection.sendall(memoryview(body)[begin:begin + piece])
            time.sleep(pause)


def head(target, content_type, length):
    return (f"POST {target} HTTP/1.1\r\nHost: phone\r\nContent-Type: {content_type}\r\n"
            f"{length}\r\n\r\n").encode()


def answer_on(connection):
    answer = http.client.HTTPResponse(connection, method="POST")
    answer.begin()
    return answer.status, answer.read().decode()


def post(front, target, body, content_type, pause=0.0):
    """Sends a body and reads the response meanwhile, as a browser does; returns its status and text."""
    with front.connect() as connection:
        connection.sendall(head(target, content_type, f"Content-Length: {len(body)}"))
        sender = threading.Thread(target=send, args=(connection, body, pause))
        sender.start()
        try:
            return answer_on(connection)
        except (OSError, http.client.HTTPException) as loss:
            return repr(loss)
        finally:
            with contextlib.suppress(OSError):
                connection.shutdown(socket.SHUT_RDWR)
            sender.join()


@pytest.fixture(params=CASES)
def case(request):
    return CASES[request.param]


@pytest.mark.parametrize("size, pause, times", [
    (MIB, 0, 20), (MIB, 0.02, 3), (64 * MIB, 0, 3)], ids=["1 MiB", "1 MiB slowly", "64 MiB"])
def test_no_response_to_an_upload_is_lost(web, case, size, pause, times):
    target, expected = case
    body = multipart(size)
    answers = [post(web, target, body, MULTIPART, pause) for _ in range(times)]
    assert answers == [expected(size)] * times


def test_no_response_to_a_received_upload_is_lost(web):
    answers = [post(web, "/servlet?p=upload", multipart(size), MULTIPART)
               for size in [MIB] * 20 + [64 * MIB] * 3]
    assert answers == [(200, "complete image.bin, note -")] * 23


def with_large_forms(folder):
    """Returns a folder with the configurations, changed for a device that accepts larger forms."""
    copies = folder / "large-forms"
    copies.mkdir()
    for path in (SOURCE / "packaging/front-servers").glob("*.*"):
        (copies / path.name).write_text(re.sub(
            r"(?m)^(server\.max-request-size +=) 64$|(client_max_body_size) 64k;|"
            r"(req_novary\('Content-Length'\) -gt) 65536\b",
            lambda found: (f"{found[1]} 1100" if found[1] else f"{found[2]} 1100k;" if found[2]
                           else f"{found[3]} 1126400"), path.read_text()))
    return copies


# The container does not read a form of more than 1 MiB.
@pytest.mark.parametrize("content_type, size", [
    ("application/octet-stream", MIB), ("application/x-www-form-urlencoded", MIB + 50000)])
@pytest.mark.parametrize("front", ["lighttpd", "nginx", "apache"])
def test_no_response_to_another_body_is_lost(start, folder, front, case, content_type, size):
    web = start.front(front, with_large_forms(folder))
    start.host("--listen", start.socket_path, "--threads", "4")
    target, expected = case
    body = b"x=" + b"y" * (size - 2)
    answers = [post(web, target, body, content_type) for _ in range(20)]
    assert answers == [expected(size)] * 20


def test_no_response_to_a_chunked_body_is_lost(web):
    chunk = b"10000\r\n" + b"x" * 0x10000 + b"\r\n"
    for _ in range(20):
        with web.connect() as connection:
            connection.sendall(head("/servlet?p=body", MULTIPART, "Transfer-Encoding: chunked"))
            with contextlib.suppress(BrokenPipeError, ConnectionResetError):
                connection.sendall(16 * chunk + b"0\r\n\r\n")
            status, text = answer_on(connection)
            if web.kind == "nginx":
                assert (status, text) == (200, "read 0")
            else:
                assert status == 411


def test_neither_the_response_nor_the_only_thread_waits_for_the_body(start, front):
    start.host("--listen", start.socket_path, "--threads", "1")
    for _ in range(3):
        with front.connect() as connection:
            begin = time.monotonic()
            connection.sendall(head("/servlet?p=body", MULTIPART, f"Content-Length: {8 * MIB}")
                               + b"x" * MIB)
            if front.kind == "apache":
                # It passes the answer on when the body has come to its end, which browsers send
                # anyway. The thread is free for others before that.
                assert front.curl("/servlet?p=facts").status == 200
                assert not select.select([connection], [], [], 0)[0]
                send(connection, b"x" * 7 * MIB, 0)
            assert answer_on(connection) == (200, "read 0")
            assert front.curl("/servlet?p=facts").status == 200
            assert time.monotonic() - begin < (4 if front.kind == "apache" else 1)


@pytest.fixture
def nginx_with_http2(start):
    config = start.folder / "http2"
    config.mkdir()
    text = (SOURCE / "packaging/front-servers/nginx.conf").read_text()
    listen = "listen 127.0.0.1:@PORT@;"
    assert listen in text
    (config / "nginx.conf").write_text(text.replace(listen, listen.replace(";", " http2;")))
    return start.front("nginx", config)


def frame(kind, stream=0, payload=b"", flags=0):
    """Returns a frame of HTTP/2 (RFC 9113, section 4.1)."""
    return struct.pack("!I", len(payload))[1:] + struct.pack("!BBI", kind, flags, stream) + payload


def field(index, value):
    """Returns a header field with a name of the static table (RFC 7541, section 6.2.2)."""
    name = bytes([index]) if index < 15 else bytes([15, index - 15])
    return name + bytes([len(value)]) + value


def begin_http2_upload(connection, target):
    """Sends the head of an upload whose length is not announced."""
    settings, headers, end_of_headers = 4, 1, 4
    post, http, path, authority, content_type = 0x83, 0x86, 4, 1, 31
    head = (bytes([post, http]) + field(path, target) + field(authority, b"phone")
            + field(content_type, MULTIPART.encode()))
    connection.sendall(b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + frame(settings)
                       + frame(headers, 1, head, end_of_headers))


def test_http2_uploads_that_send_nothing_block_no_thread(start, nginx_with_http2):
    start.host("--listen", start.socket_path, "--threads", "2")
    with contextlib.ExitStack() as opened:
        uploads = [opened.enter_context(nginx_with_http2.connect()) for _ in range(6)]
        for upload in uploads:
            begin_http2_upload(upload, b"/servlet?p=body")
        for upload in uploads:
            received = b""
            while ANSWERED not in received:
                piece = upload.recv(4096)
                assert piece, received
                received += piece
        begin = time.monotonic()
        answer = nginx_with_http2.curl("/servlet?p=body", "--http2-prior-knowledge")
        assert (answer.status, answer.text) == (200, ANSWERED.decode())
        assert time.monotonic() - begin < 1


def request(uri, length, content_type=MULTIPART, keep=False):
    """Returns a request as a web server sends it, without the body."""
    variables = fastcgi.variables(dict(
        REQUEST_METHOD="POST" if length else "GET", REQUEST_URI=uri,
        QUERY_STRING=uri.partition("?")[2], REMOTE_ADDR="127.0.0.1", CONTENT_TYPE=content_type,
        CONTENT_LENGTH=str(length)))
    return fastcgi.begin(keep=keep) + b"".join(fastcgi.stream(fastcgi.PARAMS, variables))


def stdin(content=b""):
    return fastcgi.record(fastcgi.STDIN, content)


def answer_until_end(connection):
    reply = fastcgi.reply(connection, until_end=True)
    assert str(reply) == "answer, complete"
    return reply.output


@pytest.fixture
def connect(start):
    """Connects to a daemon with one thread. Over TCP, because there a reset would discard the
    response."""
    def connect():
        return socket.create_connection(("127.0.0.1", port), PATIENCE)
    port = free_port()
    start.host(f"--listen=127.0.0.1:{port}", "--threads", "1")
    wait_until(lambda: is_listening(port), "listening")
    return connect


ANSWER = b"Content-Type: text/plain \r\n\r\n" + ANSWERED


@pytest.mark.parametrize("size", [MIB, 64 * MIB], ids=["1 MiB", "64 MiB"])
def test_a_peer_that_keeps_sending_receives_the_response(connect, size):
    piece = stdin(b"x" * 0x8000)
    for _ in range(5):
        with connect() as connection:
            connection.sendall(request("/servlet?p=body", size))
            time.sleep(0.05)  # the response has been sent
            for _ in range(size // 0x8000):
                connection.sendall(piece)
            connection.sendall(stdin())
            assert answer_until_end(connection) == ANSWER


@pytest.mark.parametrize("piece, pause", [(1, 0.01), (0x8000, 0)], ids=["bytes", "a flood"])
def test_a_peer_that_never_stops_sending_blocks_no_thread_and_is_cut_off(connect, piece, pause):
    def send_on():
        with contextlib.suppress(BrokenPipeError, ConnectionResetError):
            while True:
                connection.sendall(stdin(b"x" * piece))
                time.sleep(pause)

    with connect() as connection, connect() as next_one:
        begin = time.monotonic()
        connection.sendall(request("/servlet?p=body", 64 * MIB))
        sender = threading.Thread(target=send_on)
        sender.start()
        assert answer_until_end(connection) == ANSWER
        next_one.sendall(request("/servlet?p=body", 0) + stdin())
        assert answer_until_end(next_one) == ANSWER
        assert time.monotonic() - begin < 1
        sender.join()
        assert 1.5 < time.monotonic() - begin < 5


def time_until_closed(connection):
    begin = time.monotonic()
    closed = select.poll()
    closed.register(connection, 0)  # reports when the peer has closed both directions
    assert closed.poll(PATIENCE * 1000)
    return time.monotonic() - begin


@pytest.fixture
def connect_locally(start):
    def connect_locally():
        connection = socket.socket(socket.AF_UNIX)
        start.sockets.append(connection)
        connection.connect(start.socket_path)
        return connection
    return connect_locally


BODY = stdin(b"abc")
FORM = "application/x-www-form-urlencoded"
# What a peer sends that then neither sends more nor closes.
SILENCES = {
    "no end of an empty body": request("/servlet?p=body", 0),
    "half the end of an empty body": request("/servlet?p=body", 0) + stdin()[:4],
    "all": request("/servlet?p=body", 0) + stdin(),
    "half a record behind the request": request("/servlet?p=body", 0) + stdin() + BODY[:4],
    "a body that was not announced": request("/servlet?p=body", 0) + BODY,
    "nothing of an announced body": request("/servlet?p=body", 3),
    "half an announced body": request("/servlet?p=body", 3) + BODY[:9],
    "a form": request("/servlet?p=body", 3, FORM) + stdin(b"x=y") + stdin(),
    "half a record behind a form": (request("/servlet?p=body", 3, FORM) + stdin(b"x=y") + stdin()
                                    + BODY[:4]),
}


@pytest.mark.parametrize("setting", [None, "2000"], ids=["unset", "2 s"])
@pytest.mark.parametrize("sent", SILENCES.values(), ids=SILENCES)
def test_silent_peers_block_no_thread(start, connect_locally, setting, sent):
    start.environment.pop(WAIT, None)
    if setting:
        start.environment[WAIT] = setting
    start.host("--listen", start.socket_path, "--threads", "1")
    begin = time.monotonic()
    for connection in [connect_locally() for _ in range(5)]:
        connection.sendall(sent)
        assert answer_until_end(connection) == ANSWER
        assert connection.recv(1) == b"", "the end of the response"
    assert time.monotonic() - begin < 1


def test_the_connection_of_a_silent_peer_is_closed_after_two_seconds(start, connect_locally):
    start.host("--listen", start.socket_path, "--threads", "1")
    connection = connect_locally()
    connection.sendall(request("/servlet?p=body", 0))
    assert answer_until_end(connection) == ANSWER
    assert 1.8 < time_until_closed(connection) < 4


def test_many_silent_peers_keep_few_descriptors(start, connect_locally):
    host = start.host("--listen", start.socket_path, "--threads", "1")
    assert b"begin end" in start.cgi_fcgi("/servlet?p=slow")
    idle = host.descriptors()
    for _ in range(300):
        connection = connect_locally()
        connection.sendall(request("/servlet?p=body", 0))
        assert answer_until_end(connection) == ANSWER
        # The connections that wait for their ends, and the one whose response has just been sent.
        assert host.descriptors() <= idle + 64 + 1
    wait_until(lambda: host.descriptors() <= idle, "the connections closing")


@pytest.mark.parametrize("setting, least, most", [(None, 0, 0.4), ("500", 0.4, 1.5)],
                         ids=["unset", "500 ms"])
def test_the_wait_after_what_is_no_request_is_none_unless_the_environment_sets_one(
        start, connect_locally, setting, least, most):
    start.environment.pop(WAIT, None)
    if setting:
        start.environment[WAIT] = setting
    start.host("--listen", start.socket_path, "--threads", "1")
    connection = connect_locally()
    connection.sendall(fastcgi.record(fastcgi.BEGIN_REQUEST, version=9))
    assert least <= time_until_closed(connection) < most


def test_a_connection_that_is_to_be_kept_stays_open(start, connect_locally):
    start.host("--listen", start.socket_path, "--threads", "1")
    connection = connect_locally()
    for _ in range(3):
        connection.sendall(request("/servlet?p=body", 3, keep=True)
                           + stdin(b"abc") + stdin())
        assert answer_until_end(connection) == ANSWER


def test_a_peer_that_ends_an_empty_body_by_itself_finds_the_connection_open(
        start, connect_locally):
    """As some web servers and cgi-fcgi(1) do; those that cannot send the end give the answer up."""
    start.host("--listen", start.socket_path)
    connection = connect_locally()
    connection.sendall(request("/servlet?p=body", 0))
    assert answer_until_end(connection) == ANSWER
    time.sleep(0.2)
    connection.sendall(stdin())
    assert connection.recv(1) == b""


def test_a_peer_that_goes_without_ending_an_empty_body_is_not_waited_for(start, connect_locally):
    start.host("--listen", start.socket_path, "--threads", "1")
    first = connect_locally()
    first.sendall(request("/servlet?p=body", 0))
    assert answer_until_end(first) == ANSWER
    first.close()
    connection = connect_locally()
    connection.sendall(request("/servlet?p=body", 0) + stdin())
    assert answer_until_end(connection) == ANSWER


def test_a_body_that_was_not_announced_is_not_cut_off(start, connect_locally):
    start.host("--listen", start.socket_path)
    connection = connect_locally()
    connection.sendall(request("/servlet?p=body", 0))
    assert answer_until_end(connection) == ANSWER
    for _ in range(20):
        connection.sendall(stdin(b"x" * 1000))
        time.sleep(0.01)
    connection.sendall(stdin())
