"""Further attacks on access control (OWASP ASVS, chapter 4): a stranger asks for what only users may
see."""

import re

import pytest

from browser import Browser
from fixtures import SOURCE

SERVLETS = re.findall(r'servlet id="([^"]+)"',
                      (SOURCE / "examples/phone/servlet.xml.in").read_text())
PUBLIC = {"login", "language", "notice"}
INSIDE = ("idleSeconds", "passwordHash", "createLoginPage", "Björn", "<settings")


@pytest.fixture
def stranger(phone):
    return Browser(phone)


def shows_nothing(answer):
    return not any(word in answer.body.decode(errors="replace") for word in INSIDE)


def test_only_a_user_learns_that_a_page_does_not_exist(user, phone):
    answer = user.get("/servlet?p=nonsense")
    assert answer.status == 404
    assert "There is no page at this address." in answer.text
    assert Browser(phone).get("/servlet?p=nonsense").status == 303


def test_no_page_is_shown_to_a_stranger(stranger):
    assert len(SERVLETS) > 10
    for page in set(SERVLETS) - PUBLIC:
        for action in ("", "&q=export", "&q=download", "&q=all"):
            answer = stranger.get(f"/servlet?p={page}{action}")
            assert answer.status in (303, 403), page
            assert shows_nothing(answer), page


@pytest.mark.parametrize("target", [
    "/servlet?p=Security", "/servlet?p=security%00", "/servlet?p=security%20", "/servlet?P=security",
    "/servlet?p=./security", "/servlet?p=login/../security", "/servlet?p=login&p=security",
    "/servlet?p=security&p=login", "/servlet?p[]=security", "/servlet?p=%73ecurity",
    "/servlet?p=notice&p=security", "/servlet?key=1&p=security", "/servlet?csta=1&p=security",
    "/servlet?number=1&p=security", "/servlet?p=security&key=1", "/servlet?p=login;p=security",
    "/cgi-bin/Quillpage.tpx?p=security", "/cgi-bin/Velmoranix.acx?p=security",
    "/servlet/?p=security", "/servlet/security", "/servlet?p=security#", "/SERVLET?p=security"])
def test_another_spelling_of_a_page_opens_nothing(stranger, target):
    assert shows_nothing(stranger.get(target))


def test_a_page_in_the_form_does_not_replace_the_one_in_the_address(stranger):
    for public in PUBLIC:
        assert shows_nothing(stranger.post(f"/servlet?p={public}", {"p": "security"}))
        assert shows_nothing(stranger.post(f"/servlet?p=security", {"p": public}))


@pytest.mark.parametrize("path", [
    "/WEB-INFO/servlet/servlet.xml", "/web-info/servlet/servlet.xml",
    "/%57EB-INFO/servlet/servlet.xml", "/./WEB-INFO/servlet/servlet.xml",
    "//WEB-INFO/servlet/servlet.xml", "/x/../WEB-INFO/servlet/servlet.xml",
    "/WEB-INFO%2fservlet%2fservlet.xml", "/WEB-INFO/./servlet/servlet.xml",
    "/WEB-INFO./servlet/servlet.xml", "/WEB-INFO%00/servlet/servlet.xml",
    "/WEB-INFO\\servlet\\servlet.xml", "/WEB%2dINFO/servlet/servlet.xml",
    "/WEB-INFO/templates/en/security.html", "/servlet/../WEB-INFO/servlet/servlet.xml"])
def test_configuration_and_templates_are_not_served(stranger, path):
    answer = stranger.get(path)
    assert answer.status in (400, 403, 404), path
    assert shows_nothing(answer)


@pytest.mark.parametrize("path", [
    "/../data/state.xml", "/..%2fdata/state.xml", "/%2e%2e/data/state.xml", "/data/state.xml",
    "/..\\data\\state.xml", "/style.css/../../data/state.xml", "/../../../../etc/passwd",
    "/....//....//etc/passwd", "/%c0%ae%c0%ae/data/state.xml"])
def test_files_outside_the_document_root_are_not_served(stranger, path):
    answer = stranger.get(path)
    assert answer.status in (400, 403, 404), path
    assert b"root:" not in answer.body and shows_nothing(answer)


@pytest.mark.parametrize("method", ["PUT", "DELETE", "PATCH", "TRACE", "PROPFIND", "MKCOL", "X"])
def test_other_methods_write_and_reveal_nothing(stranger, method):
    for target in ("/style.css", "/new.txt", "/servlet?p=security"):
        answer = stranger.send(target, "--request", method, "--data", "x=1",
                               "--header", "Cookie: secret=1")
        assert b"secret=1" not in answer.body
        assert shows_nothing(answer)
    assert stranger.get("/new.txt").status == 404
    assert stranger.get("/style.css").status == 200


@pytest.mark.parametrize("header", [
    "X-Forwarded-For: 127.0.0.1", "X-Real-IP: 127.0.0.1", "X-Original-URL: /servlet?p=security",
    "X-Rewrite-URL: /servlet?p=security", "X-HTTP-Method-Override: PUT", "Remote-Addr: 127.0.0.1",
    "REMOTE_ADDR: 127.0.0.1", "Proxy: http://foreign.example", "Forwarded: for=127.0.0.1"])
def test_no_header_gives_a_stranger_another_address_or_page(phone, user, header):
    elsewhere = Browser(phone, "127.0.0.2")
    elsewhere.cookies.update(user.cookies)
    assert elsewhere.get("/servlet?p=security", "--header", header).status == 303
    assert shows_nothing(elsewhere.get("/servlet?p=login", "--header", header))
