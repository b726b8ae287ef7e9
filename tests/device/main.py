"""scripts/device: boots the virtual phone, and connects this terminal with its console."""

import argparse
import contextlib
import os
import pathlib
import select
import signal
import socket
import sys
import termios
import time
import tty

import device_image
from virtual_phone import PhoneError, VirtualPhone

CONSOLE = device_image.FOLDER / "console"  # a link to the socket of the phone that was started last
LEAVE = b"\x1d"  # Ctrl-]


def serve(port, memory):
    begin = time.monotonic()
    with contextlib.ExitStack() as ended:
        image = device_image.make()
        phone = VirtualPhone(image, port, memory)
        ended.callback(phone.remove)
        made = time.monotonic()
        phone.start()
        CONSOLE.unlink(missing_ok=True)
        CONSOLE.symlink_to(phone.console_path)
        ended.callback(CONSOLE.unlink, missing_ok=True)
        print(f"device: the phone is starting, {made - begin:.0f} s after this script. Its console: "
              "scripts/device --console", flush=True)
        phone.wait_until_it_answers()
        print(f"device: first page {time.monotonic() - made:.0f} s after the phone was switched on. "
              "Sign in as admin with the password admin. Press Ctrl-C to stop.\n"
              f"The phone's web interface: http://127.0.0.1:{port}/", flush=True)
        phone.process.wait()
    print("device: the phone was switched off")
    return 0


def connect_terminal(keys, screen, console):
    """Copies both ways until the user leaves or the phone is off."""
    while True:
        ready, _, _ = select.select([keys, console], [], [])
        if console in ready:
            received = console.recv(4096)
            if not received:
                return
            os.write(screen, received)
        if keys in ready:
            typed = os.read(keys, 4096)
            if not typed or LEAVE in typed:
                return
            console.sendall(typed)


def console():
    path = pathlib.Path(os.path.realpath(CONSOLE))
    connection = socket.socket(socket.AF_UNIX)
    try:
        connection.connect(str(path))
    except OSError:
        print("device: no phone is running; start one with scripts/device", file=sys.stderr)
        return 69
    print("device: root's shell on the phone; Ctrl-] leaves it. Press Enter.", flush=True)
    keys = sys.stdin.fileno()
    with contextlib.ExitStack() as restore:
        if os.isatty(keys):
            restore.callback(termios.tcsetattr, keys, termios.TCSADRAIN, termios.tcgetattr(keys))
            tty.setraw(keys)
        connect_terminal(keys, sys.stdout.fileno(), connection)
    return 0


def main():
    parser = argparse.ArgumentParser(prog="scripts/device", allow_abbrev=False)
    parser.add_argument("--port", type=int, default=8080)
    parser.add_argument("--memory", type=int, default=64)
    parser.add_argument("--console", action="store_true")
    arguments = parser.parse_args()
    if arguments.console:
        return console()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(0))
    try:
        return serve(arguments.port, arguments.memory)
    except (device_image.ImageError, PhoneError) as error:
        print(f"device: {error}", file=sys.stderr)
        return 70


if __name__ == "__main__":
    sys.exit(main())
