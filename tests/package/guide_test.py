"""The commands of the guide's chapters, in the project that the chapters quote."""

import os
import re
import shutil

import pytest

from conftest import SOURCE, environment, run
from documents_test import blocks, section

CHAPTERS = {
    "testing": r"100% tests passed",
    "debugging": r"Breakpoint 1, WelcomePage::answer \((?s:.*)100% tests passed(?s:.*)100% tests passed",
    "performance": r"/servlet\?p=welcome: \S+ microseconds and \d+ allocations more than an empty page",
}


@pytest.fixture(scope="module")
def project(tmp_path_factory):
    return shutil.copytree(SOURCE / "examples/guide", tmp_path_factory.mktemp("guide") / "guide")


@pytest.mark.parametrize("chapter", CHAPTERS)
def test_the_commands_of_a_chapter_work(prefix, project, chapter):
    text = (SOURCE / f"docs/guide/{chapter}.md").read_text()
    commands = "".join(text for _, language, text in blocks(text) if language == "sh")
    env = dict(environment(prefix), CMAKE_PREFIX_PATH=str(prefix), CMAKE_GENERATOR="Ninja")
    if shutil.which("ccache"):
        env["CMAKE_CXX_COMPILER_LAUNCHER"] = "ccache"
    printed = run("bash", "-ec", commands, cwd=project, env=env)
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


def test_the_first_steps_of_troubleshooting_work(prefix, image):
    steps = section(SOURCE / "docs/troubleshooting.md", "First steps")
    commands = re.findall(r"^ +(servlet_check .*)$", steps, re.MULTILINE)
    assert len(commands) == 2
    env = environment(prefix)
    env["PATH"] = f"{prefix}/bin:{env['PATH']}"
    printed = [run("bash", "-c", command, cwd=image.parent, env=env) for command in commands]
    assert "createLocalNetworkListener" in printed[1]
