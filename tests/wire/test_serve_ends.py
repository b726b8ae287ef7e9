"""scripts/serve leaves no process behind, however it is ended."""

import pytest

from conftest import SOURCE
from service import Front, wait_until
from ports import free_port, is_listening
from terminal import ENDINGS, Terminal
from test_serve import BUILD, BUILDING, environment

pytestmark = pytest.mark.xdist_group("serve")

PROJECTS = {"phone": [], "plug-in": ["--plugin", SOURCE / "examples/hello"]}


@pytest.fixture(params=PROJECTS)
def served(request, folder):
    port = free_port()
    terminal = Terminal(
        [SOURCE / "scripts/serve", "--port", port, "--build", BUILD, *PROJECTS[request.param]],
        env=environment(folder))

    def answers():
        assert terminal.process.poll() is None, terminal.log()
        return (is_listening(port) and
                b"HTTP/1." in Front("lighttpd", port).curl("/servlet?p=hello").raw)
    try:
        wait_until(answers, "serving", BUILDING)
        assert any("fcgi_host" in command for command in terminal.processes().values())
        yield terminal
    finally:
        terminal.end()


@pytest.mark.parametrize("ending", ENDINGS)
def test_no_process_is_left(served, folder, ending):
    end, status = ENDINGS[ending]
    end(served)
    assert served.process.wait(30) == status, served.log()
    assert not served.processes_after(10), served.log()
    if status == 0:
        assert not list(folder.glob("serve.*/")), "temporary files"
        assert not (BUILD / "fcgi_host.pid").exists()
