"""The installed package, as another project uses it."""

import os
import pathlib
import re
import subprocess
import sys
import xml.etree.ElementTree

import pytest

from conftest import SOURCE, environment, run

HERE = pathlib.Path(__file__).resolve().parent


@pytest.fixture(scope="module")
def consumer(prefix, tmp_path_factory):
    build = tmp_path_factory.mktemp("consumer")
    run("cmake", "-S", HERE / "consumer", "-B", build, "-G", "Ninja",
        f"-DCMAKE_PREFIX_PATH={prefix}")
    run("cmake", "--build", build)
    return build


def test_a_project_finds_the_cmake_package_and_builds_a_host(consumer, prefix):
    printed = run(consumer / "own_host", env=environment(prefix))
    assert printed.endswith("0 sessions\n")


def test_the_example_host_is_built_with_the_installed_package(prefix, tmp_path):
    run("cmake", "-S", SOURCE / "examples/host", "-B", tmp_path, "-G", "Ninja",
        f"-DCMAKE_PREFIX_PATH={prefix}")
    run("cmake", "--build", tmp_path)
    refused = subprocess.run([tmp_path / "small_host"], env=environment(prefix), check=False,
                             capture_output=True, text=True)
    assert (refused.returncode, refused.stderr) == (64, "usage: small_host SOCKET SECONDS\n")


def answer_of(host, config, uri, prefix):
    """Returns what the plug-in prints, and what the host itself prints."""
    return run(host, config, uri, env=environment(prefix)).splitlines()[-2:]


def test_a_plug_in_uses_the_container_in_a_host_that_exports_it(consumer, prefix):
    plugin, host = answer_of(consumer / "static_host", consumer / "mutex.xml", "/servlet?p=mutex",
                             prefix)
    assert plugin == host
    assert "libfcgiServer" not in run("readelf", "--dynamic", consumer / "static_host")


def test_a_host_that_exports_nothing_opens_plug_ins_that_need_the_kit_only(consumer, prefix):
    greeting, _ = answer_of(consumer / "closed_host", consumer / "servlet.xml", "/servlet?p=hello",
                            prefix)
    assert greeting == "Hello, stranger!"
    with pytest.raises(subprocess.CalledProcessError) as failure:
        answer_of(consumer / "closed_host", consumer / "mutex.xml", "/servlet?p=mutex", prefix)
    assert "undefined symbol: session_mutex" in failure.value.stdout


# Opens a library, closes it, and prints whether the process still has it. The libraries of the container
# are loaded before: the C++ library is never unloaded, and would keep a library that loads it.
IS_KEPT = """
import ctypes, sys, _ctypes
ctypes.CDLL("libdevice.so")
path = sys.argv[1]
loaded = lambda: path in open("/proc/self/maps").read()
handle = ctypes.CDLL(path)._handle
assert loaded()
_ctypes.dlclose(handle)
print(loaded())
"""


def assert_exports_its_creation_functions_only(library, functions, env):
    symbols = run("nm", "-D", "--defined-only", "--format=posix", library).splitlines()
    assert {line.split()[0] for line in symbols} == functions
    assert run(sys.executable, "-c", IS_KEPT, library, env=env) == "False\n"


def test_a_plug_in_exports_only_its_creation_functions_and_can_be_unloaded(
        consumer, prefix):
    assert_exports_its_creation_functions_only(consumer / "libpages.so", {"createHelloPage"},
                                               environment(prefix))


OFFERED = {
    "libdevice.so": r"CGI_\w+$|TMPL_\w+$|app_log(_\w+)?$|WebDebug::",
    "libfcgiServer.so": r"session_mutex$|(ReplaceStr|loopActivity|currentRequest|requestVariable|"
                        r"endRequestSession|isUnknownServlet)\(|"
                        r"(vtable for |typeinfo for |typeinfo name for )?"
                        r"(FCGIServer|ServletController|PluginLoader|(Listener|Servlet)Container|"
                        r"SessionFactory|Http(Request|Response|Session)(Impl)?)\b",
}


@pytest.mark.parametrize("library", OFFERED)
def test_a_library_exports_only_its_interface(prefix, library):
    symbols = run("nm", "--dynamic", "--demangle", "--defined-only", "--format=posix",
                  prefix / "lib" / library).splitlines()
    assert symbols
    assert [symbol for symbol in symbols
            if not re.match(OFFERED[library], re.sub(r" [A-Za-z] [0-9a-f ]*$", "", symbol))] == []


@pytest.mark.parametrize("library", OFFERED)
def test_a_library_exports_its_whole_recorded_interface(prefix, library):
    record = xml.etree.ElementTree.parse(
        SOURCE / f"tests/abi/amd64/{pathlib.Path(library).stem}.abi")
    recorded = {symbol.get("name") for symbol in record.iter("elf-symbol")}
    symbols = run("nm", "--dynamic", "--defined-only", "--format=posix", prefix / "lib" / library)
    assert recorded and recorded <= {line.split()[0] for line in symbols.splitlines()}


def test_pkg_config_lists_all_that_a_plug_in_needs(prefix, tmp_path):
    env = environment(prefix)
    flags = run("pkg-config", "--cflags", "--libs", "fcgiServer-kit", env=env).split()
    library = tmp_path / "libhello.so"
    run("g++", "-std=c++17", "-Wall", "-Wextra", "-Werror", "-fPIC", "-shared",
        "-Wl,--no-undefined", SOURCE / "examples/hello/hello.cpp", "-o", library, *flags)
    assert_exports_its_creation_functions_only(
        library, {"createHelloPage", "createNotFound", "createRequestListener"}, env)


def test_the_example_passes_its_own_tests(prefix, tmp_path):
    run("cmake", "-S", SOURCE / "examples/hello", "-B", tmp_path, "-G", "Ninja",
        "-DBUILD_TESTING=ON", f"-DCMAKE_PREFIX_PATH={prefix}")
    run("cmake", "--build", tmp_path)
    printed = run("ctest", "--test-dir", tmp_path, "--output-on-failure", "--no-tests=error",
                  env=environment(prefix))
    assert "100% tests passed" in printed


def test_the_example_is_installed_where_a_device_has_it(prefix, tmp_path):
    build, image = tmp_path / "build", tmp_path / "image"
    run("cmake", "-S", SOURCE / "examples/hello", "-B", build, "-G", "Ninja",
        f"-DCMAKE_PREFIX_PATH={prefix}")
    run("cmake", "--build", build)
    run("cmake", "--install", build, env=dict(os.environ, DESTDIR=str(image)))
    web_info = image / "phone/www/WEB-INFO"
    library = "/phone/www/WEB-INFO/lib/libhello.so"
    assert f'path="{library}"' in (web_info / "servlet/servlet.xml").read_text()
    assert (image / library.lstrip("/")).exists()
    assert (web_info / "templates/hello.html").exists()
    assert (image / "phone/www/hello.css").exists()
    checked = run(prefix / "bin/servlet_check", "--root", image, "--partial",
                  "--provides", prefix / "lib/libdevice.so")
    assert [line for line in checked.splitlines() if ": note: " not in line] == []


def test_a_project_tests_its_plug_in_with_the_installed_test_kit(consumer, prefix):
    printed = run(consumer / "hello_test", env=environment(prefix))
    assert printed == "0 failures\n"


def test_a_device_makers_library_replaces_the_installed_one(consumer, prefix, tmp_path):
    run("cmake", "-S", SOURCE / "tests/porting", "-B", tmp_path, "-G", "Ninja")
    run("cmake", "--build", tmp_path)
    env = environment(prefix)
    env["LD_LIBRARY_PATH"] = f"{tmp_path}:{env['LD_LIBRARY_PATH']}"
    printed = run(consumer / "own_host", env=env)
    assert printed.startswith("own device 65 ")
    assert printed.endswith("0 sessions\n")


@pytest.mark.parametrize("package", ["fcgiServer", "fcgiServer-static"])
def test_pkg_config_lists_all_that_a_host_needs(prefix, tmp_path, package):
    flags = run("pkg-config", "--cflags", "--libs", package, env=environment(prefix)).split()
    run("g++", "-std=c++17", HERE / "consumer/own_host.cpp", "-o", tmp_path / "own_host", *flags)
    assert run(tmp_path / "own_host", env=environment(prefix)).endswith("0 sessions\n")


def test_the_installed_library_reads_the_fixed_path_and_no_other(prefix):
    strings = (prefix / "lib/libfcgiServer.so").read_bytes()
    assert b"\0/phone/www/WEB-INFO/servlet/servlet.xml\0" in strings


@pytest.mark.parametrize("name", ["prefix/lib/libfcgiServer.so", "prefix/lib/libdevice.so",
                                  "prefix/sbin/fcgi_host", "prefix/bin/servlet_check",
                                  "image/phone/www/WEB-INFO/lib/libphone.so"])
def test_no_installed_file_contains_the_path_of_the_build(prefix, name):
    contents = (prefix.parent / name).read_bytes()
    assert str(SOURCE).encode() not in contents
    assert str(prefix.parent).encode() not in contents


def test_the_phones_pages_are_installed_where_the_library_looks_for_them(prefix):
    image = prefix.parent / "image"
    config = (image / "phone/www/WEB-INFO/servlet/servlet.xml").read_text()
    assert 'path="/phone/www/WEB-INFO/lib/libphone.so"' in config
    assert (image / "phone/www/WEB-INFO/lib/libphone.so").exists()
    assert (image / "phone/www/index.html").exists()
    assert [path.name for path in (image / "phone/data").iterdir()] == ["reset"]


def test_the_host_finds_the_installed_libraries(prefix):
    printed = run(prefix / "sbin/fcgi_host", "--version", env=environment(prefix))
    assert printed.startswith("fcgi_host 1.0.0")
