"""Findings in the plug-in library."""

import os
import subprocess
import sys

import pytest

import elf
from device import LIBRARY
from elf import Elf

ENDS = ': the container logs "Cannot load library error=...", and the process ends with status 255'
NO_SYMBOL = "each request for it is answered with status 200 and the container's 404 page as text, and " \
    'the container logs "Cannot load symbol create."'
SERVLET = '<servlet id="a" createfunction="create"/>'


def compile_library(path, source, *flags):
    path.parent.mkdir(parents=True, exist_ok=True)
    subprocess.run(["g++", "-shared", "-fPIC", "-nostdlib", "-xc++", "-", "-o", path, *flags],
                   input=source, text=True, check=True)


def opens(path, libraries):
    """Returns whether this machine's dynamic linker opens it, with the container's flags."""
    return subprocess.run([sys.executable, "-c", "import ctypes, os, sys; "
                           "ctypes.CDLL(sys.argv[1], mode=os.RTLD_LAZY)", path],
                          env=dict(os.environ, LD_LIBRARY_PATH=str(libraries)),
                          stderr=subprocess.DEVNULL).returncode == 0


@pytest.mark.parametrize("options", [
    {"machine": elf.ARM, "bits": 32}, {"machine": elf.AARCH64, "bits": 64},
    {"machine": elf.MIPS, "bits": 32, "big_endian": True}, {"machine": elf.X86_64, "bits": 64}],
    ids=["ARM", "AArch64", "MIPS", "x86-64"])
def test_a_plug_in_for_any_processor_can_be_checked(phone, options):
    phone.put_whole("create", "createListener", **options)
    phone.configure(SERVLET, '<listener createfunction="createListener"/>')
    assert phone.findings() == []
    phone.put_whole("createListener", **options)
    assert phone.findings() == [(2, f'servlet "a": "{LIBRARY}" has no "create": {NO_SYMBOL}')]


def test_a_plug_in_for_another_processor_than_the_container_is_reported(phone):
    phone.put_whole("create", machine=elf.ARM)
    phone.put(LIBRARY, Elf(elf.X86_64, 64).exports("create").bytes())
    phone.configure(SERVLET)
    assert phone.findings() == [
        (1, f'the library "{LIBRARY}" is for x86-64 (64 bit, little-endian), "libfcgiServer.so" for '
            f'ARM (32 bit, little-endian){ENDS}')]


@pytest.mark.parametrize("plugin, said", [
    (Elf(elf.ARM, 32, big_endian=True), "ARM (32 bit, big-endian)"),
    (Elf(elf.ARM, 32, flags=elf.SOFT_FLOATS), "ARM (32 bit, little-endian, soft floats)"),
    (Elf(elf.AARCH64, 64), "AArch64 (64 bit, little-endian)")])
def test_any_difference_between_processors_is_reported(phone, plugin, said):
    phone.put_whole("create", flags=elf.HARD_FLOATS)
    phone.put(LIBRARY, plugin.exports("create").bytes())
    phone.configure(SERVLET)
    (line, message), = phone.findings()
    assert line == 1 and f"is for {said}," in message


def test_the_host_program_determines_the_processor_too(phone):
    phone.put_whole("create", machine=elf.ARM)
    phone.path("/usr/lib/libfcgiServer.so").unlink()
    phone.put("/usr/sbin/fcgi_host", Elf(elf.MIPS, kind=elf.PROGRAM).bytes())
    phone.configure(SERVLET)
    (_, message), = phone.findings()
    assert 'is for ARM (32 bit, little-endian), "fcgi_host" for MIPS' in message


def test_another_host_can_be_provided(phone, tmp_path):
    phone.put_whole("create", machine=elf.ARM)
    phone.path("/usr/lib/libfcgiServer.so").unlink()
    phone.configure(SERVLET)
    (line, message), = phone.findings()
    assert line == 1 and message.startswith("note: neither fcgi_host nor libfcgiServer.so is below")
    host = tmp_path / "our_host"
    host.write_bytes(Elf(elf.MIPS, kind=elf.PROGRAM).bytes())
    (_, message), = phone.findings("--provides", host)
    assert '"our_host" for MIPS' in message


def test_a_missing_library_is_reported(phone):
    phone.configure()
    assert phone.findings() == [
        (1, f'the library "{LIBRARY}" is not below "{phone.root}"{ENDS}')]


def test_a_library_is_found_by_its_bare_name(phone):
    phone.put_whole()
    phone.put("/usr/lib/arm-linux-gnueabihf/libpages.so", Elf().exports("create").bytes())
    phone.configure(SERVLET, path="libpages.so")
    assert phone.findings() == []


def test_a_relative_path_is_reported(phone):
    phone.configure(SERVLET, path="lib/libpages.so")
    assert phone.findings() == [
        (1, 'the path "lib/libpages.so" ' "is relative to the daemon's working directory: it could not "
            'be checked')]


def test_symbolic_links_are_followed_below_the_root(phone):
    phone.put_whole()
    phone.path(LIBRARY).unlink()
    phone.put("/opt/pages-2.so", Elf().exports("create").bytes())
    phone.path("/opt/pages.so").symlink_to("pages-2.so")
    phone.path(LIBRARY).symlink_to("/opt/../../opt/pages.so")
    phone.configure(SERVLET)
    assert phone.findings() == []


def test_circular_symbolic_links_are_reported(phone):
    phone.put_whole()
    phone.path(LIBRARY).unlink()
    phone.path(LIBRARY).symlink_to("other.so")
    (phone.path(LIBRARY).parent / "other.so").symlink_to(LIBRARY)
    phone.configure(SERVLET)
    assert phone.findings() == [
        (1, f'the library "{LIBRARY}" is not below "{phone.root}"{ENDS}')]


def test_a_program_instead_of_a_library_is_reported(phone):
    phone.put_whole()
    phone.put(LIBRARY, Elf(kind=elf.PROGRAM).exports("create").bytes())
    phone.configure(SERVLET)
    assert phone.findings() == [(1, f'the library "{LIBRARY}" is a program{ENDS}')]


def test_a_creation_function_with_cpp_linkage_is_reported(phone):
    phone.put_whole(machine=elf.X86_64, bits=64)
    phone.configure(SERVLET)
    compile_library(phone.path(LIBRARY), "void* create() { return nullptr; }")
    assert phone.findings() == [
        (2, f'servlet "a": "{LIBRARY}" exports "create" as C++, "_Z6createv", and not as extern '
            f'"C": {NO_SYMBOL}')]


def test_a_hidden_creation_function_is_reported(phone):
    phone.put_whole(machine=elf.X86_64, bits=64)
    phone.configure(SERVLET)
    compile_library(phone.path(LIBRARY), 'extern "C" void* create() { return nullptr; }',
                    "-fvisibility=hidden")
    assert phone.findings() == [
        (2, f'servlet "a": "{LIBRARY}" has "create" and does not export it: {NO_SYMBOL}')]


def test_a_creation_function_that_is_data_is_reported(phone):
    phone.put_whole()
    phone.put(LIBRARY, Elf().exports("create", kind=elf.OBJECT).bytes())
    phone.configure(SERVLET)
    (line, message), = phone.findings()
    assert line == 2 and message.startswith(f'servlet "a": "create" in "{LIBRARY}" is not a function')


def test_a_creation_function_is_found_in_a_needed_library(phone):
    phone.put_whole()
    phone.put(LIBRARY, Elf().needs("libmore.so").bytes())
    phone.put("/usr/lib/libmore.so", Elf().exports("create").bytes())
    phone.configure(SERVLET)
    assert phone.findings() == []


class TestUndefinedSymbols:
    def test_are_found_in_the_container_and_in_any_needed_library(self, phone):
        phone.put("/usr/lib/libfcgiServer.so",
                  Elf().exports("session_mutex").needs("libdevice.so").bytes())
        phone.put("/lib/libdevice.so", Elf().exports("app_log").bytes())
        phone.put("/usr/lib/libmore.so", Elf().exports("more").bytes())
        phone.put(LIBRARY, Elf().exports("create").wants("session_mutex", "app_log", "more")
                  .needs("libmore.so").bytes())
        phone.configure(SERVLET)
        assert phone.findings() == []

    def test_are_reported_if_no_library_provides_them(self, phone):
        phone.put_whole()
        phone.put(LIBRARY, Elf().exports("create").wants("_Z4helpi", "plain").bytes())
        phone.configure(SERVLET)
        assert phone.findings() == [
            (1, f'"libpages.so" needs "{name}", which no library provides: the process ends at the '
                'first call') for name in ["help(int)", "plain"]]

    def test_may_be_missing_if_they_are_weak(self, phone):
        phone.put_whole()
        phone.put(LIBRARY, Elf().exports("create").wants("x", binding=elf.WEAK).bytes())
        phone.configure(SERVLET)
        assert phone.findings() == []

    def test_of_a_library_that_only_the_plug_in_needs_are_reported(self, phone):
        phone.put_whole()
        phone.put(LIBRARY, Elf().exports("create").needs("libmore.so").bytes())
        phone.put("/usr/lib/libmore.so", Elf().wants("x").bytes())
        phone.configure(SERVLET)
        (_, message), = phone.findings()
        assert message.startswith('"libmore.so" needs "x", which no library provides')

    SOURCE = 'extern "C" { int there(); extern int data; void* create() { there(); return %s; } }'

    @pytest.mark.parametrize("what, flags, symbol, opened", [
        ("nullptr", [], "there", True), ("nullptr", ["-Wl,-z,now"], "there", False),
        ("&data", ["-Wl,-z,lazy"], "data", False)], ids=["called", "called, -z now", "data"])
    def test_are_reported_with_the_moment_at_which_the_process_ends(self, phone, what, flags, symbol,
                                                            opened):
        phone.put_whole(machine=elf.X86_64, bits=64)
        phone.configure(SERVLET)
        compile_library(phone.path(LIBRARY), self.SOURCE % what, *flags or ["-Wl,-z,lazy"])
        effect = ": the process ends at the first call" if opened else ENDS
        assert (1, f'"libpages.so" needs "{symbol}", which no library provides{effect}') \
            in phone.findings()
        assert opens(phone.path(LIBRARY), phone.root) == opened


class TestLibraries:
    @pytest.fixture
    def pages(self, phone):
        phone.put_whole()
        phone.put(LIBRARY, Elf().exports("create").wants("x").needs("libmore.so").bytes())
        phone.configure(SERVLET)
        return phone

    def left(self, phone, names, count=1):
        return (1, f'note: not below "{phone.root}", so not checked: {names}; {count} symbols '
                   'that the plug-in needs may be defined there')

    def test_are_reported_if_missing(self, pages):
        assert pages.findings() == [
            (1, f'the library "libmore.so", which "libpages.so" needs, is not below "{pages.root}": '
                'the dynamic linker cannot open the plug-in without it'), self.left(pages, "libmore.so")]

    def test_are_noted_if_the_root_is_partial(self, pages):
        assert pages.findings("--partial") == [self.left(pages, "libmore.so")]

    def test_can_be_provided(self, pages, tmp_path):
        library = tmp_path / "libmore.so"
        library.write_bytes(Elf().exports("x").bytes())
        assert pages.findings("--provides", library) == []
        library.write_bytes(Elf().named("libother.so").bytes())
        library.rename(tmp_path / "other")
        assert pages.findings("--provides", tmp_path / "other", "--partial") == [
            self.left(pages, "libmore.so")]

    def test_for_another_processor_are_skipped(self, pages):
        pages.put("/lib/libmore.so", Elf(elf.X86_64, 64).exports("x").bytes())
        assert pages.findings("--partial") == [self.left(pages, "libmore.so")]
        pages.put("/usr/lib/libmore.so", Elf().exports("x").bytes())
        assert pages.findings() == []

    def test_may_need_each_other(self, pages):
        pages.put("/lib/libmore.so", Elf().needs("libmore2.so", "libpages.so").bytes())
        pages.put("/lib/libmore2.so", Elf().exports("x").needs("libmore.so").bytes())
        assert pages.findings() == []

    def test_are_looked_up_in_the_plug_ins_rpath(self, phone):
        phone.put_whole(machine=elf.X86_64, bits=64)
        phone.configure(SERVLET)
        folder = phone.path(LIBRARY).parent / "more"
        compile_library(folder / "libmore.so", "int more() { return 0; }")
        compile_library(phone.path(LIBRARY), 'int more(); extern "C" int create() { return more(); }',
                        f"-L{folder}", "-lmore", "-Wl,-rpath,$ORIGIN/more")
        assert phone.findings() == []
        assert opens(phone.path(LIBRARY), phone.root)

    def test_are_reported_if_older_than_those_at_link_time(self, phone, tmp_path):
        phone.put_whole(machine=elf.X86_64, bits=64)
        phone.configure(SERVLET)
        for version, folder in (("2", tmp_path), ("1", phone.path("/usr/lib"))):
            (tmp_path / "map").write_text(f"MORE_{version} {{ more; }};")
            compile_library(folder / "libmore.so", 'extern "C" int more() { return 0; }',
                            "-Wl,-soname,libmore.so", f"-Wl,--version-script={tmp_path}/map")
        compile_library(phone.path(LIBRARY),
                        'extern "C" { int more(); int create() { return more(); } }',
                        f"-L{tmp_path}", "-lmore")
        assert phone.findings() == [
            (1, '"libpages.so" needs version "MORE_2" of "libmore.so", which that library does not define'
                + ENDS)]
        assert not opens(phone.path(LIBRARY), phone.path("/usr/lib"))
        assert opens(phone.path(LIBRARY), tmp_path)

    def test_excuse_only_symbols_that_they_may_define(self, phone, tmp_path):
        """A symbol with a version belongs to that library; one without, to a library without versions."""
        phone.put_whole(machine=elf.X86_64, bits=64)
        phone.configure(SERVLET)
        (tmp_path / "map").write_text("MORE_2 { more; };")
        compile_library(tmp_path / "libmore.so", 'extern "C" int more() { return 0; }',
                        "-Wl,-soname,libmore.so", f"-Wl,--version-script={tmp_path}/map")
        compile_library(phone.path(LIBRARY), 'extern "C" { int more(); int nobodys(); '
                        'int create() { return more() + nobodys(); } }', f"-L{tmp_path}", "-lmore",
                        "-Wl,-z,lazy")
        assert phone.findings("--partial") == [
            (1, '"libpages.so" needs "nobodys", which no library provides: the process ends at the '
                'first call'), self.left(phone, "libmore.so")]
