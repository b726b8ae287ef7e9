"""The phone's pages for what the web servers answer themselves."""

import re
import shutil

import pytest

from conftest import SOURCE
from service import PATIENCE, in_background
from test_front_servers import impatient  # a fixture

WWW = SOURCE / "examples/phone/www"
CONFIG = SOURCE / "packaging/front-servers"
PAGES = sorted(path.name for path in WWW.glob("error-*.html"))


@pytest.fixture(autouse=True)
def pages(build, folder):
    for path in (build.folder / "device/phone/www").glob("error-*.html"):
        shutil.copy(path, folder / "www")


def expect_page(answer, name):
    """Expects exactly the file: nothing of the request is repeated."""
    assert answer.header("Content-Type").lower() == "text/html; charset=utf-8"
    assert answer.text == (WWW / name).read_text()


def test_a_file_that_does_not_exist_has_a_page(front):
    answer = front.curl("/nothing.css?x=<b>")
    assert answer.status == 404
    assert answer.headers("Cache-Control") == ["no-cache"]
    expect_page(answer, "error-404.html")


@pytest.mark.parametrize("given", [
    ("--header", 'If-None-Match: "1"'), ("--header", "Range: bytes=0-9")], ids=["kept", "range"])
def test_a_browser_that_has_an_error_page_gets_the_status_too(front, given):
    tag = front.curl("/nothing").headers("ETag")
    if tag:
        given = [word.replace('"1"', tag[0]) for word in given]
    answer = front.curl("/nothing", *given)
    assert answer.status == 404
    expect_page(answer, "error-404.html")


@pytest.mark.parametrize("size, content_type", [
    (70_000, "application/x-www-form-urlencoded"), (200_000_000, "multipart/form-data; boundary=b")],
    ids=["form", "upload"])
def test_what_is_too_large_has_a_page(front, size, content_type):
    answer = front.curl("/servlet?p=facts", "--data", "x=", "--header", f"Content-Length: {size}",
                        "--header", f"Content-Type: {content_type}")
    assert answer.status == 413
    expect_page(answer, "error-413.html")


@pytest.mark.parametrize("options", [(), ("--data", "x=form"), ("--form", "x=upload")],
                         ids=["page", "form", "upload"])
def test_a_daemon_that_does_not_run_has_a_page(front, options):
    answer = front.curl("/servlet?p=facts&x=<b>", *options)
    assert answer.status == (502 if front.kind == "nginx" else 503)
    expect_page(answer, "error-503.html")
    head = front.curl("/servlet?p=facts", "--head")
    assert (head.status, head.body) == (answer.status, b"")


def test_a_daemon_that_ends_during_a_request_has_a_page(start, front):
    listener = start.shared_socket()
    listener.settimeout(PATIENCE)
    with in_background(lambda: front.curl("/servlet?p=facts")) as answers:
        with listener.accept()[0] as incoming:
            incoming.recv(1)  # lighttpd connects again if it could not write the request
    assert answers[0].status in (500, 502, 503)
    expect_page(answers[0], "error-503.html")


@pytest.mark.parametrize("kind", ["nginx", "apache"])
def test_a_daemon_that_does_not_answer_has_a_page(start, impatient, kind):
    front = start.front(kind, impatient)
    start.shared_socket()
    answer = front.curl("/servlet?p=facts", "--max-time", PATIENCE, "--data", "x=form")
    assert answer.status == 504
    expect_page(answer, "error-503.html")


@pytest.mark.parametrize("code", [403, 404, 413, 500, 502, 503, 504])
def test_the_daemons_answers_stay(web, code):
    answer = web.curl(f"/servlet?p=status&code={code}")
    assert (answer.status, answer.text) == (code, "with a status")


@pytest.mark.parametrize("name", PAGES)
def test_an_error_page_needs_only_files_of_the_phone(name):
    page = (WWW / name).read_text()
    needed = re.findall(r'<link [^>]*href="/([^"]+)"', page)
    assert {"style.css", "favicon.svg"} == set(needed)
    assert all((WWW / each).exists() for each in needed)
    assert "<script" not in page and "style=" not in page
    # uploads.js and drafts.js take an element of this name for a page of the daemon.
    assert 'id="main"' not in page


@pytest.mark.parametrize("name", PAGES)
def test_an_error_page_says_what_to_do_in_each_language(name):
    page = (WWW / name).read_text()
    links = {"en": "Go to the status page", "de": "Zur Statusseite", "zh": "前往状态页面"}
    if name == "error-503.html":
        links = {"en": "Try again", "de": "Noch einmal versuchen", "zh": "重试"}
    assert '<html lang="en">' in page
    parts = re.findall(r'<section class="card"(?: lang="(..)")?>\s*<p>[^<]+</p>\s*'
                       r'<p class="actions"><a class="button" href="[^"]*">([^<]+)</a></p>', page)
    assert {language or "en": link for language, link in parts} == links
