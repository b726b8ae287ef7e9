import pathlib

import pytest

import bad_front_server
import bad_records
import facts
import service

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent


def pytest_addoption(parser):
    parser.addoption("--build", default="build/dev",
                     help="the build folder whose programs are tested")


def build_of(config):
    return service.Build(pathlib.Path(config.getoption("--build")).resolve())


def pytest_collection_modifyitems(config, items):
    """A sanitizer looks for mistakes of the daemon, which the other two web servers send requests of
    all kinds already; Apache would take half as long again. scripts/serve builds for itself."""
    if build_of(config).sanitized:
        items[:] = [item for item in items
                    if behind(item) != "apache" and item.path.name != "test_serve.py"]


def behind(item):
    """The web server of a test that runs with each."""
    return item.callspec.params.get("front") if hasattr(item, "callspec") else None


@pytest.fixture(scope="session")
def build(request):
    return build_of(request.config)


@pytest.fixture
def folder():
    with service.temporary_folder() as path:
        yield path


@pytest.fixture
def start(build, folder):
    """Starts programs that end with the test."""
    starter = service.Starter(build, folder)
    yield starter
    starter.end()


@pytest.fixture(scope="module")
def start_once(build):
    """Starts programs that end with the tests of a file."""
    with service.temporary_folder() as path:
        starter = service.Starter(build, path)
        yield starter
        starter.end()


@pytest.fixture(scope="module")
def daemon_host(start_once):
    return start_once.host("--listen", start_once.socket_path)


@pytest.fixture(scope="module")
def daemon(daemon_host, start_once):
    """A daemon that is asked without a web server."""
    program = bad_front_server.Program(start_once.socket_path, bad_records.Request(facts.PAGE))
    assert program.learn()
    return program


@pytest.fixture(params=["lighttpd", "nginx", "apache"])
def front(request, start):
    """A web server in front of a socket that nobody serves yet."""
    return start.front(request.param, SOURCE / "packaging/front-servers")


@pytest.fixture
def web(start, front):
    """The whole: a web server and the daemon behind it."""
    start.host("--listen", start.socket_path, "--threads", "4")
    return front
