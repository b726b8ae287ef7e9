"""The Debian packages that scripts/packages makes."""

import re
import subprocess

from conftest import SOURCE

FOLDER = SOURCE / "build/packages"
BUILD = SOURCE / "build/packages-release"  # where those for this machine are built
NAMES = ["fcgiserver", "fcgiserver-dev", "fcgiserver-phone"]


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], text=True, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    assert done.returncode == 0, f"{command}:\n{done.stdout}"
    return done.stdout


def debs(folder, architecture, release=1):
    """Returns the packages of one release of this version, in the order of NAMES."""
    found = [list(folder.glob(f"{name}_*-{release}_{architecture}.deb")) for name in NAMES]
    assert [len(paths) for paths in found] == [1] * len(NAMES), found
    return [path for path, in found]


def make(preset, architecture):
    for old in FOLDER.glob(f"*_{architecture}.deb"):
        old.unlink()
    run(SOURCE / "scripts/packages", preset)
    return debs(FOLDER, architecture)


# Information that is right and stays: words that log lines have always had, sections that debuggers use,
# and files of Debian's own that these packages have no use for.
KNOWN_INFORMATION = {
    "binary-has-unneeded-section", "no-symbols-control-file",
    "package-contains-documentation-outside-usr-share-doc", "package-contains-empty-directory",
    "package-supports-alternative-init-but-no-init.d-script", "spelling-error-in-binary",
    "static-library-has-unneeded-sections", "systemd-service-file-missing-install-key"}


def assert_lintian_finds_nothing(packages):
    """Binaries that are not hardened, for example, are information only."""
    found = run("lintian", "--allow-root", "--display-info", "--fail-on", "error,warning",
                *packages).splitlines()
    assert [line for line in found if not line.startswith("I: ")
            or line.split()[2] not in KNOWN_INFORMATION] == []


def programs_and_libraries(folder):
    """Returns the stripped programs and shared libraries below a folder by their names."""
    found = {path.name: path for path in folder.rglob("*")
             if path.is_file() and not path.is_symlink() and path.read_bytes()[:4] == b"\x7fELF"}
    assert {"fcgi_host", "libdevice.so", "libfcgiServer.so", "libphone.so"} <= set(found)
    return found


def undefined_symbols(path):
    """Returns the functions that a program or library takes from others."""
    symbols = run("nm", "--dynamic", "--undefined-only", "--format=posix", path).splitlines()
    return {re.sub("[@ ].*", "", symbol) for symbol in symbols}


def assert_hardened(folder):
    fortified = set()
    for name, path in programs_and_libraries(folder).items():
        read = run("readelf", "--wide", "--dynamic", "--program-headers", path)
        assert re.search(r"\(FLAGS\) +BIND_NOW", read) and "GNU_RELRO" in read, name
        assert re.search(r"GNU_STACK .* RW ", read), name
        # An executable file that is none of a fixed address.
        assert "Elf file type is DYN" in read, name
        symbols = undefined_symbols(path)
        assert "__stack_chk_fail" in symbols, name
        if any(symbol.endswith("_chk") for symbol in symbols):
            fortified.add(name)
    # The others call no function that could be checked at run time.
    assert {"libdevice.so", "libfcgiServer.so"} <= fortified
