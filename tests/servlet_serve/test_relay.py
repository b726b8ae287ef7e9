"""What the relay between lighttpd and the daemon adds to a page, and what it does not change."""

import pathlib
import socket
import struct
import sys
import threading

import pytest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(SOURCE / "tools/servlet_serve"))
import problems
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
    script = relay.Script("<script></script>")
    assert script.add(response) + script.end() == response
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


# ---- Whole requests

# FastCGI 1.0, section 8.
END_REQUEST, PARAMS, STDIN, STDOUT = 3, 4, 5, 6

def request(**more):
    """Returns the records of a request of a browser for a page; its id is 258."""
    named = {"REQUEST_URI": "/servlet?p=x", "HTTP_HOST": "localhost:8080", "HTTP_ACCEPT": "text/html,*/*",
             "REQUEST_METHOD": "GET", **more}
    encoded = variables({name.encode(): value.encode() for name, value in named.items()})
    return (struct.pack(">BBHHBxHB5x", 1, 1, 258, 8, 0, 1, 0) + relay.records(PARAMS, encoded, 258) +
            relay.record(PARAMS, b"", 258) + relay.record(STDIN, b"form", 258) +
            relay.record(STDIN, b"", 258))


def answered(body, request_id=258):
    """Returns the records of a response, in two pieces."""
    return (relay.record(STDOUT, body[:40], request_id) + relay.record(STDOUT, body[40:], request_id) +
            relay.record(STDOUT, b"", request_id) + relay.record(END_REQUEST, bytes(8), request_id))


def stdout_of(data):
    """Returns what the records of a response contain. Checks each header."""
    stdout, kinds, at = b"", [], 0
    while at < len(data):
        version, kind, request_id, length, padding = struct.unpack_from(">BBHHBx", data, at)
        assert (version, request_id) == (1, 258)
        at += 8
        if kind == 6:
            stdout += data[at:at + length]
        kinds.append((kind, length))
        at += length + padding
    assert at == len(data)
    assert kinds[-2:] == [(6, 0), (3, 8)], "the stream ends before the request"
    return stdout.decode()


class Relayed:
    """A relay, and the daemon behind it, which answers each request in the same way."""

    def __init__(self, folder, answer):
        self.path = folder / "daemon"
        self.answer = answer
        self.received = b""
        self.state = relay.State()
        self.state.set(None, True)
        self.relay = relay.Relay(None, self.path, self.state, folder, lambda: "last words\n")
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(str(self.path))
        self.listener.listen()

    def _daemon(self):
        connection, _ = self.listener.accept()
        with connection:
            while not self.received.endswith(relay.record(STDIN, b"", 258)):
                self.received += connection.recv(65536)
            connection.sendall(self.answer)

    def ask(self, sent, has_daemon=True):
        """Returns the records that a front server gets for what it sends."""
        front, connection = socket.socketpair()
        daemon = threading.Thread(target=self._daemon if has_daemon else lambda: None)
        daemon.start()
        served = threading.Thread(target=self.relay._serve, args=(connection,))
        served.start()
        with front:
            front.sendall(sent)
            answer = b"".join(iter(lambda: front.recv(65536), b""))
        served.join(10)
        daemon.join(10)
        assert not served.is_alive() and not daemon.is_alive()
        return answer


@pytest.fixture
def relayed(tmp_path, monkeypatch):
    made = []

    def relayed(answer=answered(PAGE)):
        monkeypatch.chdir(tmp_path)  # a short path for the socket
        made.append(Relayed(pathlib.Path(), answer))
        return made[-1]
    yield relayed
    for one in made:
        one.listener.close()


def test_a_page_gets_the_script_with_the_version_at_its_end(relayed):
    one = relayed()
    page = stdout_of(one.ask(request()))
    assert page == ("Cache-Control: no-store\r\n" + PAGE.decode() + '<script src="/servlet/development/reload.js" '
                    f'data-version="{one.state.get()[0]}"></script>\n')
    assert one.received == request(), "unchanged"


@pytest.mark.parametrize("more", [
    {"HTTP_ACCEPT": "*/*"}, {"HTTP_ACCEPT": ""}, {"HTTP_HOST": "phone.example"}])
def test_the_answers_to_scripts_and_to_other_names_pass_unchanged(relayed, more):
    one = relayed()
    assert one.ask(request(**more)) == answered(PAGE)
    assert one.received == request(**more)


def test_the_answer_to_head_gets_no_script(relayed):
    assert "<script" not in stdout_of(relayed().ask(request(REQUEST_METHOD="HEAD")))


def test_a_page_whose_stream_is_not_closed_gets_the_script(relayed):
    one = relayed(relay.record(STDOUT, PAGE, 258) + relay.record(END_REQUEST, bytes(8), 258))
    answer = one.ask(request())
    assert answer.index(b"</script>") < answer.index(relay.record(END_REQUEST, bytes(8), 258))


def test_a_daemon_that_ends_is_a_page(relayed):
    page = stdout_of(relayed(b"").ask(request()))
    assert page.startswith("Status: 500\r\nContent-Type: text/html; charset=utf-8\r\n")
    assert "The daemon ended while it served this page" in page and "last words\n" in page


def test_a_daemon_that_ends_within_a_page_leaves_what_it_has_sent(relayed):
    answer = relayed(relay.record(STDOUT, PAGE, 258)).ask(request())
    assert b"<p>page</p>" in answer and b"last words" not in answer


def test_a_problem_is_shown_to_those_who_ask_for_a_page_on_this_machine(relayed):
    one = relayed()
    one.state.set(problems.Problem("It is <wrong>", (), "x" * 100_000), True)
    page = stdout_of(one.ask(request(), has_daemon=False))
    assert page.startswith("Status: 500\r\n") and "<h1>It is &lt;wrong&gt;</h1>" in page
    assert "default-src 'none'; script-src 'self'" in page and "Cache-Control: no-store\r\n" in page
    assert f'data-version="{one.state.get()[0]}"' in page
    assert one.received == b""
    assert one.ask(request(HTTP_ACCEPT="*/*")) == answered(PAGE)


def test_a_project_that_was_never_built_answers_scripts_with_503(relayed):
    one = relayed()
    one.state.set(problems.Problem("wrong"), False)
    assert stdout_of(one.ask(request(HTTP_ACCEPT="*/*"), has_daemon=False)).startswith("Status: 503\r\n")
    assert "<h1>wrong</h1>" in stdout_of(one.ask(request(), has_daemon=False))


def asked_for(one, address, **more):
    return stdout_of(one.ask(request(REQUEST_URI=relay.PREFIX + address, **more), has_daemon=False))


@pytest.mark.parametrize("name, content_type", relay.ASSETS.items())
def test_the_assets_are_complete(relayed, name, content_type):
    answer = asked_for(relayed(), f"{name}?x=y")
    assert f"Content-Type: {content_type}\r\n" in answer
    assert answer.endswith("\r\n\r\n" + (SOURCE / "tools/servlet_serve" / name).read_text())


@pytest.mark.parametrize("name", ["", "relay.py", "../relay.py", "other", "reload.js/"])
def test_no_other_file_is_served(relayed, name):
    assert asked_for(relayed(), name).startswith("Status: 404\r\n")


def test_a_wait_for_a_change_ends_with_it_or_after_a_while(relayed, monkeypatch):
    one = relayed()
    monkeypatch.setattr(relay, "WAIT", 0.05)
    version = one.state.get()[0]
    assert asked_for(one, f"changed?since={version}").startswith("Status: 204\r\n")
    for other in ("changed?since=another", "changed"):
        assert asked_for(one, other).startswith("Status: 200\r\n")
    # A page of another name must not learn when the author saves.
    assert asked_for(one, "changed?since=another", HTTP_HOST="phone.example").startswith("Status: 404\r\n")


def test_a_wait_ends_as_soon_as_the_state_changes(monkeypatch):
    monkeypatch.setattr(relay, "WAIT", 3600)
    state = relay.State()
    version, changed = state.get()[0], []
    waiting = threading.Thread(target=lambda: changed.append(state.wait_for_change(version)), daemon=True)
    waiting.start()
    while not state._changed._waiters:  # until it waits
        pass
    state.set(None, True)
    waiting.join(10)
    assert changed == [True]


def test_two_servers_never_have_the_same_version():
    assert relay.State().get()[0] != relay.State().get()[0]


def test_a_large_answer_is_split_into_records():
    content = bytes(200_000)
    data = relay.records(STDOUT, content, 258) + relay.record(STDOUT, b"", 258) + \
        relay.record(END_REQUEST, bytes(8), 258)
    assert len(stdout_of(data)) == 200_000


def test_records_with_padding_are_read():
    one, other = socket.socketpair()
    with one, other:
        raw = struct.pack(">BBHHBx", 1, STDOUT, 258, 3, 5) + b"abc" + bytes(5)
        one.sendall(raw + raw[:-1])
        one.shutdown(socket.SHUT_WR)
        assert relay.read_record(other) == (STDOUT, 258, b"abc", raw)
        assert relay.read_record(other) is None, "cut off"
        assert relay.read_record(other) is None, "the end"


def test_a_daemon_is_ready_once_it_closes_a_connection_without_a_request(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    assert not relay.is_ready("daemon")
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind("daemon")
        listener.listen()

        def answer(data):
            connection, _ = listener.accept()
            with connection:
                assert connection.recv(1) == b"", "the end of a request that is none"
                connection.sendall(data)
        for data in (b"", b"x"):
            daemon = threading.Thread(target=answer, args=(data,))
            daemon.start()
            assert relay.is_ready("daemon") == (data == b"")
            daemon.join()


def test_connections_are_accepted_after_one_that_could_not_be(relayed):
    front, connection = socket.socketpair()

    class Listener:
        calls = 0

        def accept(self):
            self.calls += 1
            if self.calls == 1:
                raise OSError("Too many open files")
            if self.calls > 2:
                threading.Event().wait()
            return connection, None
    one = relayed()
    one.relay.listener = Listener()
    one.relay.start()
    with front:
        front.sendall(request(REQUEST_URI=relay.PREFIX + "none"))
        assert b"Status: 404\r\n" in b"".join(iter(lambda: front.recv(65536), b""))
