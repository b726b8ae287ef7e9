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
        {"fcgiserver", "libcrypt1", "libpugixml1v5", "libsodium23", "zlib1g"} | compiler]


def test_all_programs_and_libraries_are_for_that_processor(device):
    for path in debs.programs_and_libraries(device).values():
        header = run("readelf", "--file-header", "--arch-specific", path)
        assert re.search(r"Machine: +ARM\n", header) and "hard-float ABI" in header, path
        assert "Tag_ABI_VFP_args: VFP registers" in header, path


def test_all_programs_and_libraries_are_hardened(device):
    debs.assert_hardened(device)


# Functions that fail for files dated after January 2038 or larger than 2 GiB, or that return such a
# time. Each has a successor with another name, for example fstat64_time64.
OF_32_BITS = {"open", "openat", "fopen", "stat", "fstat", "fstatat", "lstat", "stat64", "fstat64",
              "fstatat64", "lstat64", "lseek", "pread", "pwrite", "truncate", "ftruncate", "mmap",
              "readdir", "time", "clock_gettime", "gettimeofday", "utimensat", "futimens",
              "gmtime_r", "localtime_r", "timegm", "mktime", "nanosleep", "clock_nanosleep",
              "pthread_cond_timedwait", "pthread_cond_clockwait", "sigtimedwait"}


def test_none_of_them_calls_a_function_of_32_bit_times_or_file_sizes(device):
    called = {name: debs.undefined_symbols(path)
              for name, path in debs.programs_and_libraries(device).items()}
    assert {name: found for name, symbols in called.items()
            if (found := symbols & OF_32_BITS)} == {}
    assert "__fstat64_time64" in called["libdevice.so"]


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
    assert {"-D_FILE_OFFSET_BITS=64", "-D_TIME_BITS=64"} <= set(flags)
    library = tmp_path / "libhello.so"
    run("arm-linux-gnueabihf-g++", "-std=c++17", "-fPIC", "-shared", "-Wl,--no-undefined",
        SOURCE / "examples/hello/hello.cpp", "-o", library, *flags)
    assert "Shared library: [libdevice.so]" in run("readelf", "--dynamic", library)


def test_another_host_runs_there(device, consumer):
    assert on_arm(device, consumer / "own_host").endswith("0 sessions\n")
    plugin, host = on_arm(device, consumer / "static_host", consumer / "mutex.xml",
                          "/servlet?p=mutex").splitlines()[-2:]
    assert plugin == host
