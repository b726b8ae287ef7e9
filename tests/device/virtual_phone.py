"""A phone in a virtual ARM machine: starts it, serves its pages on this machine, and types commands into
its console."""

import contextlib
import ctypes
import http.client
import json
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time

BOOT = 600  # seconds; about 30 on a machine that does nothing else
PATIENCE = 120  # seconds for a command or a page; normally one is enough
PR_SET_PDEATHSIG = 1
# Each instruction takes a nanosecond of the phone's clock. So its clocks count instructions, and its
# time-outs do not depend on what else this machine does.
COUNTING = ("-icount", "shift=0,sleep=on")


class PhoneError(RuntimeError):
    """The virtual machine does not do what it should."""


class Console:
    """A shell of root on the phone."""

    def __init__(self, path, timeout=BOOT):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(str(path))
        self.read = ""
        self.number = 0
        self.sign_in(timeout)

    def sign_in(self, timeout):
        """Waits for the shell. Keys that are typed before it runs are lost."""
        end = time.monotonic() + timeout
        while True:
            self.type("exec sh\nstty -echo; PS1=; PS2=; TERM=dumb; echo shell-$((1 + 1))-ready\n")
            with contextlib.suppress(TimeoutError):
                self.wait_for(r"shell-2-ready\r?\n", 3)
                break
            if time.monotonic() > end:
                raise TimeoutError(f"the phone did not start:\n{self.read}")

    def type(self, text):
        self.socket.sendall(text.encode())

    def wait_for(self, pattern, timeout):
        """Waits for a text, and returns the match; drops it and what was before it."""
        end = time.monotonic() + timeout
        while not (found := re.search(pattern, self.read, re.DOTALL)):
            self.socket.settimeout(max(end - time.monotonic(), 0.01))
            if time.monotonic() > end:
                raise TimeoutError(f"no {pattern!r} in:\n{self.read}")
            with contextlib.suppress(TimeoutError):
                received = self.socket.recv(65536)
                if not received:
                    raise ConnectionError(f"the virtual machine has ended:\n{self.read}")
                self.read += received.decode(errors="replace")
        self.read = self.read[found.end():]
        return found

    def run(self, command, timeout=PATIENCE):
        """Runs a command on the phone; returns its output and its status."""
        self.number += 1
        self.type(f"echo begin-{self.number}-''; {command}\n"
                  f"printf '\\nend-{self.number}-%s-\\n' $?\n")
        found = self.wait_for(rf"begin-{self.number}-\r?\n(.*)\r?\nend-{self.number}-(\d+)-\r?\n", timeout)
        return found[1].replace("\r", "").strip("\n"), int(found[2])

    def output(self, command, timeout=PATIENCE):
        """Returns the output of a command that must succeed."""
        printed, status = self.run(command, timeout)
        assert status == 0, f"{command}: status {status}\n{printed}"
        return printed

    def close(self):
        self.socket.close()


class Monitor:
    """QEMU's control connection, which speaks QMP: a JSON object a line."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(PATIENCE)
        self.socket.connect(str(path))
        self.lines = self.socket.makefile("r")
        self.lines.readline()  # the greeting
        self.do("qmp_capabilities")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.lines.close()
        self.socket.close()

    def do(self, command, **arguments):
        """Returns the result of a command."""
        self.socket.sendall(json.dumps({"execute": command, "arguments": arguments}).encode())
        while True:
            answer = json.loads(self.lines.readline())
            if "event" not in answer:
                return answer["return"]


def end_with_this_process():
    """Makes the kernel end the calling process when the one that started it has ended, however that
    was."""
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def second_disk(path):
    """Returns QEMU's options for a file that the phone can read as /dev/vdb."""
    return ("-drive", f"if=none,id=second,format=raw,readonly=on,file={path}",
            "-device", "virtio-blk-device,drive=second")


def copy(disk, to):
    subprocess.run(["cp", "--sparse=always", "--reflink=auto", disk, to], check=True)


class VirtualPhone:
    """A virtual machine with its own copy of the disk. `forwarded` has pairs of a port here and one of the
    phone, besides that of the web server; `options` are further ones for QEMU."""

    def __init__(self, image, port, memory=64, forwarded=(), options=()):
        self.image, self.port, self.memory, self.options = image, port, memory, options
        self.forwarded = [*forwarded, (port, 80)]
        # Not below build/: the path of a socket has at most 107 bytes.
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="device."))
        self.console_path = self.folder / "console"
        self.monitor_path = self.folder / "monitor"
        self.disk = self.folder / "disk"
        self.process = None
        copy(image.disk, self.disk)

    def start(self, *options):
        """Switches the phone on."""
        self.process = subprocess.Popen([
            "qemu-system-arm", "-M", "virt", "-cpu", "cortex-a7", "-m", str(self.memory),
            "-nodefaults", "-display", "none", "-no-reboot",
            "-kernel", self.image.kernel, "-initrd", self.image.initramfs,
            "-append", "console=ttyAMA0 quiet loglevel=3 systemd.show_status=false "
            # Without the second parameter the kernel, once its memory is fragmented, keeps 8 MiB for
            # itself and ends programs although as much is free.
            "systemd.getty_auto=false sysctl.vm.watermark_boost_factor=0",
            # Linux counts disks from the last: the phone's own stays /dev/vda.
            *self.options,
            "-drive", f"if=none,id=disk,format=raw,file={self.disk}",
            "-device", "virtio-blk-device,drive=disk",
            # restrict: the phone cannot reach this machine or any other.
            "-netdev", "user,id=net,restrict=on" +
            "".join(f",hostfwd=tcp:127.0.0.1:{here}-10.0.2.15:{there}" for here, there in self.forwarded),
            "-device", "virtio-net-device,netdev=net",
            "-serial", f"unix:{self.console_path},server=on,wait=off",
            "-qmp", f"unix:{self.monitor_path},server=on,wait=off", *options],
            stdin=subprocess.DEVNULL, start_new_session=True, preexec_fn=end_with_this_process)
        # QEMU makes both before it reads its options to the end.
        while not (self.console_path.exists() and self.monitor_path.exists()):
            self.check_that_it_is_on()
            time.sleep(0.01)

    def record(self, memory, disk):
        """Copies the whole state of the phone to two files, and lets it go on. A machine that is started
        with resume() goes on from there."""
        with Monitor(self.monitor_path) as monitor:
            monitor.do("migrate", uri=f"exec:cat >{memory}")
            # The machine stops when all of its memory has been written.
            self.wait_for_state(monitor, "postmigrate")
            copy(self.disk, disk)
            monitor.do("cont")

    def resume(self, memory, disk):
        """Switches the phone on as it was when it was recorded."""
        copy(disk, self.disk)
        self.start("-incoming", f"exec:cat {memory}")
        with Monitor(self.monitor_path) as monitor:
            self.wait_for_state(monitor, "running")

    def wait_for_state(self, monitor, wanted):
        end = time.monotonic() + PATIENCE
        while (state := monitor.do("query-status")["status"]) != wanted:
            self.check_that_it_is_on()
            if time.monotonic() > end:
                raise PhoneError(f"QEMU is {state}, not {wanted}")
            time.sleep(0.02)

    def check_that_it_is_on(self):
        if self.process.poll() is not None:
            raise PhoneError(f"QEMU has ended with status {self.process.returncode}")

    def cut_power(self):
        self.process.kill()
        self.process.wait()
        self.console_path.unlink(missing_ok=True)
        self.monitor_path.unlink(missing_ok=True)

    def remove(self):
        """Switches the phone off and deletes its disk."""
        if self.process and self.process.poll() is None:
            self.cut_power()
        shutil.rmtree(self.folder, ignore_errors=True)

    def answers(self):
        """Whether the phone's sign-in page is served."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE)
        try:
            connection.request("GET", "/servlet?p=login&q=loginForm")
            return connection.getresponse().status == 200
        except (OSError, http.client.HTTPException):
            return False
        finally:
            connection.close()

    def wait_until_it_answers(self, timeout=BOOT):
        """Returns the seconds until the sign-in page was served."""
        begin = time.monotonic()
        while not self.answers():
            self.check_that_it_is_on()
            if time.monotonic() - begin > timeout:
                raise PhoneError(f"the phone does not answer within {timeout} s")
            time.sleep(0.2)
        return time.monotonic() - begin
