"""fcgi_host(8), the text of --help and docs/operations.md name the same options, signals, exit statuses and
variables."""

import re

from conftest import SOURCE

MANUAL = (SOURCE / "packaging/man/fcgi_host.8").read_text().replace("\\-", "-")
OPERATIONS = (SOURCE / "docs/operations.md").read_text()
HELP = "\n".join(re.findall(r'^    "(.*?)(?:\\n)?"[;]?$', re.search(
    r"kHelpText\[\] =\n(.*?);\n", (SOURCE / "host/options.cpp").read_text(), re.S)[1], re.M))
STOP_SIGNALS = {"SIGTERM", "SIGINT", "SIGHUP"}


def section(name):
    return re.search(rf"^\.SH {name}\n(.*?)(?=^\.SH |\Z)", MANUAL, re.M | re.S)[1]


def chapter(name):
    return re.search(rf"^## {name}\n(.*?)(?=^## |\Z)", OPERATIONS, re.M | re.S)[1]


def first_cells(text):
    return "\n".join(re.findall(r"^\| ([^|]*) \|", text, re.M))


def signals(text):
    return set(re.findall(r"\bSIG(?:RTMIN\+\d|[A-Z]+\d?)", text))


def statuses(text):
    return set(re.findall(r"\b\d+\b", text))


def test_the_manual_and_the_help_have_every_option():
    source = (SOURCE / "host/options.cpp").read_text()
    options = set(re.findall(r'\{"([a-z-]+)", (?:required|no)_argument', source))
    assert "listen" in options
    for text in (HELP, section("OPTIONS")):
        assert set(re.findall(r"--([a-z-]+)", text)) == options
    letters = {letter for letter in re.search(r'"\+:(.*?)"', source)[1] if letter != ":"}
    assert set(re.findall(r"^\.BR -(\w) ", section("OPTIONS"), re.M)) == letters
    assert set(re.findall(r" {2}-(\w), ", HELP)) == letters


def test_the_manual_has_every_signal_and_the_help_those_to_send():
    named = signals("\n".join(re.findall(r"^\.BR? (SIG.*)$", section("SIGNALS"), re.M)))
    assert named == signals(first_cells(chapter("Signals")))
    # "SIGRTMIN + 1" and the like.
    handled = {name.replace(" ", "") for name in
               re.findall(r"SIG[A-Z]+\d?(?: \+ \d)?", (SOURCE / "host/signals.h").read_text() +
                          (SOURCE / "host/signals.cpp").read_text())
               if not name.startswith("SIG_")} - {"SIGNALS"}  # of an include guard
    assert STOP_SIGNALS < handled <= named
    assert signals(HELP) == handled - {"SIGUSR1", "SIGPIPE"}


def test_the_three_have_every_exit_status():
    named = statuses("\n".join(re.findall(r"^\.BR? ([\d\", ]+)$", section("EXIT STATUS"), re.M)))
    assert "129" in named
    assert statuses(first_cells(chapter("Exit statuses"))) == named
    listed = re.findall(r"^ +(\d+(?:, \d+)*)  ", HELP.partition("Exit status:")[2], re.M)
    assert statuses(" ".join(listed)) == named


def test_the_manual_has_the_variables_of_the_log():
    named = set(re.findall(r"^\.B ([A-Z_]+)$", section("ENVIRONMENT"), re.M))
    assert {name for name in named if name.startswith("APP_LOG")} \
        == set(re.findall(r"\bAPP_LOG\w*", OPERATIONS))


def test_the_manual_has_the_variables_of_the_service_manager():
    read = set(re.findall(r'variable\("([A-Z_]+)"\)', (SOURCE / "host/service_manager.cpp").read_text()))
    assert "NOTIFY_SOCKET" in read
    assert read <= set(re.findall(r"\b[A-Z_]+\b", section("ENVIRONMENT")))
