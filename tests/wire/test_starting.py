"""The daemon serves with all listeners or not at all: without one, it would let requests through that
the listener stops."""

from ports import is_listening
from service import PATIENCE, wait_until

CONFIGURATION_ERROR = 78  # EX_CONFIG of sysexits.h
FAILURE = ("fcgi_host: the plug-in configuration could not be read, or a listener in it could not be "
           "created; see the log\n")


def test_it_ends_if_a_listener_cannot_be_created(start, folder):
    (folder / "no-listener").touch()
    process = start.start(start.build.wire_host, "--listen", start.socket_path, log="host.log",
                          env=start.environment)
    assert process.wait(PATIENCE) == CONFIGURATION_ERROR
    assert (folder / "host.log").read_text().endswith(FAILURE)
    assert not is_listening(start.socket_path)


def test_a_supervisor_starts_it_until_it_has_all_listeners(start, front, folder):
    listener = start.shared_socket()
    (folder / "no-listener").touch()
    process = start.start("sh", "-c", 'until "$0"; do sleep 0.1; done', start.build.wire_host,
                          log="host.log", stdin=listener, env=start.environment)
    log = folder / "host.log"
    wait_until(lambda: log.read_text().count(FAILURE) >= 2, "two attempts")
    (folder / "no-listener").unlink()
    assert front.curl("/servlet?p=facts").status == 200
    assert (folder / "requests").read_text() == "/servlet?p=facts\n"
    assert process.poll() is None
