"""Malformed and hostile files: each is reported in a clear line, and none causes a crash."""

import os
import random
import struct

import pytest

import elf
from device import LIBRARY, SERVLET_XML, WEB_INFO
from elf import Elf

CONTROLS = {chr(code) for code in (*range(32), 127)}
NOISE = random.Random(1).randbytes(10000)
SERVLET = '<servlet id="a" createfunction="create"/>'


def plugin():
    return Elf(elf.X86_64, 64).exports("create", "other").wants("x").needs("libc.so.6").bytes()


def said_of(phone, contents):
    phone.put(LIBRARY, contents)
    ran = phone.run("--partial")
    assert ran.returncode in (0, 1) and ran.stderr == ""
    return ran.stdout


@pytest.fixture
def pages(phone):
    phone.configure(SERVLET)
    return phone


@pytest.mark.parametrize("contents, said", [
    (b"", "is not an ELF file"), (b"\x7fELF", "is "), (b"#!/bin/sh\n", "is not an ELF file"),
    (b"!<arch>\n", "is not an ELF file"), (NOISE, "is not an ELF file")],
    ids=["empty", "magic", "script", "archive", "noise"])
def test_a_file_that_is_not_a_library_is_reported(pages, contents, said):
    text = said_of(pages, contents)
    assert text.startswith(str(pages.path(SERVLET_XML)) + ":1: ") and said in text
    assert text.count("\n") == 1


def test_a_folder_instead_of_the_library_is_reported(pages):
    pages.path(LIBRARY).mkdir(parents=True)
    assert "cannot be read: Is a directory" in pages.run().stdout


def test_a_pipe_instead_of_the_library_is_reported(pages):
    pages.path(LIBRARY).parent.mkdir(parents=True)
    os.mkfifo(pages.path(LIBRARY))
    assert "cannot be read" in pages.run().stdout


@pytest.mark.parametrize("step", [1, None], ids=["crafted", "compiled"])
def test_a_library_truncated_anywhere_is_reported(pages, step, build):
    whole = plugin() if step else (build / "platform/libdevice.so").read_bytes()
    for size in range(0, len(whole), step or len(whole) // 60):
        said = said_of(pages, whole[:size])
        assert "truncated" in said or "is not an ELF file" in said, size


def test_any_corrupted_byte_of_a_library_is_survived(pages):
    whole = bytearray(plugin())
    for at in range(0, len(whole)):
        changed = whole.copy()
        changed[at] ^= 0x7f
        said_of(pages, bytes(changed))


def test_corrupted_tables_of_a_compiled_library_are_survived(pages, build):
    chance = random.Random(20)
    whole = (build / "platform/libdevice.so").read_bytes()
    table = struct.unpack_from("<Q", whole, 40)[0]  # of its sections
    for _ in range(150):
        changed = bytearray(whole)
        for _ in range(chance.choice((1, 3, 30))):
            at = chance.choice((chance.randrange(table, len(whole)), chance.randrange(0x3000)))
            changed[at] = chance.randrange(256)
        said_of(pages, bytes(changed))


@pytest.mark.parametrize("text", [
    b"\0" * 100, b"<", b"<a", b"<a b='", b"<![CDATA[", b"&#0;", b"<a>\0</a>", b"\xff\xfe<\0",
    b"<" * 10000, b"<a>" * 100000, b"<a b='&lt;'/>" * 1000, NOISE,
    b"<a path='" + b"x" * 100000 + b"'/>",
    b"<a path='\x1b[2J&#10;/:1: b'><servlet id='\xff\x01' createfunction='&#10;'/></a>"],
    ids=range(14))
def test_garbage_instead_of_the_configuration_is_reported(phone, text):
    path = phone.put(SERVLET_XML, text)
    ran = phone.run()
    assert ran.returncode == 1 and ran.stderr == ""
    for line in ran.stdout.splitlines():
        assert line.startswith(f"{path}:") and not set(line) & CONTROLS
    assert phone.json()
    assert phone.run("--explain", "/servlet?p=a").returncode == 0


def test_20000_elements_are_checked(phone):
    phone.put_whole()
    phone.configure(*[f'<servlet id="{n % 5000}" createfunction="f{n}"/>' for n in range(20000)])
    assert phone.run().stdout.count("replaces the one of line") == 15000


def test_a_folder_instead_of_the_configuration_is_reported(phone):
    phone.path(SERVLET_XML).mkdir(parents=True)
    ran = phone.run()
    assert (ran.returncode, ran.stdout) == (66, "")
    assert ran.stderr == f'servlet_check: cannot read "{phone.path(SERVLET_XML)}": not a regular file\n'


def test_odd_files_among_the_templates_are_survived(phone):
    phone.put_whole()
    phone.configure()
    folder = phone.path(f"{WEB_INFO}/templates")
    folder.mkdir()
    (folder / "empty.html").write_bytes(b"")
    (folder / "noise.html").write_bytes(NOISE)
    os.mkfifo(folder / "pipe.html")
    (folder / "a\nb.html").write_text("<TMPL_IF")
    ran = phone.run()
    assert ran.stdout == f"{folder}/a?b.html:1: <TMPL_IF> does not end: the page is empty, and " \
        'the container logs "HttpResponseImpl::flush() TMPL_write error"\n'
