"""servlet_serve leaves no process behind, however it is ended."""

import os
import subprocess
import time

import pytest

from conftest import is_listening, run
from ports import free_port
from terminal import ENDINGS, Terminal

PATIENCE = 60  # seconds for what normally takes one


@pytest.fixture(scope="module")
def env(prefix):
    return dict(os.environ, PATH=f"{prefix}/bin:{os.environ['PATH']}",
                CMAKE_PREFIX_PATH=str(prefix))


@pytest.fixture(scope="module")
def project(env, tmp_path_factory):
    folder = tmp_path_factory.mktemp("served project")
    run("servlet_new", "greeting", cwd=folder, env=env)
    run("cmake", "-B", "build", "-DBUILD_TESTING=OFF", cwd=folder / "greeting", env=env)
    run("cmake", "--build", "build", cwd=folder / "greeting", env=env)
    return folder / "greeting"


@pytest.fixture
def served(project, env, tmp_path):
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


def is_served(port):
    page = subprocess.run(["curl", "--silent", f"http://127.0.0.1:{port}/servlet?p=greeting"],
                          check=False, stdout=subprocess.PIPE).stdout
    return b"<h1>Hello, stranger!</h1>" in page


@pytest.mark.parametrize("ending", ENDINGS)
def test_no_process_is_left(served, tmp_path, ending):
    end, status = ENDINGS[ending]
    end(served)
    assert served.process.wait(PATIENCE) == status, served.log()
    assert not served.processes_after(10), served.log()
    if status == 0:
        assert not list(tmp_path.iterdir()), "temporary files"
