import pathlib
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "wire"))
from fixtures import *  # pytest looks for fixtures and hooks here
from browser import Browser


@pytest.fixture(params=["lighttpd", "nginx", "apache"])
def phone(request, start):
    """The example phone behind a web server."""
    start.phone("--threads", "4", "--timer", "1")
    return start.front(request.param, SOURCE / "packaging/front-servers")


@pytest.fixture
def user(phone):
    """A user of the phone who has signed in."""
    browser = Browser(phone)
    assert browser.sign_in().status == 303
    assert browser.is_signed_in()
    return browser
