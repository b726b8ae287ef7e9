"""The page that shows what is wrong with a project."""

import html
import json
import pathlib
import re
import sys

import pytest

SOURCE = pathlib.Path(__file__).resolve().parents[2]
sys.path.append(str(SOURCE / "tools/servlet_serve"))
import problems

CODE = "".join(f"line {number}\n" for number in range(1, 21))


@pytest.fixture
def project(tmp_path):
    (tmp_path / "build").mkdir()
    (tmp_path / "page.cpp").write_text(CODE)
    (tmp_path / "CMakeLists.txt").write_text(CODE)
    return tmp_path


class Sources:
    """Where findings are shown."""

    def __init__(self, folder):
        self.folder = folder

    def source_of(self, path):
        return self.folder / path.name

    def place_of(self, text):
        return (self.folder / "page.cpp", 5) if text == '"known.html"' else None


def places(output, project):
    return [(place.file, place.line, place.message)
            for place in problems.of_build(output, project, project / "build").places]


@pytest.mark.parametrize("output, file, line, message", [
    ("{project}/page.cpp:7:3: error: expected ';'\n", "page.cpp", 7, "expected ';'"),
    ("../page.cpp:7:3: fatal error: no such file\n", "page.cpp", 7, "no such file"),
    ("/usr/bin/ld: page.o: in function `f':\n{project}/page.cpp:9: undefined reference to `g()'\n",
     "page.cpp", 9, "undefined reference to `g()'"),
    ("CMake Error at CMakeLists.txt:5 (add_libary):\n  Unknown CMake command\n  \"add_libary\".\n\n\n",
     "CMakeLists.txt", 5, 'Unknown CMake command "add_libary".'),
    ("CMake Error: Error in cmake code at\n{project}/CMakeLists.txt:6:\nParse error.\n",
     "CMakeLists.txt", 6, "Parse error.")])
def test_the_places_of_a_failed_build_are_found(project, output, file, line, message):
    printed = "first\n" + output.format(project=project) + "ninja: build stopped\n"
    assert places(printed, project) == [(project / file, line, message)]


def test_warnings_and_notes_are_no_errors(project):
    assert places("page.cpp:7:3: warning: unused\npage.cpp:8:1: note: error: here\n", project) == []


def test_the_lines_around_the_place_are_shown(project):
    page = problems.as_page(problems.of_build("../page.cpp:7:3: error: what\n", project, project / "build"),
                            project, "")
    assert "<h2>page.cpp, line 7</h2>\n<p>what</p>\n" in page
    assert '<ol start="3"' in page
    assert re.findall("<li.*?>(.*?)</li>", page) == [f"line {number}" for number in range(3, 12)]
    assert re.findall('<li aria-current="true">(.*?)</li>', page) == ["line 7"]


@pytest.mark.parametrize("line", [1, 20, 21, 22, 0, 10**9])
def test_any_line_can_be_named(project, line):
    problem = problems.Problem("x", (problems.Place(project / "page.cpp", line, "y"),))
    page = problems.as_page(problem, project, "")
    assert ("<ol" in page) == (1 <= line <= 21)


def test_a_file_that_cannot_be_read_is_named(project):
    problem = problems.Problem("x", (problems.Place(project / "none.cpp", 1, "y"),))
    assert "<h2>none.cpp, line 1</h2>\n<p>y</p>\n</section>" in problems.as_page(problem, project, "")


def test_everything_is_escaped(project):
    hostile = "</li><script>alert(1)</script>\"'&\x1b[1m\0"
    (project / hostile.replace("/", "").replace("\0", "")).write_bytes(hostile.encode() + b"\xff\n")
    place = problems.Place(project / hostile.replace("/", "").replace("\0", ""), 1, hostile)
    page = problems.as_page(problems.Problem(hostile, (place,), hostile), project, "")
    assert "<script" not in page and "\x1b" not in page and "\0" not in page
    assert page.count(html.escape("<script>alert(1)</script>")) == 5  # headline twice, message, line, output
    assert page.count("alert(1)") == 6  # and in the file's name


def test_the_findings_of_servlet_check_are_shown_at_their_sources(project):
    findings = json.dumps([
        {"file": "image/page.cpp", "line": 3, "severity": "problem", "message": "wrong"},
        {"file": "image/page.cpp", "line": 4, "severity": "note", "message": "not checked"}])
    problem = problems.of_check(findings, Sources(project))
    assert problem.places == (problems.Place(project / "page.cpp", 3, "wrong"),)
    assert problem.output == f"{project}/page.cpp:3: wrong\n"
    assert problems.of_check("[]", None) is None


@pytest.mark.parametrize("name, place", [("known.html", ("page.cpp", 5)), ("composed.html", ("servlet.xml", 2))])
def test_a_missing_template_is_shown_where_the_code_names_it(project, name, place):
    message = f'the library "libpage.so" names the template "{name}", which does not exist: a page fails'
    findings = json.dumps([{"file": "image/servlet.xml", "line": 2, "severity": "problem", "message": message}])
    places = problems.of_check(findings, Sources(project)).places
    assert places == (problems.Place(project / place[0], place[1], message),)


def test_a_page_does_not_grow_with_the_output(project):
    output = "page.cpp:1:1: error: again\n" * 100_000
    (project / "page.cpp").write_text("x" * 1_000_000)
    page = problems.as_page(problems.of_build(output, project, project / "build"), project, "")
    assert len(page) < 30_000


def test_the_first_places_and_the_first_part_of_a_long_line_are_shown(project):
    (project / "page.cpp").write_text("x" * (problems.MAX_LINE + 1))
    output = "".join(f"page.cpp:1:1: error: number {number}\n" for number in range(9))
    page = problems.as_page(problems.of_build(output, project, project / "build"), project, "")
    assert re.findall("<p>number (.)</p>", page) == ["0", "1", "2", "3", "4"]
    assert set(re.findall("<li.*?>(.*?)</li>", page)) == {"x" * 400}


def test_the_output_is_shown_at_once_if_it_names_no_place(project):
    def shown(problem):
        return re.findall("<details.*?>.*?</details>", problems.as_page(problem, project, ""))
    place = problems.Place(project / "page.cpp", 1, "y")
    output = '<summary>Output</summary><pre tabindex="0">what</pre></details>'
    assert shown(problems.Problem("x")) == []
    assert shown(problems.Problem("x", (), "what")) == [f"<details open>{output}"]
    assert shown(problems.Problem("x", (place,), "what")) == [f"<details>{output}"]


def test_the_end_of_a_long_output_is_shown(project):
    page = problems.as_page(problems.Problem("x", (), "first" + "." * 19_992 + "last"), project, "")
    assert ">irst." in page and ".last</pre>" in page


def test_the_page_begins_with_the_headline_and_ends_with_the_script(project):
    page = problems.as_page(problems.of_build("", project, project / "build"), project, "<script></script>\n")
    assert "<title>The project does not build</title>" in page
    assert "<h1>The project does not build</h1>" in page
    assert page.endswith("</main>\n<script></script>\n</body>\n</html>\n")


def test_a_file_outside_the_project_is_named_with_its_path(project, tmp_path_factory):
    header = tmp_path_factory.mktemp("include") / "kit.h"
    header.write_text("line\n")
    problem = problems.of_build(f"{header}:1:1: error: what\n", project, project / "build")
    assert f"<h2>{header}, line 1</h2>" in problems.as_page(problem, project, "")
