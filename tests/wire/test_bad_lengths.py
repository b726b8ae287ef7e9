"""Bodies of another length than announced: what a page sees of them, and that the next request is
answered."""

import pytest

from bad_records import FORM, Request
from facts import PAGE, ask, ask_with, facts, usual


@pytest.fixture(autouse=True)
def answered_and_logged(daemon, daemon_host):
    yield
    assert daemon.still_answers()
    assert daemon_host.log_lines()


LENGTHS = {
    "3": 3, "": 0, "+3": 3, " 3": 3, "3 ": 3, "03": 3, "3abc": 3, "3,3": 3, "3.9": 3, "+5": 5,
    "-1": -1, "-3": -3, "0x3": 0, "abc": 0, "1e1": 1, "2": 2, "4": 4, "2147483647": 2147483647,
    "2147483648": 2147483647, "4294967299": 2147483647, "-2147483649": -2147483648,
    "9" * 19: 2147483647, "9" * 20: 2147483647, "-" + "9" * 20: -2147483648,
    "18446744073709551619": 2147483647, "1048577": 1048577,
}


@pytest.mark.parametrize("text", LENGTHS)
def test_a_form_is_read_if_it_has_the_announced_length(daemon, text):
    expected = usual(daemon, length=str(LENGTHS[text]))
    if LENGTHS[text] != len(FORM):
        expected = expected.replace(b"x=y\n", b"")
    assert facts(ask(daemon, ("CONTENT_LENGTH", text))) == expected


def test_without_a_length_there_is_no_body(daemon):
    variables = Request(PAGE).variables
    del variables["CONTENT_LENGTH"]
    answer = facts(ask_with(daemon, variables))
    assert answer == usual(daemon, length="0").replace(b"x=y\n", b"")


@pytest.mark.parametrize("first, second", [("3", "100"), ("100", "3")])
def test_the_first_of_two_lengths_counts(daemon, first, second):
    expected = usual(daemon, length=first)
    answer = facts(ask(daemon, ("CONTENT_LENGTH", first), ("CONTENT_LENGTH", second)))
    assert answer == (expected if first == "3" else expected.replace(b"x=y\n", b""))


def test_the_first_of_two_cookie_variables_counts(daemon):
    answer = facts(ask(daemon, ("HTTP_COOKIE", "JSESSIONID=one; a=b"),
                       ("HTTP_COOKIE", "JSESSIONID=two")))
    assert answer == usual(daemon, cookie="JSESSIONID=one; a=b", session="one")


def test_the_first_of_two_cookies_of_one_name_counts(daemon):
    cookie = "JSESSIONID=one; JSESSIONID=two"
    answer = facts(ask(daemon, ("HTTP_COOKIE", cookie)))
    assert answer == usual(daemon, cookie=cookie, session="one")


@pytest.mark.parametrize("size", [0, 3, 10, 70000, 1 << 20])
@pytest.mark.parametrize("length", ["0", "3", "10", "2000000"])
def test_another_body_is_whatever_arrives(daemon, length, size):
    answer = ask(daemon, ("CONTENT_TYPE", "text/plain"), ("CONTENT_LENGTH", length),
                 ("QUERY_STRING", f"p=body&most={2 << 20}"), body=b"x" * size)
    assert facts(answer) == f"read {size}".encode()


UPLOAD = (b"--edge\r\nContent-Disposition: form-data; name=\"image\"; filename=\"image.bin\""
          b"\r\n\r\n0123456789\r\n--edge--\r\n")


@pytest.mark.parametrize("size", range(0, len(UPLOAD) + 1))
def test_an_upload_is_complete_when_all_of_it_has_arrived(daemon, daemon_host, size):
    answer = ask(daemon, ("CONTENT_TYPE", "multipart/form-data; boundary=edge"),
                 ("CONTENT_LENGTH", str(len(UPLOAD))), ("QUERY_STRING", "p=upload"),
                 body=UPLOAD[:size])
    complete = size >= len(UPLOAD) - len(b"\r\n")
    assert facts(answer) == (b"complete image.bin, note -" if complete
                             else b"incomplete -, note -")
    (daemon_host.folder / "uploads/image").unlink(missing_ok=not complete)
    assert list((daemon_host.folder / "uploads").iterdir()) == []
