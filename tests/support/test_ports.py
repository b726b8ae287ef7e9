"""Ports for tests: no two test processes get the same one."""

import os
import pathlib
import socket
import subprocess
import sys

import pytest

import ports

HERE = pathlib.Path(__file__).resolve().parent
TAKE_ALL = """
import ports, sys
ports.RANGE = range({begin}, {end})
for _ in ports.RANGE:
    print(ports.free_port())
sys.stdout.flush()
sys.stdin.read()
"""


@pytest.fixture
def few(monkeypatch):
    """Only three ports, which no other test uses: each process has others."""
    begin = 10000 + 3 * (os.getpid() % 3000)
    monkeypatch.setattr(ports, "RANGE", range(begin, begin + 3))
    monkeypatch.setattr(ports, "_reservations", [])
    yield ports.RANGE
    for reservation in ports._reservations:
        reservation.close()


def test_each_port_is_handed_out_once(few):
    assert sorted(ports.free_port() for _ in few) == list(few)
    with pytest.raises(RuntimeError, match="no free port"):
        ports.free_port()


def test_a_port_of_another_test_process_is_free_when_that_process_has_ended(few):
    other = subprocess.Popen(
        [sys.executable, "-c", TAKE_ALL.format(begin=few.start, end=few.stop)], cwd=HERE,
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    with other:
        taken = [int(other.stdout.readline()) for _ in few]
        assert sorted(taken) == list(few)
        with pytest.raises(RuntimeError):
            ports.free_port()
    assert ports.free_port() in few


def test_a_port_on_which_another_program_listens_is_left_out(few):
    with socket.socket() as program:
        program.bind(("127.0.0.1", few[1]))
        program.listen()
        assert {ports.free_port(), ports.free_port()} == {few[0], few[2]}


def test_the_ports_are_not_those_of_outgoing_connections():
    first, last = map(int, pathlib.Path("/proc/sys/net/ipv4/ip_local_port_range").read_text().split())
    assert not set(ports.RANGE) & set(range(first, last + 1))


def test_a_port_is_listening_once_a_program_listens_there():
    with socket.socket() as server:
        port = ports.free_port()
        server.bind(("127.0.0.1", port))
        assert not ports.is_listening(port)
        server.listen()
        assert ports.is_listening(port)


def test_a_unix_socket_is_listening_only_after_its_path_has_been_made(tmp_path):
    path = tmp_path / "socket"
    assert not ports.is_listening(path)
    with socket.socket(socket.AF_UNIX) as server:
        server.bind(str(path))
        assert path.exists() and not ports.is_listening(path)
        server.listen()
        assert ports.is_listening(path) and ports.is_listening(str(path))
