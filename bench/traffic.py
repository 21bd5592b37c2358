#!/usr/bin/python3
"""What becomes of packets while routes change at full speed, and of the routes' speed; and for how long none flow when
the data plane is killed.

    bench/traffic.py [--routes 1000000] [--runs 3] [--seconds 2] [changes] [killed]

One host sends 64-byte packets to random addresses of the table to another one, by veth pairs. `changes`: at half the rate
at which most arrive, while a stream of FPM adds, changes and deletes all routes; a default route has each packet arrive
whether its route is there or not. Beside it what is lost at that rate while nothing changes, and the speed of the changes
without packets. `killed`: from the signal until packets flow again, and until all routes are there. As root; VEXL3_BIN
is where the programs are.
"""

import argparse
import ctypes
import os
import pathlib
import random
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time
from statistics import median

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / 'tests/packets'))
import lab  # noqa: E402
import fpm  # noqa: E402
from scapy.layers.inet import IP, UDP  # noqa: E402
from scapy.utils import checksum  # noqa: E402

SENDER, TARGET = '10.0.2.2', '10.0.1.2'
HOSTS = {'left': (TARGET + '/24', '10.0.1.1'), 'right': (SENDER + '/24', '10.0.2.1')}
PORT = 5000
BATCH = 64  # frames in one call
FRAMES = 4096
LONGEST = 300  # seconds


def description(mac, more=''):
    neighbors = ''.join(f"  - {{interface: Ethernet1, address: 10.0.1.{n + 2}, mac: '{mac}'}}\n"
                        for n in range(fpm.HOPS))
    return f'''
router: {{mac: '{lab.ROUTER_MAC}'}}
kernel-routes: false
kernel-offload: false
interfaces:
  - {{name: Ethernet1, addresses: 10.0.1.1/24, device: wire-left}}
  - {{name: Ethernet2, addresses: 10.0.2.1/24, device: wire-right}}
neighbors:
{neighbors}{more}'''


DEFAULT_ROUTE = f'routes: [{{prefix: 0.0.0.0/0, via: {TARGET}}}]\n'


class Sender:
    """A process of its own, which sends at a rate, or as fast as it can, until it is told to end."""

    def __init__(self, wire, frames, rate=None):
        self.readable, writable = os.pipe()
        self.pid = os.fork()
        if self.pid != 0:
            os.close(writable)
            return
        try:
            signal.signal(signal.SIGTERM, self.end)
            self.sent, self.going = 0, True
            self.send(wire, frames, rate)
            os.write(writable, struct.pack('Q', self.sent))
        finally:
            os._exit(0)

    def end(self, *_):
        self.going = False

    def send(self, wire, frames, rate):
        kept = [ctypes.create_string_buffer(frame, len(frame)) for frame in frames]
        parts, messages = (lab.IoVec * FRAMES)(), (lab.MMsgHdr * FRAMES)()
        for n, frame in enumerate(kept):
            parts[n].base, parts[n].size = ctypes.addressof(frame), len(frame)
            messages[n].parts, messages[n].count = ctypes.pointer(parts[n]), 1
        at, since = 0, time.monotonic()
        while self.going:
            due = BATCH
            if rate is not None:
                due = int(rate * (time.monotonic() - since)) - self.sent
                if due < 8:
                    time.sleep(50e-6)
                    continue
                if due > BATCH:  # no bursts beyond that: what was not sent in time is not sent
                    since += (due - BATCH) / rate
                    due = BATCH
            due = min(due, FRAMES - at)
            done = lab.LIBC.sendmmsg(wire.fileno(), ctypes.byref(messages, at * ctypes.sizeof(lab.MMsgHdr)), due,
                                     0)
            self.sent += max(done, 0)
            at = (at + due) % FRAMES

    def stop(self):
        """How many were sent."""
        os.kill(self.pid, signal.SIGTERM)
        sent = struct.unpack('Q', os.read(self.readable, 8))[0]
        os.waitpid(self.pid, 0)
        os.close(self.readable)
        return sent


def frames_to(host, routes):
    """To addresses of so many routes."""
    chance = random.Random(7)
    head = bytes(host.to_router(IP(src=SENDER, dst='0.0.0.0') / UDP(dport=PORT, chksum=0))) + bytes(18)
    frames = []
    for n in range(FRAMES):
        frame = bytearray(head)
        frame[30:34] = struct.pack('>I', fpm.prefix(chance.randrange(routes)) + 9)
        frame[34:36] = struct.pack('>H', 1024 + n)
        frame[24:26] = bytes(2)
        frame[24:26] = struct.pack('>H', checksum(bytes(frame[14:34])))
        frames.append(bytes(frame))
    return frames


class Arrivals:
    """Counts what the senders' packets a host's wire brings. The kernel counts; nobody reads them."""

    def __init__(self, host):
        code = [(0x28, 0, 0, 12), (0x15, 0, 5, 0x800), (0x30, 0, 0, 23), (0x15, 0, 3, 17), (0x28, 0, 0, 36),
                (0x15, 0, 1, PORT), (0x06, 0, 0, 1), (0x06, 0, 0, 0)]
        program = ctypes.create_string_buffer(b''.join(struct.pack('HBBI', *line) for line in code))
        host.wire.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1)
        host.wire.setsockopt(socket.SOL_SOCKET, 26,  # SO_ATTACH_FILTER
                             struct.pack('HL', len(code), ctypes.addressof(program)))
        host.forget()
        self.wire, self.count = host.wire, 0
        self.look()
        self.count = 0

    def look(self):
        self.count += struct.unpack('II', self.wire.getsockopt(263, 6, 8))[0]  # SOL_PACKET, PACKET_STATISTICS
        return self.count

    def until_after_silence(self):
        count, changed = self.look(), time.monotonic()
        while changed + LONGEST > (now := time.monotonic()):
            before, count = count, self.look()
            if count != before:
                if now - changed > 0.05:
                    return
                changed = now
            time.sleep(0.001)
        raise AssertionError('nothing comes any more')

    def last(self):
        """When nothing has come for some time."""
        count, quiet = self.look(), 0
        while quiet < 10:
            time.sleep(0.02)
            before, count = count, self.look()
            quiet = 0 if count != before else quiet + 1
        return count


class Bench:
    def __init__(self, routes, more=''):
        self.routes = routes
        self.net = lab.Lab('vexl3t', HOSTS, '')
        self.left, self.right = self.net.hosts['left'], self.net.hosts['right']
        self.net.description.write_text(description(self.left.mac, more))
        self.net.start()
        self.left.until_it_reaches(SENDER)
        self.arrivals, self.frames = Arrivals(self.left), frames_to(self.right, routes)
        self.player = None

    def close(self):
        if self.player is not None:
            self.player.close()
        self.net.end()

    def connect(self):
        self.player = fpm.Player(f'{self.net.name}-router')
        index = subprocess.run(['ip', 'netns', 'exec', f'{self.net.name}-router', 'cat',
                                '/sys/class/net/Ethernet1/ifindex'], capture_output=True, text=True, check=True).stdout
        self.told(fpm.next_hops(int(index)), fpm.HOPS)

    def source(self):
        return next(row for row in self.net.ask('show', 'sources') if row['source'] == 'fpm')

    def told(self, stream, messages):
        """Seconds until the data plane has acknowledged it."""
        before, since = self.source()['messages'], time.monotonic()
        self.player.play(stream)
        lab.until(lambda: self.source()['messages'] >= before + messages, 'it has read all', LONGEST)
        lab.until(self.idle, 'all is acknowledged', LONGEST)
        return time.monotonic() - since

    def idle(self):
        summary = self.net.ask('show', 'summary')['result']
        return not summary['busy'] and summary['requests']['queued'] == summary['requests']['acknowledged']

    def programmed(self):
        answer = self.net.ask('show', 'summary', check=False)
        return answer is not None and answer['result']['routesProgrammed'] >= self.routes and self.idle()

    def rate(self, seconds):
        sender = Sender(self.right.wire, self.frames)
        time.sleep(1)
        before, begin = self.arrivals.look(), time.monotonic()
        time.sleep(seconds)
        rate = (self.arrivals.look() - before) / (time.monotonic() - begin)
        sender.stop()
        self.arrivals.last()
        return rate

    def overflows(self):
        time.sleep(1.5)  # ports are asked every second
        return next(port['dropsIn'] for port in self.net.ask('show', 'ports') if port['port'] == 'Ethernet2')

    def lost(self, rate, work):
        """(sent, lost, of these those that the wire's ring had no room for), while the work goes on."""
        before, overflowed = self.arrivals.last(), self.overflows()
        sender = Sender(self.right.wire, self.frames, rate)
        work()
        sent = sender.stop()
        lost = sent - (self.arrivals.last() - before)
        return sent, lost, self.overflows() - overflowed

    def changes(self):
        """Changes a second, of adding, changing and deleting all."""
        return [self.routes / self.told(stream, self.routes) for stream in self.streams]

    streams = ()


def measure_changes(args):
    bench = Bench(args.routes, DEFAULT_ROUTE)
    try:
        bench.streams = [fpm.announcements(args.routes), fpm.announcements(args.routes, shift=1),
                         fpm.withdrawals(args.routes)]
        bench.connect()
        top = median([bench.rate(args.seconds) for _ in range(args.runs)])
        print(f'{top:,.0f} packets/s arrive at most; load {os.getloadavg()[0]:.1f}', flush=True)
        ratios = []
        for _ in range(args.runs):
            alone, beside = bench.changes(), []
            quiet = bench.lost(top / 2, lambda: time.sleep(args.seconds))
            busy = bench.lost(top / 2, lambda: beside.extend(bench.changes()))
            ratios.append([b / a for a, b in zip(alone, beside)])
            for what, (sent, lost, overflowed) in (('nothing changes', quiet), ('all routes change', busy)):
                print(f'{what}: {sent:,} packets, {lost:,} lost, {overflowed:,} of them before the router took them in',
                      flush=True)
            for what, a, b in zip(('add', 'change', 'delete'), alone, beside):
                print(f'{what}: {a:,.0f} routes/s, {b:,.0f} with packets, {b / a:.2f} times', flush=True)
        print('programming with packets, against without: ' + ', '.join(
            f'{what} {median(ratio):.2f}' for what, ratio in zip(('add', 'change', 'delete'), zip(*ratios))) + ' times')
    finally:
        bench.close()


def measure_killed(args):
    table = tempfile.NamedTemporaryFile('w')
    table.writelines(f'{fpm.dotted(n)}/24 10.0.1.{n % fpm.HOPS + 2}\n' for n in range(args.routes))
    table.flush()
    bench = Bench(args.routes, f'route-file: {{path: {table.name}, nexthops: [{TARGET}]}}\n')
    try:
        lab.until(bench.programmed, 'the data plane has all routes', LONGEST)
        rate = bench.rate(args.seconds) / 2
        first, all_ = [], []
        for _ in range(args.runs):
            sender = Sender(bench.right.wire, bench.frames, rate)
            time.sleep(1)
            os.kill(bench.net.data_plane(), signal.SIGKILL)
            since = time.monotonic()
            bench.arrivals.until_after_silence()
            first.append(time.monotonic() - since)
            lab.until(bench.programmed, 'the data plane has all routes again', LONGEST)
            all_.append(time.monotonic() - since)
            sender.stop()
            lab.until(bench.net.ready, 'every port is up')
        print(f'killed under {rate:,.0f} packets/s with {args.routes:,} routes: {median(first):.2f} s until packets flow, '
              f'{median(all_):.2f} s until all routes are there; load {os.getloadavg()[0]:.1f}')
    finally:
        bench.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--routes', type=int, default=1000000)
    parser.add_argument('--runs', type=int, default=3)
    parser.add_argument('--seconds', type=float, default=2)
    parser.add_argument('what', nargs='*', default=['changes', 'killed'])
    args = parser.parse_args()
    if why := lab.missing():
        print(f'traffic: nothing was measured: {why}')
        return
    if 'changes' in args.what:
        measure_changes(args)
    if 'killed' in args.what:
        measure_killed(args)


if __name__ == '__main__':
    main()
