"""Files, versions of pages and cookies of the kit, through the web servers."""

import email.utils
import os
import time

import pytest

from service import PATIENCE

CONTENT = bytes(range(256)) * 400
HOUR = 3600


@pytest.fixture
def files(folder):
    """A folder with files that were last changed an hour ago."""
    (folder / "files").mkdir()
    (folder / "secret.bin").write_bytes(b"secret")
    (folder / "files/a.bin").write_bytes(CONTENT)
    os.utime(folder / "files/a.bin", (time.time() - HOUR,) * 2)
    return folder / "files"


def get(web, *options, name="a.bin"):
    return web.curl(f"/servlet?p=file&name={name}", *options)


def asking(**headers):
    """Returns the options with which curl sends these headers."""
    return [option for name, value in headers.items()
            for option in ("--header", f"{name.replace('_', '-')}: {value}")]


def test_a_file_arrives_with_its_headers(web, files):
    answer = get(web)
    assert (answer.status, answer.body) == (200, CONTENT)
    assert answer.header("Content-Type") == "application/octet-stream"
    assert answer.header("Content-Length") == str(len(CONTENT))
    assert answer.header("Accept-Ranges") == "bytes"
    assert answer.header("ETag").startswith('"')
    changed = email.utils.parsedate_to_datetime(answer.header("Last-Modified")).timestamp()
    assert changed == int(os.stat(files / "a.bin").st_mtime)

    head = get(web, "--head")
    assert (head.status, head.body) == (200, b"")
    assert head.header("Content-Length") == str(len(CONTENT))
    assert head.header("ETag") == answer.header("ETag")


def test_a_browser_that_has_the_file_gets_no_other(web, files):
    first = get(web)
    for options in (asking(If_None_Match=first.header("ETag")),
                    asking(If_Modified_Since=first.header("Last-Modified"))):
        for method in ([], ["--head"]):
            answer = get(web, *options, *method)
            assert (answer.status, answer.body) == (304, b"")
            assert answer.headers("Content-Type") == []
    assert get(web, *asking(If_Match='"other"')).status == 412
    (files / "a.bin").write_bytes(b"other")
    assert get(web, *asking(If_None_Match=first.header("ETag"))).body == b"other"


def test_a_file_is_sent_in_parts(web, files):
    size = len(CONTENT)
    tag = get(web).header("ETag")
    for value, part, place in [("bytes=0-0", CONTENT[:1], "0-0"),
                               ("bytes=50000-", CONTENT[50000:], f"50000-{size - 1}"),
                               ("bytes=-10", CONTENT[-10:], f"{size - 10}-{size - 1}")]:
        answer = get(web, *asking(Range=value))
        assert (answer.status, answer.body) == (206, part), value
        assert answer.header("Content-Range") == f"bytes {place}/{size}"
        assert answer.header("Content-Length") == str(len(part))

    none = get(web, *asking(Range=f"bytes={size}-"))
    assert (none.status, none.header("Content-Range")) == (416, f"bytes */{size}")

    resumed = get(web, *asking(Range="bytes=50000-", If_Range=tag))
    assert (resumed.status, resumed.body) == (206, CONTENT[50000:])
    assert get(web, *asking(Range="bytes=50000-", If_Range='"other"')).body == CONTENT
    assert get(web, *asking(Range="lines=1-2")).body == CONTENT
    # Some web servers cut the parts out of the whole file themselves.
    assert get(web, *asking(Range="bytes=0-1,4-5")).status in (200, 206)


@pytest.mark.parametrize("name", ["../secret.bin", "%2e%2e/secret.bin", "..%2fsecret.bin",
                                  "/etc/passwd", ".%00./secret.bin", "", "none.bin", "."])
def test_a_name_does_not_lead_out_of_the_folder(start, files, name):
    start.host("--listen", start.socket_path)
    answer = start.cgi_fcgi(f"/servlet?p=file&name={name}")
    assert b"Status: 404 \r\n" in answer
    assert answer.endswith(b"\r\n\r\nThere is no such file.\n")


def test_a_file_larger_than_the_memory_goes_through(start, front, files):
    size = 64 << 20
    with open(files / "a.bin", "wb") as file:
        file.truncate(size)
    host = start.host("--listen", start.socket_path)
    get(front, name="none")  # allocates what every request needs
    before = host.memory("VmHWM")
    assert len(get(front).body) == size
    assert host.memory("VmHWM") - before < 1 << 20
    answer = front.curl("/servlet?p=stream&lines=100000")
    assert answer.body == (b"s" * 99 + b"\n") * 100000
    assert host.memory("VmHWM") - before < 1 << 20


def test_a_file_that_becomes_shorter_is_not_taken_for_complete(web):
    request = b"GET /servlet?p=short HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n"
    with web.connect() as connection:
        connection.settimeout(PATIENCE)
        connection.sendall(request)
        answer = b""
        while more := connection.recv(1 << 16):
            answer += more
    assert b"\r\nContent-Length: 1000" in answer
    assert answer.endswith(b"\r\n\r\ncut")


def test_a_page_that_has_not_changed_is_not_sent_again(web):
    first = web.curl("/servlet?p=version")
    assert (first.status, first.text) == (200, "<p>The first version.</p>\n")
    again = web.curl("/servlet?p=version", *asking(If_None_Match=first.header("ETag")))
    assert (again.status, again.body) == (304, b"")
    assert again.header("ETag") == first.header("ETag")


def test_an_answer_sets_several_cookies(web):
    answer = web.curl("/servlet?p=cookies")
    cookies = sorted(value.partition("=")[0] for value in answer.headers("Set-Cookie"))
    assert cookies == ["JSESSIONID", "one", "three", "two"]
