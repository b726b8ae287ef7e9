"""The installed package, and other helpers of several tests."""

import contextlib
import fcntl
import os
import pathlib
import subprocess
import sys

import pytest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.append(str(SOURCE / "tests/support"))


def run(*command, **options):
    return subprocess.run([str(part) for part in command], check=True, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options).stdout


@pytest.hookimpl(tryfirst=True)
def pytest_collection_modifyitems(items):
    """Where tests run at once, those of one file run one after the other, since they share what they
    build; so do those of files that build in one folder."""
    shared = {"armhf_test.py": "build/packages", "debian_test.py": "build/packages",
              "abi_test.py": "build/dev", "commands_run_test.py": "build/dev"}
    for item in items:
        item.add_marker(pytest.mark.xdist_group(shared.get(item.path.name, item.path.stem)))


@contextlib.contextmanager
def locked(folder):
    """Keeps other test processes out of a build folder."""
    folder.mkdir(parents=True, exist_ok=True)
    with (folder / "lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


@pytest.fixture(scope="session")
def prefix(tmp_path_factory):
    folder = tmp_path_factory.mktemp("package")
    build = SOURCE / "build/installed"
    with locked(build):
        run("cmake", "--preset", "release", "-B", build, f"-DCMAKE_INSTALL_PREFIX={folder}/prefix",
            cwd=SOURCE)
        run("cmake", "--build", build)
        run("cmake", "--install", build)
        run("cmake", "--install", build, "--component", "phone",
            env=dict(os.environ, DESTDIR=str(folder / "image")))
    return folder / "prefix"


def environment(prefix):
    return dict(os.environ, LD_LIBRARY_PATH=str(prefix / "lib"),
                PKG_CONFIG_PATH=str(prefix / "lib/pkgconfig"))
