"""The fixtures and options of the wire tests and of the attacks."""

import contextlib
import pathlib
import shutil

import pytest

import bad_front_server
import bad_records
import facts
import service

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent


def pytest_addoption(parser):
    with contextlib.suppress(ValueError):  # added for the other folder already
        parser.addoption("--build", default="build/dev",
                         help="the build folder whose programs are tested")
        parser.addoption("--one-front", action="store_true",
                         help="leave out Apache, and put tests of the daemon behind lighttpd alone")


def build_of(config):
    return service.Build(pathlib.Path(config.getoption("--build")).resolve())


def pytest_collection_modifyitems(config, items):
    sanitized, one_front = build_of(config).sanitized, config.getoption("--one-front")
    wanted = [item for item in items if is_wanted(item, sanitized, one_front)]
    if not shutil.which("apache2", path=service.system_environment()["PATH"]):
        for item in wanted:
            if "apache" in item.name:
                item.add_marker(pytest.mark.skip(reason="Apache is missing: run scripts/setup all"))
    config.hook.pytest_deselected(items=list(set(items) - set(wanted)))
    # First those that run one after the other, which together take longest.
    items[:] = sorted(wanted, key=lambda item: not item.get_closest_marker("xdist_group"))


def is_wanted(item, sanitized, one_front):
    # Sanitizers check the daemon, and two web servers already send it all kinds of requests. What
    # scripts/serve starts is built without sanitizers.
    if sanitized and (behind(item) == "apache" or item.path.name.startswith("test_serve")):
        return False
    if one_front and item.path.name == "test_front_servers.py":
        return "apache" not in item.name
    return not (one_front and behind(item) in ("nginx", "apache"))


def behind(item):
    """Returns the web server of a test that runs once with each, or None."""
    params = item.callspec.params if hasattr(item, "callspec") else {}
    return params.get("front") or params.get("phone")


@pytest.fixture(scope="session")
def build(request):
    return build_of(request.config)


@pytest.fixture
def folder():
    with service.temporary_folder() as path:
        yield path


@pytest.fixture
def start(build, folder):
    """Starts programs that are stopped after the test."""
    starter = service.Starter(build, folder)
    yield starter
    starter.end()


@pytest.fixture(scope="module")
def start_once(build):
    """Starts programs that are stopped after the tests of a file."""
    with service.temporary_folder() as path:
        starter = service.Starter(build, path)
        yield starter
        starter.end()


@pytest.fixture(scope="module")
def daemon_host(start_once):
    return start_once.host("--listen", start_once.socket_path)


@pytest.fixture(scope="module")
def daemon(daemon_host, start_once):
    """A daemon that gets requests without a web server."""
    program = bad_front_server.Program(start_once.socket_path, bad_records.Request(facts.PAGE))
    assert program.learn()
    return program


@pytest.fixture(params=["lighttpd", "nginx", "apache"])
def front(request, start):
    """A web server, connected to a socket that no daemon serves yet."""
    return start.front(request.param, SOURCE / "packaging/front-servers")


@pytest.fixture
def web(start, front):
    """A web server with a daemon behind it."""
    start.host("--listen", start.socket_path, "--threads", "4")
    return front
