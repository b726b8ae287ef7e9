"""Findings in templates."""

import pytest

from device import WEB_INFO

EMPTY = ': the page is empty, and the container logs "HttpResponseImpl::flush() TMPL_write error"'


@pytest.fixture
def templates(phone):
    phone.put_whole()
    phone.configure()

    def put(name, text):
        phone.put(f"{WEB_INFO}/templates/{name}", text)
    return put


def test_correct_templates_have_no_finding(phone, templates):
    templates("page.html", '<h1><TMPL_VAR name="x"></h1>\n<TMPL_INCLUDE name="de/part.html">')
    templates("de/part.html", "part")
    assert phone.findings() == []


@pytest.mark.parametrize("text, line, what", [
    ('a\n<TMPL_IF name="x">\nb', 2, "<TMPL_IF> is not closed"),
    ("a\n\n<TMPL_VAR>", 3, "<TMPL_VAR> has no name"),
    ('<TMPL_VRA name="x">', 1, "unknown tag <TMPL_VRA>"),
    ('<TMPL_VAR name="x" fmt="upper">', 1, 'unknown format "upper"'),
    ('<TMPL_INCLUDE name="a.html">', 1, '"{folder}/a.html" includes itself'),
    ('\n<TMPL_INCLUDE name="none.html">', 2,
     'cannot read "{folder}/none.html": No such file or directory')])
def test_an_error_is_reported_in_the_devices_words(phone, templates, text, line, what):
    templates("a.html", text)
    what = what.format(folder=phone.path(f"{WEB_INFO}/templates"))
    assert phone.findings() == [("a.html", line, what + EMPTY)]


def test_an_error_in_an_included_file_is_reported_once(phone, templates):
    for name in ("a.html", "b.html", "de/c.html"):
        path = "../wrong.html" if "/" in name else "wrong.html"
        templates(name, f'<TMPL_INCLUDE name="{path}">')
    templates("wrong.html", "\n</TMPL_LOOP>")
    found = phone.findings()
    assert {entry[:2] for entry in found} == {("wrong.html", 2)}
    assert all("</TMPL_LOOP> without <TMPL_LOOP>" in entry[2] for entry in found)
    assert len(found) == 2  # under both of its names, as the device reports it


def test_other_folders_can_be_checked(phone, templates, tmp_path):
    templates("wrong.html", "<TMPL_VAR>")
    for name in "xy":
        (tmp_path / name).mkdir()
        (tmp_path / name / f"{name}.html").write_text("<TMPL_IF>")
    found = phone.findings("--templates", tmp_path / "x", "--templates", tmp_path / "y")
    assert [entry[0] for entry in found] == ["x.html", "y.html"]


def test_circular_links_between_folders_are_survived(phone, templates):
    templates("page.html", "a")
    folder = phone.path(f"{WEB_INFO}/templates")
    (folder / "again").symlink_to(folder)
    (folder / "itself").symlink_to("itself")
    assert phone.findings() == []
