"""servlet_serve runs pages as the user who started it, and leaves no process behind, however it is ended."""

import contextlib
import os
import pathlib
import pwd
import re
import subprocess
import tempfile
import time

import pytest

from conftest import run
from ports import free_port, is_listening
from terminal import ENDINGS, Terminal

PATIENCE = 60  # seconds for what normally takes one


@pytest.fixture(scope="module")
def env(prefix):
    return dict(os.environ, PATH=f"{prefix}/bin:{os.environ['PATH']}",
                CMAKE_PREFIX_PATH=str(prefix))


@pytest.fixture(scope="module")
def project(env):
    # Other users can read it, unlike pytest's own folders.
    with tempfile.TemporaryDirectory(prefix="served project ") as folder:
        pathlib.Path(folder).chmod(0o755)
        yield create_project(pathlib.Path(folder), env)


def create_project(folder, env):
    run("servlet_new", "greeting", cwd=folder, env=env)
    run("cmake", "-B", "build", "-DBUILD_TESTING=OFF", cwd=folder / "greeting", env=env)
    run("cmake", "--build", "build", cwd=folder / "greeting", env=env)
    return folder / "greeting"


@contextlib.contextmanager
def serving(project, env, tmp_path):
    if subprocess.run(["unshare", "--mount", "true"], check=False, capture_output=True).returncode:
        pytest.skip("this machine does not permit a mount namespace")
    port = free_port()
    terminal = Terminal(["servlet_serve", "--port", port], cwd=project,
                        env=dict(env, TMPDIR=str(tmp_path)))
    try:
        deadline = time.monotonic() + PATIENCE
        while not (is_listening(port) and is_served(port)):
            assert terminal.process.poll() is None and time.monotonic() < deadline, terminal.log()
            time.sleep(0.05)
        yield terminal
    finally:
        terminal.end()


@pytest.fixture
def served(project, env, tmp_path):
    with serving(project, env, tmp_path) as terminal:
        yield terminal


def is_served(port):
    page = subprocess.run(["curl", "--silent", f"http://127.0.0.1:{port}/servlet?p=greeting"],
                          check=False, stdout=subprocess.PIPE).stdout
    return b"<h1>Hello, stranger!</h1>" in page


def users_of_the_daemon(terminal):
    """Returns the user ids that the processes of fcgi_host have."""
    texts = [pathlib.Path(f"/proc/{pid}/status").read_text()
             for pid, command in terminal.processes().items()
             if command.split()[0].endswith("/fcgi_host")]
    return {user for text in texts for user in re.search(r"^Uid:(.*)$", text, re.M).group(1).split()}


@pytest.mark.skipif(os.getuid() != 0, reason="only root has rights to drop")
def test_pages_run_as_the_user_who_called_sudo(project, env, tmp_path):
    with serving(project, dict(env, SUDO_USER="nobody"), tmp_path) as terminal:
        assert users_of_the_daemon(terminal) == {str(pwd.getpwnam("nobody").pw_uid)}
        assert "run as root" not in terminal.log()


@pytest.mark.skipif(os.getuid() != 0, reason="only root can run the pages as root")
def test_root_is_warned(served):
    assert "started by root, so the pages run as root" in served.log()


@pytest.mark.parametrize("ending", ENDINGS)
def test_no_process_is_left(served, tmp_path, ending):
    end, status = ENDINGS[ending]
    end(served)
    assert served.process.wait(PATIENCE) == status, served.log()
    assert not served.processes_after(10), served.log()
    if status == 0:
        assert not list(tmp_path.iterdir()), "temporary files"
