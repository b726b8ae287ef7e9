"""scripts/reference: it shows the contracts of the headers, and every declaration has one."""

import html
import pathlib
import re
import shutil
import subprocess

import pytest

SOURCE = pathlib.Path(__file__).resolve().parent.parent.parent


@pytest.fixture(scope="module")
def sources(tmp_path_factory):
    """A copy of this project."""
    return pathlib.Path(shutil.copytree(
        SOURCE, tmp_path_factory.mktemp("somewhere") / "fcgiServer",
        ignore=shutil.ignore_patterns("build", ".git", "node_modules", "__pycache__")))


def make_reference(folder):
    return subprocess.run([folder / "scripts/reference"], text=True, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


@pytest.fixture(scope="module")
def reference(sources):
    made = make_reference(sources)
    assert (made.returncode, made.stdout) == (0, "")
    return sources / "build/reference/html"


def squeezed(text):
    return "".join(text.split())


def text_of(page):
    """Returns the visible text of a page without white space."""
    return squeezed(html.unescape(re.sub(r"(?s)<script.*?</script>|<[^>]*>", "", page.read_text())))


# The page, a declaration on it, and part of its contract.
@pytest.mark.parametrize("page, declaration, promise", [
    # A comment for one declaration, with a term; one for several; one before a template.
    ("cgi_8h", "char * CGI_encode_url(", "The caller frees the result with free(3);"),
    ("cgi_8h", "Detailed Description", "Null any pointer may be null; nothing harmful is done"),
    ("tmpl_8h", "int TMPL_web_write(", "Result 0, or 1 when a file cannot be read, 2 when"),
    ("tmpl_8h", "Detailed Description", '<TMPL_VAR name="x" default="y"> y when x is absent'),
    ("classWebDebug", "void WebDebug::warn(", "Writes one record at the syslog level of the function's name"),
    ("classHttpSession", "int HttpSession::getLastAccessedTime(", "Seconds of the system's tick"),
    ("classHttpSessionImpl", "bool HttpSessionImpl::setAttribute(", "replacing what was there."),
    ("classFCGIServer", "int FCGIServer::run(", "Accepts and serves requests until accepting fails"),
    ("classQKHashMap", "FUN >::put(", "An entry that is already there gets"),
    ("classkit_1_1Page", "kit::Page::answer(", "Keep no reference to the two objects"),
    ("plugin_8h", "#define KIT_SERVLET(", "Defines and exports the creation function"),
    # Beside a member.
    ("structkit_1_1Cookie", "bool kit::Cookie::secure", "sent over HTTPS only"),
    # A class that is described at the top of its file, with the example from there.
    ("classkit_1_1SessionData", "Class Template Reference", "Data that a plug-in keeps for each"),
    ("classkit_1_1SessionData", "Detailed Description", 'kit::SessionData<Cart> carts("cart");'),
    ("index", "Writing a host", "FCGIServer"),
])
def test_the_contract_of_a_declaration_is_shown_with_it(reference, page, declaration, promise):
    text = text_of(reference / f"{page}.html")
    _, found, behind = text.rpartition(squeezed(declaration))
    assert found
    assert squeezed(promise) in behind[:1000]


@pytest.mark.parametrize("page", ["classkit_1_1Request", "classServletContainer"])
def test_what_is_private_is_not_shown(reference, page):
    text = text_of(reference / f"{page}.html")
    assert "m_raw" not in text and "createServlet" not in text


@pytest.mark.parametrize("header, where, declaration, name", [
    ("platform/include/cgi.h", "// Adds the fields of a query",
     "int CGI_forgotten(void);", "CGI_forgotten"),
    ("fcgiServer/include/HttpSession.h", "protected:", "    virtual void forget() = 0;", "forget"),
    ("kit/include/kit/secrets.h", "// Returns 32 hexadecimal digits",
     "class Forgotten {\npublic:\n    // Told.\n    void tell();\n};", "Forgotten"),
])
def test_a_declaration_without_a_contract_is_an_error(sources, header, where, declaration, name):
    path = sources / header
    before = path.read_text()
    assert before.count(where) == 1
    path.write_text(before.replace(where, f"\n{declaration}\n\n{where}"))
    try:
        made = make_reference(sources)
    finally:
        path.write_text(before)
    assert made.returncode != 0
    assert re.search(rf"\b{name}\b.* is not documented", made.stdout)
