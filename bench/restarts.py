#!/usr/bin/python3
"""Restarts of vexl3d beside a vexdp with a full table, under traffic to every route's block.

    bench/restarts.py [--routes 1000000] [--share 0.5] [--rate 0] [killed] [ended] [stopped]

One host sends packets to an address of each route in turn, in shuffled order, at a share of the rate at which none is
lost here (found first, unless --rate says it; it is that of sender, router and hosts together), while vexl3d is killed and started, ended and started, or stopped for
longer than the data plane waits for it. Routes lead to two hosts in turns, and of each as many packets arrive at its host
as were sent; for what a wire or this program had no room that is not lost, and is told. Prints for each way packets sent,
lost and misrouted, how long packets waited for the change-over, and the data plane's memory at most against before. Ends with 1 when a packet was lost or misrouted, the change took 1 ms or more, or the memory was over
twice. Needs root and two cores; VEXL3_BIN is where the programs are.
"""

import argparse
import array
import ctypes
import os
import pathlib
import random
import select
import signal
import socket
import struct
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / 'tests/packets'))
import restart  # noqa: E402
from lab import LIBC, ROUTER_MAC, IoVec, MMsgHdr, missing, until  # noqa: E402

LEFT, SINKS = '10.0.1.2', ('10.0.2.2', '10.0.3.2')
BATCH, FRAME, SLOT = 64, 60, 64  # packets of a call, bytes of a frame and of its place
LONGEST = 300  # seconds
FIRST = 16 << 24


def description(folder):
    return f'''
router: {{mac: '{ROUTER_MAC}'}}
kernel-routes: false
kernel-offload: false
interfaces:
  - {{name: Ethernet1, addresses: 10.0.1.1/24, device: wire-left}}
  - {{name: Ethernet2, addresses: 10.0.2.1/24, device: wire-right}}
  - {{name: Ethernet3, addresses: 10.0.3.1/24, device: wire-third}}
route-file: {{path: {folder}/routes, nexthops: [{", ".join(SINKS)}]}}
'''


def messages(room, size, count):
    """For sendmmsg and recvmmsg: one of `size` bytes in each slot of the room."""
    parts, messages = (IoVec * count)(), (MMsgHdr * count)()
    start, part, step = ctypes.addressof(room), ctypes.addressof(parts), ctypes.sizeof(IoVec)
    for n in range(count):
        parts[n].base, parts[n].size = start + SLOT * n, size
        messages[n].parts = ctypes.cast(part + step * n, ctypes.POINTER(IoVec))
        messages[n].count = 1
    return parts, messages


class Sender:
    """At a steady rate, one packet to each route and from the first one again, until it is ended."""

    def __init__(self, host, order):
        self.wire, self.count = host.wire, len(order)
        frame = bytearray(bytes(host.to_router(restart.IP(src=LEFT, dst='0.0.0.0') / restart.UDP(
            sport=4000, dport=5000, chksum=0) / restart.Raw(bytes(FRAME - 42)))))
        frame[24:26] = b'\0\0'
        head = sum(struct.unpack('>10H', frame[14:34]))
        self.room = ctypes.create_string_buffer(SLOT * self.count)
        frames = memoryview(self.room).cast('B')
        for n, route in enumerate(order):
            dst, at = FIRST + (route << 8) + 1, SLOT * n
            total = head + (dst >> 16) + (dst & 0xffff)
            total = (total & 0xffff) + (total >> 16)
            total = (total & 0xffff) + (total >> 16)
            frames[at:at + FRAME] = frame
            struct.pack_into('>H', frames, at + 24, ~total & 0xffff)
            struct.pack_into('>I', frames, at + 30, dst)
            struct.pack_into('>I', frames, at + 42, route)
        self.parts, self.messages = messages(self.room, FRAME, self.count)

    def start(self, rate):
        self.rate, self.sent, self.ending = rate, 0, threading.Event()
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def run(self):
        begun, each = time.monotonic(), ctypes.sizeof(MMsgHdr)
        while not self.ending.is_set():
            ahead = begun + self.sent / self.rate - time.monotonic()
            if ahead > 0:
                time.sleep(ahead)
            at = self.sent % self.count
            took = LIBC.sendmmsg(self.wire.fileno(), ctypes.byref(self.messages, at * each), min(BATCH, self.count - at), 0)
            self.sent += max(took, 0)

    def end(self):
        self.ending.set()
        self.thread.join()


class Sink:
    """How many packets of each route come to a host."""

    def __init__(self, host):
        self.wire, self.batches, self.ending = host.wire, [], threading.Event()
        self.thread = threading.Thread(target=self.run)
        self.thread.start()

    def run(self):
        room = ctypes.create_string_buffer(SLOT * BATCH)
        parts, headers = messages(room, SLOT, BATCH)
        while True:
            if not select.select([self.wire], [], [], 0.3)[0]:
                if self.ending.is_set():
                    return
                continue
            took = LIBC.recvmmsg(self.wire.fileno(), headers, BATCH, 0x40, None)  # MSG_DONTWAIT
            if took > 0:
                self.batches.append(room.raw[:SLOT * took])

    def count(self, counts):
        """Adds them up, and gives the counts."""
        for batch in self.batches:
            for at in range(0, len(batch), SLOT):
                if batch[at + 23] == 17 and batch[at + 36:at + 38] == b'\x13\x88':
                    counts[int.from_bytes(batch[at + 42:at + 46], 'big')] += 1
        return counts

    def dropped(self):
        """By the socket of this program (PACKET_STATISTICS), since the last time."""
        return struct.unpack('II', self.wire.getsockopt(263, 6, 8))[1]

    def end(self):
        self.ending.set()
        self.thread.join()


class Bench:
    def __init__(self, routes, seed=1):
        self.routes = routes
        self.unread = 0  # by this program
        self.order = list(range(routes))
        random.Random(seed).shuffle(self.order)
        self.lab = restart.TwoUnits('vexl3bns', {'left': (LEFT + '/24', '10.0.1.1'), 'right': (SINKS[0] + '/24', '10.0.2.1'),
                                                 'third': (SINKS[1] + '/24', '10.0.3.1')}, '')
        folder = pathlib.Path(self.lab.folder.name)
        self.lab.description.write_text(description(folder))
        with open(folder / 'routes', 'w') as file:
            for n in range(routes):
                address = socket.inet_ntoa(struct.pack('>I', FIRST + (n << 8)))
                file.write(f'{address}/24 {SINKS[n % 2]}\n')

    def begin(self):
        self.lab.start()
        self.sender = Sender(self.lab.hosts['left'], self.order)
        for name in ('right', 'third'):
            self.lab.hosts[name].until_it_reaches(LEFT)
        until(lambda: 'the data plane has everything' in self.lab.text(), self.lab.text, LONGEST)

    def memory(self):
        """The data plane's, bytes: what it has, and what it had at most since the last time."""
        status = pathlib.Path(f'/proc/{self.plane()}/status').read_text()
        pathlib.Path(f'/proc/{self.plane()}/clear_refs').write_text('5')
        return [int(status.split(f'{word}:')[1].split()[0]) * 1024 for word in ('VmRSS', 'VmHWM')]

    def plane(self):
        return self.lab.plane.pid

    def traffic(self, rate, during):
        """Gives how many packets were sent, are missing and came where they should not, and for how many there was
        no room."""
        for host in self.lab.hosts.values():
            host.forget()
        sinks = [Sink(self.lab.hosts[name]) for name in ('right', 'third')]
        for sink in sinks:
            sink.dropped()
        overflowed = self.overflows()
        self.sender.start(rate)
        begun = time.monotonic()
        try:
            during()
        finally:
            self.sender.end()
            self.rate = self.sender.sent / (time.monotonic() - begun)
            for sink in sinks:
                sink.end()
        self.unread += sum(sink.dropped() for sink in sinks)
        no_room = [now - before for now, before in zip(self.overflows(), overflowed)]
        rounds, rest = divmod(self.sender.sent, self.routes)
        wanted = array.array('l', [rounds]) * self.routes
        for route in self.order[:rest]:
            wanted[route] += 1
        came = [sink.count(array.array('l', [0]) * self.routes) for sink in sinks]
        missed = wrong = 0
        for route, count in enumerate(wanted):
            right, other = came[route % 2][route], came[1 - route % 2][route]
            missed += max(0, count - right)
            wrong += other + max(0, right - count)
        return self.sender.sent, missed, wrong, no_room

    def overflows(self):
        """Frames for which there was no room, when the count stands still: before the router, behind it, and here."""
        def read():
            ports = self.lab.ask('show', 'ports')
            return [sum(port[way] for port in ports) for way in ('dropsIn', 'dropsOut')] + [self.unread]
        last = [read()]

        def still():
            last.append(read())
            return last[-1] == last[-2]
        until(still, 'no wire overflows')
        return last[-1]

    def top_rate(self):
        """The highest at which nothing is lost anywhere, in one of three tries."""
        def holds(rate):
            _, missed, _, no_room = self.traffic(rate, lambda: time.sleep(2))
            return not missed and not any(no_room) and self.rate > 0.9 * rate
        rate = 10000
        while rate < 10000000 and any(holds(1.4 * rate) for _ in range(3)):
            rate *= 1.4
        return rate

    def killed(self):
        self.lab.daemon.send_signal(signal.SIGKILL)
        self.again()

    def ended(self):
        self.lab.daemon.send_signal(signal.SIGTERM)
        self.again()

    def again(self):
        self.lab.daemon.wait()
        self.lab.launch()
        until(self.lab.in_step, self.lab.text, LONGEST)

    def stopped(self):
        ends = self.lab.text().count('ends after batch')
        self.lab.daemon.send_signal(signal.SIGSTOP)
        until(lambda: self.lab.text().count('ends after batch') > ends, self.lab.text, LONGEST)
        self.lab.daemon.send_signal(signal.SIGCONT)
        until(self.lab.in_step, self.lab.text, LONGEST)

    def measure(self, what, rate):
        before = self.memory()[0]
        begun = time.monotonic()
        sent, missed, wrong, no_room = self.traffic(rate, getattr(self, what))
        seconds, held = time.monotonic() - begun, self.lab.status()['changeOverSeconds']
        most, lost = self.memory()[1] / before, max(0, missed - sum(no_room))
        print(f'{what}: {sent:,} packets in {seconds:.1f} s ({self.rate:,.0f} a second), {lost} lost, {wrong} misrouted, '
              f'no room for {no_room[0]} before the router, {no_room[1]} behind it, {no_room[2]} here; change-over {held * 1e6:.0f} us; memory {most:.2f} times', flush=True)
        return lost == 0 and wrong == 0 and held < 0.001 and most <= 2


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument('--routes', type=int, default=1000000)
    options.add_argument('--share', type=float, default=0.5)
    options.add_argument('--rate', type=float, default=0)
    options.add_argument('what', nargs='*', default=['killed', 'ended', 'stopped'])
    options = options.parse_args()
    if why := missing():
        sys.exit(why)
    bench = Bench(options.routes)
    try:
        bench.begin()
        rate = options.rate or options.share * bench.top_rate()
        good = [bench.measure(what, rate) for what in options.what]
    finally:
        bench.lab.end()
    sys.exit(0 if all(good) else 1)


if __name__ == '__main__':
    main()
