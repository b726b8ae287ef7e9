"""What is found in servlet.xml."""

import pytest

SKIPPED = 'is skipped: the container logs "PluginLoader::init() find element neither servlet nor ' \
          'listener"'
NO_SYMBOL = 'each request for it ends with 404, and the container logs "Cannot load symbol create."'


def servlet(name, function=None):
    return f'<servlet id="{name}" createfunction="{function or "create"}"/>'


def listener(function):
    return f'<listener createfunction="{function}"/>'


@pytest.fixture
def configured(phone):
    """Configures a device whose plug-in has what the tests name, and gives what is found."""
    def configure(*lines, **options):
        phone.put_whole("create", "createOther", "createListener")
        phone.configure(*lines, **options)
        return phone.findings()
    return configure


def test_nothing_is_found_where_everything_is_right(configured):
    assert configured(listener("createListener"), servlet("status"),
                      servlet("contacts-preview", "createOther"), "<!-- with a remark -->") == []


@pytest.mark.parametrize("written, meant", [("servelt", "servlet"), ("Servlet", "servlet"),
                                            ("listner", "listener"), ("LISTENER", "listener")])
def test_a_misspelt_element(configured, written, meant):
    assert configured(f'<{written} id="a" createfunction="create"/>') == [
        (2, f'<{written}> {SKIPPED}; did you mean "{meant}"?')]


def test_an_element_of_another_kind(configured):
    assert configured(servlet("a"), "<filter/>") == [(3, f"<filter> {SKIPPED}")]


def test_text_between_the_elements(configured):
    assert configured(servlet("a"), "<![CDATA[x]]>", servlet("b"), "y") == [
        (3, f"text {SKIPPED}"), (4, f"text {SKIPPED}")]


@pytest.mark.parametrize("written, meant", [("createFunction", "createfunction"), ("Id", "id"),
                                            ("createfuncton", "createfunction")])
def test_a_misspelt_attribute(configured, written, meant):
    assert configured(f'<servlet id="a" createfunction="create" {written}="x"/>') == [
        (2, f'the attribute "{written}" of <servlet> is ignored; did you mean "{meant}"?')]


def test_an_attribute_that_means_nothing_here(configured):
    assert configured('<listener id="a" createfunction="createListener"/>') == [
        (2, 'the attribute "id" of <listener> is ignored')]


def test_an_attribute_that_is_there_twice(configured):
    assert configured('<servlet id="a" id="b" createfunction="create"/>') == [
        (2, 'the attribute "id" of <servlet> is there twice: the container takes the first, "a"')]


def test_an_id_that_is_there_twice(configured):
    assert configured(servlet("a"), servlet("b"), servlet("a", "createOther")) == [
        (4, 'servlet "a" replaces the one of line 2, "create"')]


def test_the_function_of_a_servlet_that_was_replaced_may_be_missing(configured):
    """Nobody asks for it."""
    assert len(configured(servlet("a", "createNothing"), servlet("a"))) == 1


@pytest.mark.parametrize("attribute", ["", 'id=""'])
def test_a_servlet_without_an_id(configured, attribute):
    assert configured(f'<servlet {attribute} createfunction="create"/>') == [
        (2, 'a servlet without "id" is never asked: a request whose "p" is empty ends with 404')]


def test_an_id_that_screening_refuses(configured):
    assert configured(servlet("a.b")) == [
        (2, 'servlet "a.b" is never asked: a request ends with 404 when its "p" holds anything but '
            'letters, digits, "-" and "_"')]


def test_an_id_that_no_address_may_hold(configured):
    assert configured(servlet("descriptions")) == [
        (2, 'servlet "descriptions" is asked by no address: the container refuses '
            '"/servlet?p=descriptions"')]


@pytest.mark.parametrize("attribute", ["", 'createfunction=""'])
def test_a_servlet_without_a_creation_function(configured, attribute):
    assert configured(f'<servlet id="a" {attribute}/>') == [
        (2, f'servlet "a" has no "createfunction": {NO_SYMBOL}')]


def test_what_stands_inside_a_servlet(configured):
    assert configured('<servlet id="a" createfunction="create">', servlet("b"), "</servlet>") == [
        (3, "<servlet> inside <servlet> is ignored: the container reads the children of the root "
            "element only")]


def test_a_listener_that_is_there_twice(configured):
    assert configured(listener("createListener"), listener("createListener")) == [
        (3, 'listener "createListener" is there since line 2: the container creates another, and '
            'both see each request')]


def test_listeners_behind_one_that_cannot_be_created(configured):
    first, second = configured(listener("createNothing"), servlet("a"), listener("createListener"))
    assert first[0] == 2 and "creates neither this nor any later listener" in first[1]
    assert second == (4, 'listener "createListener" is never created: the container stops at the '
                         'one of line 2')


def test_a_listener_without_a_creation_function(configured):
    first, second, third = configured("<listener/>", listener("createListener"))
    assert first == (2, 'a listener has no "createfunction"')
    assert second[0] == 2 and "creates neither this nor any later listener" in second[1]
    assert third[0] == 3 and "is never created" in third[1]


def test_a_function_that_is_to_create_a_servlet_and_a_listener(configured):
    assert configured(listener("create"), servlet("a")) == [
        (3, '"create" creates servlet "a" here and the listener of line 2: the container calls one '
            'of them by the wrong interface')]


def test_a_root_element_without_a_path(phone):
    phone.put_whole()
    phone.put("/phone/www/WEB-INFO/servlet/servlet.xml", '<servlets pth="x"/>')
    assert phone.findings() == [
        (1, 'the attribute "pth" of <servlets> is ignored; did you mean "path"?'),
        (1, '<servlets> has no "path": the container opens "", which is the host program itself '
            'where the system takes it, and else ends the process with status 255')]


@pytest.mark.parametrize("text", ["", "   \n", "<!-- nothing -->"])
def test_a_file_without_a_root_element(phone, text):
    phone.put("/phone/www/WEB-INFO/servlet/servlet.xml", text)
    assert phone.findings() == [
        (1, 'there is no root element: the container logs "PluginLoader::init() error to get root '
            'element", opens no library and answers 404 for every page')]


def test_a_second_root_element(phone):
    phone.put_whole("create")
    path = phone.configure(servlet("a"))
    path.write_text(path.read_text() + "\n<servlets/>\n")
    assert phone.findings() == [
        (4, "<servlets> stands behind the root element: the container does not read it")]


def test_a_file_that_breaks_off_is_read_as_far_as_it_goes(configured):
    found = dict(configured(servlet("a", "createNothing"), servlet("b"), "<?xml"))
    assert sorted(found) == [2, 5]
    assert "createNothing" in found[2]
    assert found[5] == "this is no XML (Error parsing document declaration/processing " \
        "instruction): the container does not say so, and goes on with what it has read before"


@pytest.mark.parametrize("encoding", ["utf-8", "utf-8-sig", "utf-16", "utf-16-be", "utf-32",
                                      "latin-1"])
def test_lines_are_right_in_every_encoding(phone, encoding):
    phone.put_whole("create")
    path = phone.configure("<!-- \u00e4\u00f6\u00fc -->" * 20, servlet("a"), "<filter/>")
    text = path.read_text()
    if encoding == "latin-1":
        text = '<?xml version="1.0" encoding="iso-8859-1"?>' + text
    path.write_bytes(text.encode(encoding))
    assert phone.findings() == [(4, f"<filter> {SKIPPED}")]


def test_lines_end_in_every_way(phone):
    phone.put_whole("create")
    path = phone.configure(servlet("a"), "<filter/>")
    path.write_bytes(path.read_bytes().replace(b"\n", b"\r\n"))
    assert phone.findings() == [(3, f"<filter> {SKIPPED}")]
