"""Attack: cross-site request forgery. A page of another site makes the browser of a user who has
signed in send requests, with the user's cookies."""

import urllib.parse

import pytest

from browser import PASSWORD

CHANGES = {
    "contacts&q=add": {"name": "Mallory", "number": "666"},
    "contacts&q=remove": {"name": "Anna"},
    "phone": {"number": "666"},
    "security&q=access": {"idleSeconds": "60", "remoteAddresses": "192.0.2.1"},
    "security&q=password": {"oldPassword": PASSWORD, "newPassword": "quiet harbour",
                            "repeat": "quiet harbour"},
    "settings-upgrade&q=reboot": {"confirm": "1"},
    "settings-upgrade&q=reset": {"confirm": "1"},
    "login&q=logout": {},
}
FOREIGN = ("--header", "Origin: http://foreign.example", "--header", "Sec-Fetch-Site: cross-site")


@pytest.fixture
def content(user):
    """Returns what the changes would change."""
    pages = ("contacts&q=all", "security", "settings-config&q=export", "status-data")
    return lambda: [user.get(f"/servlet?p={page}").status for page in pages] + [
        user.get("/servlet?p=settings-config&q=export").text,
        "Mallory" in user.get("/servlet?p=contacts").text]


def test_a_form_of_another_site_changes_nothing(user, content):
    before = content()
    for token in ({}, {"token": ""}, {"token": "0" * 32}):
        for query, fields in CHANGES.items():
            answer = user.post(f"/servlet?p={query}", {**fields, **token}, *FOREIGN)
            assert answer.status == 403, query
    assert content() == before
    assert user.is_signed_in()


def test_an_address_in_an_image_of_another_site_changes_nothing(user, content):
    before = content()
    for query, fields in CHANGES.items():
        user.get(f"/servlet?p={query}&{urllib.parse.urlencode(fields)}", *FOREIGN)
    assert content() == before
    assert user.is_signed_in()


def test_an_upload_of_another_site_changes_nothing(user, content):
    before = content()
    for query, field in (("settings-config&q=import", "config"),
                         ("settings-upgrade&q=upload", "firmware"),
                         ("contacts-preview&q=preview", "contacts")):
        answer = user.send(f"/servlet?p={query}", "--form", "confirm=1",
                           "--form", f"{field}=x;filename=x", *FOREIGN)
        assert answer.status == 403, query
    assert content() == before


def test_another_site_cannot_read_an_answer(user):
    answer = user.get("/servlet?p=status-data", *FOREIGN)
    assert answer.headers("Access-Control-Allow-Origin") == []
    preflight = user.send("/servlet?p=contacts&q=add", "--request", "OPTIONS", *FOREIGN,
                          "--header", "Access-Control-Request-Method: POST")
    assert preflight.headers("Access-Control-Allow-Origin") == []
