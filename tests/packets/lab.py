"""Hosts in network namespaces around a router, and the frames that they send and see.

The namespaces are made by tools/lab, and everything is in them: wires, traffic, the router's two programs. The judges
are the kernels of the hosts, and scapy.
"""

import ctypes
import fcntl
import functools
import json
import os
import pathlib
import random
import re
import select
import socket
import subprocess
import sys
import tempfile
import time

from scapy.layers.inet import ICMP  # noqa: F401  what is in a packet is known by what is imported
from scapy.layers.l2 import Ether

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / 'tests/support'))

from waiting import until  # noqa: E402

BIN = pathlib.Path(os.environ.get('VEXL3_BIN', ROOT / 'build/release/bin'))
LIBC = ctypes.CDLL(None, use_errno=True)
WORKERS = ['--workers', os.environ.get('VEXL3_WORKERS', '1')]  # of the data plane
ROUTER_MAC = '02:00:00:aa:00:01'
DEADLINE = 20  # seconds: for what happens at some time


class IoVec(ctypes.Structure):
    _fields_ = [('base', ctypes.c_void_p), ('size', ctypes.c_size_t)]


class MsgHdr(ctypes.Structure):
    """struct msghdr, see sendmsg(2)."""
    _fields_ = [('name', ctypes.c_void_p), ('nameSize', ctypes.c_uint32), ('parts', ctypes.POINTER(IoVec)),
                ('count', ctypes.c_size_t), ('control', ctypes.c_void_p), ('controlSize', ctypes.c_size_t),
                ('flags', ctypes.c_int)]


class MMsgHdr(ctypes.Structure):
    """struct mmsghdr, see sendmmsg(2)."""
    _anonymous_ = ['header']
    _fields_ = [('header', MsgHdr), ('sent', ctypes.c_uint)]


def missing():
    """Why packets cannot be tried on this machine; empty when they can."""
    if os.geteuid() != 0:
        return 'only root can make network namespaces'
    if not os.path.exists('/dev/net/tun'):
        return 'there is no /dev/net/tun'
    probe = subprocess.run(['unshare', '-n', 'ip', 'link', 'add', 'name', 'a', 'type', 'veth', 'peer', 'name', 'b'],
                           capture_output=True, text=True)
    return '' if probe.returncode == 0 else f'no veth pair in a namespace of its own: {probe.stderr.strip()}'


@functools.cache
def claim():
    """Namespaces have names of the whole machine: a second run of these suites waits for the first one's end."""
    lock = open('/run/lock/vexl3-lab', 'w')  # held until the process ends
    fcntl.flock(lock, fcntl.LOCK_EX)
    return lock


class Host:
    """One host: its wire, and a socket on it that sees each frame."""

    def __init__(self, space):
        self.space = space
        here = os.open('/proc/self/ns/net', os.O_RDONLY)
        there = os.open(f'/var/run/netns/{space}', os.O_RDONLY)
        try:
            if LIBC.setns(there, 0) != 0:
                raise OSError(ctypes.get_errno(), space)
            self.wire = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(3))
            self.wire.setsockopt(socket.SOL_SOCKET, 33, 1 << 26)  # SO_RCVBUFFORCE
            self.wire.setsockopt(263, 23, 1)  # SOL_PACKET, PACKET_IGNORE_OUTGOING
            self.wire.bind(('eth0', 0))
            # Of what is sent to this port nobody is told that nobody is there.
            self.sink = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
            self.sink.bind(('', 5000))
        finally:
            LIBC.setns(here, 0)
            os.close(here)
            os.close(there)
        self.mac = self.run('cat', '/sys/class/net/eth0/address').stdout.strip()

    def run(self, *command, check=True):
        done = subprocess.run(['ip', 'netns', 'exec', self.space, *command], capture_output=True, text=True)
        if check and done.returncode != 0:
            raise AssertionError(f'{self.space}: {command}: {done.stdout}{done.stderr}')
        return done

    def start(self, *command):
        return subprocess.Popen(['ip', 'netns', 'exec', self.space, *command], stdout=subprocess.PIPE, text=True)

    def until_it_reaches(self, address):
        """Both neighbours are known afterwards."""
        until(lambda: self.run('ping', '-c1', '-W1', address, check=False).returncode == 0,
              f'{self.space} has its first answer from {address}')

    def send(self, *packets):
        for packet in packets:
            self.wire.send(bytes(packet))

    def flood(self, count, seeds, seed):
        """So many frames, each one of the seeds with some bytes changed, and of each seventh the end cut off. Gives how
        many the wire had room for."""
        chance, batch, sent = random.Random(seed), 512, 0
        room = ctypes.create_string_buffer(batch * 2048)
        frames = memoryview(room).cast('B')
        parts, messages, size_each = (IoVec * batch)(), (MMsgHdr * batch)(), ctypes.sizeof(MMsgHdr)
        start = ctypes.addressof(room)
        for n in range(batch):
            parts[n].base = start + 2048 * n
            messages[n].parts, messages[n].count = ctypes.pointer(parts[n]), 1
        for _ in range(0, count, batch):
            bits = chance.randbytes(16 * batch)
            for n in range(batch):
                frame, dice = seeds[bits[16 * n] % len(seeds)], bits[16 * n + 1:16 * n + 16]
                at, size = 2048 * n, len(frame)
                frames[at:at + size] = frame
                for k in range(1 + dice[0] % 5):
                    # Most faults are made in the headers.
                    place = dice[3 * k // 2 + 1] * (1 if dice[14] & 1 << k else 8)
                    frames[at + place % size] = dice[k + 9]
                parts[n].size = 15 + (dice[13] * 8) % (size - 15) if dice[12] % 7 == 0 else size
            at = 0
            while at < batch:
                done = LIBC.sendmmsg(self.wire.fileno(), ctypes.byref(messages, at * size_each), batch - at, 0)
                sent += max(0, done)
                at += done if done > 0 else 1  # one for which the wire has no room
        return sent

    def to_router(self, packet):
        return Ether(dst=ROUTER_MAC, src=self.mac) / packet

    def forget(self):
        while select.select([self.wire], [], [], 0)[0]:
            self.wire.recv(65536)

    def seen(self, wanted=None, quiet=0.3):
        """Frames until `wanted` of them came and no further one for `quiet` seconds."""
        frames = []
        end = time.monotonic() + DEADLINE
        while time.monotonic() < end:
            enough = wanted is None or len(frames) >= wanted
            if not select.select([self.wire], [], [], quiet if enough else end - time.monotonic())[0]:
                break
            frames.append(self.wire.recv(65536))
        return frames

    def pings(self, target, *options):
        """How many were sent, and how many answers came. ping itself waits for the last ones only as long as two of the
        others took."""
        self.forget()
        said = self.run('ping', *options, target, check=False).stdout
        sent = re.search(r'(\d+) packets transmitted', said)
        if sent is None:
            raise AssertionError(f'{self.space}: ping {target}: {said}')
        return int(sent.group(1)), self.answers(target)

    def answers(self, target):
        """Echo replies that came since the last forget()."""
        return len(self.seen_ip(keep=lambda p: p.src == target and p.proto == 1 and p.frag == 0 and p['ICMP'].type == 0))

    def indexes_until(self, mark):
        """The first four bytes of each UDP packet to port 5000, until one has the mark."""
        end = time.monotonic() + DEADLINE
        indexes = []
        while select.select([self.wire], [], [], max(0, end - time.monotonic()))[0]:
            frame = self.wire.recv(65536)
            if frame[12:14] != b'\x08\x00' or frame[23] != 17 or frame[36:38] != b'\x13\x88':
                continue
            index = int.from_bytes(frame[42:46], 'big')
            if index == mark:
                return indexes
            indexes.append(index)
        raise AssertionError(f'{self.space}: no mark within {DEADLINE} s, after {len(indexes)} packets')

    def seen_ip(self, wanted=None, quiet=0.3, keep=lambda packet: True):
        """Of the IPv4 packets among them those to keep; nobody asked for the others (ARP and the like)."""
        packets = [Ether(frame) for frame in self.seen(wanted, quiet)]
        return [packet['IP'] for packet in packets if packet.type == 0x0800 and keep(packet['IP'])]


class Lab:
    """A router with a wire to each of its hosts: {'left': ('10.0.1.2/24', '10.0.1.1'), ...}."""

    def __init__(self, name, hosts, description):
        claim()
        self.name = name
        self.folder = tempfile.TemporaryDirectory(prefix='vexl3-packets-')
        self.socket = f'{self.folder.name}/vexl3d.sock'
        self.log = open(f'{self.folder.name}/log', 'w+')
        self.daemon = None
        self.lab('down', name)
        self.lab('up', name, *(f'{host}=wire-{host}={address}={gateway}'
                               for host, (address, gateway) in hosts.items()))
        self.hosts = {host: Host(f'{name}-{host}') for host in hosts}
        self.description = pathlib.Path(self.folder.name) / 'router.yaml'
        self.description.write_text(description)

    def lab(self, *words):
        subprocess.run([ROOT / 'tools/lab', *words], check=True)

    def start(self, workers=WORKERS):
        self.daemon = subprocess.Popen(
            ['ip', 'netns', 'exec', f'{self.name}-router', BIN / 'vexl3d', '--config', self.description, '--socket',
             self.socket, *workers], stdout=self.log, stderr=self.log)
        until(self.ready, f'every port is up: {self.text()}')

    def ready(self):
        if self.daemon.poll() is not None:
            raise AssertionError(f'vexl3d ended: {self.text()}')
        if not os.path.exists(self.socket):
            return False
        ports = self.ask('show', 'ports', check=False)
        return ports is not None and len(ports) > 0 and all(port['state'] == 'up' for port in ports)

    def text(self):
        return pathlib.Path(self.log.name).read_text()

    def ctl(self, *words, check=True):
        done = subprocess.run([BIN / 'vexctl', '--socket', self.socket, '--json', *words], capture_output=True,
                              text=True)
        if check and done.returncode != 0:
            raise AssertionError(f'vexctl {words}: {done.stdout}{done.stderr}')
        return done

    def ask(self, *words, check=True):
        done = self.ctl(*words, check=check)
        if done.returncode != 0:
            return None
        answer = json.loads(done.stdout)
        return answer if isinstance(answer, list) else answer.get('rows', answer)

    def acknowledged(self):
        """Waits until the data plane has taken all that was told: only then anything is compared."""
        if differences := self.ask('verify'):
            raise AssertionError(differences)

    def data_plane(self):
        """The process of the embedded one; 0: there is none."""
        return self.ask('show', 'status')['result'].get('dataPlanePid', 0)

    def stop(self):
        if self.daemon is not None and self.daemon.poll() is None:
            self.daemon.terminate()
            self.daemon.wait(DEADLINE)

    def end(self):
        self.stop()
        for host in self.hosts.values():
            host.wire.close()
            host.sink.close()
        self.lab('down', self.name)
        self.log.close()
        self.folder.cleanup()
