"""The command line, the output and the exit status."""

import subprocess

import pytest

from device import SERVLET_XML, WEB_INFO


def run(program, *arguments, **options):
    return subprocess.run([str(program), *map(str, arguments)], capture_output=True, text=True,
                          **options)


@pytest.fixture
def wrong(phone):
    phone.put_whole()
    phone.configure("<filter/>", '<servlet id="&quot;\u00e4\\&#1;" createfunction="create"/>')
    phone.put(f"{WEB_INFO}/templates/a.html", "\n<TMPL_ELSE>")
    return phone


def test_findings_are_sorted_by_file_and_line(wrong):
    places = [line.split(": ")[0] for line in wrong.run().stdout.splitlines()]
    assert places == [f"{wrong.path(SERVLET_XML)}:{line}" for line in (2, 3, 3)] + [
        f"{wrong.path(WEB_INFO)}/templates/a.html:2"]


def test_json_contains_the_same_findings(wrong):
    ran = wrong.run()
    as_json = wrong.json()
    assert wrong.run("--json").returncode == ran.returncode == 1
    assert [f"{entry['file']}:{entry['line']}: {entry['message']}".replace("\1", "\\x01")
            for entry in as_json] == ran.stdout.splitlines()
    assert {entry["severity"] for entry in as_json} == {"problem"}


def test_json_replaces_invalid_utf8(phone):
    phone.put_whole()
    phone.configure()
    path = phone.path(SERVLET_XML)
    path.write_bytes(path.read_bytes().replace(b"</servlets>", b"<filter\xe4/>\n</servlets>"))
    assert '"file":' in phone.run("--json").stdout
    (entry,) = phone.json()
    assert entry["message"].startswith("<filter\ufffd> is skipped")


def test_json_distinguishes_notes_from_problems(phone):
    phone.put_whole()
    phone.path("/usr/lib/libfcgiServer.so").unlink()
    phone.configure()
    assert [entry["severity"] for entry in phone.json()] == ["note"]
    assert phone.run("--json").returncode == 0


def test_no_finding_is_an_empty_array(phone):
    phone.put_whole()
    phone.configure()
    assert phone.json() == []
    assert phone.run().stdout == ""


def test_another_configuration_can_be_checked(phone, tmp_path):
    phone.put_whole()
    phone.configure()
    other = tmp_path / "other.xml"
    other.write_text("<a/>")
    ran = phone.run(other)
    assert ran.returncode == 1 and ran.stdout.startswith(f"{other}:1: <a> has no \"path\"")


@pytest.mark.parametrize("arguments, said", [
    (["--rot", "x"], "there is no option '--rot'"), (["--root"], "option '--root' needs a value"),
    (["a", "b"], "unexpected argument 'b'"),
    (["--explain", "/", "--json"], "--explain can be combined with --root and SERVLET.XML only")])
def test_wrong_usage_is_rejected(program, arguments, said):
    ran = run(program, *arguments)
    assert (ran.returncode, ran.stdout) == (64, "")
    assert ran.stderr == f"servlet_check: {said}; see servlet_check --help\n"


@pytest.mark.parametrize("arguments", [
    ["/nowhere/servlet.xml"], ["--root", "/nowhere"], ["--provides", "/nowhere"],
    ["--templates", "/nowhere"], ["--explain", "/", "/nowhere"], ["--provides", "/"]])
def test_unreadable_files_are_reported(phone, arguments):
    phone.put_whole()
    phone.configure()
    ran = phone.run(*arguments)
    assert (ran.returncode, ran.stdout) == (66, "")
    assert ran.stderr.count("\n") == 1


def test_help_and_version(program):
    help_text = run(program, "--help")
    assert help_text.returncode == 0
    for said in ("--root", "--provides", "--partial", "--templates", "--json", "--explain",
                 "   64  ", "   66  "):
        assert said in help_text.stdout
    assert run(program, "--version").stdout.startswith("servlet_check 1.")
