"""README.md and docs/: what they show is what is built, and what they say can be done."""

import os
import pathlib
import re
import shutil
import socket
import subprocess
import time
import urllib.error
import urllib.request

import pytest

import log_lines
from ports import free_port

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
GUIDE = SOURCE / "docs/plugin-guide.md"
OPERATIONS = SOURCE / "docs/operations.md"
DOCUMENTS = [*sorted(SOURCE.glob("*.md")), *sorted((SOURCE / "docs").glob("*.md"))]
ARCHITECTURE = SOURCE / "docs/architecture.md"
# The pages that lead through the sources link to every file that they name.
LINKING = [ARCHITECTURE, *(SOURCE / "docs" / f"{name}.md"
                           for name in ("request-journey", "threads", "ownership", "phone"))]
LAYERS = ("base", "fcgiServer", "platform", "host")

# A fenced block, and the comment before it that names the file that it is from, if there is one.
BLOCK = re.compile(r"(?:<!-- (?P<source>[^ ]+) -->\n)?^```(?P<language>.*)\n(?P<text>(?:.*\n)*?)```$",
                   re.MULTILINE)
QUOTED = {"cpp", "cmake", "xml", "html", "conf"}
SERVING = 900  # seconds for a first build


def blocks(text):
    return [(match["source"], match["language"], match["text"]) for match in BLOCK.finditer(text)]


def section(document, title):
    """From a heading to the next one that is no deeper."""
    text = document.read_text()
    begin = re.search(f"^(#+) {re.escape(title)}$", text, re.MULTILINE)
    assert begin, title
    end = re.search(f"^#{{1,{len(begin[1])}}} ", text[begin.end():], re.MULTILINE)
    return text[begin.end():][:end.start() if end else None]


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_every_piece_of_code_stands_in_the_file_that_it_names(document):
    for source, language, text in blocks(document.read_text()):
        assert source or language not in QUOTED, f"names no file:\n{text}"
        if source:
            assert "\n" + text in "\n" + (SOURCE / source).read_text(), source


@pytest.mark.parametrize("name", ["README.md", "docs/plugin-guide.md"])
def test_there_is_code_to_look_at(name):
    assert QUOTED & {language for _, language, _ in blocks((SOURCE / name).read_text())}


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_every_link_leads_somewhere(document):
    text = document.read_text()
    for target in re.findall(r"\]\(([^)]+)\)", text):
        path, _, heading = target.partition("#")
        assert not re.match("[a-z]+:", target), f"{target} cannot be looked up here"
        linked = document.parent / path if path else document
        assert linked.exists(), target
        if heading:
            titles = re.findall(r"^#+ (.*)$", linked.read_text(), re.MULTILINE)
            anchors = [re.sub("[^a-z0-9 -]", "", title.lower()).replace(" ", "-")
                       for title in titles]
            assert heading in anchors, target


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_every_file_that_is_named_by_its_path_is_there(document):
    folders = "|".join(path.name for path in SOURCE.iterdir()
                       if path.is_dir() and path.name != "build")
    for path in re.findall(rf"`((?:{folders})/[A-Za-z0-9_./-]*)`", document.read_text()):
        assert (SOURCE / path).exists(), path


def linked_files(text):
    return [path for path in re.findall(r"\]\(\.\./([^)#]+)\)", text) if (SOURCE / path).is_file()]


def test_every_source_file_is_listed_once():
    listed = linked_files(section(ARCHITECTURE, "Every source file"))
    assert len(listed) == len(set(listed)), "a file is listed twice"
    assert set(listed) == {str(path.relative_to(SOURCE)) for layer in LAYERS
                           for path in (SOURCE / layer).rglob("*") if path.suffix in (".cpp", ".h")}


@pytest.mark.parametrize("document", LINKING, ids=lambda path: path.name)
def test_every_file_that_is_named_is_linked(document):
    """`host/main.cpp` is to be [`main.cpp`](../host/main.cpp)."""
    named = re.findall(r"(?<!\[)`[A-Za-z0-9_./-]+\.(?:cpp|h|py|map|cmake)`", document.read_text())
    assert not named, document


@pytest.mark.parametrize("document", LINKING, ids=lambda path: path.name)
def test_every_name_behind_a_link_stands_in_the_file(document):
    """[`main.cpp`](../host/main.cpp), `serve`"""
    for path, name in re.findall(r"\]\(\.\./([^)#]+)\), `(\w+)`", document.read_text()):
        assert re.search(rf"\b{name}\b", (SOURCE / path).read_text()), f"{name} in {path}"


def figure(document, row, column):
    """The number in the first row of the tables of docs/ whose head matches."""
    cells = next(cells for cells in rows((SOURCE / "docs" / document).read_text())
                 if re.match(row, cells[0]))
    return float(cells[column].split()[0].replace(",", ""))


def test_the_figures_of_the_readme_are_those_that_were_measured():
    text = (SOURCE / "README.md").read_text()
    kib, = re.findall(r"code size \| under (\d+) KiB", text)
    armhf = 2
    assert figure("footprint.md", "together$", armhf) < int(kib) * 1024
    (kib, requests), = re.findall(r"memory \| under (\d+) KiB .* after ([\d,]+) requests", text)
    assert figure("footprint.md", f"private memory after {requests} requests .*beyond the bare", 1) \
        < int(kib)
    allocations, = re.findall(r"work \| (\d+) more heap allocations per request", text)
    assert figure("benchmarks.md", r"allocations \w+ request beyond the bare loop", 1) \
        == int(allocations)


def rows(text):
    """The cells of each row of the tables, without the rows of their heads."""
    cells = [[cell.strip() for cell in line.strip("|").split("|")]
             for line in text.splitlines() if line.startswith("|")]
    return [row for row, head in zip(cells, [*cells[1:], [""]])
            if "---" not in row[0] and "---" not in head[0]]


def written_sources():
    return [path for folder in ("fcgiServer", "platform", "host", "kit/include", "examples/phone/src")
            for path in sorted((SOURCE / folder).rglob("*")) if path.suffix in (".cpp", ".h")]


def test_the_tables_of_log_lines_have_every_line_that_a_source_writes_and_no_other():
    told = [(line.strip("`"), level)
            for line, level, *_ in rows(section(OPERATIONS, "What each line means"))]
    assert len(told) == len(set(told)), "a line is there twice"
    assert set(told) == {line for path in written_sources() for line in log_lines.lines_of(path)}


def test_there_is_no_other_way_to_the_log_than_those_that_the_tables_are_made_of():
    elsewhere = {str(path.relative_to(SOURCE)) for path in written_sources()
                 if log_lines.writes_in_another_way(path)}
    assert elsewhere == {"host/daemon.cpp", "host/failure.h", "host/main.cpp",
                         "host/signal_commands.cpp", "platform/log/log_writer.cpp", "platform/tmpl/tmpl.cpp"}


def test_the_table_of_signals_has_those_that_the_daemon_knows():
    known = {signal.replace(" ", "") for path in (SOURCE / "host").glob("*.[ch]*")
             for signal in re.findall(r"\bSIG(?:RTMIN ?\+ ?\d|[A-Z0-9]+)\b", path.read_text())}
    told = [row[0].split(", ") for row in rows(section(OPERATIONS, "Signals"))]
    assert {signal for signals in told for signal in signals} == known


def test_the_exit_statuses_are_those_of_the_daemon_s_help():
    help_text = (SOURCE / "host/options.cpp").read_text()
    shown = re.findall(r'^    "\s+(\d+(?:, \d+)*)  ', help_text, re.MULTILINE)
    assert [row[0] for row in rows(section(OPERATIONS, "Exit statuses"))] == shown


def test_the_status_line_is_explained_key_by_key():
    line = (SOURCE / "host/status.cpp").read_text().partition('return "status')[2]
    keys = re.findall("([a-z_]+)=", line)
    assert [row[0].strip("`") for row in rows(section(OPERATIONS, "The status line"))] == keys


@pytest.fixture(scope="module")
def sources(tmp_path_factory):
    """This project as somebody has got it."""
    return pathlib.Path(shutil.copytree(
        SOURCE, tmp_path_factory.mktemp("somewhere") / "fcgiServer",
        ignore=shutil.ignore_patterns("build", ".git", "node_modules", "__pycache__")))


def page(address):
    """What is served there; nothing while nobody serves."""
    try:
        with urllib.request.urlopen(address, timeout=10) as answer:
            return answer.read().decode()
    except (urllib.error.URLError, ConnectionError):
        return ""


def wait_for_page(serving, log, address, text):
    end = time.monotonic() + SERVING
    while text not in page(address):
        assert serving.poll() is None and time.monotonic() < end, log.read_text()
        time.sleep(1)


def run_shell(command, folder, sources):
    subprocess.run(["bash", "-ec", command], cwd=folder, check=True,
                   env=dict(os.environ, FCGISERVER=str(sources)))


def write_files(folder, part):
    """The files of the guide, under their own names in the project that they make."""
    for source, language, text in blocks(part):
        if language in QUOTED:
            path = folder / pathlib.Path(source).relative_to("tests/package/first")
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)


def test_the_guide_leads_from_an_empty_folder_to_a_page(sources, tmp_path):
    part = section(GUIDE, "From an empty folder to a page")
    start, = [text for _, language, text in blocks(part) if language == "sh"]
    address = re.search("http://[^ >)`]+", part)[0]
    write_files(tmp_path, part)
    port = free_port()
    log = tmp_path.parent / "serve.log"
    # Another port than the guide's, which may be taken.
    command = f"exec {start.strip()} --port {port}"
    with log.open("w") as output:
        serving = subprocess.Popen(["bash", "-ec", command], cwd=tmp_path, stdout=output,
                                   stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                   env=dict(os.environ, FCGISERVER=str(sources)))
    try:
        here = address.replace(":8080", f":{port}")
        wait_for_page(serving, log, here, f"<h1>This is {socket.gethostname()}.</h1>")
        template = tmp_path / "www/WEB-INFO/templates/first.html"
        template.write_text(template.read_text().replace("This is", "Here is"))
        wait_for_page(serving, log, here, f"<h1>Here is {socket.gethostname()}.</h1>")
    finally:
        serving.terminate()
        serving.wait(60)

    hello = shutil.copytree(SOURCE / "examples/hello", tmp_path / "hello")
    commands, = [text for _, language, text in blocks(section(GUIDE, "Tests"))
                 if language == "sh"]
    run_shell(commands, hello, sources)
