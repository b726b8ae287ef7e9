"""The Debian packages: made, checked, and installed in a fresh Debian, which serves the phone's pages."""

import contextlib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

import pytest

import debs
from debian_release import release_and_mirror
from debs import NAMES, SOURCE, run
from ports import free_port, is_listening

HERE = pathlib.Path(__file__).resolve().parent
ROOTS = SOURCE / "build/debian"  # kept for the next run
ARCHITECTURE = run("dpkg", "--print-architecture").strip()
UNITS = "usr/lib/systemd/system"
SOCKET = "/run/fcgi_host.sock"
FRONT = "/run/front.conf"
FRONT_SERVER = ["lighttpd", "lighttpd-mod-deflate"]
PATIENCE = 60  # seconds; normally one is enough

AS_ROOT = [] if os.geteuid() == 0 else ["sudo"]
needs_root = pytest.mark.skipif(bool(AS_ROOT and not shutil.which("sudo")),
                                reason="neither root nor sudo: no Debian can be made")


@pytest.fixture(scope="module")
def packages():
    return debs.make("release", ARCHITECTURE)


@pytest.fixture(scope="module")
def newer_packages(packages, tmp_path_factory):
    folder = tmp_path_factory.mktemp("newer")
    run("cpack", "--config", debs.BUILD / "CPackConfig.cmake", "-B", folder,
        "-D", "CPACK_DEBIAN_PACKAGE_RELEASE=2")
    return debs.debs(folder, ARCHITECTURE, 2)


class Debian:
    """A file tree with a Debian system."""

    def __init__(self, folder):
        self.folder = folder

    def run(self, *command):
        return run(*AS_ROOT, "chroot", self.folder, "env", "-i", "LC_ALL=C", "HOME=/root",
                   "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "DEBIAN_FRONTEND=noninteractive", *command)

    def install(self, packages, *options):
        run(*AS_ROOT, "cp", *packages, self.folder / "tmp")
        inside = [f"/tmp/{path.name}" for path in packages]
        self.run("apt-get", "-y", "-q", "--no-install-recommends", *options, "install", *inside)
        self.run("rm", *inside)

    def append(self, path, text):
        """Appends to a file, which is created if need be."""
        subprocess.run([*AS_ROOT, "tee", "--append", self.folder / path], text=True, input=text,
                       check=True, stdout=subprocess.DEVNULL)

    def files(self):
        """Returns all files by path: owner, mode and, except for folders, size and time."""
        listing = run(*AS_ROOT, "find", self.folder, "-xdev", "-mindepth", "1",
                      "(", "-type", "d", "-printf", r"%P\t%M %U %G\n", ")",
                      "-o", "-printf", r"%P\t%M %U %G %s %T@ %l\n")
        return dict(line.split("\t") for line in listing.splitlines())


@pytest.fixture(scope="module")
def base(packages):
    """A small Debian with lighttpd, and with the archives that the packages depend on."""
    release, mirror = release_and_mirror()
    folder = ROOTS / "-".join([release, *FRONT_SERVER])
    if not folder.exists():
        unfinished = ROOTS / "unfinished"
        run(*AS_ROOT, "rm", "-rf", unfinished)
        unfinished.parent.mkdir(parents=True, exist_ok=True)
        run(*AS_ROOT, "debootstrap", "--variant=minbase",
            *["--include=ca-certificates"] * mirror.startswith("https"),
            release, unfinished, mirror)
        debian = Debian(unfinished)
        # Services must not be started when they are installed.
        debian.append("usr/sbin/policy-rc.d", "#!/bin/sh\nexit 101\n")
        debian.run("chmod", "755", "/usr/sbin/policy-rc.d")
        debian.run("apt-get", "-y", "-q", "--no-install-recommends", "install", *FRONT_SERVER)
        debian.install(packages, "--download-only")
        run(*AS_ROOT, "mv", unfinished, folder)
    return Debian(folder)


@pytest.fixture(scope="module")
def device(base, packages):
    """A Debian of its own for this run, with the packages, and lighttpd configured for the pages."""
    folder = ROOTS / "device"
    run(*AS_ROOT, "rm", "-rf", folder)
    run(*AS_ROOT, "cp", "-a", "--reflink=auto", base.folder, folder)
    debian = Debian(folder)
    debian.install(packages)
    debian.run("lighty-enable-mod", "fcgiserver-phone")
    yield debian
    run(*AS_ROOT, "rm", "-rf", folder)


@contextlib.contextmanager
def running(log, *command):
    """Starts a program that is stopped after the block."""
    with log.open("w") as output:
        process = subprocess.Popen([*AS_ROOT, *map(str, command)], stdout=output,
                                   stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)
    try:
        yield process
    finally:
        subprocess.run([*AS_ROOT, "kill", str(process.pid)], check=False)
        process.wait(PATIENCE)


def wait_until(condition, process, log):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        assert process.poll() is None and time.monotonic() < deadline, log.read_text()
        time.sleep(0.05)


class Phone:
    """Requests pages as a browser does."""

    def __init__(self, port, folder):
        self.address = f"http://127.0.0.1:{port}"
        self.cookies = folder / "cookies"

    def get(self, path, *options):
        """Returns the status and the body."""
        printed = run("curl", "--silent", "--show-error", "--max-time", PATIENCE, "--location",
                      "--cookie", self.cookies, "--cookie-jar", self.cookies,
                      "--write-out", r"\n%{http_code}", *options, self.address + path)
        body, _, status = printed.rpartition("\n")
        return int(status), body

    def send(self, form, path, fields, *options):
        """Reads the form at `form` and sends these fields and its token to `path`."""
        token = re.search(r'name="token" value="(\w+)"', self.get(form)[1])[1]
        return self.get(path, "--data", f"{fields}&token={token}", *options)

    def sign_in(self):
        return self.send("/servlet?p=login&q=loginForm", "/servlet?p=login&q=login",
                         "user=admin&password=admin")


@contextlib.contextmanager
def serving(device, folder):
    """Starts the daemon as its unit does, behind Debian's lighttpd. Its system calls are recorded in
    the file "calls" in `folder`."""
    port = free_port()
    device.run("rm", "-f", SOCKET, FRONT)
    device.append(FRONT.lstrip("/"),
                  f'include "/etc/lighttpd/lighttpd.conf"\nserver.port := {port}\n')
    daemon_log, front_log = folder / "daemon.log", folder / "lighttpd.log"
    with contextlib.ExitStack() as started:
        daemon = started.enter_context(running(
            daemon_log, "strace", "-D", "-f", "-qq", "-o", folder / "calls",
            sys.executable, "-I", HERE / "supervise.py", device.folder))
        wait_until((device.folder / SOCKET.lstrip("/")).exists, daemon, daemon_log)
        front = started.enter_context(running(
            front_log, "chroot", device.folder, "lighttpd", "-D", "-f", FRONT))
        wait_until(lambda: is_listening(port), front, front_log)
        yield Phone(port, folder)
    assert daemon.returncode == 0, daemon_log.read_text()
    device.run("rm", "-f", FRONT, SOCKET, "/run/lighttpd.pid")


def test_lintian_finds_nothing(packages):
    debs.assert_lintian_finds_nothing(packages)


def test_all_programs_and_libraries_are_hardened(packages, tmp_path):
    for package in packages:
        run("dpkg-deb", "-x", package, tmp_path)
    debs.assert_hardened(tmp_path)


def test_the_pages_accept_every_later_container_of_their_major_version(packages):
    depends = run("dpkg-deb", "--field", packages[2], "Depends").strip().split(", ")
    assert [package for package in depends if package.startswith("fcgiserver")] \
        == ["fcgiserver (>= 1.0.0)", "fcgiserver (<< 2~)"]


def test_the_packages_contain_the_front_servers_configurations_and_the_documents(packages, tmp_path):
    for package in packages:
        run("dpkg-deb", "-x", package, tmp_path)
    share = tmp_path / "usr/share"
    configurations = {path.name for path in (SOURCE / "packaging/front-servers").iterdir()
                      if path.suffix in (".conf", ".lua")}
    assert {path.name for path in (share / "doc/fcgiserver/examples").iterdir()} \
        == configurations - {"lighttpd-debian.conf"}
    documents = {path.relative_to(SOURCE) for path in (SOURCE / "docs").rglob("*.md")}
    packaged = share / "doc/fcgiserver-dev"
    assert documents and {path.relative_to(packaged) for path in packaged.rglob("docs/**/*.md")} \
        == documents
    lighttpd = tmp_path / "etc/lighttpd/conf-available/50-fcgiserver-phone.conf"
    included = re.findall('^include "(.*)"', lighttpd.read_text(), re.MULTILINE)
    assert included and all((tmp_path / path.lstrip("/")).exists() for path in included)
    assert [path.name for path in share.iterdir() if path.name.lower() == "fcgiserver"] \
        == ["fcgiServer"]


@pytest.fixture(scope="module")
def recipe(packages, tmp_path_factory):
    """Follows docs/packages.md; returns the image, and what the last command, servlet_check, prints."""
    commands = re.search(r"^cmake --preset release .*?(?=^```)",
                         (SOURCE / "docs/packages.md").read_text(), re.M | re.S)[0].splitlines()
    assert [command.partition(" ")[0] for command in commands[:2]] == ["cmake", "cmake"]
    image = tmp_path_factory.mktemp("recipe") / "image"
    printed = ""
    for command in commands[2:]:
        # The packages' build, which has the same preset and prefix.
        there = command.replace("build/release", str(debs.BUILD))
        printed = run("sh", "-c", re.sub(r"\bimage\b", str(image), there))
    return image, printed


def test_an_image_contains_what_a_device_needs_and_nothing_else(recipe):
    image, _ = recipe
    files = {path.relative_to(image) for path in image.rglob("*") if not path.is_dir()}
    names = {str(path) for path in files}
    assert {"usr/sbin/fcgi_host", "phone/data/reset", "phone/www/index.html",
            "phone/www/WEB-INFO/lib/libphone.so", "phone/www/WEB-INFO/servlet/servlet.xml"} <= names
    others = {name for name in names if not name.startswith("phone/")}
    assert {re.sub(r"lib/[^/]+/(?=lib)", "lib/", name) for name in others} == {
        "usr/lib/libdevice.so", "usr/lib/libfcgiServer.so", "usr/sbin/fcgi_host",
        "usr/lib/systemd/system/fcgi_host.service", "usr/lib/systemd/system/fcgi_host.socket",
        "usr/share/man/man5/servlet.xml.5", "usr/share/man/man8/fcgi_host.8"}


def test_the_programs_and_libraries_of_an_image_are_stripped(recipe):
    image, _ = recipe
    for name, path in debs.programs_and_libraries(image).items():
        assert ".symtab" not in run("readelf", "--wide", "--section-headers", path), name


def test_servlet_check_finds_no_problem_in_an_image_without_the_c_library(recipe):
    _, printed = recipe
    note, = printed.splitlines()
    assert "note: not below" in note and "libc.so.6" in note


def test_a_crash_costs_less_than_a_second_and_a_stop_leaves_no_socket():
    units = SOURCE / "packaging/systemd"
    service = (units / "fcgi_host.service.in").read_text()
    assert int(re.search(r"^RestartSec=(\d+)ms$", service, re.MULTILINE)[1]) < 1000
    # Else five crashes in ten seconds would end the service.
    assert re.search(r"^StartLimitBurst=\d+$", service, re.MULTILINE)
    assert "\nRemoveOnStop=yes\n" in (units / "fcgi_host.socket").read_text()


def test_systemd_accepts_the_units_and_confines_the_daemon(packages, tmp_path):
    run("dpkg-deb", "-x", packages[0], tmp_path)
    units = tmp_path / UNITS
    for target in pathlib.Path("/", UNITS).glob("*.target"):
        shutil.copy(target, units)
    assert run("systemd-analyze", "verify", "--man=no", "--root", tmp_path,
               *[f"/{UNITS}/{name}" for name in ("fcgi_host.service", "fcgi_host.socket")]) == ""
    # In tenths of the exposure level that it prints, 0 to 10.
    run("systemd-analyze", "security", "--offline=true", "--threshold=10",
        units / "fcgi_host.service")


def test_a_project_is_built_with_the_development_package(packages, tmp_path):
    for package in packages[:2]:
        run("dpkg-deb", "-x", package, tmp_path / "root")
    usr = tmp_path / "root/usr"
    run("cmake", "-S", HERE / "consumer", "-B", tmp_path / "build", "-G", "Ninja",
        f"-DCMAKE_PREFIX_PATH={usr}")
    run("cmake", "--build", tmp_path / "build", "--target", "pages", "own_host")
    libraries, = usr.glob("lib/*/libfcgiServer.so")
    printed = run(tmp_path / "build/own_host",
                  env=dict(os.environ, LD_LIBRARY_PATH=str(libraries.parent)))
    assert printed.endswith("0 sessions\n")


def allowed_calls(service):
    """Returns the system calls that the filters of the unit allow."""
    def names(filters):
        for name in filters:
            if name.startswith("@"):
                lines = run("systemd-analyze", "syscall-filter", name).splitlines()[1:]
                yield from names([line.strip() for line in lines if line.strip()[:1] != "#"])
            else:
                yield name
    allowed = set()
    for filters in re.findall("^SystemCallFilter=(.*)$", service, re.MULTILINE):
        if filters.startswith("~"):
            allowed -= set(names(filters[1:].split()))
        else:
            allowed |= set(names(filters.split()))
    return allowed


@needs_root
def test_the_pages_are_served_by_a_daemon_that_does_what_its_unit_allows(device, tmp_path):
    with serving(device, tmp_path) as phone:
        status, page = phone.get("/")
        assert status == 200 and "<title>Sign in" in page
        status, page = phone.get("/nothing")
        assert status == 404 and "<h1>Page not found" in page
        assert phone.get("/style.css")[0] == 200
        compressed = ("--header", "Accept-Encoding: gzip", "--output", "/dev/null", "--dump-header", "-")
        assert "Content-Encoding: gzip" in phone.get("/style.css", *compressed)[1]
        assert "Content-Encoding" not in phone.get("/", *compressed)[1]
        assert phone.get("/WEB-INFO/servlet/servlet.xml")[0] == 403
        status, page = phone.sign_in()
        assert status == 200 and "<h1>Welcome</h1>" in page
        status, page = phone.send("/servlet?p=security", "/servlet?p=security&q=password",
                                  "newPassword=garden+gate&repeat=garden+gate")
        assert status == 200 and "<h1>Status</h1>" in page
        backup = tmp_path / "phone.backup"
        status, _ = phone.send("/servlet?p=settings-config", "/servlet?p=settings-config&q=backup",
                               "passphrase=behind+the+shed&repeat=behind+the+shed", "--output", backup)
        assert status == 200 and backup.read_bytes().startswith(b"desk phone backup 1\n")
    assert sorted(run(*AS_ROOT, "find", device.folder / "phone/data", "-printf", "%P %M\n").splitlines()) \
        == [" drwxr-x---", "password.1 -rw-------", "password.2 -rw-------", "state.xml -rw-------"]
    device.run("touch", "/phone/data/reset")  # the tests that follow sign in with the factory password

    # Beginning with the first one of the daemon itself.
    calls = run(*AS_ROOT, "cat", tmp_path / "calls").partition("execve(\"/usr/sbin/fcgi_host\"")[2]
    made = set(re.findall(r"^\d+ +(?:<\.\.\. )?([a-z0-9_]+)\(", calls, re.MULTILINE))
    service = (device.folder / UNITS / "fcgi_host.service").read_text()
    assert {"accept", "mmap", "openat", "renameat"} <= made
    assert made - allowed_calls(service) == set()
    # MemoryDenyWriteExecute, RestrictAddressFamilies
    assert not re.search("PROT_WRITE.PROT_EXEC", calls)
    families = set(re.findall(r"\bsocket\((AF_[A-Z]+)", calls))
    assert families and families <= set(re.search("^RestrictAddressFamilies=(.*)$", service, re.M)[1].split())


@needs_root
def test_files_are_served_without_the_package_that_compresses_them(device, tmp_path):
    module = "/usr/lib/lighttpd/mod_deflate.so"
    device.run("mv", module, f"{module}.away")
    try:
        with serving(device, tmp_path) as phone:
            status, answer = phone.get("/style.css", "--header", "Accept-Encoding: gzip", "--include")
            assert status == 200 and "Content-Encoding" not in answer
    finally:
        device.run("mv", f"{module}.away", module)


@needs_root
def test_an_upgrade_keeps_files_that_an_administrator_has_edited(device, newer_packages, tmp_path):
    edited = ["etc/fcgiserver/servlet.xml", "etc/lighttpd/conf-available/50-fcgiserver-phone.conf"]
    comments = {"xml": "<!-- edited -->\n", "conf": "# edited\n"}
    for path in edited:
        device.append(path, comments[path.rpartition(".")[2]])
    device.install(newer_packages)
    versions = device.run("dpkg-query", "-W", "-f", "${Version}\n", *NAMES).split()
    assert versions == ["1.0.0-2"] * len(NAMES)
    for path in edited:
        assert "edited" in (device.folder / path).read_text(), path
    with serving(device, tmp_path) as phone:
        assert phone.sign_in()[0] == 200


# Files of the package system, the linker and the account database.
NOT_THE_PACKAGES = re.compile(
    r"var/lib/dpkg/(status|available|diversions|statoverride|lock|triggers/|info/)|"
    r"var/lib/apt/(extended_states|lists/)|var/cache/(apt|ldconfig|debconf)/|"
    r"var/log/(apt/|dpkg\.log|alternatives\.log|lighttpd)|"
    r"etc/ld\.so\.cache|run/adduser|"
    r"etc/(passwd|group|shadow|gshadow|subuid|subgid)-?$")


@needs_root
def test_a_purge_leaves_only_the_daemons_user(base, device):
    device.run("apt-get", "-y", "-q", "--autoremove", "purge", *NAMES)
    before, after = base.files(), device.files()
    changed = {path for path in before.keys() | after.keys()
               if before.get(path) != after.get(path) and not NOT_THE_PACKAGES.match(path)}
    assert changed == set()

    def accounts(debian):
        return set((debian.folder / "etc/passwd").read_text().splitlines())
    added, = accounts(device) - accounts(base)
    assert added.startswith("_fcgihost:") and added.endswith(":/nonexistent:/usr/sbin/nologin")
