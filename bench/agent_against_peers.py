#!/usr/bin/env python3
"""The agent against programs that read the same kernel counters, in processor time.

In a network namespace of its own: 64 veth interfaces with HTB and eight classes each. Every contender runs alone for some
seconds at one reading a second; what its processes have used then is read from the kernel.

  agent          qos-agent, kernel feed, a gNMI stream of every queue each second and a Prometheus scrape each second
  collectd csv   collectd's netlink plug-in for all interfaces and classes, with its CSV output
  collectd       the same without an output
  node_exporter  its qdisc collector, scraped each second

usage: as root, bench/agent_against_peers.py BIN [--seconds 20] [--interfaces 64] [--require RATIO]
BIN holds qos-agent. With --require it fails unless the agent takes at most so much of what collectd with CSV takes.
"""

import argparse
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import urllib.request

from processes import memory, processor_time, sum_over

HERE = os.path.dirname(os.path.abspath(__file__))
METRICS = "127.0.0.1:19464"
GNMI = "127.0.0.1:19339"
EXPORTER = "127.0.0.1:19100"


def run(*command):
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def make_network(interfaces):
    run("ip", "link", "set", "lo", "up")
    tc = []
    for number in range(interfaces):
        name = f"qos{number}"
        run("ip", "link", "add", name, "type", "veth", "peer", "name", f"peer{number}")
        run("ip", "link", "set", name, "up")
        run("ip", "link", "set", f"peer{number}", "up")
        tc.append(f"qdisc add dev {name} root handle 1: htb default 17")
        for minor in range(0x10, 0x18):
            tc.append(f"class add dev {name} parent 1: classid 1:{minor:x} htb rate 1mbit")
    subprocess.run(["tc", "-batch", "-"], input="\n".join(tc).encode(), check=True)


def scrape(address):
    try:
        with urllib.request.urlopen(f"http://{address}/metrics", timeout=5) as answer:
            return answer.read().decode()
    except OSError:
        return ""


def series(text, name):
    return sum(1 for line in text.splitlines() if line.startswith(name))


class Contender:
    """A program that is started, asked each second if it wants to be, and measured."""

    def __init__(self, name, command, folder, every_second=lambda: None, proof=lambda: 0):
        self.name, self.command, self.folder = name, command, folder
        self.every_second, self.proof = every_second, proof

    def measure(self, seconds):
        with open(os.path.join(self.folder, "log"), "wb") as log:
            leader = subprocess.Popen(self.command, stdout=log, stderr=log)
            begin = time.monotonic()
            while time.monotonic() < begin + seconds:
                self.every_second()
                time.sleep(1 - (time.monotonic() - begin) % 1)
                if leader.poll() is not None:
                    break
            result = {"contender": self.name, "ms": round(sum_over(leader.pid, processor_time)),
                      "KiB": sum_over(leader.pid, memory), "values": self.proof()}
            ended = leader.poll()
            leader.send_signal(signal.SIGTERM)
            leader.wait(20)
        if ended is not None or result["values"] == 0:
            with open(os.path.join(self.folder, "log"), encoding="utf-8", errors="replace") as log:
                sys.exit(f"{self.name} measures nothing:\n{log.read()[-2000:]}")
        return result


def agent(binaries, folder):
    file = os.path.join(folder, "agent.yaml")
    with open(file, "w", encoding="utf-8") as out:
        out.write(f"feed: {{source: kernel, every: 1s}}\n"
                  f"subscriptions: {{queues: {{path: queue-statistics, every: 1s}}}}\n"
                  f"outputs: {{metrics: {{type: prometheus, listen: {METRICS}}}}}\n"
                  f"gnmi: {{listen: {GNMI}, insecure: true}}\n")
    client = []

    def every_second():
        if not client:
            client.append(subprocess.Popen(
                ["/usr/bin/python3", os.path.join(HERE, "gnmi_stream.py"), GNMI, "queue-statistics"],
                stdout=open(os.path.join(folder, "updates"), "w", encoding="utf-8")))
        scrape(METRICS)

    def proof():
        client[0].terminate()
        client[0].wait()
        with open(os.path.join(folder, "updates"), encoding="utf-8") as updates:
            streamed = sum(int(line) for line in updates)
        return min(streamed, series(scrape(METRICS), "qos_queue_pass_packets_total"))

    return Contender("agent", [os.path.join(binaries, "qos-agent"), "run", file], folder, every_second, proof)


def collectd(name, folder, csv, interfaces):
    file = os.path.join(folder, "collectd.conf")
    wanted = "".join(f'  QDisc "qos{n}"\n  Class "qos{n}"\n' for n in range(interfaces))
    with open(file, "w", encoding="utf-8") as out:
        out.write(f'BaseDir "{folder}"\nPIDFile "{folder}/pid"\nInterval 1\nHostname "bench"\nFQDNLookup false\n'
                  f'LoadPlugin netlink\n<Plugin netlink>\n  VerboseInterface "All"\n{wanted}</Plugin>\n'
                  + (f'LoadPlugin csv\n<Plugin csv>\n  DataDir "{folder}/csv"\n  StoreRates false\n</Plugin>\n' if csv else ""))

    def proof():
        return sum(len(files) for _, _, files in os.walk(os.path.join(folder, "csv"))) if csv else 1

    return Contender(name, ["collectd", "-f", "-C", file], folder, proof=proof)


def node_exporter(folder):
    return Contender("node_exporter",
                     ["prometheus-node-exporter", "--collector.disable-defaults", "--collector.qdisc",
                      f"--web.listen-address={EXPORTER}"],
                     folder, lambda: scrape(EXPORTER), lambda: series(scrape(EXPORTER), "node_qdisc"))


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("bin")
    arguments.add_argument("--seconds", type=int, default=20)
    arguments.add_argument("--interfaces", type=int, default=64)
    arguments.add_argument("--require", type=float)
    options = arguments.parse_args()
    if os.environ.get("QOS_BENCH_NAMESPACE") is None:
        os.environ["QOS_BENCH_NAMESPACE"] = "1"
        os.execvp("unshare", ["unshare", "--net", sys.executable, *sys.argv])
    make_network(options.interfaces)
    results = []
    makers = [lambda folder: agent(os.path.abspath(options.bin), folder),
              lambda folder: collectd("collectd csv", folder, True, options.interfaces),
              lambda folder: collectd("collectd", folder, False, options.interfaces)]
    if shutil.which("prometheus-node-exporter"):
        makers.append(node_exporter)
    for maker in makers:
        folder = tempfile.mkdtemp(prefix="bench-")
        try:
            results.append(maker(folder).measure(options.seconds))
        finally:
            shutil.rmtree(folder)
        print(json.dumps(results[-1]), flush=True)
    ratio = results[0]["ms"] / results[1]["ms"]
    print(f"agent / collectd csv: {ratio:.2f}")
    if options.require is not None and ratio > options.require:
        sys.exit(f"the agent takes more than {options.require} of what collectd with CSV takes")


if __name__ == "__main__":
    main()
