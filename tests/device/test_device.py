"""A phone that was booted from the packages in a virtual ARM machine."""

import re
import signal

import pytest

from conftest import FACTORY, PASSWORD, Visitor

PAGES = ["status", "phone", "accounts", "network", "audio", "security", "contacts", "settings-config",
         "settings-upgrade", "settings-autop"]
SIGN_IN = "/servlet?p=login&q=loginForm"
PROBE = "probe.service"
PRIVATE_KIB = 600  # of the daemon after 1,000 requests


def daemon(console):
    """Returns the number of the daemon's process."""
    return int(console.output("systemctl show --property MainPID --value fcgi_host.service"))


def sectors_written(console):
    """Returns how many sectors of 512 bytes the phone has written, once nothing is left to write."""
    console.output("sync")
    return int(console.output("cat /sys/block/vda/stat").split()[6])


def test_systemd_has_started_everything_without_a_failure(console):
    state, _ = console.run("systemctl is-system-running --wait")
    failed, _ = console.run("systemctl --failed --plain --no-legend")
    assert (state, failed) == ("running", "")


def test_a_new_phone_asks_for_a_password_of_its_own(phone):
    visitor = Visitor(phone.port)
    visitor.sign_in(FACTORY)
    for page in ("status", "contacts"):
        assert visitor.send("GET", f"/servlet?p={page}")[:2] == (303, "/servlet?p=security")


@pytest.mark.parametrize("page", PAGES)
def test_the_owner_sees_each_page(owner, page):
    text = owner.get(f"/servlet?p={page}")
    assert "</html>" in text and 'action="/servlet?p=login&amp;q=logout"' in text


def test_strangers_see_neither_pages_nor_files_of_the_phone(phone):
    stranger = Visitor(phone.port)
    status, location, _ = stranger.send("GET", "/servlet?p=status")
    assert status == 303 and location.startswith(SIGN_IN)
    assert stranger.send("GET", "/WEB-INFO/servlet/servlet.xml")[0] == 403


def test_the_daemon_has_no_capabilities_and_a_system_call_filter(console, owner):
    owner.get("/servlet?p=status")
    status = dict(line.split(":\t", 1) for line in
                  console.output(f"cat /proc/{daemon(console)}/status").splitlines())
    for name in ("CapInh", "CapPrm", "CapEff", "CapBnd", "CapAmb"):
        assert int(status[name], 16) == 0, name
    assert status["NoNewPrivs"] == "1"
    assert status["Seccomp"] == "2"
    assert "0" not in status["Uid"].split()


def result_as_the_daemons_unit(console, command):
    """Runs a command confined as the daemon is; returns its result for systemd and its status."""
    console.output("sed -E 's|^ExecStart=.*|ExecStart=%s|; s|^Type=.*|Type=oneshot|; "
                   "/^(Requires|After|Restart|RestartSec|SuccessExitStatus)=/d' "
                   "/lib/systemd/system/fcgi_host.service >/run/systemd/system/%s"
                   % (command, PROBE))
    console.run(f"systemctl start {PROBE}")
    shown = console.output(f"systemctl show --property Result,ExecMainStatus {PROBE}")
    console.output(f"systemctl stop {PROBE}; systemctl reset-failed; rm /run/systemd/system/{PROBE}")
    return dict(line.split("=") for line in shown.splitlines())


def test_the_kernel_ends_a_program_in_the_daemons_place_that_sets_the_clock(console):
    assert result_as_the_daemons_unit(console, "/bin/date")["Result"] == "success"
    result = result_as_the_daemons_unit(console, "/bin/date -s 2030-01-01")
    assert int(result["ExecMainStatus"]) == signal.SIGSYS, result


def test_a_killed_daemon_is_back_for_the_next_request(console, owner):
    before = daemon(console)
    console.output(f"kill -KILL {before}")
    # Signed out: sessions are in the daemon's memory.
    status, location, _ = owner.send("GET", "/servlet?p=status")
    assert status == 303 and location.startswith(SIGN_IN)
    assert daemon(console) not in (0, before)
    assert owner.sign_in(PASSWORD) == "/servlet?p=status"


def test_thirty_page_views_write_nothing_to_the_disk(console, owner):
    owner.get("/servlet?p=status")
    before = sectors_written(console)
    for page in 3 * PAGES:
        owner.get(f"/servlet?p={page}")
    assert sectors_written(console) == before


def test_a_saved_setting_is_written_to_the_disk(console, owner, measured):
    before = sectors_written(console)
    assert owner.post("security", "access", idleSeconds="600", remoteAddresses="",
                      hostNames="")[0] == 303
    written = sectors_written(console) - before
    measured.append(f"sectors of 512 bytes written for one saved setting: {written}")
    assert written > 0


def test_the_daemon_stays_small(console, owner, measured):
    for _ in range(100):
        for page in PAGES:
            owner.get(f"/servlet?p={page}")
    sizes = dict(re.findall(r"^(\w+): +(\d+) kB$",
                            console.output(f"cat /proc/{daemon(console)}/smaps_rollup"), re.MULTILINE))
    # Pages that it has written. Clean ones are those of the libraries that no other process uses.
    private = int(sizes["Private_Dirty"])
    measured.append(f"private memory of the daemon after 1,000 requests: {private} KiB")
    assert 0 < private <= PRIVATE_KIB
