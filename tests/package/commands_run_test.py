"""Runs commands that documents show and that no other test runs. The ports, sockets and folders are
others than the documents', which may be in use on this machine."""

import os
import pathlib
import re
import shlex
import shutil
import sys
import tempfile

import pytest

from background import BUILDING, PATIENCE, started
from conftest import SOURCE, run
from ports import free_port, is_listening

sys.path.append(str(SOURCE / "tests"))
import run as steps

LIST_STEPS = "scripts/test --list"
BUILD = "cmake --preset dev && cmake --build --preset dev"
COMPILE_COMMANDS = "cmake --preset dev -B build/editor -DCMAKE_UNITY_BUILD=OFF"
LINK = "ln -sf build/editor/compile_commands.json ."
# Each with what it must print.
SINGLE_TESTS = {
    ("cmake --build build/dev --target fcgi_server_test",
     "build/dev/tests/fcgiServer/fcgi_server_test --gtest_filter='*Accept*'"): r"\[  PASSED  \] [1-9]",
    ("cmake --build build/dev --target replay_multipart",
     "build/dev/tests/fuzz/replay_multipart --gtest_filter='seeds.empty?parts'"): r"\[  PASSED  \] 1 test",
    ("/usr/bin/python3 -m pytest tests/wire/test_uploads.py -k cut -q -p no:cacheprovider --build build/dev",
     ): r"\n[1-9]\d* passed",
    ("cmake --preset tsan && cmake --build --preset tsan --target session_factory_test",
     "TSAN_OPTIONS=suppressions=$PWD/tests/threads.supp build/tsan/tests/fcgiServer/session_factory_test",
     ): r"\[  PASSED  \] [1-9]",
    ("cmake --preset fuzz && cmake --build --preset fuzz --target fuzz_multipart",
     "LLVM_PROFILE_FILE=build/fuzz/one.profraw "
     "build/fuzz/tests/fuzz/fuzz_multipart tests/fuzz/seeds/multipart/empty-parts",
     ): "Executed tests/fuzz/seeds/multipart/empty-parts in",
}
NAMED_TESTS = [
    "scripts/test fcgi_server_test --gtest_filter='*Accept*'",
    "scripts/test wire/test_uploads.py -k cut",
    "scripts/test --preset asan wire/test_uploads.py -k cut",
]
RELEASE = [
    "cmake --preset release -DCMAKE_INSTALL_PREFIX=/usr",
    "cmake --build --preset release",
    "DESTDIR=image cmake --install build/release --component runtime --strip",
    "DESTDIR=image cmake --install build/release --component phone --strip",
    "build/release/tools/servlet_check/servlet_check --root image --partial",
]
ENABLE_SOCKET = "systemctl --root=image enable fcgi_host.socket"
LISTEN = "fcgi_host --listen /run/fcgi_host.sock --threads 4"
LINES_OF_A_REQUEST = "grep ' request=1041[ :]' /var/log/syslog"
STATUS = 'kill -s USR2 "$(pidof fcgi_host)"'
MORE_LINES = 'kill -s RTMIN+1 "$(pidof fcgi_host)"'
DEBUG_DAEMON = ("gdb -ex 'set breakpoint pending on' -ex 'break ServletController::doService' -ex run "
                "--args build/dev/host/fcgi_host --listen /tmp/fcgi.sock --threads 1")
REQUEST = ("REQUEST_METHOD=GET REQUEST_URI='/servlet?p=login' QUERY_STRING='p=login' "
           "SCRIPT_NAME=/servlet REMOTE_ADDR=192.0.2.1 "
           'DOCUMENT_ROOT="$PWD/build/dev/device/phone/www" cgi-fcgi -bind -connect /tmp/fcgi.sock')
SERVE = "scripts/serve"
ATTACH = ('gdb -p "$(cat build/serve/fcgi_host.pid)" '
          "-ex 'break ServletController::doService' -ex continue")
SHOW_ANSWER = "curl -i 'http://127.0.0.1:8080/servlet?p=status'"
STOPPED = r"Breakpoint 1(\.\d+)?, .*ServletController::doService"


@pytest.fixture
def folder():
    """A folder with a short path: that of a Unix socket has at most 107 bytes."""
    with tempfile.TemporaryDirectory() as path:
        yield pathlib.Path(path)


def bash(command, **options):
    return run("bash", "-ec", command, **{"cwd": SOURCE, **options})


def test_the_names_of_the_steps_are_listed():
    assert {"dev-wire", "packages"} <= set(bash(LIST_STEPS).split())


def test_the_preset_for_daily_work_is_built():
    bash(BUILD)
    assert (SOURCE / "build/dev/host/fcgi_host").exists()


def test_the_compile_commands_are_linked(folder):
    """In a folder with links to the tree's files, so that none is added to the tree."""
    for path in SOURCE.iterdir():
        (folder / path.name).symlink_to(path)
    (folder / "compile_commands.json").unlink(missing_ok=True)
    bash(f"{COMPILE_COMMANDS} && {LINK}", cwd=folder)
    assert "host/daemon.cpp" in (folder / "compile_commands.json").read_text()


@pytest.mark.parametrize("commands, printed", SINGLE_TESTS.items())
def test_a_single_test_runs(commands, printed):
    output = bash("\n".join(commands))
    assert re.search(printed, output), output


@pytest.mark.parametrize("command", NAMED_TESTS)
def test_the_tests_that_are_named_run(command, monkeypatch, tmp_path):
    """Without the results of a run that this test is a part of, which scripts/test would remove."""
    monkeypatch.setattr(steps, "RESULTS", tmp_path)
    own, names, handed_on = steps.parse_command_line(shlex.split(command)[1:])
    planned = steps.named_steps(names, own.preset, handed_on)
    steps.Run(planned, live=False).go()
    assert {step.status for step in planned} == {"passed"}
    report, = planned[-1].reports
    assert re.search(r'<testsuites?\b[^>]* tests="[1-9]', report.read_text())


def test_a_release_is_installed_into_an_image(tmp_path):
    for command in RELEASE:
        bash(command.replace("DESTDIR=image", f"DESTDIR={tmp_path}")
             .replace("--root image", f"--root {tmp_path}"))
    assert (tmp_path / "usr/sbin/fcgi_host").exists()
    assert (tmp_path / "phone/www/WEB-INFO/lib/libphone.so").exists()
    assert not (tmp_path / "usr/include").exists()
    bash(ENABLE_SOCKET.replace("=image", f"={tmp_path}"))
    wanted = tmp_path / "etc/systemd/system/sockets.target.wants/fcgi_host.socket"
    assert (tmp_path / os.readlink(wanted).lstrip("/")).is_file()


@pytest.fixture
def daemon(folder):
    """The daemon, and the environment in which pidof(1) finds no other one."""
    socket = folder / "fcgi_host.sock"
    env = dict(os.environ, APP_LOG="stderr", PATH=f"{SOURCE}/build/dev/host:{os.environ['PATH']}")
    with started("exec " + LISTEN.replace("/run", str(folder)), folder / "log", env=env) as process:
        process.wait_until(lambda: is_listening(socket))
        pidof = folder / "bin/pidof"
        pidof.parent.mkdir()
        pidof.write_text(f"#!/bin/sh\necho {process.process.pid}\n")
        pidof.chmod(0o755)
        # The daemon that answers is ready for signals.
        assert "<title>Sign in" in bash(REQUEST.replace("/tmp/fcgi.sock", str(socket)))
        yield process, dict(env, PATH=f"{pidof.parent}:{env['PATH']}"), socket


def test_signals_change_the_log_and_show_the_status(daemon):
    process, env, _ = daemon
    bash(MORE_LINES, env=env)
    process.wait_for("fcgi_host: threshold level=7 before=6")
    bash(STATUS, env=env)
    process.wait_for("fcgi_host: status uptime_s=.* loops=4 ")


def test_the_lines_of_one_request_are_found(daemon):
    process, _, socket = daemon
    without_page = REQUEST.replace("p=login", "").replace("/tmp/fcgi.sock", str(socket))
    for _ in range(10):
        bash(without_page)
    process.wait_for(" request=11[ :]")
    printed = bash(LINES_OF_A_REQUEST.replace("1041", "10").replace("/var/log/syslog",
                                                                  str(process.file)))
    assert re.fullmatch(r".* request=10: ServletContext::doService\(\) End.*\n", printed)


def test_the_daemon_runs_in_the_debugger(folder):
    def here(command):
        return command.replace("/tmp/", f"{folder}/")
    with started("exec " + here(DEBUG_DAEMON), folder / "log") as gdb:
        gdb.wait_until(lambda: is_listening(folder / "fcgi.sock"))
        with started(here(REQUEST), folder / "answer") as request:
            gdb.wait_for(STOPPED)
            gdb.type("delete", "continue")
            request.process.wait(PATIENCE)
        assert "<title>Sign in" in request.log


@pytest.fixture(scope="module")
def served(tmp_path_factory):
    """The pages as scripts/serve serves them; returns the port, and what the shown commands are here."""
    port = free_port()
    build = "build/served"  # as in the wire tests, which run at another time
    launcher = {"CMAKE_CXX_COMPILER_LAUNCHER": "ccache"} if shutil.which("ccache") else {}
    command = f"exec {SERVE} --port {port} --build {build}"
    with started(command, tmp_path_factory.mktemp("serve") / "log",
                 env={**os.environ, **launcher}) as process:
        process.wait_until(lambda: f"http://127.0.0.1:{port}/" in process.log and is_listening(port),
                           BUILDING)
        yield port, lambda shown: shown.replace("build/serve/", f"{build}/").replace(
            "127.0.0.1:8080", f"127.0.0.1:{port}")


def test_curl_shows_what_the_web_server_answers(served):
    _, here = served
    answer = bash(here(SHOW_ANSWER))
    # To the form for signing in.
    assert re.search(r"HTTP/1\.1 303 (?s:.*)\nLocation: \S+p=login", answer), answer


def test_the_debugger_is_attached_to_the_served_daemon(served, folder):
    port, here = served
    with started("exec " + here(ATTACH), folder / "log") as gdb:
        gdb.wait_for("Continuing")
        with started(f"curl -s http://127.0.0.1:{port}/servlet?p=login", folder / "answer") as request:
            gdb.wait_for(STOPPED)
            gdb.type("detach", "quit")
            request.process.wait(PATIENCE)
        assert "<title>Sign in" in request.log
        gdb.process.wait(PATIENCE)
