"""Findings in templates."""

import pytest

import elf
from device import LIBRARY, WEB_INFO

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


def missing(name):
    return (1, f'the library "{LIBRARY}" names the template "{name}", which does not exist: '
               "a page that shows it answers with status 500")


@pytest.mark.parametrize("machine, bits, big_endian", [
    (elf.ARM, 32, False), (elf.X86_64, 64, False), (elf.MIPS, 32, True)])
def test_a_template_that_the_plug_in_names_must_exist(phone, templates, machine, bits, big_endian):
    def named(*names):
        phone.put_whole(machine=machine, bits=bits, big_endian=big_endian)
        library = elf.Elf(machine, bits, big_endian=big_endian).contains("x", *names)
        phone.put(LIBRARY, library.bytes())
        return phone.findings()

    templates("news.html", "a")
    templates("de/status.html", "a")
    phone.put("/phone/www/static.html", "a")
    assert named("news.html", "de/status.html", "status.html", "static.html") == []
    assert named("nwes.html", "news.html") == [missing("nwes.html")]
    assert named("en/status.html") == [missing("en/status.html")]
    # The end of a file's name is not its name.
    assert named("ews.html", "atus.html") == [missing("atus.html"), missing("ews.html")]


@pytest.mark.parametrize("text", ["/index.html", ".html", "../a.html", "a b.html", "http://x/a.html",
                                  "<a>.html", "a.htm", "a.html?x", "\x01.html", "x" * 200 + ".html"])
def test_other_texts_are_no_names_of_templates(phone, templates, text):
    phone.put(LIBRARY, elf.Elf().contains(text).bytes())
    assert phone.findings() == []


@pytest.mark.parametrize("flags", [0, elf.LOADED | elf.WRITABLE, elf.LOADED | elf.EXECUTABLE])
def test_only_constant_data_are_searched_for_names(phone, templates, flags):
    phone.put(LIBRARY, elf.Elf().contains("none.html", flags=flags).bytes())
    assert phone.findings() == []


def test_a_text_without_an_end_is_survived(phone, templates):
    library = elf.Elf()
    library.data.append((elf.LOADED, b"none.html"))
    phone.put(LIBRARY, library.bytes())
    assert phone.findings() == [missing("none.html")]
