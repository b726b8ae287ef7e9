"""Writes measured figures into a document, between the marks <!-- NAME --> and <!-- end of NAME -->."""


def replace_section(document, name, text):
    """Replaces the text between the two marks, which must exist, and keeps the marks."""
    before, mark, rest = document.read_text().partition(f"<!-- {name} -->\n")
    _, end, after = rest.partition(f"<!-- end of {name} -->\n")
    assert mark and end, f"{document} lacks the marks of {name}"
    document.write_text(f"{before}{mark}\n{text}\n{end}{after}")
