"""Attack: fill the web server's memory and spool with unfinished forms.

The web server keeps a form in memory or in a file until it is complete, since the daemon could not
serve anybody else while it waits. A client that opens many connections and never sends the last byte
of a form makes the web server keep them all."""

import concurrent.futures
import contextlib
import os
import pathlib
import re
import stat
import struct
import time

import pytest

import raw_http

KIB, MIB = 1 << 10, 1 << 20
# The bounds that docs/security.md states. A buffer is larger than what it holds.
SPOOL = {"lighttpd": 16 * MIB, "nginx": 16 * MIB, "apache": 16 * MIB}
BUFFERS = 2


class WebServer:
    """The processes of the web server that was started last."""

    def __init__(self, start):
        self.group = start.processes[-1].pid

    def measure(self):
        """Returns the bytes in memory that only these processes use, and those in files that they
        have open, which may be deleted; logs do not count."""
        memory, files = 0, {}
        for folder in pathlib.Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):  # a process has ended
                if os.getpgid(int(folder.name)) == self.group:
                    memory += private_memory(folder)
                    files.update(open_files(folder))
        return memory, sum(files.values())

    def measure_when_idle(self):
        """Does the same when the web server has read what it is going to read."""
        before = None
        while before != (now := self.measure()):
            before = now
            time.sleep(0.5)
        return now


def private_memory(folder):
    text = (folder / "smaps_rollup").read_text()
    return KIB * int(re.search(r"^Private_Dirty: +(\d+) kB$", text, re.M).group(1))


def open_files(folder):
    sizes = {}
    for path in (folder / "fd").iterdir():
        with contextlib.suppress(OSError):  # closed meanwhile
            status = path.stat()
            if stat.S_ISREG(status.st_mode) and not str(path.readlink()).endswith(".log"):
                sizes[status.st_dev, status.st_ino] = status.st_blocks * 512
    return sizes


def begin_form(front, size):
    """Sends all of a form but its last byte, on a connection of its own. The web server may refuse it."""
    connection = front.connect()
    connection.settimeout(0.5)
    with contextlib.suppress(TimeoutError, BrokenPipeError, ConnectionResetError):
        connection.sendall(raw_http.raw(
            "POST /servlet?p=facts HTTP/1.1", "Host: phone", f"Content-Type: {raw_http.FORM}",
            f"Content-Length: {size}", body=b"x" * (size - 1)))
    return connection


def begin_upload(front, size):
    """Does the same with an upload, which the web server forwards while it arrives."""
    connection = front.connect()
    connection.settimeout(0.5)
    with contextlib.suppress(TimeoutError, BrokenPipeError, ConnectionResetError):
        connection.sendall(raw_http.raw(
            "POST /servlet?p=facts HTTP/1.1", "Host: phone",
            "Content-Type: multipart/form-data; boundary=edge", f"Content-Length: {size}",
            body=b"--edge\r\nContent-Disposition: form-data; name=a; filename=b\r\n\r\n".ljust(
                size - 1, b"x")))
    return connection


def frame(kind, stream=0, payload=b"", flags=0):
    """Returns a frame of HTTP/2 (RFC 9113, section 4.1)."""
    return struct.pack("!I", len(payload))[1:] + struct.pack("!BBI", kind, flags, stream) + payload


def field(index, value):
    """Returns a header field with a name of the static table (RFC 7541, section 6.2.2)."""
    name = bytes([index]) if index < 15 else bytes([15, index - 15])
    return name + bytes([len(value)]) + value


DATA, HEADERS, SETTINGS, WINDOW_UPDATE = 0, 1, 4, 8
END_HEADERS = 4


def begin_streams(front, size, streams):
    """Begins a form on each stream of an HTTP/2 connection. The web server may refuse it."""
    connection = front.connect()
    connection.settimeout(0.5)
    head = (b"\x83\x86" + field(4, b"/servlet?p=facts") + field(1, b"phone")
            + field(28, str(size).encode()) + field(31, raw_http.FORM.encode()))
    ids = range(1, 2 * streams, 2)
    with contextlib.suppress(TimeoutError, BrokenPipeError, ConnectionResetError):
        connection.sendall(b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n" + frame(SETTINGS))
        for stream in ids:
            connection.sendall(frame(HEADERS, stream, head, END_HEADERS))
        for _ in range((size - 1) // 8000):
            for stream in ids:
                connection.sendall(frame(DATA, stream, b"x" * 8000))
            time.sleep(0.01)
        while connection.recv(1 << 16):
            pass
    return connection


@pytest.mark.parametrize("begin, clients", [
    (lambda front: begin_form(front, 1100 * KIB), 40),
    (lambda front: begin_form(front, 64 * KIB), 400),
    (lambda front: begin_streams(front, 64 * KIB, 8), 100),
    (lambda front: begin_upload(front, 4 * MIB), 40)],
    ids=["large forms", "many forms", "many forms on each connection", "uploads"])
def test_unfinished_forms_have_a_bound(start, front, begin, clients):
    web = WebServer(start)
    host = start.host("--listen", start.socket_path)
    memory, files = web.measure_when_idle()
    with contextlib.ExitStack() as opened:
        with concurrent.futures.ThreadPoolExecutor() as pool:
            for connection in pool.map(begin, [front] * clients):
                opened.enter_context(connection)
        filled_memory, filled_files = web.measure_when_idle()
    assert filled_files - files <= SPOOL[front.kind]
    assert filled_memory - memory <= BUFFERS * SPOOL[front.kind]
    assert raw_http.ask(front, raw_http.get()) == "200 x=y"
    assert host.stop() == 0
