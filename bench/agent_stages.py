#!/usr/bin/env python3
"""What each stage of the agent takes of a processor, with 4,096 queues of a simulated device every second.

The agent runs four times: without outputs, with a Prometheus scrape each second, with a gNMI stream of every queue, and
with both. A stage is what its process takes, or what the agent takes more with it than without it.

usage: bench/agent_stages.py BIN [--seconds 20] [--ports 512] [--require]
With --require it fails unless both outputs together stay below 25 % of a core and 96 MiB for everything.
"""

import argparse
import os
import signal
import statistics
import subprocess
import sys
import tempfile
import time
import urllib.request

from processes import family_of, memory, name_of, processor_time, sum_over

HERE = os.path.dirname(os.path.abspath(__file__))
METRICS = "127.0.0.1:19464"
GNMI = "127.0.0.1:19339"
MOST_MS, MOST_KIB = 250, 96 * 1024


def configuration(ports, outputs):
    text = (f"feed: {{source: sim, every: 1s, slots: 1, ports: {ports}}}\n"
            "subscriptions: {queues: {path: queue-statistics, every: 1s}}\n")
    if "prometheus" in outputs:
        text += f"outputs: {{metrics: {{type: prometheus, listen: {METRICS}}}}}\n"
    if "gnmi" in outputs:
        text += f"gnmi: {{listen: {GNMI}, insecure: true}}\n"
    return text


def scrape():
    with urllib.request.urlopen(f"http://{METRICS}/metrics", timeout=5) as answer:
        return sum(1 for line in answer if line.startswith(b"qos_queue_pass_packets_total{"))


def measure(binaries, ports, seconds, outputs):
    """Milliseconds of processor time a second, by the name of the process; KiB of all; records that arrived."""
    with tempfile.TemporaryDirectory(prefix="bench-") as folder:
        file = os.path.join(folder, "agent.yaml")
        with open(file, "w", encoding="utf-8") as out:
            out.write(configuration(ports, outputs))
        with open(os.path.join(folder, "log"), "w+", encoding="utf-8") as log, \
                open(os.path.join(folder, "updates"), "w+", encoding="utf-8") as updates:
            agent = subprocess.Popen([os.path.join(binaries, "qos-agent"), "run", file], stderr=log)
            try:
                while "ready" not in open(log.name, encoding="utf-8").read():
                    time.sleep(0.05)
                client = subprocess.Popen(["/usr/bin/python3", os.path.join(HERE, "gnmi_stream.py"), GNMI,
                                           "queue-statistics"], stdout=updates) if "gnmi" in outputs else None
                time.sleep(3)
                before = {process: processor_time(process) for process in family_of(agent.pid)}
                begin = time.monotonic()
                scraped = []
                while time.monotonic() < begin + seconds:
                    if "prometheus" in outputs:
                        scraped.append(scrape())
                    time.sleep(1 - (time.monotonic() - begin) % 1)
                span = time.monotonic() - begin
                used = {}
                for process, time_before in before.items():
                    name = name_of(process)
                    used[name] = used.get(name, 0) + (processor_time(process) - time_before) / span
                kib = sum_over(agent.pid, memory)
                arrived = min(scraped, default=0) if "prometheus" in outputs else None
                if client:
                    client.terminate()
                    client.wait()
                    updates.seek(0)
                    streamed = sum(map(int, updates)) // (int(span) + 3)
                    arrived = streamed if arrived is None else min(arrived, streamed)
                if arrived is not None and arrived < ports * 8 * 0.7:
                    sys.exit(f"only {arrived} of {ports * 8} queues arrive in a second")
                return used, kib
            finally:
                agent.send_signal(signal.SIGTERM)
                agent.wait(20)


def main():
    arguments = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument("bin")
    arguments.add_argument("--seconds", type=int, default=20)
    arguments.add_argument("--ports", type=int, default=512)
    arguments.add_argument("--require", action="store_true")
    options = arguments.parse_args()
    records = options.ports * 8
    runs = {outputs: measure(os.path.abspath(options.bin), options.ports, options.seconds, outputs)
            for outputs in ((), ("prometheus",), ("gnmi",), ("prometheus", "gnmi"))}
    alone = runs[()][0]
    workers = {outputs: 2 if "gnmi" in outputs else 1 for outputs in runs}
    stages = {
        "feed, nine tables": statistics.median(used["qos-feed"] for used, _ in runs.values()),
        "worker": statistics.median(used["qos-worker"] / workers[outputs] for outputs, (used, _) in runs.items()),
        "agent, decoding": alone["qos-agent"],
        "agent, Prometheus": runs["prometheus",][0]["qos-agent"] - alone["qos-agent"],
        "agent, gNMI and a second decoding": runs["gnmi",][0]["qos-agent"] - alone["qos-agent"],
    }
    for name, used in stages.items():
        print(f"{name:34} {used:6.1f} ms a second  {used * 1000 / records:6.2f} us a record")
    used, kib = runs["prometheus", "gnmi"]
    total = sum(used.values())
    print(f"{'all, with both outputs':34} {total:6.1f} ms a second  {total * 1000 / records:6.2f} us a record, "
          f"{kib / 1024:.1f} MiB")
    if options.require and (total > MOST_MS or kib > MOST_KIB):
        sys.exit(f"more than {MOST_MS} ms a second or {MOST_KIB} KiB")


if __name__ == "__main__":
    main()
