"""One virtual phone for all tests, and its visitors."""

import contextlib
import http.client
import pathlib
import re
import sys
import time
import urllib.parse

import pytest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.append(str(SOURCE / "tests/support"))

import device_image
import newer_packages
from ports import free_port
from virtual_phone import COUNTING, PATIENCE, Console, VirtualPhone, second_disk

FACTORY = "admin"
PASSWORD = "correct horse"


class Visitor:
    """A browser with its cookies, and a connection for each request."""

    def __init__(self, port):
        self.port = port
        self.cookies = {}

    def send(self, method, path, body=None):
        """Returns the status, the address that the phone redirects to, and the body."""
        headers = {"Cookie": "; ".join(f"{name}={value}" for name, value in self.cookies.items())}
        if body is not None:
            headers["Content-Type"] = "application/x-www-form-urlencoded"
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE)
        with contextlib.closing(connection):
            connection.request(method, path, body, headers)
            response = connection.getresponse()
            text = response.read().decode()
        for cookie in response.headers.get_all("Set-Cookie", []):
            name, _, value = cookie.partition(";")[0].partition("=")
            self.cookies[name] = value
        return response.status, (response.getheader("Location") or "").strip(), text

    def get(self, path):
        status, _, text = self.send("GET", path)
        assert status == 200, f"{path}: {status}\n{text}"
        return text

    def token(self, page):
        return re.search(r'name="token" value="(\w+)"', self.get(f"/servlet?p={page}"))[1]

    def post(self, page, action, **fields):
        """Submits a form of a page; returns the status and the address that the phone redirects to."""
        body = urllib.parse.urlencode({"token": self.token(page), **fields})
        return self.send("POST", f"/servlet?p={page}&q={action}", body)[:2]

    def sign_in(self, password):
        token = re.search(r'name="token" value="(\w+)"', self.get("/servlet?p=login&q=loginForm"))[1]
        body = urllib.parse.urlencode({"user": "admin", "password": password, "token": token})
        status, location, _ = self.send("POST", "/servlet?p=login&q=login", body)
        assert status == 303, "the phone refuses the password"
        return location


_measured = []


@pytest.fixture(scope="session")
def measured():
    """A list of what was measured, which is printed behind the results."""
    return _measured


def pytest_terminal_summary(terminalreporter):
    for line in _measured:
        terminalreporter.write_line(line)


@pytest.fixture(scope="session")
def image():
    return device_image.make()


@pytest.fixture(scope="session")
def newer(image, tmp_path_factory):
    """An archive of packages of a later version, which the phone reads as /dev/vdb."""
    return newer_packages.make(image.packages, tmp_path_factory.mktemp("newer"))


@pytest.fixture(scope="session")
def phone(image, newer, measured):
    """A phone that has just been delivered and switched on."""
    machine = VirtualPhone(image, free_port(), options=(*COUNTING, *second_disk(newer)))
    try:
        begin = time.monotonic()
        machine.start()
        machine.wait_until_it_answers()
        measured.append(f"first page after the phone was switched on: {time.monotonic() - begin:.1f} s")
        yield machine
    finally:
        machine.remove()


@pytest.fixture(scope="session")
def console(phone):
    return Console(phone.console_path)


@pytest.fixture(scope="session")
def owner(phone):
    """The owner, who has replaced the factory password."""
    visitor = Visitor(phone.port)
    visitor.sign_in(FACTORY)
    assert visitor.post("security", "password", newPassword=PASSWORD, repeat=PASSWORD)[0] == 303
    return visitor
