"""Attack: guess the password, from one address or from many; or use up a user's attempts."""

import time

import pytest

from browser import Browser, token_in

WRONG, WAIT = 403, 429
# As kit/include/kit/attempt_limit.h has them.
FREE, FIRST_WAIT = 3, 2
FREE_IN_ALL, SECONDS_IN_ALL = 30, 2
PATIENCE = 60  # seconds; normally seven are enough


@pytest.fixture
def guess(phone):
    """Tries a password from an address; returns the status of the answer."""
    first = Browser(phone)
    token = token_in(first.get("/servlet?p=login&q=loginForm"))

    def guess(address, password="wrong"):
        browser = Browser(phone, address)
        browser.cookies.update(first.cookies)
        return browser.post("/servlet?p=login&q=login",
                            {"user": "admin", "password": password, "token": token}).status
    return guess


def test_each_wait_of_an_address_is_twice_as_long_as_the_last(guess):
    answers, allowed = [], []
    end = time.monotonic() + PATIENCE
    while len(allowed) <= FREE + 1 and time.monotonic() < end:
        asked = time.monotonic()
        answers.append(guess("127.0.0.5"))
        if answers[-1] == WRONG:
            allowed.append((asked, time.monotonic()))
    assert answers[:FREE] == [WRONG] * FREE
    assert set(answers[FREE:]) == {WRONG, WAIT}
    waits = [answered - asked for (asked, _), (_, answered) in zip(allowed[FREE - 1:], allowed[FREE:])]
    # The phone's clock counts whole seconds.
    assert [wait > FIRST_WAIT * 2 ** number - 1 for number, wait in enumerate(waits)] == [True] * 2, waits


def test_many_addresses_have_few_attempts_together(guess):
    begin = time.monotonic()
    answers = [guess(f"127.0.1.{number}") for number in range(1, 121)]
    seconds = time.monotonic() - begin
    assert set(answers) == {WRONG, WAIT}
    assert answers.count(WRONG) <= FREE_IN_ALL + seconds / SECONDS_IN_ALL + 1


def test_guessing_elsewhere_does_not_lock_a_user_out(phone, user, guess):
    assert any(guess(f"127.0.1.{number}") == WAIT for number in range(1, 255))
    again = Browser(phone)
    assert again.sign_in().status == 303
    assert again.is_signed_in()


def test_a_foreign_page_does_not_use_up_the_attempts_of_its_visitors(phone):
    visitor = Browser(phone)
    form = {"user": "admin", "password": "wrong"}
    for fields in [form, {**form, "token": "0" * 32}] * 20:
        assert visitor.post("/servlet?p=login&q=login", fields, "--header",
                            "Origin: http://foreign.example").status == WRONG
    assert visitor.sign_in().status == 303
