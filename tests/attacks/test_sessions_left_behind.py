"""Attack: leave sessions behind that never expire.

The container marks a session as busy when a request of it begins. A refused request ends without
clearing the mark, so a client can refresh any number of sessions for ever and fill the memory."""

import re
import signal
import time

import pytest

from service import wait_until

SESSIONS = 20


def sessions(host):
    """Returns the number of sessions in the daemon's memory."""
    lines = lambda: re.findall(r"sessions=(\d+)", host.log.read_text())
    count = len(lines())
    host.signal(signal.SIGUSR2)
    wait_until(lambda: len(lines()) > count, "the status line")
    return int(lines()[-1])


@pytest.mark.parametrize("refused", ["/servlet?p=count&jumpto=a.b", "/servlet?p=count&x=%3Cscript"],
                         ids=["a parameter", "an address"])
def test_a_session_expires_after_a_refused_request(start, front, refused):
    host = start.host("--listen", start.socket_path, "--threads", "1", "--timer", "1")
    for _ in range(SESSIONS):
        cookie = front.curl("/servlet?p=count&interval=2").header("Set-Cookie")
        assert front.curl(refused, "--header", f"Cookie: {cookie}").status == 404
    assert sessions(host) > 0
    time.sleep(2)
    front.curl("/servlet?p=facts")  # the thread has forgotten the refused request
    wait_until(lambda: sessions(host) == 0, "the sessions ending", 10)
