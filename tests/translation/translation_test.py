"""examples/phone/translate.py: templates with the texts of each language in place of their keys."""

import pathlib
import subprocess
import sys

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "examples/phone/translate.py"


class Translation:
    """A folder with texts, templates and the translated pages."""

    def __init__(self, folder):
        self.folder = folder
        for name in ("texts", "templates"):
            (folder / name).mkdir()

    def texts(self, language, text):
        (self.folder / "texts" / f"{language}.txt").write_text(text, encoding="utf-8")

    def template(self, text, name="a.html"):
        (self.folder / "templates" / name).write_text(text, encoding="utf-8")

    def run(self):
        names = [path.name for path in sorted((self.folder / "templates").iterdir())]
        return subprocess.run(
            [sys.executable, SCRIPT, "--texts", self.folder / "texts",
             "--templates", self.folder / "templates", "--output", self.folder / "out",
             "--languages", "en", "de", "--names", *names],
            text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)

    def page(self, language, name="a.html"):
        return (self.folder / "out" / language / name).read_text(encoding="utf-8")


@pytest.fixture
def translation(tmp_path):
    return Translation(tmp_path)


def refusal(translation):
    """Returns the error output for texts and templates that do not match, on one line."""
    result = translation.run()
    assert result.returncode != 0, result.stdout
    assert not (translation.folder / "out").exists()
    return " ".join(result.stdout.split())


def test_each_language_gets_its_texts(translation):
    translation.texts("en", "# greeting\n\nhello = Hello\nbye = Bye\n")
    translation.texts("de", "bye = Tschüss\nhello = Grüß Gott\n")
    translation.template('<html lang="{{lang}}"><p>{{hello}}, {{hello}}</p>\n')
    translation.template("{{bye}}", "b.html")
    assert translation.run().returncode == 0
    assert translation.page("en") == '<html lang="en"><p>Hello, Hello</p>\n'
    assert translation.page("de") == '<html lang="de"><p>Grüß Gott, Grüß Gott</p>\n'
    assert translation.page("de", "b.html") == "Tschüss"


def test_a_text_cannot_break_out_of_the_markup(translation):
    for language in ("en", "de"):
        translation.texts(language, "t = <b a=\"1\" b='2'> & ; [x] \\ $ @ 中文\n")
    translation.template('<p title="{{t}}">')
    assert translation.run().returncode == 0
    assert translation.page("en") == ('<p title="&lt;b a=&quot;1&quot; b=&#39;2&#39;&gt; &amp; '
                                      '; [x] \\ $ @ 中文">')


def test_the_markup_itself_stays_as_it_is(translation):
    for language in ("en", "de"):
        translation.texts(language, "t = x\n")
    page = '<a href="/x;y?[1]&amp;b=\\"> {{t}} $@ <TMPL_VAR name="v" fmt="url"></a>\n'
    translation.template(page)
    assert translation.run().returncode == 0
    assert translation.page("en") == page.replace("{{t}}", "x")


def test_the_indentation_is_left_out(translation):
    for language in ("en", "de"):
        translation.texts(language, "t = x\n")
    translation.template('  <ul>\n\t <li>{{t}}  <b>y</b>\r\n    </ul> \n')
    assert translation.run().returncode == 0
    assert translation.page("en") == '<ul>\n<li>x  <b>y</b>\n</ul> \n'


def test_the_help_of_a_field_is_a_paragraph_that_it_can_name(translation):
    translation.texts("en", "help.form-a.port = 1–65535 & no more\n")
    translation.texts("de", "help.form-a.port = 1–65535 & nicht mehr\n")
    translation.template("  <input id=port>\n  {{help:port}}\n", "form-a.html")
    assert translation.run().returncode == 0
    assert translation.page("de", "form-a.html") == \
        '<input id=port>\n<p class="hint" id="port-hint">1–65535 &amp; nicht mehr</p>\n'


def test_a_name_in_braces_stands_for_a_variable(translation):
    translation.texts("en", "t = At most {limit}.\n")
    translation.texts("de", "t = Höchstens {limit}.\n")
    translation.template("{{t}}")
    assert translation.run().returncode == 0
    assert translation.page("de") == 'Höchstens <TMPL_VAR name="limit" default="{limit}">.'


@pytest.mark.parametrize("english, german, template, complaint", [
    ("a = A\nb = B\n", "a = A\n", "{{a}}{{b}}", 'de.txt: "b" is missing'),
    ("a = A\n", "a = A\nb = B\n", "{{a}}", 'en.txt: "b" is missing'),
    ("a = A\n", "a = A\n", "{{a}}{{b}}", 'a.html: "b" is unknown'),
    ("a = A\nb = B\n", "a = A\nb = B\n", "{{a}}", 'en.txt: "b" is never used'),
    ("a = A\na = B\n", "a = A\n", "{{a}}", 'en.txt: "a" is defined twice'),
    ("a = {x}\n", "a = {y}\n", "{{a}}", 'de.txt: "a" uses other variables than in en.txt'),
    ("a A\n", "a = A\n", "{{a}}", 'en.txt: neither "key = text" nor a comment: a A'),
    ("a = {{b}}\n", "a = A\n", "{{a}}", 'en.txt: "a" contains {{'),
    ("a = A\n", "a = A\n", "{{a}} {{ a }}", "a.html: not a key: {{ a }}"),
])
def test_reports_texts_and_templates_that_do_not_match(translation, english, german, template, complaint):
    translation.texts("en", english)
    translation.texts("de", german)
    translation.template(template)
    assert complaint in refusal(translation)
