"""The front server's side of FastCGI, record by record."""

import socket
import struct

(BEGIN_REQUEST, ABORT_REQUEST, END_REQUEST, PARAMS, STDIN, STDOUT, STDERR, DATA,
 GET_VALUES, GET_VALUES_RESULT, UNKNOWN_TYPE) = range(1, 12)
RESPONDER, AUTHORIZER, FILTER = 1, 2, 3
LARGEST_CONTENT = 65535

END_WORDS = {0: "complete", 1: "cannot multiplex", 2: "overloaded", 3: "unknown role"}


def as_bytes(text):
    return text if isinstance(text, bytes) else text.encode()


def record(kind, content=b"", number=1, padding=b"", version=1):
    return struct.pack("!BBHHBx", version, kind, number, len(content),
                       len(padding)) + content + padding


def begin(role=RESPONDER, keep=False, number=1):
    return record(BEGIN_REQUEST, struct.pack("!HB5x", role, keep), number)


def size(length):
    return bytes([length]) if length < 128 else struct.pack("!I", length | 1 << 31)


def pair(name, value):
    name, value = as_bytes(name), as_bytes(value)
    return size(len(name)) + size(len(value)) + name + value


def variables(values):
    """Encodes names and values, from a dictionary or from pairs, in which a name may repeat."""
    items = values.items() if isinstance(values, dict) else values
    return b"".join(pair(name, value) for name, value in items)


def pairs(content):
    """Decodes names and values."""
    while content:
        name_size, content = cut_size(content)
        value_size, content = cut_size(content)
        end = name_size + value_size
        yield content[:name_size].decode(), content[name_size:end].decode()
        content = content[end:]


def cut_size(content):
    """Returns a length and the remaining bytes."""
    if content[0] < 128:
        return content[0], content[1:]
    return struct.unpack("!I", content[:4])[0] & ~(1 << 31), content[4:]


def stream(kind, content, piece=LARGEST_CONTENT, number=1, padding=b""):
    """Returns the records of a stream, including the empty one that ends it."""
    pieces = [content[at:at + piece] for at in range(0, len(content), piece)]
    return [record(kind, each, number, padding) for each in pieces + [b""]]


def connect(address):
    """Connects to PATH or HOST:PORT."""
    host, colon, port = address.rpartition(":")
    if colon and port.isdigit():
        return socket.create_connection((host.strip("[]"), int(port)), 10)
    connection = socket.socket(socket.AF_UNIX)
    connection.settimeout(10)
    connection.connect(address)
    return connection


class Record:
    def __init__(self, header, content):
        _, self.kind, self.number, _, _ = struct.unpack("!BBHHBx", header)
        self.content = content


def records(connection):
    """Returns what the program sends until it closes the connection."""
    with connection.makefile("rb") as incoming:
        while header := read(incoming, 8):
            length, padding = struct.unpack("!4xHBx", header)
            yield Record(header, read(incoming, length + padding)[:length])


def read(incoming, count):
    """Returns `count` bytes, or none if the program closes or resets the connection first."""
    try:
        data = incoming.read(count) if count else b""
    except ConnectionResetError:
        return b""
    assert len(data) in (0, count), f"the connection ended within a record: {data}"
    return data


class Reply:
    """All data received from a connection, and one word for each event in order."""

    def __init__(self):
        self.output = b""
        self.words = []
        self.numbers = set()

    def add(self, received):
        self.numbers.add(received.number)
        word = self._word(received)
        if word and self.words[-1:] != [word]:
            self.words.append(word)

    def _word(self, received):
        if received.kind == STDOUT:
            self.output += received.content
            return "answer" if received.content else None
        if received.kind == STDERR:
            return "errors" if received.content else None
        if received.kind == END_REQUEST:
            return END_WORDS.get(received.content[4], "an unknown end")
        if received.kind == UNKNOWN_TYPE:
            return f"unknown type {received.content[0]}"
        if received.kind == GET_VALUES_RESULT:
            limits = " ".join(f"{name}={value}" for name, value in pairs(received.content))
            return "values " + (limits or "none")
        return f"type {received.kind}"

    def __str__(self):
        return ", ".join(self.words) or "closed"


def reply(connection, until_end=False):
    """Reads until the connection is closed or the request is ended."""
    result = Reply()
    for received in records(connection):
        result.add(received)
        if until_end and received.kind == END_REQUEST:
            break
    return result
