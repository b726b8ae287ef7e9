"""docs/porting.md: the container with a device maker's libraries, those in tests/porting."""

import os
import pathlib
import re
import shutil
import signal
import subprocess
import time

import pytest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
GUIDE = SOURCE / "docs/porting.md"
LIBRARIES = re.compile(r"(?:CGI|TMPL)_\w+|app_log|WebDebug::\w+")
# These report violations of the ownership rules.
SANITIZER = "-fsanitize=address,undefined -fno-sanitize-recover=all -g1"


def run(*command, **options):
    return subprocess.run([str(part) for part in command], check=True, text=True,
                          stdout=subprocess.PIPE, **options).stdout


def commands():
    """Returns the commands of the guide that build, and that serve a request."""
    return [re.sub("^   ", "", block, flags=re.MULTILINE)
            for block in re.findall(r"^   ```sh\n((?:   .*\n)+)   ```$", GUIDE.read_text(),
                                    re.MULTILINE)]


@pytest.fixture(scope="module")
def sources(tmp_path_factory):
    """A copy of this project, built as the guide says."""
    folder = pathlib.Path(shutil.copytree(
        SOURCE, tmp_path_factory.mktemp("port") / "fcgiServer",
        ignore=shutil.ignore_patterns("build", ".git", "node_modules", "__pycache__")))
    build, _ = commands()
    run("bash", "-ec", build, cwd=folder,
        env=dict(os.environ, CFLAGS=SANITIZER, CXXFLAGS=SANITIZER, LDFLAGS=SANITIZER))
    return folder


class Host:
    def __init__(self, sources, folder):
        self.sources, self.socket, self.log = sources, folder / "socket", folder / "log"
        with self.log.open("w") as log:
            self.process = subprocess.Popen(
                [sources / "build/porting/container/host/fcgi_host", "--listen", self.socket],
                stderr=log, env=dict(os.environ, ASAN_OPTIONS="detect_leaks=1"))
        end = time.monotonic() + 60
        while not self.socket.is_socket():
            assert self.process.poll() is None and time.monotonic() < end, self.log.read_text()
            time.sleep(0.1)

    def serve(self, query, body=None, **variables):
        environment = {
            "PATH": os.environ["PATH"], "QUERY_STRING": query, "SCRIPT_NAME": "/servlet",
            "REQUEST_METHOD": "GET" if body is None else "POST", "REQUEST_URI": f"/servlet?{query}",
            "REMOTE_ADDR": "192.0.2.7", "CONTENT_LENGTH": str(len(body or "")),
            "DOCUMENT_ROOT": str(self.sources / "build/porting/device/tree/phone/www"), **variables}
        return run("cgi-fcgi", "-bind", "-connect", self.socket, input=body or "",
                   env=environment).replace("\r\n", "\n").partition("\n\n")

    def stop(self):
        self.process.send_signal(signal.SIGTERM)
        return self.process.wait(60), self.log.read_text()


@pytest.fixture
def host(sources, tmp_path):
    started = Host(sources, tmp_path)
    yield started
    status, log = started.stop()
    assert status == 0 and "Sanitizer" not in log and "runtime error" not in log, log


def test_a_page_is_rendered_by_the_device_makers_templates(host):
    _, _, body = host.serve("p=greeting&name=you+%26+me")
    assert body == "<h1>Hello, you &#38; me!</h1>\n<p>This device speaks en.</p>\n"


def test_form_cookies_and_body_are_read_by_the_device_makers_decoding(host):
    form = "application/x-www-form-urlencoded"
    _, _, body = host.serve("p=greeting&q=all&name=b", "name=a%20c&name=", CONTENT_TYPE=form,
                            HTTP_COOKIE="x=y; colour=\"r+%65d\"")
    assert body == "name=a c\nname=\nname=b\ncookie=r+ed\nurl=/a%20b?c=%E4\nfile=0\nbody=\n"


@pytest.mark.parametrize("content_type", [{}, {"CONTENT_TYPE": ""}])
def test_a_body_without_a_type_is_a_form(host, content_type):
    _, _, body = host.serve("p=greeting", "name=you", **content_type)
    assert body.startswith("<h1>Hello, you!</h1>")


def test_a_body_that_is_no_form_is_left_to_the_page(host):
    _, _, body = host.serve("p=greeting&q=all", "raw bytes", CONTENT_TYPE="text/plain")
    assert body == "cookie=none\nurl=/a%20b?c=%E4\nfile=0\nbody=raw bytes\n"


def test_an_empty_request_is_answered(host):
    header, _, _ = host.serve("")
    assert "404" in header


def test_a_template_that_the_device_cannot_render_leaves_the_page_empty(host, sources):
    loop = sources / "build/porting/device/tree/phone/www/WEB-INFO/templates/loop.html"
    loop.write_text('<TMPL_VAR name="x">\n<TMPL_LOOP name="rows"></TMPL_LOOP>\n')
    _, _, body = host.serve("p=greeting&q=loop")
    assert body == ""
    assert "loop.html:2: unknown tag" in host.log.read_text()
    assert "own device 65 4: HttpResponseImpl::flush() TMPL_write error =2!" in host.log.read_text()


def test_the_log_is_the_device_makers(host):
    host.serve("p=greeting&q=all")
    assert "own device 65 4: somebody: asked for everything by a\\x0Aforger\n" in \
        host.log.read_text()


def test_the_guides_request_is_answered_as_it_says(sources):
    _, serve = commands()
    promised = re.search("It answers with `([^`]+)`", GUIDE.read_text())[1]
    assert promised in run("bash", "-ec", serve, cwd=sources)


def symbols(kind, library):
    return {match[0] for line in run("nm", "--dynamic", "--demangle", f"--{kind}-only",
                                     library).splitlines() if (match := LIBRARIES.search(line))}


def test_the_guide_names_what_the_container_calls(sources):
    table = re.search(r"(?s)\| function \| when \|.*?\n\n", GUIDE.read_text())[0]
    named = set(re.findall(r"`((?:CGI|TMPL)_\w+|app_log|WebDebug::\w+)`", table))
    assert named == symbols(
        "undefined", sources / "build/porting/container/fcgiServer/libfcgiServer.so")


def test_nothing_of_the_projects_own_device_library_is_built(sources):
    device = sources / "build/porting/device/libdevice.so"
    host = sources / "build/porting/container/host/fcgi_host"
    assert f"libdevice.so => {device} " in run("ldd", host)
    assert not [path for path in (sources / "build/porting/container").rglob("*")
                if path.name.startswith("libdevice") or path.match("platform/*.o")]


def test_the_port_exports_all_that_a_plug_in_may_call(sources):
    headers = "".join(path.read_text() for path in (SOURCE / "platform/include").glob("*.h"))
    declared = set(re.findall(r"\b((?:CGI|TMPL)_\w+|app_log)\(", headers))
    assert declared and declared <= symbols(
        "defined", sources / "build/porting/device/libdevice.so")
