"""What --explain says that the container would do with a URL."""

import pytest

EITHER = "each may answer the request itself, for example if the user is not signed in"
PASSES = "screening  passes"
LISTENERS = ["listener   createFirst (2)", "listener   createSecond (3)", EITHER]
DESTROYS = 'destroy() of servlet "contacts-preview" is called, so that it frees its preview (6)'


@pytest.fixture
def explain(phone):
    phone.configure('<listener createfunction="createFirst"/>',
                    '<listener createfunction="createSecond"/>',
                    '<servlet id="status" createfunction="createStatus"/>',
                    '<servlet id="notice" createfunction="createNotice"/>',
                    '<servlet id="contacts-preview" createfunction="createPreview"/>')
    return phone.explain


def becomes(word):
    return f'status     the device status becomes "{word}"'


def test_a_page_is_explained(explain):
    assert explain("/servlet?p=status&q=load") == [
        "/servlet?p=status&q=load", PASSES, becomes("idle"), *LISTENERS, "before     " + DESTROYS,
        'result     servlet "status", createStatus (4)']


def test_the_contacts_preview_page_is_not_destroyed_first(explain):
    assert explain("/servlet?p=contacts-preview")[-1] == \
        'result     servlet "contacts-preview", createPreview (6)'
    assert DESTROYS not in str(explain("/servlet?p=contacts-preview"))


def test_an_unknown_page_is_the_containers_404_page_as_text(explain):
    assert explain("/servlet?p=sta%41")[-1] == \
        'result     there is no servlet "staA": unless a listener answers, status 200 and the ' \
        'container\'s 404 page as text; the container logs "ServletContainer::onRequest End.404"'


@pytest.mark.parametrize("url", ["http://192.0.2.1:8080/servlet?p=status#top",
                                 "HTTPS://phone/servlet?p=status"])
def test_absolute_urls_are_accepted(explain, url):
    assert explain(url) == [
        "/servlet?p=status", PASSES, becomes("idle"), *LISTENERS, "before     " + DESTROYS,
        'result     servlet "status", createStatus (4)']


@pytest.mark.parametrize("url, value", [("/servlet?p=a.b", '"p" is "a.b"'),
                                        ("/servlet?p=status&acc=1a", '"acc" is "1a"'),
                                        ("/servlet?p=status&model=--5", '"model" is "--5"'),
                                        ("/servlet?p=status&jumpto=a%20b", '"jumpto" is "a b"')])
def test_parameters_that_screening_rejects_are_explained(explain, url, value):
    assert explain(url)[1:] == [
        f"screening  rejects the request: the parameter {value}, nothing is logged", "result     404"]


@pytest.mark.parametrize("url", ["/servlet?p=status&q=%3Cb", "/servlet?p=status&q=<b", "/servlet/Script"])
def test_addresses_that_screening_rejects_are_explained(explain, url):
    assert explain(url)[1:] == [
        f'screening  rejects the URL: the container logs "url = {url}, include illegal char"',
        "result     404"]


@pytest.mark.parametrize("url, successor", [
    ("/cgi-bin/Quillpage.tpx?page=Home.htm", "/servlet?page=Home.htm"),
    ("/cgi-bin/Quillpage.tpx?page=Status.htm", "/servlet?p=login&q=loginForm&jumpto=status"),
    ("/cgi-bin/Velmoranix.acx?Id=1&x=y", "/servlet?p=login&q=loginForm&jumpto=status"),
    ("/cgi-bin/Velmoranix.acx?Id=2", "/servlet?Id=2")])
def test_addresses_of_the_older_interface_are_redirected(explain, url, successor):
    assert explain(url)[1:] == [
        PASSES, f'result     an address of the older interface: redirect to "{successor}"']


@pytest.mark.parametrize("query, word", [
    ("p=status&reboot=true", "reboot"), ("p=settings-upgrade&q=reset", "reset"),
    ("p=settings-config&q=import", "configration"), ("p=settings-config&q=import&x=1", "idle"),
    ("p=status&now=true", "autoprovision")])
def test_the_device_status_follows_the_request(explain, query, word):
    assert explain("/servlet?" + query)[2] == becomes(word)


def test_the_container_answers_the_notice_page_itself(explain):
    words = '"idle", "reboot", "reset", "upgrade", "configration"'
    when = 'while the status is "autoprovision": '
    assert explain("/servlet?p=notice")[1:] == [
        PASSES, "status     the device status stays as it is", *LISTENERS,
        f"result     while the status is {words}: the container answers with that word, text/html",
        f"before     {when}{DESTROYS}", f'result     {when}servlet "notice", createNotice (5)']


def test_a_request_that_sets_the_status_leaves_one_case(explain):
    assert explain("/servlet?p=notice&now=true")[-1] == 'result     servlet "notice", createNotice (5)'
    assert explain("/servlet?p=notice&q=reboot")[-1] == \
        'result     while the status is "reboot": the container answers with that word, text/html'


def test_an_event_reaches_the_listeners_only(explain):
    assert explain("/servlet?key=1&p=status")[3:] == [
        'event      "key" for the listeners', *LISTENERS,
        "result     what the listeners answer; an event reaches no servlet"]
    assert explain("/servlet?csta-anything")[3] == 'event      "csta" for the listeners'


def test_a_longer_parameter_name_is_no_event(explain):
    none = 'event      none: the query begins with "key", but there is no such parameter'
    assert explain("/servlet?keys=1&p=status")[3] == none
    assert explain("/servlet?keys=1&p=status")[-1] == 'result     servlet "status", createStatus (4)'


@pytest.mark.parametrize("url", ["/servlet?q=1", "/servlet", "/", "", "/servlet?"])
def test_neither_a_page_nor_an_event_is_404(explain, url):
    assert explain(url)[-1] == \
        'result     404: there is neither "p" nor an event; the container logs ' \
        '"ServletContext::doService() End. p parameter not found!"'


def test_no_listener_is_explained(phone):
    phone.configure('<servlet id="a" createfunction="createA"/>')
    assert phone.explain("/servlet?p=a")[3:] == ["listeners  none",
                                                'result     servlet "a", createA (2)']


@pytest.mark.parametrize("url", ["/servlet?p=%00", "/servlet?p=\x1b[2J", "%", "://", "/" * 5000,
                                 "/cgi-bin/Quillpage.tpx?" + "x" * 2000, "http://", "?"])
def test_any_address_is_explained(explain, url):
    assert all(line.isprintable() for line in explain(url))


SERVER = "result     the web server answers, not the container: "


def test_the_web_server_answers_for_a_file(phone, explain):
    file = phone.put("/phone/www/news.css", "")
    assert explain("/news.css?v=2") == ["/news.css?v=2", f'{SERVER}with the file "{file}"']
    file.unlink()
    assert explain("/news.css") == ["/news.css", f'{SERVER}404, since there is no file "{file}"']


@pytest.mark.parametrize("url", ["/WEB-INFO/servlet/servlet.xml", "/web-inf/", "/x/WEB-INFO"])
def test_the_web_server_refuses_the_plug_ins_files(explain, url):
    assert explain(url)[1] == f"{SERVER}403, since it serves nothing of WEB-INFO"


@pytest.mark.parametrize("url", ["/../phone/www/x", "/%2e%2e/x", "/a//b", "/.x", "/a\\b"])
def test_the_web_server_decides_on_unusual_paths(explain, url):
    assert explain(url)[1] == f"{SERVER}with a file of the document root, or 404"
