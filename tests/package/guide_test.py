"""The commands of the guide's chapters, in the project that the chapters quote."""

import os
import re
import shutil

import pytest

from conftest import SOURCE, environment, run
from documents_test import blocks

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


def test_the_project_is_installed_without_findings(prefix, project, tmp_path):
    env = dict(environment(prefix), CMAKE_PREFIX_PATH=str(prefix), DESTDIR=str(tmp_path))
    run("cmake", "-B", "build-image", "-G", "Ninja", cwd=project, env=env)
    run("cmake", "--build", "build-image", cwd=project, env=env)
    run("cmake", "--install", "build-image", cwd=project, env=env)
    checked = run(prefix / "bin/servlet_check", "--root", tmp_path, "--partial",
                  "--provides", prefix / "lib/libdevice.so", env=env)
    assert [line for line in checked.splitlines() if ": note: " not in line] == []
