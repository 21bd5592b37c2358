"""Sources that are lost at the worst moment: a flood that the kernel's buffer does not hold, a routing suite that goes in
the middle of its table, a daemon that is killed, both, and a data plane that stands still.

Each time nothing is stale after the sweep, and nothing that was told again was taken away: the witness are the removals
that the data plane was asked for.

    abuse.py [--routes 20000]
"""

import argparse
import pathlib
import socket
import sys
import unittest

import lab

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / 'bench'))
import fpm  # noqa: E402

ROUTES = 20000
CONFIG = 'kernel-offload: false\n'

TABLE = 29000
BGP = '''
router bgp 65001
 no bgp ebgp-requires-policy
 timers bgp 5 15
 neighbor 10.0.1.2 remote-as 65003
 neighbor 10.0.1.2 timers connect 1
'''
ANNOUNCER = '''
router id 10.0.1.2;
protocol device {{}}
protocol static {{ ipv4; {routes} }}
protocol bgp {{
  local 10.0.1.2 as 65003; neighbor 10.0.1.1 as 65001;
  hold time 15; connect retry time 1; connect delay time 1; error wait time 1, 2;
  ipv4 {{ import none; export all; }}; }}
'''


class Client:
    """A routing suite's end of FPM, in the router's namespace."""

    def __init__(self, router):
        here = open('/proc/self/ns/net')
        with open(f'/run/netns/{router.name}') as there:
            lab.enter(there)
            self.wire = socket.socket()
            lab.enter(here)
        here.close()
        lab.until(lambda: self.wire.connect_ex(('127.0.0.1', 2620)) == 0, 'it takes us')
        self.index = router.index()

    def tell(self, first, last):
        self.wire.sendall(fpm.stream(last, self.index, first))

    def close(self):
        self.wire.close()


class Abuse(unittest.TestCase):
    def setUp(self):
        self.lab = lab.Lab()
        self.router = self.lab.__enter__().routers[1]
        self.addCleanup(self.lab.__exit__, None, None, None)
        self.begin()

    def begin(self, *options):
        self.router.begin('--source-quiet', '1', '--dataplane-timeout', '0', *options, more=CONFIG)
        lab.until(lambda: self.router.fact('status', 'phase') == 'running', 'it runs')

    def counted(self, source, routes, stale=0):
        def there():
            row = self.router.source(source)
            return (row['routes'], row['stale']) == (routes, stale)
        try:
            lab.until(there, f'{routes} routes of {source}, {stale} of them stale', 120)
        except AssertionError as error:
            raise AssertionError(f'{error}, but {self.router.source(source)}') from None

    def verified(self):
        lab.until(lambda: self.router.ctl('verify').get('differences') == 0, 'the data plane has what is meant')

    def test_a_fast_changer_and_buffers_of_4_kb(self):
        self.router.end('vexl3d', kill=True)
        self.begin('--receive-buffer', '4096')
        client, file = Client(self.router), self.router.directory / 'flood'
        for verb, every in (('add', 1), ('del', 1), ('add', 1), ('del', 3)):
            file.write_text(''.join(f'route {verb} {fpm.dotted(n)}/24 via 10.0.1.2\n' for n in range(0, ROUTES, every)))
            changer = self.router.popen('ip', '-batch', file)
            client.wire.sendall(fpm.withdrawals(2 * ROUTES, ROUTES) if verb == 'del' else
                                fpm.stream(2 * ROUTES, client.index, ROUTES))
            self.assertEqual(changer.communicate()[0], '')
        client.tell(ROUTES, 2 * ROUTES)
        self.counted('kernel', ROUTES - len(range(0, ROUTES, 3)))
        self.counted('fpm', ROUTES)
        self.assertGreater(self.router.source('kernel')['losses'], 0)
        kernel = self.router.run('ip', 'route', 'show', 'via', '10.0.1.2').stdout.splitlines()
        self.assertEqual(set(self.router.routes('kernel')), {route.split()[0] for route in kernel})
        self.verified()
        client.close()

    def test_a_suite_that_goes_in_the_middle_of_its_table_and_comes_back(self):
        client = Client(self.router)
        client.tell(0, ROUTES)
        self.counted('fpm', ROUTES)
        client.close()
        self.counted('fpm', ROUTES, ROUTES)
        # Half of them, lost again, then three quarters: the last quarter is what was not told again.
        client = Client(self.router)
        client.tell(0, ROUTES // 2)
        client.close()
        self.counted('fpm', ROUTES, ROUTES)
        client = Client(self.router)
        client.tell(0, ROUTES * 3 // 4)
        self.counted('fpm', ROUTES * 3 // 4)
        self.verified()
        client.close()

    def test_the_daemon_is_killed_and_both_are(self):
        client = Client(self.router)
        client.tell(0, ROUTES)
        for last in (ROUTES, ROUTES // 2):
            self.router.end('vexl3d', kill=True)
            client.close()
            self.begin()
            client = Client(self.router)
            client.tell(0, last)
            self.counted('fpm', last)
        self.verified()
        client.close()

    def announce(self, routes):
        host = self.lab.hosts[1]
        if 'bird' in host.processes:
            host.end('bird', kill=True)
        host.bird(self.router.directory, ANNOUNCER.format(
            routes=''.join(f'route {fpm.dotted(n)}/24 blackhole;' for n in range(routes))))

    def suite(self):
        self.router.zebra()
        self.router.frr('bgpd', BGP)

    def kill(self, *which):
        for each in which:
            self.router.end(each, kill=True)

    def has(self, routes):
        self.counted('fpm', routes)
        self.assertEqual(set(self.router.routes('fpm')), {f'{fpm.dotted(n)}/24' for n in range(routes)})

    def test_zebra_is_killed_in_the_middle_of_its_table_then_the_daemon_then_both(self):
        self.announce(TABLE)
        self.suite()
        lab.until(lambda: self.router.source('fpm')['routes'] > TABLE // 10, 'its table comes', 120)
        self.kill('zebra', 'bgpd')
        lab.until(lambda: not self.router.source('fpm')['connected'], 'it is lost')
        self.router.ctl('source', 'fpm', 'hold')
        former = self.router.source('fpm')['routes']
        # What zebra finds in the kernel it takes for its own: its routes go with their next hops.
        self.router.run('ip', 'nexthop', 'flush', check=False)
        self.announce(TABLE * 3 // 4)
        self.suite()

        def told():
            row = self.router.source('fpm')
            self.assertGreaterEqual(row['routes'], former)
            return row['routes'] - row['stale'] == TABLE * 3 // 4
        lab.until(told, 'it told three quarters, and nothing went', 120)
        self.router.ctl('source', 'fpm', 'sweep')
        self.has(TABLE * 3 // 4)
        for which in (('vexl3d',), ('vexl3d', 'zebra', 'bgpd')):
            self.kill(*which)
            self.begin()
            if 'zebra' in which:
                self.suite()
            self.has(TABLE * 3 // 4)
        self.verified()

    def test_a_data_plane_that_stands_still_stops_the_reading(self):
        client = Client(self.router)
        plane = self.router.fact('status', 'dataPlanePid')
        lab.run('kill', '-STOP', plane)
        client.wire.settimeout(0.2)
        stream = fpm.stream(50 * ROUTES, client.index)

        def paused():
            nonlocal stream
            try:
                stream = stream[client.wire.send(stream[:1 << 22]):]
            except TimeoutError:
                pass
            return self.router.source('fpm')['pausedSeconds'] > 0
        lab.until(paused, 'it does not read any more')
        self.assertGreater(len(stream), 0)
        lab.run('kill', '-CONT', plane)
        lab.until(lambda: self.router.source('fpm')['pausedSeconds'] == 0, 'it reads on')
        client.close()


if __name__ == '__main__':
    options = argparse.ArgumentParser()
    options.add_argument('--routes', type=int, default=ROUTES)
    known, rest = options.parse_known_args()
    ROUTES = known.routes
    sys.argv[1:] = rest
    lab.main()
