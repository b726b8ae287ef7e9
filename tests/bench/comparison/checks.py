"""What the three pages must do, whichever program serves them. Fails at the first difference."""

import html
import json
import pathlib
import re
import subprocess
import urllib.parse


class Client:
    """A browser that keeps its cookies."""

    def __init__(self, port, folder):
        self.base = f"http://127.0.0.1:{port}"
        self.jar = pathlib.Path(folder) / "cookies"
        self.jar.unlink(missing_ok=True)

    def cookies(self):
        """Returns the header Cookie."""
        lines = [line.removeprefix("#HttpOnly_").split("\t")
                 for line in self.jar.read_text().splitlines() if "\t" in line]
        return "; ".join(f"{fields[5]}={fields[6]}" for fields in lines)

    def send(self, path, *options, stdin=b""):
        """Returns the status and the body."""
        out = subprocess.run(
            ["curl", "-s", "-S", "--max-time", "60", "-b", self.jar, "-c", self.jar, "-o", "-",
             "-H", "Expect:", "-w", "\n%{http_code}", *map(str, options), self.base + path],
            input=stdin, check=True, capture_output=True).stdout
        body, _, status = out.rpartition(b"\n")
        return int(status), body.decode()


def token_of(page):
    return re.search(r'name="token" value="([0-9a-f]{32})"', page)[1]


def items_of(page):
    return [html.unescape(item) for item in re.findall(r"<li>(.*?)</li>", page)]


def check_todo(client, paths):
    status, page = client.send(paths["todo"])
    assert status == 200 and items_of(page) == [], page
    token = token_of(page)

    def add(text, with_token=token):
        form = urllib.parse.urlencode({"token": with_token, "text": text})
        return client.send(paths["add"], "--data", form)

    for item in ("milk", "<b> & 'bread'", "Bröd"):
        result = add(item); assert result[0] == 303, (item, result)
    expected = ["milk", "<b> & 'bread'", "Bröd"]
    assert items_of(client.send(paths["todo"])[1]) == expected
    for wrong, problem in (("", "is missing"), ("x" * 101, "is too long"),
                           ("a\tb", "contains characters that are not allowed")):
        status, page = add(wrong)
        assert status == 422 and f"The text {problem}." in page, (wrong, status, page)
        assert items_of(page) == expected
    assert add("forged", "0" * 32)[0] == 403
    assert items_of(client.send(paths["todo"])[1]) == expected


def check_sum(client, paths):
    def post(body, kind="application/json"):
        return client.send(paths["sum"], "-H", f"Content-Type: {kind}", "--data-binary", "@-",
                           stdin=body)
    status, answer = post(b'{"numbers": [1, 2, 3.5]}')
    assert status == 200 and json.loads(answer) == {"count": 3, "sum": 6.5}, (status, answer)
    for wrong in (b"", b"{", b"[]", b'{"numbers": 1}', b'{"numbers": ["1"]}', b"[" * 10000):
        status, answer = post(wrong)
        assert status == 400 and "error" in json.loads(answer), (wrong, status, answer)
    assert post(b'{"numbers": [' + b"1," * 40000 + b"1]}")[0] == 413


def check_upload(client, paths, uploads):
    stored = pathlib.Path(uploads) / "upload"
    picture = client.jar.parent / "picture"
    picture.write_bytes(bytes(range(256)) * 4096)
    status, answer = client.send(paths["upload"], "-F", f"file=@{picture}")
    assert status == 200 and json.loads(answer) == {"bytes": 1 << 20}, (status, answer)
    assert stored.read_bytes() == picture.read_bytes()
    files = sorted(path.name for path in stored.parent.iterdir())
    picture.write_bytes(b"x" * (5 << 20))
    status = client.send(paths["upload"], "-F", f"file=@{picture}")[0]
    assert status in (413, 422), status
    body = b'--edge\r\nContent-Disposition: form-data; name="file"; filename="a"\r\n\r\ncut'
    status = client.send(paths["upload"], "-H", "Content-Type: multipart/form-data; boundary=edge",
                         "--data-binary", "@-", stdin=body)[0]
    assert status in (400, 422), status
    assert stored.read_bytes() == bytes(range(256)) * 4096, "the earlier upload stays"
    assert sorted(path.name for path in stored.parent.iterdir()) == files


def check_all(port, paths, uploads, folder):
    """`uploads` is the folder in which the programs store the upload, `folder` one for the check."""
    client = Client(port, folder)
    check_todo(client, paths)
    check_sum(client, paths)
    check_upload(client, paths, uploads)
