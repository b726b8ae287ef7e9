"""HTTP as no browser sends it, and the words for what comes back."""

import contextlib
import re
import socket

import service

PLAIN = "/servlet?p=facts"
PAGE = PLAIN + "&x=y"
FORM = "application/x-www-form-urlencoded"
SILENCE = 0.2  # seconds after which a web server is taken to wait for more


def as_bytes(text):
    return text if isinstance(text, bytes) else text.encode("latin-1")


def raw(line, *headers, body=b""):
    """A request of a line and headers as they are, without any that would be missing."""
    return b"\r\n".join(map(as_bytes, (line, *headers))) + b"\r\n\r\n" + body


def line(text):
    return raw(text, "Host: phone", "Connection: close")


def get(target=PAGE, *headers, host="Host: phone"):
    return raw(b"GET " + as_bytes(target) + b" HTTP/1.1", host, "Connection: close", *headers)


def post(*headers, body=b"x=y", content_type=FORM):
    return raw(f"POST {PLAIN} HTTP/1.1", "Host: phone", "Connection: close",
               b"Content-Type: " + as_bytes(content_type), *headers, body=body)


def chunked(body, *headers):
    return post("Transfer-Encoding: chunked", *headers, body=body)


def ask(front, data, expected=""):
    """What comes back until the web server closes, in words; nothing is to come where "waits" is
    expected."""
    with front.connect() as connection:
        with contextlib.suppress(BrokenPipeError, ConnectionResetError):
            connection.sendall(data)
        connection.settimeout(SILENCE if expected == "waits" else service.PATIENCE)
        return words(received(connection))


def received(connection):
    """Everything, or None if nothing comes."""
    data = b""
    try:
        while piece := connection.recv(65536):
            data += piece
            if data.startswith(b"HTTP/1.1 413"):
                connection.shutdown(socket.SHUT_WR)  # or a body of that size is waited for
    except ConnectionResetError:
        pass
    except TimeoutError:
        assert not data, f"no end after {data}"
        return None
    return data


def words(data):
    """For each answer its status, where it leads, and what its page tells of the request."""
    if not data:
        return "waits" if data is None else "closed"
    answers = [each for each in re.split(rb"(?=HTTP/1\.\d \d{3}\b)", data) if each]
    return ", ".join(map(word, answers))


def word(answer):
    status = re.match(rb"HTTP/1\.\d (\d{3})", answer)
    told = re.findall(rb"^(?:Location: .*?(?= ?\r$)|x=.*|session=(?!\(null\)).*)", answer, re.M)
    parts = [status.group(1) if status else b"no status", *told]
    return " ".join(repr(part)[2:-1] for part in parts)
