"""Attack: free a session while a request of it is being served.

A client sends two requests of one session. When the shorter one ends, the session counts as idle,
although the longer one is still being served. If the daemon then freed it, the longer request would
use freed memory."""

from service import in_background, wait_until


def test_the_longer_of_two_requests_keeps_its_session(start, front):
    host = start.host("--listen", start.socket_path, "--threads", "2", "--timer", "1")
    first = front.curl("/servlet?p=count&interval=2")
    session = ("--header", f"Cookie: {first.header('Set-Cookie')}")
    longer = lambda: front.curl("/servlet?p=count&ms=6000", *session)
    with in_background(longer) as answers:
        wait_until(lambda: host.lines("begun"), "the longer request reaching its page")
        assert front.curl("/servlet?p=count", *session).text == "count 3"
    assert [answer.text for answer in answers] == ["count 2"]
    assert host.stop() == 0
