"""Attack: take over the session of a user who has signed in.

Session ids are made from memory addresses and a clock, so a client with the user's address can guess
one. The id alone must be worth nothing."""

import pytest

from browser import Browser


@pytest.fixture
def thief(phone, user):
    """A client with the user's address that has guessed the session id."""
    browser = Browser(phone)
    browser.cookies["JSESSIONID"] = user.cookies["JSESSIONID"]
    return browser


def test_a_guessed_id_opens_no_page(user, thief):
    for page in ("status", "security", "contacts", "settings-config&q=export"):
        assert thief.get(f"/servlet?p={page}").status == 303
    assert user.is_signed_in()


def test_a_guessed_id_shows_no_token(user, thief):
    token = user.token()
    for target in ("/servlet?p=security", "/servlet?p=login&q=loginForm", "/servlet?p=status-data"):
        assert token not in thief.get(target).text


def test_a_guessed_id_and_a_stolen_token_change_nothing(user, thief):
    fields = {"token": user.token(), "name": "Mallory", "number": "666"}
    assert thief.post("/servlet?p=contacts&q=add", fields).status == 303
    assert "Mallory" not in user.get("/servlet?p=contacts").text


def test_a_guessed_id_does_not_sign_the_user_out(user, thief):
    thief.get("/servlet?p=login&q=logout")
    thief.post("/servlet?p=login&q=logout", {"token": user.token()})
    assert user.is_signed_in()


def test_all_of_the_cookies_are_worth_nothing_at_another_address(phone, user):
    elsewhere = Browser(phone, "127.0.0.2")
    elsewhere.cookies.update(user.cookies)
    assert elsewhere.get("/servlet?p=security").status == 303
    assert user.is_signed_in()
