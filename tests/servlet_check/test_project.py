"""The plug-ins of this project."""

import pathlib
import subprocess

import pytest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent


def run(*command):
    ran = subprocess.run([str(part) for part in command], capture_output=True, text=True)
    return ran.returncode, ran.stdout, ran.stderr


@pytest.fixture
def phones(build):
    return build / "device/phone/www/WEB-INFO"


def test_the_phones_own_plug_in_is_clean(program, build, phones):
    assert run(program, "--provides", build / "host/fcgi_host",
               phones / "servlet/servlet.xml") == (0, "", "")


def test_all_of_the_phones_plug_in_has_been_looked_at(program, build, phones, tmp_path):
    """The same, with one name changed at each place."""
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


def test_the_example_is_clean(program, build, tmp_path):
    example = SOURCE / "examples/hello"
    library = tmp_path / "phone/www/WEB-INFO/lib/libhello.so"
    library.parent.mkdir(parents=True)
    includes = [f"-I{SOURCE / folder}" for folder in
                ("kit/include", "fcgiServer/include", "platform/include")]
    subprocess.run(["g++", "-std=c++17", "-O0", "-fPIC", "-shared", "-fvisibility=hidden",
                    "-fno-gnu-unique", *includes, example / "hello.cpp", "-o", library,
                    build / "platform/libdevice.so"], check=True)
    web_info = example / "www/WEB-INFO"
    status, out, err = run(program, "--root", tmp_path, "--partial", "--provides",
                           build / "platform/libdevice.so", "--provides", build / "host/fcgi_host",
                           "--templates", web_info / "templates", web_info / "servlet/servlet.xml")
    assert (status, err) == (0, "")
    assert all(": note: not below" in line for line in out.splitlines())
