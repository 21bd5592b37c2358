#!/usr/bin/python3
"""Tunnels with two ends: what scapy wraps the router opens, what the router wraps scapy opens, and kernels talk across.

  tunnels.py [what unittest takes]     ends with 77 where no packets can be tried, and says why
"""

import json
import logging
import os
import random
import re
import subprocess
import sys
import unittest

logging.getLogger('scapy').setLevel(logging.ERROR)
sys.path.insert(0, os.path.dirname(__file__))

from scapy.layers.inet import ICMP, IP, TCP, UDP, fragment  # noqa: E402
from scapy.layers.ipsec import ESP, SecurityAssociation  # noqa: E402
from scapy.layers.l2 import Ether, GRE  # noqa: E402
from scapy.packet import Raw  # noqa: E402

from lab import ROUTER_MAC, Lab, missing, until  # noqa: E402

NEAR, FAR = '10.0.1.2', '10.0.9.2'          # hosts: one at the router, one behind the tunnels
END, PEER = '192.0.2.1', '10.0.2.2'         # ends of the tunnels: the router's, and scapy's
INSIDE = '10.255.{}.1'                      # the router's address on TunnelN
KEYS = {128: '00112233445566778899aabbccddeeff', 160: 'f0e1d2c3b4a5968778695a4b3c2d1e0f10213243',
        256: '0f1e2d3c4b5a69788796a5b4c3d2e1f0' * 2, 224: '00112233445566778899aabb' * 2 + '01020304',
        288: '0f1e2d3c4b5a69788796a5b4c3d2e1f0' * 2 + 'a1b2c3d4'}
ALGORITHMS = {  # name: description's, scapy's
    'cbc-sha1': ({'encryption': 'aes', 'encryption-key': 128, 'authentication': 'sha1', 'authentication-key': 160},
                 ('AES-CBC', 'HMAC-SHA1-96')),
    'cbc256-sha256': ({'encryption': 'aes', 'encryption-key': 256, 'authentication': 'hmac(sha256)',
                       'authentication-key': 256}, ('AES-CBC', 'SHA2-256-128')),
    'gcm128': ({'encryption': 'rfc4106(gcm(aes))', 'encryption-key': 160}, ('AES-GCM', 'NULL')),
    'gcm256': ({'encryption': 'rfc4106(gcm(aes))', 'encryption-key': 288}, ('AES-GCM', 'NULL')),
}

REKEY_SECONDS = float(os.environ.get('VEXL3_REKEY_SECONDS', 6))  # of traffic, by each mode


def sa_text(spi, source, destination, algorithms, **more):
    """An association as the description takes it."""
    said = {'spi': spi, 'source': source, 'destination': destination, **ALGORITHMS[algorithms][0], **more}
    words = [f"{k}: {'0x' + KEYS[v] if k.endswith('-key') else v}" for k, v in said.items()]
    return '{' + ', '.join(words) + '}'


def scapy_sa(spi, algorithms, tunnel=None, **more):
    """The same one for scapy; with `tunnel` of the outer addresses."""
    said, (crypt, auth) = ALGORITHMS[algorithms]
    return SecurityAssociation(ESP, spi=spi, crypt_algo=crypt, crypt_key=bytes.fromhex(KEYS[said['encryption-key']]),
                               auth_algo=auth, auth_key=bytes.fromhex(KEYS[said['authentication-key']])
                               if 'authentication-key' in said else None,
                               tunnel_header=IP(src=tunnel[0], dst=tunnel[1]) if tunnel else None, **more)


def seal(sa, packet, **outer):
    """Sealed by scapy, which leaves the length of UDP at that of its header."""
    sealed = bytearray(bytes(sa.encrypt(packet)))
    if sealed[9] == 17:
        sealed[24:26] = (len(sealed) - 20).to_bytes(2, 'big')
    sealed = IP(bytes(sealed))
    for field, value in outer.items():
        setattr(sealed, field, value)
    del sealed.chksum
    return sealed


def udp(index=0, size=0, **ip):
    return IP(**{'src': FAR, 'dst': NEAR, **ip}) / UDP(sport=4000, dport=5000) / Raw(index.to_bytes(4, 'big') + bytes(size))


def index_of(packet):
    return int.from_bytes(bytes(packet['UDP'].payload)[:4], 'big')


class Ends(unittest.TestCase):
    """One router; scapy is the other end of each of its tunnels."""

    @classmethod
    def setUpClass(cls):
        cls.connections = {}  # number: algorithms, further words
        transport = {'mode': 'transport'}
        encap = {'udp': '{source-port: 4500, destination-port: 4500}'}
        for number, spec in enumerate((('cbc-sha1', {}), ('cbc256-sha256', {}), ('gcm128', {}), ('gcm256', {}),
                                       ('gcm128', encap), ('cbc-sha1', {**transport, **encap})), 11):
            cls.connections[number] = spec
        cls.gre_ipsec = 20, 'gcm128', transport
        tunnels = [f"  - {{name: Tunnel1, source: {END}, destination: {PEER}, addresses: 10.255.1.1/24}}",
                   f"  - {{name: Tunnel2, source: {END}, destination: {PEER}, key: 7, addresses: 10.255.2.1/24}}",
                   f"  - {{name: Tunnel5, source: {END}, destination: {PEER}, key: 9, addresses: 10.255.5.1/24, access-group: {{in: inside}}}}",
                   f"  - {{name: Tunnel4, source: {END}, destination: {PEER}, key: 33, vrf: blue, underlay: default, addresses: 10.255.4.1/24, kernel: false}}",
                   f"  - {{name: Tunnel3, source: {END}, destination: 10.0.2.3, vrf: blue, underlay: default, addresses: 10.255.3.1/24, kernel: false}}"]
        connections, routes = [], []
        for number, (algorithms, more) in cls.connections.items():
            tunnels.append(f"  - {{name: Tunnel{number}, mode: ipsec, source: {END}, destination: {PEER}, addresses: 10.255.{number}.1/24}}")
            connections.append(cls.connection(number, algorithms, more))
        number, algorithms, more = cls.gre_ipsec
        tunnels.append(f"  - {{name: Tunnel{number}, mode: gre-ipsec, source: {END}, destination: {PEER}, key: 20, addresses: 10.255.{number}.1/24}}")
        connections.append(cls.connection(number, algorithms, more, kind='gre'))
        for number in (1, 2, *cls.connections, 20):
            routes.append(f"  - {{prefix: 10.0.{100 + number}.0/24, via: Tunnel{number}}}")
        routes.append('  - {prefix: 10.9.0.0/16, vrf: blue, via: Tunnel4}')
        nl = '\n'
        cls.lab = Lab('vexl3tun', {'near': (NEAR + '/24', '10.0.1.1'), 'peer': (PEER + '/24', '10.0.2.1')}, f'''
router: {{mac: '{ROUTER_MAC}'}}
vrfs: [{{name: blue, id: 10}}]
access-lists:
  - name: inside
    rules: ['deny udp any any eq 5555', 'permit ip any any']
interfaces:
  - {{name: Loopback0, addresses: {END}/32}}
  - {{name: Ethernet1, addresses: 10.0.1.1/24, device: wire-near, mtu: 1500}}
  - {{name: Ethernet2, addresses: 10.0.2.1/24, device: wire-peer, driver: af_xdp, mtu: 1500}}  # AF_PACKET has the kernel join fragments
tunnels:
{nl.join(tunnels)}
ipsec:
{nl.join(connections)}
routes:
{nl.join(routes)}
''')
        cls.addClassCleanup(cls.lab.end)
        cls.lab.start()
        cls.near, cls.peer = cls.lab.hosts['near'], cls.lab.hosts['peer']
        for host, gate in ((cls.near, '10.0.1.1'), (cls.peer, '10.0.2.1')):
            host.until_it_reaches(gate)
        cls.peer.run('iptables', '-A', 'INPUT', '-p', '50', '-j', 'DROP', check=False)

    @staticmethod
    def connection(number, algorithms, more, kind='vti', newer=()):
        inbound = ''.join(f"\n      - {sa_text(spi, PEER, END, algorithms, **more)}" for spi in (0x1000 + number, *newer))
        return (f"  - name: c{number}\n    id: {number}\n    type: {kind}\n    interfaces: Tunnel{number}\n    inbound:{inbound}\n"
                f"    outbound: {sa_text((0x2000 + number) if not newer else newer[-1] + 0x1000, END, PEER, algorithms, **more)}")

    def setUp(self):
        for host in self.lab.hosts.values():
            host.forget()

    def from_peer(self, *packets):
        self.peer.send(*(self.peer.to_router(packet) for packet in packets))

    def at_near(self, wanted=None):
        return self.near.seen_ip(wanted, keep=lambda p: p.haslayer(UDP) and p['UDP'].dport in (5000, 5555))

    def at_peer(self, wanted=None):
        return self.peer.seen_ip(wanted, keep=lambda p: p.src == END)

    def test_gre_that_scapy_wraps_is_opened(self):
        outer = IP(src=PEER, dst=END)
        good = [outer / GRE(proto=0x0800) / udp(1), outer / GRE(proto=0x0800, key_present=1, key=7) / udp(2),
                outer / GRE(proto=0x0800, chksum_present=1, seqnum_present=1, sequence_number=5) / udp(3),
                outer / GRE(proto=0x0800, chksum_present=1, key_present=1, key=7) / udp(4)]
        for packet in good:
            self.from_peer(packet)
        got = sorted(self.at_near(4), key=index_of)  # tunnels keep no order between them
        self.assertEqual([(index_of(p), p.ttl) for p in got], [(i, 63) for i in (1, 2, 3, 4)])
        self.assertEqual(bytes(got[0]), bytes(udp(1, ttl=63)))
        spoilt = bytearray(bytes(good[2]))
        spoilt[-1] ^= 1
        for packet in (outer / GRE(proto=0x0800, key_present=1, key=8) / udp(5), IP(src='10.0.2.9', dst=END) / GRE(proto=0x0800) / udp(5),
                       outer / GRE(proto=0x0800, routing_present=1) / udp(5), outer / GRE(proto=0x0800, version=1) / udp(5),
                       outer / GRE(proto=0x0800) / Raw(bytes(udp(5))[:12]), IP(bytes(spoilt)), outer / GRE(proto=0x0800) / udp(5, chksum=1)):
            self.from_peer(packet)
        self.assertEqual(self.at_near(), [])

    def test_gre_that_the_router_wraps_scapy_opens(self):
        seen = []
        for number, key in ((1, None), (2, 7)):
            self.near.send(self.near.to_router(udp(number, src=NEAR, dst=f'10.0.{100 + number}.9', ttl=9)))
            outer = self.at_peer(1)[0]
            self.assertEqual((outer.src, outer.dst, outer.ttl, outer.flags.DF), (END, PEER, 64, False))
            self.assertEqual(outer['GRE'].key if outer['GRE'].key_present else None, key)
            self.assertEqual(bytes(outer['GRE'].payload), bytes(udp(number, src=NEAR, dst=f'10.0.{100 + number}.9', ttl=8)))
            seen.append(outer.id)
        # The router's own packets take the tunnel, too, and no two have one identification.
        subprocess.run(['ip', 'netns', 'exec', f'{self.lab.name}-router', 'ping', '-c1', '-W1', '10.255.1.9'], capture_output=True)
        own = self.at_peer(1)[0]
        self.assertEqual((own['GRE']['IP'].src, own['GRE']['IP'].dst), ('10.255.1.1', '10.255.1.9'))
        self.assertEqual(len({own.id, *seen}), 3)

    def test_what_comes_out_of_a_tunnel_meets_its_list_and_its_vrf(self):
        outer = IP(src=PEER, dst=END) / GRE(proto=0x0800, key_present=1, key=9)
        self.from_peer(outer / IP(src=FAR, dst=NEAR) / UDP(sport=4000, dport=5555) / Raw(bytes(4)), outer / udp(2))
        self.assertEqual([index_of(p) for p in self.at_near(1)], [2])
        # The hosts here are no part of blue; what it knows is behind another tunnel.
        blue = IP(src='10.0.2.3', dst=END) / GRE(proto=0x0800)
        self.from_peer(blue / udp(3), blue / udp(4, dst='10.9.0.1'))
        onward = self.at_peer(1)[0]
        self.assertEqual((onward.dst, onward['GRE'].key, index_of(onward['GRE'])), (PEER, 33, 4))
        self.assertEqual(self.at_near(), [])

    def test_the_router_answers_through_the_tunnel(self):
        inner = IP(src='10.255.1.9', dst='10.255.1.1') / ICMP(id=5) / Raw(bytes(100))
        self.from_peer(IP(src=PEER, dst=END) / GRE(proto=0x0800) / inner)
        answer = self.at_peer(1)[0]['GRE']['IP']
        self.assertEqual((answer.src, answer.dst, answer['ICMP'].type), ('10.255.1.1', '10.255.1.9', 0))
        # A hop that ends here is told through the tunnel.
        self.from_peer(IP(src=PEER, dst=END) / GRE(proto=0x0800) / udp(1, src='10.255.1.9', ttl=1))
        told = self.at_peer(1)[0]['GRE']['IP']
        self.assertEqual((told.src, told.dst, told['ICMP'].type), ('10.255.1.1', '10.255.1.9', 11))

    def test_congestion_outside_is_told_inside(self):
        # RFC 6040, figure 4; None: dropped. Rows: inner Not-ECT, ECT(0), ECT(1), CE. Columns: outer the same.
        table = {0: (0, 0, 0, None), 2: (2, 2, 1, 3), 1: (1, 1, 1, 3), 3: (3, 3, 3, 3)}
        for number in (1, 13):
            expected, sa = [], self.inbound_sa(13)
            for inner, row in table.items():
                for outer, result in zip((0, 2, 1, 3), row):
                    packet = udp(inner * 4 + outer, tos=0x28 | inner)
                    wrapped = IP(src=PEER, dst=END, tos=outer) / GRE(proto=0x0800) / packet if number == 1 else None
                    if number == 13:
                        wrapped = seal(sa, packet, tos=outer)
                    self.from_peer(wrapped)
                    if result is not None:
                        expected.append((inner * 4 + outer, 0x28 | result))
            self.assertEqual([(index_of(p), p.tos) for p in self.at_near(len(expected))], expected)

    def inbound_sa(self, number, spi=None):
        """Each goes on well above the numbers of the one before."""
        start = self.starts[number] = self.starts.get(number, -999) + 1000
        algorithms, more = self.connections.get(number) or self.gre_ipsec[1:]
        sa = scapy_sa(spi or 0x1000 + number, algorithms, None if more.get('mode') == 'transport' else (PEER, END),
                      nat_t_header=UDP(sport=4500, dport=4500) if 'udp' in more else None)
        sa.seq_num = start
        return sa

    starts = {}

    def outbound_sa(self, number):
        algorithms, more = self.connections.get(number) or self.gre_ipsec[1:]
        return scapy_sa(0x2000 + number, algorithms, None if more.get('mode') == 'transport' else (END, PEER),
                        nat_t_header=UDP(sport=4500, dport=4500) if 'udp' in more else None)

    def test_esp_that_scapy_seals_is_opened_once(self):
        for number, (_, more) in self.connections.items():
            if more.get('mode') == 'transport':
                continue
            sa = self.inbound_sa(number)
            packets = [seal(sa, udp(i, size=i * 37 % 900)) for i in range(1, 41)]
            self.from_peer(*packets[20:], *packets[:20], *packets)
            got = self.at_near(40)
            self.assertEqual([index_of(p) for p in got], [*range(21, 41), *range(1, 21)], number)
            self.assertTrue(all(bytes(p) == bytes(udp(index_of(p), size=index_of(p) * 37 % 900, ttl=63)) for p in got))

    def test_esp_that_the_router_seals_scapy_opens(self):
        for number, (_, more) in self.connections.items():
            sent = udp(number, src=NEAR, dst=f'10.0.{100 + number}.9', size=number * 9)
            sent.tos, sent.ttl = 0xb9, 9
            for df in ('', 'DF'):
                sent.flags = df
                self.near.send(self.near.to_router(sent))
            got = self.peer.seen_ip(2, keep=lambda p: p.proto == 50 or (p.proto == 17 and p['UDP'].dport == 4500))
            sent.ttl = 8
            for df, outer in zip(('', 'DF'), got):
                if more.get('mode') != 'transport':
                    self.assertEqual((outer.src, outer.dst, outer.tos, outer.ttl, str(outer.flags)), (END, PEER, 0xb9, 64, df), number)
                opened = self.outbound_sa(number).decrypt(IP(bytes(outer)), verify=True)
                sent.flags = df
                want, have = IP(bytes(sent)), IP(bytes(opened))
                want.id = have.id if more.get('mode') == 'transport' else want.id
                del want.chksum, have.chksum
                self.assertEqual(bytes(have), bytes(want), number)

    def test_gre_in_esp_is_taken_only_from_its_connection(self):
        number = self.gre_ipsec[0]
        wrapped = IP(src=PEER, dst=END) / GRE(proto=0x0800, key_present=1, key=number) / udp(1)
        self.from_peer(wrapped, self.inbound_sa(number).encrypt(wrapped))
        self.assertEqual([index_of(p) for p in self.at_near(1)], [1])
        # One that is for a tunnel without a connection is not taken from another's.
        self.from_peer(self.inbound_sa(number).encrypt(IP(src=PEER, dst=END) / GRE(proto=0x0800) / udp(2)))
        self.near.send(self.near.to_router(udp(3, src=NEAR, dst=f'10.0.{100 + number}.9')))
        self.assertEqual(self.at_near(), [])
        outer = self.peer.seen_ip(1, keep=lambda p: p.proto == 50)[0]
        opened = self.outbound_sa(number).decrypt(IP(bytes(outer)))
        self.assertEqual((opened['GRE'].key, index_of(opened['GRE'])), (number, 3))

    def test_what_is_forged_moves_no_window_and_costs_nobody_a_packet(self):
        random.seed(7)
        number = 14
        sa = self.inbound_sa(number)
        good = [sa.encrypt(udp(i)) for i in range(200)]
        bad = []
        for i in range(4000):
            forged = bytearray(bytes(good[i % 200]))
            kind = i % 4
            if kind == 0:
                forged[20:24] = random.randbytes(4)  # SPI
            elif kind == 1:
                forged[24:28] = (2 ** 32 - 1 - i).to_bytes(4, 'big')
            elif kind == 2:
                forged[random.randrange(24, len(forged))] ^= 1 << random.randrange(8)
            else:
                cut = random.randrange(20, len(forged))
                forged[2:4] = cut.to_bytes(2, 'big')
                forged = forged[:cut]
            packet = IP(bytes(forged[:20])) / Raw(bytes(forged[20:]))
            del packet.chksum
            bad.append(packet)
        at_once = 20  # with what is forged beside them no more than the wire's ring holds
        for at in range(0, len(good), at_once):
            for i in range(at, at + at_once):
                self.from_peer(*bad[i * 20:(i + 1) * 20], good[i])
            self.assertEqual([index_of(p) for p in self.at_near(at_once)], list(range(at, at + at_once)))

    def test_odd_esp(self):
        dummy = self.inbound_sa(13)
        inner = IP(src=PEER, dst=END, proto=59) / Raw(bytes(20))
        transport = scapy_sa(0x1000 + 13, 'gcm128', None)
        transport.seq_num = dummy.seq_num
        dummy.seq_num += 1
        sealed = transport.encrypt(inner)  # next header 59
        bad_sum, late = dummy.encrypt(udp(1, chksum=0x1234)), dummy.encrypt(udp(2))
        self.from_peer(sealed, bad_sum, late)
        self.assertEqual([index_of(p) for p in self.at_near(1)], [2])
        # A UDP length that is wrong; one that is right but for trailing bytes.
        encap = self.inbound_sa(15)
        too_long, padded = seal(encap, udp(3)), seal(encap, udp(4)) / Raw(b'\0\0\0')
        too_long['UDP'].len += 8
        del padded.len
        self.from_peer(too_long, padded)
        self.assertEqual([index_of(p) for p in self.at_near(1)], [4])

    def test_transport_behind_nat_has_its_checksums_anew(self):
        number = 16
        sa = self.inbound_sa(number)
        for l4 in (UDP(sport=7, dport=5000) / Raw(b'\0\0\0\x09'), UDP(sport=7, dport=5000, chksum=0) / Raw(b'\0\0\0\x09')):
            # The addresses as two NATs on the way would have them.
            self.from_peer(seal(sa, IP(src='172.16.0.5', dst=NEAR) / l4, src=PEER, dst=END))
        # They are for the router itself now: its kernel says that nobody is there.
        told = self.peer.seen_ip(2, keep=lambda p: p.haslayer(ICMP) or p.proto == 50)
        self.assertEqual(len(told), 2)

    def test_what_is_no_tunnels_is_the_kernels(self):
        for words, end in (('--src 10.0.2.7 --proto 47', 'local'), ('--src 10.0.2.7 --proto 50 --length 60', 'local'),
                           (f'--src {PEER} --proto 17 --dport 4501', 'local'), (f'--src {PEER} --proto 50 --length 60', 'dropped')):
            said = self.lab.ctl('trace', 'packet', '--in', 'Ethernet2', '--dst', END, *words.split(), check=False).stdout
            self.assertEqual(json.loads(said)['end'], end, words)

    def test_fragments_to_an_end_are_put_together(self):
        wrapped = [IP(src=PEER, dst=END, id=9) / GRE(proto=0x0800) / udp(1, size=1300)]
        for number, i in ((13, 2), (15, 3)):
            wrapped.append(seal(self.inbound_sa(number), udp(i, size=1300), id=9))  # the same for each protocol
        pieces = [piece for packet in wrapped for piece in fragment(packet, 400)]
        for _ in range(3):
            random.shuffle(pieces)
            self.from_peer(*pieces)
            got = self.at_near(1)
            if _ == 0:
                self.assertEqual(sorted(index_of(p) for p in got), [1, 2, 3])
                self.assertTrue(all(len(p) == len(udp(1, size=1300)) for p in got))
            else:  # what came once is not opened again
                self.assertEqual([index_of(p) for p in got], [1])
        # Thousands that never become whole leave room for others as soon as they are old, and whole packets pass.
        flood = [fragment(IP(src=PEER, dst=END, id=i) / GRE(proto=0x0800) / udp(7, size=1300), 400)[0] for i in range(3000)]
        for at in range(0, 3000, 60):
            self.from_peer(*flood[at:at + 60], IP(src=PEER, dst=END) / GRE(proto=0x0800) / udp(at))
        self.assertEqual([index_of(p) for p in self.at_near(50)], list(range(0, 3000, 60)))

        def room():
            self.from_peer(*fragment(IP(src=PEER, dst=END, id=5000) / GRE(proto=0x0800) / udp(8, size=1300), 400))
            return [index_of(p) for p in self.near.seen_ip(quiet=0.1, keep=lambda p: p.haslayer(UDP))] == [8]
        until(room, 'room for fragments again')

    def test_verify_finds_nothing(self):
        # AF_XDP leaves its device's MAC alone.
        found = json.loads(self.lab.ctl('verify', '--packets', check=False).stdout)
        self.assertEqual([row for row in found['rows'] if row['object'] != 'MAC'], [])
        self.assertEqual(found['notCompared'], [])
        self.assertEqual(found['compared']['packets of associations'], len(self.connections) + 1)
        # What was sealed to find that out has moved no window.
        opened = [number for number, (_, more) in self.connections.items() if more.get('mode') != 'transport']
        for number in opened:
            self.from_peer(seal(self.inbound_sa(number), udp(number)))
        self.assertEqual([index_of(p) for p in self.at_near(len(opened))], opened)
        rows = self.lab.ask('show', 'ipsec', 'connections')
        self.assertTrue(all(pair['active'] for row in rows for pair in row['pairs']), rows)


class Routers(unittest.TestCase):
    """Two routers with a wire between them, a host of the kernel behind each, and a tunnel from one to the other."""

    MODES = (('gre', ''), ('gre', ', key: 5'), ('ipsec', ''), ('gre-ipsec', ', key: 5'))

    @classmethod
    def setUpClass(cls):
        cls.labs = [Lab(f'vexl3{side}', {'host': (f'10.{net}.1.2/24', f'10.{net}.1.1')}, cls.description(net, 'gre', '', [0]))
                    for side, net in (('a', 1), ('b', 2))]
        for lab in cls.labs:
            cls.addClassCleanup(lab.end)
        a, b = (f'{lab.name}-router' for lab in cls.labs)
        subprocess.run(['ip', '-n', a, 'link', 'add', 'wire-core', 'type', 'veth', 'peer', 'name', 'wire-core', 'netns', b], check=True)
        for lab in cls.labs:
            for words in (['ethtool', '-K', 'wire-core', *'tx off rx off gso off gro off tso off'.split()], ['ip', 'link', 'set', 'wire-core', 'up']):
                subprocess.run(['ip', 'netns', 'exec', f'{lab.name}-router', *words], check=True, capture_output=True)
        for lab in cls.labs:
            lab.start()
        cls.hosts = [lab.hosts['host'] for lab in cls.labs]

    @staticmethod
    def description(net, mode, key, rekeys, outbound=None):
        other = 3 - net
        here, there = f'192.0.2.{net}', f'192.0.2.{other}'
        inbound = ', '.join(sa_text(0x1000 * other + i, there, here, 'gcm128') for i in rekeys)
        connection = '' if mode == 'gre' else f'''
ipsec:
  - name: c
    id: 5
    type: {'vti' if mode == 'ipsec' else 'gre'}
    interfaces: Tunnel1
    inbound: [{inbound}]
    outbound: {sa_text(0x1000 * net + (rekeys[0] if outbound is None else outbound), here, there, 'gcm128')}
'''
        return f'''
router: {{mac: '02:00:00:aa:00:0{net}'}}
interfaces:
  - {{name: Loopback0, addresses: {here}/32}}
  - {{name: Ethernet1, addresses: 10.{net}.1.1/24, device: wire-host}}
  - {{name: Ethernet2, addresses: 10.0.0.{net}/24, device: wire-core}}
tunnels:
  - {{name: Tunnel1, mode: {mode}, source: {here}, destination: {there}, addresses: 10.255.0.{net}/24{key}}}
routes:
  - {{prefix: {there}/32, via: 10.0.0.{other}}}
  - {{prefix: 10.{other}.1.0/24, via: Tunnel1}}
{connection}'''

    def tell(self, mode, key, rekeys=(0,), outbound=None):
        for net, lab in enumerate(self.labs, 1):
            lab.description.write_text(self.description(net, mode, key, rekeys, outbound))
            lab.ctl('reload')
        for lab in self.labs:
            until(lambda lab=lab: lab.ask('verify') == [], 'all is told')

    def test_hosts_talk_through_every_kind_of_tunnel(self):
        a, b = self.hosts
        a_mac, target = self.labs[0].name, '10.2.1.2'
        for mode, key in self.MODES:
            with self.subTest(mode=mode, key=key):
                self.tell(mode, key)
                a.until_it_reaches(target)
                self.assertEqual(*a.pings(target, '-c20', '-i0.02', '-s1200'))
                # Hops: the first router, the other one's end of the tunnel, the host.
                for ttl, who in ((1, '10.1.1.1'), (2, '10.255.0.2')):
                    self.assertIn(f'From {who}', a.run('ping', '-c1', f'-t{ttl}', '-W2', target, check=False).stdout)
                a.run('ip', 'route', 'flush', 'cache')
                too_big = a.run('ping', '-c2', '-i0.2', '-s1472', '-Mdo', '-W1', target, check=False).stdout
                mtu = int(re.search(r'mtu ?= ?(\d+)', too_big).group(1))
                self.assertEqual(*a.pings(target, '-c3', '-i0.05', f'-s{mtu - 28}', '-Mdo'))
                self.assertEqual(*a.pings(target, '-c3', '-i0.05', '-s1800'))  # in fragments
                server = b.start('timeout', '10', '/usr/bin/python3', '-c', '''
import socket
s = socket.create_server(("10.2.1.2", 7000)); c = s.accept()[0]
n = 0
while (b := c.recv(65536)): n += len(b)
c.close(); print(n)''')
                until(lambda: ':7000' in b.run('ss', '-ltn').stdout, 'the server listens')
                a.run('/usr/bin/python3', '-c', '''
import socket
s = socket.create_connection(("10.2.1.2", 7000), 2)
s.sendall(bytes(300000)); s.shutdown(1); s.recv(1)''')
                self.assertEqual(server.communicate()[0].strip(), '300000')
                for lab in self.labs:
                    until(lambda lab=lab: lab.ask('verify') == [], 'verify')

    def test_a_rekey_under_traffic_loses_nothing(self):
        a = self.hosts[0]
        for mode, key in (('ipsec', ''), ('gre-ipsec', ', key: 5')):
            self.tell(mode, key)
            a.until_it_reaches('10.2.1.2')
            a.forget()
            ping = a.start('ping', '-q', '-i0.004', f'-c{int(REKEY_SECONDS / 0.004)}', '10.2.1.2')
            rekeys = 0
            while ping.poll() is None:
                self.tell(mode, key, (rekeys, rekeys + 1), rekeys)      # both take the new one
                self.tell(mode, key, (rekeys, rekeys + 1), rekeys + 1)  # both send by it
                a.run('ping', '-c1', '-W5', '10.2.1.2')                 # what was sent by the old one has arrived
                self.tell(mode, key, (rekeys + 1,), rekeys + 1)         # which goes
                rekeys += 1
            sent = int(ping.communicate()[0].split(' packets')[0].split()[-1])
            self.assertGreater(rekeys, 2)
            self.assertEqual(a.answers('10.2.1.2'), sent + rekeys)
            print(f'\n   {rekeys} rekeys of {mode} under {sent} pings', flush=True)
            # Taken down and up, packets leave protected, and the show says so.
            for lab in self.labs:
                rows = lab.ask('show', 'ipsec', 'connections')
                self.assertEqual([pair['active'] for row in rows for pair in row['pairs']], [True])


if __name__ == '__main__':
    why = missing()
    if why:
        print(f'packets: nothing was tried: {why}')
        sys.exit(77)
    unittest.main(verbosity=2)
