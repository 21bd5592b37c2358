#!/usr/bin/env python3
"""How fast routes of a source that stays connected come to the data plane, and what they cost.

    bench/sources.py [--routes 1000000] [--answered] [fpm] [kernel] [file]

Plays a recorded stream of FPM at full speed, has the kernel's table read, or a route file, and prints routes a second until
the data plane has acknowledged all of them, and the daemon's memory before and after. What a source costs is what its
routes cost over those of the file. With --answered the kernel's are a routing suite's, and are told what has become of them:
the memory is that of everything answered, too. As root; VEXL3_BIN is where the programs are.
"""

import argparse
import pathlib
import signal
import socket
import struct
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / 'tests/peers'))
import lab  # noqa: E402

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


def resident(pid):
    """Bytes."""
    return int(pathlib.Path(f'/proc/{pid}/status').read_text().split('VmRSS:')[1].split()[0]) * 1024


class Player:
    """The client of FPM, in the router's namespace. It takes what is answered, as zebra does."""

    def __init__(self, router):
        self.process = subprocess.Popen(['ip', 'netns', 'exec', router.name, sys.executable, '-c', PLAYER],
                                        stdin=subprocess.PIPE)

    def play(self, stream):
        self.process.stdin.write(stream)
        self.process.stdin.flush()

    def close(self):
        self.process.stdin.close()
        self.process.wait()


class Bench:
    def __init__(self, net, routes, answered):
        self.router = net.routers[1]
        self.routes = routes
        self.answered = answered

    def pid(self):
        found = subprocess.run(['pgrep', '-f', f'vexl3d --config {self.router.directory}'], capture_output=True, text=True)
        return max(map(int, found.stdout.split()))

    def memory(self):
        return resident(self.pid())

    def until_all(self, source, since):
        lab.until(lambda: self.router.source(source)['routes'] >= self.routes, 'all routes came', 600)
        told = time.monotonic() - since
        lab.until(lambda: (self.router.fact('summary', 'routesProgrammed') or 0) >= self.routes,
                  'all are acknowledged', 600)
        return told, time.monotonic() - since

    def say(self, what, seconds, before):
        told, all_ = seconds
        print(f'{what}: {self.routes} routes, taken after {told:.2f} s, acknowledged after {all_:.2f} s: '
              f'{self.routes / all_:,.0f} routes/s; {(self.memory() - before) / self.routes:.0f} bytes a route', flush=True)

    def fpm(self):
        recorded, player = stream(self.routes, self.router.index()), Player(self.router)
        before, since = self.memory(), time.monotonic()
        player.play(recorded)
        self.say('fpm', self.until_all('fpm', since), before)
        player.close()

    def kernel(self):
        file = self.router.directory / 'routes'
        protocol = ' proto bgp' if self.answered else ''
        file.write_text(''.join(f'route add {dotted(n)}/24 via 10.0.1.{n % HOPS + 2}{protocol}\n'
                                for n in range(self.routes)))
        before = self.memory()
        # What it missed it reads when it goes on.
        subprocess.run(['kill', f'-{signal.SIGSTOP.value}', str(self.pid())], check=True)
        self.router.run('ip', '-batch', file)
        subprocess.run(['kill', f'-{signal.SIGCONT.value}', str(self.pid())], check=True)
        lab.until(lambda: self.router.source('kernel')['routes'] > 1000, 'it reads', 60)
        took = self.until_all('kernel', time.monotonic())
        if self.answered:
            lab.until(lambda: self.router.source('kernel')['answered'] >= self.routes, 'all are answered', 600)
        self.say('kernel', took, before)

    def file(self):
        file = self.router.directory / 'table'
        file.write_text(''.join(f'{dotted(n)}/24 10.0.1.{n % HOPS + 2}\n'
                                for n in range(self.routes)))
        before, since = self.memory(), time.monotonic()
        self.router.describe(f'kernel-routes: false\nroute-file: {{path: {file}, nexthops: [10.0.1.2]}}\n')
        self.router.ctl('reload')
        self.say('file', self.until_all('route-file', since), before)


PLAYER = '''
import socket, sys, threading
wire = socket.create_connection(("127.0.0.1", 2620))
def read():
    while wire.recv(1 << 20): pass
threading.Thread(target=read, daemon=True).start()
while some := sys.stdin.buffer.read1(1 << 20): wire.sendall(some)
'''


def main():
    options = argparse.ArgumentParser()
    options.add_argument('--routes', type=int, default=1000000)
    options.add_argument('--answered', action='store_true')
    options.add_argument('what', nargs='*', default=['fpm', 'kernel', 'file'])
    options = options.parse_args()
    if why := lab.missing():
        sys.exit(why)
    for what in options.what:
        with lab.Lab() as net:
            net.routers[1].begin(more='' if options.answered else 'kernel-offload: false\n')
            lab.until(lambda: net.routers[1].fact('status', 'phase') == 'running', 'it runs')
            getattr(Bench(net, options.routes, options.answered), what)()


if __name__ == '__main__':
    main()
