import pathlib
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "wire"))
from fixtures import *  # pytest looks for fixtures and hooks here
from browser import Browser


@pytest.fixture(params=["lighttpd", "nginx", "apache"])
def phone(request, start):
    """The example phone behind a web server; its owner has set a password."""
    start.phone("--threads", "4", "--timer", "1")
    front = start.front(request.param, SOURCE / "packaging/front-servers")
    Browser(front).replace_factory_password()
    return front


@pytest.fixture
def user(phone):
    """A user of the phone who has signed in."""
    browser = Browser(phone)
    assert browser.sign_in().status == 303
    assert browser.is_signed_in()
    return browser
