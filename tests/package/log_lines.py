"""The log lines that the sources can write, as docs/operations.md shows them: "…" stands for text that
is inserted at run time."""

import re

STRING = r'"(?:[^"\\]|\\.)*"'
TOKEN = re.compile(rf"(?P<string>{STRING})|'(?:[^'\\]|\\.)+'|\w+|\S")
COMMENT = re.compile(rf"({STRING})|//[^\n]*|/\*.*?\*/", re.DOTALL)
PLACEHOLDER = re.compile(r"%[-+ 0#]*[\d.]*(?:hh|h|ll|l|z)?[diouxXcsp]")

# The functions that write a line, and its level unless it is an argument. A line without a level goes
# to standard error only.
WEB = r"(?:getInstance\(\)|\blog)->{}\(\s*"
WRITERS = [
    (r"\bapp_log\([^,()]+,\s*(?P<level>[0-7]|LOG_\w+),\s*", None),
    (WEB.format("error"), "3"),
    (WEB.format("warn"), "4"),
    (WEB.format("info"), "6"),
    (r"LOG_WARNING, \"log\",\s*textOf\(", "4"),
    (r"\bsnprintf\(message, [^,]+,\s*", ""),
]
HOST_WRITERS = [
    (r"\blogNotice\(", "5"),
    (r"\breturn (?=\"(?:status|ready|stopped) )", "5"),
    (r"\bfail\((?:\w+|kSignalStatus \+ signal),\s*", ""),
    (r"\berror =\s*", ""),
    (r"\bfputs\(", ""),
]
LEVELS = {"LOG_ERR": "3", "LOG_WARNING": "4", "LOG_INFO": "6"}
# Sources must not write to the log or to standard error in other ways.
OTHER_WAYS = re.compile(r"\b(?:v?syslog|v?fprintf|fputs|perror)\(|\bstd::c(?:err|log)\b"
                        r"|\bwrite\(STDERR_FILENO|\bapp_log\(\w+, [a-z]+,")


def without_comments(source):
    return COMMENT.sub(lambda match: match[1] or " ", source)


def text_of(expression):
    """Returns the text that the C++ expression beginning here makes, or its first string if that is a
    format with arguments. None if it contains no text of its own."""
    depth = 0
    text = ""
    for token in TOKEN.finditer(expression):
        word = token[0]
        depth += (word == "(") - (word == ")")
        if depth < 0 or depth == 0 and word in ";,":
            break
        if token["string"]:
            text += word[1:-1]
        elif word != "+" and not text.endswith("…"):
            text += "…"
    text = text.replace("\\n", "").replace("\\\"", "\"")
    return PLACEHOLDER.sub("…", text) if text.strip("…") else None


def lines_of(path):
    """Returns (line, level) for each line that a source file writes."""
    source = without_comments(path.read_text())
    source = re.sub(rf"std::string\(({STRING})\)", r"\1", source)
    source = re.sub(r"systemError\(((?:[^()]|\(\))*)\)", r'\1 + ": " + reason', source)
    host = path.parent.name == "host"
    for begin, level in HOST_WRITERS if host else WRITERS:
        for match in re.finditer(begin, source):
            if text := text_of(source[match.end():]):
                yield (("fcgi_host: " + text.removeprefix("fcgi_host: ") if host else text),
                       LEVELS.get(match["level"], match["level"]) if level is None else level)


def writes_in_another_way(path):
    return bool(OTHER_WAYS.search(without_comments(path.read_text())))
