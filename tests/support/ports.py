"""Ports for what tests start: each TCP port belongs to one test process until that process ends."""

import random
import socket

# Below the ports that Linux takes for outgoing connections, 32768 to 60999 by default.
RANGE = range(20000, 30000)
_reservations = []


def _reserve(port):
    """Reserves a number by a name that only one process can have: that of an abstract Unix socket,
    which belongs to the same network as the ports, and is gone when its process is."""
    reservation = socket.socket(socket.AF_UNIX)
    try:
        reservation.bind(f"\0fcgiserver-test-port-{port}")
    except OSError:
        reservation.close()
        return None
    return reservation


def _is_free(port):
    """Whether no program outside the tests listens there."""
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind(("127.0.0.1", port))
        except OSError:
            return False
    return True


def is_listening(address):
    """Whether a program accepts connections at this TCP port of this machine, or at this path of a Unix
    socket. That the path exists does not say so yet: bind(2) makes it, and listen(2) comes later."""
    family, name = (socket.AF_INET, ("127.0.0.1", address)) if isinstance(address, int) else (
        socket.AF_UNIX, str(address))
    with socket.socket(family) as probe:
        return probe.connect_ex(name) == 0


def free_port():
    """Returns a port on which no program listens, and which no other test process gets before this
    one has ended."""
    for port in random.sample(RANGE, len(RANGE)):
        reservation = _reserve(port)
        if reservation and _is_free(port):
            _reservations.append(reservation)
            return port
        if reservation:
            reservation.close()
    raise RuntimeError(f"no free port from {RANGE.start} to {RANGE.stop - 1}")
