"""servlet_new and servlet_serve: from a name to a page that is built, tested, checked and served."""

import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

import pytest

import shown_commands
from conftest import SOURCE, run
from ports import free_port, is_listening

PATIENCE = 60  # seconds; normally one is enough
PROJECT = SOURCE / "tools/servlet_new/project"
NOBODY = 65534


@pytest.fixture(scope="module")
def place(prefix):
    """A folder that every user can read, with the installed files and room for projects."""
    folder = pathlib.Path(tempfile.mkdtemp())
    folder.chmod(0o755)
    shutil.copytree(prefix, folder / "prefix", symlinks=True)
    (folder / "some projects").mkdir()
    (folder / "tmp").mkdir()
    (folder / "tmp").chmod(0o1777)
    yield folder
    for process in processes(folder):
        os.kill(process, signal.SIGKILL)
    shutil.rmtree(folder)


def processes(place):
    """Returns the processes that run installed programs: their ids and command lines."""
    commands = {}
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            commands[int(process.name)] = (process / "cmdline").read_bytes()
    return {number: command for number, command in commands.items()
            if str(place / "prefix").encode() in command}


@pytest.fixture(scope="module")
def env(place):
    return dict(os.environ, PATH=f"{place}/prefix/bin:{os.environ['PATH']}",
                CMAKE_PREFIX_PATH=str(place / "prefix"), TMPDIR=str(place / "tmp"),
                CMAKE_BUILD_PARALLEL_LEVEL=str(os.cpu_count()),
                # All projects compile the test kit.
                **({"CMAKE_CXX_COMPILER_LAUNCHER": "ccache"} if shutil.which("ccache") else {}))


def outcome(*command, **options):
    """Returns the exit status and the output."""
    done = subprocess.run([str(part) for part in command], check=False, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    return done.returncode, done.stdout


@pytest.fixture(scope="module")
def greeting(place, env):
    """A new project named greeting."""
    folder = place / "some projects"
    assert run("servlet_new", "greeting", cwd=folder, env=env) == (
        "Created greeting/; greeting/README.md explains how to build, test and serve it.\n")
    return folder / "greeting"


def command_blocks(project):
    return re.findall(r"^```sh\n(.*?)^```$", (project / "README.md").read_text(), re.M | re.S)


def commands(project):
    """Returns the commands of the project's README that build, test and serve it."""
    build, test, serve = command_blocks(project)[0].splitlines()
    return build, test, serve


def test_the_guide_and_the_man_page_show_the_same_commands(greeting):
    shown = "\n".join(commands(greeting))
    guide = (SOURCE / "docs/plugin-guide.md").read_text()
    assert f"```sh\nservlet_new news\ncd news\n{shown}\n```\n" in guide
    examples = (SOURCE / "packaging/man/servlet_new.1").read_text().partition(".Sh EXAMPLES\n")[2]
    assert re.findall(r"^\.Dl \$ (.*)$", examples, re.M) == [
        "servlet_new news && cd news", *commands(greeting)]


@pytest.fixture(scope="module")
def built(greeting, env):
    run("bash", "-ec", commands(greeting)[0], cwd=greeting, env=env)
    return greeting


def test_a_new_project_passes_its_test(built, env):
    printed = run("bash", "-ec", commands(built)[1], cwd=built, env=env)
    assert "100% tests passed, 0 tests failed out of 1" in printed


@pytest.mark.parametrize("kind", ["form", "json", "upload", "sign-in"])
def test_a_project_of_another_kind_works_like_the_first(kind, place, env):
    """By the commands of its README, from a tool that is not on the search path."""
    env = dict(env, PATH=os.environ["PATH"])
    del env["CMAKE_PREFIX_PATH"]
    folder, name = place / "some projects", "my_" + kind.replace("-", "")
    run(place / "prefix/bin/servlet_new", "--with", kind, name, cwd=folder, env=env)
    project = folder / name
    named = re.findall(r"^\| `(.*?)` \|", (project / "README.md").read_text(), re.M)
    assert sorted(named) == sorted(path for path in files(project)
                                   if not re.match(r"CMake|README|\.git", path))
    build, test, serve = commands(project)
    assert serve == f"{place}/prefix/bin/servlet_serve"
    run("bash", "-ec", build, cwd=project, env=env)
    assert "100% tests passed" in run("bash", "-ec", test, cwd=project, env=env)
    install, check = command_blocks(project)[1].splitlines()
    run("bash", "-ec", install, cwd=project, env=env)
    assert without_notes(run("bash", "-ec", check, cwd=project, env=env)) == []


def without_notes(printed):
    return [line for line in printed.splitlines() if ": note: " not in line]


def test_the_kinds_of_projects_differ_in_their_build_by_their_libraries_only():
    tool = SOURCE / "tools/servlet_new"
    own = (tool / "with/sign-in/CMakeLists.txt").read_text()
    assert own.replace(" crypt", "") == (tool / "project/CMakeLists.txt").read_text()


def test_servlet_check_finds_nothing_wrong_with_a_new_project(built, place, env):
    image = built.parent / "image"
    run("cmake", "--install", built / "build", env=dict(env, DESTDIR=str(image)))
    status, printed = outcome(
        "servlet_check", "--root", image, "--partial", "--provides",
        place / "prefix/lib/libdevice.so", "--provides", place / "prefix/sbin/fcgi_host", env=env)
    assert (status, [line for line in printed.splitlines() if ": note: " not in line]) == (0, [])


def examples_of_servlet_check():
    return shown_commands.commands_of_man_page((SOURCE / "packaging/man/servlet_check.1").read_text())


def test_the_examples_of_the_man_page_work(built, place, env):
    """One names a library by pkg-config, wherever that is installed."""
    whole, partial, page, file = examples_of_servlet_check()
    image = built.parent / "image"
    run("cmake", "--install", built / "build", env=dict(env, DESTDIR=str(image)))
    env = dict(env, PKG_CONFIG_PATH=str(place / "prefix/lib/pkgconfig"))
    assert without_notes(run("bash", "-ec", partial, cwd=built.parent, env=env)) == []
    # The image of a project alone lacks the device's libraries.
    status, printed = outcome("bash", "-ec", whole, cwd=built.parent, env=env)
    assert status == 1 and "libdevice.so" in printed
    assert '"status"' in run("bash", "-ec", page, cwd=built.parent, env=env)
    assert "web server" in run("bash", "-ec", file, cwd=built.parent, env=env)


def wait_until(condition, what):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < deadline, what()
        time.sleep(0.05)


class Pages:
    """Requests pages from a port, as a browser does."""

    def __init__(self, port):
        self.address = f"http://127.0.0.1:{port}"

    def get(self, path, form=None, accept="*/*"):
        """Returns the status and the body."""
        data = urllib.parse.urlencode(form).encode() if form else None
        request = urllib.request.Request(self.address + path, data, {"Accept": accept})
        try:
            with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
                return answer.status, answer.read().decode()
        except urllib.error.HTTPError as error:
            return error.code, error.read().decode()


def as_on_a_terminal():
    """Lets Ctrl-C end the program, even if the tests run in the background."""
    signal.signal(signal.SIGINT, signal.SIG_DFL)


@contextlib.contextmanager
def serving(project, place, env, **user):
    """Serves a project until Ctrl-C, after which no process must be left."""
    port = free_port()
    log = place / "serve.log"
    with log.open("w") as output:
        process = subprocess.Popen(
            ["bash", "-ec", f"exec {commands(project)[2]} --port {port}"], cwd=project, env=env,
            stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT,
            start_new_session=True, preexec_fn=as_on_a_terminal, **user)
    try:
        wait_until(lambda: process.poll() is not None or
                   f"{Pages(port).address}/servlet" in log.read_text(), log.read_text)
        assert process.poll() is None and is_listening(port), log.read_text()
        yield Pages(port)
    finally:
        if process.poll() is None:
            os.killpg(process.pid, signal.SIGINT)
        status = process.wait(PATIENCE)
    assert status == 0, log.read_text()
    wait_until(lambda: not processes(place), lambda: processes(place))
    assert not list((place / "tmp").iterdir()), "temporary files"


def is_refused_a_namespace(**user):
    own = ["unshare", "--mount", *["--user", "--map-root-user"] * bool(user or os.geteuid())]
    return subprocess.run([*own, "true"], check=False, stderr=subprocess.DEVNULL,
                          **user).returncode != 0


def assert_serves(project, place, env, **user):
    if is_refused_a_namespace(**user):
        pytest.skip("this machine does not permit a mount namespace")
    before = os.path.exists("/phone")
    with serving(project, place, env, **user) as pages:
        assert f"\n{pages.address}/servlet?p={project.name}\n" in (place / "serve.log").read_text()
        status, page = pages.get("/servlet?p=greeting")
        assert status == 200 and "<h1>Hello, stranger!</h1>" in page
        assert "This is request number 1." in page
        # The listener also sees the requests for other pages.
        assert "404" in pages.get("/servlet?p=other")[1]
        status, page = pages.get("/servlet?p=greeting", {"name": "Ann & Bob"})
        assert status == 200 and "<h1>Hello, Ann &amp; Bob!</h1>" in page
        assert "This is request number 3." in page
        status, page = pages.get("/servlet?p=greeting", {"name": "\t"})
        assert status == 422 and "The name contains characters that are not allowed." in page
        assert "font:" in pages.get("/greeting.css")[1]
        assert pages.get("/WEB-INFO/servlet/servlet.xml")[0] == 403
    assert os.path.exists("/phone") == before


def test_a_new_project_is_served(built, place, env):
    assert_serves(built, place, env)


@pytest.mark.skipif(os.geteuid() != 0, reason="whoever runs this has no root's rights anyway")
def test_an_unprivileged_user_serves_a_project(built, place, env):
    run("chown", "-R", f"{NOBODY}:{NOBODY}", built)
    assert_serves(built, place, env, user=NOBODY, group=NOBODY, extra_groups=[])


def test_a_change_is_served_at_once(built, place, env):
    if is_refused_a_namespace():
        pytest.skip("this machine does not permit a mount namespace")
    template = built / "www/WEB-INFO/templates/greeting.html"
    stylesheet = built / "www/greeting.css"
    text = stylesheet.read_text()
    log = place / "serve.log"
    with serving(built, place, env) as pages:
        assert "<h1>Hello, stranger!</h1>" in pages.get("/servlet?p=greeting")[1]
        template.write_text(template.read_text().replace("Hello,", "Welcome,"))
        wait_until(lambda: "<h1>Welcome, stranger!</h1>" in pages.get("/servlet?p=greeting")[1],
                   log.read_text)
        stylesheet.unlink()
        wait_until(lambda: pages.get("/greeting.css")[0] == 404, log.read_text)
        assert log.read_text().endswith(f"\n{pages.address}/servlet?p=greeting\n")
    stylesheet.write_text(text)
    template.write_text(template.read_text().replace("Welcome,", "Hello,"))


# To a project named "sample", as the guide calls it.
POST_JSON = ("""curl -H 'Content-Type: application/json' """
             """-d '{"title": "Call the front desk", "priority": 2}' """
             """'http://127.0.0.1:8080/servlet?p=sample&q=tasks'""")


def test_json_is_sent_with_curl(place, env):
    if is_refused_a_namespace():
        pytest.skip("this machine does not permit a mount namespace")
    folder = place / "some projects"
    run("servlet_new", "--with", "json", "sample", cwd=folder, env=env)
    run("cmake", "-B", "build", "-DBUILD_TESTING=OFF", cwd=folder / "sample", env=env)
    with serving(folder / "sample", place, env) as pages:
        command = POST_JSON.replace("http://127.0.0.1:8080", pages.address)
        printed = run("bash", "-ec", command.replace("curl ", "curl --silent "), env=env)
    assert json.loads(printed) == {"title": "Call the front desk", "priority": 2}


@pytest.fixture(scope="module")
def other(place, env):
    """A project named like a word of CMake and of the test, without its test."""
    folder = place / "some projects"
    run("servlet_new", "test", cwd=folder, env=env)
    run("cmake", "-B", folder / "test/build", "-DBUILD_TESTING=OFF", folder / "test", env=env)
    run("cmake", "--build", folder / "test/build", env=env)
    return folder / "test"


def exported(library):
    lines = run("nm", "--dynamic", "--defined-only", "--format=posix", library).splitlines()
    return {line.split()[0] for line in lines}


def test_projects_differ_in_their_ids_and_in_all_other_names(built, other):
    for project in (built, other):
        config = (project / "www/WEB-INFO/servlet/servlet.xml").read_text()
        assert f'<servlet id="{project.name}" ' in config
        assert f'path="/phone/www/WEB-INFO/lib/lib{project.name}.so"' in config
        functions = set(re.findall('createfunction="(.*?)"', config))
        assert functions == exported(project / f"build/lib{project.name}.so")
        assert functions == {f"create{project.name.title()}{what}" for what in ("Page", "Counter")}


def files(folder):
    return {str(path.relative_to(folder)): path.read_text()
            for path in folder.rglob("*") if path.is_file()}


@pytest.mark.parametrize("name", ["a", "Sample", "mySample", "sample2", "my_news_2", "x" * 32])
def test_projects_of_all_names_differ_only_in_the_name(name, tmp_path, env):
    run("servlet_new", name, cwd=tmp_path, env=env)
    of_class = "".join(part[:1].upper() + part[1:] for part in name.split("_"))

    def named(text):
        return re.sub("[sS]ample", lambda found: name if found[0] == "sample" else of_class, text)
    sample = files(SOURCE / "tools/servlet_new/project")
    made = files(tmp_path / name)
    readme = made["README.md"]
    assert "@" not in readme and readme.startswith(f"# {name}\n")
    expected = {named(path): named(text) for path, text in sample.items()}
    assert dict(made, **{"README.md": ""}) == dict(expected, **{"README.md": ""})
    run("clang-format", "--dry-run", "-Werror", f"--style=file:{SOURCE}/.clang-format",
        *tmp_path.rglob("*.cpp"))


def test_the_tool_in_the_sources_makes_the_same_project(greeting, tmp_path):
    run(SOURCE / "tools/servlet_new/servlet_new", "greeting", cwd=tmp_path)
    made = files(tmp_path / "greeting")
    assert len(made) > 5
    # Its commands are others.
    readme = made.pop("README.md")
    assert f"{SOURCE}/scripts/serve --plugin ." in readme and "servlet_serve" not in readme
    assert {path: greeting.joinpath(path).read_text() for path in made} == made


@pytest.mark.parametrize("arguments, reason", [
    ([], "expects one argument"),
    (["a", "b"], "expects one argument"),
    (["--force", "a"], "unknown option, or an option without its value"),
    (["--with"], "unknown option, or an option without its value"),
    (["--with", "soap", "a"], 'there is no kind "soap"'),
    (["--with", "../project", "a"], 'there is no kind "../project"'),
    *[([name], "is not a valid name: up to 32 letters") for name in (
        "", "1a", "_a", "a_", "a__b", "a-b", "a b", "a/b", "..", "/a", "a\n", "ä", "a.b", "x" * 33)],
    *[([name], "is a keyword of C++") for name in (
        "class", "alignas", "char16_t", "export", "reinterpret_cast", "xor_eq")],
    *[([name], "rejects every address") for name in ("script", "DeScRiPtion")],
    (["notice"], "is one of the container's own pages"),
])
def test_an_invalid_name_is_refused_and_nothing_created(arguments, reason, tmp_path, env):
    status, printed = outcome("servlet_new", *arguments, cwd=tmp_path, env=env)
    assert status == 64 and printed.startswith("servlet_new: ") and reason in printed
    assert not list(tmp_path.iterdir())


@pytest.mark.parametrize("make", [
    lambda path: path.mkdir(), lambda path: path.write_text(""),
    lambda path: path.symlink_to("nowhere")], ids=["folder", "file", "link to nowhere"])
def test_an_existing_file_or_folder_is_not_changed(make, tmp_path, env):
    make(tmp_path / "news")
    before = os.lstat(tmp_path / "news").st_ino
    assert outcome("servlet_new", "news", cwd=tmp_path, env=env) == (
        73, "servlet_new: news exists already\n")
    assert os.lstat(tmp_path / "news").st_ino == before
    assert files(tmp_path) in ({}, {"news": ""})


@pytest.fixture
def instead(tmp_path, env):
    """instead(NAME, LINES) returns the environment with a program of the system replaced."""
    def instead(name, lines):
        folder = tmp_path / "programs"
        folder.mkdir()
        (folder / name).write_text(f"#!/bin/bash\n{lines}\n")
        (folder / name).chmod(0o755)
        return dict(env, PATH=f"{folder}:{env['PATH']}")
    return instead


def test_a_project_that_cannot_be_finished_leaves_no_file(instead, tmp_path):
    full = instead("sed", '[[ "${@: -1}" != *.html ]] || { echo "no room" >&2; exit 4; }\n'
                          'exec /bin/sed "$@"')
    (tmp_path / "here").mkdir()
    status, printed = outcome("servlet_new", "news", cwd=tmp_path / "here", env=full)
    assert (status, printed) == (73, "no room\nservlet_new: cannot create news\n")
    assert not list((tmp_path / "here").iterdir())


def test_a_folder_without_write_permission_is_reported(env):
    status, printed = outcome("servlet_new", "news", cwd="/proc", env=env)
    assert status == 73 and "servlet_new: cannot create a folder here\n" in printed


def test_a_tool_without_its_files_reports_it(tmp_path):
    shutil.copy(SOURCE / "tools/servlet_new/servlet_new", tmp_path)
    status, printed = outcome(tmp_path / "servlet_new", "news", cwd=tmp_path)
    assert status == 66 and "is not the template of all projects" in printed
    assert not (tmp_path / "news").exists()


@pytest.mark.parametrize("tool", ["servlet_new", "servlet_serve"])
def test_help_shows_the_usage_and_the_exit_statuses_of_the_man_page(tool, env):
    status, printed = outcome(tool, "--help", env=env)
    assert status == 0 and printed.startswith(f"Usage: {tool} ")
    page = (SOURCE / f"packaging/man/{tool}.1").read_text()
    assert re.findall(r"^ {3,4}(\d+)  ", printed, re.M) == re.findall(r"^\.It (\d+)$", page, re.M)


@pytest.mark.parametrize("arguments, status, reason", [
    (["--port"], 64, "unknown option, or an option without its value; see --help"),
    (["--quick"], 64, "unknown option, or an option without its value; see --help"),
    (["--port", "x"], 64, "'x' is not a port number"),
    (["--port=0"], 64, "'0' is not a port number"),
    (["-p", "65536"], 64, "'65536' is not a port number"),
    (["build", "other"], 64, "unexpected argument 'other'"),
    ([], 66, "build is not a build folder; create it with cmake -B build"),
    (["elsewhere"], 66, "elsewhere is not a build folder; create it with cmake -B build"),
])
def test_wrong_usage_of_servlet_serve_is_reported(arguments, status, reason, tmp_path, env):
    assert outcome("servlet_serve", *arguments, cwd=tmp_path, env=env) == (
        status, f"servlet_serve: {reason}\n")


def test_a_port_in_use_is_reported(other, env):
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        taken.listen()
        port = taken.getsockname()[1]
        assert outcome("servlet_serve", "--port", port, cwd=other, env=env) == (
            69, f"servlet_serve: port {port} is in use; "
                "stop the program that listens there or choose another port with --port\n")


def test_a_system_that_refuses_a_mount_is_reported(other, instead):
    refusing = instead("unshare", 'echo "unshare: unshare failed: Operation not permitted" >&2; exit 1')
    assert outcome("servlet_serve", "-p", free_port(), cwd=other, env=refusing) == (
        71, "servlet_serve: this machine does not permit a mount namespace: "
            "unshare: unshare failed: Operation not permitted; "
            "see DIAGNOSTICS in servlet_serve(1)\n")


def test_what_is_wrong_is_shown_in_the_browser_until_it_is_mended(other, place, env):
    if is_refused_a_namespace():
        pytest.skip("this machine does not permit a mount namespace")
    source, config = other / "test.cpp", other / "www/WEB-INFO/servlet/servlet.xml"
    text, log = source.read_text(), place / "serve.log"

    def shown(status, words):
        answer = pages.get("/servlet?p=test", accept="text/html")
        return answer[0] == status and words in answer[1]

    source.write_text(f"{text}#error not yet\n")
    config.rename(other / "servlet.xml")
    with serving(other, place, env) as pages:
        wait_until(lambda: shown(500, "test.cpp, line "), log.read_text)
        assert "#error not yet" in log.read_text() and shown(500, "#error not yet</li>")
        assert pages.get("/servlet?p=test")[0] == 503
        source.write_text(text)
        wait_until(lambda: shown(500, "The project installs no /phone/www/WEB-INFO/servlet/servlet.xml"),
                   log.read_text)
        (other / "servlet.xml").rename(config)
        wait_until(lambda: shown(200, "<h1>Hello, stranger!</h1>"), log.read_text)


@pytest.mark.parametrize("component, programs", [("runtime", {"sbin/fcgi_host"}), ("phone", set())])
def test_a_device_gets_no_part_of_the_development_server(component, programs, prefix, tmp_path):
    """Neither what is installed on a device nor what a project installs for it."""
    run("cmake", "--install", SOURCE / "build/installed", "--component", component,
        "--prefix", "/usr", env=dict(os.environ, DESTDIR=str(tmp_path)))
    assert_no_part_of_the_development_server(tmp_path)
    assert all((tmp_path / "usr" / program).exists() for program in programs)


def test_a_project_installs_no_part_of_the_development_server(built, tmp_path, env):
    run("cmake", "--install", built / "build", env=dict(env, DESTDIR=str(tmp_path)))
    assert_no_part_of_the_development_server(tmp_path)


def assert_no_part_of_the_development_server(folder):
    installed = [path for path in folder.rglob("*") if path.is_file()]
    assert installed
    for path in installed:
        contents = path.read_bytes()
        assert path.suffix != ".py"
        for mark in (b"/servlet/development", b"development_server", b"reload.js"):
            assert mark not in contents, path


SLOW = """
        WebDebug::getInstance()->info("begins to save");
        std::this_thread::sleep_for(std::chrono::seconds(2)); // whatever signals come
        WebDebug::getInstance()->info("has saved");
"""


def test_ctrl_c_lets_a_page_finish(other, place, env):
    if is_refused_a_namespace():
        pytest.skip("this machine does not permit a mount namespace")
    source, log = other / "test.cpp", place / "serve.log"
    text = source.read_text()
    start = "        kit::Variables variables;\n"
    assert start in text
    source.write_text("#include <chrono>\n#include <thread>\n" + text.replace(start, SLOW + start))
    with serving(other, place, env) as pages:
        # The response is not read.
        asking = subprocess.Popen(["curl", "--silent", f"{pages.address}/servlet?p=test"],
                                  stdout=subprocess.DEVNULL)
        wait_until(lambda: "begins to save" in log.read_text(), log.read_text)
    asking.wait(PATIENCE)
    source.write_text(text)
    assert "has saved" in log.read_text()
