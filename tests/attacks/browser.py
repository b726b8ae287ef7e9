"""A user with a browser: keeps cookies, follows nothing, and knows the token of the phone's pages."""

import re

PASSWORD = "garden gate"

class Browser:
    def __init__(self, front, address="127.0.0.1"):
        self.front = front
        self.address = address
        self.cookies = {}

    def get(self, target, *options):
        return self.send(target, *options)

    def post(self, target, fields, *options):
        data = [word for name, value in fields.items()
                for word in ("--data-urlencode", f"{name}={value}")]
        return self.send(target, *data, *options)

    def send(self, target, *options):
        cookies = "; ".join(f"{name}={value}" for name, value in self.cookies.items())
        answer = self.front.curl(target, "--interface", self.address,
                                 *(("--cookie", cookies) if cookies else ()), *options)
        for line in answer.headers("Set-Cookie"):
            name, _, value = line.partition(";")[0].partition("=")
            self.cookies[name.strip()] = value.strip()
        return answer

    def sign_in(self, password=PASSWORD):
        form = self.get("/servlet?p=login&q=loginForm")
        return self.post("/servlet?p=login&q=login",
                         {"user": "admin", "password": password, "token": token_in(form)})

    def replace_factory_password(self):
        assert self.sign_in("admin").status == 303
        answer = self.post("/servlet?p=security&q=password", {
            "token": self.token(), "newPassword": PASSWORD, "repeat": PASSWORD})
        assert answer.status == 303

    def is_signed_in(self):
        return self.get("/servlet?p=status").status == 200

    def token(self):
        """Returns the token of the pages of the session."""
        return token_in(self.get("/servlet?p=security"))


def token_in(answer):
    found = re.search(r'name="token" value="([0-9a-f]+)"', answer.text)
    assert found, answer.text
    return found.group(1)
