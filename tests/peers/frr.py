"""A router with FRR: routes come by FPM."""

import json
import re
import struct
import unittest

import lab

# A client that speaks FPM as FRR 8.5 does: a blackhole, the answers of a second, then bytes that are none.
CLIENT = '''
import select, socket, struct, sys
wire = socket.create_connection(("127.0.0.1", 2620))
def attr(kind, value): return struct.pack("HH", 4 + len(value), kind) + value
route = (struct.pack("BBBBBBBBI", 2, 24, 0, 0, 254, 186, 0, 6, 0) + attr(1, bytes([192, 0, 2, 0])) +
         attr(6, struct.pack("I", 20)))
message = struct.pack("IHHII", 16 + len(route), 24, 0x501, 0, 0) + route
wire.sendall(struct.pack(">BBH", 1, 1, 4 + len(message)) + message)
answers = b""
while select.select([wire], [], [], 1)[0]: answers += wire.recv(65536)
wire.sendall(b"none")
print(answers.hex(), wire.recv(1).hex())
'''

BGP = '''
router bgp 6500{n}
 no bgp ebgp-requires-policy
 timers bgp 1 3
 neighbor 10.0.12.{o} remote-as 6500{o}
 neighbor 10.0.12.{o} timers connect 1
 address-family ipv4 unicast
  network 10.0.{n}.0/24
'''
OSPF = '''
router ospf
 ospf router-id 10.0.{n}.1
interface Ethernet1
 ip ospf area 0
interface Ethernet2
 ip ospf area 0
 ip ospf hello-interval 1
 ip ospf dead-interval 3
 ip ospf network point-to-point
'''
STATIC = 'ip route 192.0.2.0/24 10.0.1.9\nip route 198.51.100.0/24 blackhole\n'
RED = 'vrf {vrf}\n ip route 192.0.2.0/24 10.0.1.2\nexit-vrf\nip route 192.0.2.0/24 10.0.12.2\n'


SUPPRESS = 'router bgp 65001\n bgp suppress-fib-pending\n neighbor 10.0.1.2 remote-as 65003\n'
LISTENER = '''
router id 10.0.1.2;
protocol device {}
protocol bgp {
  local 10.0.1.2 as 65003; neighbor 10.0.1.1 as 65001; connect retry time 1;
  ipv4 { import all; export none; }; }
'''


class Frr(unittest.TestCase):
    def test_bgp_comes_up_over_the_ports_and_hosts_reach_each_other(self):
        with lab.Lab() as net:
            for n, router in net.routers.items():
                router.begin('--source-quiet', '5')
                router.zebra()
                router.frr('bgpd', BGP.format(n=n, o=3 - n))
            router = net.routers[1]
            net.reaches()
            lab.until(lambda: '10.0.2.0/24' in router.routes('fpm'), 'the route came by FPM')
            route = router.routes('fpm')['10.0.2.0/24']
            self.assertEqual((route['protocol'], route['distance'], route['via']),
                             ('bgp', 20, [{'address': '10.0.12.2', 'interface': 'Ethernet2'}]))
            lab.until(lambda: router.routes('fpm')['10.0.2.0/24']['state'] == 'programmed', 'it is programmed')

            # OSPF knows the network, too; BGP's route holds until its daemon goes.
            for n, each in net.routers.items():
                each.frr('ospfd', OSPF.format(n=n))
            lab.until(lambda: 'Full' in router.vtysh('show ip ospf neighbor'), 'OSPF comes up')
            self.assertEqual(router.routes('fpm')['10.0.2.0/24']['protocol'], 'bgp')
            router.end('bgpd')
            lab.until(lambda: router.routes('fpm').get('10.0.2.0/24', {}).get('protocol') == 'ospf', "OSPF's takes over")
            net.reaches()
            for each in net.routers.values():
                each.end('ospfd')
            router.frr('bgpd', BGP.format(n=1, o=2))
            lab.until(lambda: router.routes('fpm').get('10.0.2.0/24', {}).get('protocol') == 'bgp', 'BGP is back')

            # Static routes beside them; zebra is killed and comes back without one of them.
            router.frr('staticd', STATIC)
            lab.until(lambda: len(router.routes('fpm')) == 3, 'the static routes')
            # zebra first: while it lives it takes back the routes of a daemon that ends.
            for daemon in ('zebra', 'staticd', 'bgpd'):
                router.end(daemon, kill=True)
            lab.until(lambda: router.source('fpm')['stale'] == 3, 'they are stale')
            self.assertEqual({row['state'] for row in router.routes('fpm').values()}, {'programmed'})
            # What zebra finds in the kernel it takes for its own, at times for good.
            router.run('ip', 'route', 'del', '198.51.100.0/24')
            router.zebra()
            router.frr('bgpd', BGP.format(n=1, o=2))
            router.frr('staticd', STATIC.splitlines()[0] + '\n')
            lab.until(lambda: router.source('fpm')['stale'] == 0 and
                      sorted(router.routes('fpm')) == ['10.0.2.0/24', '192.0.2.0/24'], 'the rest is swept')
            net.reaches()

    def test_a_restart_beside_a_data_plane_of_its_own_is_noticed_by_nobody(self):
        with lab.Lab() as net:
            one, other = net.routers.values()
            plane = f'unix:{one.directory}/dataplane.sock'
            one.start('vexdp', lab.BIN / 'vexdp', '--listen', plane, log=one.directory / 'vexdp.log')
            one.begin('--dataplane', plane)
            other.begin()
            for n, router in net.routers.items():
                router.zebra()
                router.frr('bgpd', BGP.format(n=n, o=3 - n))
            lab.until(lambda: one.routes('fpm').get('10.0.2.0/24', {}).get('state') == 'programmed', 'it is programmed')
            net.reaches()
            up = json.loads(one.vtysh('show bgp neighbors 10.0.12.2 json'))['10.0.12.2']['connectionsEstablished']
            ping = net.hosts[1].popen('ping', '-q', '-i0.01', '-c1500', '10.0.2.2')
            one.end('vexl3d', kill=True)
            one.begin('--dataplane', plane)
            lab.until(lambda: one.fact('status', 'forwarding') == 'in step', 'it has everything', 90)
            self.assertEqual(one.routes('fpm')['10.0.2.0/24']['state'], 'programmed')
            self.assertEqual(one.ctl('verify')['differences'], 0)
            sent, got = re.search(r'(\d+) packets transmitted, (\d+) received', ping.communicate()[0]).groups()
            self.assertEqual(got, sent)
            said = json.loads(one.vtysh('show bgp neighbors 10.0.12.2 json'))['10.0.12.2']
            self.assertEqual((said['bgpState'], said['connectionsEstablished']), ('Established', up))

    def test_an_announcement_is_held_back_until_the_route_is_programmed(self):
        with lab.Lab() as net:
            router, listener = net.routers[1], net.hosts[1]
            # Without it the kernel keeps no answer on a route of a single next-hop object.
            for each in net.routers.values():
                each.run('sysctl', '-qw', 'net.ipv4.nexthop_compat_mode=0')
            router.begin(more='kernel-offload: false\n')
            net.routers[2].begin()
            router.zebra('--asic-offload=notify_on_offload')
            net.routers[2].zebra()
            for n, each in net.routers.items():
                each.frr('bgpd', BGP.format(n=n, o=3 - n) + (SUPPRESS if n == 1 else ''))
            listener.bird(router.directory, LISTENER)

            def heard():
                return '10.0.2.0/24' in listener.run('birdc', '-s', router.directory / 'bird.ctl', 'show', 'route',
                                                   check=False).stdout

            def queued():
                shown = json.loads(router.vtysh('show ip route 10.0.2.0/24 json') or '{}').get('10.0.2.0/24', [{}])[0]
                return shown.get('queued', False), shown.get('offloaded', False)
            lab.until(lambda: router.routes('fpm').get('10.0.2.0/24', {}).get('state') == 'programmed', 'by FPM')
            lab.until(lambda: 'Established' in router.vtysh('show bgp neighbors 10.0.1.2'), 'the listener is there')
            self.assertEqual((queued(), heard()), ((True, False), False))
            router.describe()
            router.ctl('reload')
            lab.until(heard, 'it is announced')
            lab.until(lambda: queued() == (False, True), 'zebra has heard of it')
            # This zebra writes its route anew when it hears an answer, the other one lets it be.
            lab.until(lambda: 'rt_offload' in net.routers[2].run('ip', 'route', 'show', '10.0.1.0/24').stdout,
                      'the kernel shows it')
            # No answer to an answer: what zebra tells of it is no change.
            answered = router.source('kernel')['answered']
            router.run('ip', 'route', 'add', '198.51.100.0/24', 'via', '10.0.1.2')
            lab.until(lambda: 'offload' in router.run('ip', 'route', 'show', '198.51.100.0/24').stdout, 'it is answered')
            self.assertEqual(router.source('kernel')['answered'], answered + 1)

    def test_vrfs_with_namespaces_of_their_own_have_their_routes_by_the_kernel(self):
        with lab.Lab() as net:
            router, red = net.routers[1], lab.Space('red')
            self.addCleanup(red.close)
            router.begin()
            description = router.describe(f'vrfs: [{{name: red, netns: {red.name}}}]\n')
            description.write_text(description.read_text().replace('device: wire1', 'vrf: red, device: wire1'))
            router.ctl('reload')
            router.frr('zebra', '', '-n', '-P', '0')
            lab.until(lambda: (router.directory / 'zserv').exists(), 'zebra listens')
            router.frr('staticd', RED.format(vrf=red.name))

            def of_kernel():
                return {(row['vrf'], row['prefix'], row['via'][0]['interface'])
                        for row in router.ctl('show', 'routes', 'vrf', 'all')['rows'] if row['source'] == 'kernel'}
            lab.until(lambda: of_kernel() == {('red', '192.0.2.0/24', 'Ethernet1'), ('default', '192.0.2.0/24', 'Ethernet2')},
                      lambda: f'each in its VRF, not {of_kernel()}')

    def test_a_route_is_answered_once_and_what_is_malformed_ends_the_connection(self):
        with lab.Lab() as net:
            router = net.routers[1]
            router.begin()
            lab.until(lambda: router.fact('status', 'phase') == 'running', 'the data plane is there')
            answer = bytes.fromhex(router.run('python3', '-c', CLIENT).stdout.split()[0])
            length, kind, flags = struct.unpack('=IHH', answer[4:12])
            self.assertEqual((answer[:4], kind, flags), (struct.pack('>BBH', 1, 1, 4 + length), 24, 1))
            self.assertEqual((len(answer), struct.unpack('I', answer[28:32])[0]), (4 + length, 0x4000))  # RTM_F_OFFLOAD
            source = router.source('fpm')
            self.assertEqual((source['connected'], source['stale'], source['sweep'], source['lastLoss']),
                             (False, 1, 'lost', 'a frame of version 110, not 1'))
            self.assertEqual(router.routes('fpm')['192.0.2.0/24']['state'], 'programmed')


if __name__ == '__main__':
    lab.main()
