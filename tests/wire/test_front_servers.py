"""What is configured differently for each web server: variables, TLS, and who starts the daemon."""

import os
import re
import signal
from pathlib import Path

import pytest

import fastcgi
from conftest import SOURCE
from service import PATIENCE, in_background, wait_until
from test_pages import facts

CONFIG = SOURCE / "packaging/front-servers"
FRONTS = ["lighttpd", "nginx", "apache"]


@pytest.mark.parametrize("kind, additions", [
    ("lighttpd", ["variables"]), ("nginx", []), ("apache", [])], ids=FRONTS)
def test_a_page_sees_the_browser_and_its_address(start, kind, additions):
    front = start.front(kind, CONFIG, *additions)
    start.host("--listen", start.socket_path)
    known, _ = facts(front.curl("/servlet?p=facts", "--user-agent", "Browser/1 (of a kind)",
                                "--referer", "http://phone/servlet?p=status&x=%20"))
    assert known["agent"] == "Browser/1 (of a kind)"
    assert known["referrer"] == "http://phone/servlet?p=status&x=%20"
    assert known["context"] == ""

    known, _ = facts(front.curl("/servlet?p=facts", "--user-agent", ""))
    assert known["agent"] == known["referrer"] == "(null)"


@pytest.fixture(params=FRONTS)
def secure(request, start):
    """A web server with TLS, and the options with which curl trusts it."""
    certificate = start.certificate()
    return start.front(request.param, CONFIG, "tls"), ("--cacert", certificate)


def test_pages_and_uploads_go_through_tls(start, secure, folder):
    front, trust = secure
    start.host("--listen", start.socket_path)
    assert facts(front.curl("/servlet?p=facts&x=y", *trust))[1] == ["y"]
    assert facts(front.curl("/servlet?p=facts", *trust, "--data", "x=form"))[1] == ["form"]
    image = folder / "image.bin"
    image.write_bytes(os.urandom(1 << 20))
    answer = front.curl("/servlet?p=upload", *trust, "--form", f"image=@{image}")
    assert answer.text == "complete image.bin, note -"
    assert (folder / "uploads/image").read_bytes() == image.read_bytes()


def test_a_client_that_does_not_trust_the_certificate_hangs_up(secure):
    front, _ = secure
    with pytest.raises(AssertionError, match="certificate"):
        front.curl("/")


def variables_of_a_request(listener, front, *options):
    """Returns the variables that a web server sends; the request is not answered."""
    listener.settimeout(PATIENCE)
    params = b""
    with in_background(lambda: front.curl("/servlet?p=facts", *options)):
        with listener.accept()[0] as incoming:
            incoming.settimeout(PATIENCE)
            for record in fastcgi.records(incoming):
                params += record.content if record.kind == fastcgi.PARAMS else b""
                if record.kind == fastcgi.PARAMS and not record.content:
                    break
    return dict(fastcgi.pairs(params))


# The headers in the table of docs/guide/request-headers.md.
HEADERS = {
    "Accept-Language": "de", "Authorization": "Bearer 1234", "Cookie": "a=b",
    "If-Match": '"1"', "If-Modified-Since": "Sun, 22 Nov 2026 17:00:00 GMT", "If-None-Match": '"1"',
    "Origin": "http://phone", "Range": "bytes=0-9", "Referer": "http://phone/",
    "Sec-Fetch-Site": "same-origin", "User-Agent": "Browser/1", "X-Token": "abc"}


def test_pages_see_the_headers_that_clients_send(start, front):
    options = [word for name, value in HEADERS.items() for word in ("--header", f"{name}: {value}")]
    variables = variables_of_a_request(start.shared_socket(), front, *options)
    passed = {name: variables.get("HTTP_" + name.upper().replace("-", "_")) for name in HEADERS}
    assert passed == HEADERS


def test_a_name_with_an_underscore_is_dropped_except_by_lighttpd(start, front):
    variables = variables_of_a_request(start.shared_socket(), front, "--header", "X_Token: abc")
    assert variables.get("HTTP_X_TOKEN") == ("abc" if front.kind == "lighttpd" else None)


def test_the_daemon_sees_that_tls_is_used(start, secure):
    front, trust = secure
    assert variables_of_a_request(start.shared_socket(), front, *trust)["HTTPS"] == "on"


def test_the_daemon_sees_that_tls_is_not_used(start, front):
    assert "HTTPS" not in variables_of_a_request(start.shared_socket(), front)


def version(answer):
    return answer.raw.split(maxsplit=1)[0].decode()


def test_no_web_server_speaks_http_2_without_tls(start, front):
    start.host("--listen", start.socket_path)
    # The connection preface of HTTP/2, and the settings of both sides.
    with front.connect() as connection:
        connection.sendall(b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + bytes([0, 0, 0, 4, 0, 0, 0, 0, 0]))
        answer = connection.recv(9)
    assert answer[3:4] != b"\4", answer


def test_no_web_server_speaks_http_2_over_tls(start, secure):
    front, trust = secure
    start.host("--listen", start.socket_path)
    answer = front.curl("/servlet?p=facts", *trust, "--http2")
    assert version(answer) == "HTTP/1.1"
    assert facts(answer)[0]["protocol"] == "HTTP/1.1"


def test_a_daemon_that_starts_later_is_used_at_once(start, front):
    assert front.curl("/servlet?p=facts").status in (502, 503)
    start.host("--listen", start.socket_path)
    # lighttpd retries after a second.
    wait_until(lambda: front.curl("/servlet?p=facts").status == 200, "an answer", 3)


@pytest.fixture
def impatient(folder):
    """The configurations with all time-outs set to one second."""
    copies = folder / "impatient"
    copies.mkdir()
    for path in CONFIG.glob("*.*"):
        (copies / path.name).write_text(re.sub(
            r"(?m)^( *(?:server\.max-read-idle =|(?:client_header|client_body|fastcgi_read)_timeout|"
            r"Timeout)) 60s?\b|\bheader=20-60,MinRate=500 body=60,MinRate=500",
            lambda found: f"{found[1]} 1" if found[1] else "header=1 body=1,MinRate=500", path.read_text()))
    return copies


@pytest.mark.parametrize("kind", ["nginx", "apache"])
def test_a_daemon_that_does_not_answer_times_out(start, impatient, kind):
    front = start.front(kind, impatient)
    silent = start.shared_socket()
    # Long before the servers' default of a minute.
    patience = ("--max-time", PATIENCE)
    assert front.curl("/servlet?p=facts", *patience).status == 504
    assert front.curl("/servlet?p=facts", *patience, "--form", "x=upload").status == 504
    # The next request is forwarded as usual.
    silent.close()
    Path(start.socket_path).unlink()
    start.host("--listen", start.socket_path)
    assert front.curl("/servlet?p=facts").status == 200


def test_lighttpd_waits_for_a_daemon(start, impatient):
    front = start.front("lighttpd", impatient)
    start.host("--listen", start.socket_path)
    assert front.curl("/servlet?p=slow&ms=3500").status == 200


@pytest.mark.parametrize("kind", FRONTS)
def test_a_slow_upload_does_not_time_out(start, impatient, folder, kind):
    front = start.front(kind, impatient)
    start.host("--listen", start.socket_path)
    image = folder / "image.bin"
    image.write_bytes(os.urandom(400_000))
    answer = front.curl("/servlet?p=upload", "--limit-rate", "100K", "--form", f"image=@{image}")
    assert answer.text == "complete image.bin, note -"


@pytest.mark.parametrize("begun", [
    b"GET /servlet?p=facts HTTP/1.1\r\nHost: a\r\n",
    b"POST /servlet?p=facts HTTP/1.1\r\nHost: a\r\nContent-Length: 9\r\n"
    b"Content-Type: application/x-www-form-urlencoded\r\n\r\nx="], ids=["header", "form"])
@pytest.mark.parametrize("kind", FRONTS)
def test_a_stalled_client_is_disconnected(start, impatient, kind, begun):
    front = start.front(kind, impatient)
    start.host("--listen", start.socket_path)
    with front.connect() as connection:
        connection.settimeout(PATIENCE)
        connection.sendall(begun)
        answer = b""
        while more := connection.recv(1 << 16):
            answer += more
    assert answer[:13] in (b"", b"HTTP/1.1 408 ", b"HTTP/1.1 400 "), answer
    assert front.curl("/servlet?p=facts").status == 200


def only_daemon(start):
    """Returns the process id of the only daemon that lighttpd has started."""
    lighttpd = start.processes[0].pid

    def children():
        return Path(f"/proc/{lighttpd}/task/{lighttpd}/children").read_text().split()
    wait_until(lambda: len(children()) == 1, "one daemon")
    return int(children()[0])


def test_lighttpd_starts_the_daemon_with_the_socket_as_descriptor_0(start):
    front = start.front("lighttpd_spawn", CONFIG)
    assert front.curl("/servlet?p=facts").status == 200
    daemon = only_daemon(start)
    name = os.readlink(f"/proc/{daemon}/fd/0")
    inode = re.fullmatch(r"socket:\[(\d+)\]", name).group(1)
    sockets = Path("/proc/net/unix").read_text().splitlines()
    assert any(line.split()[6] == inode and start.socket_path in line for line in sockets)


def test_lighttpd_starts_another_daemon_when_one_has_ended(start):
    front = start.front("lighttpd_spawn", CONFIG)
    assert front.curl("/servlet?p=facts").status == 200
    daemon = only_daemon(start)
    os.kill(daemon, signal.SIGKILL)
    wait_until(lambda: front.curl("/servlet?p=facts").status == 200, "the next daemon")
    assert only_daemon(start) != daemon


def test_lighttpd_shuts_the_daemon_down_gracefully(start, folder):
    front = start.front("lighttpd_spawn", CONFIG)
    assert front.curl("/servlet?p=slow&user=anna").text == "begin end"
    daemon = only_daemon(start)
    start.processes[0].terminate()
    start.processes[0].wait(PATIENCE)
    wait_until(lambda: not Path(f"/proc/{daemon}").exists(), "the daemon ending")
    # The servlet, then the session, which the log's user ends with, then the library.
    end = re.findall(r"\[web\]( user=anna)?: (slow destroyed|library closed)$",
                     (folder / "lighttpd_spawn.log").read_text(), re.M)
    assert end == [(" user=anna", "slow destroyed"), ("", "library closed")]
    assert (folder / "destroyed").read_text() == "slow\n"


@pytest.fixture
def start_as_shown(start, folder):
    """Starts the daemon with a script of packaging/front-servers/."""
    def start_as_shown(name):
        programs = folder / "bin"
        programs.mkdir()
        (programs / "fcgi_host").symlink_to(start.build.wire_host)
        environment = dict(start.environment, STATE_DIR=str(start.state),
                           PATH=f"{programs}:{os.environ['PATH']}")
        # systemd-socket-activate does not forward WIRE_FOLDER.
        process = start.start("sh", CONFIG / name, log="host.log", env=environment, cwd=folder)
        start.wait_for_socket(process)
        return process
    return start_as_shown


@pytest.mark.parametrize("name", ["start-listening", "start-from-socket"])
def test_a_daemon_in_the_foreground_serves_until_it_is_stopped(
        start_as_shown, front, name):
    process = start_as_shown(name)
    assert front.curl("/servlet?p=slow").text == "begin end"
    process.terminate()
    assert process.wait(PATIENCE) == 0
