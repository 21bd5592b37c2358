#!/usr/bin/env python3
"""A day of a busy table: route changes by FPM at full speed, with churn of neighbours, interfaces and lists, and the data
plane killed again and again. Memory stays flat, and nothing differs in the end.

    bench/soak.py [--changes 100000000] [--routes 1000000] [--kill-every 10000000]

A round gives every route other next hops, takes half of them away and brings them back. After each the daemon's and the
data plane's resident memory is printed; the first rounds, until the second kill, are for filling. Ends with 1 when one of
them grew by more than 2 % since, when `verify` finds a difference, or when a counter went down. As root; VEXL3_BIN is
where the programs are.
"""

import argparse
import os
import signal
import sys
import time

import fpm
import sources

lab = sources.lab
FLAT = 1.02
LONGEST = 600  # seconds, of a round


class Soak:
    def __init__(self, net, routes):
        self.router, self.routes = net.routers[1], routes
        self.player = fpm.Player(self.router.name)
        self.tables = [fpm.announcements(routes, shift=shift) for shift in range(2)]
        self.half = fpm.announcements(routes // 2, shift=1)
        self.without = fpm.withdrawals(routes // 2)
        self.next_hops()

    def next_hops(self):
        self.player.play(fpm.next_hops(self.router.index()))

    def pids(self):
        return {'vexl3d': self.router.fact('status', 'pid'), 'vexdp': self.router.fact('status', 'dataPlanePid')}

    def memory(self):
        return {name: sources.resident(pid) for name, pid in self.pids().items()}

    def settled(self, routes):
        lab.until(lambda: self.router.source('fpm')['routes'] == routes and
                  (self.router.fact('summary', 'routesProgrammed') or 0) >= routes, f'{routes} routes are programmed', LONGEST)

    def churn(self, number):
        for host in range(2, 2 + fpm.HOPS):
            self.router.ctl('neighbor', 'replace', 'Ethernet1', f'10.0.1.{host}', f'02:00:00:00:{number % 256:02x}:{host:02x}')
        for name in range(10, 20):
            self.router.ctl('interface', 'add', f'Loopback{name}', 'address', f'192.0.2.{name}/32')
            self.router.ctl('access-list', 'replace', f'list{name}', 'permit udp any any', 'deny ip any any')
        for name in range(10, 20):
            self.router.ctl('interface', 'del', f'Loopback{name}')
            self.router.ctl('access-list', 'del', f'list{name}')

    def round(self, number):
        """Gives how many changes it was."""
        self.player.play(self.tables[number % 2])
        self.churn(number)
        self.player.play(self.without)
        self.settled(self.routes - self.routes // 2)
        self.player.play(self.half)
        self.settled(self.routes)
        return 2 * self.routes

    def kill(self):
        os.kill(self.pids()['vexdp'], signal.SIGKILL)
        restarts = self.router.fact('status', 'restarts')
        lab.until(lambda: self.router.fact('status', 'restarts') > restarts, 'the loss is seen')
        self.next_hops()
        lab.until(lambda: all(row.get('via') for row in self.router.ctl('show', 'routes', fpm.dotted(0))['rows']),
                  'routes lead out again')
        self.settled(self.routes)


def main():
    options = argparse.ArgumentParser()
    options.add_argument('--changes', type=int, default=100000000)
    options.add_argument('--routes', type=int, default=1000000)
    options.add_argument('--kill-every', type=int, default=10000000)
    options = options.parse_args()
    if why := lab.missing():
        sys.exit(why)
    with lab.Lab() as net:
        net.routers[1].begin(more='kernel-offload: false\nkernel-routes: false\n')
        lab.until(lambda: net.routers[1].fact('status', 'phase') == 'running', 'it runs')
        soak = Soak(net, options.routes)
        soak.player.play(soak.tables[1])
        soak.settled(options.routes)
        done, rounds, kills, base, since = 0, 0, 0, None, time.monotonic()
        while done < options.changes:
            done += soak.round(rounds)
            rounds += 1
            if done // options.kill_every > kills:
                soak.kill()
                kills += 1
            memory = soak.memory()
            if base is None and kills == 2:
                base = memory
            print(f'{done:,} changes, {kills} kills, {time.monotonic() - since:.0f} s: ' +
                  ', '.join(f'{name} {bytes_ / 1e6:.1f} MB' for name, bytes_ in memory.items()), flush=True)
        differences = soak.router.ctl('verify')['differences']
        grown = {name: memory[name] / bytes_ for name, bytes_ in (base or memory).items()}
        print(f'{differences} differences; ' + ', '.join(f'{name} {100 * (share - 1):+.1f} %' for name, share in grown.items()))
    sys.exit(differences != 0 or max(grown.values()) > FLAT)


if __name__ == '__main__':
    main()
