# SPDX-License-Identifier: MIT
"""In the place of the bus daemon: one that hangs, talks nonsense, or hangs up, each in its own way."""
import os
import random
import socket
import struct
import threading

from lab.bus import SOCKET

HEADER = struct.Struct("!BBHII")    # version, kind, number, peer, length of the blob with its own word
HELLO, STATUS, DATA = 0, 1, 2
PEER = struct.Struct("iII")
EMPTY = 4
SOMEBODY = 4711
LONG = 1000
LARGEST = (1 << 24) - 1
CHUNK = 1 << 16
DICE = random.Random("odd bus")
GREETING = HEADER.pack(0, HELLO, 0, SOMEBODY, EMPTY)


def nothing(_connection):
    """Takes no notice."""


def garbage(connection):
    connection.sendall(b"\x7f" + DICE.randbytes(4 * LONG))


def greeting(connection):
    connection.sendall(GREETING)


def half_a_greeting(connection):
    connection.sendall(GREETING[:7])


def garbage_after_greeting(connection):
    connection.sendall(GREETING + b"\x7f" + DICE.randbytes(4 * LONG))


def half_a_frame(connection):
    connection.sendall(GREETING + HEADER.pack(0, DATA, 1, 0, LONG))


def impossible_length(connection):
    connection.sendall(GREETING + HEADER.pack(0, DATA, 1, 0, LARGEST))


def hang_up(connection):
    connection.close()


def greet_and_hang_up(connection):
    connection.sendall(GREETING)
    connection.close()


def empty_answers(connection):
    """Every request is answered with a success that says nothing."""
    connection.sendall(GREETING)
    while request := connection.recv(CHUNK):
        _, _, number, peer, _ = HEADER.unpack_from(request)
        connection.sendall(HEADER.pack(0, STATUS, number, peer, EMPTY))


def flood(connection):
    """Frames that nobody asked for, without an end."""
    connection.sendall(GREETING)
    frames = HEADER.pack(0, DATA, 0, SOMEBODY, EMPTY) * LONG
    while True:
        connection.sendall(frames)


MANNERS = {
    "never greets": nothing,
    "sends half a greeting": half_a_greeting,
    "sends garbage": garbage,
    "hangs up at once": hang_up,
    "hangs up after its greeting": greet_and_hang_up,
    "hangs after its greeting": greeting,
    "sends garbage after its greeting": garbage_after_greeting,
    "sends half a frame": half_a_frame,
    "names an impossible length": impossible_length,
    "answers with nothing": empty_answers,
    "floods": flood,
}
# These let the daemon wait for an answer that does not come.
HANGING = {"hangs after its greeting", "sends half a frame", "floods"}


def peer_of(connection):
    """Number of the process at the other end."""
    return PEER.unpack(connection.getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, PEER.size))[0]


class OddBus:
    """Listens at the bus daemon's address until it is closed; knows who came."""

    def __init__(self, manner):
        self.manner = MANNERS[manner]
        self.connections = []
        self.peers = []
        if os.path.exists(SOCKET):
            os.unlink(SOCKET)
        self.listener = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.listener.bind(SOCKET)
        self.listener.listen()
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            try:
                connection, _ = self.listener.accept()
            except OSError:    # it was closed
                return
            self.connections.append(connection)
            self.peers.append(peer_of(connection))
            threading.Thread(target=self.serve, args=(connection,), daemon=True).start()

    def serve(self, connection):
        try:
            self.manner(connection)
        except (OSError, struct.error):    # the other side had enough
            pass

    def connections_of(self, pid):
        return self.peers.count(pid)

    def close(self):
        """No new connections; those that exist keep hanging, so that the other side must give them up itself."""
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()

    def hang_up(self):
        for connection in self.connections:
            connection.close()
