import pathlib
import shutil
import tempfile

import pytest

import service

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent


def pytest_addoption(parser):
    parser.addoption("--build", default="build/dev",
                     help="the build folder whose programs are tested")


@pytest.fixture(scope="session")
def build(request):
    return service.Build(pathlib.Path(request.config.getoption("--build")).resolve())


@pytest.fixture
def folder():
    """A folder with a short path: that of a Unix socket has at most 107 bytes."""
    path = pathlib.Path(tempfile.mkdtemp(prefix="wire."))
    for name in ("uploads", "www/WEB-INFO", "state"):
        (path / name).mkdir(parents=True)
    yield path
    shutil.rmtree(path)


@pytest.fixture
def start(build, folder):
    """Starts programs that end with the test."""
    starter = service.Starter(build, folder)
    yield starter
    starter.end()


@pytest.fixture(params=["lighttpd", "nginx"])
def front(request, start):
    """A web server in front of a socket that nobody serves yet."""
    return start.front(request.param, SOURCE / "config")


@pytest.fixture
def web(start, front):
    """The whole: a web server and the daemon behind it."""
    start.host("--listen", start.socket_path, "--threads", "4")
    return front
