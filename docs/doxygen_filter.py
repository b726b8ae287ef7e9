#!/usr/bin/env python3
"""Prints a header of this project for Doxygen, with its comments turned into documentation.

The headers have ordinary comments, laid out for people who read the header itself:

    // A description and the contract.
    //   Threads  a term and its explanation; continuation lines
    //            are indented further.
    //
    //     anExample(ofCode);
    int declaration();
    int another(); // a member's own description

A comment applies to all declarations that follow it, up to an empty line, except those with a comment
of their own and destructors. The comment at the top describes the file, and also the class that the
file is named after. Comments inside functions are left alone.
"""

import html
import pathlib
import re
import sys

COMMENT = re.compile(r"(?P<indent> *)//(?P<text>.*)$")
TRAILING = re.compile(r"""(?P<code>(?:[^/"']|"[^"]*")*[;,]) +// (?P<text>.*)$""")
TERM = re.compile(r"   (?P<term>\S+(?: \S+)*)(?:  +(?P<text>\S.*))?$")
EXAMPLE = " " * 5
CLASS = re.compile(r"\b(?:class|struct) (?P<name>\w+)[^;()]*\{$")
SCOPE = re.compile(r'(?:template <.*> )?(?:class|struct|union|enum|namespace|extern "C")(?!\w)')
NO_DECLARATION = re.compile(r" *(?:#(?!define)|\}|(?:public|protected|private):)")
# Declarations that need no description.
SELF_EVIDENT = re.compile(r"= (?:delete|default);$")


def escaped(text):
    """Escapes the text, so that Doxygen finds no command, tag or link in it."""
    text = re.sub(r"([\\@#%$]|(?<!\w)::)", r"\\\1", html.escape(text, quote=False))
    return re.sub(r"`([^`]+)`", r"<code>\1</code>", text)


def documentation(comment):
    """Yields the lines of a comment in Doxygen's syntax."""
    kind, end = "prose", []
    for line in comment:
        term = TERM.match(line)
        if term:
            if kind != "terms":
                yield from end + ["<dl>"]
            kind, end = "terms", ["</dl>"]
            yield f"<dt>{escaped(term['term'])}</dt><dd>{escaped(term['text'] or '')}"
        elif kind != "terms" and line.startswith(EXAMPLE):
            if kind != "example":
                yield from end + ["@code{.cpp}"]
            kind, end = "example", ["@endcode"]
            yield line[len(EXAMPLE):]
        elif line.startswith(EXAMPLE) or not line.strip():
            yield escaped(line.strip())
        else:
            yield from end
            kind, end = "prose", []
            yield escaped(line.strip())
    yield from end


def is_last(line, declaration):
    """Whether the line is the last one of a declaration, not counting a function's body."""
    if declaration.startswith("#"):
        return not line.endswith("\\")
    return line.split(" //")[0].rstrip().endswith((";", "{", "}"))


def declaration_at(lines, start):
    """Returns the declaration that starts at that line, without its body, as one line."""
    end = start
    while not is_last(lines[end], lines[start]):
        end += 1
    return " ".join(line.strip() for line in lines[start:end + 1])


def indent_of(line):
    return len(line) - len(line.lstrip())


class Header:
    def __init__(self, path):
        self.lines = path.read_text().splitlines()
        self.name = path.stem.replace("_", "").lower()
        self.at = 0
        self.file_comment = []
        self.comment = []  # for the next declaration
        self.is_its_first = False

    def take_comment(self):
        taken = []
        while self.at < len(self.lines) and (match := COMMENT.match(self.lines[self.at])):
            taken.append(match["text"])
            self.at += 1
        return [line for line in taken if not line.startswith(" NOLINT")]

    def is_named_after(self, declaration):
        match = CLASS.search(declaration)
        return match and match["name"].lower() in (self.name, self.name + "impl")

    def take_declaration(self):
        """Yields a function with its body, but only the first line of a class."""
        first = self.lines[self.at]
        declaration = declaration_at(self.lines, self.at)
        comment = self.comment
        if "~" in declaration and not self.is_its_first:
            comment = []
        self.is_its_first = False
        if self.is_named_after(declaration):
            comment = self.file_comment + ["", *comment]
        if comment and not SELF_EVIDENT.search(declaration):
            yield from ("/// " + line for line in documentation(comment))
        end = " " * indent_of(first) + "}"
        has_body = (declaration.endswith("{") and
                    not declaration.startswith("#") and not SCOPE.match(declaration))
        while True:
            line = self.lines[self.at]
            self.at += 1
            member = TRAILING.match(line)
            yield f"{member['code']} ///< {escaped(member['text'])}" if member else line
            if line.startswith(end) if has_body else is_last(line, declaration):
                break
        if declaration.endswith("{") and not has_body:
            self.comment = []

    def documented(self):
        self.file_comment = self.take_comment()
        yield "/// @file"
        yield from ("/// " + line for line in documentation(self.file_comment))
        while self.at < len(self.lines):
            line = self.lines[self.at]
            if COMMENT.match(line):
                self.comment = self.take_comment()
                self.is_its_first = True
            elif not line.strip() or NO_DECLARATION.match(line):
                self.comment = []
                self.at += 1
                yield line
            else:
                yield from self.take_declaration()


print("\n".join(Header(pathlib.Path(sys.argv[1])).documented()))
