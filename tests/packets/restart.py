#!/usr/bin/python3
"""Restarts that nobody notices: vexl3d goes and comes beside a vexdp that lives on, under a stream of packets.

  restart.py [what unittest takes]     ends with 77 where no packets can be tried, and says why
"""

import contextlib
import os
import re
import signal
import subprocess
import sys
import threading
import unittest

sys.path.insert(0, os.path.dirname(__file__))

from scapy.layers.inet import IP, UDP  # noqa: E402
from scapy.packet import Raw  # noqa: E402

from lab import BIN, ROUTER_MAC, Lab, missing, until  # noqa: E402
from tunnels import sa_text  # noqa: E402

LEFT, RIGHT, THIRD = '10.0.1.2', '10.0.2.2', '10.0.3.2'
FAR, OLD, SEALED = '198.51.100.9', '203.0.113.9', '192.0.2.9'
MARK = (1 << 32) - 1  # no packet's index
BY_TUNNEL = f'  - {{prefix: {SEALED}/32, via: Tunnel1}}\n'
DESCRIPTION = f'''
router: {{mac: '{ROUTER_MAC}'}}
interfaces:
  - {{name: Ethernet1, addresses: 10.0.1.1/24, device: wire-left}}
  - {{name: Ethernet2, addresses: 10.0.2.1/24, device: wire-right}}
  - {{name: Ethernet3, addresses: 10.0.3.1/24, device: wire-third}}
tunnels:
  - {{name: Tunnel1, mode: ipsec, source: 10.0.3.1, destination: {THIRD}, addresses: 10.255.1.1/24}}
ipsec:
  - name: c1
    id: 1
    type: vti
    interfaces: Tunnel1
    inbound: [{sa_text(0x1001, THIRD, '10.0.3.1', 'gcm128')}]
    outbound: {sa_text(0x2001, '10.0.3.1', THIRD, 'gcm128')}
routes:
  - {{prefix: 198.51.100.0/24, via: {RIGHT}}}
{BY_TUNNEL}'''
LONGEST = 90  # seconds


class TwoUnits(Lab):
    """vexdp and vexl3d as processes of their own."""

    def start_plane(self):
        self.plane = subprocess.Popen(
            ['ip', 'netns', 'exec', f'{self.name}-router', BIN / 'vexdp', '--listen', f'unix:{self.folder.name}/dp',
             '--workers', os.environ.get('VEXL3_WORKERS', '2')],
            stdout=self.log, stderr=self.log)
        until(lambda: os.path.exists(f'{self.folder.name}/dp'), 'vexdp listens')

    def launch(self, *options):
        self.daemon = subprocess.Popen(
            ['ip', 'netns', 'exec', f'{self.name}-router', BIN / 'vexl3d', '--config', self.description, '--socket',
             self.socket, '--dataplane', f'unix:{self.folder.name}/dp', '--fpm', 'off', *options],
            stdout=self.log, stderr=self.log)

    def start(self):
        self.start_plane()
        self.launch()
        until(self.ready, f'every port is up: {self.text()}')

    def status(self):
        if not os.path.exists(self.socket):
            return {}
        answer = self.ask('show', 'status', check=False)
        return {} if answer is None else answer['result']

    def in_step(self):
        """With all its ports."""
        status = self.status()
        return status.get('pid') == self.daemon.pid and status.get('forwarding') == 'in step' and self.ready()

    def begun(self):
        return self.text().count('begins beside')

    def kernel(self):
        """What the kernel beside the router has."""
        said = {what: subprocess.run(['ip', '-n', f'{self.name}-router', *what.split()], capture_output=True,
                                     text=True).stdout for what in ('-br addr', 'route show proto 86', '-br link')}
        return {what: re.sub(r'nhid \d+ ', '', text) for what, text in said.items()}

    def end(self):
        super().end()
        self.plane.terminate()
        self.plane.wait()


class Restart(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.lab = TwoUnits('vexl3rst', {'left': (LEFT + '/24', '10.0.1.1'), 'right': (RIGHT + '/24', '10.0.2.1'),
                                         'third': (THIRD + '/24', '10.0.3.1')}, DESCRIPTION)
        self.addCleanup(self.lab.end)
        self.lab.start()
        self.left, self.right, self.third = (self.lab.hosts[name] for name in ('left', 'right', 'third'))
        for host in (self.right, self.third):
            host.until_it_reaches(LEFT)
        for host in (self.left, self.right, self.third):
            host.forget()

    def packet(self, index, dst=FAR):
        return bytes(self.left.to_router(IP(src=LEFT, dst=dst) / UDP(sport=4000, dport=5000, chksum=0) /
                                         Raw(index.to_bytes(4, 'big'))))

    def goes(self, dst):
        """Whether a packet there arrives at the right one."""
        self.left.send(self.packet(7, dst), self.packet(MARK, RIGHT))
        return self.right.indexes_until(MARK) == [7]

    def overflows(self):
        return next(port['dropsIn'] for port in self.lab.ask('show', 'ports') if port['port'] == 'Ethernet1')

    @contextlib.contextmanager
    def stream(self):
        """1,000 packets a second: what was sent is what arrives, in order, and nowhere else."""
        ending = threading.Event()
        sent = []
        overflowed = self.overflows()

        def send():
            while not ending.wait(0.01):
                for _ in range(10):
                    self.left.wire.send(self.packet(len(sent)))
                    sent.append(len(sent))
        sender = threading.Thread(target=send)
        sender.start()
        try:
            yield
        finally:
            ending.set()
            sender.join()
        self.left.send(self.packet(MARK))
        got = self.right.indexes_until(MARK)
        self.assertGreater(len(sent), 20)
        # What the wire's ring had no room for, while the machine did something else, did not come in.
        self.assertEqual(sorted(set(got)), got, self.lab.text())
        until(lambda: len(got) + self.overflows() - overflowed >= len(sent),
              f'{len(got)} of {len(sent)} packets are all that came in: {self.lab.text()}')
        strangers = self.third.seen_ip(keep=lambda p: p.proto == 17)
        self.assertEqual(len(strangers), 0)

    def until_in_step(self):
        until(self.lab.in_step, self.lab.text, LONGEST)
        self.assertLess(self.lab.status()['changeOverSeconds'], 0.5)  # a thread may lose its core meanwhile
        self.assertEqual(self.lab.ask('verify'), [])

    def test_killed_and_ended_it_comes_back_unnoticed(self):
        before = self.lab.kernel()
        watch = subprocess.Popen(['ip', '-n', 'vexl3rst-router', 'monitor', 'route', 'address', 'link'],
                                 stdout=subprocess.PIPE, text=True)
        self.addCleanup(watch.kill)
        with self.stream():
            for number in (signal.SIGKILL, signal.SIGTERM):
                self.lab.daemon.send_signal(number)
                self.lab.daemon.wait()
                self.lab.launch()
                self.until_in_step()
        watch.terminate()
        # An interface's address is on lo until its device is known.
        gone = [line for line in watch.communicate()[0].splitlines() if line.startswith('Deleted')]
        self.assertEqual([line for line in gone if ' dev lo ' not in line], [])
        self.assertEqual(self.lab.kernel(), before)

    def test_what_is_sealed_goes_on_under_its_numbers(self):
        sent, heads = 0, []

        def send():
            nonlocal sent
            self.left.send(self.packet(sent, SEALED))
            sent += 1

        def seen(wanted):
            heads.extend(bytes(p.payload)[:8] for p in self.third.seen_ip(wanted, keep=lambda p: p.proto == 50))
            return heads

        until(lambda: send() or seen(1), 'the way to the other end is there')
        unsealed = sent - len(heads)
        self.lab.daemon.kill()
        self.lab.daemon.wait()
        send()
        self.lab.launch()
        until(lambda: send() or self.lab.in_step(), self.lab.text, LONGEST)
        send()
        until(lambda: len(seen(sent)) >= sent - unsealed, lambda: f'{len(heads)} of {sent} came, {unsealed} were not sealed')
        self.assertEqual(heads, [(0x2001).to_bytes(4, 'big') + n.to_bytes(4, 'big') for n in range(1, len(heads) + 1)])

    def test_stopped_beyond_the_limit_and_continued_it_builds_beside(self):
        with self.stream():
            self.lab.daemon.send_signal(signal.SIGSTOP)
            until(lambda: 'ends after batch' in self.lab.text(), self.lab.text, LONGEST)
            self.lab.daemon.send_signal(signal.SIGCONT)
            self.until_in_step()

    def test_what_the_new_description_lacks_goes_with_the_change_and_what_it_adds_comes(self):
        self.assertTrue(self.goes(FAR))
        self.lab.daemon.kill()
        self.lab.daemon.wait()
        without = DESCRIPTION.replace('198.51.100.0/24', '203.0.113.0/24').replace(BY_TUNNEL, '')
        self.lab.description.write_text(without[:without.index('  - {name: Ethernet3')] +
                                        without[without.index('routes'):])
        self.assertTrue(self.goes(FAR))
        self.lab.launch()
        self.until_in_step()
        self.assertTrue(self.goes(OLD))
        self.assertFalse(self.goes(FAR))
        until(lambda: 'Ethernet3' not in self.lab.kernel()['-br link'], 'the port of an interface that is gone')
        until(lambda: self.lab.kernel()['route show proto 86'].startswith('203.0.113.0/24'), 'the route in the kernel')
        self.assertNotIn('198.51.100.0/24', self.lab.kernel()['route show proto 86'])

    def test_one_that_dies_on_its_way_leaves_what_forwards(self):
        with self.stream():
            for times in (1, 2):
                self.lab.daemon.kill()
                self.lab.daemon.wait()
                self.lab.launch()
                until(lambda times=times: self.lab.begun() == times, self.lab.text())
            self.until_in_step()


if __name__ == '__main__':
    if why := missing():
        print(f'skipped: {why}')
        sys.exit(77)
    unittest.main()
