"""Subscriptions do not touch each other: ten on one path, at once, get what each of them gets alone."""

import os
import sqlite3
import subprocess
import tempfile
import time
import unittest

from captures import passes
from harness import BIN, Agent

# As the configuration has it, and as options.
TEN = [
    ("", []),
    ("where: {interface-name: 'ETH1/0/*'}", ["--where", "interface-name=ETH1/0/*"]),
    ("where: {service-class: af1}", ["--where", "service-class=af1"]),
    ("where: {interface-name: 'ETH2/0/(1|3)', service-class: ef}",
     ["--where", "interface-name=ETH2/0/(1|3)", "--where", "service-class=ef"]),
    ("threshold: 'discard-packets>0'", ["--threshold", "discard-packets>0"]),
    ("threshold: ['pass-packets>100', 'pass-packets<2000']",
     ["--threshold", "pass-packets>100", "--threshold", "pass-packets<2000"]),
    ("period: 4s", ["--period", "4"]),
    ("suppress-redundant: 5s", ["--suppress-redundant", "5"]),
    ("suppress-redundant: 60s, where: {interface-name: 'ETH1/0/2'}",
     ["--suppress-redundant", "60", "--where", "interface-name=ETH1/0/2"]),
    ("encoding: json, where: {service-class: be}", ["--encoding", "json", "--where", "service-class=be"]),
]
EVERY, PASSES = 3, 4


class Subscriptions(unittest.TestCase):
    def test_each_of_ten_gets_what_it_gets_alone(self):
        with tempfile.TemporaryDirectory() as folder:
            database = os.path.join(folder, "q.db")
            subprocess.run([os.path.join(BIN, "qos-host"), "feed", "sim", "--db", database, "--count", "1",
                            "--ports", "4"], check=True, timeout=20)
            together = os.path.join(folder, "together.qos")
            lines = "".join(f"  s{number}: {{path: queue-statistics, every: {EVERY}s, {settings}}}\n"
                            for number, (settings, _) in enumerate(TEN))
            # Passes of the agent begin at multiples of the interval; the single ones a little later, and the tables
            # change when all of them are through.
            time.sleep(EVERY - time.time() % EVERY + 0.7)
            configuration = (f"feed: none\ndatabase: {database}\nsubscriptions:\n{lines}"
                             f"outputs: {{all: {{type: capture, file: {together}}}}}\n")
            with Agent(configuration) as agent:
                begin = time.time() // EVERY * EVERY + EVERY
                time.sleep(begin - time.time() + 0.05)
                alone = [subprocess.Popen(
                    [os.path.join(BIN, "qos-host"), "sample", "queue-statistics", "--db", database, "--output", "none",
                     "--every", f"{EVERY}s", "--count", str(PASSES), "--capture", os.path.join(folder, f"{number}.qos"),
                     *options], stdout=subprocess.DEVNULL) for number, (_, options) in enumerate(TEN)]
                for number in range(PASSES - 1):
                    time.sleep(begin + (number + 1) * EVERY - 0.7 - time.time())
                    with sqlite3.connect(database) as connection:
                        connection.execute("UPDATE queue_stat SET passPackets = passPackets + 7, dropPackets = "
                                           "dropPackets + 1 WHERE (ifIndex + queueId) % 5 = ?", (number,))
                    connection.close()
                for each in alone:
                    self.assertEqual(each.wait(20), 0)
                self.assertEqual(agent.stop(), 0)
            with open(together, "rb") as file:
                found = passes(file.read())
            counts = set()
            for number in range(len(TEN)):
                with open(os.path.join(folder, f"{number}.qos"), "rb") as file:
                    wanted = passes(file.read())[1]
                self.assertEqual(len(wanted), PASSES)
                self.assertEqual(found[number + 1][:PASSES], wanted, TEN[number])
                counts.add(tuple(len(b"".join(payloads)) for payloads in wanted))
            # They are ten different ones, and not all empty.
            self.assertEqual(len(counts), len(TEN))


if __name__ == "__main__":
    unittest.main()
