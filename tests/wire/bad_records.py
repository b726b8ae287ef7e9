"""Records as no front server should send them, each with what is expected of a program.

The words are those of fastcgi.Reply. An "answer" is the usual one, of the whole request; "another
answer" is one to less, or more, than that. "closed" is a connection closed without a word.
"""

import functools
import struct

from fastcgi import (ABORT_REQUEST, AUTHORIZER, BEGIN_REQUEST, DATA, END_REQUEST, FILTER,
                     GET_VALUES, GET_VALUES_RESULT, LARGEST_CONTENT, PARAMS, RESPONDER, STDERR,
                     STDIN, STDOUT, UNKNOWN_TYPE, begin, pair, record, reply, stream, variables)

FORM = b"x=y"
ANSWER, ANOTHER, CLOSED = "answer, complete", "another answer, complete", "closed"
# FastCGI 1.0 does not define the response to an incomplete request.
ANY_END = (ANSWER, ANOTHER, CLOSED, "complete")
PAUSE = 0.001  # long enough for the program to read what has been sent


class Request:
    """A usual request: a form of one field, with additional variables if given."""

    def __init__(self, uri, more=()):
        self.variables = {
            "REQUEST_METHOD": "POST", "REQUEST_URI": uri, "QUERY_STRING": uri.partition("?")[2],
            "SCRIPT_NAME": uri.partition("?")[0], "SERVER_PROTOCOL": "HTTP/1.1",
            "REMOTE_ADDR": "127.0.0.1", "CONTENT_TYPE": "application/x-www-form-urlencoded",
            "CONTENT_LENGTH": str(len(FORM)), **dict(more)}

    def params(self):
        return variables(self.variables)

    def records(self):
        return [begin(), *stream(PARAMS, self.params()), *stream(STDIN, FORM)]

    def with_params(self, *params):
        return [begin(), *params, *stream(STDIN, FORM)]

    def with_stdin(self, *stdin):
        return [begin(), *stream(PARAMS, self.params()), *stdin]


class Check:
    """The bytes to send, and the accepted descriptions of the reply; those in `permitted` are
    accepted of other programs only."""

    def __init__(self, name, talk, *expected, permitted=()):
        self.name = name
        self.talk = talk
        self.expected = expected
        self.permitted = permitted

    def run(self, program):
        return program.words(self.talk(program))


def sent(name, pieces, *expected, pause=0, permitted=()):
    return Check(name, lambda program: program.send(pieces, pause), *expected,
                 permitted=permitted)


def pieces_checks(request):
    whole = b"".join(request.records())
    halves = [half for each in request.records()
              for half in (each[:len(each) // 2], each[len(each) // 2:])]
    bytewise = functools.partial(stream, piece=1)
    yield sent("everything at once", [whole], ANSWER)
    yield sent("record by record", request.records(), ANSWER, pause=PAUSE)
    yield sent("each record in two halves", halves, ANSWER, pause=PAUSE)
    yield sent("one byte at a time", [bytes([byte]) for byte in whole], ANSWER, pause=PAUSE / 4)
    yield sent("variables in records of one byte",
               request.with_params(*bytewise(PARAMS, request.params())), ANSWER)
    yield sent("a body in records of one byte", request.with_stdin(*bytewise(STDIN, FORM)), ANSWER)
    yield sent("no end of the body", request.with_stdin(record(STDIN, FORM)), ANSWER,
               permitted=ANY_END)
    yield sent("more after the end", [whole, whole], ANSWER)
    yield sent("zeros after the end", [whole, bytes(1000)], ANSWER)
    yield Check("everything, and nothing read", lambda program: leave(program, [whole]), ANSWER)


def leave(program, pieces):
    program.leave(pieces)
    return program.ask_as_usual()


def cut_checks(request):
    whole = b"".join(request.records())
    for length in range(len(whole)):
        yield Check(f"cut after {length} bytes",
                    lambda program, length=length: cut(program, whole[:length]),
                    *expected_of(request, length), permitted=ANY_END)


def cut(program, beginning):
    program.leave([beginning])
    return program.send([beginning])


def expected_of(request, length):
    come = [sum(map(len, request.records()[:count])) for count in range(1, 5)]
    beginning, _, variables_end, body_end = come
    if length < beginning:
        return (CLOSED,)
    if length < variables_end:
        return CLOSED, ANOTHER
    return (ANOTHER,) if length < body_end else (ANSWER,)


def abort_checks(request):
    """An abort between records ends the request. Within a record it is content, followed by the
    end of the connection."""
    whole = b"".join(request.records())
    ends = [sum(map(len, request.records()[:count])) for count in range(1, 6)]
    between = dict(zip(ends, [ANOTHER, ANOTHER, ANOTHER, ANSWER, ANSWER]))
    for length in range(len(whole) + 1):
        expected = (between[length],) if length in between else (CLOSED, ANOTHER, ANSWER)
        yield sent(f"aborted after {length} bytes", [whole[:length] + record(ABORT_REQUEST)],
                   *expected, permitted=ANY_END)


def connection_checks(request):
    yield sent("a connection without a byte", [], CLOSED)
    yield Check("five connections without a byte", five_idle, CLOSED)
    yield Check("a kept connection with three requests",
                lambda program: kept(program, request, 3), ANSWER)
    yield Check("a kept connection that ends within a request",
                lambda program: kept(program, request, 1, b"".join(request.records())[:20]),
                ANSWER)
    yield Check("a kept connection and a byte that begins nothing",
                lambda program: kept(program, request, 1, b"\0"), ANSWER)


def five_idle(program):
    for _ in range(5):
        program.leave([])
    return program.send([])


def kept(program, request, times, rest=b""):
    """Returns the last reply; all before it must be the usual one."""
    with program.connect() as connection:
        for _ in range(times):
            connection.sendall(begin(keep=True) + b"".join(request.records()[1:]))
            answer = reply(connection, until_end=True)
            assert program.words(answer) == ANSWER, answer
        connection.sendall(rest)
    return answer


def begin_checks(request):
    rest = request.records()[1:]
    for role in (AUTHORIZER, FILTER):
        yield sent(f"role {role}", [begin(role), *rest], ANSWER, ANOTHER,
                   permitted=("unknown role",))
    for role in (0, 4, 255, 256, 65535):
        yield sent(f"role {role}, which is none", [begin(role), *rest], CLOSED,
                   permitted=("unknown role",))
    for version in (0, 2, 255):
        yield sent(f"version {version}",
                   [record(BEGIN_REQUEST, bytes([0, 1]) + bytes(6), version=version), *rest],
                   CLOSED)
    for size in (0, 1, 2, 7, 9, 255, LARGEST_CONTENT):
        body = (bytes([0, RESPONDER]) + bytes(LARGEST_CONTENT))[:size]
        yield sent(f"a beginning of {size} bytes", [record(BEGIN_REQUEST, body), *rest], CLOSED,
                   permitted=ANY_END)
    for number in (2, 255, 256, 65535):
        records = [begin(number=number), *stream(PARAMS, request.params(), number=number),
                   *stream(STDIN, FORM, number=number)]
        yield sent(f"request number {number}", records, ANSWER)
    yield sent("the request begins twice", [begin(), begin(), *rest],
               "cannot multiplex, " + ANSWER, permitted=ANY_END)
    yield sent("another request begins at once", [begin(), begin(number=2), *rest],
               "cannot multiplex, " + ANSWER)
    yield sent("another request begins within the body",
               request.with_stdin(record(STDIN, FORM[:1]), begin(number=2),
                                  *stream(STDIN, FORM[1:])), "cannot multiplex, " + ANSWER)
    yield sent("no beginning", rest, CLOSED)
    yield sent("unused flags and reserved bytes set",
               [record(BEGIN_REQUEST, struct.pack("!HB5s", RESPONDER, 0xfe, b"\xff" * 5)), *rest],
               ANSWER)


def type_checks(request):
    """Request id 0 addresses the connection itself: an unknown type gets a reply."""
    whole = request.records()
    for kind in (0, ABORT_REQUEST, END_REQUEST, PARAMS, STDIN, STDOUT, STDERR, DATA,
                 GET_VALUES_RESULT, UNKNOWN_TYPE, 12, 127, 128, 255):
        unknown = f"unknown type {kind}"
        yield sent(f"type {kind} of no request, empty", [record(kind, number=0), *whole],
                   f"{unknown}, {ANSWER}")
        yield sent(f"type {kind} of no request, with content",
                   [record(kind, bytes(3), number=0), *whole], unknown, f"{unknown}, {ANSWER}")
        yield sent(f"type {kind} before a request", [record(kind, bytes(3)), *whole], CLOSED,
                   permitted=ANY_END)
        yield sent(f"type {kind} of another request among the variables",
                   [begin(), record(kind, bytes(3), number=2), *whole[1:]], ANSWER,
                   permitted=ANY_END)
        if kind != PARAMS:
            yield sent(f"type {kind} among the variables",
                       [begin(), record(kind, bytes(3)), *whole[1:]], ANOTHER, permitted=ANY_END)
        if kind != STDIN:
            yield sent(f"type {kind} within the body",
                       request.with_stdin(record(STDIN, FORM[:1]), record(kind),
                                          *stream(STDIN, FORM[1:])), ANOTHER, permitted=ANY_END)


def values_checks(request):
    def asked(content):
        return [record(GET_VALUES, content, number=0), *request.records()]

    limits = {name: "" for name in ("FCGI_MAX_CONNS", "FCGI_MAX_REQS", "FCGI_MPXS_CONNS")}
    for name, value in zip(limits, "110"):
        yield sent(f"asked for {name}", asked(variables({name: ""})),
                   f"values {name}={value}, {ANSWER}")
    yield sent("asked for all limits", asked(variables(limits)),
               f"values FCGI_MAX_CONNS=1 FCGI_MAX_REQS=1 FCGI_MPXS_CONNS=0, {ANSWER}")
    yield sent("asked for nothing", asked(b""), f"values none, {ANSWER}")
    yield sent("asked for what is no limit", asked(pair("FCGI_X", "")), f"values none, {ANSWER}")
    yield sent("asked in a broken way", asked(b"\x7fFCGI"), CLOSED, permitted=ANY_END)
    yield sent("asked among the variables",
               [begin(), record(GET_VALUES, number=0), *request.records()[1:]],
               f"values none, {ANSWER}")


def params_checks(request):
    def ending(more):
        return request.with_params(*stream(PARAMS, request.params() + more))

    long_form = b"".join(struct.pack("!II", len(name) | 1 << 31, len(value) | 1 << 31)
                         + name.encode() + value.encode()
                         for name, value in request.variables.items())
    yield sent("lengths in four bytes", request.with_params(*stream(PARAMS, long_form)), ANSWER)
    yield sent("a name that is empty", ending(pair("", "x")), ANSWER)
    yield sent("a value that is empty", ending(pair("X_EMPTY", "")), ANSWER)
    yield sent("name and value empty", ending(bytes(2)), ANSWER)
    yield sent("zero bytes in name and value", ending(pair(b"X\0Y", b"\0\0")), ANSWER)
    yield sent("an equals sign in a name", ending(pair("X=Y", "z")), ANSWER)
    yield sent("a name of 70,000 bytes", ending(pair("X" * 70000, "x")), ANSWER)
    yield sent("a value of 1 MB", ending(pair("X_LONG", "x" * 1000000)), ANSWER)
    yield sent("5,000 variables", ending(b"".join(pair(f"X_{i}", "x") for i in range(5000))),
               ANSWER)
    for name, rest in (("a length without its pair", b"\x05"), ("a pair that is cut", b"\x05\x05X"),
                       ("a long length that is cut", b"\x80\x00"),
                       ("a name of 2 GB announced", b"\xff\xff\xff\xff\x01X"),
                       ("a value of 2 GB announced", b"\x01\xff\xff\xff\xffX")):
        yield sent(name, ending(rest), CLOSED, permitted=ANY_END)
    yield sent("no variables", request.with_params(record(PARAMS)), ANOTHER, permitted=ANY_END)
    yield sent("no end of the variables", request.with_params(record(PARAMS, request.params())),
               ANOTHER, permitted=ANY_END)
    yield sent("variables after their end",
               request.with_params(*stream(PARAMS, request.params()) * 2), ANOTHER,
               permitted=ANY_END)
    yield sent("the body first", [begin(), *stream(STDIN, FORM), *request.records()[1:3]],
               ANOTHER, permitted=ANY_END)


def padding_checks(request):
    for size in (0, 1, 7, 8, 255):
        for what, byte in (("zeros", b"\0"), ("other bytes", b"\xff")):
            padding = size * byte
            each_byte = stream(PARAMS, request.params(), piece=1, padding=padding)[:-1]
            yield sent(f"{size} {what} behind each record of a variable's byte",
                       request.with_params(*each_byte, record(PARAMS)), ANSWER)
            yield sent(f"{size} {what} behind the end of the variables", request.with_params(
                *stream(PARAMS, request.params())[:-1], record(PARAMS, padding=padding)),
                ANSWER, ANOTHER)
            yield sent(f"{size} {what} behind each record of the body",
                       request.with_stdin(*stream(STDIN, FORM, padding=padding)), ANSWER)
    yield sent("padding that is cut",
               request.with_stdin(record(STDIN, FORM, padding=bytes(255))[:-100]), ANSWER,
               permitted=ANY_END)


def stdin_checks(request):
    for size in (0, 1, 2, 4, 1000, 70000):
        body = (FORM + b"&z=" + b"z" * size)[:size]
        yield sent(f"{size} bytes of a body that is to have 3", request.with_stdin(
            *stream(STDIN, body)), ANOTHER, permitted=ANY_END)


def checks(request):
    groups = (pieces_checks, connection_checks, begin_checks, type_checks, values_checks,
              params_checks, padding_checks, stdin_checks, cut_checks, abort_checks)
    return [check for group in groups for check in group(request)]
