"""Makes packages of a later version from those on the phone, to upgrade it with."""

import re
import subprocess

VERSION = "1.9.0-1"
MARK = "<!-- a later version -->"


def make(packages, folder):
    """Returns a tar archive in `folder` with a later version of each package. Its sign-in page begins
    with MARK."""
    made = [repack(package, folder) for package in packages]
    archive = folder / "packages.tar"
    subprocess.run(["tar", "-c", "-f", archive, "-C", folder, *(path.name for path in made)], check=True)
    return archive


def repack(package, folder):
    tree = folder / package.stem
    subprocess.run(["dpkg-deb", "-R", package, tree], check=True)
    control = tree / "DEBIAN/control"
    control.write_text(re.sub(r"(?m)^Version: .*", f"Version: {VERSION}", control.read_text()))
    for page in tree.glob("phone/www/WEB-INFO/templates/*/login.html"):
        page.write_text(MARK + page.read_text())
    newer = folder / f"newer-{package.name}"
    subprocess.run(["dpkg-deb", "--root-owner-group", "-Z", "gzip", "-b", tree, newer], check=True,
                   stdout=subprocess.DEVNULL)
    return newer
