"""Further attacks on communication and configuration (OWASP ASVS, chapters 9, 13 and 14)."""

import re
import subprocess

import pytest

import raw_http
from browser import Browser
from fixtures import SOURCE

PAGES = ("/servlet?p=login&q=loginForm", "/servlet?p=status", "/servlet?p=security")


def test_every_page_forbids_framing_sniffing_and_caching(user):
    for target in PAGES[1:]:
        answer = user.get(target)
        policy = answer.header("Content-Security-Policy")
        assert "default-src 'none'" in policy or "default-src 'self'" in policy
        assert "frame-ancestors 'none'" in policy or "frame-ancestors 'self'" in policy
        assert "unsafe" not in policy
        assert answer.header("X-Content-Type-Options") == "nosniff"
        assert "no-store" in answer.header("Cache-Control")


def test_no_answer_names_the_version_of_the_web_server(phone):
    for target in ("/", "/missing", "/servlet?p=missing", "/WEB-INFO/x", *PAGES):
        answer = Browser(phone).get(target)
        for server in answer.headers("Server"):
            assert not re.search(r"\d", server), server
        assert not re.search(rb"(nginx|lighttpd|Apache)/\d", answer.body)


def test_no_answer_names_files_of_the_device(phone, user):
    for target in ("/missing", "/servlet?p=missing", "/servlet?p=status&q=%00", "/servlet?acc=x&p=a",
                   "/servlet", "/servlet?", "/cgi-bin/"):
        for browser in (Browser(phone), user):
            assert b"/phone/" not in browser.get(target).body, target


def test_many_ranges_do_not_multiply_an_answer(phone):
    browser = Browser(phone)
    size = len(browser.get("/style.css").body)
    ranges = "bytes=" + ",".join(["0-"] * 500)
    for target in ("/style.css", "/servlet?p=login&q=loginForm"):
        answer = browser.get(target, "--header", f"Range: {ranges}")
        assert len(answer.body) < 4 * max(size, 20000), target


# The second request must never reach a page.
SECOND = b"GET /servlet?p=notice&smuggled=1 HTTP/1.1\r\nHost: phone\r\n\r\n"


@pytest.mark.parametrize("headers", [
    ["Content-Length: 4", "Transfer-Encoding: chunked"],
    ["Transfer-Encoding: chunked", "Content-Length: 4"],
    ["Content-Length: 4", "Content-Length: 0"], ["Content-Length: +4"], ["Content-Length: 0x4"],
    ["Transfer-Encoding : chunked"], ["Transfer-Encoding: xchunked"],
    ["Transfer-Encoding: chunked", "Transfer-Encoding: identity"],
    ["Transfer-Encoding:\x0bchunked", "Content-Length: 4"]])
def test_a_request_cannot_be_smuggled_in_a_body(phone, headers):
    attack = raw_http.raw("POST /servlet?p=notice HTTP/1.1", "Host: phone",
                          f"Content-Type: {raw_http.FORM}", *headers, body=b"0\r\n\r\n" + SECOND)
    with phone.connect() as connection:
        connection.sendall(attack)
        connection.settimeout(2)
        answers = raw_http.words(raw_or_nothing(connection))
    assert answers.count("200") <= 1, answers


def raw_or_nothing(connection):
    data = b""
    try:
        while piece := connection.recv(65536):
            data += piece
    except (TimeoutError, ConnectionResetError):
        pass
    return data


@pytest.mark.parametrize("kind", ["lighttpd", "nginx", "apache"])
@pytest.mark.parametrize("version", ["ssl3", "tls1", "tls1_1"])
def test_old_versions_of_tls_are_refused(start, kind, version):
    start.certificate()
    front = start.front(kind, SOURCE / "packaging/front-servers", "tls")
    for offered, accepted in ((version, False), ("tls1_2", True)):
        ran = subprocess.run(
            ["openssl", "s_client", f"-{offered}", "-cipher", "ALL:@SECLEVEL=0",
             "-connect", f"127.0.0.1:{front.port}"], input=b"", check=False, capture_output=True)
        if b"nknown option" not in ran.stderr:
            assert (ran.returncode == 0) == accepted, offered
