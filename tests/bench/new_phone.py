"""A telephone that has just been delivered, and its owner."""
import re
import shutil
import urllib.parse

import fastcgi
from backend import Program

FACTORY_PASSWORD, PASSWORD = "admin", "garden gate"


class NewPhone(Program):
    """The daemon with the pages of a telephone that has just been delivered."""

    def __init__(self, build):
        super().__init__("phone", [build / "host/fcgi_host", "--threads=1"])
        self.www = build / "device/phone/www"
        self.data = build / "device/phone/data"

    def start(self, path, prefix=()):
        shutil.rmtree(self.data, ignore_errors=True)
        self.data.mkdir()
        (self.data / "reset").touch()
        return super().start(path, prefix)


class Owner:
    """The telephone's owner, who sets a password and signs in."""

    def __init__(self, backend, www):
        self.backend, self.www, self.cookies = backend, www, {}
        self.sign_in(FACTORY_PASSWORD)
        self.send("p=security&q=password", {
            "token": token_in(self.send("p=security")), "newPassword": PASSWORD,
            "repeat": PASSWORD})

    def sign_in(self, password):
        self.send("p=login&q=login", {"token": token_in(self.send("p=login&q=loginForm")),
                                      "user": "admin", "password": password})

    def request(self, query, fields=None):
        cookie = "; ".join(f"{name}={value}" for name, value in self.cookies.items())
        body = None if fields is None else urllib.parse.urlencode(fields).encode()
        return fastcgi.request(query, cookie=cookie, body=body, root=self.www)

    def send(self, query, fields=None):
        answer = fastcgi.send(self.backend.address, self.request(query, fields))
        self.cookies.update(re.findall(r"^Set-Cookie: ([^=]+)=([^;\r\n]*)", answer, re.I | re.M))
        return answer


def token_in(page):
    return re.search(r'name="token" value="([0-9a-f]+)"', page)[1]
