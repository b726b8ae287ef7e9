"""scripts/device without a phone: its command line. No test here downloads anything or starts QEMU."""

import shutil
import socket
import subprocess

import pytest

from conftest import SOURCE
from ports import free_port

SCRIPT = SOURCE / "scripts/device"


def device(*arguments):
    return subprocess.run([SCRIPT, *map(str, arguments)], text=True, stdin=subprocess.DEVNULL, check=False,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE)


@pytest.mark.parametrize("arguments", [
    ["--port"], ["--port", ""], ["--port", "0"], ["--port", "65536"], ["--port", "80a"], ["--memory=0"],
    ["--memory", "much"], ["--console", "now"], ["--other"], ["8080"]], ids=" ".join)
def test_wrong_arguments_are_refused(arguments):
    done = device(*arguments)
    assert done.returncode == 64 and done.stderr.startswith("usage: scripts/device"), done


def test_a_port_that_is_in_use_is_refused_before_anything_is_made():
    with socket.create_server(("127.0.0.1", free_port())) as server:
        done = device("--port", server.getsockname()[1])
    assert done.returncode == 69 and "is in use" in done.stderr


def test_the_help_text_has_every_option():
    printed = device("--help").stdout
    for option in ("--port", "--memory", "--console", "--test"):
        assert option in printed


def test_the_console_of_no_phone_is_refused(tmp_path):
    copy = tmp_path / "sources"
    for part in ("scripts/device", "tests/device", "tests/support"):
        (copy / part).parent.mkdir(parents=True, exist_ok=True)
        (shutil.copytree if (SOURCE / part).is_dir() else shutil.copy)(SOURCE / part, copy / part)
    done = subprocess.run([copy / "scripts/device", "--console"], text=True, check=False,
                          stdin=subprocess.DEVNULL, stderr=subprocess.PIPE)
    assert done.returncode == 69 and "no phone is running" in done.stderr
