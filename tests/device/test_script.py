"""scripts/device without a phone: its command line. No test here downloads anything or starts QEMU."""

import os
import re
import shutil
import socket
import subprocess
import sys
import types

import pytest

import device_image
import namespace
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


@pytest.mark.parametrize("command, status", [("true", 0), ("false", 1)])
def test_an_older_kernel_is_reported_with_what_to_do_and_the_command_is_run(
        monkeypatch, capsys, command, status):
    def refuse(name, *_):
        raise PermissionError(1, f"{name}: Operation not permitted")
    monkeypatch.setattr(namespace, "enter", lambda: None)
    monkeypatch.setattr(namespace, "call", refuse)
    monkeypatch.setattr(os, "uname", lambda: types.SimpleNamespace(release="6.1.0-25-amd64"))
    monkeypatch.setattr("sys.argv", ["namespace.py", "/nowhere/emulator", command])
    with pytest.raises(SystemExit) as ended:
        namespace.main()
    assert ended.value.code == status
    printed = capsys.readouterr().err
    for part in ("mount: Operation not permitted", "needs Linux 6.7; this is Linux 6.1.0-25-amd64",
                 '"apt-get install qemu-user-static binfmt-support"'):
        assert part in printed


def test_a_machine_without_user_namespaces_is_reported():
    own = ["unshare", "--user", "--map-root-user"]
    done = subprocess.run(
        [*own, "sh", "-c", 'echo 0 >/proc/sys/user/max_user_namespaces && exec "$@"', "sh",
         sys.executable, "-B", namespace.__file__, "/nowhere/emulator", "true"],
        text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    assert done.returncode == 1
    line, = done.stdout.splitlines()
    assert "No space left on device" in line and "user.max_user_namespaces" in line


@pytest.fixture
def kept_in(monkeypatch, tmp_path):
    """An empty folder in place of build/device."""
    monkeypatch.setattr(device_image, "FOLDER", tmp_path)
    return tmp_path


def names_in(folder):
    return sorted(path.name for path in folder.iterdir())


@pytest.mark.parametrize("failure", [
    device_image.ImageError("mke2fs failed"), OSError(28, "No space left on device"), SystemExit(0)],
    ids=["program", "full disk", "stopped"])
def test_nothing_is_left_of_an_image_that_cannot_be_made(kept_in, failure):
    def make(path):
        path.with_suffix(".part").write_text("half an image")
        (kept_in / f"{path.name}.Xa3b").mkdir()
        (kept_in / f"{path.name}.Xa3b/file").touch()
        path.mkdir()
        raise failure
    with pytest.raises(type(failure)):
        device_image.kept("disk", "new", make)
    assert names_in(kept_in) == []
    made = device_image.kept("disk", "new", lambda path: path.write_text("whole"))
    assert made.read_text() == "whole" and names_in(kept_in) == ["disk-new"]


def test_a_newer_part_replaces_an_earlier_one_and_leaves_other_parts(kept_in):
    for kind, name in (("disk", "1"), ("base", "1"), ("disk", "2")):
        device_image.kept(kind, name, lambda path: path.write_text("whole"))
    assert names_in(kept_in) == ["base-1", "disk-2"]


def test_a_missing_program_is_named(kept_in, monkeypatch):
    monkeypatch.setattr(device_image, "AS_ROOT", ["no-sudo"])
    with pytest.raises(device_image.ImageError, match="^no-sudo is missing, .* scripts/setup device"):
        device_image.in_namespace(kept_in, "true")
    with pytest.raises(device_image.ImageError, match="mke2fs-of-none: .*not found(.|\n)* status 127"):
        device_image.run("sh", "-c", "mke2fs-of-none")


def program(folder, name, script):
    path = folder / name
    path.write_text(f"#!/bin/sh\n{script}\n")
    path.chmod(0o755)


def test_a_full_disk_is_reported_and_nothing_is_left(tmp_path):
    stubs = tmp_path / "bin"
    stubs.mkdir()
    copy = tmp_path / "sources"
    for part in ("tests/device", "tests/support"):
        shutil.copytree(SOURCE / part, copy / part)
    release = device_image.release_and_mirror()[0]
    program(stubs, "apt-get", f"""case "$*" in
        indextargets*) echo {release} main http://mirror.example/debian ;;
        *download*) head -c 1000000 /dev/zero >kernel.deb ;;
        esac""")
    program(stubs, "apt-cache", "echo Depends: linux-image-6.1-armmp")
    script = ('mkdir -p build/device && mount -t tmpfs -o size=64k none build/device && '
              '{ "$@"; status=$?; ls build/device; exit $status; }')
    own = ["unshare", "--mount", *["--user", "--map-root-user"] * (os.geteuid() != 0)]
    done = subprocess.run(
        [*own, "sh", "-c", script, "sh", sys.executable, "-B", "tests/device/main.py"], cwd=copy, text=True,
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False,
        env=dict(os.environ, PATH=f"{stubs}:{os.environ['PATH']}"))
    lines = done.stdout.splitlines()
    assert done.returncode == 70, done.stdout
    assert lines[-1] == "lock", "what is left"
    assert "No space left on device" in done.stdout and "apt-get" in lines[-2]
    assert "Traceback" not in done.stdout


@pytest.fixture
def bare_machine(tmp_path):
    """Runs scripts/setup as a user on a machine on which nothing is installed that it asks for. Returns
    its result and the commands that would have changed the machine."""
    stubs, log = tmp_path / "bin", tmp_path / "commands"
    stubs.mkdir()
    log.touch()
    for name in ("bash", "dirname", "env", "rm", "sed", "tee"):
        (stubs / name).symlink_to(shutil.which(name))
    program(stubs, "id", "echo 1000")
    program(stubs, "dpkg-query", "exit 1")
    for name in ("apt-get", "chmod", "systemctl"):
        program(stubs, name, f'echo "as a user: {name}" >>{log}')

    def setup(*arguments, sudo=None):
        if sudo is not None:
            program(stubs, "sudo", f'echo "$*" >>{log}\ncase "$*" in {sudo} *) ;; esac')
        done = subprocess.run([SOURCE / "scripts/setup", *arguments], text=True, check=False,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              env={"PATH": str(stubs)})
        return done, log.read_text().splitlines()
    return setup


def test_setup_without_sudo_says_what_root_must_install(bare_machine):
    done, commands = bare_machine("plugin")
    assert done.returncode == 1 and not commands
    assert re.fullmatch("setup: as root, install: build-essential .* libgtest-dev\n", done.stdout)


def test_setup_knows_what_cpack_looks_for_programs_with(bare_machine):
    assert " file\n" in bare_machine("packages")[0].stdout


def test_setup_changes_the_machine_by_sudo_only(bare_machine):
    done, commands = bare_machine(sudo="")
    assert done.returncode == 0, done.stdout
    apt = [command for command in commands if "apt-get" in command]
    assert apt[0].endswith("apt-get -y -q update")
    assert "apt-get -y -q install --no-install-recommends build-essential cmake " in apt[1]
    assert not [command for command in commands if command.startswith("as a user")]


def test_setup_without_a_connection_fails_and_leaves_no_policy(bare_machine):
    done, commands = bare_machine(sudo="*update) echo no connection >&2; exit 100 ;;")
    assert done.returncode == 100 and "no connection" in done.stdout
    assert not [command for command in commands if " install " in command]
    policy = [command for command in commands if "policy-rc.d" in command]
    assert not policy or policy[-1] == "rm -f /usr/sbin/policy-rc.d"
