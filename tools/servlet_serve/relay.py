"""Passes FastCGI requests on to the daemon, or answers them with what is wrong with the project.

Browsers that ask for a page get the page of the problem as long as there is one, and else the daemon's page
with a script at its end, which reloads it when the project has changed. Everything else passes unchanged.
"""

import contextlib
import pathlib
import re
import secrets
import socket
import struct
import threading
import time
import urllib.parse

import problems

PREFIX = "/servlet/development/"  # lighttpd.conf sends all that begins with /servlet here
ASSETS = {"reload.js": "text/javascript; charset=utf-8", "problem.css": "text/css; charset=utf-8"}
WAIT = 20  # seconds that a browser waits for a change before it asks again
LINGER = 5  # seconds that the front server has to close a connection
MAX_HEAD = 1 << 16  # bytes of a request's variables, and of a response's header

HEADER = struct.Struct(">BBHHBx")
END_REQUEST, PARAMS, STDIN, STDOUT = 3, 4, 5, 6
# Other sites' pages must not read the project's source through a name of their own (DNS rebinding).
LOCAL_HOST = re.compile(r"(?:127\.0\.0\.1|localhost|\[::1\])(?::\d+)?", re.IGNORECASE)
POLICY = ("default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; base-uri 'none'; "
          "form-action 'none'; frame-ancestors 'none'")


class State:
    """What browsers are shown. Used by all threads."""

    def __init__(self):
        self._changed = threading.Condition()
        self._run = secrets.token_hex(4)
        self._number = 0
        self._problem = None
        self._is_serving = False

    def set(self, problem, is_serving):
        with self._changed:
            self._problem = problem
            self._is_serving = is_serving
            self._number += 1
            self._changed.notify_all()

    def get(self):
        """Returns the version, which no earlier state has had, the problem or None, and whether the daemon
        serves."""
        with self._changed:
            return self._version(), self._problem, self._is_serving

    def wait_for_change(self, version):
        """Returns whether the version has become another one, after WAIT seconds at most."""
        with self._changed:
            return self._changed.wait_for(lambda: self._version() != version, WAIT)

    def _version(self):
        return f"{self._run}-{self._number}"


def record(kind, content=b"", request_id=1):
    return HEADER.pack(1, kind, request_id, len(content), 0) + content


def records(kind, content, request_id):
    return b"".join(record(kind, content[begin:begin + 65528], request_id)
                    for begin in range(0, len(content), 65528))


def read_record(connection):
    """Returns kind, id, content and all bytes of the next record, or None at the end."""
    header = _read(connection, HEADER.size)
    if len(header) < HEADER.size:
        return None
    _, kind, request_id, length, padding = HEADER.unpack(header)
    content = _read(connection, length + padding)
    return None if len(content) < length + padding else (
        kind, request_id, content[:length], header + content)


def _read(connection, size):
    data = b""
    with contextlib.suppress(OSError):
        while len(data) < size and (more := connection.recv(size - len(data))):
            data += more
    return data


def decode_params(data):
    """Returns the CGI variables of a PARAMS stream; those before the first that is cut off."""
    def length(at):
        if data[at] < 128:
            return data[at], at + 1
        return struct.unpack_from(">I", data, at)[0] & 0x7FFFFFFF, at + 4

    variables, at = {}, 0
    with contextlib.suppress(IndexError, struct.error):
        while at < len(data):
            name_length, at = length(at)
            value_length, at = length(at)
            end = at + name_length + value_length
            if end > len(data):
                break
            variables[data[at:at + name_length].decode(errors="replace")] = \
                data[at + name_length:end].decode(errors="replace")
            at = end
    return variables


def is_ready(path):
    """Returns whether the daemon at this socket accepts connections: it closes one that brings no request."""
    try:
        with socket.socket(socket.AF_UNIX) as connection:
            connection.settimeout(1)
            connection.connect(str(path))
            connection.shutdown(socket.SHUT_WR)
            return not connection.recv(1)
    except OSError:
        return False


class Script:
    """Adds a script to the end of an HTML page, which passes through in pieces."""

    def __init__(self, markup):
        self._markup = markup.encode()
        self._head = b""
        self._is_page = None  # until the header has passed

    def add(self, content):
        """Returns what to send for this piece of the response."""
        if self._is_page is not None:
            return content
        self._head += content
        end = re.search(rb"\r?\n\r?\n", self._head)
        if not end:
            if len(self._head) > MAX_HEAD:
                self._is_page = False
            return b"" if self._is_page is None else self._head
        head, body = self._head[:end.end()], self._head[end.end():]
        self._is_page = self._is_html(head)
        if self._is_page:
            # The script knows the version of this page, so browsers must not keep it.
            head = b"Cache-Control: no-store\r\n" + re.sub(
                rb"(?im)^(content-length|cache-control|expires|etag|last-modified):.*\n", b"", head)
        return head + body

    def end(self):
        """Returns what to send after the last piece."""
        if self._is_page is None:
            return self._head
        return self._markup if self._is_page else b""

    @staticmethod
    def _is_html(head):
        return bool(re.search(rb"(?im)^content-type:[ \t]*text/html\b", head) and not re.search(
            rb"(?im)^(content-encoding|content-disposition):", head))


class Relay:
    """Serves the front server's connections at `listener`, each on a thread of its own.
    last_log() returns the last lines of the daemon's log."""

    def __init__(self, listener, daemon, state, project, last_log):
        self.listener = listener
        self.daemon = daemon
        self.state = state
        self.project = project
        self.last_log = last_log

    def start(self):
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:  # too many open files
                time.sleep(0.1)
                continue
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, front):
        with front, contextlib.suppress(OSError):
            head, request_id, variables = self._read_head(front)
            answer = self._answer(variables)
            if answer:
                self._respond(front, request_id, *answer)
            else:
                self._pass_on(front, head, request_id, variables)

    @staticmethod
    def _read_head(front):
        """Returns the first bytes of a request as they came, its id and its variables."""
        head, params, request_id = b"", b"", 0
        while len(head) < MAX_HEAD and (read := read_record(front)):
            kind, request_id, content, raw = read
            head += raw
            if kind == PARAMS:
                params += content
                if not content:
                    break
        return head, request_id, decode_params(params)

    def _answer(self, variables):
        """Returns status, content type and body if the request is not for the daemon."""
        url = urllib.parse.urlsplit(variables.get("REQUEST_URI", ""))
        is_local = bool(LOCAL_HOST.fullmatch(variables.get("HTTP_HOST", "")))
        if url.path.startswith(PREFIX):
            return self._asset(url) if is_local else (404, "text/plain", "")
        version, problem, is_serving = self.state.get()
        if problem and is_local and self._asks_for_page(variables):
            return self._problem_page(problem, version)
        if not is_serving:
            return 503, "text/plain; charset=utf-8", "The project has not been built yet.\n"
        return None

    def _asset(self, url):
        name = url.path[len(PREFIX):]
        if name == "changed":
            since = urllib.parse.parse_qs(url.query).get("since", [""])[0]
            return (200 if self.state.wait_for_change(since) else 204), "text/plain", ""
        if name in ASSETS:
            return 200, ASSETS[name], pathlib.Path(__file__).with_name(name).read_text()
        return 404, "text/plain", ""

    def _problem_page(self, problem, version):
        return 500, "text/html; charset=utf-8", problems.as_page(problem, self.project, markup(version))

    @staticmethod
    def _asks_for_page(variables):
        """Browsers name text/html when they go to a page, but not for scripts' requests."""
        return "text/html" in variables.get("HTTP_ACCEPT", "")

    @staticmethod
    def _respond(front, request_id, status, content_type, body):
        while (read := read_record(front)) and not (read[0] == STDIN and not read[2]):
            pass  # front servers may not read the response before they have sent the whole body
        Relay._send(front, request_id, status, content_type, body)

    @staticmethod
    def _send(front, request_id, status, content_type, body):
        header = (f"Status: {status}\r\nContent-Type: {content_type}\r\nCache-Control: no-store\r\n"
                  f"X-Content-Type-Options: nosniff\r\nReferrer-Policy: same-origin\r\n"
                  f"Content-Security-Policy: {POLICY}\r\n\r\n")
        front.sendall(records(STDOUT, (header + body).encode(errors="replace"), request_id) +
                      record(STDOUT, b"", request_id) + record(END_REQUEST, bytes(8), request_id))
        front.shutdown(socket.SHUT_WR)
        front.settimeout(LINGER)
        while front.recv(65536):
            pass

    def _pass_on(self, front, head, request_id, variables):
        with socket.socket(socket.AF_UNIX) as daemon:
            daemon.connect(str(self.daemon))
            body = threading.Thread(target=self._pass_body, args=(front, daemon, head), daemon=True)
            body.start()
            if LOCAL_HOST.fullmatch(variables.get("HTTP_HOST", "")) and self._asks_for_page(variables):
                self._pass_page(front, daemon, request_id, variables)
            else:
                self._copy(daemon, front)
            with contextlib.suppress(OSError):
                front.shutdown(socket.SHUT_WR)
            body.join()

    @staticmethod
    def _pass_body(front, daemon, head):
        with contextlib.suppress(OSError):
            daemon.sendall(head)
            Relay._copy(front, daemon)
        with contextlib.suppress(OSError):
            daemon.shutdown(socket.SHUT_WR)

    @staticmethod
    def _copy(source, target):
        while data := source.recv(65536):
            target.sendall(data)

    def _pass_page(self, front, daemon, request_id, variables):
        script = Script(markup(self.state.get()[0]) if variables.get("REQUEST_METHOD") != "HEAD" else "")
        has_begun = False
        is_open = True  # the stream of the response
        while read := read_record(daemon):
            kind, request_id, content, raw = read
            has_begun = True
            if is_open and kind == STDOUT and content:
                front.sendall(records(STDOUT, script.add(content), request_id))
                continue
            if is_open and kind in (STDOUT, END_REQUEST):
                is_open = False
                front.sendall(records(STDOUT, script.end(), request_id))
            front.sendall(raw)
        if not has_begun:
            self._send(front, request_id, *self._problem_page(problems.Problem(
                "The daemon ended while it served this page", (), self.last_log()), self.state.get()[0]))


def markup(version):
    return f'<script src="{PREFIX}reload.js" data-version="{version}"></script>\n'
