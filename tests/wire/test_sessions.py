"""Sessions: identified by a cookie, bound to the client's address, expired by the daemon's timer."""

import concurrent.futures
import time

import pytest


def cookie_of(answer):
    """Returns the cookie as a browser would send it back."""
    cookie = answer.header("Set-Cookie").strip()
    assert cookie.startswith("JSESSIONID=")
    assert len(cookie) > len("JSESSIONID=")
    return cookie


def with_cookie(cookie, *options):
    return "--header", f"Cookie: {cookie}", *options


def test_a_session_goes_on_as_long_as_its_cookie_comes_back(web):
    first = web.curl("/servlet?p=count")
    assert first.text == "count 1"
    cookie = cookie_of(first)
    for count in range(2, 6):
        answer = web.curl("/servlet?p=count", *with_cookie(cookie))
        assert answer.text == f"count {count}"
        assert answer.headers("Set-Cookie") == []


def test_clients_have_sessions_of_their_own(web):
    cookies = [cookie_of(web.curl("/servlet?p=count")) for _ in range(5)]
    assert len(set(cookies)) == 5
    for count in (2, 3):
        for cookie in cookies:
            assert web.curl("/servlet?p=count", *with_cookie(cookie)).text == f"count {count}"


def test_the_session_is_found_among_other_cookies(web):
    cookie = cookie_of(web.curl("/servlet?p=count"))
    answer = web.curl("/servlet?p=count", *with_cookie(f"theme=dark; {cookie}; x=1"))
    assert answer.text == "count 2"


def test_a_session_is_created_only_on_request(web):
    answer = web.curl("/servlet?p=count&create=0")
    assert answer.text == "no session"
    assert answer.headers("Set-Cookie") == []


@pytest.mark.parametrize("cookie", ["JSESSIONID=", "JSESSIONID=none", "JSESSIONID", "a=b",
                                    "JSESSIONID=%00", "JSESSIONID=" + "9" * 5000])
def test_an_invented_cookie_is_no_session(web, cookie):
    answer = web.curl("/servlet?p=count&create=0", *with_cookie(cookie))
    assert answer.text == "no session"


def test_a_session_belongs_to_the_address_that_it_was_created_for(web):
    cookie = cookie_of(web.curl("/servlet?p=count"))
    elsewhere = web.curl("/servlet?p=count&create=0",
                         *with_cookie(cookie, "--interface", "127.0.0.2"))
    assert elsewhere.text == "no session"
    assert web.curl("/servlet?p=count", *with_cookie(cookie)).text == "count 2"


def test_an_idle_session_expires(web):
    cookie = cookie_of(web.curl("/servlet?p=count&interval=1"))
    time.sleep(2.1)  # the session clock counts whole seconds
    assert web.curl("/servlet?p=count&create=0", *with_cookie(cookie)).text == "no session"
    again = web.curl("/servlet?p=count", *with_cookie(cookie))
    assert again.text == "count 1"
    assert cookie_of(again) != cookie


def test_requests_keep_a_session_from_expiring(web):
    cookie = cookie_of(web.curl("/servlet?p=count&interval=3"))
    for count in range(2, 7):
        time.sleep(0.9)
        assert web.curl("/servlet?p=count", *with_cookie(cookie)).text == f"count {count}"


def test_the_timer_keeps_a_session_alive_that_is_being_served(start, front):
    start.host("--listen", start.socket_path, "--timer", "1")
    cookie = cookie_of(front.curl("/servlet?p=count&interval=4"))
    # Longer than the session may be idle; it is busy whenever the timer runs.
    assert front.curl("/servlet?p=count&ms=6000", *with_cookie(cookie)).text == "count 2"
    assert front.curl("/servlet?p=count&create=0", *with_cookie(cookie)).text == "count 3"


def test_a_limit_ends_the_session_that_has_been_idle_longest(start, front):
    start.host("--listen", start.socket_path, "--max-sessions", "2")
    cookies = []
    for _ in range(3):
        cookies.append(cookie_of(front.curl("/servlet?p=count")))
        time.sleep(1.1)  # the session clock counts whole seconds
    texts = [front.curl("/servlet?p=count&create=0", *with_cookie(cookie)).text
             for cookie in cookies]
    assert texts == ["no session", "count 2", "count 2"]


def test_a_limit_keeps_the_session_of_a_request_that_is_being_served(start, front):
    start.host("--listen", start.socket_path, "--max-sessions", "1", "--threads", "2")
    cookie = cookie_of(front.curl("/servlet?p=count"))
    with concurrent.futures.ThreadPoolExecutor() as pool:
        slow = pool.submit(front.curl, "/servlet?p=count&ms=3000", *with_cookie(cookie))
        time.sleep(1)
        other = cookie_of(front.curl("/servlet?p=count"))
        assert slow.result().text == "count 2"
    assert front.curl("/servlet?p=count&create=0", *with_cookie(cookie)).text == "count 3"
    third = cookie_of(front.curl("/servlet?p=count"))
    alive = [front.curl("/servlet?p=count&create=0", *with_cookie(one)).text != "no session"
             for one in (cookie, other, third)]
    assert alive == [False, False, True]
