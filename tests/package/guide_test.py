"""The commands of the guide's chapters, in the project that the chapters quote."""

import re
import shutil

import pytest

import shown_commands
from background import BUILDING, PATIENCE, started
from conftest import SOURCE, environment, run
from documents_test import section
from ports import free_port, is_listening

CHAPTERS = {
    "testing": r"100% tests passed",
    "debugging": r"Breakpoint 1, WelcomePage::answer \((?s:.*)100% tests passed(?s:.*)100% tests passed",
    "performance": r"/servlet\?p=welcome: \S+ microseconds and \d+ allocations more than an empty page",
}


@pytest.fixture(scope="module")
def project(tmp_path_factory):
    return shutil.copytree(SOURCE / "examples/guide", tmp_path_factory.mktemp("guide") / "guide")


def text_of(chapter):
    return (SOURCE / f"docs/guide/{chapter}.md").read_text()


def commands(chapter):
    return [command for script in shown_commands.scripts(text_of(chapter))
            for command in shown_commands.statements(script)]


@pytest.mark.parametrize("chapter", CHAPTERS)
def test_the_commands_of_a_chapter_work(prefix, project, chapter):
    env = dict(environment(prefix), CMAKE_PREFIX_PATH=str(prefix), CMAKE_GENERATOR="Ninja")
    if shutil.which("ccache"):
        env["CMAKE_CXX_COMPILER_LAUNCHER"] = "ccache"
    printed = run("bash", "-ec", "\n".join(commands(chapter)), cwd=project, env=env)
    assert re.search(CHAPTERS[chapter], printed), printed


@pytest.fixture(scope="module")
def image(prefix, project):
    env = dict(environment(prefix), CMAKE_PREFIX_PATH=str(prefix), CMAKE_GENERATOR="Ninja")
    run("bash", "-ec", "cmake -B build-image && cmake --build build-image && "
        'DESTDIR="$PWD/image" cmake --install build-image', cwd=project, env=env)
    return project / "image"


def test_the_project_is_installed_without_findings(prefix, image):
    checked = run(prefix / "bin/servlet_check", "--root", image, "--partial",
                  "--provides", prefix / "lib/libdevice.so", env=environment(prefix))
    assert [line for line in checked.splitlines() if ": note: " not in line] == []


def first_steps():
    steps = section(SOURCE / "docs/troubleshooting.md", "First steps")
    return re.findall(r"^ +(servlet_check .*)$", steps, re.MULTILINE)


def test_the_first_steps_of_troubleshooting_work(prefix, image):
    assert len(first_steps()) == 2
    env = environment(prefix)
    env["PATH"] = f"{prefix}/bin:{env['PATH']}"
    printed = [run("bash", "-c", command, cwd=image.parent, env=env) for command in first_steps()]
    assert "createLocalNetworkListener" in printed[1]


SERVE = "servlet_serve build-debug"
MEASURE = "wrk -t1 -c8 -d10s 'http://127.0.0.1:8080/servlet?p=welcome'"
ATTACH = ["pid=$(pidof fcgi_host)",
          'gdb -iex "set sysroot /proc/$pid/root" -p "$pid" "/proc/$pid/exe" '
          "-ex 'break WelcomePage::answer' -ex continue"]


@pytest.fixture(scope="module")
def served(prefix, project, tmp_path_factory):
    """The project as servlet_serve serves it; returns what a shown command is here, and its environment:
    pidof(1) finds this daemon and no other."""
    folder = tmp_path_factory.mktemp("served")
    (folder / "bin").mkdir()
    pidof = folder / "bin/pidof"
    pidof.write_text(f"#!/bin/sh\ncat {folder}/servlet_serve.*/daemon.pid\n")
    pidof.chmod(0o755)
    env = dict(environment(prefix), CMAKE_PREFIX_PATH=str(prefix), CMAKE_GENERATOR="Ninja",
               TMPDIR=str(folder))
    env["PATH"] = f"{prefix}/bin:{folder}/bin:{env['PATH']}"
    run("bash", "-ec", "\n".join(commands("debugging")[:2]), cwd=project, env=env)
    port = free_port()
    with started(f"cd {project}; exec {SERVE} --port {port}", folder / "log", env=env) as process:
        process.wait_until(lambda: f"http://127.0.0.1:{port}/" in process.log and is_listening(port),
                           BUILDING)
        yield lambda shown: shown.replace(":8080/", f":{port}/"), env


def test_the_served_page_is_measured(served):
    here, env = served
    printed = run("bash", "-ec", here(MEASURE).replace("-d10s", "-d1s"), env=env)
    assert re.search(r"[1-9]\d* requests in ", printed) and "Non-2xx" not in printed, printed


def test_the_debugger_stops_in_a_served_page(served, tmp_path):
    here, env = served
    with started("\n".join(ATTACH), tmp_path / "log", env=env) as gdb:
        gdb.wait_for("Continuing")
        request = here("curl --silent 'http://127.0.0.1:8080/servlet?p=welcome'")
        with started(request, tmp_path / "answer") as answered:
            gdb.wait_for(r"Breakpoint 1(\.\d+)?, WelcomePage::answer")
            gdb.type("detach", "quit")
            answered.process.wait(PATIENCE)
        assert "</html>" in answered.log
        gdb.process.wait(PATIENCE)
