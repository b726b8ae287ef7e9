"""Runs a command in a user namespace of its own, in which the kernel runs programs for 32-bit ARM by a
given emulator. The registration ends with the namespace; the machine's own are not changed.
    sudo namespace.py EMULATOR COMMAND..."""

import ctypes
import os
import pathlib
import subprocess
import sys

BINFMT = pathlib.Path("/proc/sys/fs/binfmt_misc")
CLONE_NEWNS, CLONE_NEWUSER = 0x20000, 0x10000000
MS_REC, MS_PRIVATE = 0x4000, 0x40000
EVERY_ID = "0 0 4294967295\n"

# The begin of an ELF file for little-endian 32-bit ARM, executable or shared. F: the kernel opens the
# emulator now, so that it need not be in the file tree of the program.
MAGIC = (b"\x7fELF\x01\x01\x01\0" + 8 * b"\0" + b"\x02\0" + b"\x28\0")
MASK = (b"\xff\xff\xff\xff\xff\xff\xff\0" + 8 * b"\xff" + b"\xfe\xff" + b"\xff\xff")

libc = ctypes.CDLL(None, use_errno=True)


def call(name, *arguments):
    if getattr(libc, name)(*arguments) != 0:
        error = ctypes.get_errno()
        raise OSError(error, f"{name}: {os.strerror(error)}")


def enter():
    """Moves this process into a new user namespace, whose user and group numbers are the machine's.
    Only a process outside may define them."""
    inside, outside = os.pipe()
    writer = os.fork()
    if writer == 0:
        os.close(outside)
        if not os.read(inside, 1):
            os._exit(1)  # there is no namespace
        for kind in ("uid", "gid"):
            pathlib.Path(f"/proc/{os.getppid()}/{kind}_map").write_text(EVERY_ID)
        os._exit(0)
    try:
        call("unshare", CLONE_NEWUSER | CLONE_NEWNS)
    except OSError as error:
        # The kernel calls it "no space" if the limit is 0.
        sys.exit(f"namespace: {error}. Root needs a user namespace of its own here: is this a container "
                 "without CAP_SYS_ADMIN, or is the sysctl user.max_user_namespaces 0?")
    os.write(outside, b".")
    _, status = os.waitpid(writer, 0)
    if status != 0:
        sys.exit("namespace: the user numbers of the namespace could not be set; are you root?")
    call("mount", b"none", b"/", None, MS_REC | MS_PRIVATE, None)


def escaped(data):
    return b"".join(rb"\x%02x" % byte for byte in data)


def register(emulator):
    """Makes the kernel run ARM programs of this namespace by the emulator. mmdebstrap looks for the
    name."""
    call("mount", b"binfmt_misc", str(BINFMT).encode(), b"binfmt_misc", 0, None)
    (BINFMT / "register").write_bytes(
        b":qemu-arm:M::%s:%s:%s:F" % (escaped(MAGIC), escaped(MASK), os.fsencode(emulator)))


def main():
    emulator, *command = sys.argv[1:]
    enter()
    try:
        register(emulator)
    except OSError as error:
        # Programs run nevertheless where the whole machine has such a registration.
        print(f"namespace: {error}. binfmt_misc in a user namespace needs Linux 6.7; this is Linux "
              f"{os.uname().release}. On an older one, register qemu-arm for the whole machine: "
              '"apt-get install qemu-user-static binfmt-support".', file=sys.stderr)
    sys.exit(subprocess.run(command, check=False).returncode)


if __name__ == "__main__":
    main()
