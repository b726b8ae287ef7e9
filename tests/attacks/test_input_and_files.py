"""Further attacks with input and files (OWASP ASVS, chapters 5 and 12)."""

import time

import pytest

from browser import Browser

MARKUP = '"><script>alert(1)</script>'
LINE_ENDS = "x%0d%0aSet-Cookie:%20planted=1"


def upload(browser, query, field, path):
    return upload_with(browser.token(), browser, query, field, path, "--form", "confirm=1")


def upload_with(token, browser, query, field, path, *options):
    return browser.send(f"/servlet?p={query}", "--form", f"token={token}", *options,
                        "--form", f"{field}=@{path}")


def test_markup_in_a_form_is_escaped(phone, user):
    stranger = Browser(phone)
    form = stranger.get("/servlet?p=login&q=loginForm")
    answers = [
        stranger.post("/servlet?p=login&q=login", {
            "user": MARKUP, "password": "x", "token": stranger.cookies["formToken"]}),
        user.post("/servlet?p=contacts&q=add", {"token": user.token(), "name": MARKUP,
                                                "number": "1"}),
        user.post("/servlet?p=contacts&q=search", {"token": user.token(), "search": MARKUP}),
        user.get("/servlet?p=contacts")]
    assert form.status == 200
    for answer in answers:
        assert "<script>alert" not in answer.text


def test_line_ends_in_a_parameter_reach_no_header(phone):
    stranger = Browser(phone)
    for target in (f"/servlet?p=language&to=en&back={LINE_ENDS}",
                   f"/servlet?p=language&to={LINE_ENDS}", f"/servlet?p=login&jumpto={LINE_ENDS}",
                   f"/cgi-bin/Quillpage.tpx?page={LINE_ENDS}", f"/{LINE_ENDS}"):
        answer = stranger.get(target)
        assert "planted" not in stranger.cookies, target
        assert answer.headers("planted") == []


@pytest.mark.parametrize("elsewhere", ["//foreign.example", "https://foreign.example",
                                       "/\\foreign.example", "foreign.example"])
def test_no_redirect_leads_to_another_site(phone, elsewhere):
    for target in (f"/servlet?p=language&to=en&back={elsewhere}",
                   f"/servlet?p=login&jumpto={elsewhere}", f"/{elsewhere}",
                   f"/cgi-bin/Quillpage.tpx?{elsewhere}", f"/{elsewhere}/servlet?p=status"):
        for location in Browser(phone).get(target).headers("Location"):
            assert "foreign.example" not in location.partition("?")[0], target


def test_the_host_header_names_no_site_in_an_answer(phone):
    for target in ("/", "/servlet?p=status", "/servlet?p=login&q=loginForm",
                   "/cgi-bin/Velmoranix.acx?Id=1"):
        answer = Browser(phone).get(target, "--header", "Host: foreign.example")
        assert b"foreign.example" not in answer.raw, target


ENTITY = ('<?xml version="1.0"?><!DOCTYPE c [<!ENTITY file SYSTEM "file:///etc/passwd">]>'
          "<settings><network><hostname>&file;</hostname></network></settings>")
BILLION = ('<?xml version="1.0"?><!DOCTYPE c [<!ENTITY a "aaaaaaaaaa">'
           + "".join(f'<!ENTITY {name} "{f"&{before};" * 10}">'
                     for before, name in zip("abcdefgh", "bcdefghi"))
           + "]><settings><network><hostname>&i;</hostname></network></settings>")


@pytest.mark.parametrize("text", [ENTITY, BILLION, "<a>" * 5000000, "<settings", "\0" * 1000],
                         ids=["a file", "a billion laughs", "deep", "cut", "zero bytes"])
def test_a_hostile_configuration_changes_nothing(user, folder, text):
    before = user.get("/servlet?p=settings-config&q=export").text
    path = folder / "config.xml"
    path.write_text(text)
    begin = time.monotonic()
    answer = upload(user, "settings-config&q=import", "config", path)
    assert time.monotonic() - begin < 10
    assert answer.status == 422 and "root:" not in answer.text
    assert user.get("/servlet?p=settings-config&q=export").text == before


@pytest.mark.parametrize("text", ["=1+1,100\r\n", "+cmd|x,100\r\n", "@SUM(1),100\r\n", "-1,100\r\n"])
def test_an_exported_contact_is_no_formula(user, folder, text):
    path = folder / "contacts.csv"
    path.write_text(text)
    token = user.token()  # first, since another page drops the preview
    assert upload_with(token, user, "contacts-preview&q=preview", "contacts", path).status == 303
    applied = user.post("/servlet?p=contacts-preview&q=apply", {"token": token})
    assert applied.header("Location") == "/servlet?p=contacts"
    names = [line.rpartition(",")[0].strip('"')
             for line in user.get("/servlet?p=contacts&q=export").text.splitlines()]
    assert any(text.rpartition(",")[0] in name for name in names)
    assert not any(name.startswith(tuple("=+-@")) for name in names)


def test_the_name_of_an_uploaded_file_is_no_path(user, folder):
    path = folder / "image.bin"
    path.write_bytes(b"no image")
    before = {file.name for file in (folder / "data").iterdir()}
    for name in ("../../planted", "/tmp/planted-by-an-upload", "..\\planted", "state.xml"):
        answer = user.send("/servlet?p=settings-upgrade&q=upload", "--form",
                           f"token={user.token()}", "--form", "confirm=1",
                           "--form", f'firmware=@{path};filename="{name}"')
        assert answer.status == 422
    assert {file.name for file in (folder / "data").iterdir()} <= before | {"state.xml"}
    assert not list(folder.rglob("planted*"))


def test_a_file_that_is_no_firmware_is_not_installed(user, folder):
    before = user.get("/servlet?p=settings-upgrade&q=download").body
    path = folder / "image.bin"
    for content in (b"", b"\x7fELF" + bytes(1000), before[:-1], before + b"x", before[::-1]):
        path.write_bytes(content)
        assert upload(user, "settings-upgrade&q=upload", "firmware", path).status == 422
    assert user.get("/servlet?p=settings-upgrade&q=download").body == before


def test_log_lines_cannot_be_forged(phone, start, folder):
    stranger = Browser(phone)
    stranger.get("/servlet?p=login&q=loginForm")
    for text in ("x\nSigned in: admin from 192.0.2.1", "x\r\n2026-01-01T00:00:00Z error [web]: x",
                 "x\x1b[2Jx", "x\x7fx"):
        stranger.post("/servlet?p=login&q=login", {
            "user": text, "password": "x", "token": stranger.cookies["formToken"]})
        stranger.get("/servlet?p=" + "%0aSigned%20in:%20admin")
    assert "\nSigned in" not in (folder / "host.log").read_text()
    for line in (folder / "host.log").read_text().splitlines():
        assert line.isprintable(), line


@pytest.mark.parametrize("fields", [
    [(f"x{number}", "1") for number in range(6000)], [("x", "1")] * 15000,
    [("x" * 60000, "1")], [("x", "%" * 60000)], [("", "")] * 20000],
    ids=["many names", "one name", "a long name", "broken escapes", "empty"])
def test_a_form_of_many_fields_is_answered_at_once(phone, folder, fields):
    body = "&".join(f"{name}={value}" for name, value in fields)[:65536]
    path = folder / "body"
    path.write_text(body)
    begin = time.monotonic()
    answer = Browser(phone).send("/servlet?p=login&q=loginForm", "--data-binary", f"@{path}")
    assert answer.status in (200, 404)  # without "p", if it comes after 1,000 other parameters
    assert time.monotonic() - begin < 5


def test_an_upload_of_many_parts_is_answered_at_once(phone, user, folder):
    part = '--edge\r\nContent-Disposition: form-data; name="x"\r\n\r\n1\r\n'
    path = folder / "body"
    path.write_text(part * 20000 + "--edge--\r\n")
    begin = time.monotonic()
    answer = user.send("/servlet?p=settings-upgrade&q=upload", "--data-binary", f"@{path}",
                       "--header", "Content-Type: multipart/form-data; boundary=edge")
    assert answer.status in (403, 422)
    assert time.monotonic() - begin < 10
