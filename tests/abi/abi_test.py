"""docs/binary-interface.md: compiled plug-ins and hosts go on working, and scripts/abi reports every
change with which they would not."""

import pathlib
import re
import shutil
import subprocess
import warnings

import pytest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
LIBRARIES = ["libfcgiServer", "libdevice", "plug_in"]


def abi(sources, *arguments):
    done = subprocess.run([sources / "scripts/abi", *arguments], text=True,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT)
    return done.returncode, done.stdout


def results(printed):
    """Returns the results by architecture and library."""
    return dict(line.removeprefix("== ").split(": ", 1) for line in printed.splitlines()
                if line.startswith("== "))


@pytest.mark.parametrize("architecture", ["amd64", "armhf"])
def test_compiled_plug_ins_and_hosts_go_on_working(architecture):
    status, printed = abi(SOURCE, "check", architecture)
    assert status == 0, printed
    found = results(printed)
    assert list(found) == [f"{architecture}/{library}" for library in LIBRARIES]
    if set(found.values()) != {"as recorded"}:
        warnings.warn(printed)


@pytest.mark.parametrize("name", ["HttpServlet", "HttpListener"])
def test_the_parameters_of_each_operation_of_a_plug_in_are_recorded(name):
    header = (SOURCE / f"fcgiServer/include/{name}.h").read_text()
    operations = re.findall(r"virtual \w+ (\w+)\(", header)
    assert operations and header.count("virtual ") == len(operations)
    recorded = (SOURCE / "tests/abi/plug_in.cpp").read_text()
    for operation in operations:
        assert f"void {operation}(decltype(&{name}::{operation})" in recorded


@pytest.mark.parametrize("library", LIBRARIES)
def test_no_time_or_file_size_is_part_of_the_interface(library):
    """On 32-bit processors their size depends on _TIME_BITS and _FILE_OFFSET_BITS, which a plug-in or a
    host may have chosen otherwise than the libraries."""
    record = (SOURCE / f"tests/abi/armhf/{library}.abi").read_text()
    assert "name='unsigned int'" in record or "name='int'" in record
    assert re.findall(r"name='_*(?:time|off|ino|blkcnt|loff)(?:64)?_t'|"
                      r"name='(?:stat|timespec|timeval|tm)'", record) == []


class Changed:
    """A copy of this project, to be changed."""

    def __init__(self, folder):
        self.folder = pathlib.Path(shutil.copytree(
            SOURCE, folder / "fcgiServer",
            ignore=shutil.ignore_patterns("build", ".git", "node_modules", "__pycache__")))
        # Compiles in half of the time, and does not change the interface.
        subprocess.run(["cmake", "--preset", "dev", "-DCMAKE_CXX_FLAGS_RELWITHDEBINFO=-g -O0"],
                       cwd=self.folder, check=True, stdout=subprocess.DEVNULL)

    def change(self, name, old, new):
        path = self.folder / name
        text = path.read_text()
        assert text.count(old) == 1, (name, old)
        path.write_text(text.replace(old, new))

    def swap(self, name, first, second):
        """Swaps two declarations."""
        self.change(name, first, "<first>")
        self.change(name, second, first)
        self.change(name, "<first>", second)


@pytest.fixture(scope="module")
def changed(tmp_path_factory):
    return Changed(tmp_path_factory.mktemp("changed"))


@pytest.fixture(scope="module")
def added(changed):
    """Adds a function; returns the result of scripts/abi."""
    changed.change("fcgiServer/fcgi_server.h", "    int onTimer();\n",
                   "    int onTimer();\n    int waiting();\n")
    changed.change("fcgiServer/fcgi_server.cpp", "int FCGIServer::onTimer() {",
                   "int FCGIServer::waiting() {\n    return 0;\n}\n\nint FCGIServer::onTimer() {")
    return abi(changed.folder, "check", "amd64")


def test_an_added_function_breaks_nothing_and_is_shown(added):
    status, printed = added
    assert status == 0, printed
    assert "[A] 'method int FCGIServer::waiting()'" in printed
    assert results(printed) == {
        "amd64/libfcgiServer": "added, breaks nothing; scripts/abi record records it",
        "amd64/libdevice": "as recorded",
        "amd64/plug_in": "as recorded"}


@pytest.fixture(scope="module")
def broken(changed, added):
    """Makes several incompatible changes; returns the result of scripts/abi."""
    changed.swap("fcgiServer/include/HttpServlet.h", "virtual void init() = 0;",
                 "virtual void destroy() = 0;")
    changed.change("fcgiServer/include/HttpServlet.h", "HttpResponse* response) = 0;",
                   "HttpResponse* response, int depth = 0) = 0;")
    changed.change("fcgiServer/include/HttpListener.h", "    virtual void init() = 0;\n",
                   "    virtual void init() = 0;\n    virtual bool isWanted() = 0;\n")
    changed.swap("fcgiServer/loop_activity.h", "    int thread; ", "    unsigned long number; ")
    changed.swap("fcgiServer/http_session.h", "    bool m_bValid = true;",
                 "    bool m_bInRequest = true;")
    changed.change("fcgiServer/fcgiServer.map", "    session_mutex;\n", "")
    for name in ("platform/include/log_control.h", "platform/log/app_log.cpp"):
        changed.change(name, "app_log_set_threshold(int level)",
                       "app_log_set_threshold(long level)")
    return abi(changed.folder, "check", "amd64")


@pytest.mark.parametrize("told", [
    "the vtable offset of method virtual void HttpServlet::init() changed from 0 to 2",
    "[D] 'function void servlet::service()'",
    "'method virtual bool HttpListener::isWanted()', virtual at voffset 1/2",
    "'int thread' offset changed from 0 to 64",
    "'bool m_bValid' offset changed from 416 to 424",
    "[D] 'pthread_mutex_t session_mutex'",
    "[C] 'function void app_log_set_threshold(int)'",
], ids=["operations that change places", "an operation that takes more",
        "an operation between others",
        "fields of a structure that change places", "members of an object that change places",
        "a variable that is exported no more", "a parameter of another type"])
def test_what_breaks_a_compiled_plug_in_is_named(broken, told):
    status, printed = broken
    assert status == 1, printed
    assert told in printed


def test_each_library_that_breaks_something_is_named(broken):
    _, printed = broken
    assert results(printed) == {f"amd64/{library}": "breaks what has been compiled"
                                for library in LIBRARIES}


def test_a_new_record_counts_from_then_on(changed, broken):
    status, printed = abi(changed.folder, "record", "amd64")
    assert (status, printed.partition("==")[2]) == (0, broken[1].partition("==")[2])
    status, printed = abi(changed.folder, "check", "amd64")
    assert status == 0
    assert set(results(printed).values()) == {"as recorded"}


def test_a_library_without_debug_information_does_not_count_as_unchanged(changed, broken):
    subprocess.run(["strip", "--strip-debug",
                    changed.folder / "build/dev/platform/libdevice.so"], check=True)
    status, printed = abi(changed.folder, "check", "amd64")
    assert status == 1
    for name in ("WebDebug", "app_log_request"):
        assert f"== amd64: no debug information about {name}\n" in printed
