#!/usr/bin/python3
"""Packets through a router of vexl3d and vexdp, judged by kernels and by scapy.

  forwarding.py [what unittest takes]     ends with 77 where no packets can be tried, and says why
"""

import contextlib
import ipaddress
import logging
import os
import random
import signal
import subprocess
import sys
import unittest

logging.getLogger('scapy').setLevel(logging.ERROR)
sys.path.insert(0, os.path.dirname(__file__))

from scapy.layers.inet import ICMP, IP, TCP, UDP, fragment  # noqa: E402
from scapy.layers.l2 import ARP, Ether  # noqa: E402
from scapy.packet import Raw  # noqa: E402

from lab import ROUTER_MAC, Lab, missing, until  # noqa: E402

LEFT, RIGHT, THIRD = '10.0.1.2', '10.0.2.2', '10.0.3.2'


def udp(index=0, size=0, **ip):
    ip = {'src': LEFT, 'dst': RIGHT, **ip}
    return IP(**ip) / UDP(sport=4000, dport=5000, chksum=0) / Raw(index.to_bytes(4, 'big') + bytes(size))


MARK = (1 << 32) - 1  # no packet's index


def index_of(packet):
    return int.from_bytes(bytes(packet['UDP'].payload)[:4], 'big')


class Forwarding(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.lab = Lab('vexl3fwd', {'left': (LEFT + '/24', '10.0.1.1'), 'right': (RIGHT + '/24', '10.0.2.1'),
                                   'third': (THIRD + '/24', '10.0.3.1')}, f'''
router: {{mac: '{ROUTER_MAC}'}}
interfaces:
  - {{name: Ethernet1, addresses: 10.0.1.1/24, device: wire-left, mtu: 9000}}
  - {{name: Ethernet2, addresses: 10.0.2.1/24, device: wire-right, mtu: 1400}}
  - {{name: Ethernet3, addresses: 10.0.3.1/24, device: wire-third, mtu: 9000}}
''')
        cls.addClassCleanup(cls.lab.end)
        cls.lab.start()
        cls.left, cls.right, cls.third = (cls.lab.hosts[name] for name in ('left', 'right', 'third'))
        for host in (cls.left, cls.third):
            host.run('ip', 'link', 'set', 'eth0', 'mtu', '9000')
        # Every neighbour is known, so that nothing but what is sent is on the wires.
        for host in (cls.right, cls.third):
            host.until_it_reaches(LEFT)

    def setUp(self):
        for host in self.lab.hosts.values():
            host.forget()

    def test_the_kernel_speaks_ipv6_by_its_devices(self):
        ends = (('router', 'Ethernet1', '2001:db8::1/64'), ('left', 'eth0', '2001:db8::2/64'))
        for space, device, address in ends:
            inside = ('ip', 'netns', 'exec', f'vexl3fwd-{space}')
            for words in (('sysctl', '-qw', f'net.ipv6.conf.{device}.disable_ipv6=0'),
                          ('ip', 'addr', 'add', address, 'dev', device, 'nodad')):
                subprocess.run([*inside, *words], check=True)
            self.addCleanup(subprocess.run, [*inside, 'sysctl', '-qw', f'net.ipv6.conf.{device}.disable_ipv6=1'])
        self.left.until_it_reaches('2001:db8::1')
        self.assertIn('5 received', self.left.run('ping', '-c5', '-i0.05', '-s1200', '2001:db8::1', check=False).stdout)

    def from_left(self, *packets):
        self.left.send(*(self.left.to_router(packet) for packet in packets))

    def silent(self, *hosts):
        for host in hosts:
            self.assertEqual([p.summary() for p in host.seen_ip()], [], host.space)

    def test_hosts_ping_and_trace_each_other_through_the_router(self):
        for a, b, target, gate in ((self.left, self.right, RIGHT, '10.0.1.1'),
                                   (self.right, self.third, THIRD, '10.0.2.1')):
            self.assertEqual(*a.pings(target, '-c5', '-i0.05'))
            self.assertEqual(*a.pings(gate, '-c2', '-i0.05'))
            first = a.run('ping', '-c1', '-t1', '-W2', target, check=False).stdout
            self.assertIn(f'From {gate}', first)
            self.assertIn('Time to live exceeded', first)
        self.assertEqual(*self.left.pings(THIRD, '-c2', '-i0.05', '-s8972', '-Mdo'))
        # TCP, with the path's MTU found out by the kernels.
        server = self.right.start('timeout', '10', '/usr/bin/python3', '-c', '''
import socket
s = socket.create_server(("10.0.2.2", 7000)); print("listens", flush=True); c = s.accept()[0]
n = 0
while (b := c.recv(65536)): n += len(b)
c.close(); print(n)''')
        self.assertEqual(server.stdout.readline().strip(), 'listens')
        sent = self.left.run('/usr/bin/python3', '-c', '''
import socket
s = socket.create_connection(("10.0.2.2", 7000), 5)
s.sendall(bytes(300000)); s.shutdown(1); s.recv(1); print("done")''').stdout
        self.assertEqual((sent.strip(), server.communicate()[0].strip()), ('done', '300000'))

    def test_a_burst_of_any_length_arrives_whole_and_in_order(self):
        for count in (1, 31, 32, 33, 67, 257):
            self.from_left(*(udp(index, size=index % 700) for index in range(count)))
            got = self.right.seen_ip(count)
            self.assertEqual([index_of(p) for p in got], list(range(count)))
            for sent, p in enumerate(got):
                whole = udp(sent, size=sent % 700, ttl=63)
                self.assertEqual(bytes(p), bytes(whole), f'packet {sent} of {count}')
        self.silent(self.third, self.left)

    def test_frames_have_the_routers_addresses_and_no_padding(self):
        frame = bytes(self.left.to_router(udp(7)))
        self.left.send(frame + bytes(60 - len(frame)))
        got = Ether(self.right.seen(1)[0])
        self.assertEqual((got.src, got.dst), (ROUTER_MAC, self.right.mac))
        self.assertEqual(bytes(got['IP']), bytes(udp(7, ttl=63)))

    def test_the_checksum_is_right_whatever_it_was(self):
        # The sum is 0xffff at one of these identifications, and next to it at others (RFC 1624).
        packets = [udp(index, id=index * 257 & 0xffff) for index in range(256)]
        self.from_left(*packets)
        for sent, p in zip(packets, self.right.seen_ip(len(packets))):
            sent.ttl -= 1
            self.assertEqual(bytes(p), bytes(sent))

    def test_what_is_no_good_packet_is_dropped_in_silence(self):
        good = bytes(udp(1))
        bad = {'version': b'\x55' + good[1:], 'header length': b'\x44' + good[1:],
               'total length': bytes(udp(1, len=2000)), 'checksum': bytes(udp(1, chksum=1)),
               'cut': good[:12], 'empty': b''}
        for what, packet in bad.items():
            self.left.send(bytes(Ether(dst=ROUTER_MAC, src=self.left.mac, type=0x0800)) + packet)
        self.left.send(Ether(dst='02:00:00:00:00:99', src=self.left.mac) / udp(2))
        self.left.send(Ether(dst='ff:ff:ff:ff:ff:ff', src=self.left.mac) / udp(3))
        for src, dst in ((LEFT, '127.0.0.1'), (LEFT, '240.0.0.1'), (LEFT, '255.255.255.255'), ('127.0.0.1', RIGHT),
                         ('224.0.0.1', RIGHT), ('240.0.0.1', RIGHT), ('0.0.0.1', RIGHT), ('169.254.0.1', RIGHT),
                         (LEFT, '10.0.2.255')):
            self.from_left(udp(4, src=src, dst=dst))
        self.from_left(udp(9))
        self.assertEqual([index_of(p) for p in self.right.seen_ip(1)], [9])
        self.silent(self.left, self.third)

    def test_the_last_hop_is_told_to_the_sender(self):
        self.from_left(udp(1, ttl=1), udp(2, ttl=2))
        told = self.left.seen_ip(1)
        self.assertEqual([(p.src, p['ICMP'].type, p['ICMP'].code) for p in told], [('10.0.1.1', 11, 0)])
        self.assertEqual([index_of(p) for p in self.right.seen_ip(1)], [2])
        # Of an ICMP error, of a later fragment, nobody is told.
        self.from_left(IP(src=LEFT, dst=RIGHT, ttl=1) / ICMP(type=3, code=3) / udp(1),
                       IP(src=LEFT, dst=RIGHT, ttl=1, frag=100) / Raw(bytes(64)))
        self.silent(self.left, self.right)

    def test_what_is_too_big_is_told_or_cut(self):
        fits, big = udp(1, size=1400 - 32), udp(2, size=1400 - 31)
        self.assertEqual((len(fits), len(big)), (1400, 1401))
        big.flags = 'DF'
        self.from_left(fits, big)
        self.assertEqual([index_of(p) for p in self.right.seen_ip(1)], [1])
        told = self.left.seen_ip(1)[0]['ICMP']
        self.assertEqual((told.type, told.code, told.nexthopmtu), (3, 4, 1400))
        whole = udp(3, size=1440, id=77)
        for packets in ([whole], fragment(whole, 1416)):  # fragments are cut again
            self.from_left(*packets)
            pieces = self.right.seen_ip(2)
            payload = b''.join(bytes(p.payload) for p in sorted(pieces, key=lambda p: p.frag))
            self.assertEqual(payload, bytes(whole.payload))
            self.assertEqual({(p.id, len(p) <= 1400, p.ttl) for p in pieces}, {(77, True, 63)})
            self.assertTrue(all(len(p.payload) % 8 == 0 for p in pieces if p.flags.MF))

    def test_fragments_are_forwarded_as_they_are_sent(self):
        sent = fragment(IP(src=RIGHT, dst=LEFT, id=78) / UDP(sport=1, dport=5000) / Raw(bytes(range(250)) * 20), 1200)
        self.right.send(*(self.right.to_router(piece) for piece in sent))
        got = self.left.seen_ip(len(sent))
        for piece in sent:
            piece.ttl -= 1
        self.assertEqual([bytes(p) for p in got], [bytes(p) for p in sent])

    def test_the_kernel_answers_arp_and_ping_for_the_router(self):
        self.left.send(Ether(dst='ff:ff:ff:ff:ff:ff', src=self.left.mac) /
                       ARP(hwsrc=self.left.mac, psrc=LEFT, pdst='10.0.1.1'))
        answers = [p['ARP'].hwsrc for p in map(Ether, self.left.seen(1)) if p.type == 0x0806 and p['ARP'].op == 2]
        self.assertEqual(answers, [ROUTER_MAC])
        # A TTL of 1 is enough to reach the router itself.
        self.from_left(IP(src=LEFT, dst='10.0.1.1', ttl=1) / ICMP(id=5) / Raw(bytes(100)))
        self.assertEqual([p['ICMP'].type for p in self.left.seen_ip(1)], [0])

    def test_packets_are_captured_and_their_ways_and_losses_told(self):
        def going(*words):
            with self.left.start('ping', '-i0.05', '-c100', RIGHT) as ping:
                try:
                    return self.lab.ask(*words)
                finally:
                    ping.kill()
        taken = going('capture', '--filter', 'icmp[icmptype] == 8', '--count', '2')
        self.assertEqual([(p['module'], p['interface']) for p in taken],
                         [('PortRx_et1', 'Ethernet1'), ('PortTx_et2', 'Ethernet2')])
        sent, left = (Ether(bytes.fromhex(p['data'])) for p in taken)
        self.assertEqual((sent.dst, sent['IP'].ttl, left.dst, left['IP'].ttl), (ROUTER_MAC, 64, self.right.mac, 63))
        way = going('trace', 'live', '--in', 'Ethernet1', '--count', '1')[0]
        self.assertEqual((way['steps'][0]['module'], way['end'], way['out']), ('PortRx_et1', 'sent', 'Ethernet2'))

        lost = [('fibIpv4', 'no route to ... in VRF ...')]
        before = {(d['module'], d['reason']): d['packets'] for d in self.lab.ask('show', 'drops')}
        self.from_left(*(udp(i, dst='99.9.9.9') for i in range(7)))
        after = {(d['module'], d['reason']): d['packets'] for d in self.lab.ask('show', 'drops')}
        self.assertEqual([key for key in after if after[key] != before.get(key, 0)], lost)
        self.assertEqual(after[lost[0]] - before.get(lost[0], 0), 7)
        for words, code in ((('capture', '--filter', 'no such'), 2), (('capture', '--gate', '1'), 2),
                            (('capture', '--module', 'nosuch'), 3), (('trace', 'live', '--in', 'Nosuch1'), 2)):
            self.assertEqual(self.lab.ctl(*words, check=False).returncode, code, words)

    def test_traffic_goes_on_after_the_data_plane_is_killed(self):
        ping = self.left.start('ping', '-D', '-i0.02', '-c400', RIGHT)
        until(lambda: len(self.right.seen(1, quiet=0)) > 0, 'pings arrive')
        killed = self.lab.data_plane()
        os.kill(killed, signal.SIGKILL)
        until(lambda: self.lab.data_plane() not in (0, killed), 'another data plane')
        until(self.lab.ready, 'the ports are back')
        lines = [line for line in ping.communicate()[0].splitlines() if 'icmp_seq=' in line and 'bytes from' in line]
        last = int(lines[-1].split('icmp_seq=')[1].split()[0])
        self.assertEqual(last, 400)
        lost = 400 - len(lines)
        print(f'\n   data plane killed under a ping: {lost} of 400 packets lost, {lost * 0.02:.1f} s', flush=True)
        self.assertLess(lost, 250)
        self.assertEqual(self.lab.ask('verify'), [])

    def test_a_neighbour_that_moves_is_followed(self):
        other = '02:00:00:00:77:01'
        for mac in (other, self.right.mac):
            self.right.run('ip', 'link', 'set', 'eth0', 'address', mac)
            self.right.run('ping', '-c1', '-W1', '10.0.2.1', check=False)

            def moved(mac=mac):
                self.from_left(udp(1))
                frames = map(Ether, self.right.seen(1, quiet=0.05))
                return any(frame.dst == mac and frame.type == 0x0800 for frame in frames)
            until(moved, f'packets to {mac}')

    def test_a_million_random_and_mutated_packets_do_no_harm(self):
        # A device's queue holds buffers of its own; what is in a capture, or joined, was let go.
        def in_use():
            return sum(pool['inUse'] for pool in self.lab.ask('show', 'buffers'))

        def received():
            return sum(port['packetsIn'] for port in self.lab.ask('show', 'ports') if 'device' in port)

        idle = in_use()
        for host in self.lab.hosts.values():
            own = host.run('hostname', '-I').stdout.split()[0]
            others = [ip for ip in (LEFT, RIGHT, THIRD, '10.0.1.1') if ip != own]
            kinds = [bytes(host.to_router(p)) for ip in others for p in
                     (udp(1, size=64, src=own, dst=ip), IP(src=own, dst=ip) / ICMP(), udp(1, src=own, dst=ip, ttl=1),
                      udp(2, src=own, dst=ip, size=1350), udp(3, src=own, dst=ip, frag=7, flags='MF'))]
            kinds += [bytes(host.to_router(IP(src=own, dst=others[0]) / TCP(flags='S', options=[('MSS', 1460)]))),
                      bytes(Ether(dst=ROUTER_MAC, src=host.mac) / ARP(psrc=own, pdst=own)), random.randbytes(60)]
            before = received()
            for seed in range(100):
                host.flood(40000, kinds, seed)
                if received() - before > 333333:  # what a full ring has lost does not count
                    break
            else:
                self.fail('the packets do not come in')
        # Some of the ARP has told the router wrong addresses.
        for host in self.lab.hosts.values():
            until(lambda host=host: host.run('ping', '-c1', '-W1', '10.0.1.1', check=False).returncode == 0, 'a ping')
        self.assertEqual(*self.left.pings(RIGHT, '-c5', '-i0.05'))
        self.assertEqual(self.lab.ask('verify'), [])
        until(lambda: in_use() <= idle, 'every buffer is given back')


class Routes(unittest.TestCase):
    """Routes in numbers, and several ways out."""

    @classmethod
    def setUpClass(cls):
        hosts = {f'out{i}': (f'10.1.{i}.2/24', f'10.1.{i}.1') for i in range(1, 5)}
        cls.names = list(hosts)
        interfaces = '\n'.join(f'  - {{name: Ethernet{i}, addresses: 10.1.{i}.1/24, device: wire-out{i}}}'
                               for i in range(1, 5))
        cls.lab = Lab('vexl3rt', {'left': (LEFT + '/24', '10.0.1.1'), **hosts}, f'''
router: {{mac: '{ROUTER_MAC}'}}
interfaces:
  - {{name: Ethernet9, addresses: 10.0.1.1/24, device: wire-left}}
{interfaces}
routes:
  - {{prefix: 50.0.0.0/8, via: [10.1.1.2, 10.1.2.2, 10.1.3.2]}}
''')
        cls.addClassCleanup(cls.lab.end)
        cls.lab.start()
        cls.left = cls.lab.hosts['left']
        cls.outs = [cls.lab.hosts[name] for name in cls.names]
        for host in cls.outs:
            host.until_it_reaches(LEFT)

    def setUp(self):
        for host in self.lab.hosts.values():
            host.forget()

    def sent(self, packets):
        """Which packet, by its index, left by which wire.

        Behind each 200 goes a mark to every host, and the next wait until all have it: no queue on the way overflows.
        """
        got = {}
        for at in range(0, len(packets), 200):
            self.left.send(*(self.left.to_router(packet) for packet in packets[at:at + 200]))
            self.left.send(*(self.left.to_router(udp(MARK, dst=f'10.1.{wire}.2')) for wire in (1, 2, 3, 4)))
            for wire, host in enumerate(self.outs, 1):
                got |= dict.fromkeys(host.indexes_until(MARK), wire)
        return got

    def test_each_flow_stays_on_one_of_several_ways(self):
        flows = [udp(i, dst=f'50.{i % 7}.{i >> 8}.{i & 255}') for i in range(3000)]
        first, second = self.sent(flows), self.sent(flows)
        self.assertEqual(first, second)
        self.assertEqual(len(first), len(flows))
        shares = [list(first.values()).count(wire) for wire in (1, 2, 3, 4)]
        self.assertEqual(shares[3], 0)
        # Five standard deviations of a fair draw.
        self.assertTrue(all(abs(share - 1000) < 5 * 26 for share in shares[:3]), shares)

    def test_the_longest_match_is_the_kernels(self):
        random.seed(12)
        prefixes = set()
        while len(prefixes) < 2000:
            length = random.choice((8, 12, 16, 17, 20, 24, 24, 24, 25, 28, 31, 32))
            prefixes.add(ipaddress.ip_network((random.randrange(60 << 24, 100 << 24), length), strict=False))
        ways = {prefix: random.randrange(1, 5) for prefix in sorted(prefixes)}
        routes = self.lab.folder.name + '/routes'
        with open(routes, 'w') as file:
            file.writelines(f'{prefix} 10.1.{wire}.2\n' for prefix, wire in ways.items())
        with open(self.lab.description, 'a') as file:
            file.write(f'route-file: {{path: {routes}}}\n')
        self.lab.ctl('reload')
        until(lambda: self.lab.ask('show', 'summary')['result']['routesTold']['ipv4'] > len(ways), 'the routes are told')
        until(lambda: self.lab.ask('verify') == [], 'nothing is under way')

        edges = [int(edge) + step for prefix in prefixes for edge in (prefix[0], prefix[-1]) for step in (-1, 0, 1)]
        addresses = random.sample(edges, 3000) + [random.randrange(60 << 24, 100 << 24) for _ in range(5000)]
        addresses = [ipaddress.ip_address(a) for a in addresses if 60 << 24 <= a < 100 << 24]
        judge = self.kernels_choice(ways, addresses)
        got = self.sent([udp(i, dst=str(a)) for i, a in enumerate(addresses)])
        wrong = [(str(a), judge[i], got.get(i)) for i, a in enumerate(addresses) if judge[i] != got.get(i)]
        self.assertEqual(wrong, [])

    @staticmethod
    def kernels_choice(ways, addresses):
        """The wire for each address as a namespace's kernel chooses it; None: it has no route."""
        space = 'vexl3rt-judge'
        subprocess.run(['ip', 'netns', 'add', space], check=True)
        try:
            lines = ['link set lo up'] + [line for i in range(1, 5) for line in (
                f'link add name out{i} type veth peer name in{i}', f'link set out{i} up', f'link set in{i} up', f'address add 10.1.{i}.1/24 dev out{i}')]
            lines += [f'route add {prefix} via 10.1.{wire}.2' for prefix, wire in ways.items()]
            batch = ['ip', '-n', space, '-batch', '-']
            subprocess.run(batch, input='\n'.join(lines), text=True, check=True)
            choice = []
            asked = subprocess.run(['ip', '-n', space, '-force', '-o', '-batch', '-'], capture_output=True, text=True,
                                   input='\n'.join(f'route get {a} fibmatch' for a in addresses))
            told = iter(asked.stdout.splitlines())
            refused = {int(line.rsplit(':', 1)[1]) for line in asked.stderr.splitlines() if line.startswith('Command failed')}
            for number in range(1, len(addresses) + 1):
                choice.append(None if number in refused else int(next(told).split(' dev out')[1].split()[0]))
            return choice
        finally:
            subprocess.run(['ip', 'netns', 'del', space], check=True)


class Vrfs(unittest.TestCase):
    """Two VRFs with the same addresses."""

    def test_nothing_crosses(self):
        lab = Lab('vexl3vrf', {'a1': (LEFT + '/24', '10.0.1.1'), 'a2': (RIGHT + '/24', '10.0.2.1'),
                               'b1': (LEFT + '/24', '10.0.1.1'), 'b2': (RIGHT + '/24', '10.0.2.1')}, f'''
router: {{mac: '{ROUTER_MAC}'}}
vrfs: [{{name: blue, id: 10, netns: vexl3vrf-blue}}]
interfaces:
  - {{name: Ethernet1, addresses: 10.0.1.1/24, device: wire-a1}}
  - {{name: Ethernet2, addresses: 10.0.2.1/24, device: wire-a2}}
  - {{name: Ethernet3, addresses: 10.0.1.1/24, device: wire-b1, vrf: blue}}
  - {{name: Ethernet4, addresses: 10.0.2.1/24, device: wire-b2, vrf: blue}}
''')
        self.addCleanup(lab.end)
        subprocess.run(['ip', 'netns', 'add', 'vexl3vrf-blue'], check=True)
        lab.start()
        for a, b in (('a1', 'a2'), ('b1', 'b2')):
            lab.hosts[a].until_it_reaches(RIGHT)
            for host in lab.hosts.values():
                host.forget()
            self.assertEqual(*lab.hosts[a].pings(RIGHT, '-c5', '-i0.05'))
            others = [host for name, host in lab.hosts.items() if name not in (a, b)]
            self.assertEqual([p.summary() for host in others for p in host.seen_ip()], [])


if __name__ == '__main__':
    why = missing()
    if why:
        print(f'packets: nothing was tried: {why}')
        sys.exit(77)
    unittest.main(verbosity=2)
