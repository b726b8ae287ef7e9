"""Runs front servers with the project's configurations, and load through them."""

import contextlib
import os
import pathlib
import re
import signal
import subprocess
import sys
import time
import urllib.request

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "support"))
import fastcgi
from backend import BACK_CORE, FRONT_CORE, TIMEOUT, pinned
from ports import free_port

CONFIG = pathlib.Path(__file__).resolve().parents[2] / "packaging/front-servers"
MILLISECONDS = {"us": 0.001, "ms": 1, "s": 1000}


class Front:
    """A front server with a back end, in a folder of its own. Each has a core of its own."""

    def __init__(self, program, folder):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir()
        self.port = free_port()
        self.backend = program.start(self.folder / "fcgi.sock", pinned(BACK_CORE))
        self.process = self.backend.process
        self.server = subprocess.Popen(
            pinned(FRONT_CORE) + self.command(program),
            env={**os.environ, "PORT": str(self.port), "STATE_DIR": str(self.folder),
                 "DOCUMENT_ROOT": str(program.folder or self.folder)},
            stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.wait()

    def wait(self):
        deadline = time.monotonic() + TIMEOUT
        while time.monotonic() < deadline:
            with contextlib.suppress(OSError):
                self.fetch("p=page")
                return
            time.sleep(0.01)
        raise TimeoutError(self.name)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.server.send_signal(signal.SIGTERM)
        self.server.wait(TIMEOUT)
        self.backend.stop()

    def url(self, query):
        return f"http://127.0.0.1:{self.port}/servlet?{query}"

    def fetch(self, query):
        """Returns the header lines of the response as one text."""
        with contextlib.suppress(urllib.error.HTTPError):
            with urllib.request.urlopen(self.url(query), timeout=TIMEOUT) as response:
                return str(response.headers)
        return ""

    def sign_in(self):
        return fastcgi.cookie_of(re.search(r"^Set-Cookie: (.+)", self.fetch("p=sign-in"), re.M))


class Lighttpd(Front):
    name = "lighttpd"

    def command(self, _):
        return ["lighttpd", "-D", "-f", str(CONFIG / "lighttpd.conf")]


class Nginx(Front):
    name = "nginx"

    def command(self, _):
        text = (CONFIG / "nginx.conf").read_text()
        for key, value in {"DOCUMENT_ROOT": self.folder, "PORT": self.port,
                           "STATE_DIR": self.folder}.items():
            text = text.replace(f"@{key}@", str(value))
        (self.folder / "nginx.conf").write_text(text)
        # The default user of the workers may not read the folder.
        user = ["-g", "user root;"] if os.getuid() == 0 else []
        return ["nginx", "-c", str(self.folder / "nginx.conf"), "-e", "stderr", *user]


class Load:
    """The figures of one run of wrk(1), which shares the front server's core."""

    def __init__(self, front, query, clients, seconds, cookie, body=None,
                 content_type="application/x-www-form-urlencoded"):
        command = [*pinned(FRONT_CORE), "wrk", "-t1", f"-c{clients}", f"-d{seconds}s",
                   "--latency", "-H", f"Cookie: {cookie}"]
        if body is not None:
            script = front.folder / "post.lua"
            script.write_text(f'wrk.method = "POST"\nwrk.body = [[{body}]]\n'
                              f'wrk.headers["Content-Type"] = "{content_type}"\n')
            command += ["-s", str(script)]
        before = front.process.cpu_seconds()
        text = subprocess.run([*command, front.url(query)], stdout=subprocess.PIPE, text=True,
                              check=True).stdout
        used = front.process.cpu_seconds() - before
        assert "Non-2xx" not in text and "Socket errors" not in text, text
        requests = int(re.search(r"(\d+) requests in", text).group(1))
        self.rate = float(re.search(r"Requests/sec:\s+([\d.]+)", text).group(1))
        number, unit = re.search(r"^\s*50%\s+([\d.]+)(us|ms|s)$", text, re.M).groups()
        self.median = float(number) * MILLISECONDS[unit]
        self.cpu_time = used / requests * 1e6  # microseconds a request
