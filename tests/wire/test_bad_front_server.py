"""A front server that sends invalid FastCGI: it gets the expected response, and the next request the
usual one."""

import contextlib
import pathlib
import socket
import subprocess
import sys
import threading

import pytest

import bad_records
import fastcgi
from bad_front_server import Program
from service import wait_until

URI = "/servlet?p=facts"
REQUEST = bad_records.Request(URI)
SCRIPT = pathlib.Path(__file__).with_name("bad_front_server.py")


@pytest.fixture(scope="module")
def host(start_once):
    # A kept connection stays with its thread; with one thread, that is the one that accepts next.
    return start_once.host("--listen", start_once.socket_path, "--threads", "1")


@pytest.fixture(scope="module")
def program(host, start_once):
    asked = Program(start_once.socket_path, REQUEST)
    assert asked.learn()
    return asked


@pytest.mark.parametrize("check", bad_records.checks(REQUEST), ids=lambda check: check.name)
def test_invalid_records(program, check):
    assert check.run(program) in check.expected
    assert program.still_answers()


def run_script(address):
    return subprocess.run([sys.executable, SCRIPT, address, "--uri", URI], stdout=subprocess.PIPE,
                          text=True, timeout=100, check=False)


def test_afterwards_no_connection_is_open_and_the_log_is_intact(program, host):
    idle = host.descriptors()
    for check in bad_records.checks(REQUEST):
        check.run(program)
    wait_until(lambda: host.descriptors() <= idle, "the connections closing")
    assert host.log_lines()


def test_the_script_reports_each_check_in_tap(program):
    result = run_script(program.address)
    version, plan, *lines = result.stdout.splitlines()
    names = [check.name for check in bad_records.checks(REQUEST)]
    assert (version, plan) == ("TAP version 13", f"1..{len(names)}")
    assert lines == [f"ok {number} - {name}" for number, name in enumerate(names, 1)]
    assert result.returncode == 0


class CarelessProgram:
    """Answers every request alike, whatever it is."""

    def __init__(self, answer):
        self.answer = answer
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.address = "127.0.0.1:%d" % self.listener.getsockname()[1]
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            with connection, contextlib.suppress(OSError):
                connection.sendall(self.answer)
                connection.shutdown(socket.SHUT_WR)
                while connection.recv(65536):
                    pass


def test_the_script_reports_what_a_careless_program_does_wrong():
    careless = CarelessProgram(fastcgi.record(fastcgi.STDOUT, b"\r\n")
                               + fastcgi.record(fastcgi.END_REQUEST, bytes(8)))
    result = run_script(careless.address)
    careless.listener.close()
    assert result.returncode == 1
    assert "\nok 1 - everything at once\n" in result.stdout
    assert "- version 2\n# got: answer, complete\n# expected: closed\n" in result.stdout


def test_the_script_gives_up_without_an_answer():
    careless = CarelessProgram(b"")
    result = run_script(careless.address)
    careless.listener.close()
    assert result.returncode == 2
    assert result.stdout == "Bail out! an ordinary request is not answered\n"
