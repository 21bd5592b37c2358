#!/usr/bin/python3
"""What changes while packets flow: each packet is treated by the state before or the one after.

  changes.py [what unittest takes]     ends with 77 where no packets can be tried, and says why
"""

import collections
import contextlib
import logging
import os
import sys
import threading
import unittest

logging.getLogger('scapy').setLevel(logging.ERROR)
sys.path.insert(0, os.path.dirname(__file__))

from scapy.layers.inet import IP, UDP  # noqa: E402
from scapy.packet import Raw  # noqa: E402

from lab import ROUTER_MAC, Lab, missing, until  # noqa: E402

LEFT, RIGHT, THIRD = '10.0.1.2', '10.0.2.2', '10.0.3.2'
BOTH_DENY, BOTH_PERMIT, ONLY_A, ONLY_B = 4001, 4002, 4003, 4004  # source ports
SWAPS = 15


def rules(permitted):
    return [f'{10 * n} {"permit" if port in permitted else "deny"} udp any eq {port} any'
            for n, port in enumerate((BOTH_DENY, BOTH_PERMIT, ONLY_A, ONLY_B), 1)] + ['100 permit ip any any']


A, B = rules({BOTH_PERMIT, ONLY_A}), rules({BOTH_PERMIT, ONLY_B})
LEFT_INTERFACE = 'address 10.0.1.1/24 device wire-left'.split()


DESCRIPTION = f'''
router: {{mac: '{ROUTER_MAC}'}}
interfaces:
  - {{name: Ethernet1, addresses: 10.0.1.1/24, device: wire-left}}
  - {{name: Ethernet2, addresses: 10.0.2.1/24, device: wire-right}}
  - {{name: Ethernet3, addresses: 10.0.3.1/24, device: wire-third}}
access-lists:
  - {{name: A, rules: {A}}}
  - {{name: B, rules: {B}}}
policy-maps:
  - {{name: low, classes: [{{class: class-default, set: {{dscp: 10}}}}]}}
  - {{name: high, classes: [{{class: class-default, set: {{dscp: 20}}}}]}}
routes:
  - {{prefix: 50.0.0.0/8, via: [10.0.2.2, 10.0.3.2]}}
'''


def setUpModule():
    lab = Lab('vexl3chg', {'left': (LEFT + '/24', '10.0.1.1'), 'right': (RIGHT + '/24', '10.0.2.1'),
                           'third': (THIRD + '/24', '10.0.3.1')}, DESCRIPTION)
    unittest.addModuleCleanup(lab.end)
    OneWorker.lab = lab
    OneWorker.left, OneWorker.right, OneWorker.third = (lab.hosts[name] for name in ('left', 'right', 'third'))


class OneWorker(unittest.TestCase):
    workers = '1'

    @classmethod
    def setUpClass(cls):
        cls.lab.start(['--workers', cls.workers])
        cls.addClassCleanup(cls.lab.stop)
        for host in (cls.right, cls.third):
            host.until_it_reaches(LEFT)

    def setUp(self):
        for host in self.lab.hosts.values():
            host.forget()
        self.overflowed = self.overflows()

    def overflows(self):
        """Packets from the left that its wire's ring had no room for: the machine did something else."""
        return next(port['dropsIn'] for port in self.lab.ask('show', 'ports') if port['port'] == 'Ethernet1')

    def all_arrived(self, sent, got):
        self.assertLessEqual(got, sent)
        until(lambda: got + self.overflows() - self.overflowed >= sent, f'{got} of {sent} packets are all that came in')

    @contextlib.contextmanager
    def traffic(self, dst=RIGHT, ports=(BOTH_DENY, BOTH_PERMIT, ONLY_A, ONLY_B)):
        """Packets all the while, from each port in turn; gives how many of each were sent, once it is over."""
        frames = {port: bytes(self.left.to_router(IP(src=LEFT, dst=dst) / UDP(sport=port, dport=5000, chksum=0) /
                                                  Raw(bytes(18)))) for port in ports}
        sent = collections.Counter()
        over = threading.Event()

        def send():
            while not over.is_set():
                for port, frame in frames.items():
                    self.left.wire.send(frame)
                    sent[port] += 1
                over.wait(0.002)

        thread = threading.Thread(target=send)
        thread.start()
        try:
            until(lambda: min((sent[port] for port in ports), default=0) > 0, 'traffic')
            yield sent
        finally:
            over.set()
            thread.join()

    def arrived(self, *hosts):
        packets = [p for host in hosts for p in host.seen_ip(keep=lambda p: p.proto == 17 and p['UDP'].dport == 5000)]
        return packets, collections.Counter(p['UDP'].sport for p in packets)

    def check_lists(self, swap):
        self.lab.acknowledged()
        with self.traffic() as sent:
            for n in range(SWAPS):
                swap(n)
        got = self.arrived(self.right)[1]
        self.assertEqual(got[BOTH_DENY], 0)
        self.all_arrived(sent[BOTH_PERMIT], got[BOTH_PERMIT])
        for port in (ONLY_A, ONLY_B):
            self.assertTrue(0 < got[port] < sent[port], f'{got[port]} of {sent[port]} from {port}')

    def test_an_interfaces_list_is_exchanged_for_another(self):
        self.lab.ctl('interface', 'replace', 'Ethernet1', *LEFT_INTERFACE, 'access-group', 'A', 'in')
        self.addCleanup(self.lab.ctl, 'interface', 'replace', 'Ethernet1', *LEFT_INTERFACE)
        self.check_lists(lambda n: self.lab.ctl('interface', 'replace', 'Ethernet1', *LEFT_INTERFACE, 'access-group',
                                                'AB'[(n + 1) % 2], 'in'))

    def test_a_list_gets_other_rules(self):
        self.lab.ctl('access-list', 'replace', 'changing', *A)
        self.lab.ctl('interface', 'replace', 'Ethernet1', *LEFT_INTERFACE, 'access-group', 'changing', 'in')
        self.addCleanup(self.lab.ctl, 'interface', 'replace', 'Ethernet1', *LEFT_INTERFACE)
        self.check_lists(lambda n: self.lab.ctl('access-list', 'replace', 'changing', *(A, B)[(n + 1) % 2]))

    def test_an_interfaces_policy_is_exchanged_for_another(self):
        def policy(name):
            self.lab.ctl('interface', 'replace', 'Ethernet1', *LEFT_INTERFACE, 'service-policy', 'input', name)

        policy('low')
        self.addCleanup(self.lab.ctl, 'interface', 'replace', 'Ethernet1', *LEFT_INTERFACE)
        self.lab.acknowledged()
        with self.traffic(ports=[BOTH_PERMIT]) as sent:
            for n in range(SWAPS):
                policy(('high', 'low')[n % 2])
        packets, got = self.arrived(self.right)
        self.all_arrived(sent[BOTH_PERMIT], got[BOTH_PERMIT])
        self.assertEqual({p.tos >> 2 for p in packets}, {10, 20})

    def test_an_mtu_changes(self):
        with self.traffic(ports=[BOTH_PERMIT]) as sent:
            for n in range(SWAPS):
                self.lab.ctl('interface', 'replace', 'Ethernet2', 'address', '10.0.2.1/24', 'device', 'wire-right',
                             'mtu', ('1300', '1500')[n % 2])
        self.all_arrived(sent[BOTH_PERMIT], self.arrived(self.right)[1][BOTH_PERMIT])

    def test_flows_leave_a_next_hop_whose_link_is_cut_and_come_back_with_it(self):
        flows = range(5000, 5064)
        with self.traffic('50.1.1.1', flows):
            pass
        for host in (self.right, self.third):
            self.assertTrue(self.arrived(host)[1], 'each next hop has flows')

        def prefixes():
            return {route['prefix'] for route in self.lab.ask('show', 'routes')}

        whole = prefixes()
        self.third.run('ip', 'link', 'set', 'eth0', 'down')
        # Its kernel has lost its route with its link.
        self.addCleanup(self.third.run, 'ip', 'route', 'replace', 'default', 'via', '10.0.3.1')
        self.addCleanup(self.third.run, 'ip', 'link', 'set', 'eth0', 'up')

        def alive(*hosts):
            for host in hosts:
                host.forget()
            with self.traffic('50.1.1.1', flows) as sent:
                pass
            got = [self.arrived(host)[1] for host in hosts]
            return all(got) and sum(got, collections.Counter()) == sent

        def state():
            return self.lab.ask('show', 'interfaces', 'Ethernet3')[0]['state']

        until(lambda: state() == 'down', 'the interface goes with its link')
        until(lambda: alive(self.right), 'every flow takes the way that is left')
        self.assertEqual(prefixes(), {prefix for prefix in whole if not prefix.startswith('10.0.3.')})
        told = self.lab.ctl('why', '50.1.1.1').stdout
        self.assertIn('the port of Ethernet3 is down: device wire-third: the link is down', told)
        self.assertIn('whose interface Ethernet3 is down', self.lab.ctl('why', THIRD).stdout)
        self.third.run('ip', 'link', 'set', 'eth0', 'up')
        with contextlib.suppress(OSError):  # that the network was down
            self.third.forget()
        until(lambda: state() == 'up', 'the interface comes with its link')
        until(lambda: alive(self.right, self.third), 'each next hop has flows again')
        self.assertEqual(prefixes(), whole)


class TwoWorkers(OneWorker):
    workers = '2'


if __name__ == '__main__':
    if why := missing():
        print(f'skipped: {why}')
        sys.exit(77)
    unittest.main(verbosity=2)
