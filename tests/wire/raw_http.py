"""Sends HTTP that no browser sends, and describes the response in a few words."""

import contextlib
import re
import socket

import service

PLAIN = "/servlet?p=facts"
PAGE = PLAIN + "&x=y"
FORM = "application/x-www-form-urlencoded"
SILENCE = 0.2  # seconds without a byte, after which the web server counts as waiting for more


def as_bytes(text):
    return text if isinstance(text, bytes) else text.encode("latin-1")


def raw(line, *headers, body=b""):
    """Builds a request from exactly these headers; nothing is added."""
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
    """Sends a request and describes what the web server sends until it closes. Where "waits" is
    expected, it must send nothing."""
    with front.connect() as connection:
        with contextlib.suppress(BrokenPipeError, ConnectionResetError):
            connection.sendall(data)
        connection.settimeout(SILENCE if expected == "waits" else service.PATIENCE)
        return words(received(connection))


def received(connection):
    """Returns everything received, or None if nothing was."""
    data = b""
    try:
        while piece := connection.recv(65536):
            data += piece
            if data.startswith(b"HTTP/1.1 413"):
                connection.shutdown(socket.SHUT_WR)  # or the server waits for a body of that size
    except ConnectionResetError:
        pass
    except TimeoutError:
        assert not data, f"no end after {data}"
        return None
    return data


def words(data):
    """Describes each response by its status, its Location, and what the page saw of the request."""
    if not data:
        return "waits" if data is None else "closed"
    answers = [each for each in re.split(rb"(?=HTTP/1\.\d \d{3}\b)", data) if each]
    return ", ".join(map(word, answers))


def word(answer):
    status = re.match(rb"HTTP/1\.\d (\d{3})", answer)
    told = re.findall(rb"^(?:Location: .*?(?= ?\r$)|x=.*|session=(?!\(null\)).*)", answer, re.M)
    parts = [status.group(1) if status else b"no status", *told]
    return " ".join(repr(part)[2:-1] for part in parts)
