#!/usr/bin/python3
"""Speaks FastCGI badly on purpose, and says in TAP whether a program bears it.

The program is a responder that listens at ADDRESS, PATH or HOST:PORT. After each check an ordinary
request has to be answered. What is expected is what the FastCGI kit gives; where FastCGI 1.0 asks
for something else, or leaves it open, that is accepted too. Exits with 1 when a check went wrong,
with 2 when an ordinary request is not answered in the first place.
"""

import argparse
import contextlib
import socket
import sys
import time

import bad_records
import fastcgi


class Program:
    """A FastCGI program, and the usual request that it answers."""

    def __init__(self, address, request):
        self.address = address
        self.request = request
        self.usual = None

    def connect(self):
        return fastcgi.connect(self.address)

    def send(self, pieces, pause=0):
        """Sends the bytes, then half-closes; returns the reply."""
        with self.connect() as connection:
            with contextlib.suppress(BrokenPipeError, ConnectionResetError):
                for piece in pieces:
                    connection.sendall(piece)
                    time.sleep(pause)
                connection.shutdown(socket.SHUT_WR)
            return fastcgi.reply(connection)

    def leave(self, pieces):
        """Sends the bytes and closes without reading."""
        with self.connect() as connection, contextlib.suppress(BrokenPipeError):
            connection.sendall(b"".join(pieces))

    def ask_as_usual(self):
        """Sends the bytes as a front server does, without half-closing; returns the reply."""
        with self.connect() as connection:
            connection.sendall(b"".join(self.request.records()))
            return fastcgi.reply(connection)

    def learn(self):
        """Returns whether the program answers; remembers the response if it is the same twice."""
        first, second = self.ask_as_usual(), self.ask_as_usual()
        self.usual = first.output if first.output == second.output else None
        return str(first) == str(second) == "answer, complete"

    def words(self, reply):
        """Describes a reply; "another answer" is one that differs from the usual one."""
        if self.usual in (None, reply.output):
            return str(reply)
        return str(reply).replace("answer", "another answer")

    def still_answers(self):
        return self.words(self.ask_as_usual()) == "answer, complete"


def tell(number, check, program):
    """Prints the line of one check; returns whether it passed."""
    try:
        words = check.run(program)
        problem = None if words in check.expected + check.permitted else f"got: {words}"
        if not problem and not program.still_answers():
            problem = "the next request was not answered"
    except (AssertionError, OSError) as failure:
        problem = str(failure) or repr(failure)
    print(f"{'not ' if problem else ''}ok {number} - {check.name}")
    if problem:
        print(f"# {problem}\n# expected: {' or '.join(check.expected + check.permitted)}")
    return problem is None


def options():
    parser = argparse.ArgumentParser(description=__doc__.partition("\n")[0])
    parser.add_argument("address", help="PATH of a Unix socket, or HOST:PORT")
    parser.add_argument("--uri", default="/", help="what the ordinary request asks for")
    parser.add_argument("--variable", action="append", default=[], metavar="NAME=VALUE",
                        help="one more variable of each request")
    return parser.parse_args()


def main():
    chosen = options()
    more = dict(each.split("=", 1) for each in chosen.variable)
    request = bad_records.Request(chosen.uri, more)
    program = Program(chosen.address, request)
    if not program.learn():
        print("Bail out! an ordinary request is not answered")
        return 2
    checks = bad_records.checks(request)
    print(f"TAP version 13\n1..{len(checks)}")
    went_well = [tell(number, check, program) for number, check in enumerate(checks, 1)]
    return 0 if all(went_well) else 1


if __name__ == "__main__":
    sys.exit(main())
