"""What the relay between lighttpd and the daemon adds to a page, and what it does not change."""

import pathlib
import socket
import struct
import sys
import threading

import pytest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(SOURCE / "tools/servlet_serve"))
import relay

PAGE = b"Content-Type: text/html; charset=utf-8\r\nX-A: b\r\n\r\n<p>page</p>\n"


def passed(response, size, markup="<script></script>"):
    """Returns a response that has passed in pieces of `size` bytes."""
    script = relay.Script(markup)
    return b"".join(script.add(response[at:at + size])
                    for at in range(0, len(response), size)) + script.end()


@pytest.mark.parametrize("size", [1, 7, 1000])
def test_a_page_ends_with_the_script_and_is_not_stored(size):
    assert passed(PAGE, size) == b"Cache-Control: no-store\r\n" + PAGE + b"<script></script>"


def test_headers_that_would_be_wrong_are_left_out():
    wrong = b"Content-Length: 12\r\nETag: \"1\"\r\ncache-control: max-age=9\r\nLast-Modified: x\r\n"
    assert passed(wrong + PAGE, 1000) == passed(PAGE, 1000)


@pytest.mark.parametrize("size", [1, 7, 1000])
@pytest.mark.parametrize("response", [
    b"Content-Type: text/plain\r\n\r\ntext/html\r\n\r\n", b"Content-Type: text/html\r\n", b"", b"\r\n\r\n",
    b"Content-Encoding: gzip\r\n" + PAGE, b"Content-Disposition: attachment; filename=a.html\r\n" + PAGE
])
def test_everything_else_passes_unchanged(response, size):
    assert passed(response, size) == response


def test_a_response_without_an_end_of_its_header_is_not_kept_back():
    response = b"X: " + b"x" * relay.MAX_HEAD
    assert relay.Script("").add(response) == response
    assert passed(response + PAGE, 10_000) == response + PAGE


def variables(pairs):
    def length(text):
        return struct.pack(">I", len(text) | 1 << 31) if len(text) > 127 else bytes([len(text)])
    return b"".join(length(name) + length(value) + name + value for name, value in pairs.items())


def test_variables_are_decoded():
    known = {b"A": b"", b"B" * 200: b"c" * 70_000, b"HTTP_HOST": b"\xff"}
    assert relay.decode_params(variables(known)) == {"A": "", "B" * 200: "c" * 70_000, "HTTP_HOST": "\ufffd"}


def test_variables_that_are_cut_off_are_left_out():
    whole = variables({b"A": b"b", b"C" * 200: b"d" * 200})
    for size in range(len(whole)):
        assert relay.decode_params(whole[:size]) in ({}, {"A": "b"})


@pytest.mark.parametrize("name, is_local", [
    ("127.0.0.1", True), ("localhost:8080", True), ("LOCALHOST", True), ("[::1]:80", True), ("", False),
    ("phone.example", False), ("127.0.0.1.example", False), ("localhost:8080\n", False), ("127x0.0.1", False)])
def test_only_names_of_this_machine_are_local(name, is_local):
    assert bool(relay.LOCAL_HOST.fullmatch(name)) == is_local


def test_each_change_of_the_state_ends_the_wait_for_it():
    state = relay.State()
    version, problem, is_serving = state.get()
    assert (problem, is_serving) == (None, False)
    assert state.wait_for_change("another version")
    threading.Timer(0.05, state.set, [None, True]).start()
    assert state.wait_for_change(version)
    assert state.get()[0] != version and state.get()[2]


def serve(data):
    """Returns the relay's answer to what a front server sends, when no daemon serves."""
    front, connection = socket.socketpair()
    served = threading.Thread(target=relay.Relay(None, None, relay.State(), None, str)._serve,
                              args=(connection,))
    served.start()
    with front:
        front.sendall(data)
        front.shutdown(socket.SHUT_WR)
        answer = b"".join(iter(lambda: front.recv(65536), b""))
    served.join(10)
    assert not served.is_alive()
    return answer


def test_a_request_without_a_daemon_gets_503():
    request = (relay.record(relay.PARAMS, variables({b"HTTP_HOST": b"localhost"})) +
               relay.record(relay.PARAMS) + relay.record(relay.STDIN, b"form") + relay.record(relay.STDIN))
    assert b"Status: 503\r\n" in serve(request)
    for size in range(len(request)):
        serve(request[:size])


def test_the_assets_are_served_under_a_local_name_only():
    def asked(host):
        return serve(relay.record(relay.PARAMS, variables({
            b"REQUEST_URI": relay.PREFIX.encode() + b"problem.css", b"HTTP_HOST": host}))
            + relay.record(relay.PARAMS) + relay.record(relay.STDIN))
    assert b"Status: 200\r\nContent-Type: text/css" in asked(b"localhost:8080")
    assert b"Status: 404\r\n" in asked(b"phone.example")
