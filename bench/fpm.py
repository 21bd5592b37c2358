"""A routing suite's routes, as it tells them by FPM: of bgp, over next hops that they name by their ids."""

import socket
import struct
import subprocess
import sys

HOPS = 16


def prefix(number):
    """/24s from 16.0.0.0 up, of which there are enough."""
    return (16 << 24) + (number << 8)


def dotted(number):
    return socket.inet_ntoa(struct.pack('>I', prefix(number)))


def attr(kind, value):
    return struct.pack('HH', 4 + len(value), kind) + value + b'\0' * (-len(value) % 4)


def frame(kind, body):
    message = struct.pack('IHHII', 16 + len(body), kind, 0x501, 0, 0) + body
    return struct.pack('>BBH', 1, 1, 4 + len(message)) + message


def next_hops(index):
    return b''.join(frame(104, struct.pack('BBBBI', 2, 0, 11, 0, 0) + attr(1, struct.pack('I', n + 1)) +
                          attr(6, bytes([10, 0, 1, n + 2])) + attr(5, struct.pack('I', index))) for n in range(HOPS))


def announcements(routes, first=0, shift=0):
    """Routes of bgp by the ids of their next hops, each to the `shift`th after its own."""
    head = struct.pack('BBBBBBBBI', 2, 24, 0, 0, 254, 186, 0, 1, 0)
    return b''.join(frame(24, head + attr(1, struct.pack('>I', prefix(n))) + attr(6, struct.pack('I', 20)) +
                          attr(30, struct.pack('I', (n + shift) % HOPS + 1))) for n in range(first, routes))


def stream(routes, index, first=0):
    """As zebra words it."""
    return next_hops(index) + announcements(routes, first)


def withdrawals(routes, first=0):
    head = struct.pack('BBBBBBBBI', 2, 24, 0, 0, 254, 186, 0, 1, 0)
    return b''.join(frame(25, head + attr(1, struct.pack('>I', prefix(n))) + attr(6, struct.pack('I', 20)))
                    for n in range(first, routes))


class Player:
    """The client of FPM, in the router's network namespace. It takes what is answered, as zebra does."""

    def __init__(self, space):
        self.process = subprocess.Popen(['ip', 'netns', 'exec', space, sys.executable, '-c', PLAYER],
                                        stdin=subprocess.PIPE)

    def play(self, stream):
        self.process.stdin.write(stream)
        self.process.stdin.flush()

    def close(self):
        self.process.stdin.close()
        self.process.wait()


PLAYER = '''
import socket, sys, threading
wire = socket.create_connection(("127.0.0.1", 2620))
def read():
    while wire.recv(1 << 20): pass
threading.Thread(target=read, daemon=True).start()
while some := sys.stdin.buffer.read1(1 << 20): wire.sendall(some)
'''
