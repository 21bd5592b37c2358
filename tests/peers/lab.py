"""Two routers with a routing suite each, and a host behind each of them:

    h1 -- Ethernet1 r1 Ethernet2 -- Ethernet2 r2 Ethernet1 -- h2

A router is a namespace with vexl3d, its embedded vexdp, and the suite's daemons, which know the router by its devices in
the kernel. The judges are the hosts' ping, and what the daemons say.
"""

import ctypes
import fcntl
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / 'tests/support'))

from waiting import until  # noqa: E402

BIN = pathlib.Path(os.environ.get('VEXL3_BIN', ROOT / 'build/release/bin'))
FRR = pathlib.Path('/usr/lib/frr')
NAME = 'vexpeers'


def missing():
    """Why peers cannot be tried on this machine; empty when they can."""
    why = subprocess.run([ROOT / 'tools/lab', 'check'], capture_output=True, text=True).stdout.strip()
    if why:
        return why
    if not (FRR / 'zebra').exists():
        return 'FRR is not installed: tools/setup --peers'
    return '' if shutil.which('bird') else 'BIRD is not installed: tools/setup --peers'


def run(*words, check=True):
    done = subprocess.run([str(word) for word in words], capture_output=True, text=True)
    if check and done.returncode != 0:
        raise AssertionError(f'{words}: {done.stdout}{done.stderr}')
    return done


def enter(space):
    """The calling thread, a network namespace that is open."""
    if ctypes.CDLL(None, use_errno=True).setns(space.fileno(), 0) != 0:
        raise OSError(ctypes.get_errno(), 'setns')


def main():
    """Runs the caller's tests; what cannot be tried here ends with 77 and the reason."""
    if why := missing():
        print(f'skipped: {why}')
        sys.exit(77)
    unittest.main('__main__', verbosity=2)


class Space:
    """A network namespace, with the processes in it."""

    def __init__(self, name):
        self.name = f'{NAME}-{name}'
        self.processes = {}
        run('ip', 'netns', 'add', self.name)
        self.run('ip', 'link', 'set', 'lo', 'up')
        self.run('sysctl', '-qw', 'net.ipv6.conf.all.disable_ipv6=1', 'net.ipv4.ip_forward=1')

    def run(self, *words, check=True):
        return run('ip', 'netns', 'exec', self.name, *words, check=check)

    def start(self, key, *words, log=None):
        with open(log or os.devnull, 'a') as out:
            self.processes[key] = subprocess.Popen(['ip', 'netns', 'exec', self.name, *[str(w) for w in words]],
                                                   stdout=out, stderr=out, stdin=subprocess.DEVNULL)

    def popen(self, *words):
        """For what is ended by the caller, who wants its output."""
        return subprocess.Popen(['ip', 'netns', 'exec', self.name, *words], stdout=subprocess.PIPE, text=True)

    def end(self, key, kill=False):
        process = self.processes.pop(key)
        process.kill() if kill else process.terminate()
        try:
            process.wait(3)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()

    def bird(self, directory, config):
        file = directory / 'bird.conf'
        file.write_text(config)
        self.start('bird', 'bird', '-f', '-c', file, '-s', directory / 'bird.ctl', log=directory / 'bird.log')

    def close(self):
        for key in reversed(list(self.processes)):
            self.end(key)
        run('ip', 'netns', 'del', self.name, check=False)


class Router(Space):
    """One router: number 1 or 2. `directory` is for its files."""

    def __init__(self, number, directory):
        super().__init__(f'r{number}')
        self.number = number
        self.directory = pathlib.Path(directory) / f'r{number}'
        self.directory.mkdir()
        self.socket = self.directory / 'vexl3d.sock'

    def describe(self, more=''):
        description = self.directory / 'router.yaml'
        description.write_text(f'router: {{mac: "02:00:00:aa:00:0{self.number}"}}\n{more}'
                               'interfaces:\n'
                               f'  - {{name: Ethernet1, addresses: 10.0.{self.number}.1/24, device: wire1}}\n'
                               f'  - {{name: Ethernet2, addresses: 10.0.12.{self.number}/24, device: wire2}}\n')
        return description

    def begin(self, *options, more=''):
        description = self.describe(more)
        self.start('vexl3d', BIN / 'vexl3d', '--config', description, '--socket', self.socket, *options,
                   log=self.directory / 'vexl3d.log')
        until(self.ready, 'the kernel has the devices, and their wires are up')

    def ready(self):
        links = self.run('ip', '-o', 'link', check=False).stdout.splitlines()
        up = [name for name in ('Ethernet1', 'Ethernet2')
              if any(f' {name}: ' in link and 'LOWER_UP' in link for link in links)]
        return len(up) == 2 and '10.0.12' in self.run('ip', '-o', 'addr', 'show', 'dev', 'Ethernet2', check=False).stdout

    def ctl(self, *words):
        done = run(BIN / 'vexctl', '--json', '--socket', self.socket, *words, check=False)
        return json.loads(done.stdout) if done.stdout else {}

    def index(self, device='Ethernet1'):
        """Of the device in the kernel: it is another one with each data plane."""
        return int(until(lambda: self.run('cat', f'/sys/class/net/{device}/ifindex', check=False).stdout,
                         f'the kernel has {device}'))

    def fact(self, show, name):
        """Of a show of one row; nothing while nobody answers."""
        return (self.ctl('show', show).get('result') or {}).get(name)

    def routes(self, source):
        return {row['prefix']: row for row in self.ctl('show', 'routes').get('rows', []) if row.get('source') == source}

    def source(self, name):
        return next(row for row in self.ctl('show', 'sources')['rows'] if row['source'] == name)

    def frr(self, daemon, config, *options):
        file = self.directory / f'{daemon}.conf'
        file.write_text(config)
        self.directory.chmod(0o777)
        self.start(daemon, FRR / daemon, '-f', file, '-i', self.directory / f'{daemon}.pid', '-z',
                   self.directory / 'zserv', '--vty_socket', self.directory,
                   '--log', f'file:{self.directory}/{daemon}.log', *options, log=self.directory / f'{daemon}.out')

    def zebra(self, *options):
        self.frr('zebra', 'fpm address 127.0.0.1 port 2620\n', '-M', 'dplane_fpm_nl', '-P', '0', *options)
        until(lambda: (self.directory / 'zserv').exists(), 'zebra listens')

    def vtysh(self, command):
        return self.run('vtysh', '--vty_socket', self.directory, '-c', command, check=False).stdout

    def tell(self):
        """What a failed test leaves behind, for whoever reads its output."""
        print(f'--- {self.name}')
        for words in (('show', 'sources'), ('show', 'routes'), ('show', 'interfaces')):
            print(run(BIN / 'vexctl', '--socket', self.socket, *words, check=False).stdout)
        for log in sorted(self.directory.glob('*.log')) + sorted(self.directory.glob('*.out')):
            print(f'--- {log.name}', *log.read_text(errors='replace').splitlines()[-30:], sep='\n')


class Lab:
    def __enter__(self):
        self.claim = open('/run/lock/vexl3-peers', 'w')  # the namespaces have names of the whole machine
        fcntl.flock(self.claim, fcntl.LOCK_EX)
        for space in run('ip', 'netns', 'list').stdout.split():
            if space.startswith(f'{NAME}-'):
                run('ip', 'netns', 'del', space)
        self.directory = tempfile.TemporaryDirectory(prefix='vexpeers')
        os.chmod(self.directory.name, 0o777)
        self.hosts = {n: Space(f'h{n}') for n in (1, 2)}
        self.routers = {n: Router(n, self.directory.name) for n in (1, 2)}
        for n in (1, 2):
            self.wire(self.hosts[n], 'eth0', self.routers[n], 'wire1')
            self.hosts[n].run('ip', 'addr', 'add', f'10.0.{n}.2/24', 'dev', 'eth0')
            self.hosts[n].run('ip', 'route', 'add', 'default', 'via', f'10.0.{n}.1')
        self.wire(self.routers[1], 'wire2', self.routers[2], 'wire2')
        return self

    def wire(self, one, device, other, otherDevice):
        run('ip', '-n', one.name, 'link', 'add', device, 'type', 'veth', 'peer', 'name', otherDevice, 'netns',
            other.name)
        for space, end in ((one, device), (other, otherDevice)):
            space.run('ethtool', '-K', end, 'tx', 'off', 'rx', 'off', 'gso', 'off', 'gro', 'off', 'tso', 'off')
            space.run('ip', 'link', 'set', end, 'up')

    def reaches(self, one=1, other=2, seconds=60):
        until(lambda: self.hosts[one].run('ping', '-c1', '-W1', f'10.0.{other}.2', check=False).returncode == 0,
              f'h{one} reaches h{other}', seconds)

    def __exit__(self, kind, *_):
        if kind:
            for router in self.routers.values():
                router.tell()
        for space in [*self.routers.values(), *self.hosts.values()]:
            space.close()
        if not os.environ.get('VEXL3_KEEP'):
            self.directory.cleanup()
        self.claim.close()
