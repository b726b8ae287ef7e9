"""Builds, checks and serves a plug-in project until a signal arrives, and again after each change.
Started by scripts/serve and servlet_serve; none of this is installed on a device.

lighttpd sends the requests to the relay (relay.py), and that to the daemon, whose listening socket stays
open here: requests wait while one daemon follows another.
"""

import argparse
import collections
import contextlib
import ctypes
import filecmp
import os
import pathlib
import shutil
import signal
import socket
import subprocess
import sys
import threading
import time
import urllib.parse
import xml.etree.ElementTree

import problems
import relay

LIBC = ctypes.CDLL(None)
AT_FDCWD = -100  # of <fcntl.h>
RENAME_EXCHANGE = 2  # of <stdio.h>

POLL = 0.2  # seconds between two looks at the project's files
HERE = pathlib.Path(__file__).resolve().parent
SERVLET_XML = "WEB-INFO/servlet/servlet.xml"
DEVICE_LIBRARIES = "/phone/www/WEB-INFO/lib/"
# Reloaded by the daemon only when it starts; it reads everything else again.
READ_ONCE = ("WEB-INFO/lib", "WEB-INFO/servlet")

SOURCES = (".c", ".cc", ".cpp", ".cxx", ".h", ".hh", ".hpp", ".hxx")


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    add = parser.add_argument
    add("--name", required=True, help="of the calling program, for messages")
    add("--project", required=True, type=pathlib.Path, help="the sources")
    add("--build", required=True, type=pathlib.Path, help="the project's build folder")
    add("--www", required=True, type=pathlib.Path, help="the folder whose files are served")
    add("--library-folder", default=DEVICE_LIBRARIES,
        help="where the daemon finds what is installed in " + DEVICE_LIBRARIES)
    add("--state", required=True, type=pathlib.Path, help="a folder for sockets; removed at the end")
    add("--port", required=True, type=int)
    add("--lighttpd", required=True, help="its configuration")
    add("--servlet-check", required=True)
    add("--provides", action="append", default=[], help="for servlet_check")
    add("--daemon", required=True)
    add("--daemon-pid", required=True, type=pathlib.Path, help="the file for its process id")
    return parser.parse_args()


class Project:
    """The author's files."""

    def __init__(self, folder):
        self.folder = folder

    def snapshot(self):
        """Returns the size and time of each file, but not of those of editors and of builds."""
        return dict(self._files(self.folder))

    def watches(self, folder):
        """Returns whether files in this folder are taken for the author's."""
        path = pathlib.Path(os.path.realpath(folder))
        project = pathlib.Path(os.path.realpath(self.folder))
        if not path.is_relative_to(project):
            return False
        inside = [part for part in (path, *path.parents) if part.is_relative_to(project) and part != project]
        return not any(self._is_passed_over(part.name) or self._is_build_folder(part) for part in inside)

    def source_of(self, installed):
        """Returns the file of the project that was installed as `installed`; that itself if there is none."""
        def likeness(path):
            own = path.relative_to(self.folder).parts
            pairs = zip(reversed(own), reversed(installed.parts))
            common = next((count for count, (a, b) in enumerate(pairs) if a != b), len(own))
            # A copy in a folder that was installed into, such as image/, has other folders above.
            return common / len(own), common

        with contextlib.suppress(OSError):
            same = [path for path in map(pathlib.Path, self.snapshot())
                    if path.name == installed.name and filecmp.cmp(path, installed, shallow=False)]
            return max(same, key=likeness, default=installed)
        return installed

    def place_of(self, text):
        """Returns the first file of the source code that contains `text`, and the line, or None."""
        for path in sorted(map(pathlib.Path, self.snapshot())):
            if path.suffix in SOURCES:
                with contextlib.suppress(OSError):
                    before, found, _ = path.read_text(errors="replace").partition(text)
                    if found:
                        return path, before.count("\n") + 1
        return None

    def _files(self, folder):
        with contextlib.suppress(OSError), os.scandir(folder) as entries:
            for entry in entries:
                if self._is_passed_over(entry.name):
                    continue
                with contextlib.suppress(OSError):
                    if not entry.is_dir(follow_symlinks=False):
                        status = entry.stat()
                        yield entry.path, (status.st_size, status.st_mtime_ns)
                    elif not self._is_build_folder(entry.path):
                        yield from self._files(entry.path)

    @staticmethod
    def _is_passed_over(name):
        return name.startswith(".") or name.endswith("~")

    @staticmethod
    def _is_build_folder(folder):
        # CMake creates CMakeFiles first.
        return any(os.path.exists(f"{folder}/{name}") for name in ("CMakeCache.txt", "CMakeFiles"))


class Daemon:
    """The daemon, run by keep_daemon, which starts another when one has ended in order."""

    def __init__(self, arguments):
        self.path = arguments.state / "daemon.sock"
        self.pid_file = arguments.daemon_pid
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(str(self.path))
        self.listener.listen(128)
        self.environment = dict(os.environ, DAEMON=arguments.daemon, DAEMON_PID=str(self.pid_file))
        self.keeper = None
        self.log_reader = None
        self.log = collections.deque(maxlen=40)

    def start(self):
        self.log.clear()
        # setpriv: if this program is killed, the kernel stops the daemon.
        self.keeper = subprocess.Popen(
            ["setpriv", "--pdeathsig", "TERM", HERE / "keep_daemon"], stdin=self.listener,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=self.environment, start_new_session=True)
        self.log_reader = threading.Thread(target=self._pass_log, args=(self.keeper.stdout,), daemon=True)
        self.log_reader.start()

    def restart(self):
        """Has the daemon replaced by another, and waits until that has begun."""
        former = self.pid()
        with contextlib.suppress(OSError):
            os.kill(former, signal.SIGTERM)
        while self.is_running() and self.pid() == former:
            time.sleep(0.02)
            if stop.requested:
                return

    def pid(self):
        try:
            return int(self.pid_file.read_text())
        except (OSError, ValueError):
            return 0

    def is_running(self):
        return self.keeper is not None and self.keeper.poll() is None

    def wait_until_ready(self):
        """Returns whether the daemon serves; false if it has ended."""
        while self.is_running() and not stop.requested:
            if relay.is_ready(self.path):
                return True
            time.sleep(0.02)
        return False

    def end(self):
        """Ends it once the requests in flight have been served."""
        if self.keeper:
            if self.is_running():
                self.keeper.terminate()
            self.keeper.wait()
            self.log_reader.join(1)

    def how_it_ended(self):
        status = self.keeper.returncode
        if status > 128:
            with contextlib.suppress(ValueError):
                return f"was ended by {signal.Signals(status - 128).name}"
        return f"ended with status {status}"

    def last_log(self):
        return b"".join(self.log).decode(errors="replace")

    def _pass_log(self, stream):
        for line in stream:
            self.log.append(line)
            with contextlib.suppress(OSError):
                sys.stderr.buffer.write(line)
                sys.stderr.buffer.flush()


class Stop:
    """Whether a signal has asked the server to end."""

    def __init__(self):
        self.requested = False
        self.command = None  # that runs now, in a process group of its own

    def on_signals(self):
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, self._request)

    def _request(self, *_):
        self.requested = True
        if self.command:
            with contextlib.suppress(OSError):
                os.killpg(self.command.pid, signal.SIGTERM)


stop = Stop()


class Server:
    def __init__(self, arguments):
        self.arguments = arguments
        self.project = Project(arguments.project)
        self.staging = arguments.build / "image-new"
        self.installed = self.staging / "phone/www"
        self.daemon = Daemon(arguments)
        self.state = relay.State()
        self.problem = None
        self.can_start = True  # the daemon, with what is served
        self.built_from = None
        self.is_configured = False  # from then on, building does it where necessary
        self.lighttpd = None

    def run(self):
        """Serves until a signal arrives, or until lighttpd has ended. Returns the exit status."""
        self.update()
        if not stop.requested:
            self.start_serving()
        while not stop.requested and self.lighttpd.poll() is None:
            if self.project.snapshot() != self.built_from:
                self.update()
            elif self.daemon.keeper and not self.daemon.is_running() and self.can_start:
                self.revive()
            time.sleep(POLL)
        self.end()
        return 0 if stop.requested else self.lighttpd.returncode

    def revive(self):
        """Starts the daemon again, which has ended by itself."""
        self.say(f"the daemon {self.daemon.how_it_ended()}, and is started again")
        self.start_daemon()
        if not self.can_start:
            self.report()
        elif not stop.requested:
            self.print_addresses()

    def start_serving(self):
        listener = socket.socket(socket.AF_UNIX)
        listener.bind(str(self.arguments.state / "fcgi.sock"))
        listener.listen(128)
        relay.Relay(listener, self.daemon.path, self.state, self.arguments.project,
                    self.daemon.last_log).start()
        environment = dict(os.environ, DOCUMENT_ROOT=str(self.arguments.www),
                           PORT=str(self.arguments.port), STATE_DIR=str(self.arguments.state))
        # A session of its own: only this program is to get what Ctrl-C sends.
        self.lighttpd = subprocess.Popen(
            ["setpriv", "--pdeathsig", "TERM", "lighttpd", "-D", "-f", self.arguments.lighttpd],
            stdin=subprocess.DEVNULL, env=environment, start_new_session=True)
        while self.lighttpd.poll() is None and not stop.requested and not self.is_listening():
            time.sleep(0.02)
        if self.lighttpd.poll() is None:
            print_line("Changed files are built and served at once. Press Ctrl-C to stop.")
            self.print_addresses()

    def is_listening(self):
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", self.arguments.port)) == 0

    def update(self):
        """Builds and checks what has changed, and serves it if nothing is wrong."""
        self.built_from = self.project.snapshot()
        former, had_pages = self.problem, self.daemon.keeper is not None
        self.problem = self.build() or self.check()
        is_new = False
        if not self.problem and not stop.requested:
            is_new = self.place()
        if stop.requested or (self.problem is None and former is None and not is_new and had_pages):
            return
        if self.problem or former or had_pages:
            self.report()
        else:
            self.state.set(None, self.daemon.is_running())

    def report(self):
        """Shows in the browser and in the terminal what is wrong, or that nothing is wrong any more."""
        self.state.set(self.problem, self.daemon.is_running())
        if self.problem:
            self.say(f"{self.problem.headline[0].lower()}{self.problem.headline[1:]}; "
                     + ("the previous version is still served" if self.daemon.is_running()
                        else "no page is served before that is solved"))
        else:
            self.say("built and serving again")
        if self.lighttpd:
            self.print_addresses()

    def build(self):
        """Returns the problem, or None."""
        shutil.rmtree(self.staging, ignore_errors=True)
        build = str(self.arguments.build)
        configure = ["cmake", "-S", str(self.arguments.project), "-B", build]
        for command in (*([] if self.is_configured else [configure]),
                        ["cmake", "--build", build, "--parallel", str(os.cpu_count())],
                        ["cmake", "--install", build]):
            status, output = self.run_command(command)
            if stop.requested:
                return None
            # The first build has shown its output already.
            if (self.lighttpd or "--build" not in command) and (status != 0 or "warning: " in output):
                print_line(output.rstrip("\n"))
            if status != 0:
                return problems.of_build(output, self.arguments.project, self.arguments.build)
            self.is_configured = True
        return None

    def run_command(self, command):
        """Returns the status and the output."""
        environment = dict(os.environ, DESTDIR=str(self.staging), LC_ALL="C.UTF-8")
        stop.command = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, env=environment, process_group=0,
                                        text=True, errors="replace")
        output = ""
        for line in stop.command.stdout:
            output += line
            if not self.lighttpd and "--build" in command:
                print_line(line.rstrip("\n"))
        status, stop.command = stop.command.wait(), None
        return status, output

    def check(self):
        """Returns the problem, or None."""
        if stop.requested:
            return None
        if not (self.installed / SERVLET_XML).is_file():
            return problems.Problem(f"The project installs no /phone/www/{SERVLET_XML}")
        provided = [f"--provides={path}" for path in self.arguments.provides]
        done = subprocess.run([self.arguments.servlet_check, "--json", "--partial",
                               f"--root={self.staging}", *provided],
                              capture_output=True, check=False, start_new_session=True)
        if done.returncode not in (0, 1):
            return problems.Problem("servlet_check failed", (), done.stderr.decode(errors="replace"))
        problem = problems.of_check(done.stdout, self.project)
        if problem:
            print_line(problem.output.rstrip("\n"))
        return problem

    def place(self):
        """Serves what was installed. Returns whether it differs from what was served before, and sets the
        problem if the daemon does not start with it."""
        www = self.arguments.www
        config = self.installed / SERVLET_XML
        config.write_bytes(config.read_bytes().replace(
            DEVICE_LIBRARIES.encode(), os.fsencode(self.arguments.library_folder)))
        if self.daemon.is_running() and is_same(self.installed, www):
            return False
        needs_daemon = not self.daemon.is_running() or not all(
            is_same(self.installed / folder, www / folder) for folder in READ_ONCE)
        # Renamed, not copied: the daemon goes on using the library that it has opened.
        if www.exists():
            exchange(www, self.installed)
        else:
            self.installed.rename(www)
        if needs_daemon:
            self.start_daemon()
        return True

    def start_daemon(self):
        """Starts the daemon, or replaces it. Sets the problem if that fails."""
        if self.daemon.is_running():
            self.daemon.restart()
        if not self.daemon.is_running() and not stop.requested:
            self.daemon.start()
        self.can_start = self.daemon.wait_until_ready() or stop.requested
        if not self.can_start:
            self.problem = problems.Problem(f"The daemon {self.daemon.how_it_ended()} when it started",
                                            (), self.daemon.last_log())

    def print_addresses(self):
        """Prints the address of each page, last of all, so that it is in view."""
        base = f"http://127.0.0.1:{self.arguments.port}/servlet"
        pages = []
        # LookupError and ValueError: of encodings that Python does not know.
        with contextlib.suppress(OSError, LookupError, ValueError, xml.etree.ElementTree.ParseError):
            root = xml.etree.ElementTree.parse(self.arguments.www / SERVLET_XML).getroot()
            pages = [f"{base}?p={urllib.parse.quote(page.get('id', ''))}" for page in root.iter("servlet")]
        print_line(f"The pages of {self.arguments.project}:")
        for page in pages or [base]:
            print_line(page)

    def end(self):
        """Ends lighttpd and the daemon."""
        if self.lighttpd:
            if self.lighttpd.poll() is None:
                self.lighttpd.terminate()
            self.lighttpd.wait()
        self.daemon.end()

    def say(self, text):
        print_line(f"{self.arguments.name}: {text}")


def exchange(one, other):
    """Lets two folders change places. Both are there at any time, since requests are served meanwhile; not so
    where the file system cannot do that, see renameat2(2)."""
    paths = os.fsencode(one), os.fsencode(other)
    if LIBC.renameat2(AT_FDCWD, paths[0], AT_FDCWD, paths[1], RENAME_EXCHANGE) == 0:
        return
    between = one.with_name(f"{one.name}-old")
    shutil.rmtree(between, ignore_errors=True)
    one.rename(between)
    other.rename(one)
    between.rename(other)


def is_same(one, other):
    """Returns whether two folders contain the same files with the same contents."""
    if not (os.path.isdir(one) and os.path.isdir(other)):
        return False
    compared = filecmp.dircmp(one, other, ignore=[], hide=[])
    if compared.left_only or compared.right_only or compared.common_funny:
        return False
    return (not any(filecmp.cmpfiles(one, other, compared.common_files, shallow=False)[1:])
            and all(is_same(f"{one}/{name}", f"{other}/{name}") for name in compared.common_dirs))


def print_line(text):
    with contextlib.suppress(OSError):  # the terminal was closed
        print(text, flush=True)


def refusal(arguments):
    """Returns why these folders cannot be served from, or None."""
    for folder in (arguments.build, arguments.www):
        if Project(arguments.project).watches(folder):
            return f"{folder} is built in and watched for changes; create another build folder"
    return None


def main():
    arguments = parse_arguments()
    try:
        if reason := refusal(arguments):
            print(f"{arguments.name}: {reason}", file=sys.stderr)
            return os.EX_NOINPUT
        return Server(arguments).run()
    finally:
        shutil.rmtree(arguments.state, ignore_errors=True)
        arguments.daemon_pid.unlink(missing_ok=True)


if __name__ == "__main__":
    stop.on_signals()
    sys.exit(main())
