"""What is wrong with a project: read from the output of a build and of servlet_check, and shown as a page."""

import dataclasses
import html
import json
import pathlib
import re

CONTEXT = 4  # lines shown before and after the wrong one
MAX_PLACES = 5
MAX_LINE = 400  # characters of a line
MAX_OUTPUT = 20_000  # characters

# How g++, clang++ and the linker name a place, and how CMake does in two ways.
PLACES = [re.compile(pattern, re.MULTILINE) for pattern in (
    r"^(?P<file>[^:\n]+):(?P<line>\d+):(?:\d+:)? "
    r"(?:(?:fatal )?error: |(?=undefined reference ))(?P<message>.*)$",
    r"^CMake Error (?:\(dev\) )?at (?P<file>[^:\n]+):(?P<line>\d+).*\n(?P<message>(?:(?:  .*)?\n)+)",
    r"^CMake Error: Error in cmake code at\n(?P<file>[^:\n]+):(?P<line>\d+):\n(?P<message>.*)$")]

# How servlet_check, which sees no source code, names a template that a library needs.
MISSING_TEMPLATE = re.compile(r'names the template ("[^"]+"), which does not exist')


@dataclasses.dataclass(frozen=True)
class Place:
    file: pathlib.Path
    line: int  # from 1
    message: str


@dataclasses.dataclass(frozen=True)
class Problem:
    headline: str
    places: tuple = ()
    output: str = ""


def of_build(output, project, build):
    """Returns the problem of a build that failed. Relative paths begin at one of the two folders."""
    def whole(path):
        paths = [(folder / path).resolve() for folder in (project, build)]
        return next(filter(pathlib.Path.is_file, paths), paths[0])

    found = sorted((match.start(), match["file"], int(match["line"]), " ".join(match["message"].split()))
                   for pattern in PLACES for match in pattern.finditer(output))
    different = list(dict.fromkeys(match[1:] for match in found))[:MAX_PLACES]
    places = tuple(Place(whole(file), line, message) for file, line, message in different)
    return Problem("The project does not build", places, output)


def of_check(findings, project):
    """Returns the problem that servlet_check's JSON reports, or None if there is none.
    project.source_of(path) returns the project's file that was installed at `path`, and
    project.place_of(text) the file and the line of the source code that has `text`, or None."""
    def place(finding):
        file, line, message = pathlib.Path(finding["file"]), finding["line"], finding["message"]
        named = MISSING_TEMPLATE.search(message)
        found = named and project.place_of(named[1])
        return Place(*(found or (project.source_of(file), line)), message)

    places = tuple(place(finding) for finding in json.loads(findings)
                   if finding["severity"] == "problem")
    if not places:
        return None
    return Problem("The pages would fail on the device", places[:MAX_PLACES],
                   "".join(f"{place.file}:{place.line}: {place.message}\n" for place in places))


def as_page(problem, project, script):
    """Returns an HTML page. `script` is markup; everything else is escaped."""
    headline = _escaped(problem.headline)
    places = "".join(_section(place, project) for place in problem.places)
    output = _escaped(problem.output[-MAX_OUTPUT:])
    if output:
        is_open = "" if places else " open"
        output = (f"<details{is_open}><summary>Output</summary>"
                  f'<pre tabindex="0">{output}</pre></details>\n')
    return f"""<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{headline}</title>
<link rel="stylesheet" href="/servlet/development/problem.css">
</head>
<body>
<main>
<h1>{headline}</h1>
<p class="hint">Saved files are built and checked at once. This page goes away by itself when the problem is solved.</p>
{places}{output}</main>
{script}</body>
</html>
"""


def _section(place, project):
    shown = place.file
    if place.file.is_relative_to(project):
        shown = place.file.relative_to(project)
    return f"""<section>
<h2>{_escaped(str(shown))}, line {place.line}</h2>
<p>{_escaped(place.message)}</p>
{_excerpt(place)}</section>
"""


def _excerpt(place):
    """Returns the lines around the place; nothing if the file cannot be read or is shorter."""
    try:
        lines = place.file.read_text(errors="replace").split("\n")
    except OSError:
        return ""
    if not 1 <= place.line <= len(lines):
        return ""
    first = max(place.line - CONTEXT, 1)
    items = "".join(_item(line, number == place.line)
                    for number, line in enumerate(lines[first - 1:place.line + CONTEXT], first))
    return f'<ol start="{first}" tabindex="0" aria-label="The lines around it">{items}</ol>\n'


def _item(line, is_wrong):
    mark = ' aria-current="true"' if is_wrong else ""
    return f"<li{mark}>{_escaped(line[:MAX_LINE])}</li>"


def _escaped(text):
    """Escapes markup, and replaces the characters that must not be in an HTML document."""
    return html.escape(re.sub(
        r"[^\t\n\x20-\x7e\xa0-\ud7ff\ue000-\ufffd\U00010000-\U0010ffff]", "\ufffd", text))
