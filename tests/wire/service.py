"""Starts the programs of the wire tests, and sends them requests."""

import contextlib
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "support"))
from ports import free_port, is_listening

# A log record. The excluded characters are the control characters of Unicode.
RECORD = re.compile(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ [a-z]+ \[[^]]+\]"
                    r"( thread=\d+ request=\d+)?: [^\x00-\x1f\x7f-\x9f]*")
PATIENCE = 30  # seconds; normally much less than one is needed


class Build:
    """A build folder and the programs in it."""

    def __init__(self, folder):
        self.folder = folder
        self.host = folder / "host/fcgi_host"
        # The same, for the plug-in library of these tests.
        self.wire_host = folder / "tests/wire/fcgi_host_wire"
        self.sanitized = "-fsanitize=" in (folder / "CMakeCache.txt").read_text()


@contextlib.contextmanager
def temporary_folder():
    """Creates a folder with a short path: a Unix socket path has at most 107 bytes."""
    path = pathlib.Path(tempfile.mkdtemp(prefix="wire."))
    for name in ("uploads", "www/WEB-INFO", "state"):
        (path / name).mkdir(parents=True)
    yield path
    shutil.rmtree(path)


def wait_until(condition, what, patience=PATIENCE):
    deadline = time.monotonic() + patience
    while time.monotonic() < deadline:
        if condition():
            return
        time.sleep(0.005)
    raise AssertionError(f"{what}: not within {patience} s")


class Host:
    """A running fcgi_host."""

    def __init__(self, process, folder, log):
        self.process = process
        self.folder = folder
        self.log = log

    def signal(self, number):
        self.process.send_signal(number)

    def obeys(self):
        """Returns whether the daemon has started far enough for a stop signal to shut it down
        gracefully."""
        assert self.process.poll() is None, self.log.read_text()
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        blocked = int(re.search(r"^SigBlk:\s+([0-9a-f]+)$", status, re.M).group(1), 16)
        # Blocked together with the stop signals. Those look unblocked while sigwait(3) waits.
        return bool(blocked & 1 << (signal.SIGUSR1 - 1))

    def wait(self, timeout=PATIENCE):
        return self.process.wait(timeout)

    def stop(self):
        """Stops the daemon as a supervisor does; returns its exit status."""
        self.signal(signal.SIGTERM)
        return self.wait()

    def memory(self, field):
        """Returns a figure of /proc/PID/status in bytes."""
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(re.search(rf"^{field}:\s+(\d+) kB$", status, re.M).group(1)) * 1024

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def log_lines(self):
        """Returns the log, which must consist of records: one line each, no control characters."""
        text = self.log.read_bytes().decode()
        lines = text.split("\n")
        assert lines.pop() == ""
        for line in lines:
            assert RECORD.fullmatch(line), repr(line)
        return lines

    def lines(self, name):
        """Returns the lines that the plug-in recorded under this name."""
        path = self.folder / name
        if not path.exists():
            return []
        return path.read_text(errors="backslashreplace").splitlines()


class Answer:
    """An HTTP response, parsed."""

    def __init__(self, raw):
        self.raw = raw
        head, self.separator, self.body = raw.partition(b"\r\n\r\n")
        lines = head.split(b"\r\n")
        self.status = int(lines[0].split()[1]) if lines[0].startswith(b"HTTP/") else None
        self.header_lines = lines[1:] if self.status else lines

    def headers(self, name):
        prefix = name.lower().encode() + b":"
        return [line[len(prefix):].strip().decode() for line in self.header_lines
                if line.lower().startswith(prefix)]

    def header(self, name):
        values = self.headers(name)
        assert len(values) == 1, f"{name}: {values} in {self.header_lines}"
        return values[0]

    @property
    def text(self):
        return self.body.decode()


class Front:
    """A running web server."""

    def __init__(self, kind, port, scheme="http"):
        self.kind = kind
        self.port = port
        self.scheme = scheme

    def curl(self, target, *options, stdin=b""):
        """Sends a request with curl and returns the response."""
        result = subprocess.run(
            ["curl", "--silent", "--show-error", "--include", "--path-as-is", "--globoff",
             "--max-time", "120", "--header", "Expect:", *map(str, options),
             f"{self.scheme}://127.0.0.1:{self.port}{target}"],
            input=stdin, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False)
        assert result.returncode == 0, result.stderr.decode()
        return Answer(result.stdout)

    def connect(self):
        return socket.create_connection(("127.0.0.1", self.port), PATIENCE)


class Starter:
    def __init__(self, build, folder):
        self.build = build
        self.folder = folder
        self.state = folder / "state"
        self.socket_path = str(self.state / "fcgi.sock")
        self.processes = []
        self.sockets = []
        self.environment = dict(os.environ, WIRE_FOLDER=str(folder), APP_LOG="stderr")
        self.front_variables = {}
        self.document_root = folder / "www"

    def end(self):
        for process in self.processes:
            # The whole process group: a killed nginx master leaves its workers behind.
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGKILL)
            process.wait()
        for opened in self.sockets:
            opened.close()

    def start(self, *command, log, **options):
        with (self.folder / log).open("ab") as output:
            process = subprocess.Popen([str(word) for word in command], stderr=output,
                                       stdout=output, start_new_session=True, **options)
        self.processes.append(process)
        return process

    def shared_socket(self):
        """Opens a listening socket as a supervisor does, to be shared by successive daemons."""
        listener = socket.socket(socket.AF_UNIX)
        self.sockets.append(listener)
        listener.bind(self.socket_path)
        listener.listen(socket.SOMAXCONN)
        os.chmod(self.socket_path, 0o666)  # the web server's workers may run as another user
        return listener

    def host(self, *arguments, stdin=subprocess.DEVNULL, wait=True, **options):
        """Starts fcgi_host with the plug-in of the tests, and waits until it handles stop signals
        and, with --listen, listens."""
        process = self.start(self.build.wire_host, *arguments, log="host.log", stdin=stdin,
                             env=self.environment, **options)
        host = Host(process, self.folder, self.folder / "host.log")
        if wait:
            wait_until(host.obeys, "fcgi_host starting")
        if "--listen" in arguments:
            self.wait_for_socket(process)
        return host

    def phone(self, *arguments):
        """Starts fcgi_host with the example phone, a new one at the first call, whose data are in
        the test's folder. Start the web server afterwards."""
        device = self.build.folder / "device/phone"
        data = self.folder / "data"
        if not data.exists():
            data.mkdir()
            (data / "reset").touch()
        self.document_root = device / "www"
        own_mounts = ["unshare", "--mount"]
        if os.getuid() != 0:
            own_mounts += ["--user", "--map-root-user"]
        place_data = 'mount --bind "$0" "$1" && shift && exec "$@"'
        process = self.start(*own_mounts, "sh", "-c", place_data, data, device / "data",
                             self.build.host, "--listen", self.socket_path, *arguments,
                             log="host.log", stdin=subprocess.DEVNULL, env=self.environment)
        self.wait_for_socket(process)
        return Host(process, self.folder, self.folder / "host.log")

    def wait_for_socket(self, process):
        def ready():
            assert process.poll() is None, (self.folder / "host.log").read_text()
            return is_listening(self.socket_path)
        wait_until(ready, "listening")
        os.chmod(self.socket_path, 0o666)

    def front(self, kind, config, *additions):
        """Starts a web server with packaging/front-servers/KIND.conf and, for each addition,
        KIND-ADDITION.conf."""
        os.chmod(self.folder, 0o755)
        os.chmod(self.state, 0o777)
        port = free_port()
        self.front_variables.update(DOCUMENT_ROOT=str(self.document_root), PORT=str(port),
                                    STATE_DIR=str(self.state), CONFIG_DIR=str(config))
        command = getattr(self, "_" + kind)(config, additions)
        process = self.start(*command, log=f"{kind}.log", stdin=subprocess.DEVNULL,
                             env=dict(system_environment(), **self.front_variables))

        def ready():
            assert process.poll() is None, (self.folder / f"{kind}.log").read_text()
            return is_listening(port)
        wait_until(ready, f"{kind} listening")
        return Front(kind, port, "https" if "tls" in additions else "http")

    def certificate(self):
        """Creates a self-signed certificate for the web server that is started next; returns its
        file."""
        certificate, key = self.folder / "certificate.pem", self.folder / "key.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "1",
                        "-subj", "/CN=phone", "-addext", "subjectAltName=IP:127.0.0.1",
                        "-keyout", key, "-out", certificate], check=True, capture_output=True)
        self.front_variables.update(CERTIFICATE=str(certificate), CERTIFICATE_KEY=str(key))
        return certificate

    def _lighttpd(self, config, additions):
        # Included files are searched for beside the first file.
        for path in config.glob("lighttpd*"):
            shutil.copy(path, self.folder)
        path = self.folder / "front.conf"
        path.write_text("".join(f'include "{name}"\n' for name in (
            "lighttpd.conf", *(f"lighttpd-{each}.conf" for each in additions))))
        return ["lighttpd", "-D", "-f", path]

    def _lighttpd_spawn(self, config, _):
        self.front_variables.update(self.environment, FCGI_HOST=str(self.build.wire_host))
        return ["lighttpd", "-D", "-f", config / "lighttpd-spawn.conf"]

    def _nginx(self, config, additions):
        text = (config / "nginx.conf").read_text()
        for addition in additions:
            listen = "listen 127.0.0.1:@PORT@;"
            assert listen in text
            text = text.replace(listen, (config / f"nginx-{addition}.conf").read_text())
        for name in re.findall("@([A-Z_]+)@", text):
            text = text.replace(f"@{name}@", self.front_variables[name])
        path = self.folder / "nginx.conf"
        path.write_text(text)
        return ["nginx", "-p", self.state, "-e", "stderr", "-c", path]

    def _apache(self, config, additions):
        # Its workers run as another user, who may be unable to read the source folder.
        for path in config.glob("apache*"):
            shutil.copy(path, self.folder)
        self.front_variables["CONFIG_DIR"] = str(self.folder)
        command = ["apache2", "-D", "FOREGROUND", "-f", self.folder / "apache.conf"]
        for addition in additions:
            command += ["-c", f"Include apache-{addition}.conf"]
        return command

    def cgi_fcgi(self, uri, **variables):
        """Sends a request to the daemon without a web server; returns the raw response."""
        query = uri.partition("?")[2]
        environment = dict(REQUEST_METHOD="GET", REQUEST_URI=uri, QUERY_STRING=query,
                           SCRIPT_NAME="/servlet", REMOTE_ADDR="127.0.0.1", **variables)
        result = subprocess.run(["cgi-fcgi", "-bind", "-connect", self.socket_path],
                                env=environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, timeout=PATIENCE, check=False)
        return result.stdout


def system_environment():
    """Returns the environment with /usr/sbin in PATH, where Debian installs the web servers."""
    return dict(os.environ, PATH=os.environ["PATH"] + ":/usr/sbin")


@contextlib.contextmanager
def in_background(*functions):
    """Runs each function on its own thread. Yields a list that contains their results, in any
    order, after the block."""
    import threading
    results = []
    threads = [threading.Thread(target=lambda f=function: results.append(f()))
               for function in functions]
    for thread in threads:
        thread.start()
    try:
        yield results
    finally:
        for thread in threads:
            thread.join()
