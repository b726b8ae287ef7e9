"""Tests that scripts/soak reports losses, and none in a short run."""

import pathlib
import subprocess
import sys

import pytest

import soak


def test_a_short_run_loses_nothing(build):
    program = pathlib.Path(soak.__file__)
    run = subprocess.run(
        [sys.executable, program, build.folder, "2000"],
        stdout=subprocess.PIPE, text=True, timeout=300, check=False)
    assert run.returncode == 0, run.stdout
    for line in ("| requests | 2,000 |", "| uploads aborted | 20 |", "| responses lost | 0 |",
                 "| sessions lost | 0 |", "| kills | 2 |"):
        assert line in run.stdout, run.stdout


@pytest.mark.parametrize("figure", [
    ("responses lost", 1), ("sessions lost", 1), ("growth of file descriptors", -1),
    ("files left by aborted uploads", 1), ("earlier upload unchanged", "no"),
    ("exit status 0 after SIGTERM", "no"), ("of 100 later requests, successful", 99)])
def test_a_loss_is_reported(figure):
    assert soak.is_sound([("a run", [("requests", 10), ("growth of private memory, KiB", 1)])])
    assert not soak.is_sound([("a run", [("requests", 10)]), ("another", [figure])])


@pytest.fixture
def client(monkeypatch):
    """A client with prepared responses of the page that counts the visits of a session."""
    client = soak.Client(0, 0)
    answers = []

    class Headers:
        def getheader(self, name):
            return "JSESSIONID=1"

    monkeypatch.setattr(client, "send", lambda *_, **__: (
        None if (answer := answers.pop(0)) is None else (answer[0], Headers(), answer[1])))
    return client, answers


@pytest.mark.parametrize("given, lost", [
    ([(200, b"count 1"), (200, b"count 2")], {}),
    ([(200, b"count 1"), (200, b"count 1")], {"sessions lost": 1}),
    ([(200, b"count 1"), None, (200, b"count 3")], {"responses lost": 1}),
    ([(200, b"count 1"), (503, b"")], {"responses lost": 1}),
])
def test_a_client_counts_lost_responses_and_sessions(client, given, lost):
    client, answers = client
    answers += given
    for _ in given:
        client.visit()
    assert client.tally == {"requests": len(given), **lost}


def test_the_tables_replace_those_in_the_document(tmp_path):
    document = tmp_path / "reliability.md"
    document.write_text("before\n<!-- soak -->\nold\n<!-- end of soak -->\nafter\n")
    soak.replace_section(document, "soak", "new\n")
    assert document.read_text() == (
        "before\n<!-- soak -->\n\nnew\n\n<!-- end of soak -->\nafter\n")
