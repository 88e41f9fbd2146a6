"""What the tests of the metrics share: a database with a few rows in each table, fetching, reading the text format."""

import http.client
import os
import re
import sqlite3

from harness import wait_until

SOURCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
PATHS = ["port-ecn-statistics", "port-buffer-usage-statistics", "queue-buffer-usage-statistics", "queue-statistics",
         "queue-drop-statistics", "ing-port-drop-statistics", "tm-chip-buffer-usage-statistics",
         "intf-ing-buf-usage-statistics", "interface-monitoring-result"]


def make_database(file):
    """Two rows in each table, apart in every field; counters above and below 2^53."""
    connection = sqlite3.connect(file)
    for script in ("docs/samples/example.sql", "tests/cli/every.sql"):
        with open(os.path.join(SOURCES, script), encoding="utf-8") as text:
            connection.executescript(text.read())
    connection.execute("UPDATE queue_stat SET passPackets = 9007199254740993 WHERE ifIndex = 17")
    connection.execute("UPDATE queue_stat SET passBytes = 9007199254740991 WHERE ifIndex = 17")
    connection.commit()
    return connection


def configuration(database, subscriptions=None, more=""):
    """All paths each half second on a free port, unless subscriptions has other lines; without a database simulated."""
    feed = f"feed: none\ndatabase: {database}" if database else "feed: {source: sim, ports: 2}"
    lines = subscriptions or "".join(f"  s{number}: {{path: {path}, every: 500ms}}\n"
                                     for number, path in enumerate(PATHS))
    return (f"device: leaf-3\n{feed}\nsubscriptions:\n{lines}"
            f"outputs:\n  metrics: {{type: prometheus, listen: '127.0.0.1:0'}}\n{more}")


def port_of(agent):
    """Where it serves its metrics."""
    def found():
        """the agent says where its metrics are"""
        return agent.said("metrics at http://127.0.0.1:")
    return int(re.search(r":(\d+)/metrics", wait_until(found)[0]).group(1))


def get(port, path="/metrics", method="GET", headers=None, body=None):
    """Answers status, header fields and body."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=20)
    try:
        connection.request(method, path, body=body, headers=headers or {})
        response = connection.getresponse()
        return response.status, response.headers, response.read().decode()
    finally:
        connection.close()


def samples(text):
    """The values, as texts, by metric and labels."""
    found = {}
    for line in text.splitlines():
        if not line.startswith("#"):
            name, labels, value = re.fullmatch(r"([a-z0-9_]+)(?:\{(.*)\})? (\S+)", line).groups()
            key = frozenset(re.findall(r'([a-z_]+)="((?:[^"\\]|\\.)*)"', labels or ""))
            assert key not in found.setdefault(name, {}), f"twice: {line}"
            found[name][key] = value
    return found
