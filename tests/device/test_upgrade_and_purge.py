"""The phone is upgraded while its pages are used, then the packages are removed. These must be the last
tests, since all share the phone."""

import collections
import contextlib
import http.client
import threading
import time

import newer_packages
from conftest import PASSWORD, Visitor
from test_device import AUDIO, SIGN_IN, daemon
from virtual_phone import PATIENCE

VISITORS = 2
VOLUME = "6"


class Reader(threading.Thread):
    """A visitor who requests the sign-in page and the style sheet again and again."""

    def __init__(self, port):
        super().__init__(daemon=True)
        self.visitor = Visitor(port)
        self.is_done = threading.Event()
        self.outcomes = collections.Counter()

    def run(self):
        pause = 0
        while not self.is_done.wait(pause):
            begin = time.monotonic()
            for path in (SIGN_IN, "/style.css"):
                self.outcomes[self.outcome(path)] += 1
            # Leaves the phone time for the upgrade, however slow it is.
            pause = 4 * (time.monotonic() - begin)

    def outcome(self, path):
        """Returns what was read, or what went wrong."""
        try:
            status, _, text = self.visitor.send("GET", path)
        except (OSError, http.client.HTTPException) as error:
            return f"{path}: {error!r}"
        if status != 200:
            return f"{path}: status {status}"
        if path != SIGN_IN:
            return "style sheet"
        return "later page" if newer_packages.MARK in text else "earlier page"


@contextlib.contextmanager
def reading(port):
    """Lets visitors read, and yields them."""
    readers = [Reader(port) for _ in range(VISITORS)]
    for reader in readers:
        reader.start()
    try:
        yield readers
    finally:
        for reader in readers:
            reader.is_done.set()
        for reader in readers:
            reader.join()


def wait_until_all_have_read(what, readers):
    """Returns in any case after a while: the outcomes tell what was read instead."""
    end = time.monotonic() + PATIENCE
    while not all(reader.outcomes[what] for reader in readers) and time.monotonic() < end:
        time.sleep(1)


def test_an_upgrade_loses_no_request_and_no_setting(phone, console, owner, measured):
    assert owner.post("audio", "save", **AUDIO, speakerVolume=VOLUME)[0] == 303
    before = daemon(console)
    console.output("mkdir /var/tmp/newer && tar -x -f /dev/vdb -C /var/tmp/newer")
    with reading(phone.port) as readers:
        console.output("dpkg -i /var/tmp/newer/*.deb && rm -r /var/tmp/newer", timeout=600)
        wait_until_all_have_read("later page", readers)
    outcomes = sum((reader.outcomes for reader in readers), collections.Counter())
    assert set(outcomes) == {"style sheet", "earlier page", "later page"}, outcomes
    measured.append(f"requests during an upgrade of the packages: {sum(outcomes.values())}, none lost")
    assert daemon(console) not in (0, before)
    assert console.output("dpkg-query -W -f '${Version} ' fcgiserver fcgiserver-phone") == \
        2 * f"{newer_packages.VERSION} "
    # What is lost are sessions, which are in the daemon's memory.
    assert owner.send("GET", "/servlet?p=audio")[0] == 303
    owner.sign_in(PASSWORD)
    assert f'value="{VOLUME}"' in owner.get("/servlet?p=audio")


def test_a_purge_leaves_nothing_but_the_daemons_user(phone, console):
    console.output("dpkg --purge fcgiserver-phone fcgiserver")
    assert console.run("pidof fcgi_host")[0] == ""
    left, _ = console.run(
        "find / -xdev \\( -iname '*fcgiserver*' -o -name '*fcgi_host*' -o -path '/phone*' \\); "
        "find /run -name '*fcgi_host*'")
    assert left == ""
    active, _ = console.run("systemctl is-active fcgi_host.socket fcgi_host.service")
    assert active.split() == ["inactive", "inactive"]
    assert not phone.answers()
    assert console.output("grep -c ^_fcgihost: /etc/passwd") == "1"
