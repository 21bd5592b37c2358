"""A router with BIRD, and one whose administrator uses `ip route`: routes come from the kernel."""

import json
import unittest

import lab

CONFIG = '''
router id 10.0.{n}.1;
protocol device {{ scan time 1; }}
protocol direct {{ ipv4; interface "Ethernet1"; }}
protocol kernel {{ ipv4 {{ import none; export where source = RTS_BGP; }}; }}
protocol bgp {{
  local 10.0.12.{n} as 6500{n};
  neighbor 10.0.12.{o} as 6500{o};
  connect retry time 1; connect delay time 1; error wait time 1, 2;
  ipv4 {{ import all; export all; }};
}}
'''

# What is done to the kernel, and which of its routes the router has after it.
VERBS = [
    ('route add 192.0.2.0/24 via 10.0.12.2', {'192.0.2.0/24': ['10.0.12.2']}),
    ('route append 192.0.2.0/24 via 10.0.1.2', {'192.0.2.0/24': ['10.0.12.2']}),
    ('route del 192.0.2.0/24 via 10.0.12.2', {'192.0.2.0/24': ['10.0.1.2']}),
    ('route add 192.0.2.0/24 via 10.0.12.2 metric 5', {'192.0.2.0/24': ['10.0.1.2']}),
    ('route del 192.0.2.0/24 via 10.0.1.2', {'192.0.2.0/24': ['10.0.12.2']}),
    ('route replace 192.0.2.0/24 metric 5 nexthop via 10.0.1.2 nexthop via 10.0.12.2 weight 3',
     {'192.0.2.0/24': ['10.0.1.2', '10.0.12.2']}),
    ('route del 192.0.2.0/24', {}),
    ('route add blackhole 198.51.100.0/24', {'198.51.100.0/24': []}),
    ('route replace unreachable 198.51.100.0/24', {'198.51.100.0/24': []}),
    ('route del 198.51.100.0/24', {}),
    ('nexthop add id 7 via 10.0.12.2 dev Ethernet2', {}),
    ('nexthop add id 8 via 10.0.1.2 dev Ethernet1', {}),
    ('nexthop add id 9 group 7/8', {}),
    ('route add 192.0.2.0/24 nhid 9', {'192.0.2.0/24': ['10.0.1.2', '10.0.12.2']}),
    ('nexthop replace id 9 group 8', {'192.0.2.0/24': ['10.0.1.2']}),
    ('nexthop del id 9', {}),
    ('route add 192.0.2.0/24 via 203.0.113.1 dev Ethernet2 onlink', {'192.0.2.0/24': ['203.0.113.1']}),
    ('route del 192.0.2.0/24', {}),
    ('route add 192.0.2.0/24 dev lo', {}),
]

# Routes of each kind by two links, and what is left of them after what the kernel does not say, or says of one message.
KINDS = '''route add 192.0.2.0/24 via 10.0.12.2
nexthop add id 7 via 10.0.12.2 dev Ethernet2
nexthop add id 8 via 10.0.1.2 dev Ethernet1
nexthop add id 9 group 7/8
route add 192.0.3.0/24 nhid 7
route add 192.0.4.0/24 nhid 9
route add 192.0.5.0/24 nexthop via 10.0.1.2 nexthop via 10.0.12.2
route add 192.0.6.0/24 via 10.0.1.2 src 10.0.12.1
route add blackhole 192.0.7.0/24'''
NONE = '\n'.join([f'route del 192.0.{n}.0/24' for n in range(2, 8)] + [f'nexthop del id {n}' for n in (7, 8, 9)])
ONE, TWO = '10.0.1.2', '10.0.12.2'
UNSAID = [
    ('ip link set Ethernet2 down', 1, {4: [ONE], 5: [ONE], 6: [ONE], 7: []}),
    ('ip link set wire2 down', 1, {2: [TWO], 4: [ONE], 5: [ONE], 6: [ONE], 7: []}),
    # It is put right at once, which brings the way of 5 back.
    ('ip addr del 10.0.12.1/24 dev Ethernet2', 1, {3: [TWO], 4: [ONE, TWO], 5: [ONE, TWO], 7: []}),
    ('ip nexthop del id 7', 1, {2: [TWO], 4: [ONE], 5: [ONE, TWO], 6: [ONE], 7: []}),
    *[('ip nexthop replace id 7 via 10.0.12.3 dev Ethernet2', compatible,
       {2: [TWO], 3: ['10.0.12.3'], 4: [ONE, '10.0.12.3'], 5: [ONE, TWO], 6: [ONE], 7: []}) for compatible in (0, 1)],
]


class Bird(unittest.TestCase):
    def test_bgp_comes_up_over_the_ports_and_what_the_kernel_drops_goes(self):
        with lab.Lab() as net:
            for n, router in net.routers.items():
                router.begin('--fpm', 'off')
                router.bird(router.directory, CONFIG.format(n=n, o=3 - n))
            router = net.routers[1]
            net.reaches()
            lab.until(lambda: '10.0.2.0/24' in router.routes('kernel'), "BIRD's route is the router's")
            route = router.routes('kernel')['10.0.2.0/24']
            self.assertEqual((route['protocol'], route['via']),
                             ('bird', [{'address': '10.0.12.2', 'interface': 'Ethernet2'}]))
            # The kernel says nothing of it: its routes over the link go with the link.
            router.end('bird', kill=True)
            router.run('ip', 'link', 'set', 'Ethernet2', 'down')
            lab.until(lambda: router.routes('kernel') == {}, 'what the kernel dropped is gone')

    def test_what_the_kernel_takes_away_unsaid_goes(self):
        with lab.Lab() as net:
            router = net.routers[1]
            router.begin('--fpm', 'off')

            def of_kernel():
                return {int(prefix.split('.')[2]): sorted(via['address'] for via in row['via'] if 'kind' not in via)
                        for prefix, row in router.routes('kernel').items()}

            def told():
                router.run('ip', '-force', '-batch', router.directory / 'none', check=False)
                return router.run('ip', '-batch', router.directory / 'kinds', check=False).returncode == 0
            (router.directory / 'kinds').write_text(KINDS)
            (router.directory / 'none').write_text(NONE)
            for what, compatible, left in UNSAID:
                router.run('sysctl', '-qw', f'net.ipv4.nexthop_compat_mode={compatible}')
                lab.until(told, f'before {what}: the kernel takes them', 10)
                lab.until(lambda: len(of_kernel()) == 6, lambda: f'before {what}: {of_kernel()}')
                (net.routers[2] if 'wire2' in what else router).run(*what.split())
                lab.until(lambda: of_kernel() == left, lambda: f'{what}: {left}, not {of_kernel()}')
                net.routers[2].run('ip', 'link', 'set', 'wire2', 'up')
                router.run('ip', 'link', 'set', 'Ethernet2', 'up')

    def test_each_verb_of_ip_route_is_followed(self):
        with lab.Lab() as net:
            router = net.routers[1]
            router.begin('--fpm', 'off')

            def of_kernel():
                return {prefix: sorted(via['address'] for via in row['via'] if 'kind' not in via)
                        for prefix, row in router.routes('kernel').items()}
            for verb, routes in VERBS:
                router.run('ip', *verb.split())
                lab.until(lambda: of_kernel() == routes, f'{verb}: {json.dumps(routes)}, not {of_kernel()}', 10)
            refusals = {row['reason']: row['count'] for row in router.source('kernel')['refusals']}
            self.assertEqual(refusals.get('another device'), 1)
            self.assertEqual(router.ctl('verify')['differences'], 0)
            self.assertIn({'object': "kernel's route 192.0.2.0/24 metric 0", 'reason': 'another device'},
                          router.ctl('show', 'pending')['rows'])


if __name__ == '__main__':
    lab.main()
