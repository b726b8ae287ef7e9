"""What the journal of the phone shows an administrator, and what systemd makes of the daemon's reports."""

import re
import time

from conftest import Visitor
from virtual_phone import PATIENCE

PROBE = "stuck.service"


def wait_until(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end, what
        time.sleep(0.5)


def test_the_journal_shows_that_the_daemon_is_ready(console, owner):
    line = console.output("journalctl -t fcgiServer | grep 'fcgi_host: ready'").splitlines()[-1]
    assert re.search(r" version=[\d.]+ socket=/run/fcgi_host\.sock loops=2"
                     r" configuration=/phone/www/WEB-INFO/servlet/servlet\.xml$", line), line


def test_one_command_shows_the_lines_of_the_web_server_and_of_the_daemon(console, phone):
    assert Visitor(phone.port).send("GET", "/servlet?p=status&x=%3Cscript%3E")[0] == 404
    refused = console.output("journalctl -t fcgiServer | grep 'x=%3Cscript%3E, include illegal char'")
    number, = re.findall(r"request=(\d+): url", refused)
    lines = console.output(
        f"journalctl --since today | grep -E ' request={number}( |:|$)'").splitlines()
    access = [line for line in lines if re.search(
        rf' lighttpd\[\d+\]: [0-9.]+ "GET /servlet" 404 \d+ ms=\d+ request={number} p=status$', line)]
    assert len(access) == 1 and len(lines) > 1, lines


def test_systemd_ends_a_daemon_that_gives_no_sign_of_life(console):
    console.output("sed -E 's|^ExecStart=.*|ExecStart=/usr/sbin/fcgi_host --listen /tmp/stuck.sock|; "
                   "s|^WatchdogSec=.*|WatchdogSec=10s|; "
                   "/^(Requires|After|Restart|RestartSec|SuccessExitStatus)=/d' "
                   f"/lib/systemd/system/fcgi_host.service >/run/systemd/system/{PROBE}")
    # Returns once the daemon has notified systemd.
    console.output(f"systemctl start {PROBE}")
    show = lambda name: console.output(f"systemctl show --property {name} --value {PROBE}").strip()
    process = show("MainPID")
    assert show("ActiveState") == "active" and process != "0"
    console.output(f"kill -STOP {process}")
    wait_until(lambda: show("Result") == "watchdog", "the end of the time")
    console.output(f"systemctl kill --signal KILL {PROBE}")
    wait_until(lambda: show("ActiveState") == "failed", "the end of the daemon")
    console.output(f"systemctl reset-failed {PROBE}; rm /run/systemd/system/{PROBE}")
