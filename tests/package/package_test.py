"""The installed package, as somebody else's project uses it."""

import os
import pathlib
import subprocess

import pytest

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parent.parent


def run(*command, **options):
    return subprocess.run([str(part) for part in command], check=True, text=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options).stdout


@pytest.fixture(scope="module")
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


@pytest.fixture(scope="module")
def consumer(prefix, tmp_path_factory):
    build = tmp_path_factory.mktemp("consumer")
    run("cmake", "-S", HERE / "consumer", "-B", build, "-G", "Ninja",
        f"-DCMAKE_PREFIX_PATH={prefix}")
    run("cmake", "--build", build)
    return build


def test_a_project_finds_the_cmake_package_and_builds_a_plug_in_and_a_host(consumer, prefix):
    printed = run(consumer / "own_host", env=environment(prefix))
    assert printed.endswith("0 sessions\n")
    symbols = run("nm", "-D", "--defined-only", consumer / "libpages.so")
    assert " T createHelloPage\n" in symbols


def test_a_project_tests_its_plug_in_with_the_installed_test_kit(consumer, prefix):
    printed = run(consumer / "hello_test", env=environment(prefix))
    assert printed == "0 failures\n"


def test_pkg_config_tells_all_that_a_host_needs(prefix, tmp_path):
    flags = run("pkg-config", "--cflags", "--libs", "fcgiServer", env=environment(prefix)).split()
    run("g++", "-std=c++17", HERE / "consumer/own_host.cpp", "-o", tmp_path / "own_host", *flags)
    assert run(tmp_path / "own_host", env=environment(prefix)).endswith("0 sessions\n")


def test_the_installed_library_reads_the_fixed_path_and_no_other(prefix):
    strings = (prefix / "lib/libfcgiServer.so").read_bytes()
    assert b"\0/phone/www/WEB-INFO/servlet/servlet.xml\0" in strings


@pytest.mark.parametrize("name", ["prefix/lib/libfcgiServer.so", "prefix/lib/libdevice.so",
                                  "prefix/sbin/fcgi_host",
                                  "image/phone/www/WEB-INFO/lib/libphone.so"])
def test_nothing_that_is_installed_knows_where_it_was_built(prefix, name):
    contents = (prefix.parent / name).read_bytes()
    assert str(SOURCE).encode() not in contents
    assert str(prefix.parent / "build").encode() not in contents


def test_the_phones_pages_are_installed_where_the_library_looks_for_them(prefix):
    image = prefix.parent / "image"
    config = (image / "phone/www/WEB-INFO/servlet/servlet.xml").read_text()
    assert 'path="/phone/www/WEB-INFO/lib/libphone.so"' in config
    assert (image / "phone/www/WEB-INFO/lib/libphone.so").exists()
    assert (image / "phone/www/index.html").exists()
    assert (image / "phone/data").is_dir()


def test_the_host_finds_the_installed_libraries(prefix):
    printed = run(prefix / "sbin/fcgi_host", "--version", env=environment(prefix))
    assert printed.startswith("fcgi_host 1.0.0")


def test_the_readme_shows_the_plug_in_that_was_built():
    assert (HERE / "consumer/pages.cpp").read_text() in (SOURCE / "README.md").read_text()
