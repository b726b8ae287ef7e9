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
from backend import TIMEOUT, Backend, Process
from ports import free_port

CONFIG = pathlib.Path(__file__).resolve().parents[2] / "packaging/front-servers"
MILLISECONDS = {"us": 0.001, "ms": 1, "s": 1000}


class Front:
    """A front server with a back end, in a folder of its own."""

    def __init__(self, folder):
        self.folder = pathlib.Path(folder)
        self.folder.mkdir()
        self.port = free_port()

    def start(self, *command, **environment):
        self.server = subprocess.Popen(
            command, env={**os.environ, "PORT": str(self.port), "STATE_DIR": str(self.folder),
                          "DOCUMENT_ROOT": str(self.folder), **environment},
            stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        deadline = time.monotonic() + TIMEOUT
        while time.monotonic() < deadline:
            with contextlib.suppress(OSError):
                self.fetch("p=page")
                return
            time.sleep(0.01)
        raise TimeoutError(command)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.server.send_signal(signal.SIGTERM)
        self.server.wait(TIMEOUT)

    def url(self, query):
        return f"http://127.0.0.1:{self.port}/servlet?{query}"

    def fetch(self, query):
        with contextlib.suppress(urllib.error.HTTPError):
            with urllib.request.urlopen(self.url(query), timeout=TIMEOUT) as response:
                return response.headers
        return {}

    def sign_in(self):
        cookie = self.fetch("p=sign-in").get("Set-Cookie")
        return cookie.strip() if cookie else "JSESSIONID=55d0c8e3f2a81712345655d0c8e40010"


class Lighttpd(Front):
    """lighttpd, which starts the back end itself."""

    name = "lighttpd"

    def __init__(self, program, folder):
        super().__init__(folder)
        pid = self.folder / "pid"
        starter = self.folder / "start"
        starter.write_text(f"#!/bin/sh\necho $$ >{pid}\nexec {' '.join(program.command)}\n")
        starter.chmod(0o755)
        self.start("lighttpd", "-D", "-f", str(CONFIG / "lighttpd-spawn.conf"),
                   **{**program.environment, "FCGI_HOST": str(starter)})
        self.process = Process(int(pid.read_text()))


class Nginx(Front):
    name = "nginx"

    def __init__(self, program, folder):
        super().__init__(folder)
        self.backend = Backend(program, self.folder / "fcgi.sock")
        self.process = self.backend.process
        text = (CONFIG / "nginx.conf").read_text()
        for key, value in {"DOCUMENT_ROOT": self.folder, "PORT": self.port,
                           "STATE_DIR": self.folder}.items():
            text = text.replace(f"@{key}@", str(value))
        (self.folder / "nginx.conf").write_text(text)
        # The default user of the workers may not read the folder.
        user = ["-g", "user root;"] if os.getuid() == 0 else []
        self.start("nginx", "-c", str(self.folder / "nginx.conf"), "-e", "stderr", *user)

    def __exit__(self, *arguments):
        super().__exit__(*arguments)
        self.backend.stop()


class Load:
    """The figures of one run of wrk(1)."""

    def __init__(self, front, query, clients, seconds, cookie, form=None):
        command = ["wrk", "-t1", f"-c{clients}", f"-d{seconds}s", "--latency",
                   "-H", f"Cookie: {cookie}"]
        if form is not None:
            script = front.folder / "form.lua"
            script.write_text(
                f'wrk.method = "POST"\nwrk.body = "{form}"\n'
                'wrk.headers["Content-Type"] = "application/x-www-form-urlencoded"\n')
            command += ["-s", str(script)]
        before = front.process.cpu_seconds()
        text = subprocess.run([*command, front.url(query)], stdout=subprocess.PIPE, text=True,
                              check=True).stdout
        used = front.process.cpu_seconds() - before
        assert "Non-2xx" not in text and "Socket errors" not in text, text
        requests = int(re.search(r"(\d+) requests in", text).group(1))
        self.rate = float(re.search(r"Requests/sec:\s+([\d.]+)", text).group(1))
        self.median = self.latency(text, "50%")
        self.percentile_99 = self.latency(text, "99%")
        self.cpu_seconds = used / requests * 10_000

    @staticmethod
    def latency(text, share):
        number, unit = re.search(rf"^\s*{share}\s+([\d.]+)(us|ms|s)$", text, re.M).groups()
        return float(number) * MILLISECONDS[unit]
