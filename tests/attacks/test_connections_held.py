"""Attack: hold all connections of the web server by requests that never end.

lighttpd and Apache serve nobody else meanwhile, which docs/security.md lists as a known weakness. Users
must be served as soon as the connections are free again."""

import contextlib

import raw_http

CONNECTIONS = 300  # more than the configurations allow
BEGINNING = b"GET /servlet?p=facts HTTP/1.1\r\nHost: phone\r\nX-"


def test_users_wait_until_a_connection_is_free_and_are_served_then(start, front):
    host = start.host("--listen", start.socket_path)
    with contextlib.ExitStack() as held:
        for _ in range(CONNECTIONS):
            held.enter_context(front.connect()).sendall(BEGINNING)
        if front.kind != "nginx":
            assert raw_http.ask(front, raw_http.get(), "waits") == "waits"
    assert raw_http.ask(front, raw_http.get()) == "200 x=y"
    assert host.stop() == 0
