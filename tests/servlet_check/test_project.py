"""Checks the plug-ins of this project."""

import pathlib
import re
import shlex
import shutil
import subprocess

import pytest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent


def run(*command):
    ran = subprocess.run([str(part) for part in command], capture_output=True, text=True)
    return ran.returncode, ran.stdout, ran.stderr


@pytest.fixture
def phones(build):
    return build / "device/phone/www/WEB-INFO"


def test_the_phones_plug_in_has_no_finding(program, build, phones):
    assert run(program, "--provides", build / "host/fcgi_host",
               phones / "servlet/servlet.xml") == (0, "", "")


def test_each_function_of_the_phones_plug_in_is_checked(program, build, phones, tmp_path):
    """Changes one function's name at a time, which must be found."""
    text = (phones / "servlet/servlet.xml").read_text()
    assert (phones / "templates/en/status.html").exists()
    functions = [part.split('"')[0] for part in text.split('createfunction="')[1:]]
    assert len(functions) > 15
    for function in functions:
        changed = tmp_path / "servlet.xml"
        changed.write_text(text.replace(f'"{function}"', f'"{function}2"'))
        status, out, _ = run(program, "--provides", build / "host/fcgi_host", "--templates",
                             phones / "templates", changed)
        assert status == 1 and f'"{function}2"' in out


@pytest.fixture
def image(build, tmp_path):
    """examples/hello/ as its own build installs it, in a folder `image`."""
    example = SOURCE / "examples/hello"
    shutil.copytree(example / "www", tmp_path / "image/phone/www")
    library = tmp_path / "image/phone/www/WEB-INFO/lib/libhello.so"
    library.parent.mkdir()
    includes = [f"-I{SOURCE / folder}" for folder in
                ("", "kit/include", "fcgiServer/include", "platform/include")]
    subprocess.run(["g++", "-std=c++17", "-O0", "-fPIC", "-shared", "-fvisibility=hidden",
                    "-fno-gnu-unique", *includes, example / "hello.cpp", "-o", library,
                    build / "platform/libdevice.so"], check=True)
    return tmp_path / "image"


def change(path, text, other):
    assert text in path.read_text()
    path.write_text(path.read_text().replace(text, other))


def without_notes(text):
    return [line for line in text.splitlines() if ": note: " not in line]


def test_the_example_has_no_problem(program, build, image):
    status, out, err = run(program, "--root", image, "--partial", "--provides",
                           build / "platform/libdevice.so", "--provides", build / "host/fcgi_host")
    assert (status, err, without_notes(out)) == (0, "", [])


def test_the_guide_shows_what_is_printed(program, build, image):
    """Each command of the guide's chapter, and what it prints, but for notes."""
    chapter = (SOURCE / "docs/guide/servlet-check.md").read_text()
    shown = re.findall(r"```text\n\$ servlet_check (.*)\n((?:.*\n)*?)```", chapter)
    # The guide's FCGISERVER is where the sources are, and scripts/serve has installed there.
    installed = image.parent / "sources/build/serve/prefix/lib/libdevice.so"
    installed.parent.mkdir(parents=True)
    installed.symlink_to(build / "platform/libdevice.so")

    def assert_shown(arguments, printed):
        named = arguments.replace("$FCGISERVER", str(image.parent / "sources"))
        ran = subprocess.run([program, *shlex.split(named)], cwd=image.parent,
                             capture_output=True, text=True)
        assert without_notes(ran.stdout) == printed.splitlines()

    findings, explanation = shown
    assert_shown(*explanation)
    web_info = image / "phone/www/WEB-INFO"
    change(web_info / "servlet/servlet.xml", '<listener createfunction="createR', '<listner createfunction="createR')
    change(web_info / "servlet/servlet.xml", "createHelloPage", "createHeloPage")
    change(web_info / "templates/hello.html", "</TMPL_LOOP>", "")
    assert_shown(*findings)
