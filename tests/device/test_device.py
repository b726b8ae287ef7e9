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
SECTOR = 512  # bytes
TRACING = "/sys/kernel/tracing"
AUDIO = {"ringtone": "pulse", "ringVolume": "0", "handsetVolume": "7", "micGain": "0", "codec": "pcmu"}
OUTAGE = 2  # seconds without a daemon after a crash
# What the daemon and the kernel execute for one view of a page: status-data has no template, the others
# have, and the page of contacts finds the section of each.
INSTRUCTIONS = {"status-data": 750_000, "status": 900_000, "contacts": 1_600_000, "audio": 600_000}
VIEWS = 5


def daemon(console):
    """Returns the number of the daemon's process."""
    return int(console.output("systemctl show --property MainPID --value fcgi_host.service"))


def sectors_written(console):
    """Returns how many sectors of 512 bytes the phone has written, once nothing is left to write."""
    console.output("sync")
    return int(console.output("cat /sys/block/vda/stat").split()[6])


def instructions(console, pid):
    """Returns how many instructions a process has executed, itself and in the kernel, on all threads: its
    time on the processor in nanoseconds, since each takes one."""
    times = console.output(f"cat /proc/{pid}/task/*/schedstat")
    return sum(int(line.split()[0]) for line in times.splitlines())


def seconds(console, name):
    """Returns the moment of an event of the daemon's unit on the phone's clock."""
    shown = console.output(f"systemctl show --property {name} --value fcgi_host.service")
    return int(shown) / 1e6


def test_systemd_has_started_everything_without_a_failure(console):
    state, _ = console.run("systemctl is-system-running --wait")
    failed, _ = console.run("systemctl --failed --plain --no-legend")
    assert (state, failed) == ("running", "")


def test_a_new_phone_asks_for_a_password_of_its_own(phone):
    visitor = Visitor(phone.port)
    visitor.sign_in(FACTORY)
    for page in ("status", "contacts"):
        assert visitor.send("GET", f"/servlet?p={page}")[:2] == (
            303, f"/servlet?p=security&jumpto={page}")


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


def test_a_killed_daemon_is_back_for_the_next_request(console, owner, measured):
    before = daemon(console)
    killed = float(console.output(f"cat /proc/uptime; kill -KILL {before}").split()[0])
    # Signed out: sessions are in the daemon's memory.
    status, location, _ = owner.send("GET", "/servlet?p=status")
    assert status == 303 and location.startswith(SIGN_IN)
    assert daemon(console) not in (0, before)
    outage = seconds(console, "ExecMainStartTimestampMonotonic") - killed
    measured.append(f"seconds from a crash of the daemon until the next one starts: {outage:.2f}")
    assert 0 < outage <= OUTAGE
    assert owner.sign_in(PASSWORD) == "/servlet?p=status"


def test_thirty_page_views_write_nothing_to_the_disk(console, owner):
    owner.get("/servlet?p=status")
    before = sectors_written(console)
    for page in 3 * PAGES:
        owner.get(f"/servlet?p={page}")
    assert sectors_written(console) == before


@pytest.fixture(name="trace")
def file_writes_of_the_daemon(console):
    """Returns a function for the bytes of each write of the daemon to a file and the number of its flushes
    (fsync) since the last call."""
    names = ("ext4_da_write_end", "ext4_write_end", "ext4_sync_file_enter")

    def switch(on):
        console.output("".join(f"echo {on} >{TRACING}/events/ext4/{name}/enable;" for name in names))

    def read():
        lines = re.findall(r"^ *fcgi_host-\d+ .*: (ext4_.*)$",
                           console.output(f"cat {TRACING}/trace; echo >{TRACING}/trace"), re.MULTILINE)
        writes = [int(re.search(r" copied (\d+)", line)[1]) for line in lines if "_write_end:" in line]
        return writes, sum(line.startswith("ext4_sync_file_enter:") for line in lines)
    console.output(f"mountpoint -q {TRACING} || mount -t tracefs none {TRACING}")
    switch(1)
    yield read
    switch(0)


def test_a_saved_setting_is_two_sectors_of_data_and_two_flushes(console, owner, trace, measured):
    assert owner.post("audio", "save", **AUDIO, speakerVolume="4")[0] == 303
    before = sectors_written(console)
    trace()
    assert owner.post("audio", "save", **AUDIO, speakerVolume="5")[0] == 303
    writes, flushes = trace()
    sectors = sectors_written(console) - before
    measured.append(f"one saved setting: {sum(writes)} bytes in {len(writes)} writes, {flushes} flushes; "
                    f"with what the file system adds, {sectors} sectors of 512 bytes")
    assert writes and sum(writes) <= 2 * SECTOR
    assert 1 <= flushes <= 2


@pytest.mark.parametrize("page", INSTRUCTIONS)
def test_a_page_needs_few_instructions(console, owner, measured, page):
    owner.get(f"/servlet?p={page}")
    pid = daemon(console)
    counts = []
    for _ in range(VIEWS):
        before = instructions(console, pid)
        owner.get(f"/servlet?p={page}")
        counts.append(instructions(console, pid) - before)
    # Some views have to wait for memory or for a part of a program that the kernel reads again.
    least = min(counts)
    measured.append(f"instructions for one view of the page {page}: {least:,}")
    assert 0 < least <= INSTRUCTIONS[page]


def test_a_daemon_that_starts_with_saved_settings_stays_small(console, owner, measured):
    console.output("systemctl restart fcgi_host.service")
    owner.sign_in(PASSWORD)
    for _ in range(100):
        for page in PAGES:
            owner.get(f"/servlet?p={page}")
    sizes = dict(re.findall(r"^(\w+): +(\d+) kB$",
                            console.output(f"cat /proc/{daemon(console)}/smaps_rollup"), re.MULTILINE))
    # Pages that it has written. Clean ones are those of the libraries that no other process uses.
    private = int(sizes["Private_Dirty"])
    measured.append(f"private memory of the daemon after 1,000 requests: {private} KiB")
    assert 0 < private <= PRIVATE_KIB
