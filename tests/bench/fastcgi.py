"""Sends FastCGI requests to a back end's socket, as a front server does."""

import socket
import struct

BEGIN_REQUEST, PARAMS, STDIN, STDOUT = 1, 4, 5, 6
RESPONDER = 1
MAX_CONTENT = 65535  # bytes of a record
MADE_UP_COOKIE = "JSESSIONID=55d0c8e3f2a81712345655d0c8e40010"

# The variables that lighttpd sends with a small request of a browser.
VARIABLES = {
    "CONTENT_LENGTH": "0",
    "QUERY_STRING": "",
    "REQUEST_URI": "",
    "REQUEST_METHOD": "GET",
    "REQUEST_SCHEME": "http",
    "REDIRECT_STATUS": "200",
    "SCRIPT_NAME": "/servlet",
    "SCRIPT_FILENAME": "/phone/www/servlet",
    "DOCUMENT_ROOT": "/phone/www",
    "SERVER_PROTOCOL": "HTTP/1.1",
    "SERVER_SOFTWARE": "lighttpd/1.4.69",
    "GATEWAY_INTERFACE": "CGI/1.1",
    "SERVER_PORT": "80",
    "SERVER_ADDR": "127.0.0.1",
    "SERVER_NAME": "127.0.0.1",
    "REMOTE_ADDR": "127.0.0.1",
    "REMOTE_PORT": "51234",
    "HTTP_HOST": "127.0.0.1",
}


def record(kind, content):
    return struct.pack("!BBHHBB", 1, kind, 1, len(content), 0, 0) + content


def records(kind, content):
    """Returns the records of a stream, with the empty one that ends it."""
    return b"".join(record(kind, content[at:at + MAX_CONTENT])
                    for at in range(0, len(content), MAX_CONTENT)) + record(kind, b"")


def length(number):
    return struct.pack("!B", number) if number < 128 else struct.pack("!L", number | 1 << 31)


def request(query, cookie=None, body=None, content_type="application/x-www-form-urlencoded",
            script=None, root=None):
    """Returns the bytes of one request on a connection of its own."""
    variables = dict(VARIABLES, QUERY_STRING=query, REQUEST_URI=f"/servlet?{query}")
    if root:
        variables["DOCUMENT_ROOT"] = str(root)
    if script:
        variables["SCRIPT_FILENAME"] = script
    if cookie:
        variables["HTTP_COOKIE"] = cookie
    if body is not None:
        variables.update(REQUEST_METHOD="POST", CONTENT_LENGTH=str(len(body)),
                         CONTENT_TYPE=content_type)
    pairs = b"".join(length(len(name)) + length(len(value)) + name.encode() + value.encode()
                     for name, value in variables.items())
    return (record(BEGIN_REQUEST, struct.pack("!HB5x", RESPONDER, 0)) + records(PARAMS, pairs) +
            records(STDIN, body or b""))


def cookie_of(match):
    """Returns the cookie of a Set-Cookie line, or a made-up one for programs without sessions."""
    return match.group(1).partition(";")[0].strip() if match else MADE_UP_COOKIE


def receive(connection):
    """Returns all bytes that the back end sends until it closes the connection."""
    pieces = []
    while True:
        piece = connection.recv(1 << 16)
        if not piece:
            return b"".join(pieces)
        pieces.append(piece)


def text_of(response):
    """Returns the content of the standard output records."""
    content, at = [], 0
    while at + 8 <= len(response):
        _, kind, _, size, padding, _ = struct.unpack_from("!BBHHBB", response, at)
        if kind == STDOUT:
            content.append(response[at + 8:at + 8 + size])
        at += 8 + size + padding
    return b"".join(content).decode()


def connect(address):
    """Connects to a Unix socket, if the address is its path, or to an (address, port) pair."""
    if isinstance(address, tuple):
        return socket.create_connection(address)
    connection = socket.socket(socket.AF_UNIX)
    connection.connect(address)
    return connection


def send(address, data):
    """Sends the bytes of a request, and returns the text of the response."""
    with connect(address) as connection:
        connection.sendall(data)
        return text_of(receive(connection))
