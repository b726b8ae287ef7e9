"""Pages, redirects, events and the notice, through the web servers and without them."""

import concurrent.futures
import contextlib
import time

import pytest

NOT_FOUND = b"Status: 404 \r\nContentType: text/html \r\n\r\n<h1>404 - Not Found</h1>"


@pytest.fixture
def host(start):
    return start.host("--listen", start.socket_path)


def facts(answer):
    assert answer.status == 200
    pairs = [line.split("=", 1) for line in answer.text.splitlines()]
    return dict(pairs), [value for name, value in pairs if name == "x"]


def test_a_page_sees_what_the_client_requested(web, folder):
    known, values = facts(web.curl("/servlet?p=facts&x=a%20b&x=c%2Bd+e&y=%2e",
                                   "--header", "Accept-Language: de,en"))
    assert known["method"] == "GET"
    assert known["uri"] == "/servlet?p=facts&x=a%20b&x=c%2Bd+e&y=%2e"
    assert known["address"] == "127.0.0.1"
    assert known["servlet"] == "/servlet"
    assert known["root"] == str(folder / "www")
    assert known["role"] == "RESPONDER"
    assert known["protocol"] == "HTTP/1.1"
    assert known["port"] == str(web.port)
    assert known["locale"] == "de"
    assert values == ["a b", "c+d e"]


def test_form_fields_come_before_query_fields(web):
    known, values = facts(web.curl("/servlet?p=facts&x=query", "--data", "x=form&x=more"))
    assert known["method"] == "POST"
    assert known["type"] == "application/x-www-form-urlencoded"
    assert known["length"] == "13"
    assert values == ["form", "more", "query"]


def test_a_page_sets_status_and_headers(web):
    answer = web.curl("/servlet?p=status&code=403")
    assert answer.status == 403
    assert answer.header("Content-Type") == "text/plain"
    assert answer.text == "with a status"


def test_a_redirect_gets_its_status_from_the_web_server(web):
    answer = web.curl("/servlet?p=elsewhere")
    assert answer.status == 302
    assert answer.header("Location").endswith("/servlet?p=facts")


def test_a_template_is_rendered_with_the_values_of_the_page(web, folder):
    (folder / "page.html").write_text(
        '<p><TMPL_VAR name="x"> on <TMPL_VAR name="devtype"> in <TMPL_VAR name="local"></p>\n')
    answer = web.curl("/servlet?p=template&x=a%26b", "--header", "Accept-Language: fr")
    assert answer.header("Content-Type") == "text/html"
    assert answer.text == "<p>a&amp;b on T 100 in fr</p>\n"


def test_a_large_page_arrives_complete(web):
    answer = web.curl("/servlet?p=big&lines=20000")
    assert answer.body == (b"b" * 99 + b"\n") * 20000


def test_four_slow_pages_are_served_at_once(web):
    begin = time.monotonic()
    with concurrent.futures.ThreadPoolExecutor(4) as clients:
        answers = list(clients.map(web.curl, ["/servlet?p=slow&ms=2000"] * 4))
    taken = time.monotonic() - begin
    assert [answer.text for answer in answers] == ["begin end"] * 4
    assert taken < 4, "two of them took turns"


@pytest.mark.parametrize("page", ["unknown", "absent", "refusing"])
def test_an_unavailable_page_is_reported_in_the_body(web, start, page):
    # The empty header block has been sent before the container reports the error.
    answer = web.curl(f"/servlet?p={page}")
    assert (answer.status, answer.body) == (200, NOT_FOUND)
    assert start.cgi_fcgi(f"/servlet?p={page}") == b"\r\n" + NOT_FOUND


@pytest.mark.parametrize("uri", [
    "/servlet", "/servlet?", "/servlet?q=1", "/", "", "/servlet?keys=1",
    "/servlet?p=facts&y=%3Cb%3E", "/servlet?p=facts&y=%3cb", "/servlet?p=facts&y=<b",
    "/servlet?p=facts&y=SCRIPTS", "/servlet?p=facts&jumpto=a.b", "/servlet?p=facts&jumpto=a%20b",
    "/servlet?p=facts&acc=1a", "/servlet?p=facts&acc=--5", "/servlet?p=facts&model=x",
    "/servlet?p=a.b", "/servlet?p=a/b",
])
def test_a_refused_address_gets_exactly_the_404_answer(start, host, uri):
    assert start.cgi_fcgi(uri) == NOT_FOUND


@pytest.mark.parametrize("uri", [
    "/servlet?p=facts&jumpto=login-form_2", "/servlet?p=facts&acc=-5", "/servlet?p=facts&acc=-",
    "/servlet?p=facts&model=28", "/servlet?p=facts&jumpto=&acc=&model=",
])
def test_a_harmless_address_reaches_its_page(start, host, uri):
    assert start.cgi_fcgi(uri).startswith(b"Content-Type: text/plain \r\n\r\nmethod=GET\n")


@pytest.mark.parametrize("query", ["p=facts&y=%3Cb", "p=facts&y=javascript", "p=facts&jumpto=a.b",
                                   "p=facts&acc=x"])
def test_a_refused_address_gets_a_404_through_a_web_server(web, query):
    answer = web.curl("/servlet?" + query)
    assert (answer.status, answer.text) == (404, "<h1>404 - Not Found</h1>")
    assert answer.headers("ContentType") == ["text/html"]


LEGACY = [
    ("/cgi-bin/Velmoranix.acx?Id=1&x=y", "/servlet?p=login&q=loginForm&jumpto=status"),
    ("/cgi-bin/Velmoranix.acx?Id=1", "/servlet?p=login&q=loginForm&jumpto=status"),
    ("/cgi-bin/Velmoranix.acx?Id=77", "/servlet?p=login&q=loginForm&jumpto=status"),
    ("/cgi-bin/Quillpage.tpx?page=Status.htm",
     "/servlet?p=login&q=loginForm&jumpto=status"),
    ("/cgi-bin/Quillpage.tpx?page=Phone-Upgrade.htm",
     "/servlet?p=login&q=loginForm&jumpto=status"),
    ("/cgi-bin/Quillpage.tpx?page=Home.htm", "/servlet?page=Home.htm"),
    ("/cgi-bin/Velmoranix.acx?Id=2", "/servlet?Id=2"),
]


@pytest.mark.parametrize("uri, location", LEGACY)
def test_legacy_addresses_are_redirected(start, host, uri, location):
    assert start.cgi_fcgi(uri) == f"Location: {location} \r\n\r\n".encode()


@pytest.mark.parametrize("uri, location", LEGACY)
def test_a_browser_is_redirected_from_legacy_addresses(web, uri, location):
    answer = web.curl(uri)
    assert answer.status == 302
    assert answer.header("Location").endswith(location)


@pytest.mark.parametrize("query", ["key=1", "number=5", "phonecfg=x", "redirectcall=1",
                                   "forward=1", "Server=a", "push=1", "download=1", "command=1",
                                   "csta", "csta=1&p=facts", "key=1&p=facts"])
def test_events_reach_only_the_listeners(web, query, folder):
    answer = web.curl("/servlet?" + query)
    # The response is an empty header block, which Apache takes for the body.
    assert (answer.status, answer.body) == (200, b"\r\n" if web.kind == "apache" else b"")
    assert (folder / "requests").read_text() == f"/servlet?{query}\n"


def test_a_listener_that_refuses_ends_the_request(web, folder):
    answer = web.curl("/servlet?p=forbidden")
    assert (answer.status, answer.text) == (200, "refused")
    assert not (folder / "requests").exists(), "the listener behind it saw it"


@pytest.mark.parametrize("asked, word", [
    ("p=facts", "idle"),
    ("p=facts&q=reboot", "reboot"),
    ("p=facts&reboot=true", "reboot"),
    ("p=settings-upgrade&q=reset", "reset"),
    ("p=settings-config&q=import", "configration"),
    ("p=settings-config&q=import&x=1", "idle"),
    ("p=settings-config&q=localconfig&type=import", "configration"),
    ("p=settings-config&q=localconfig&type=remove", "configration"),
    ("p=upgrade&now=true&reboot=true", "reboot"),
])
def test_the_notice_is_the_requested_status(start, host, asked, word):
    start.cgi_fcgi("/servlet?" + asked)
    for _ in range(2):  # a request does not change it
        assert start.cgi_fcgi("/servlet?p=notice") == (
            f"ContentType: text/html \r\n\r\n{word}".encode())


def test_the_servlet_answers_the_notice_during_provisioning(start, host):
    start.cgi_fcgi("/servlet?p=facts&now=true")
    assert start.cgi_fcgi("/servlet?p=notice").endswith(b"\r\n\r\nthe servlet's own notice")


def test_files_are_served_but_not_those_of_the_plug_ins(web, folder):
    (folder / "www/page.html").write_text("<p>a page</p>")
    (folder / "www/style.css").write_text("p {}")
    (folder / "www/WEB-INFO/secret.html").write_text("secret")
    page = web.curl("/page.html")
    assert (page.status, page.text) == (200, "<p>a page</p>")
    assert page.header("Content-Type") == "text/html; charset=utf-8"
    assert web.curl("/style.css").header("Content-Type") == "text/css; charset=utf-8"
    assert web.curl("/missing.html").status == 404
    for path in ("/WEB-INFO/secret.html", "/web-info/secret.html", "/%57EB-INFO/secret.html",
                 "//WEB-INFO/secret.html", "/x/../WEB-INFO/secret.html", "/WEB-INFO/",
                 "/x/%2e%2e/WEB-INFO/secret.html", "/./WEB-INFO//secret.html", "/WEB-INFO"):
        answer = web.curl(path)
        assert answer.status in (400, 403), path
        assert b"secret" not in answer.body


def test_the_root_redirects_to_the_sign_in_page(web):
    for target in ("/", "/?x=1"):
        answer = web.curl(target)
        assert answer.status == 302
        assert answer.header("Location").endswith("/servlet?p=login&q=loginForm")


def test_unfinished_forms_block_no_other_request(start, front):
    start.host("--listen", start.socket_path, "--threads", "1")
    head = (b"POST /servlet?p=facts HTTP/1.1\r\nHost: phone\r\nContent-Length: 100\r\n"
            b"Content-Type: application/x-www-form-urlencoded\r\n\r\na")
    with contextlib.ExitStack() as slow:
        for _ in range(3):
            slow.enter_context(front.connect()).sendall(head)
        time.sleep(0.3)
        assert front.curl("/servlet?p=facts", "--max-time", "10").status == 200


def test_a_form_that_is_too_large_is_refused(web):
    form = "text=" + "x" * (2 << 20)
    assert web.curl("/servlet?p=facts", "--data", "@-", stdin=form.encode()).status == 413


@pytest.mark.parametrize("target", [
    "//elsewhere.example/..%2fservlet?x=cgi-bin/Quillpage.tpx",
    "//elsewhere.example/../servlet?x=cgi-bin/Velmoranix.acx",
    "/\\elsewhere.example/..%2fservlet?x=cgi-bin/Quillpage.tpx",
])
def test_no_address_redirects_to_another_site(web, target):
    answer = web.curl(target)
    assert answer.status in (400, 403, 404)
    assert answer.headers("Location") == []
