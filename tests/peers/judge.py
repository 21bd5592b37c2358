"""The kernel as judge: a driver changes links, carriers, addresses, neighbours, routes and next-hop objects of the router's
namespace at random, by `ip`. After each settling the kernel's `ip route get` and a trace through the data plane agree on
the interface and the next hop of many addresses, or a show names the difference.

    judge.py [--seconds 30] [--seed N] [--addresses 1000]
"""

import argparse
import ipaddress
import json
import random
import re
import socket
import sys
import time

import lab

LINKS = {1: '10.0.1', 2: '10.0.12'}
HOSTS = range(2, 6)  # neighbours on each link
SETTLES = 60  # seconds
CONNECTIONS = 16
PREFIXES = [f'192.0.{n}.0/24' for n in range(8)] + [f'192.0.{n}.128/25' for n in range(0, 8, 2)] + \
           ['192.0.0.0/20', '198.51.100.0/24', '198.51.100.7/32', '203.0.113.0/24', '10.0.1.128/25']
OBJECTS = range(101, 109)


class Router:
    """What is done to it, and what it is asked."""

    def __init__(self, net, chance):
        self.router, self.peers = net.routers[1], {1: net.hosts[1], 2: net.routers[2]}
        self.chance = chance
        self.done = []

    def ip(self, *words):
        """The kernel refuses some of what is thrown at it."""
        words = [str(word) for word in words]
        self.done.append(' '.join(words))
        self.router.run('ip', *words, check=False)

    # -- What is done

    def begin(self):
        (self.router.directory / 'router.yaml').write_text(
            'router: {mac: "02:00:00:aa:00:01"}\ninterfaces:\n'
            '  - {name: Ethernet1, device: wire1}\n  - {name: Ethernet2, device: wire2, addresses: kernel}\n'
            '  - {name: Ethernet3, device: wire3}\n')
        for words in ('add wire3 type veth peer name far3', 'set wire3 up', 'set far3 up'):
            self.router.run('ip', 'link', *words.split())
        self.router.start('vexl3d', lab.BIN / 'vexl3d', '--config', self.router.directory / 'router.yaml', '--socket',
                          self.router.socket, '--fpm', 'off', log=self.router.directory / 'vexl3d.log')
        for link in LINKS:
            lab.until(lambda: 'LOWER_UP' in self.router.run('ip', 'link', 'show', f'Ethernet{link}', check=False).stdout,
                      f'the device of Ethernet{link} is up')
            self.address(link)

    def address(self, link):
        self.ip('addr', 'replace', f'{LINKS[link]}.1/24', 'dev', f'Ethernet{link}')
        for host in HOSTS:
            self.neighbour(link, f'{LINKS[link]}.{host}')
        self.neighbour(link, '203.0.113.9')

    def neighbour(self, link, address):
        self.ip('neigh', 'replace', address, 'lladdr', f'02:00:00:00:{link:02x}:{int(address.split(".")[3]):02x}', 'nud',
                'permanent', 'dev', f'Ethernet{link}')

    def hop(self):
        return f'{LINKS[self.chance.choice(list(LINKS))]}.{self.chance.choice(HOSTS)}'

    def ways(self):
        pick = self.chance.random()
        if pick < 0.15:
            return ['nhid', self.chance.choice(OBJECTS)]
        if pick < 0.35:
            return [word for _ in range(self.chance.randint(2, 3))
                    for word in ('nexthop', 'via', self.hop(), 'weight', self.chance.randint(1, 3))]
        if pick < 0.4:
            return ['via', '203.0.113.9', 'dev', f'Ethernet{self.chance.choice(list(LINKS))}', 'onlink']
        if pick < 0.45:
            return ['dev', f'Ethernet{self.chance.choice(list(LINKS))}']
        return ['via', self.hop()]

    def route(self):
        verb = self.chance.choice(['add', 'append', 'prepend', 'replace', 'change', 'replace', 'del', 'del'])
        metric = ['metric', self.chance.choice([5, 20])] if self.chance.random() < 0.2 else []
        prefix = self.chance.choice(PREFIXES)
        if verb == 'del':
            return self.ip('route', verb, prefix, *(metric if self.chance.random() < 0.5 else []))
        if self.chance.random() < 0.1:
            return self.ip('route', verb, self.chance.choice(['blackhole', 'unreachable', 'prohibit']), prefix, *metric)
        return self.ip('route', verb, prefix, *metric, *self.ways())

    def object(self):
        number = self.chance.choice(OBJECTS)
        pick = self.chance.random()
        if pick < 0.2:
            return self.ip('nexthop', 'del', 'id', number)
        if pick < 0.5:
            members = '/'.join(f'{n},{self.chance.randint(1, 3)}' for n in self.chance.sample(list(OBJECTS), 2))
            return self.ip('nexthop', 'replace', 'id', number, 'group', members)
        if pick < 0.55:
            return self.ip('nexthop', 'replace', 'id', number, 'blackhole')
        link = self.chance.choice(list(LINKS))
        return self.ip('nexthop', 'replace', 'id', number, 'via', f'{LINKS[link]}.{self.chance.choice(HOSTS)}', 'dev',
                       f'Ethernet{link}')

    def link(self):
        link = self.chance.choice(list(LINKS))
        pick = self.chance.random()
        if pick < 0.3:
            self.ip('link', 'set', f'Ethernet{link}', self.chance.choice(['down', 'up']))
        elif pick < 0.5:
            state = self.chance.choice(['down', 'up'])
            self.done.append(f'# the far end of wire{link} {state}')
            self.peers[link].run('ip', 'link', 'set', 'eth0' if link == 1 else 'wire2', state)
        elif pick < 0.6:
            self.ip('link', 'set', f'Ethernet{link}', 'mtu', self.chance.choice([1280, 1400, 1500]))
        elif pick < 0.75:
            self.ip('addr', 'del', f'{LINKS[link]}.1/24', 'dev', f'Ethernet{link}')
        elif pick < 0.9:
            self.ip('addr', self.chance.choice(['add', 'del']), f'172.16.{link}.1/24', 'dev', f'Ethernet{link}')
        else:
            self.ip('neigh', 'del', f'{LINKS[link]}.{self.chance.choice(HOSTS)}', 'dev', f'Ethernet{link}')

    def mend(self):
        """What has gone comes back, so that there is something to lose."""
        for link in LINKS:
            self.peers[link].run('ip', 'link', 'set', 'eth0' if link == 1 else 'wire2', 'up')
            self.ip('link', 'set', f'Ethernet{link}', 'up')
            self.address(link)

    def step(self):
        if self.chance.random() < 0.25:
            self.mend()
        for _ in range(self.chance.randint(1, 12)):
            self.chance.choices([self.route, self.object, self.link], [6, 2, 2])[0]()

    # -- What it says

    def kernel(self, addresses):
        """For each address the ways that the kernel may send it, or why it does not."""
        asked = '\n'.join(f'route get {address}\nroute get fibmatch {address}' for address in addresses)
        file = self.router.directory / 'asked'
        file.write_text(asked + '\n')
        got = self.router.run('ip', '-force', '-batch', file, check=False)
        failed = {int(line): why for why, line in
                  re.findall(r'RTNETLINK answers: ([^\n]*)\nCommand failed [^:]*:(\d+)', got.stderr)}
        blocks = re.split(r'\n(?=\S)', got.stdout.strip())
        ways = {}
        for number, address in enumerate(addresses):
            if 2 * number + 1 in failed:
                if 2 * number + 2 not in failed:
                    blocks.pop(0)
                ways[address] = {failed[2 * number + 1]}
                continue
            first, match = blocks.pop(0), blocks.pop(0) if 2 * number + 2 not in failed else ''
            # `cache` is a line of its own, with blanks in front.
            ways[address] = self.ways_of(first, address) | (self.ways_of(match, address) if 'nexthop' in match else set())
        return ways

    @staticmethod
    def ways_of(text, address):
        if text.startswith('local'):
            return {'local'}
        if text.startswith('broadcast'):
            return {'local'}
        parts = [part for part in re.split(r'\bnexthop\b', text) if ' dev ' in part and 'dead' not in part]
        return {(re.search(r' dev (\S+)', part).group(1),
                 (re.search(r'via (\S+)', part) or [None, address])[1]) for part in parts}

    def neighbours(self):
        rows = json.loads(self.router.run('ip', '-j', 'neigh', 'show').stdout)
        return {(row['dev'], row['dst']): row['lladdr'] for row in rows if 'lladdr' in row}

    def named(self):
        """Interfaces that are shown not to be up, and their subnets, from whose addresses nothing follows. The kernel takes
        what is for them all the same, and sends by a device without a carrier."""
        down = [row for row in self.router.ctl('show', 'interfaces')['rows'] if row['state'] != 'up']
        return ({row['interface'] for row in down},
                [ipaddress.ip_interface(address).network for row in down for address in row.get('addresses', [])])

    def traces(self, addresses):
        """Requests of one connection are answered one after the other, those of several at once."""
        wires = []
        for begin in range(CONNECTIONS):
            some = addresses[begin::CONNECTIONS]
            wire = socket.socket(socket.AF_UNIX)
            wire.connect(str(self.router.socket))
            wire.sendall(''.join(json.dumps({'command': 'trace packet', 'interface': 'Ethernet3', 'source': '198.18.0.1',
                                             'destination': address, 'protocol': 'udp'}) + '\n'
                                 for address in some).encode())
            wires.append((wire, some))
        found = {}
        for wire, some in wires:
            with wire, wire.makefile() as lines:
                ends = (json.loads(line) for line in lines if not line.startswith(('{"row', '{"ok')))
                found |= {address: answer.get('end', answer) for address, answer in zip(some, ends)}
        return found

    def differences(self, addresses):
        """Those of the addresses on which the two do not agree, with what they say."""
        neighbours, (down, named) = self.neighbours(), self.named()
        kernel, traces = self.kernel(addresses), self.traces(addresses)
        return {address: f'kernel {sorted(map(str, ways))}, data plane {traces[address]}'
                for address, ways in kernel.items()
                if not self.agrees(ways, traces[address], neighbours, down) and
                not ('local' in ways and any(ipaddress.ip_address(address) in subnet for subnet in named))}

    @staticmethod
    def agrees(ways, trace, neighbours, down):
        end = trace.get('end')
        # What the kernel drops, with the error that it says to the sender.
        if any(isinstance(way, str) and way != 'local' for way in ways):
            return end == 'dropped'
        if 'local' in ways:
            return end == 'local'
        macs = {(device, neighbours.get((device, hop))) for device, hop in ways}
        if end == 'sent':
            return (trace.get('interface'), trace.get('mac')) in macs
        if all(device in down for device, _ in ways):
            return end in ('local', 'dropped')
        # The kernel finds out whose address it is.
        return end == 'local' and any(mac is None for _, mac in macs)


def main():
    if why := lab.missing():
        print(f'skipped: {why}')
        sys.exit(77)
    options = argparse.ArgumentParser()
    options.add_argument('--seconds', type=float, default=30)
    options.add_argument('--seed', type=int, default=random.randrange(1 << 30))
    options.add_argument('--addresses', type=int, default=1000)
    options = options.parse_args()
    chance = random.Random(options.seed)
    print(f'seed {options.seed}', flush=True)
    nets = [ipaddress.ip_network(prefix) for prefix in (*PREFIXES, '10.0.1.0/24', '10.0.12.0/24', '172.16.1.0/24')]
    addresses = set()
    while len(addresses) < options.addresses:
        net = chance.choice(nets)
        addresses.add(str(net[chance.randrange(net.num_addresses)]))
    addresses = sorted(addresses)
    settlings, worst, end = 0, 0, time.monotonic() + options.seconds
    with lab.Lab() as net:
        router = Router(net, chance)
        router.begin()
        while time.monotonic() < end:
            router.done = []
            router.step()
            since = time.monotonic()
            # Those that differ are asked again; when none does any more, all are.
            asked = addresses
            while (differences := router.differences(asked)) or asked is not addresses:
                asked = list(differences) or addresses
                if differences and time.monotonic() - since > SETTLES:
                    print(*router.done, sep='\n')
                    raise AssertionError(f'{len(differences)} differences, the first ones:\n' +
                                         '\n'.join(map(': '.join, list(differences.items())[:8])))
            settlings, worst = settlings + 1, max(worst, time.monotonic() - since)
    print(f'{settlings} settlings of {len(addresses)} addresses, the longest after {worst:.1f} s')


if __name__ == '__main__':
    main()
