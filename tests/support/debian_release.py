"""The Debian that tests install: the release of this machine, from the mirror that this machine uses."""

import pathlib
import subprocess


def release_and_mirror():
    """Returns the name of the release and the address of the mirror."""
    system = dict(line.split("=", 1) for line in
                  pathlib.Path("/etc/os-release").read_text().splitlines() if "=" in line)
    release = system["VERSION_CODENAME"]
    sources = subprocess.run(
        ["apt-get", "indextargets", "--format", "$(RELEASE) $(COMPONENT) $(REPO_URI)",
         "Identifier: Packages"], check=True, text=True, stdout=subprocess.PIPE).stdout.splitlines()
    return release, next(source.split()[2] for source in sources
                         if source.startswith(f"{release} main "))
