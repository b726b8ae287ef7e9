"""The package as it is installed, which several tests use."""

import os
import pathlib
import subprocess

import pytest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent


def run(*command, **options):
    return subprocess.run([str(part) for part in command], check=True, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options).stdout


@pytest.fixture(scope="session")
def prefix(tmp_path_factory):
    folder = tmp_path_factory.mktemp("package")
    build = folder / "build"
    run("cmake", "-S", SOURCE, "-B", build, "-G", "Ninja", "-DBUILD_TESTING=OFF",
        "-DCMAKE_BUILD_TYPE=Release", f"-DCMAKE_INSTALL_PREFIX={folder}/prefix",
        "-DCMAKE_INSTALL_LIBDIR=lib")
    run("cmake", "--build", build)
    run("cmake", "--install", build)
    run("cmake", "--install", build, "--component", "phone",
        env=dict(os.environ, DESTDIR=str(folder / "image")))
    return folder / "prefix"


def environment(prefix):
    return dict(os.environ, LD_LIBRARY_PATH=str(prefix / "lib"),
                PKG_CONFIG_PATH=str(prefix / "lib/pkgconfig"))
