#!/usr/bin/env python3
"""Writes every template once per language, with the texts of that language in place of their keys.

The folder of texts holds LANGUAGE.txt with one "key = text" per line; empty lines and lines that
begin with "#" are skipped. In a template, {{key}} stands for the text and {{lang}} for the
language. {{help:ID}} stands for the help of the field with that id: a paragraph with the text
"help.TEMPLATE.ID" and the id "ID-hint", which the field must name in aria-describedby. Texts are
plain text: characters that are markup in HTML are escaped. {name} in a text stands for a variable
of the template; where the page does not set it, {name} stays for the script to fill in. The
indentation of a template is left out: browsers ignore it, except in pre and textarea, so nothing in
these may be indented.
"""

import argparse
import html
import pathlib
import re
import sys

KEY = r"[a-z][A-Za-z0-9.-]*"
LINE = re.compile(rf"({KEY}) = (.*[^ ])")
MARK = re.compile(r"\{\{(" + KEY + r")\}\}")
HELP = re.compile(r"\{\{help:([A-Za-z][A-Za-z0-9-]*)\}\}")
INDENTATION = re.compile(r"^[ \t]+", re.MULTILINE)
VARIABLE = re.compile(r"\{([A-Za-z][A-Za-z0-9]*)\}")
LANGUAGE_KEY = "lang"


def read(path):
    """Returns the file's text with its line ends as they are, so that templates keep theirs."""
    return path.read_bytes().decode("utf-8")


def read_texts(path, problems):
    """Returns the texts of one language by key."""
    texts = {}
    for line in re.split(r"\r?\n", read(path)):
        if not line or line.startswith("#"):
            continue
        match = LINE.fullmatch(line)
        if not match:
            problems.append(f'{path}: neither "key = text" nor a comment: {line}')
            continue
        key, text = match.groups()
        if key in texts:
            problems.append(f'{path}: "{key}" is defined twice')
        if "{{" in text:
            problems.append(f'{path}: "{key}" contains {{{{')
        texts[key] = text
    return texts


def variables(text):
    """Returns the names of the template variables in the text."""
    return set(VARIABLE.findall(text))


def read_template(path):
    """Returns the template with the paragraphs of its help, and without its indentation."""
    paragraph = rf'<p class="hint" id="\1-hint">{{{{help.{path.stem}.\1}}}}</p>'
    return INDENTATION.sub("", HELP.sub(paragraph, read(path)))


def compare(reference_path, reference, path, texts, problems):
    """Reports keys that only one of two languages has, and texts whose variables differ."""
    for key, text in reference.items():
        if key not in texts:
            problems.append(f'{path}: "{key}" is missing')
        elif variables(texts[key]) != variables(text):
            problems.append(f'{path}: "{key}" uses other variables than in {reference_path.name}')
    for key in texts:
        if key not in reference:
            problems.append(f'{reference_path}: "{key}" is missing')


def check_template(path, template, texts, problems):
    """Reports marks in the template that are no known key; returns the keys of the others."""
    keys = set(MARK.findall(template)) - {LANGUAGE_KEY}
    for key in sorted(keys - texts.keys()):
        problems.append(f'{path}: "{key}" is unknown')
    for rest in re.findall(r"\{\{[^\n]*", MARK.sub("", template)):
        problems.append(f"{path}: not a key: {rest}")
    return keys


def to_html(text):
    """Returns the text as HTML, with its variables as tags of the template language."""
    escaped = html.escape(text).replace("&#x27;", "&#39;")
    return VARIABLE.sub(r'<TMPL_VAR name="\1" default="{\1}">', escaped)


def translate(template, language, texts):
    """Returns the template in one language."""
    return MARK.sub(
        lambda mark: language if mark[1] == LANGUAGE_KEY else to_html(texts[mark[1]]), template)


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--texts", type=pathlib.Path, required=True, metavar="FOLDER")
    parser.add_argument("--templates", type=pathlib.Path, required=True, metavar="FOLDER")
    parser.add_argument("--output", type=pathlib.Path, required=True, metavar="FOLDER")
    parser.add_argument("--languages", nargs="+", required=True, metavar="LANGUAGE")
    parser.add_argument("--names", nargs="+", required=True, metavar="TEMPLATE",
                        help="file names in the folder of templates")
    return parser.parse_args()


def main():
    arguments = parse_arguments()
    problems = []
    paths = {language: arguments.texts / f"{language}.txt" for language in arguments.languages}
    texts = {language: read_texts(path, problems) for language, path in paths.items()}
    first = arguments.languages[0]
    for language in arguments.languages[1:]:
        compare(paths[first], texts[first], paths[language], texts[language], problems)

    templates = {name: read_template(arguments.templates / name) for name in arguments.names}
    used = set()
    for name, template in templates.items():
        used |= check_template(arguments.templates / name, template, texts[first], problems)
    for key in texts[first]:
        if key not in used:
            problems.append(f'{paths[first]}: "{key}" is never used')
    if problems:
        sys.exit("\n  ".join(["The texts and the templates do not match:", *problems]))

    for language in arguments.languages:
        folder = arguments.output / language
        folder.mkdir(parents=True, exist_ok=True)
        for name, template in templates.items():
            page = translate(template, language, texts[language])
            (folder / name).write_bytes(page.encode("utf-8"))


if __name__ == "__main__":
    try:
        main()
    except (OSError, UnicodeDecodeError) as error:
        sys.exit(f"translate.py: {error}")
