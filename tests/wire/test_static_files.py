"""What the web servers do with the static files, and with the daemon's answers in comparison: compression
and versions."""

import gzip

import pytest

from conftest import SOURCE
from service import wait_until

CONFIG = SOURCE / "packaging/front-servers"
STYLE = b"".join(b".a%d { margin: 0; }\n" % number for number in range(500))
FILES = {"style.css": "text/css", "page.js": "text/javascript", "icons.svg": "image/svg+xml"}
GZIP = ("--header", "Accept-Encoding: gzip, deflate, br")


@pytest.fixture(params=["lighttpd", "nginx", "apache"])
def front(request, start, folder):
    """A web server that compresses, with the same content as style, script and picture."""
    for name in FILES:
        (folder / "www" / name).write_bytes(STYLE)
    additions = ["deflate"] if request.param == "lighttpd" else []
    return start.front(request.param, CONFIG, *additions)


@pytest.mark.parametrize("name", FILES)
def test_a_file_is_compressed_for_who_accepts_it(front, name):
    packed = front.curl(f"/{name}", *GZIP)
    assert (packed.status, packed.header("Content-Encoding")) == (200, "gzip")
    assert packed.header("Content-Type").startswith(FILES[name])
    assert packed.header("Vary").lower() == "accept-encoding"
    assert len(packed.body) < len(STYLE) / 3

    plain = front.curl(f"/{name}")
    assert (plain.status, plain.body) == (200, STYLE)
    assert plain.headers("Content-Encoding") == []
    assert plain.header("Content-Type") == packed.header("Content-Type")


def test_a_compressed_file_is_complete(front):
    unpacked = front.curl("/style.css", "--compressed")
    assert (unpacked.status, unpacked.body) == (200, STYLE)


@pytest.mark.parametrize("accepted", [(), GZIP], ids=["plain", "compressed"])
def test_a_browser_that_has_the_file_gets_no_other(front, folder, accepted):
    tag = front.curl("/style.css", *accepted).header("ETag")
    have = ("--header", f"If-None-Match: {tag}")
    again = front.curl("/style.css", *accepted, *have)
    assert (again.status, again.body) == (304, b"")
    # What a 304 says replaces what the browser has kept.
    tag = again.header("ETag")
    assert front.curl("/style.css", *accepted, "--header", f"If-None-Match: {tag}").status == 304

    (folder / "www/style.css").write_bytes(b".b { margin: 0; }\n")
    # lighttpd notices it within two seconds.
    wait_until(lambda: front.curl("/style.css", "--compressed", *have).body == b".b { margin: 0; }\n",
               "the newer file")


@pytest.mark.parametrize("accepted", [(), GZIP], ids=["plain", "compressed"])
def test_a_browser_asks_before_it_uses_a_kept_file(front, accepted):
    first = front.curl("/page.js", *accepted)
    assert first.headers("Cache-Control") == ["no-cache"]
    again = front.curl("/page.js", *accepted, "--header", f"If-None-Match: {first.header('ETag')}")
    assert (again.status, again.headers("Cache-Control")) == (304, ["no-cache"])


# A compressed page that repeats what a stranger sent would reveal the CSRF token by its length.
@pytest.mark.parametrize("path", ["/servlet", "/servlet/style.css", "/servlet.css", "/cgi-bin/style.css"])
@pytest.mark.parametrize("query", ["p=style", "p=style&inline=yes"])
def test_no_answer_of_the_daemon_is_compressed(start, front, path, query):
    start.host("--listen", start.socket_path)
    for options in ([], ["--data", "x=form"], ["--form", "x=upload"]):
        answer = front.curl(f"{path}?{query}", *GZIP, *options)
        assert answer.status == 200
        assert answer.headers("Content-Encoding") == []
        assert "no-cache" not in answer.headers("Cache-Control")
        assert answer.body.count(b".a { margin: 0; }\n") == 500
