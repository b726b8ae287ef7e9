"""Invalid CGI variables: what a page sees of them, what is logged, and that the next request is
answered."""

import pytest

from facts import PAGE, ask, facts, usual

NOT_FOUND = b"Status: 404 \r\nContentType: text/html \r\n\r\n<h1>404 - Not Found</h1>"


@pytest.fixture(autouse=True)
def answered_and_logged(daemon, daemon_host):
    yield
    assert daemon.still_answers()
    assert daemon_host.log_lines()


# The line of the page that shows each variable.
SHOWN = {
    "DOCUMENT_ROOT": "root", "REMOTE_HOST": "host", "SERVER_NAME": "name",
    "SERVER_PROTOCOL": "protocol", "REFFERER": "referrer", "USER_AGENT": "agent",
    "CONTEXT_PATH": "context", "SCRIPT_NAME": "servlet", "HTTP_ACCEPT": "accept",
    "HTTP_ACCEPT_ENCODING": "encodings", "HTTP_ACCEPT_CHARSET": "charsets",
    "HTTP_COOKIE": "cookie", "REMOTE_ADDR": "address",
}
BYTES = {
    "line ends": b"a\r\nSet-Cookie: forged=1\r\n\r\n<b>", "a line feed": b"a\nb",
    "an escape": b"\x1b[2J\x1b]0;b\x07", "bytes above 0x7f": b"\x80\xfe\xff\xc0\xaf",
    "control characters of two bytes": b"\xc2\x9b2J\xc2\x85", "control bytes": bytes(range(1, 32)),
    "a delete": b"a\x7fb",
}
in_every_way = pytest.mark.parametrize("value", BYTES.values(), ids=BYTES)


@in_every_way
@pytest.mark.parametrize("variable", SHOWN)
def test_a_page_gets_a_variable_unchanged(daemon, variable, value):
    assert facts(ask(daemon, (variable, value))) == usual(daemon, **{SHOWN[variable]: value})


@pytest.mark.parametrize("variable", SHOWN)
def test_a_variable_ends_at_a_zero_byte(daemon, variable):
    assert facts(ask(daemon, (variable, b"a\0b"))) == usual(daemon, **{SHOWN[variable]: b"a"})


@in_every_way
def test_a_page_gets_the_languages_and_the_first_of_them_unchanged(daemon, value):
    answer = facts(ask(daemon, ("HTTP_ACCEPT_LANGUAGE", value + b",de")))
    assert answer == usual(daemon, languages=value + b",de", locale=value)


@in_every_way
def test_another_content_type_is_no_form(daemon, value):
    answer = facts(ask(daemon, ("CONTENT_TYPE", value)))
    assert answer == usual(daemon, type=value).replace(b"x=y\n", b"")


@in_every_way
def test_another_method_has_no_form(daemon, value):
    answer = facts(ask(daemon, ("REQUEST_METHOD", value)))
    assert answer == usual(daemon, method=value).replace(b"x=y\n", b"")


@in_every_way
def test_the_role_is_the_one_of_the_request(daemon, value):
    assert facts(ask(daemon, ("FCGI_ROLE", value))) == usual(daemon)


@in_every_way
def test_the_port_is_a_number(daemon, value):
    assert facts(ask(daemon, ("SERVER_PORT", b"80" + value))) == usual(daemon, port="80")
    assert facts(ask(daemon, ("SERVER_PORT", value))) == usual(daemon, port="0")


@in_every_way
def test_the_length_is_the_number_at_its_beginning(daemon, value):
    assert facts(ask(daemon, ("CONTENT_LENGTH", b"3" + value))) == usual(daemon)


@in_every_way
def test_an_encoding_of_the_body_changes_nothing(daemon, value):
    assert facts(ask(daemon, ("HTTP_TRANSFER_ENCODING", value))) == usual(daemon)


@in_every_way
def test_a_field_is_what_it_is_in_the_query(daemon, value):
    query = b"p=facts&x=" + value
    text = value.partition(b"&")[0].replace(b"+", b" ")
    answer = facts(ask(daemon, ("QUERY_STRING", query)))
    assert answer == usual(daemon, query=query) + b"x=" + text + b"\n"


# Only the address of a request is ever logged: when it is refused.
LOGGED = {
    "line ends": r"a\r\nSet-Cookie: forged=1\r\n\r\n<b>", "a line feed": r"a\nb",
    "an escape": r"\x1B[2J\x1B]0;b\x07", "bytes above 0x7f": r"\x80\xFE\xFF\xC0\xAF",
    "control characters of two bytes": r"\xC2\x9B2J\xC2\x85",
    "control bytes": r"\x01\x02\x03\x04\x05\x06\x07\x08\t\n\x0B\x0C\r\x0E\x0F" + "".join(
        f"\\x{byte:02X}" for byte in range(16, 32)),
    "a delete": r"a\x7Fb",
}


@pytest.mark.parametrize("name", BYTES)
def test_an_address_that_is_refused_is_escaped_in_the_log(daemon, daemon_host, name):
    address = PAGE.encode() + b"&x=<" + BYTES[name]
    assert ask(daemon, ("REQUEST_URI", address)) == NOT_FOUND
    last = daemon_host.log_lines()[-1]
    assert " error [65] " in last
    assert last.endswith(f": url = {PAGE}&x=<{LOGGED[name]}, include illegal char")


def test_a_client_cannot_forge_log_records(daemon, daemon_host):
    before = len(daemon_host.log_lines())
    forged = "<\n2026-01-01T00:00:00Z error [65]: accept request failed"
    assert ask(daemon, ("REQUEST_URI", PAGE + forged)) == NOT_FOUND
    assert len(daemon_host.log_lines()) == before + 1


@in_every_way
@pytest.mark.parametrize("name", ["p", "jumpto", "acc", "model"])
def test_a_query_field_with_such_bytes_is_refused(daemon, name, value):
    query = name.encode() + b"=" + value.replace(b"&", b"")
    assert ask(daemon, ("QUERY_STRING", query)) == NOT_FOUND


@in_every_way
def test_an_event_with_such_bytes_is_one(daemon, value):
    text = value.replace(b"<b>", b"")
    assert ask(daemon, ("REQUEST_URI", b"/servlet?key=" + text),
               ("QUERY_STRING", b"key=" + text)) == b"\r\n"


# No front server forwards line ends in an address; see tests/wire/bad_request_lines.py.
@in_every_way
def test_a_legacy_address_is_redirected_unchanged(daemon, value):
    text = value.replace(b"<b>", b"")
    answer = ask(daemon, ("REQUEST_URI", b"/cgi-bin/Quillpage.tpx?page=" + text))
    assert answer == b"Location: /servlet?page=" + text + b" \r\n\r\n"
