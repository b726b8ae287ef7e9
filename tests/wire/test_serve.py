"""scripts/serve, with the phone's own pages."""

import pathlib
import signal
import socket
import subprocess

import pytest

from conftest import SOURCE
from service import Front, accepts_connections, free_port, wait_until

BUILDING = 600  # seconds for a first build


def parent_and_command(pid):
    """Nothing for a process that has ended."""
    try:
        process = pathlib.Path(f"/proc/{pid}")
        # The name in parentheses may hold anything.
        state, parent = (process / "stat").read_text().rpartition(")")[2].split()[:2]
        command = (process / "cmdline").read_bytes().replace(b"\0", b" ").decode()
    except OSError:
        return None
    return None if state == "Z" else (int(parent), command)


def descendants(pid):
    """Process ids and command lines of all that a process has started."""
    processes = {}
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            known = parent_and_command(int(entry.name))
            if known:
                processes[int(entry.name)] = known
    found = {}
    generation = {pid}
    while generation:
        generation = {child for child, (parent, _) in processes.items() if parent in generation}
        found.update((child, processes[child][1]) for child in generation)
    return found


@pytest.fixture
def serve(start):
    def serve(*arguments):
        # Ctrl-C is to reach it even where the tests run in the background, which ignores it.
        return start.start(SOURCE / "scripts/serve", *arguments, log="serve.log",
                           stdin=subprocess.DEVNULL,
                           preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
    return serve


@pytest.fixture
def served(serve, folder):
    """A running scripts/serve and a way to ask it."""
    port = free_port()
    process = serve("--port", str(port))

    def ready():
        assert process.poll() is None, (folder / "serve.log").read_text()
        return accepts_connections(socket.AF_INET, ("127.0.0.1", port))
    wait_until(ready, "serving", BUILDING)
    yield process, Front("lighttpd", port)
    if process.poll() is None:
        process.terminate()
        process.wait()


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_it_serves_the_sign_in_page_until_it_is_told_to_end(served, folder, number):
    process, front = served
    log = (folder / "serve.log").read_text()
    assert f"http://127.0.0.1:{front.port}/" in log
    assert "Sign in as admin with the password admin." in log

    page = front.curl("/", "--location")
    assert b"200 OK" in page.raw
    assert b"<form" in page.raw
    assert front.curl("/cgi-bin/Velmoranix.acx?Id=1").status == 302
    assert front.curl("/WEB-INFO/servlet/servlet.xml").status == 403

    started = descendants(process.pid)
    hosts = [command for command in started.values() if "fcgi_host" in command]
    assert len(hosts) == 1, started

    process.send_signal(number)
    assert process.wait(30) == 0
    wait_until(lambda: not any(parent_and_command(pid) for pid in started), "all having ended")


def test_a_second_start_says_that_the_port_is_taken(serve, folder):
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        taken.listen()
        port = taken.getsockname()[1]
        assert serve("--port", str(port)).wait(30) == 69
    assert (folder / "serve.log").read_text() == (
        f"serve: port {port} is taken; end what listens there or choose another with --port\n")


@pytest.mark.parametrize("arguments", [["--port"], ["--port", "x"], ["--port=0"],
                                       ["--port=65536"], ["8080"], ["--port", "80", "81"]])
def test_wrong_usage_is_told(serve, folder, arguments):
    assert serve(*arguments).wait(30) == 64
    assert (folder / "serve.log").read_text() == "usage: scripts/serve [--port N]\n"
