"""Commands that run in the background while others use what they serve."""

import contextlib
import os
import re
import signal
import subprocess
import time

from conftest import SOURCE

PATIENCE = 60  # seconds; normally one is enough
BUILDING = 900  # seconds for a first build


class Started:
    """A command that runs in the background and reads its input from `type`."""

    def __init__(self, command, log, **options):
        self.file = log
        with log.open("w") as output:
            self.process = subprocess.Popen(
                ["bash", "-ec", command], cwd=SOURCE, text=True, stdin=subprocess.PIPE, stdout=output,
                stderr=subprocess.STDOUT, start_new_session=True, **options)

    @property
    def log(self):
        return self.file.read_text()

    def type(self, *lines):
        self.process.stdin.write("".join(f"{line}\n" for line in lines))
        self.process.stdin.flush()

    def wait_until(self, condition, patience=PATIENCE):
        end = time.monotonic() + patience
        while not condition():
            assert self.process.poll() is None and time.monotonic() < end, self.log
            time.sleep(0.05)

    def wait_for(self, pattern):
        self.wait_until(lambda: re.search(pattern, self.log))


@contextlib.contextmanager
def started(command, log, **options):
    """Stops the command after the block as Ctrl-C does, or a supervisor."""
    process = Started(command, log, **options)
    try:
        yield process
    finally:
        with contextlib.suppress(ProcessLookupError):
            os.killpg(process.process.pid, signal.SIGTERM)
        process.process.stdin.close()
        process.process.wait(PATIENCE)
