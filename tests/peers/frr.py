"""A router with FRR: routes come by FPM."""

import unittest

import lab

BGP = '''
router bgp 6500{n}
 no bgp ebgp-requires-policy
 timers bgp 1 3
 neighbor 10.0.12.{o} remote-as 6500{o}
 neighbor 10.0.12.{o} timers connect 1
 address-family ipv4 unicast
  network 10.0.{n}.0/24
'''
STATIC = 'ip route 192.0.2.0/24 10.0.1.9\nip route 198.51.100.0/24 blackhole\n'


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

            # Static routes beside them; zebra is killed and comes back without one of them.
            router.frr('staticd', STATIC)
            lab.until(lambda: len(router.routes('fpm')) == 3, 'the static routes')
            # zebra first: while it lives it takes back the routes of a daemon that ends.
            for daemon in ('zebra', 'staticd', 'bgpd'):
                router.end(daemon, kill=True)
            lab.until(lambda: router.source('fpm')['stale'] == 3, 'they are stale')
            net.reaches(seconds=5)
            router.zebra()
            router.frr('bgpd', BGP.format(n=1, o=2))
            router.frr('staticd', STATIC.splitlines()[0] + '\n')
            lab.until(lambda: router.source('fpm')['stale'] == 0 and
                      sorted(router.routes('fpm')) == ['10.0.2.0/24', '192.0.2.0/24'], 'the rest is swept')
            net.reaches(seconds=5)


if __name__ == '__main__':
    lab.main()
