"""Requests for the page that prints all it sees of a request, without a web server."""

import fastcgi
from bad_records import FORM, Request

PAGE = "/servlet?p=facts"


def ask_with(daemon, variables, body=FORM):
    reply = daemon.send([fastcgi.begin(),
                         *fastcgi.stream(fastcgi.PARAMS, fastcgi.variables(variables)),
                         *fastcgi.stream(fastcgi.STDIN, body)])
    assert str(reply) == "answer, complete"
    return reply.output


def ask(daemon, *changes, body=FORM):
    """Sends the usual request with other variables, the changed ones first; returns the response."""
    changed = {name for name, _ in changes}
    rest = [each for each in Request(PAGE).variables.items() if each[0] not in changed]
    return ask_with(daemon, [*changes, *rest], body)


def facts(output):
    head, _, text = output.partition(b"\r\n\r\n")
    assert head == b"Content-Type: text/plain "
    return text


def usual(daemon, **changes):
    """Returns the usual facts, some of them changed; a value may contain line ends."""
    text = b"\n" + facts(daemon.usual)
    for name, value in changes.items():
        begin = text.index(b"\n%s=" % name.encode())
        end = text.index(b"\n", begin + 1)
        text = text[:begin] + b"\n" + name.encode() + b"=" + fastcgi.as_bytes(value) + text[end:]
    return text[1:]
