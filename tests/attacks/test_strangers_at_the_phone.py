"""Attacks on the phone's pages by other clients of the same address and by other web sites: guess
a session's id, sign in under a foreign host name (DNS rebinding), lock a user's address out, dial, and
use a new phone with its factory password."""

import re

import pytest

from fixtures import SOURCE

FACTORY = {"user": "admin", "password": "admin"}
FORM = "/servlet?p=login&q=loginForm"
SIGN_IN = "/servlet?p=login&q=login"


class Browser:
    """Keeps the cookies of one user."""

    def __init__(self, front, *trust):
        self.front = front
        self.options = trust
        self.cookies = {}

    def send(self, target, *headers, form=None):
        options = [each for line in headers for each in ("--header", line)]
        if self.cookies:
            cookies = "; ".join(f"{name}={value}" for name, value in self.cookies.items())
            options += ["--header", f"Cookie: {cookies}"]
        if form is not None:
            options += [each for pair in form.items() for each in ("--data-urlencode", "=".join(pair))]
        answer = self.front.curl(target, *self.options, *options)
        for line in answer.headers("Set-Cookie"):
            name, value = line.split(";")[0].split("=")
            self.cookies[name] = value
        return answer

    def token(self, target=FORM):
        return re.search(r'name="token" value="(\w+)"', self.send(target).text)[1]

    def sign_in(self, credentials=FACTORY):
        return self.send(SIGN_IN, form=dict(credentials, token=self.token()))


@pytest.fixture(params=["lighttpd", "nginx", "apache"])
def phone(request, start):
    """A new phone behind a web server."""
    start.phone()
    return start.front(request.param, SOURCE / "packaging/front-servers")


def test_a_guessed_session_id_opens_nothing(phone):
    victim = Browser(phone)
    assert victim.sign_in().status == 303
    assert set(victim.cookies) == {"JSESSIONID", "signIn", "formToken"}
    assert victim.send("/servlet?p=security").status == 200
    thief = Browser(phone)
    for key in ({}, {"signIn": ""}, {"signIn": "0" * 32}, {"signIn": victim.cookies["JSESSIONID"]}):
        thief.cookies = {"JSESSIONID": victim.cookies["JSESSIONID"], **key}
        assert thief.send("/servlet?p=security").status == 303
        assert thief.send("/servlet?p=login&q=logout", form={}).status in (303, 403)
    assert victim.send("/servlet?p=security").status == 200


def test_a_foreign_host_name_is_refused(phone):
    victim = Browser(phone)
    token = victim.token()
    for name in ("attacker.example", f"attacker.example:{phone.port}", "127.0.0.1.attacker.example"):
        assert victim.send(FORM, f"Host: {name}").status == 421
        signed_in = victim.send(SIGN_IN, f"Host: {name}", form=dict(FACTORY, token=token))
        assert signed_in.status == 421 and not signed_in.headers("Set-Cookie")
    for name in ("127.0.0.1", "[::1]", "localhost", "desk-phone", "DESK-PHONE.local"):
        assert victim.send(FORM, f"Host: {name}").status == 200


def test_another_site_does_not_lock_the_users_address_out(phone):
    victim = Browser(phone)
    token = victim.token()
    wrong = {"user": "admin", "password": "wrong"}
    for _ in range(20):
        # With what the browser says, and from a browser that says nothing.
        assert victim.send(SIGN_IN, "Origin: http://attacker.example",
                           form=dict(wrong, token=token)).status == 403
        assert victim.send(SIGN_IN, form=wrong).status == 403
    assert victim.sign_in().status == 303


@pytest.mark.parametrize("header", [
    "Sec-Fetch-Site: cross-site", "Referer: http://attacker.example/", "Host: attacker.example"])
def test_another_site_does_not_dial(phone, header):
    caller = Browser(phone)
    assert caller.send("/servlet?number=900123", header).status in (403, 421)
    assert caller.send("/servlet?key=OK", header).status in (403, 421)
    assert caller.send("/servlet?number=900123").status == 200


def test_the_factory_password_only_sets_another(phone):
    owner = Browser(phone)
    assert owner.sign_in().status == 303
    for page in ("status", "network", "settings-config&q=export", "contacts&q=export"):
        assert owner.send(f"/servlet?p={page}").header("Location").endswith(
            "/servlet?p=security&jumpto=" + page.partition("&")[0])
    assert owner.send("/servlet?p=security&q=password", form={
        "token": owner.token("/servlet?p=security"),
        "newPassword": "garden gate", "repeat": "garden gate"}).status == 303
    assert owner.send("/servlet?p=network").status == 200
    assert Browser(phone).sign_in().status == 403


def test_lost_files_do_not_open_the_phone(start, phone, folder):
    assert Browser(phone).send(FORM).status == 200
    start.processes[0].terminate()
    start.processes[0].wait()
    for path in (folder / "data").iterdir():
        path.unlink()
    start.phone()
    answer = Browser(phone).send(FORM)
    assert answer.status == 503 and "at the device" in answer.text


@pytest.mark.parametrize("kind", ["lighttpd", "nginx", "apache"])
def test_cookies_and_pages_stay_on_https(start, kind):
    certificate = start.certificate()
    start.phone()
    front = start.front(kind, SOURCE / "packaging/front-servers", "tls")
    user = Browser(front, "--cacert", certificate)
    answer = user.sign_in()
    assert answer.status == 303
    for line in answer.headers("Set-Cookie"):
        assert "; Secure" in line
    assert user.send("/servlet?p=security").header("Strict-Transport-Security") == "max-age=31536000"
