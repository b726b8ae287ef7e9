#!/usr/bin/python3
"""Starts the daemon in the folder ROOT as systemd would: with the socket, the user, the environment
and the command line of its units. Must be run by root."""
import configparser
import grp
import os
import pwd
import shlex
import socket
import sys

FIRST_SOCKET = 3  # see sd_listen_fds(3)


def unit(name):
    parser = configparser.ConfigParser(strict=False, interpolation=None, comment_prefixes="#")
    parser.optionxform = str
    parser.read(f"/usr/lib/systemd/system/{name}")
    return parser


def listen(settings):
    path = settings["ListenStream"]
    listener = socket.socket(socket.AF_UNIX)
    if os.path.exists(path):
        os.unlink(path)
    listener.bind(path)
    os.chmod(path, int(settings["SocketMode"], 8))
    os.chown(path, 0, grp.getgrnam(settings["SocketGroup"]).gr_gid)
    listener.listen()
    return listener


os.chroot(sys.argv[1])
os.chdir("/")
service = unit("fcgi_host.service")["Service"]
listener = listen(unit("fcgi_host.socket")["Socket"])
os.dup2(listener.fileno(), FIRST_SOCKET)
os.set_inheritable(FIRST_SOCKET, True)
account = pwd.getpwnam(service["User"])
os.initgroups(account.pw_name, account.pw_gid)
os.setgid(account.pw_gid)
os.setuid(account.pw_uid)
command = shlex.split(service["ExecStart"])
os.execve(command[0], command, {
    "PATH": "/usr/sbin:/usr/bin", "LISTEN_FDS": "1", "LISTEN_PID": str(os.getpid()),
    **dict([setting.split("=", 1) for setting in shlex.split(service["Environment"])])})
