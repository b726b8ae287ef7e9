"""The page that tells what it knows of a request, asked of the daemon itself."""

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
    """The answer to the ordinary request with other variables, the changed ones first."""
    changed = {name for name, _ in changes}
    rest = [each for each in Request(PAGE).variables.items() if each[0] not in changed]
    return ask_with(daemon, [*changes, *rest], body)


def facts(output):
    head, _, text = output.partition(b"\r\n\r\n")
    assert head == b"Content-Type: text/plain "
    return text


def usual(daemon, **changes):
    """The usual facts but for some, whose values may have lines."""
    text = b"\n" + facts(daemon.usual)
    for name, value in changes.items():
        begin = text.index(b"\n%s=" % name.encode())
        end = text.index(b"\n", begin + 1)
        text = text[:begin] + b"\n" + name.encode() + b"=" + fastcgi.as_bytes(value) + text[end:]
    return text[1:]
