"""The Debian packages that scripts/packages makes."""

import subprocess

from conftest import SOURCE

FOLDER = SOURCE / "build/packages"
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


def assert_lintian_finds_nothing(packages):
    assert run("lintian", "--allow-root", "--fail-on", "error,warning", *packages) == ""
