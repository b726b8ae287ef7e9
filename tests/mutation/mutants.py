"""Makes mutants of a C++ source: in each of them one condition is negated, one bound moved by one,
or one constant replaced by the next number."""

import collections
import dataclasses
import re

# Text and its replacement. A number is replaced by the next one.
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
NOT_MUTATED = re.compile(r"\s*(#|template|static_assert|//|$)")
# An assertion states a precondition, which no test violates: its mutants cannot be killed.
ASSERTION = re.compile(r"\s*assert\(")


@dataclasses.dataclass(frozen=True)
class Mutant:
    path: str
    line: int  # from 0
    original: str
    mutated: str
    copy: int = 1  # counts equal mutants of one file

    def __str__(self):
        which = f" ({self.copy})" if self.copy > 1 else ""
        return f"{self.path}{which}: {self.original.strip()} -> {self.mutated.strip()}"

    def apply_to(self, text):
        lines = text.splitlines(True)
        lines[self.line] = self.mutated
        return "".join(lines)


def mutants_of(path, text):
    """Returns all mutants of the source `text`, in the order of its lines."""
    copies = collections.Counter()
    found = []
    for number, line in statements(text):
        for mutated in mutated_lines(line):
            copies[line, mutated] += 1
            found.append(Mutant(path, number, line, mutated, copies[line, mutated]))
    return found


def statements(text):
    """Yields the number and the text of each line that may be mutated."""
    in_assertion = False
    for number, line in enumerate(text.splitlines(True)):
        in_assertion = in_assertion or ASSERTION.match(line) is not None
        if not in_assertion and not NOT_MUTATED.match(line):
            yield number, line
        in_assertion = in_assertion and ";" not in without_literals(line)


def mutated_lines(line):
    code = without_literals(line)
    for old, new in REPLACEMENTS:
        for match in re.finditer(PATTERNS.get(old, re.escape(old)), code):
            yield line[:match.start()] + new + line[match.end():]
    for match in re.finditer(NUMBER, code):
        yield line[:match.start()] + str(int(match[0]) + 1) + line[match.end():]


def without_literals(line):
    """Returns `line` with quotes in place of its literals and its comment, at the same length."""
    return re.sub(r'"(?:[^"\\]|\\.)*"|\'(?:[^\'\\]|\\.)*\'|//.*',
                  lambda match: '"' * len(match[0]), line)
