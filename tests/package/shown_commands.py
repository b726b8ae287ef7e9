"""The commands that the documents show."""

import re
import textwrap

from conftest import SOURCE

DOCUMENTS = sorted([*SOURCE.glob("*.md"), *(SOURCE / "docs").rglob("*.md"),
                    *(SOURCE / "tools").rglob("*.md"), *(SOURCE / "packaging").rglob("*.md"),
                    *(SOURCE / "packaging/man").iterdir()])
# Indented within a list.
BLOCK = re.compile(r"^( *)```(?P<language>.*)\n(?P<text>(?:.*\n)*?)\1```$", re.MULTILINE)
# Languages of blocks without commands; what follows "$ " in "text" and "" is one.
OTHER = {"", "text", "cpp", "cmake", "xml", "html", "conf", "ini", "js",
         "lua"}


def joined(text):
    """Returns a text with each command in one line."""
    return re.sub(r"\\\n *", "", text)


def statements(script):
    """Returns the commands of a script, without comments."""
    lines = joined(textwrap.dedent(script)).splitlines()
    return [line for line in (re.sub(r"(^| +)# .*", "", line) for line in lines) if line]


def scripts(text):
    """Returns the shell scripts of a Markdown text."""
    return [block["text"] for block in BLOCK.finditer(text) if block["language"] == "sh"]


def commands(text):
    """Returns the commands of a Markdown text."""
    found = []
    for block in BLOCK.finditer(text):
        if block["language"] == "sh":
            found += statements(block["text"])
        else:
            assert block["language"] in OTHER, f"is ```{block['language']} a command? Write ```sh"
            found += re.findall(r"^ *\$ (.*)$", joined(block["text"]), re.MULTILINE)
    return found


def commands_of_man_page(text):
    shown = re.findall(r"^\.Dl \$ (.*)$", text, re.MULTILINE)
    return [command.replace(r"\(dq", '"').replace(r"\-", "-") for command in shown]


def shown():
    """Returns all commands, each with the documents that show it."""
    found = {}
    for path in DOCUMENTS:
        of = commands if path.suffix == ".md" else commands_of_man_page
        for command in of(path.read_text()):
            found.setdefault(command, []).append(str(path.relative_to(SOURCE)))
    return found
