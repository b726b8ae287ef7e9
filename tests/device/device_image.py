"""Makes what the virtual phone boots: Debian's kernel, an initial file system, and a disk image with the
project's packages. Each is kept in build/device under a name that depends on what it is made of."""

import contextlib
import dataclasses
import fcntl
import hashlib
import os
import pathlib
import re
import shutil
import stat
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
SOURCE = HERE.parent.parent
FOLDER = SOURCE / "build/device"
sys.path.append(str(SOURCE / "tests/support"))
from debian_release import release_and_mirror

AS_ROOT = [] if os.geteuid() == 0 else ["sudo"]

# Debian's packages on the phone, besides the essential ones. lighttpd's unit needs procps to reload.
DEBIAN = ["adduser", "libcrypt1", "libfcgi0ldbl", "libpugixml1v5", "libsodium23", "libstdc++6",
          "lighttpd", "lighttpd-mod-deflate", "procps", "systemd", "systemd-sysv", "zlib1g"]
LEFT_OUT = ["/usr/share/doc/*", "/usr/share/info/*", "/usr/share/locale/*", "/usr/share/man/*"]
PROJECT = ["fcgiserver", "fcgiserver-phone"]
# crc32c_generic is an algorithm that ext4 asks for by name.
MODULES = ["virtio_mmio", "virtio_blk", "virtio_net", "crc32c_generic", "ext4"]


class ImageError(RuntimeError):
    """A part of the image cannot be made."""


@dataclasses.dataclass
class Image:
    kernel: pathlib.Path
    initramfs: pathlib.Path
    disk: pathlib.Path
    packages: list


def run(*command, **options):
    words = [str(word) for word in command]
    try:
        done = subprocess.run(words, text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, check=False, **options)
    except FileNotFoundError as error:
        raise ImageError(f"{error.filename} is missing, which the image is made with; "
                         "scripts/setup device installs all but sudo") from error
    if done.returncode != 0:
        raise ImageError(f"{done.stdout}{' '.join(words)} failed with status {done.returncode}")
    return done.stdout


def digest(*parts):
    """Returns a short name for files (paths) and texts."""
    sums = hashlib.sha256()
    for part in parts:
        data = part.read_bytes() if isinstance(part, pathlib.Path) else part.encode()
        sums.update(hashlib.sha256(data).digest())
    return sums.hexdigest()[:16]


def say(text):
    print(f"device: {text}", flush=True)


def remove(pattern):
    for path in FOLDER.glob(pattern):
        shutil.rmtree(path) if path.is_dir() else path.unlink()


def kept(kind, name, make):
    """Returns FOLDER/KIND-NAME, which `make` makes unless it is there; removes earlier ones. `make` gets a
    path, with which the names of further files may begin; if it fails, all of them are removed."""
    path = FOLDER / f"{kind}-{name}"
    if not path.exists():
        unfinished = FOLDER / f"unfinished-{kind}"
        remove(f"{kind}-*")
        remove(f"{unfinished.name}*")
        try:
            make(unfinished)
            unfinished.rename(path)
        finally:
            remove(f"{unfinished.name}*")
    return path


def download(folder):
    """Unpacks Debian's kernel and busybox for ARM and an emulator for this machine. Installs none: the
    emulator's package would change how the whole machine runs programs."""
    say("downloading Debian's kernel, busybox and emulator")
    native = run("dpkg", "--print-architecture").strip()
    for part in ("lists/partial", "cache/archives/partial", "packages"):
        (folder / part).mkdir(parents=True)
    apt = ["apt-get", "-q", "-o", f"APT::Architectures={native},armhf", "-o", "APT::Sandbox::User=root",
           "-o", f"Dir::State::Lists={folder}/lists", "-o", "Dir::State::status=/dev/null",
           "-o", f"Dir::Cache={folder}/cache", "-o", "Acquire::Languages=none"]
    # A source of this machine may lack ARM, as long as Debian's has it.
    subprocess.run([*apt, "update"], check=False, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    depends = run("apt-cache", *apt[2:], "depends", "linux-image-armmp:armhf")
    kernel = re.search(r"Depends: (linux-image-\S+)", depends)[1].removesuffix(":armhf")
    run(*apt, "download", f"{kernel}:armhf", "busybox-static:armhf", f"qemu-user-static:{native}",
        cwd=folder / "packages")
    for package in (folder / "packages").glob("*.deb"):
        run("dpkg-deb", "-x", package, folder)
    for part in ("lists", "cache", "packages"):
        shutil.rmtree(folder / part)


def with_needed(modules, names):
    """Returns the paths of kernel modules, each behind those that it needs."""
    known = {path.name.removesuffix(".ko").replace("-", "_"): path for path in modules.rglob("*.ko")}
    ordered = []

    def add(name):
        path = known[name.replace("-", "_")]
        needed = re.search(rb"\0depends=([^\0]*)\0", path.read_bytes())
        for each in needed[1].decode().split(",") if needed and needed[1] else []:
            add(each)
        if path not in ordered:
            ordered.append(path)
    for name in names:
        add(name)
    return ordered


def archive(entries):
    """Returns a cpio archive of (name, mode, data, device) entries, as the kernel unpacks it."""
    written = bytearray()
    for number, (name, mode, data, device) in enumerate([*entries, ("TRAILER!!!", 0, b"", (0, 0))], 1):
        fields = [number, mode, 0, 0, 1, 0, len(data), 0, 0, *device, len(name) + 1, 0]
        written += b"070701" + b"".join(b"%08x" % field for field in fields)
        written += name.encode() + b"\0"
        written += bytes(-len(written) % 4) + data
        written += bytes(-len(written) % 4)
    return bytes(written)


def initramfs(downloaded, path):
    busybox, = downloaded.glob("*bin/busybox")
    modules = with_needed(downloaded / "lib/modules", MODULES)
    folders = [(name, stat.S_IFDIR | 0o755, b"", (0, 0))
               for name in ("bin", "dev", "modules", "proc", "system")]
    files = [("init", stat.S_IFREG | 0o755, (HERE / "init").read_bytes(), (0, 0)),
             ("bin/busybox", stat.S_IFREG | 0o755, busybox.read_bytes(), (0, 0)),
             # The kernel opens it before init runs.
             ("dev/console", stat.S_IFCHR | 0o600, b"", (5, 1))]
    files += [(f"modules/{number:02}-{module.name}", stat.S_IFREG | 0o644, module.read_bytes(), (0, 0))
              for number, module in enumerate(modules)]
    packed = subprocess.run(["gzip", "-n"], input=archive(folders + files), check=True,
                            stdout=subprocess.PIPE).stdout
    path.write_bytes(packed)


def in_namespace(downloaded, *command):
    return run(*AS_ROOT, "/usr/bin/python3", "-B", HERE / "namespace.py",
               downloaded / "usr/bin/qemu-arm-static", *command)


def base(downloaded, release, mirror, path):
    say(f"making a small Debian {release} for armhf")
    packed = path.with_suffix(".tar")
    in_namespace(downloaded, "mmdebstrap", "--mode=unshare", "--architectures=armhf",
                 "--variant=essential", f"--include={','.join(DEBIAN)}",
                 *(f"--dpkgopt=path-exclude={pattern}" for pattern in LEFT_OUT),
                 release, packed, mirror)
    packed.rename(path)


def contents(package):
    """Returns what a package installs and does, without the date at which it was made."""
    with tempfile.TemporaryDirectory() as folder:
        run("dpkg-deb", "-e", package, folder)
        texts = {path.name: path.read_text() for path in pathlib.Path(folder).iterdir()}
    texts["md5sums"] = re.sub(r".*changelog\.Debian\.gz\n", "", texts["md5sums"])
    listing = [re.sub(r"^(\S+ \S+) +\d+ \S+ \S+", r"\1", line)
               for line in run("dpkg-deb", "-c", package).splitlines()]
    return "\n".join([*(f"{name}\n{text}" for name, text in sorted(texts.items())), *listing])


def packages():
    say("building the packages for armhf")
    run(SOURCE / "scripts/packages", "release-armhf")
    return [max((SOURCE / "build/packages").glob(f"{name}_*_armhf.deb"),
                key=lambda path: path.stat().st_mtime) for name in PROJECT]


@contextlib.contextmanager
def locked():
    """Keeps other processes out of the folder."""
    FOLDER.mkdir(parents=True, exist_ok=True)
    with (FOLDER / "lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


def make():
    """Makes what is missing; returns the paths of everything that the virtual machine boots."""
    try:
        with locked():
            return make_missing()
    except OSError as error:
        raise ImageError(f"the image cannot be made: {error}") from error


def make_missing():
    release, mirror = release_and_mirror()
    downloaded = kept("downloaded", release, download)
    start = kept("initramfs", digest(HERE / "init", HERE / "device_image.py",
                                     *downloaded.glob("boot/vmlinuz-*")),
                 lambda path: initramfs(downloaded, path))
    debian = kept("base", digest(release, mirror, *DEBIAN, *LEFT_OUT),
                  lambda path: base(downloaded, release, mirror, path))
    debs = packages()
    installed = [contents(deb) for deb in debs]

    def install(path):
        say("installing the packages")
        in_namespace(downloaded, HERE / "install-packages", debian, path, *debs)
    disk = kept("disk", digest(debian.name, HERE / "install-packages", *installed), install)
    kernel, = downloaded.glob("boot/vmlinuz-*")
    return Image(kernel, start, disk, debs)
