"""The command line of fcgi_host."""

import grp
import os
import pathlib
import re
import socket
import stat
import subprocess

import pytest

from ports import free_port
from service import wait_until


@pytest.fixture
def run(build, start):
    def run(*arguments, stdin=subprocess.DEVNULL, **options):
        return subprocess.run([build.wire_host, *arguments], stdin=stdin, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True, timeout=30, check=False,
                              env=start.environment, **options)
    return run


def test_help_goes_to_standard_output(run):
    result = run("--help")
    assert result.returncode == 0
    assert result.stdout.startswith("Usage: fcgi_host [OPTION]...\n")
    assert result.stderr == ""


# The units and start-up files of version 1.0.0 go on working with later versions. Add new options; remove
# none before version 2.
OPTIONS = {"--listen", "--socket-mode", "--user", "--threads", "--timer", "--max-sessions", "--drain", "--help",
           "--version"}
SHORT = {"-l", "-m", "-u", "-n", "-t", "-s", "-d", "-h", "-V"}


def test_the_options_of_earlier_versions_are_there(run):
    shown = run("--help").stdout
    assert set(re.findall(r"(?<= )--[a-z-]+(?==|  )", shown)) >= OPTIONS
    assert set(re.findall(r"^  (-\w), ", shown, re.MULTILINE)) >= SHORT
    for option in OPTIONS | SHORT:
        # The last argument, which is wrong, keeps it from starting.
        assert "there is no option" not in run(option, "none", "--threads", "0").stderr


def test_the_version_is_printed(run):
    result = run("--version")
    assert result.returncode == 0
    assert re.fullmatch(r"fcgi_host \d+\.\d+\.\d+\n", result.stdout)


@pytest.mark.parametrize("arguments, message", [
    (["--port", "80"], "there is no option '--port'; see fcgi_host --help"),
    (["--threads", "0"], "--threads takes a number from 1 to 64, not '0'; see fcgi_host --help"),
    (["now"], "unexpected argument 'now'; see fcgi_host --help"),
    (["--listen", "localhost:80"], "'localhost:80' is neither a path nor a numeric ADDRESS:PORT "
                                   "such as 127.0.0.1:9000"),
])
def test_wrong_usage_is_reported_in_one_line(run, arguments, message):
    result = run(*arguments)
    assert (result.returncode, result.stdout) == (64, "")
    assert result.stderr == f"fcgi_host: {message}\n"


def test_without_a_socket_it_says_what_to_do(run):
    expected = ("fcgi_host: file descriptor 0 is no listening socket; start this from a web "
                "server, or give --listen PATH or --listen ADDRESS:PORT\n")
    ours, theirs = socket.socketpair()
    with ours, theirs, socket.socket(socket.AF_UNIX) as not_listening:
        for stdin in (subprocess.DEVNULL, subprocess.PIPE, ours, not_listening):
            result = run(stdin=stdin)
            assert (result.returncode, result.stdout, result.stderr) == (64, "", expected)


def test_without_a_standard_input_it_says_what_to_do(run):
    result = run(preexec_fn=lambda: os.close(0))
    assert result.returncode == 64
    assert "no listening socket" in result.stderr


def test_an_address_in_use_is_reported(run, start):
    start.host("--listen", start.socket_path)
    result = run("--listen", start.socket_path)
    assert result.returncode == 69
    assert result.stderr == f"fcgi_host: {start.socket_path} is in use by another process\n"
    assert start.cgi_fcgi("/servlet?p=facts").startswith(b"Content-Type"), "the first was harmed"


def test_a_port_in_use_is_reported(run):
    with socket.socket() as taken:
        taken.bind(("127.0.0.1", 0))
        taken.listen()
        where = f"127.0.0.1:{taken.getsockname()[1]}"
        result = run("--listen", where)
    assert result.returncode == 69
    assert result.stderr == f"fcgi_host: cannot listen on {where}: Address already in use\n"


def test_a_file_that_is_no_socket_is_not_replaced(run, folder):
    precious = folder / "precious"
    precious.write_text("data")
    result = run("--listen", str(precious))
    assert result.returncode == 69
    assert precious.read_text() == "data"


def test_a_socket_left_behind_by_a_killed_daemon_is_replaced(start):
    first = start.host("--listen", start.socket_path)
    first.process.kill()
    first.wait()
    assert os.path.exists(start.socket_path)
    start.host("--listen", start.socket_path)
    assert start.cgi_fcgi("/servlet?p=facts").startswith(b"Content-Type")


def ids_of(host, field):
    status = pathlib.Path(f"/proc/{host.process.pid}/status").read_text()
    return [int(word) for word in re.search(rf"^{field}:(.*)$", status, re.M).group(1).split()]


@pytest.mark.parametrize("options, mode", [([], 0o660), (["--socket-mode=0600"], 0o600)])
def test_the_socket_has_the_requested_mode(start, options, mode):
    start.host(f"--listen={start.socket_path}", *options)
    wait_until(lambda: os.path.exists(start.socket_path), "listening")
    assert stat.S_IMODE(os.stat(start.socket_path).st_mode) == mode


@pytest.mark.parametrize("user", ["no-such-user", "root:no-such-group"])
def test_an_unknown_user_is_reported(run, start, user):
    result = run("--user", user, "--listen", start.socket_path)
    assert result.returncode == 67
    kind, name = ("group" if ":" in user else "user"), user.split(":")[-1]
    assert result.stderr == f"fcgi_host: there is no {kind} '{name}'\n"
    assert not os.path.exists(start.socket_path)


def test_it_runs_as_the_given_user_with_that_users_groups(run, start):
    # No other user than root: another one may be unable to read the build folder.
    if os.geteuid() != 0:
        result = run("--user=root", "--listen", start.socket_path)
        assert (result.returncode, os.path.exists(start.socket_path)) == (71, False)
        assert result.stderr == "fcgi_host: cannot become the user root: Operation not permitted\n"
        return
    daemon = grp.getgrnam("daemon").gr_gid
    host = start.host(f"--listen={start.socket_path}", "--user=root:daemon",
                      extra_groups=[daemon + 1])
    wait_until(lambda: ids_of(host, "Gid") == [daemon] * 4, "the change of groups")
    assert ids_of(host, "Uid") == [0] * 4
    assert set(ids_of(host, "Groups")) == set(os.getgrouplist("root", daemon))
    assert os.stat(start.socket_path).st_gid == daemon
    assert start.cgi_fcgi("/servlet?p=facts").startswith(b"Content-Type")
    assert host.stop() == 0


@pytest.mark.parametrize("address", ["127.0.0.1:{}", "0.0.0.0:{}"])
def test_it_listens_on_a_port(start, address):
    port = free_port()
    host = start.host(f"--listen={address.format(port)}")
    start.socket_path = f"127.0.0.1:{port}"
    for _ in range(100):
        if host.process.poll() is None and start.cgi_fcgi("/servlet?p=slow"):
            break
    assert start.cgi_fcgi("/servlet?p=slow").endswith(b"begin end")
    assert host.stop() == 0


def test_systemd_passes_its_socket_as_descriptor_3(start, build):
    listener = start.shared_socket()
    # See sd_listen_fds(3): LISTEN_PID must be the process itself.
    script = 'exec 3<&0 </dev/null; LISTEN_PID=$$ LISTEN_FDS=1 exec "$0" --threads 1'
    process = start.start("bash", "-c", script, build.wire_host, log="host.log", stdin=listener,
                          env=start.environment)
    assert start.cgi_fcgi("/servlet?p=slow").endswith(b"begin end")
    process.terminate()
    assert process.wait(30) == 0
