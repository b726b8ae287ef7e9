import pathlib

import pytest

import device

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent


def pytest_addoption(parser):
    parser.addoption("--build", default="build/dev",
                     help="the build folder whose programs are tested")


@pytest.fixture(scope="session")
def build(request):
    return pathlib.Path(request.config.getoption("--build")).resolve()


@pytest.fixture(scope="session")
def program(build):
    return build / "tools/servlet_check/servlet_check"


@pytest.fixture
def phone(program, tmp_path):
    """A device of the test's own."""
    return device.Device(program, tmp_path / "device")
