"""scripts/serve, with the phone's own pages and with a plug-in project."""

import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import time

import pytest

from conftest import SOURCE
from ports import free_port, is_listening
from service import Front, wait_until

# One after the other, since they build in one folder.
pytestmark = pytest.mark.xdist_group("serve")

BUILDING = 600  # seconds for a first build
REBUILDING = 120
BUILD = SOURCE / "build/served"  # of this group alone, so that other tests can run beside it
TEMPLATE = "www/WEB-INFO/templates/hello.html"  # of examples/hello
PROJECT = SOURCE / "build/a project"
USAGE = "usage: scripts/serve [--port N] [--build DIR] [--plugin DIR]\n"


def environment(folder):
    """Returns what scripts/serve runs with: temporary files in `folder`, and ccache for projects."""
    launcher = {"CMAKE_CXX_COMPILER_LAUNCHER": "ccache"} if shutil.which("ccache") else {}
    return dict(os.environ, TMPDIR=str(folder), **launcher)


def parent_and_command(pid):
    """Returns None for a process that has ended."""
    try:
        process = pathlib.Path(f"/proc/{pid}")
        # The name in parentheses may contain any characters.
        state, parent = (process / "stat").read_text().rpartition(")")[2].split()[:2]
        command = (process / "cmdline").read_bytes().replace(b"\0", b" ").decode()
    except OSError:
        return None
    return None if state == "Z" else (int(parent), command)


def descendants(pid):
    """Returns the command lines of all processes that a process has started, by process id."""
    processes = {}
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            known = parent_and_command(int(entry.name))
            if known:
                processes[int(entry.name)] = known
    found = {}
    generation = {pid}
    while generation:
        generation = {child for child, (parent, _) in processes.items() if parent in generation}
        found.update((child, processes[child][1]) for child in generation)
    return found


@pytest.fixture
def serve(start, folder):
    def serve(*arguments):
        # Background jobs ignore Ctrl-C; restores its action.
        return start.start(SOURCE / "scripts/serve", *arguments, log="serve.log",
                           stdin=subprocess.DEVNULL, env=environment(folder),
                           preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL))
    return serve


class Served:
    """A running scripts/serve."""

    def __init__(self, process, port, log):
        self.process = process
        self.front = Front("lighttpd", port)
        self.log_file = log
        wait_until(lambda: self.answers() and f"http://127.0.0.1:{port}/" in self.log, "serving",
                   BUILDING)

    def answers(self):
        assert self.process.poll() is None, self.log
        return is_listening(self.front.port)

    @property
    def log(self):
        return self.log_file.read_text()

    def end(self):
        if self.process.poll() is None:
            self.process.terminate()
            self.process.wait()


@pytest.fixture
def serve_and_wait(serve, folder):
    served = []

    def serve_and_wait(*arguments):
        port = free_port()
        process = serve("--port", port, *arguments)
        served.append(Served(process, port, folder / "serve.log"))
        return served[-1]
    yield serve_and_wait
    for one in served:
        one.end()


def daemon_of(process):
    """Returns the daemon's process id. lighttpd accepts connections before it starts the daemon."""
    def hosts():
        return [pid for pid, command in descendants(process.pid).items() if "fcgi_host" in command]
    wait_until(lambda: len(hosts()) == 1, "one daemon")
    return hosts()[0]


def assert_leaves_nothing(served, number, folder):
    started = descendants(served.process.pid)
    served.process.send_signal(number)
    assert served.process.wait(30) == 0, served.log
    wait_until(lambda: not any(parent_and_command(pid) for pid in started), "all having ended")
    assert not list(folder.glob("serve.*/")), "temporary files"


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_it_serves_the_sign_in_page_until_a_signal(serve_and_wait, folder, number):
    served = serve_and_wait("--build", BUILD)
    front = served.front
    assert f"http://127.0.0.1:{front.port}/" in served.log
    assert "Sign in as admin with the password admin." in served.log

    page = front.curl("/", "--location")
    assert b"200 OK" in page.raw
    assert b"<form" in page.raw
    assert front.curl("/cgi-bin/Velmoranix.acx?Id=1").status == 302
    assert front.curl("/WEB-INFO/servlet/servlet.xml").status == 403

    daemon = daemon_of(served.process)
    assert (BUILD / "fcgi_host.pid").read_text() == f"{daemon}\n"
    assert_leaves_nothing(served, number, folder)
    assert not (BUILD / "fcgi_host.pid").exists()


def test_a_port_in_use_is_reported(serve, folder):
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        taken.listen()
        port = taken.getsockname()[1]
        assert serve("--port", str(port)).wait(30) == 69
    assert (folder / "serve.log").read_text() == (
        f"serve: port {port} is in use; "
        "stop the program that listens there or choose another port with --port\n")


@pytest.mark.parametrize("arguments", [
    ["--port"], ["--port", "x"], ["--port=0"], ["--port=65536"], ["8080"], ["--port", "80", "81"],
    ["--build"], ["--build="], ["--plugin"], ["--plugin", ""], ["--plugin=a", "--port"],
    ["--root"]])
def test_wrong_usage_is_reported(serve, folder, arguments):
    assert serve(*arguments).wait(30) == 64
    assert (folder / "serve.log").read_text() == USAGE


@pytest.mark.parametrize("option", ["--help", "-h"])
def test_help_explains_each_option(serve, folder, option):
    assert serve(option).wait(30) == 0
    text = (folder / "serve.log").read_text()
    assert all(f"\n{name} " in text for name in ("--port", "--build", "--plugin", "--help"))


def test_a_folder_without_a_project_is_reported(serve, folder):
    assert serve("--plugin", folder / "state").wait(30) == 66
    assert (folder / "serve.log").read_text() == (
        f"serve: {folder}/state contains no CMakeLists.txt\n")


@pytest.fixture
def project():
    """A plug-in project that the test may change. Always in the same place, for ccache."""
    shutil.rmtree(PROJECT, ignore_errors=True)
    return pathlib.Path(shutil.copytree(SOURCE / "examples/hello", PROJECT))


def replace(path, old, new):
    text = path.read_text()
    assert old in text
    path.write_text(text.replace(old, new))


@pytest.fixture
def hello(serve_and_wait, project):
    return serve_and_wait("--build", BUILD, "--plugin", project)


def test_files_in_the_build_folder_of_another_project_are_kept(serve_and_wait):
    kept = BUILD / "plugin/kept"
    kept.parent.mkdir(parents=True, exist_ok=True)
    kept.write_text("an author's")
    (BUILD / "plugin/CMakeCache.txt").unlink(missing_ok=True)
    try:
        serve_and_wait("--build", BUILD, "--plugin", SOURCE / "examples/hello")
        assert kept.read_text() == "an author's"
    finally:
        kept.unlink(missing_ok=True)


def test_a_plug_in_is_served_instead_of_the_phones_pages(hello):
    assert f"http://127.0.0.1:{hello.front.port}/servlet?p=hello\n" in hello.log
    page = hello.front.curl("/servlet?p=hello", "--data", "name=%26you&times=1")
    assert page.status == 200
    assert "<h1>Hello, &amp;you!</h1>" in page.text
    assert re.fullmatch(r"request=\d+ p=hello", page.header("X-Access-Log"))
    assert hello.front.curl("/hello.css").header("Content-Type").startswith("text/css")
    assert "<form" not in hello.front.curl("/servlet?p=login").text
    assert hello.front.curl("/WEB-INFO/templates/hello.html").status == 403


def test_a_new_project_is_served_without_building_its_test(serve_and_wait, folder):
    subprocess.run([SOURCE / "tools/servlet_new/servlet_new", "news"], cwd=folder, check=True)
    front = serve_and_wait("--build", BUILD, "--plugin", folder / "news").front
    assert "<h1>Hello, stranger!</h1>" in front.curl("/servlet?p=news").text
    assert not (BUILD / "plugin/plugin_test").exists()
    assert_commands_of_readme_work(folder / "news")


def assert_commands_of_readme_work(project):
    """They name the sources with which the project was created; here another build folder is used."""
    readme = (project / "README.md").read_text()
    serve, build, check = re.findall(r"^```sh\n(.*?)^```$", readme, re.M | re.S)
    assert serve == f"{SOURCE}/scripts/serve --plugin .\n"
    assert f"{SOURCE}/build/serve/prefix" in build

    def run(commands):
        return subprocess.run(["bash", "-ec", commands.replace(f"{SOURCE}/build/serve/", f"{BUILD}/")],
                              cwd=project, env=environment(project), check=True, text=True,
                              stdout=subprocess.PIPE).stdout
    # Without the test, which is like that of an installed project.
    run(build.splitlines()[0].replace("--build build", "--build build --target plugin"))
    assert ": note: not below " in run(check)


def test_a_changed_template_and_a_new_file_are_served_by_the_same_daemon(hello, project):
    daemon = daemon_of(hello.process)
    (project / "www/new.css").write_text("p { color: red }\n")
    replace(project / TEMPLATE, "Hello,", "Welcome,")
    wait_until(lambda: "Welcome, stranger!" in hello.front.curl("/servlet?p=hello").text,
               "the new template", BUILDING)
    wait_until(lambda: hello.front.curl("/new.css").status == 200, "the new file", BUILDING)
    assert daemon_of(hello.process) == daemon

    (project / "www/new.css").unlink()
    wait_until(lambda: hello.front.curl("/new.css").status == 404, "the file being gone", BUILDING)


def test_a_changed_source_is_served_by_a_new_daemon_without_a_failed_request(hello, project):
    daemon = daemon_of(hello.process)
    replace(project / "hello.cpp", "kMaxTimes = 5", "kMaxTimes = 9")

    def replaced():
        page = hello.front.curl("/servlet?p=hello")
        assert page.status == 200
        return "1 to 9" in page.text
    wait_until(replaced, "the new source", BUILDING)
    assert daemon_of(hello.process) != daemon


def in_browser(hello):
    """Returns what a browser shows that goes to the page."""
    return hello.front.curl("/servlet?p=hello", "--header", "Accept: text/html")


def wait_for_problem(hello, *texts):
    """Waits until a browser is shown a page with each of the texts in order, which is the last one with
    them in the log, too."""
    def shown():
        page = in_browser(hello)
        return page.status == 500 and re.search(".*".join(map(re.escape, texts)), page.text, re.DOTALL)
    wait_until(shown, f"a page with {texts}", REBUILDING)
    assert "serving again" not in hello.log.rpartition("the previous version is still served")[2]


def wait_for_page(hello, text):
    def shown():
        page = in_browser(hello)
        return page.status == 200 and text in page.text
    wait_until(shown, f"the page with {text}", REBUILDING)


def test_a_failed_build_leaves_the_previous_version(hello, project):
    daemon = daemon_of(hello.process)
    replace(project / "hello.cpp", "createHelloPage, HelloPage", "createHelloPage, GoodbyePage")
    replace(project / TEMPLATE, "Hello,", "Goodbye,")
    wait_until(lambda: "the previous version is still served" in hello.log, "the failure", BUILDING)
    assert "GoodbyePage" in hello.log
    # Scripts do not ask for pages.
    assert "Hello, stranger!" in hello.front.curl("/servlet?p=hello").text
    assert daemon_of(hello.process) == daemon
    wait_for_problem(hello, "The project does not build", "hello.cpp, line ", "GoodbyePage",
                     '<li aria-current="true">KIT_SERVLET(createHelloPage, GoodbyePage)</li>')
    assert hello.log.endswith(f"http://127.0.0.1:{hello.front.port}/servlet?p=hello\n")

    replace(project / "hello.cpp", "GoodbyePage", "HelloPage")
    wait_for_page(hello, "Goodbye, stranger!")


def test_what_is_wrong_is_shown_in_the_browser_until_it_is_mended(hello, project):
    template, config = project / TEMPLATE, project / "www/WEB-INFO/servlet/servlet.xml"
    wait_for_page(hello, "Hello, stranger!")

    replace(template, "</TMPL_LOOP>", "<b>")
    wait_for_problem(hello, f"{TEMPLATE}, line 12", "&lt;TMPL_LOOP&gt; is not closed",
                     "once more.&lt;/p&gt;&lt;b&gt;</li>")
    replace(template, "<b>", "</TMPL_LOOP>")
    wait_for_page(hello, "Hello, stranger!")

    template.rename(project / "unused.html")
    wait_for_problem(hello, "names the template &quot;hello.html&quot;, which does not exist")
    (project / "unused.html").rename(template)
    wait_for_page(hello, "Hello, stranger!")

    # A second mistake takes the place of the first.
    replace(config, "createHelloPage", "createHeloPage")
    wait_for_problem(hello, "servlet.xml, line 6", "has no &quot;createHeloPage&quot;")
    replace(config, "</servlets>", "")
    wait_for_problem(hello, "servlet.xml, line ", "not well-formed XML")
    text = config.read_text()
    config.unlink()
    wait_for_problem(hello, "The project installs no /phone/www/WEB-INFO/servlet/servlet.xml")
    config.write_text(text.replace("createHeloPage", "createHelloPage") + "</servlets>\n")
    wait_for_page(hello, "Hello, stranger!")


def test_pages_of_other_names_and_scripts_are_shown_no_source(hello, project):
    replace(project / TEMPLATE, "</TMPL_LOOP>", "")
    wait_for_problem(hello, "is not closed")
    for header in ("Host: phone.example", "Accept: application/json"):
        page = hello.front.curl("/servlet?p=hello", "--header", header)
        assert "is not closed" not in page.text
    foreign = hello.front.curl("/servlet/development/reload.js", "--header", "Host: phone.example")
    assert foreign.status == 404


def test_a_browser_reloads_the_page_after_a_build(hello, project):
    """The page ends with a script, which waits for an answer that says that something has changed."""
    page = in_browser(hello).text
    script, version = re.search(r'<script src="(.*?)" data-version="(.*?)"></script>\n$', page).groups()
    assert "/servlet/development/changed?since=" in hello.front.curl(script).text
    waiting = subprocess.Popen(
        ["curl", "--silent", "--output", os.devnull, "--write-out", "%{http_code}",
         f"http://127.0.0.1:{hello.front.port}/servlet/development/changed?since={version}"],
        stdout=subprocess.PIPE, text=True)
    replace(project / TEMPLATE, "Hello,", "Welcome,")
    assert waiting.communicate(timeout=BUILDING)[0] == "200"
    assert "Welcome, stranger!" in in_browser(hello).text
    assert "reload.js" not in hello.front.curl("/servlet?p=hello").text


CRASHES = "        if (request.parameter(\"name\") == \"crash\") {\n            std::abort();\n        }\n"


def test_a_daemon_that_ends_is_reported_and_started_again(hello, project):
    start = "    void answer(kit::Request& request, kit::Response& response) override {\n"
    replace(project / "hello.cpp", start, start + CRASHES)
    replace(project / "hello.cpp", "#include <atomic>\n", "#include <atomic>\n#include <cstdlib>\n")
    wait_until(lambda: "serving again" in hello.log, "the new source", BUILDING)
    page = hello.front.curl("/servlet?p=hello", "--header", "Accept: text/html", "--data", "name=crash")
    assert page.status == 500
    assert "The daemon ended while it served this page" in page.text
    wait_for_page(hello, "Hello, stranger!")
    assert "the daemon was ended by SIGABRT, and is started again" in hello.log


def test_a_mistake_against_the_kits_preconditions_ends_the_daemon_and_is_named(hello, project):
    replace(project / "hello.cpp", '"times", 1, kMaxTimes', '"times", 9, kMaxTimes')
    wait_until(lambda: "serving again" in hello.log, "the new source", BUILDING)
    hello.front.curl("/servlet?p=hello", "--data", "name=you&times=2")
    assert "Assertion `min <= max && \"`min` must not be above `max`\"' failed" in hello.log
    wait_for_page(hello, "Hello, stranger!")


def test_files_of_editors_and_of_own_builds_are_ignored(hello, project):
    for folder, name in (("out", "CMakeCache.txt"), ("begun", "CMakeFiles/CMakeOutput.log")):
        (project / folder / name).parent.mkdir(parents=True)
        (project / folder / name).write_text("x")
        (project / folder / "hello.cpp").write_text("x")
    for name in (".hello.cpp.swp", "hello.cpp~"):
        (project / name).write_text("x")
    # What is served with this change came after all these files.
    replace(project / TEMPLATE, "Hello,", "Welcome,")
    wait_for_page(hello, "Welcome, stranger!")
    (project / "out/hello.cpp").write_text("another")
    (project / "hello.cpp~").write_text("another")
    time.sleep(0.6)  # it looks five times a second
    assert hello.log.count("serving again") == 1
    assert "still served" not in hello.log


def test_a_project_that_is_wrong_from_the_start_is_served_once_it_is_mended(serve_and_wait, project):
    config = project / "www/WEB-INFO/servlet/servlet.xml"
    text = config.read_text()
    config.unlink()
    served = serve_and_wait("--build", BUILD, "--plugin", project)
    assert ("serve: the project installs no /phone/www/WEB-INFO/servlet/servlet.xml; "
            "no page is served before that is solved\n") in served.log
    page = in_browser(served)
    assert page.status == 500 and "The project installs no /phone/www" in page.text
    assert served.front.curl("/servlet?p=hello").status == 503
    config.write_text(text)
    wait_for_page(served, "Hello, stranger!")


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_a_plug_in_leaves_nothing_either(hello, folder, number):
    hello.front.curl("/servlet?p=hello")
    assert_leaves_nothing(hello, number, folder)
