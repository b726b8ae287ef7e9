"""The small changes of a C++ source that its tests should notice: a condition turned round, a bound
moved by one, a constant with another value."""

import collections
import dataclasses
import re

# What is replaced by what. A number is replaced by the next one.
REPLACEMENTS = [
    (" == ", " != "), (" != ", " == "), (" <= ", " < "), (" >= ", " > "), (" < ", " <= "),
    (" > ", " >= "), (" && ", " || "), (" || ", " && "), ("true", "false"), ("false", "true"),
    ("!", ""),
]
PATTERNS = {
    "true": r"\btrue\b",
    "false": r"\bfalse\b",
    "!": r"(?<=[( ])!(?=[a-zA-Z(])",
}
NUMBER = r"(?<![\w.\"'])\d+(?![\w.\"'])"
NO_STATEMENT = re.compile(r"\s*(#|template|static_assert|assert\(|//|$)")


@dataclasses.dataclass(frozen=True)
class Change:
    path: str
    line: int  # from 0
    before: str
    after: str
    copy: int = 1  # of the same change in the same file

    def __str__(self):
        which = f" ({self.copy})" if self.copy > 1 else ""
        return f"{self.path}{which}: {self.before.strip()} -> {self.after.strip()}"

    def made_in(self, text):
        lines = text.splitlines(True)
        lines[self.line] = self.after
        return "".join(lines)


def changes_of(path, text):
    """All changes of the source `text`, in the order of its lines."""
    copies = collections.Counter()
    found = []
    for number, line in enumerate(text.splitlines(True)):
        if not NO_STATEMENT.match(line):
            for changed in changed_lines(line):
                copies[line, changed] += 1
                found.append(Change(path, number, line, changed, copies[line, changed]))
    return found


def changed_lines(line):
    code = without_texts(line)
    for old, new in REPLACEMENTS:
        for match in re.finditer(PATTERNS.get(old, re.escape(old)), code):
            yield line[:match.start()] + new + line[match.end():]
    for match in re.finditer(NUMBER, code):
        yield line[:match.start()] + str(int(match[0]) + 1) + line[match.end():]


def without_texts(line):
    """As long as `line`, with nothing to be found in its literals and its comment."""
    return re.sub(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)*\'|//.*',
                  lambda match: '"' * len(match[0]), line)
