#!/usr/bin/env python3
"""How fast routes of a source that stays connected come to the data plane, and what they cost.

    bench/sources.py [--routes 1000000] [--answered] [fpm] [kernel] [file]

Plays a recorded stream of FPM at full speed, has the kernel's table read, or a route file, and prints routes a second until
the data plane has acknowledged all of them, and the daemon's memory before and after. What a source costs is what its
routes cost over those of the file. With --answered the kernel's are a routing suite's, and are told what has become of them:
the memory is that of everything answered, too. As root; VEXL3_BIN is where the programs are.
"""

import argparse
import pathlib
import signal
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / 'tests/peers'))
import lab  # noqa: E402
from fpm import HOPS, Player, dotted, stream  # noqa: E402


def resident(pid):
    """Bytes."""
    return int(pathlib.Path(f'/proc/{pid}/status').read_text().split('VmRSS:')[1].split()[0]) * 1024


class Bench:
    def __init__(self, net, routes, answered):
        self.router = net.routers[1]
        self.routes = routes
        self.answered = answered

    def pid(self):
        found = subprocess.run(['pgrep', '-f', f'vexl3d --config {self.router.directory}'], capture_output=True, text=True)
        return max(map(int, found.stdout.split()))

    def memory(self):
        return resident(self.pid())

    def until_all(self, source, since):
        lab.until(lambda: self.router.source(source)['routes'] >= self.routes, 'all routes came', 600)
        told = time.monotonic() - since
        lab.until(lambda: (self.router.fact('summary', 'routesProgrammed') or 0) >= self.routes,
                  'all are acknowledged', 600)
        return told, time.monotonic() - since

    def say(self, what, seconds, before):
        told, all_ = seconds
        print(f'{what}: {self.routes} routes, taken after {told:.2f} s, acknowledged after {all_:.2f} s: '
              f'{self.routes / all_:,.0f} routes/s; {(self.memory() - before) / self.routes:.0f} bytes a route', flush=True)

    def fpm(self):
        recorded, player = stream(self.routes, self.router.index()), Player(self.router.name)
        before, since = self.memory(), time.monotonic()
        player.play(recorded)
        self.say('fpm', self.until_all('fpm', since), before)
        player.close()

    def kernel(self):
        file = self.router.directory / 'routes'
        protocol = ' proto bgp' if self.answered else ''
        file.write_text(''.join(f'route add {dotted(n)}/24 via 10.0.1.{n % HOPS + 2}{protocol}\n'
                                for n in range(self.routes)))
        before = self.memory()
        # What it missed it reads when it goes on.
        subprocess.run(['kill', f'-{signal.SIGSTOP.value}', str(self.pid())], check=True)
        self.router.run('ip', '-batch', file)
        subprocess.run(['kill', f'-{signal.SIGCONT.value}', str(self.pid())], check=True)
        lab.until(lambda: self.router.source('kernel')['routes'] > 1000, 'it reads', 60)
        took = self.until_all('kernel', time.monotonic())
        if self.answered:
            lab.until(lambda: self.router.source('kernel')['answered'] >= self.routes, 'all are answered', 600)
        self.say('kernel', took, before)

    def file(self):
        file = self.router.directory / 'table'
        file.write_text(''.join(f'{dotted(n)}/24 10.0.1.{n % HOPS + 2}\n'
                                for n in range(self.routes)))
        before, since = self.memory(), time.monotonic()
        self.router.describe(f'kernel-routes: false\nroute-file: {{path: {file}, nexthops: [10.0.1.2]}}\n')
        self.router.ctl('reload')
        self.say('file', self.until_all('route-file', since), before)


def main():
    options = argparse.ArgumentParser()
    options.add_argument('--routes', type=int, default=1000000)
    options.add_argument('--answered', action='store_true')
    options.add_argument('what', nargs='*', default=['fpm', 'kernel', 'file'])
    options = options.parse_args()
    if why := lab.missing():
        sys.exit(why)
    for what in options.what:
        with lab.Lab() as net:
            net.routers[1].begin(more='' if options.answered else 'kernel-offload: false\n')
            lab.until(lambda: net.routers[1].fact('status', 'phase') == 'running', 'it runs')
            getattr(Bench(net, options.routes, options.answered), what)()


if __name__ == '__main__':
    main()
