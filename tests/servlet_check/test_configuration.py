"""Findings in servlet.xml."""

import pytest

SKIPPED = 'is skipped: the container logs "PluginLoader::init() find element neither servlet nor ' \
          'listener"'
UNKNOWN = "status 200 and the container's 404 page as text"
NO_SYMBOL = f'each request for it is answered with {UNKNOWN}, and the container logs ' \
    '"Cannot load symbol create."'


def servlet(name, function=None):
    return f'<servlet id="{name}" createfunction="{function or "create"}"/>'


def listener(function):
    return f'<listener createfunction="{function}"/>'


@pytest.fixture
def configured(phone):
    """Configures a device whose plug-in exports the functions of these tests; returns the findings."""
    def configure(*lines, **options):
        phone.put_whole("create", "createOther", "createListener")
        phone.configure(*lines, **options)
        return phone.findings()
    return configure


def test_a_correct_configuration_has_no_finding(configured):
    assert configured(listener("createListener"), servlet("status"),
                      servlet("contacts-preview", "createOther"), "<!-- with a remark -->") == []


@pytest.mark.parametrize("written, meant", [("servelt", "servlet"), ("Servlet", "servlet"),
                                            ("listner", "listener"), ("LISTENER", "listener")])
def test_a_misspelt_element_is_reported_with_a_suggestion(configured, written, meant):
    assert configured(f'<{written} id="a" createfunction="create"/>') == [
        (2, f'<{written}> {SKIPPED}; did you mean "{meant}"?')]


def test_an_unknown_element_is_reported(configured):
    assert configured(servlet("a"), "<filter/>") == [(3, f"<filter> {SKIPPED}")]


def test_text_between_elements_is_reported(configured):
    assert configured(servlet("a"), "<![CDATA[x]]>", servlet("b"), "y") == [
        (3, f"text {SKIPPED}"), (4, f"text {SKIPPED}")]


@pytest.mark.parametrize("written, meant", [("createFunction", "createfunction"), ("Id", "id"),
                                            ("createfuncton", "createfunction")])
def test_a_misspelt_attribute_is_reported_with_a_suggestion(configured, written, meant):
    assert configured(f'<servlet id="a" createfunction="create" {written}="x"/>') == [
        (2, f'the attribute "{written}" of <servlet> is ignored; did you mean "{meant}"?')]


def test_an_attribute_of_another_element_is_reported(configured):
    assert configured('<listener id="a" createfunction="createListener"/>') == [
        (2, 'the attribute "id" of <listener> is ignored')]


def test_a_repeated_attribute_is_reported(configured):
    assert configured('<servlet id="a" id="b" createfunction="create"/>') == [
        (2, 'the attribute "id" of <servlet> is repeated: the container uses the first, "a"')]


def test_a_repeated_id_is_reported(configured):
    assert configured(servlet("a"), servlet("b"), servlet("a", "createOther")) == [
        (4, 'servlet "a" replaces the one of line 2, "create"')]


def test_the_creation_function_of_a_replaced_servlet_may_be_missing(configured):
    """The container never calls it."""
    assert len(configured(servlet("a", "createNothing"), servlet("a"))) == 1


@pytest.mark.parametrize("attribute", ["", 'id=""'])
def test_a_servlet_without_an_id_is_reported(configured, attribute):
    assert configured(f'<servlet {attribute} createfunction="create"/>') == [
        (2, 'a servlet without "id" is never called: a request whose "p" is empty is answered with ' +
            UNKNOWN)]


def test_an_id_that_screening_rejects_is_reported(configured):
    assert configured(servlet("a.b")) == [
        (2, 'servlet "a.b" is never called: a request ends with 404 when its "p" contains anything but '
            'letters, digits, "-" and "_"')]


def test_an_id_that_no_address_may_contain_is_reported(configured):
    assert configured(servlet("descriptions")) == [
        (2, 'servlet "descriptions" cannot be requested: the container refuses '
            '"/servlet?p=descriptions"')]


@pytest.mark.parametrize("attribute", ["", 'createfunction=""'])
def test_a_servlet_without_a_creation_function_is_reported(configured, attribute):
    assert configured(f'<servlet id="a" {attribute}/>') == [
        (2, f'servlet "a" has no "createfunction": {NO_SYMBOL}')]


def test_an_element_inside_a_servlet_is_reported(configured):
    assert configured('<servlet id="a" createfunction="create">', servlet("b"), "</servlet>") == [
        (3, "<servlet> inside <servlet> is ignored: the container reads the children of the root "
            "element only")]


def test_a_repeated_listener_is_reported(configured):
    assert configured(listener("createListener"), listener("createListener")) == [
        (3, 'listener "createListener" repeats the one of line 2: the container creates both, and '
            'both see each request')]


def test_listeners_after_one_that_cannot_be_created_are_reported(configured):
    first, second = configured(listener("createNothing"), servlet("a"), listener("createListener"))
    assert first[0] == 2 and "creates neither this nor any later listener" in first[1]
    assert second == (4, 'listener "createListener" is never created: the container stops at the '
                         'one of line 2')


def test_a_listener_without_a_creation_function_is_reported(configured):
    first, second, third = configured("<listener/>", listener("createListener"))
    assert first == (2, 'a listener has no "createfunction"')
    assert second[0] == 2 and "creates neither this nor any later listener" in second[1]
    assert third[0] == 3 and "is never created" in third[1]


def test_one_function_for_a_servlet_and_a_listener_is_reported(configured):
    assert configured(listener("create"), servlet("a")) == [
        (3, '"create" creates servlet "a" here and the listener of line 2: the container calls one '
            'of them through the wrong interface')]


def test_a_root_element_without_a_path_is_reported(phone):
    phone.put_whole()
    phone.put("/phone/www/WEB-INFO/servlet/servlet.xml", '<servlets pth="x"/>')
    assert phone.findings() == [
        (1, 'the attribute "pth" of <servlets> is ignored; did you mean "path"?'),
        (1, '<servlets> has no "path": the container opens "", which is the host program itself '
            'where dlopen(3) accepts that; otherwise the process ends with status 255')]


@pytest.mark.parametrize("text", ["", "   \n", "<!-- nothing -->"])
def test_a_file_without_a_root_element_is_reported(phone, text):
    phone.put("/phone/www/WEB-INFO/servlet/servlet.xml", text)
    assert phone.findings() == [
        (1, 'there is no root element: the container logs "PluginLoader::init() error to get root '
            'element", opens no library and creates no listener; fcgi_host ends with status 78')]


def test_a_second_root_element_is_reported(phone):
    phone.put_whole("create")
    path = phone.configure(servlet("a"))
    path.write_text(path.read_text() + "\n<servlets/>\n")
    assert phone.findings() == [
        (4, "<servlets> follows the root element: the container does not read it")]


def test_a_truncated_file_is_checked_as_far_as_it_goes(configured):
    found = dict(configured(servlet("a", "createNothing"), servlet("b"), "<?xml"))
    assert sorted(found) == [2, 5]
    assert "createNothing" in found[2]
    assert found[5] == "not well-formed XML (Error parsing document declaration/processing " \
        "instruction): the container does not report this, and uses what it has read before"


@pytest.mark.parametrize("encoding", ["utf-8", "utf-8-sig", "utf-16", "utf-16-be", "utf-32",
                                      "latin-1"])
def test_line_numbers_are_correct_in_every_encoding(phone, encoding):
    phone.put_whole("create")
    path = phone.configure("<!-- \u00e4\u00f6\u00fc -->" * 20, servlet("a"), "<filter/>")
    text = path.read_text()
    if encoding == "latin-1":
        text = '<?xml version="1.0" encoding="iso-8859-1"?>' + text
    path.write_bytes(text.encode(encoding))
    assert phone.findings() == [(4, f"<filter> {SKIPPED}")]


def test_line_numbers_are_correct_with_crlf(phone):
    phone.put_whole("create")
    path = phone.configure(servlet("a"), "<filter/>")
    path.write_bytes(path.read_bytes().replace(b"\n", b"\r\n"))
    assert phone.findings() == [(3, f"<filter> {SKIPPED}")]
