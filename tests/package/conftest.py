"""The package as it is installed, and what else several tests use."""

import os
import pathlib
import socket
import subprocess

import pytest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent


def run(*command, **options):
    return subprocess.run([str(part) for part in command], check=True, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options).stdout


@pytest.fixture(scope="session")
def prefix(tmp_path_factory):
    folder = tmp_path_factory.mktemp("package")
    # The build folder of scripts/packages, so that all is compiled once.
    build = SOURCE / "build/packages/release"
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


def free_port():
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        return taken.getsockname()[1]


def is_listening(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0
