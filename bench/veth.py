#!/usr/bin/python3
"""Packets a second from one veth pair to another, beside those that DPDK's own MAC forwarder brings over.

    bench/veth.py [--seconds 4] [--runs 3] [af_packet] [af_xdp]

A host floods 64-byte packets of many flows by dpdk-testpmd, on a core of its own; vexdp and then dpdk-testpmd forward
them with one core, by the same driver; the other host's device counts what arrives. Needs root, two cores and the
package dpdk-dev; VEXL3_BIN is where the programs are.
"""

import argparse
import contextlib
import os
import pathlib
import shutil
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / 'tests/packets'))
import lab  # noqa: E402

HOSTS = {'left': ('10.0.1.2/24', '10.0.1.1'), 'right': ('10.0.2.2/24', '10.0.2.1')}
TARGET = '203.0.113.1'  # behind the right host, which forwards nothing
SENDER, FORWARDER = 0, 1  # cores


def description(driver):
    return f'''
interfaces:
  - {{name: Ethernet1, addresses: 10.0.1.1/24, device: wire-left, driver: {driver}, mac: {lab.ROUTER_MAC}}}
  - {{name: Ethernet2, addresses: 10.0.2.1/24, device: wire-right, driver: {driver}}}
routes:
  - {{prefix: 203.0.113.0/24, via: 10.0.2.2}}
'''


@contextlib.contextmanager
def testpmd(space, core, devices, driver, *words):
    vdevs = [f'--vdev=net_{driver}{n},iface={device}' for n, device in enumerate(devices)]
    process = subprocess.Popen(
        ['ip', 'netns', 'exec', space, 'stdbuf', '-oL', 'dpdk-testpmd', '-l', f'{core},{1 - core}', '--main-lcore', str(1 - core),
         '--no-huge', '-m', '256', '--no-pci', '--no-shconf', '--file-prefix', space, *vdevs, '--', '--nb-cores=1',
         '--total-num-mbufs=16384', *words],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    try:
        for line in process.stdout:
            if 'forwards packets on' in line:
                break
        else:
            raise SystemExit(f'dpdk-testpmd does not start in {space}')
        yield
    finally:
        with contextlib.suppress(BrokenPipeError):
            process.communicate('\n', timeout=20)


def flooded(left, right, seconds):
    """Packets that arrive in a second."""
    def arrived():
        return int(right.run('cat', '/sys/class/net/eth0/statistics/rx_packets').stdout)
    with testpmd(left.space, SENDER, ['eth0'], 'af_packet', '--forward-mode=txonly', '--txonly-multi-flow',
                 f'--tx-ip=10.0.1.2,{TARGET}', f'--eth-peer=0,{lab.ROUTER_MAC}', '--txpkts=64'):
        time.sleep(1)
        before, begin = arrived(), time.monotonic()
        time.sleep(seconds)
        return (arrived() - before) / (time.monotonic() - begin)


def by_vexdp(net, seconds):
    net.start()
    left, right = net.hosts['left'], net.hosts['right']
    left.until_it_reaches('10.0.2.2')
    pid = net.data_plane()
    subprocess.run(['taskset', '-apc', str(FORWARDER), str(pid)], check=True, capture_output=True)
    try:
        return flooded(left, right, seconds)
    finally:
        net.daemon.terminate()
        net.daemon.wait()


def by_testpmd(net, driver, seconds):
    left, right = net.hosts['left'], net.hosts['right']
    left.run('ip', 'neigh', 'replace', '10.0.1.1', 'lladdr', lab.ROUTER_MAC, 'dev', 'eth0')
    with testpmd(f'{net.name}-router', FORWARDER, ['wire-left', 'wire-right'], driver, '--forward-mode=mac',
                 f'--eth-peer=1,{right.mac}'):
        return flooded(left, right, seconds)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--seconds', type=float, default=4)
    parser.add_argument('--runs', type=int, default=3)
    parser.add_argument('drivers', nargs='*', default=['af_packet', 'af_xdp'])
    args = parser.parse_args()
    if os.geteuid() != 0 or os.cpu_count() < 2 or not shutil.which('dpdk-testpmd'):
        sys.exit('veth: nothing was measured: root, two cores and dpdk-testpmd (package dpdk-dev) are needed')
    for driver in args.drivers:
        ours, theirs = [], []
        for _ in range(args.runs):
            net = lab.Lab('vexl3b', HOSTS, description(driver))
            try:
                for host in net.hosts.values():
                    host.wire.close()
                ours.append(by_vexdp(net, args.seconds))
                theirs.append(by_testpmd(net, driver, args.seconds))
            finally:
                net.end()
        ratios = [mine / other for mine, other in zip(ours, theirs)]
        print(f'{driver}: vexdp {statistics.median(ours):,.0f}, dpdk-testpmd {statistics.median(theirs):,.0f} packets/s, '
              f'{statistics.median(ratios):.2f} times', flush=True)


main()
