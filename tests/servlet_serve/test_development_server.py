"""What the development server watches, what it says and what it serves, without builds or a daemon."""

import argparse
import json
import os
import pathlib
import socket
import sys
import threading

import pytest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(SOURCE / "tools/servlet_serve"))
import development_server
import problems

PAGE = "www/WEB-INFO/templates/page.html"
CONFIG = "www/WEB-INFO/servlet/servlet.xml"
LIBRARY = "www/WEB-INFO/lib/libpage.so"


def put(path, text="x"):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    return path


@pytest.fixture
def project(tmp_path):
    folder = tmp_path / "project"
    put(folder / "page.cpp", "// a page\n    response.show(\"page.html\");\n")
    put(folder / PAGE, "<p>page</p>")
    put(folder / CONFIG, "<servlets/>")
    return development_server.Project(folder)


# ---- What is watched

@pytest.mark.parametrize("name", ["page.cpp", PAGE, "new.txt", "new/folder/a"])
def test_every_change_of_a_file_is_noticed(project, name):
    before = project.snapshot()
    put(project.folder / name, "another text")
    assert project.snapshot() != before


def test_a_change_that_keeps_the_size_is_noticed(project):
    path = project.folder / PAGE
    before = project.snapshot()
    os.utime(path, ns=(1, 1))
    assert project.snapshot() != before


def test_a_file_that_is_gone_is_noticed(project):
    before = project.snapshot()
    (project.folder / PAGE).unlink()
    assert project.snapshot() != before


@pytest.mark.parametrize("name", [
    ".page.cpp.swp", "page.cpp~", ".git/index", "www/.hidden", "folder~/a", "build/a.o", "a/b/begun/a.o"])
def test_files_of_editors_and_builds_are_not_watched(project, name):
    put(project.folder / "build/CMakeCache.txt")
    put(project.folder / "a/b/begun/CMakeFiles/x")
    before = project.snapshot()
    put(project.folder / name)
    assert project.snapshot() == before


@pytest.mark.parametrize("name, is_watched", [
    ("", True), ("device/www", True), ("build", False), ("build/image/www", False), (".hidden/build", False),
    ("../outside", False)])
def test_a_build_in_a_watched_folder_would_never_end(project, name, is_watched):
    put(project.folder / "build/CMakeCache.txt")
    put(project.folder / "CMakeCache.txt")
    assert project.watches(project.folder / name) == is_watched


@pytest.mark.parametrize("name", ["build", "www"])
def test_a_build_in_a_watched_folder_is_refused(server, capfd, name):
    setattr(server.arguments, name, server.project.folder / "device")
    assert development_server.refusal(server.arguments) == (
        f"{server.project.folder}/device is built in and watched for changes; create another build folder")
    setattr(server.arguments, name, server.project.folder.parent / "elsewhere")
    assert development_server.refusal(server.arguments) is None


def test_links_are_not_followed_into_folders(project):
    (project.folder / "loop").symlink_to(project.folder / "www")
    before = project.snapshot()
    assert not any("loop/" in path for path in before)
    (project.folder / "none").symlink_to("nowhere")
    assert project.snapshot() == before


def test_a_folder_that_is_not_there_has_no_files(tmp_path):
    assert development_server.Project(tmp_path / "none").snapshot() == {}


# ---- Which file of the author it is

def test_an_installed_file_is_traced_to_its_source(project, tmp_path):
    put(project.folder / "other/page.html", "<p>page</p>")
    put(project.folder / "www/WEB-INFO/templates/de/page.html", "<p>Seite</p>")
    installed = put(tmp_path / "image-new/phone" / PAGE, "<p>page</p>")
    assert project.source_of(installed) == project.folder / PAGE
    installed.write_text("<p>changed by the build</p>")
    assert project.source_of(installed) == installed
    assert project.source_of(tmp_path / "none.html") == tmp_path / "none.html"


@pytest.mark.parametrize("language", ["de", "en"])
def test_equal_files_are_distinguished_by_their_folders(project, tmp_path, language):
    for each in ("de", "en"):
        put(project.folder / f"www/{each}/page.html", "same")
    installed = put(tmp_path / f"image-new/phone/www/{language}/page.html", "same")
    assert project.source_of(installed) == project.folder / f"www/{language}/page.html"


def test_a_copy_that_the_author_has_installed_is_not_the_source(project, tmp_path):
    """The README of servlet_new installs into the folder image of the project."""
    put(project.folder / "image/phone" / PAGE, "<p>page</p>")
    installed = put(tmp_path / "image-new/phone" / PAGE, "<p>page</p>")
    assert project.source_of(installed) == project.folder / PAGE


def test_the_place_of_a_text_is_found_in_source_code(project):
    put(project.folder / "README.md", '"page.html"')
    put(project.folder / "z.cpp", '"page.html"')
    assert project.place_of('"page.html"') == (project.folder / "page.cpp", 2)
    assert project.place_of('"other.html"') is None
    (project.folder / "page.cpp").write_bytes(b"\xff \"page.html\"\n")
    assert project.place_of('"page.html"') == (project.folder / "page.cpp", 1)


# ---- Two folders change places

@pytest.fixture
def folders(tmp_path):
    return put(tmp_path / "www/page", "earlier").parent, put(tmp_path / "image/page", "later").parent


def test_a_file_can_be_read_while_folders_change_places(folders):
    begun, is_done, misses = threading.Event(), threading.Event(), []

    def read():
        while not is_done.is_set():
            try:
                (folders[0] / "page").read_text()
            except OSError as error:
                misses.append(error)
            begun.set()
    reader = threading.Thread(target=read)
    reader.start()
    begun.wait()
    for _ in range(2001):
        development_server.exchange(*folders)
    is_done.set()
    reader.join()
    assert not misses
    assert [(folder / "page").read_text() for folder in folders] == ["later", "earlier"]


def test_folders_change_places_where_the_file_system_cannot_do_it_at_once(folders, monkeypatch):
    monkeypatch.setattr(development_server, "RENAME_EXCHANGE", 1 << 30)  # refused by every file system
    put(folders[0].with_name("www-old") / "page", "of an update that was cut off")
    development_server.exchange(*folders)
    assert [(folder / "page").read_text() for folder in folders] == ["later", "earlier"]
    assert not folders[0].with_name("www-old").exists()


# ---- Whether there is anything new

def test_equal_folders_are_the_same(tmp_path):
    one, other = tmp_path / "one", tmp_path / "other"
    for folder in (one, other):
        put(folder / "a", "text")
        put(folder / "sub/b", "text")
    assert development_server.is_same(one, other)


@pytest.mark.parametrize("change", [
    lambda folder: put(folder / "a", "TEXT"), lambda folder: put(folder / "sub/b", "another text"),
    lambda folder: put(folder / "c"), lambda folder: put(folder / "sub/c"),
    lambda folder: (folder / "a").unlink(), lambda folder: (folder / "sub/b").unlink(),
    lambda folder: ((folder / "a").unlink(), (folder / "a").mkdir()),
    lambda folder: put(folder / "RCS"), lambda folder: put(folder / "sub/CVS/x")])
@pytest.mark.parametrize("is_first", [True, False])
def test_folders_with_any_difference_are_not_the_same(tmp_path, change, is_first):
    one, other = tmp_path / "one", tmp_path / "other"
    for folder in (one, other):
        put(folder / "a", "text")
        put(folder / "sub/b", "text")
    change(one if is_first else other)
    assert not development_server.is_same(one, other)
    assert not development_server.is_same(one, tmp_path / "none")
    assert not development_server.is_same(tmp_path / "none", one)


# ---- What is said and served

class Daemon:
    """One that runs or fails as the test wants."""

    def __init__(self):
        self.keeper = None
        self.fails = False
        self.starts = self.restarts = 0
        self.path = None

    def is_running(self):
        return self.keeper == "running"

    def start(self):
        self.starts += 1
        self.keeper = "failed" if self.fails else "running"

    def restart(self):
        self.restarts += 1
        self.keeper = "failed" if self.fails else "running"

    def wait_until_ready(self):
        return self.is_running()

    @staticmethod
    def how_it_ended():
        return "ended with status 1"

    @staticmethod
    def last_log():
        return "the daemon's log\n"


class Server(development_server.Server):
    """One whose builds copy the project's folder www, and fail if a file is named "broken"."""

    def __init__(self, arguments):
        self.findings = []
        self.commands = []
        super().__init__(arguments)
        self.daemon = Daemon()
        self.lighttpd = object()  # serves

    def run_command(self, command):
        self.commands.append(command)
        if "-S" in command and (self.project.folder / "unknown").exists():
            return 1, "CMake Error at CMakeLists.txt:1 (add_libary):\n  Unknown CMake command\n"
        if (self.project.folder / "broken").exists():
            return 1, f"{self.project.folder}/page.cpp:1:1: error: broken\n"
        if "--install" in command:
            for path in (self.project.folder / "www").rglob("*"):
                if path.is_file():
                    target = self.installed / path.relative_to(self.project.folder / "www")
                    target.parent.mkdir(parents=True, exist_ok=True)
                    target.write_bytes(path.read_bytes())
        return 0, ""


@pytest.fixture
def server(project, tmp_path, monkeypatch):
    put(project.folder / CONFIG, '<servlets path="/phone/www/WEB-INFO/lib/libpage.so">'
        '<servlet id="page"/><servlet id="a&amp;b"/></servlets>')
    put(project.folder / LIBRARY, "library")
    checker = put(tmp_path / "servlet_check", f"#!/bin/sh\ncat {tmp_path}/findings\nexit $(cat {tmp_path}/status)\n")
    checker.chmod(0o755)
    put(tmp_path / "findings", "[]")
    put(tmp_path / "status", "0")
    (tmp_path / "state").mkdir()
    monkeypatch.chdir(tmp_path / "state")  # a short path for the daemon's socket
    monkeypatch.setattr(development_server, "stop", development_server.Stop())
    return Server(argparse.Namespace(
        name="serve", project=project.folder, build=tmp_path / "out", www=tmp_path / "served",
        library_folder="/here/lib/", state=pathlib.Path(), port=8080, servlet_check=str(checker),
        provides=[], daemon="", daemon_pid=tmp_path / "pid"))


ADDRESSES = ("http://127.0.0.1:8080/servlet?p=page\nhttp://127.0.0.1:8080/servlet?p=a%26b\n")
AGAIN = "serve: built and serving again\n"


def said(capfd):
    return capfd.readouterr().out


def find(tmp_path, message, line=1, file="phone/www/none"):
    (tmp_path / "findings").write_text(json.dumps(
        [{"file": file, "line": line, "severity": "problem", "message": message}]))
    (tmp_path / "status").write_text("1")


def find_nothing(tmp_path):
    (tmp_path / "findings").write_text("[]")
    (tmp_path / "status").write_text("0")


def test_the_first_build_is_served(server, capfd):
    server.lighttpd = None
    server.update()
    assert server.state.get()[1:] == (None, True)
    assert 'path="/here/lib/libpage.so"' in (server.arguments.www / "WEB-INFO/servlet/servlet.xml").read_text()
    assert server.daemon.starts == 1
    assert "serving again" not in said(capfd)


def test_a_build_is_announced_with_the_addresses_last(server, project, capfd):
    server.update()
    version = server.state.get()[0]
    capfd.readouterr()
    put(project.folder / PAGE, "<p>new</p>")
    server.update()
    printed = said(capfd)
    assert printed.startswith(AGAIN) and printed.endswith(ADDRESSES)
    assert server.state.get()[0] != version, "browsers reload"
    assert (server.arguments.www / "WEB-INFO/templates/page.html").read_text() == "<p>new</p>"


def test_a_build_that_changes_nothing_is_not_announced(server, project, capfd):
    server.update()
    state = server.state.get()
    capfd.readouterr()
    put(project.folder / "notes.txt", "note")
    server.update()
    assert (said(capfd), server.state.get()) == ("", state)


@pytest.mark.parametrize("name, restarts", [(PAGE, 0), ("www/new.css", 0), (CONFIG, 1), (LIBRARY, 1)])
def test_the_daemon_is_replaced_only_for_what_it_reads_once(server, project, name, restarts):
    server.update()
    path = project.folder / name
    put(path, path.read_text().replace("page", "other") + "\n" if path.exists() else "new")
    server.update()
    assert (server.daemon.starts, server.daemon.restarts) == (1, restarts)


def test_a_broken_build_leaves_what_is_served(server, project, capfd):
    server.update()
    put(project.folder / "broken")
    put(project.folder / PAGE, "<p>new</p>")
    server.update()
    printed = said(capfd)
    assert ": error: broken\n" in printed
    assert AGAIN not in printed
    assert "serve: the project does not build; the previous version is still served\n" in printed
    assert printed.endswith(ADDRESSES)
    _, problem, is_serving = server.state.get()
    assert is_serving and problem.places[0].file == project.folder / "page.cpp"
    assert (server.arguments.www / "WEB-INFO/templates/page.html").read_text() == "<p>page</p>"

    (project.folder / "broken").unlink()
    server.update()
    assert AGAIN in said(capfd) and server.state.get()[1] is None


def test_a_problem_that_is_mended_by_undoing_the_change_is_announced(server, project, capfd):
    server.update()
    put(project.folder / "broken")
    server.update()
    (project.folder / "broken").unlink()
    capfd.readouterr()
    server.update()
    assert said(capfd).startswith(AGAIN) and server.state.get()[1:] == (None, True)


def test_a_project_that_cannot_be_configured_is_shown_until_it_can(server, project, capfd):
    server.lighttpd = None
    put(project.folder / "CMakeLists.txt", "add_libary(page page.cpp)\n")
    put(project.folder / "unknown")
    server.update()
    assert "Unknown CMake command\n" in said(capfd)
    place, = server.state.get()[1].places
    assert (place.file, place.line) == (project.folder / "CMakeLists.txt", 1)
    configure = ["cmake", "-S", str(project.folder), "-B", str(server.arguments.build)]
    assert server.commands == [configure]

    (project.folder / "unknown").unlink()
    server.update()
    assert server.state.get()[1] is None and server.commands[1] == configure
    put(project.folder / PAGE, "<p>new</p>")
    server.update()
    assert server.commands.count(configure) == 2, "CMake does it by itself from now on"


def test_findings_of_servlet_check_are_not_served(server, project, tmp_path, capfd):
    server.update()
    capfd.readouterr()
    find(tmp_path, 'the library "libpage.so" names the template "page.html", which does not exist: it fails')
    put(project.folder / PAGE, "<p>new</p>")
    server.update()
    printed = said(capfd)
    assert AGAIN not in printed and "which does not exist: it fails\n" in printed
    problem = server.state.get()[1]
    assert [(place.file, place.line) for place in problem.places] == [(project.folder / "page.cpp", 2)]
    assert (server.arguments.www / "WEB-INFO/templates/page.html").read_text() == "<p>page</p>"
    find_nothing(tmp_path)
    server.update()
    assert AGAIN in said(capfd)


def test_a_check_that_fails_itself_is_a_problem(server, tmp_path, capfd):
    (tmp_path / "status").write_text("64")
    server.update()
    assert server.state.get()[1].headline == "servlet_check failed"
    assert "serve: servlet_check failed; no page is served before that is solved\n" in said(capfd)
    assert not server.arguments.www.exists()


def test_a_project_that_installs_no_configuration_is_a_problem(server, project):
    (project.folder / CONFIG).unlink()
    server.update()
    assert server.state.get()[1].headline == "The project installs no /phone/www/WEB-INFO/servlet/servlet.xml"


def test_a_project_that_is_mended_after_a_bad_start_is_announced(server, project, capfd):
    put(project.folder / "broken")
    server.update()
    assert "no page is served before that is solved\n" in said(capfd)
    (project.folder / "broken").unlink()
    server.update()
    printed = said(capfd)
    assert printed.startswith(AGAIN) and printed.endswith(ADDRESSES)


def test_a_daemon_that_does_not_start_is_a_problem(server, project, capfd):
    server.update()
    server.daemon.fails = True
    put(project.folder / LIBRARY, "crashes")
    server.update()
    printed = said(capfd)
    assert AGAIN not in printed
    assert "serve: the daemon ended with status 1 when it started; no page is served before that is solved\n" \
        in printed
    _, problem, is_serving = server.state.get()
    assert not is_serving and problem.output == "the daemon's log\n"
    server.daemon.fails = False
    put(project.folder / LIBRARY, "library")
    server.update()
    assert AGAIN in said(capfd) and server.state.get()[1:] == (None, True)


def test_a_daemon_that_ends_is_started_again(server, capfd):
    server.update()
    version = server.state.get()[0]
    server.daemon.keeper = "failed"
    capfd.readouterr()
    server.revive()
    printed = said(capfd)
    assert printed.startswith("serve: the daemon ended with status 1, and is started again\n")
    assert printed.endswith(ADDRESSES)
    assert server.daemon.is_running() and server.state.get() == (version, None, True)


def test_a_daemon_that_cannot_be_started_again_is_reported(server, capfd):
    server.update()
    server.daemon.keeper, server.daemon.fails = "failed", True
    capfd.readouterr()
    server.revive()
    printed = said(capfd)
    assert "when it started; no page is served before that is solved\n" in printed
    assert server.state.get()[1].output == "the daemon's log\n" and not server.state.get()[2]
    assert not server.can_start


class Lighttpd:
    """One that ends after the server has looked at it `looks` times."""

    returncode = 3

    def __init__(self, looks):
        self.looks = looks

    def poll(self):
        self.looks -= 1
        return None if self.looks >= 0 else self.returncode

    def wait(self):
        pass


@pytest.fixture
def run(server, monkeypatch):
    """run(LOOKS) runs the server until it has looked at the project so many times."""
    monkeypatch.setattr(development_server, "POLL", 0)
    server.daemon.end = lambda: None

    def run(looks):
        server.start_serving = lambda: setattr(server, "lighttpd", Lighttpd(looks))
        return server.run()
    return run


def test_it_ends_with_lighttpd(run):
    assert run(2) == 3


def test_a_daemon_that_ends_while_a_problem_is_shown_is_started_too(server, run, project, monkeypatch):
    """Scripts still ask the previous version, and would wait for the next."""
    server.update()
    put(project.folder / "broken")
    server.daemon.keeper = "failed"
    run(2)
    assert server.daemon.is_running()
    assert server.state.get()[1].headline == "The project does not build"


def test_a_daemon_that_does_not_start_is_not_tried_again_and_again(server, run):
    server.daemon.fails = True
    run(5)
    assert server.daemon.starts == 1


def test_a_configuration_in_any_encoding_is_served(server, project, capfd):
    (project.folder / CONFIG).write_bytes(
        b'<?xml version="1.0" encoding="ISO-8859-1"?><!-- Gr\xfc\xdfe --><servlets/>')
    server.update()
    assert server.state.get()[1:] == (None, True)
    (project.folder / CONFIG).write_bytes(
        b'<?xml version="1.0" encoding="none"?><!-- Gr\xfc\xdfe --><servlets/>')
    server.update()
    assert said(capfd).endswith("http://127.0.0.1:8080/servlet\n")


def test_a_signal_ends_an_update_without_a_word(server, project, capfd):
    server.update()
    capfd.readouterr()
    state = server.state.get()
    development_server.stop.requested = True
    put(project.folder / PAGE, "<p>new</p>")
    server.update()
    assert (said(capfd), server.state.get()) == ("", state)


def test_a_project_without_pages_has_an_address(server, project, capfd):
    put(project.folder / CONFIG, "<servlets/>")
    server.update()
    server.print_addresses()
    assert said(capfd).endswith(f"The pages of {project.folder}:\nhttp://127.0.0.1:8080/servlet\n")


def test_a_port_is_listened_at_once_lighttpd_accepts_there(server):
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        server.arguments.port = listener.getsockname()[1]
        assert not server.is_listening()
        listener.listen()
        assert server.is_listening()
