"""Runs a program in a terminal, and finds the processes that are left when it has ended."""

import contextlib
import os
import pathlib
import pty
import select
import signal
import subprocess
import threading
import time
import uuid

MARKER = "STARTED_BY_TEST"  # an environment variable, which every child process inherits


class Terminal:
    """A pseudo-terminal and the program in its foreground."""

    def __init__(self, command, **options):
        self.marker = f"{MARKER}={uuid.uuid4()}".encode()
        name, value = self.marker.decode().split("=")
        options["env"] = dict(options.get("env", os.environ), **{name: value})
        self.master, slave = pty.openpty()
        self.process = subprocess.Popen(
            [str(word) for word in command], stdin=slave, stdout=slave, stderr=slave,
            start_new_session=True, preexec_fn=self._take, **options)
        os.close(slave)
        self.output = b""
        self.closing = False
        self.reader = threading.Thread(target=self._read)
        self.reader.start()

    @staticmethod
    def _take():
        """Makes standard input the controlling terminal, with the program in its foreground."""
        os.close(os.open(os.ttyname(0), os.O_RDWR))
        # A background job ignores the first two, one of nohup(1) the third, and programs that they
        # start do so too.
        for number in (signal.SIGINT, signal.SIGQUIT, signal.SIGHUP):
            signal.signal(number, signal.SIG_DFL)

    def _read(self):
        with contextlib.suppress(OSError):  # no process has the terminal open any more
            while not self.closing:
                if select.select([self.master], [], [], 0.05)[0]:
                    self.output += os.read(self.master, 65536)

    def press_ctrl_c(self):
        os.write(self.master, b"\x03")

    def close(self):
        if not self.closing:
            self.closing = True
            self.reader.join()
            os.close(self.master)

    def processes(self):
        """The command lines of the program and of all that it has started, by process id."""
        found = {}
        for entry in pathlib.Path("/proc").glob("[0-9]*"):
            with contextlib.suppress(OSError):
                if self.marker in (entry / "environ").read_bytes().split(b"\0"):
                    found[int(entry.name)] = (entry / "cmdline").read_bytes().replace(
                        b"\0", b" ").decode(errors="replace")
        return found

    def processes_after(self, seconds):
        """The processes that are left after at most this time; none as soon as all have ended."""
        deadline = time.monotonic() + seconds
        while self.processes() and time.monotonic() < deadline:
            time.sleep(0.02)
        return self.processes()

    def log(self):
        """What the program has printed."""
        return self.output.decode(errors="replace").replace("\r\n", "\n")

    def end(self):
        """Kills whatever is left."""
        for pid in self.processes():
            with contextlib.suppress(ProcessLookupError):
                os.kill(pid, signal.SIGKILL)
        self.process.wait()
        self.close()


# How a user, a window manager or a service manager ends a program, and its exit status then.
ENDINGS = {
    "Ctrl-C": (Terminal.press_ctrl_c, 0),
    "closing the terminal": (Terminal.close, 0),
    "SIGTERM": (lambda terminal: terminal.process.terminate(), 0),
    "SIGTERM to the group": (
        lambda terminal: os.killpg(terminal.process.pid, signal.SIGTERM), 0),
    "SIGKILL": (lambda terminal: terminal.process.kill(), -signal.SIGKILL),
}
