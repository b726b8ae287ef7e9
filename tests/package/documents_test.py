"""The documents: quoted code, links, paths, tables and commands are right."""

import contextlib
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
import shown_commands
from ports import free_port

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent
GUIDE = SOURCE / "docs/plugin-guide.md"
CHAPTERS = sorted((SOURCE / "docs/guide").glob("*.md"))
BY_HAND = SOURCE / "docs/guide/minimal-plug-in.md"
OPERATIONS = SOURCE / "docs/operations.md"
DOCUMENTS = [*sorted(SOURCE.glob("*.md")), *sorted((SOURCE / "docs").rglob("*.md"))]
REMOTE_EVENTS = SOURCE / "docs/remote-events.md"
TROUBLESHOOTING = SOURCE / "docs/troubleshooting.md"
ARCHITECTURE = SOURCE / "docs/architecture.md"
# The pages that lead through the sources link to every file that they name.
LINKING = [ARCHITECTURE, *(SOURCE / "docs" / f"{name}.md"
                           for name in ("hosts", "request-journey", "threads", "ownership", "phone"))]
LAYERS = ("base", "fcgiServer", "platform", "host")

# A fenced block, with the comment before it that names the quoted file, if any.
BLOCK = re.compile(r"(?:<!-- (?P<source>[^ ]+) -->\n)?^```(?P<language>.*)\n(?P<text>(?:.*\n)*?)```$",
                   re.MULTILINE)
QUOTED = {"cpp", "cmake", "xml", "html", "conf"}
SERVING = 900  # seconds for a first build


def blocks(text):
    return [(match["source"], match["language"], match["text"]) for match in BLOCK.finditer(text)]


def section(document, title):
    """Returns the text below a heading, up to the next one of the same or a higher level."""
    text = document.read_text()
    begin = re.search(f"^(#+) {re.escape(title)}$", text, re.MULTILINE)
    assert begin, title
    end = re.search(f"^#{{1,{len(begin[1])}}} ", text[begin.end():], re.MULTILINE)
    return text[begin.end():][:end.start() if end else None]


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_quoted_code_is_in_the_file_that_it_names(document):
    for source, language, text in blocks(document.read_text()):
        assert source or language not in QUOTED, f"names no file:\n{text}"
        if source:
            assert "\n" + text in "\n" + (SOURCE / source).read_text(), source


@pytest.mark.parametrize("document", [SOURCE / "README.md", GUIDE, *CHAPTERS],
                         ids=lambda path: path.name)
def test_code_is_quoted(document):
    if document.name != "servlet-check.md":  # which is about a command
        assert QUOTED & {language for _, language, _ in blocks(document.read_text())}


def test_every_chapter_is_in_the_table_of_the_guide():
    listed = re.findall(r"^\| .* \| \[.*\]\(guide/(.*)\) \|$", section(GUIDE, "Next steps"), re.MULTILINE)
    assert sorted([*listed, BY_HAND.name]) == [path.name for path in CHAPTERS]


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_links_resolve(document):
    text = BLOCK.sub("", document.read_text())
    for target in re.findall(r"\]\(([^)]+)\)", text):
        path, _, heading = target.partition("#")
        assert not re.match("[a-z]+:", target), f"{target} cannot be checked here"
        linked = document.parent / path if path else document
        assert linked.exists(), target
        if heading:
            titles = re.findall(r"^#+ (.*)$", linked.read_text(), re.MULTILINE)
            anchors = [re.sub("[^a-z0-9 -]", "", title.lower()).replace(" ", "-")
                       for title in titles]
            assert heading in anchors, target


@pytest.mark.parametrize("document", DOCUMENTS, ids=lambda path: path.name)
def test_paths_exist(document):
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


def test_every_attack_is_listed_once():
    """docs/security.md says what each program in tests/attacks/ proves."""
    listed = re.findall(r"^\|.*\| `(tests/attacks/\w+\.py)` \|$",
                        section(SOURCE / "docs/security.md", "Attacks"), re.MULTILINE)
    assert sorted(listed) == sorted(str(path.relative_to(SOURCE)) for path
                                    in (SOURCE / "tests/attacks").glob("test_*.py"))


@pytest.mark.parametrize("document", LINKING, ids=lambda path: path.name)
def test_named_files_are_linked(document):
    """`host/main.cpp` must be written as [`main.cpp`](../host/main.cpp)."""
    named = re.findall(r"(?<!\[)`[A-Za-z0-9_./-]+\.(?:cpp|h|py|map|cmake)`", document.read_text())
    assert not named, document


@pytest.mark.parametrize("document", LINKING, ids=lambda path: path.name)
def test_names_after_a_link_are_in_the_linked_file(document):
    """As in [`main.cpp`](../host/main.cpp), `serve`."""
    for path, name in re.findall(r"\]\(\.\./([^)#]+)\), `(\w+)`", document.read_text()):
        assert re.search(rf"\b{name}\b", (SOURCE / path).read_text()), f"{name} in {path}"


def figure(document, row, column):
    """Returns the number in the first table row of a document whose first cell matches."""
    cells = next(cells for cells in rows((SOURCE / "docs" / document).read_text())
                 if re.match(row, cells[0]))
    return float(cells[column].split()[0].replace(",", ""))


def test_figures_of_the_readme_match_the_measurements():
    text = (SOURCE / "README.md").read_text()
    kib, = re.findall(r"code size \| under (\d+) KiB", text)
    armhf = 2
    assert figure("footprint.md", "together$", armhf) < int(kib) * 1024
    (kib, requests), = re.findall(r"memory \| under (\d+) KiB .* after ([\d,]+) requests", text)
    assert figure("footprint.md", f"private memory after {requests} requests.*beyond the bare", 1) \
        < int(kib)
    allocations, = re.findall(r"work \| at most (\d+) more heap allocations per page", text)
    assert figure("benchmarks.md", r"page: allocations beyond the prescribed loop", 1) \
        <= int(allocations)


def rows(text):
    """Returns the cells of each row of the tables, without the header rows."""
    cells = [[cell.strip() for cell in line.strip("|").split("|")]
             for line in text.splitlines() if line.startswith("|")]
    return [row for row, head in zip(cells, [*cells[1:], [""]])
            if "---" not in row[0] and "---" not in head[0]]


def written_sources():
    return [path for folder in ("fcgiServer", "platform", "host", "kit/include", "examples/phone/src")
            for path in sorted((SOURCE / folder).rglob("*")) if path.suffix in (".cpp", ".h")]


def test_log_line_tables_match_the_sources():
    listed = [(line.strip("`"), level)
              for line, level, *_ in rows(section(OPERATIONS, "What each line means"))]
    assert len(listed) == len(set(listed)), "a line is listed twice"
    assert set(listed) == {line for path in written_sources() for line in log_lines.lines_of(path)}


def test_no_other_source_writes_log_lines_in_another_way():
    elsewhere = {str(path.relative_to(SOURCE)) for path in written_sources()
                 if log_lines.writes_in_another_way(path)}
    assert elsewhere == {"host/daemon.cpp", "host/failure.h", "host/main.cpp",
                         "host/notice.cpp", "platform/log/log_writer.cpp", "platform/tmpl/tmpl.cpp"}


def test_troubleshooting_quotes_log_lines_exactly():
    known = names_in(first_cells(OPERATIONS, "What each line means"))
    tables = [cells for cells in rows(TROUBLESHOOTING.read_text()) if len(cells) == 4]
    quoted = [name for cells in tables for name in names_in(cells[:1]) if " " in name]
    assert len(quoted) > 12
    assert not [text for text in quoted if not any(text in line for line in known)]


def test_troubleshooting_names_a_test_for_each_cause():
    for *_, shown_by in rows(TROUBLESHOOTING.read_text()):
        path, _, case = re.fullmatch("`(.*)`", shown_by)[1].partition("::")
        assert re.search(rf"\b{case}\b", (SOURCE / path).read_text()) and case, shown_by


def names_in(cells):
    return [name for cell in cells for name in re.findall("`([^`]+)`", cell)]


def first_cells(document, title):
    return [row[0] for row in rows(section(document, title))]


def test_remote_events_match_the_sources():
    events = (SOURCE / "fcgiServer/request_rules.cpp").read_text().partition("kEvents[] =")[2]
    known = re.findall('"([^"]+)"', events.partition(";")[0])
    assert sorted(names_in(first_cells(REMOTE_EVENTS, "The events"))) == sorted(known)
    desk = (SOURCE / "examples/phone/src/model/desk_phone.cpp").read_text()
    keys = {*re.findall('key [!=]= "([A-Z_]+)"', desk), *"0123456789",
            *(f"L{line}" for line in range(1, 7))}
    listed = names_in(first_cells(REMOTE_EVENTS, "Keys"))
    assert len(listed) == len(set(listed)) and set(listed) == keys
    commands = re.findall('text == "([a-z_]+)"', desk)
    listed = names_in(first_cells(REMOTE_EVENTS, "Commands"))
    assert len(listed) == len(set(listed)) and set(listed) == set(commands)


@pytest.mark.parametrize("path", [
    "docs/guide/not-found.md", "docs/guide/safe-defaults.md", "docs/operations.md",
    "docs/reliability.md", "docs/request-journey.md", "docs/security.md", "packaging/man/servlet.xml.5",
    "tools/servlet_check/configuration.h"])
def test_the_answer_for_an_unknown_page_is_described_in_the_same_words(path):
    """tests/wire/test_pages.py checks that the container answers like this."""
    words = " ".join((SOURCE / path).read_text().split())
    assert "status 200 and the container's 404 page as text" in words


def test_signal_table_matches_the_daemon():
    known = {signal.replace(" ", "") for path in (SOURCE / "host").glob("*.[ch]*")
             for signal in re.findall(r"\bSIG(?:RTMIN ?\+ ?\d|[A-Z0-9]+)\b", path.read_text())}
    listed = [row[0].split(", ") for row in rows(section(OPERATIONS, "Signals"))]
    assert {signal for signals in listed for signal in signals} == known


def test_exit_statuses_match_the_help_text():
    help_text = (SOURCE / "host/options.cpp").read_text()
    shown = re.findall(r'^    "\s+(\d+(?:, \d+)*)  ', help_text, re.MULTILINE)
    assert [row[0] for row in rows(section(OPERATIONS, "Exit statuses"))] == shown


def test_status_line_table_has_every_key():
    line = (SOURCE / "host/status.cpp").read_text().partition('return "status')[2].partition(";")[0]
    keys = re.findall("([a-z_]+)=", line)
    assert [row[0].strip("`") for row in rows(section(OPERATIONS, "The status line"))] == keys


@pytest.fixture(scope="module")
def sources(tmp_path_factory):
    """A copy of the sources, as a user gets them."""
    return pathlib.Path(shutil.copytree(
        SOURCE, tmp_path_factory.mktemp("somewhere") / "fcgiServer",
        ignore=shutil.ignore_patterns("build", ".git", "node_modules", "__pycache__")))


def page(address):
    """Returns the page at the address; empty while no server answers."""
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
    """Writes the files that the guide quotes into the project folder, under their own names."""
    for source, language, text in blocks(part):
        if language in QUOTED:
            path = folder / pathlib.Path(source).relative_to("tests/package/first")
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)


def commands_of_the_first_page():
    """Returns the command that serves it, and those that test a project."""
    start, = shown_commands.commands(section(BY_HAND, "From an empty folder to a page"))
    return start, *shown_commands.commands(section(BY_HAND, "Tests"))


@contextlib.contextmanager
def served(command, folder, log, sources):
    """Serves a project; returns the process and its port. The documents' port may be in use."""
    port = free_port()
    with log.open("w") as output:
        serving = subprocess.Popen(["bash", "-ec", f"exec {command} --port {port}"], cwd=folder,
                                   stdout=output, stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL,
                                   env=dict(os.environ, FCGISERVER=str(sources)))
    try:
        yield serving, port
    finally:
        serving.terminate()
        serving.wait(60)


def test_the_guide_leads_from_an_empty_folder_to_a_page(sources, tmp_path):
    part = section(BY_HAND, "From an empty folder to a page")
    start, *commands = commands_of_the_first_page()
    address = re.search("http://[^ >)`]+", part)[0]
    write_files(tmp_path, part)
    log = tmp_path.parent / "serve.log"
    with served(start, tmp_path, log, sources) as (serving, port):
        here = address.replace(":8080", f":{port}")
        wait_for_page(serving, log, here, f"<h1>This is {socket.gethostname()}.</h1>")
        template = tmp_path / "www/WEB-INFO/templates/first.html"
        template.write_text(template.read_text().replace("This is", "Here is"))
        wait_for_page(serving, log, here, f"<h1>Here is {socket.gethostname()}.</h1>")

    hello = shutil.copytree(SOURCE / "examples/hello", tmp_path / "hello")
    run_shell("\n".join(commands), hello, sources)


def commands_of_a_project_from_the_sources():
    """Returns those of the first page, of the guide, and of the project's own."""
    from_readme = [command for command in shown_commands.commands((SOURCE / "README.md").read_text())
                   if "news" in command]
    from_guide = [command for command in shown_commands.commands(GUIDE.read_text())
                  if command.startswith('"$FCGISERVER/') and "news" in command]
    own = shown_commands.commands((SOURCE / "tools/servlet_new/sources.md").read_text())
    return *from_readme, *from_guide, *own


def test_the_sources_lead_to_a_project_of_ones_own(sources):
    """By the commands of the first page, then by those of the guide, then by the project's own."""
    create, serve, create_again, serve_again, serve_own, build, test = \
        commands_of_a_project_from_the_sources()
    outside = sources.parent
    project = outside / "news"
    log = outside / "news.log"

    def assert_serves(command, folder):
        with served(command, folder, log, sources) as (serving, port):
            wait_for_page(serving, log, f"http://127.0.0.1:{port}/servlet?p=news",
                          "<h1>Hello, stranger!</h1>")

    run_shell(create, sources, sources)
    assert_serves(serve, outside)
    shutil.rmtree(project)
    run_shell(create_again, outside, sources)
    assert_serves(serve_again, outside)
    assert_serves(serve_own.replace("@sources@", str(sources)), project)
    run_shell(f"{build}\n{test}".replace("@sources@", str(sources)), project, sources)
