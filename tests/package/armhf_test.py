"""The Debian packages for 32-bit ARM, and projects that are built with them for such a device."""

import os
import pathlib
import re

import pytest

import debs
from debs import SOURCE, run

CONSUMER = pathlib.Path(__file__).resolve().parent / "consumer"
TOOLCHAIN = SOURCE / "packaging/toolchains/armhf.cmake"
LIBRARIES = "usr/lib/arm-linux-gnueabihf"


@pytest.fixture(scope="module")
def packages():
    return debs.make("release-armhf", "armhf")


@pytest.fixture(scope="module")
def device(packages, tmp_path_factory):
    """A file tree with the files of all three packages."""
    folder = tmp_path_factory.mktemp("device")
    for package in packages:
        run("dpkg-deb", "-x", package, folder)
    return folder


def on_arm(device, program, *arguments):
    """Runs a program in an emulator with the libraries of the packages; returns its output."""
    search = f"{device}/{LIBRARIES}:{SOURCE}/build/sysroot/armhf/{LIBRARIES}"
    return run("qemu-arm", "-L", "/usr/arm-linux-gnueabihf", "-E", f"LD_LIBRARY_PATH={search}",
               program, *arguments)


def test_lintian_finds_nothing(packages):
    debs.assert_lintian_finds_nothing(packages)


def test_they_depend_only_on_packages_of_such_a_device(packages):
    """They depend on each other, and on Debian's packages of the libraries that were linked."""
    depends = [{re.sub(r" .*", "", name) for name in
                run("dpkg-deb", "--field", package, "Depends").strip().split(", ")}
               for package in packages]
    compiler = {"libc6", "libgcc-s1", "libstdc++6"}
    assert depends == [
        {"adduser", "libfcgi0ldbl", "libpugixml1v5"} | compiler,
        {"fcgiserver", "libfcgi-dev", "libpugixml-dev", "nlohmann-json3-dev"},
        {"fcgiserver", "libcrypt1", "libpugixml1v5", "zlib1g"} | compiler]


def test_all_programs_and_libraries_are_for_that_processor(device):
    found = []
    for path in device.rglob("*"):
        if path.is_file() and not path.is_symlink() and path.read_bytes()[:4] == b"\x7fELF":
            header = run("readelf", "--file-header", "--arch-specific", path)
            assert re.search(r"Machine: +ARM\n", header) and "hard-float ABI" in header, path
            assert "Tag_ABI_VFP_args: VFP registers" in header, path
            found.append(path.name)
    assert {"fcgi_host", "libdevice.so", "libfcgiServer.so", "libphone.so"} <= set(found)


def test_the_daemon_starts_on_such_a_processor(device):
    assert on_arm(device, device / "usr/sbin/fcgi_host", "--version").startswith("fcgi_host 1.0.0")


@pytest.fixture(scope="module")
def consumer(device, tmp_path_factory):
    """A plug-in author's project, built with the files of the packages."""
    build = tmp_path_factory.mktemp("consumer")
    run("cmake", "-S", CONSUMER, "-B", build, "-G", "Ninja", f"-DCMAKE_TOOLCHAIN_FILE={TOOLCHAIN}",
        f"-DfcgiServer_DIR={device}/{LIBRARIES}/cmake/fcgiServer")
    run("cmake", "--build", build)
    return build


def test_a_plug_in_passes_its_test_there(device, consumer):
    assert on_arm(device, consumer / "hello_test") == "0 failures\n"


def test_pkg_config_lists_all_that_a_plug_in_needs_there(device, tmp_path):
    env = dict(os.environ, PKG_CONFIG_SYSROOT_DIR=str(device),
               PKG_CONFIG_LIBDIR=str(device / LIBRARIES / "pkgconfig"))
    flags = run("pkg-config", "--cflags", "--libs", "fcgiServer-kit", env=env).split()
    library = tmp_path / "libhello.so"
    run("arm-linux-gnueabihf-g++", "-std=c++17", "-fPIC", "-shared", "-Wl,--no-undefined",
        SOURCE / "examples/hello/hello.cpp", "-o", library, *flags)
    assert "Shared library: [libdevice.so]" in run("readelf", "--dynamic", library)


def test_another_host_runs_there(device, consumer):
    assert on_arm(device, consumer / "own_host").endswith("0 sessions\n")
    plugin, host = on_arm(device, consumer / "static_host", consumer / "mutex.xml",
                          "/servlet?p=mutex").splitlines()[-2:]
    assert plugin == host
