"""Further attacks on sign-in and sessions (OWASP ASVS, chapters 2 and 3)."""

import time

import pytest

from browser import PASSWORD, Browser


def test_a_session_id_that_was_known_before_is_worth_nothing_after_signing_in(phone):
    victim, attacker = Browser(phone), Browser(phone)
    assert attacker.sign_in().status == 303
    fixed = attacker.cookies["JSESSIONID"]
    victim.cookies["JSESSIONID"] = fixed
    assert victim.sign_in().status == 303
    assert victim.cookies["JSESSIONID"] != fixed
    assert not attacker.is_signed_in()


def test_cookies_are_worth_nothing_after_signing_out(phone, user):
    kept = dict(user.cookies)
    user.post("/servlet?p=login&q=logout", {"token": user.token()})
    user.cookies = kept
    assert not user.is_signed_in()


def test_cookies_are_kept_from_scripts_and_from_other_sites(phone):
    browser = Browser(phone)
    lines = [line for answer in (browser.get("/servlet?p=login&q=loginForm"), browser.sign_in())
             for line in answer.headers("Set-Cookie")]
    assert any(line.startswith("JSESSIONID=") for line in lines)
    for line in lines:
        assert "HttpOnly" in line and ("SameSite=Lax" in line or "SameSite=Strict" in line), line


def test_a_session_id_in_the_address_is_ignored(phone, user):
    session = user.cookies["JSESSIONID"]
    for target in (f"/servlet?p=security&JSESSIONID={session}",
                   f"/servlet;jsessionid={session}?p=security"):
        answer = Browser(phone).get(target)
        assert answer.status in (303, 404), target


def test_a_second_cookie_of_the_same_name_signs_nobody_in(phone, user):
    browser = Browser(phone)
    for cookie in (f"JSESSIONID=x; JSESSIONID={user.cookies['JSESSIONID']}",
                   f"JSESSIONID={user.cookies['JSESSIONID']}; JSESSIONID=x",
                   "; ".join(f"{name}=x; {name}={value}" for name, value in user.cookies.items())):
        assert browser.get("/servlet?p=security", "--cookie", cookie).status == 303, cookie


def test_changing_the_password_signs_other_browsers_out(phone, user):
    other = Browser(phone)
    assert other.sign_in().status == 303
    answer = user.post("/servlet?p=security&q=password", {
        "token": user.token(), "oldPassword": PASSWORD, "newPassword": "a longer one",
        "repeat": "a longer one"})
    assert answer.status == 303
    assert user.is_signed_in() and not other.is_signed_in()
    assert Browser(phone).sign_in(PASSWORD).status == 403


def test_a_browser_left_alone_does_not_give_the_account_away(user, phone):
    def change(old):
        return user.post("/servlet?p=security&q=password", {
            "token": user.token(), "oldPassword": old, "newPassword": "a longer one",
            "repeat": "a longer one"}).status
    answers = [change(wrong) for wrong in ["", "guess", PASSWORD.upper()] + ["again"] * 7]
    assert answers[0] == 422 and set(answers) == {422, 429}, "guessing it has a limit, too"
    assert Browser(phone, "127.0.0.9").sign_in().status == 303


def test_no_file_on_the_device_reveals_a_secret(user, phone, folder):
    assert Browser(phone).sign_in("mistyped gate").status == 403
    secrets = [PASSWORD, "mistyped gate", user.cookies["signIn"], user.token()]
    files = [path for path in folder.rglob("*") if path.is_file()]
    assert any(path.suffix == ".log" for path in files)
    for path in files:
        content = path.read_bytes()
        for secret in secrets:
            assert secret.encode() not in content, path


def test_a_wrong_user_is_answered_like_a_wrong_password(phone):
    def answer(user, password):
        browser = Browser(phone, f"127.0.3.{len(user)}")
        form = browser.get("/servlet?p=login&q=loginForm")
        begin = time.monotonic()
        result = browser.post("/servlet?p=login&q=login", {
            "user": user, "password": password, "token": browser.cookies["formToken"]})
        assert form.status == 200
        return result.status, result.text.replace(f'value="{user}"', "").replace(
            browser.cookies["formToken"], ""), time.monotonic() - begin
    known, unknown = answer("admin", "wrong"), answer("nobody", "wrong")
    assert known[:2] == unknown[:2]
    assert abs(known[2] - unknown[2]) < 1


@pytest.mark.parametrize("password", ["", "admin", "GARDEN GATE", "garden gate ", "' or '1'='1", "x" * 60000])
def test_no_other_text_counts_as_the_password(phone, password):
    assert Browser(phone).sign_in(password).status in (403, 413)
