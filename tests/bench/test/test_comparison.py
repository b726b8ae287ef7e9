"""The comparison with other frameworks: what is counted, and what the checks read."""

import pathlib
import sys

import pytest

BENCH = pathlib.Path(__file__).resolve().parent.parent
sys.path += [str(BENCH), str(BENCH / "comparison")]
import checks
import comparison


def test_lines_without_code_are_not_counted(tmp_path, monkeypatch):
    monkeypatch.setattr(comparison, "SOURCES", tmp_path)
    (tmp_path / "page.cpp").write_text("// why\n\nint x; // what\n  }\n")
    assert comparison.lines_of("page.cpp") == 2


def test_each_program_has_its_sources():
    for name in ("kit_pages.cpp", "httplib_pages.cpp", "pistache_pages.cpp", "by_hand.h"):
        assert comparison.lines_of(name) > 50


def test_items_are_read_as_they_were_entered():
    assert checks.items_of("<ul><li>a</li><li>&lt;b&gt; &amp; &#39;c&#39;</li></ul>") \
        == ["a", "<b> & 'c'"]


def test_a_program_that_forgets_an_item_fails():
    class Forgetful:
        def send(self, path, *options, stdin=b""):
            page = '<input type="hidden" name="token" value="' + "0" * 32 + '">'
            return (303, "") if "--data" in options else (200, page)
    with pytest.raises(AssertionError):
        checks.check_todo(Forgetful(), {"todo": "/", "add": "/"})


def test_cookies_are_sent_with_their_names(tmp_path):
    client = checks.Client(1, tmp_path)
    client.jar.write_text("# Netscape HTTP Cookie File\n\n"
                          "#HttpOnly_127.0.0.1\tFALSE\t/\tFALSE\t0\tsession\tabc\n"
                          "127.0.0.1\tFALSE\t/\tFALSE\t0\ttoken\tdef\n")
    assert client.cookies() == "session=abc; token=def"
