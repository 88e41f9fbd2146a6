"""What Prometheus stores is what the database has, and ends with it."""

import json
import os
import re
import shutil
import socket
import subprocess
import tempfile
import time
import unittest
import urllib.parse
import urllib.request

from harness import Agent, wait_until
from metrics import PATHS, SOURCES, configuration, get, make_database, port_of, samples

CLASSES = ["be", "af1", "af2", "af3", "af4", "ef", "cs6", "cs7"]
MONITORED = "SELECT ifName interface, queue_index queue, slot slot, {} FROM buffer_monitor_result"
INGRESS = "SELECT if_name interface, queue queue, {} FROM ing_buf_usage_stat WHERE is_lossless != 0"
QUEUE = "SELECT ifName interface, queueId queue, queueId service_class, {} FROM queue_stat"
PORT_BUFFER = "SELECT ifName interface, slotIdStr slot, {} FROM port_buf_stat"
QUEUE_BUFFER = "SELECT ifName interface, queueId queue, slotIdStr slot, {} FROM queue_buf_stat"
CHIP = "SELECT slotId slot, {} FROM tm_chip_buf_stat"
DROP = " UNION ALL ".join(f"SELECT ifName interface, {queue} queue, queue{queue}Drop{{0}} FROM queue_drop_stat"
                          for queue in range(8))

# Labels and, last, the value of each metric that is made of rows.
QUERIES = {
    "qos_port_ecn_packets_total": "SELECT ifName interface, packets FROM port_ecn_stat",
    "qos_port_buffer_usage_total_buffer": PORT_BUFFER.format("totalBuff"),
    "qos_port_buffer_usage_current_used": PORT_BUFFER.format("currentUsed"),
    "qos_port_buffer_usage_remained": PORT_BUFFER.format("remained"),
    "qos_port_buffer_usage_peak_used": PORT_BUFFER.format("peakUsed"),
    "qos_port_buffer_usage_average_used": PORT_BUFFER.format("avgUsed"),
    "qos_queue_buffer_usage_current_used": QUEUE_BUFFER.format("curUsed"),
    "qos_queue_buffer_usage_peak_used": QUEUE_BUFFER.format("peakUsed"),
    "qos_queue_buffer_usage_average_used": QUEUE_BUFFER.format("avgUsed"),
    "qos_queue_buffer_usage_total_buffer": QUEUE_BUFFER.format("totalBuf"),
    "qos_queue_pass_packets_total": QUEUE.format("passPackets"),
    "qos_queue_pass_bytes_total": QUEUE.format("passBytes"),
    "qos_queue_pass_packets_per_second": QUEUE.format("passPktRate"),
    "qos_queue_pass_bytes_per_second": QUEUE.format("passBytRate"),
    "qos_queue_discard_packets_total": QUEUE.format("dropPackets"),
    "qos_queue_discard_bytes_total": QUEUE.format("dropBytes"),
    "qos_queue_discard_packets_per_second": QUEUE.format("dropPktRate"),
    "qos_queue_discard_bytes_per_second": QUEUE.format("dropBytRate"),
    "qos_queue_drop_bytes_total": DROP.format("Byts"),
    "qos_queue_drop_packets_total": DROP.format("Pkts"),
    "qos_ing_port_drop_bytes_total": "SELECT ifName interface, dropByts FROM ing_port_drop_stat",
    "qos_ing_port_drop_packets_total": "SELECT ifName interface, dropPkts FROM ing_port_drop_stat",
    "qos_tm_chip_buffer_usage_total_buffer": CHIP.format("totalBuf"),
    "qos_tm_chip_buffer_usage_used_buffer": CHIP.format("usedBuf"),
    "qos_tm_chip_buffer_usage_used_ratio": CHIP.format("usedPct / 100.0"),
    "qos_intf_ing_buf_usage_pfc_dynamic": INGRESS.format("is_pfc_dynamic != 0"),
    "qos_intf_ing_buf_usage_current_guaranteed": INGRESS.format("current_guaranteed"),
    "qos_intf_ing_buf_usage_total_guaranteed": INGRESS.format("total_guaranteed"),
    "qos_intf_ing_buf_usage_current_buffer": INGRESS.format("current_buffer"),
    "qos_intf_ing_buf_usage_total_buffer": INGRESS.format("total_buffer"),
    "qos_intf_ing_buf_usage_current_headroom": INGRESS.format("current_headroom"),
    "qos_intf_ing_buf_usage_total_headroom": INGRESS.format("total_headroom"),
    "qos_interface_monitoring_result_timestamp_seconds": MONITORED.format("time_stamp + milli_second / 1000.0"),
    "qos_interface_monitoring_result_buffer_usage": MONITORED.format("used_buf"),
    "qos_interface_monitoring_result_ratio": MONITORED.format("percent / 100.0"),
    "qos_interface_monitoring_result_burst_start_timestamp_seconds":
        MONITORED.format("start_time_stamp + start_milli_second / 1000.0"),
    "qos_interface_monitoring_result_burst_start_buffer": MONITORED.format("start_used_buf"),
    "qos_interface_monitoring_result_burst_start_buffer_ratio": MONITORED.format("start_percent / 100.0"),
    "qos_interface_monitoring_result_burst_peak_timestamp_seconds":
        MONITORED.format("peak_time_stamp + peak_milli_second / 1000.0"),
    "qos_interface_monitoring_result_burst_peak_buffer": MONITORED.format("peak_used_buf"),
    "qos_interface_monitoring_result_burst_peak_buffer_ratio": MONITORED.format("peak_percent / 100.0"),
    "qos_interface_monitoring_result_burst_number": MONITORED.format("burst_number"),
}


def wanted(connection):
    """The values by metric and labels."""
    found = {}
    for metric, query in QUERIES.items():
        cursor = connection.execute(query)
        names = [column[0] for column in cursor.description[:-1]]
        for *labels, value in cursor:
            texts = {name: CLASSES[label] if name == "service_class" else str(label)
                     for name, label in zip(names, labels)}
            found.setdefault(metric, {})[frozenset(texts.items())] = float(value)
    return found


def row_metrics(text):
    """The metrics whose help names a leaf, and those leaves."""
    return dict(re.findall(r"^# HELP (\S+) .* \(([a-z-]+/\S+)\)$", text, re.MULTILINE))


class Server:
    """A Prometheus that scrapes the port twice a second."""

    def __init__(self, folder, port):
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        file = os.path.join(folder, "prometheus.yml")
        with open(file, "w", encoding="utf-8") as text:
            text.write("global: {scrape_interval: 500ms, scrape_timeout: 500ms}\nscrape_configs:\n"
                       f"- {{job_name: qos, static_configs: [{{targets: ['127.0.0.1:{port}']}}]}}\n")
        self.log = open(os.path.join(folder, "prometheus.log"), "w+", encoding="utf-8")
        self.process = subprocess.Popen(
            ["prometheus", f"--config.file={file}", f"--storage.tsdb.path={folder}/tsdb",
             f"--web.listen-address=127.0.0.1:{self.port}"], stdout=self.log, stderr=self.log)

    def query(self, expression):
        """Of this moment."""
        url = f"http://127.0.0.1:{self.port}/api/v1/query?query={urllib.parse.quote(expression)}"
        with urllib.request.urlopen(url, timeout=20) as response:
            return json.load(response)["data"]["result"]

    def rows(self):
        """The values by metric and labels of all that is made of rows."""
        found = {}
        for each in self.query('{job="qos",__name__=~"qos_.*"}'):
            labels = each["metric"]
            name = labels.pop("__name__")
            if name in QUERIES:
                del labels["job"], labels["instance"]
                found.setdefault(name, {})[frozenset(labels.items())] = float(each["value"][1])
        return found

    def wait_for_first_scrape(self):
        def scraped():
            """Prometheus has scraped the agent"""
            try:
                return self.query('up{job="qos"} == 1')
            except OSError:
                assert self.process.poll() is None, "Prometheus ended"
                return False
        wait_until(scraped, 30)

    def end(self):
        self.process.kill()
        self.process.wait()
        self.log.close()


class Prometheus(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = scratch.name
        self.database = os.path.join(self.folder, "q.db")
        self.connection = make_database(self.database)
        self.addCleanup(self.connection.close)

    def wait_for_rows(self, port):
        def complete():
            """all subscriptions are up and all metrics of rows served"""
            text = get(port)[2]
            return (list(samples(text)["qos_subscription_up"].values()) == ["1"] * len(PATHS)
                    and len(row_metrics(text)) == len(QUERIES))
        wait_until(complete)

    def test_prometheus_stores_what_the_database_has(self):
        with Agent(configuration(self.database)) as agent:
            port = port_of(agent)
            self.wait_for_rows(port)
            server = Server(self.folder, port)
            self.addCleanup(server.end)
            server.wait_for_first_scrape()
            self.assertEqual(server.rows(), wanted(self.connection))
            self.assertEqual(len(server.query("qos_subscription_up == 1")), len(PATHS))

            # Values change, and an interface and a slot vanish.
            self.connection.execute("UPDATE queue_stat SET passPackets = passPackets + 1000, dropBytes = 0")
            self.connection.execute("UPDATE queue_drop_stat SET queue7DropByts = 8, queue0DropPkts = 9")
            for table in ("port_ecn_stat", "port_buf_stat", "queue_buf_stat", "queue_stat", "queue_drop_stat",
                          "ing_port_drop_stat"):
                self.connection.execute(f"DELETE FROM {table} WHERE ifIndex = 18")
            self.connection.execute("DELETE FROM tm_chip_buf_stat WHERE slotId = '3'")
            self.connection.execute("DELETE FROM ing_buf_usage_stat WHERE if_index = 18")
            self.connection.execute("DELETE FROM buffer_monitor_result WHERE if_index = 18")
            self.connection.commit()
            after = wanted(self.connection)
            self.assertEqual({len(rows) for rows in after.values()}, {1, 8})

            def same():
                """Prometheus has what the database has now"""
                return server.rows() == after
            wait_until(same, 10)
            time.sleep(1)
            self.assertEqual(server.rows(), after)
            self.assertEqual(agent.stop(), 0)

    def test_both_forms_are_right(self):
        # An interface's name may have anything, and what cannot be shown is still told apart.
        names = ['q"u\\o', "new\nline", "b\udcffd", "b\\xffd", "t\u00e4st"]
        for number, name in enumerate(names):
            self.connection.execute("INSERT INTO port_ecn_stat VALUES (?, CAST(? AS TEXT), ?)",
                                    (100 + number, name.encode("utf-8", "surrogateescape"), number))
        self.connection.commit()
        with Agent(configuration(self.database)) as agent:
            port = port_of(agent)
            self.wait_for_rows(port)
            _, fields, text = get(port)
            self.assertEqual(fields["Content-Type"], "text/plain; version=0.0.4; charset=utf-8")
            check = subprocess.run(["promtool", "check", "metrics"], input=text, text=True, capture_output=True,
                                   timeout=20, check=False)
            self.assertEqual((check.returncode, check.stdout + check.stderr), (0, ""))
            marked = {dict(labels)["interface"]: value
                      for labels, value in samples(text)["qos_port_ecn_packets_total"].items()}
            self.assertEqual({name: marked.get(name) for name in (
                'q\\"u\\\\\\\\o', "new\\\\x0aline", "b\\\\xffd", "b\\\\\\\\xffd", "t\u00e4st")},
                dict(zip(('q\\"u\\\\\\\\o', "new\\\\x0aline", "b\\\\xffd", "b\\\\\\\\xffd", "t\u00e4st"), "01234")))
            # All digits, of numbers that Prometheus rounds, too.
            self.assertIn("9007199254740993", samples(text)["qos_queue_pass_packets_total"].values())

            accept = ("application/openmetrics-text;version=1.0.0,application/openmetrics-text;version=0.0.1;q=0.75,"
                      "text/plain;version=0.0.4;q=0.5,*/*;q=0.1")
            _, fields, opened = get(port, headers={"Accept": accept})
            self.assertEqual(fields["Content-Type"], "application/openmetrics-text; version=1.0.0; charset=utf-8")
            self.assertTrue(opened.endswith("\n# EOF\n"))
            self.assertEqual(samples(opened).keys(), samples(text).keys())
            self.assertIn("# TYPE qos_queue_pass_packets counter\n# UNIT qos_queue_pass_packets packets\n", opened)
            self.assertIn("# TYPE qos_agent_build info\n", opened)

            # Each metric of a row is asked for above, and each leaf that is neither a label nor always the same is one.
            self.assertEqual(row_metrics(text).keys(), QUERIES.keys())
            with open(os.path.join(SOURCES, "schema/vexlor-qos.yang"), encoding="utf-8") as schema:
                leaves = {re.sub(r"^queue\d", "queueN", leaf)
                          for leaf in re.findall(r"leaf ([a-z0-9-]+) \{", schema.read())}
            leaves -= {"interface-name", "queue-id", "slot-id", "service-class", "record-number", "query-type"}
            self.assertEqual({leaf.split("/")[1] for leaf in row_metrics(text).values()}, leaves)

    def test_suppressed_rows_stay_until_they_are_gone_and_none_when_nothing_is_read(self):
        lines = ("  all: {path: queue-statistics, every: 500ms, suppress-redundant: 60s}\n"
                 "  ef: {path: queue-statistics, every: 500ms, where: {service-class: ef}}\n")
        with Agent(configuration(self.database, lines)) as agent:
            port = port_of(agent)

            def shown():
                return sorted(dict(labels)["service_class"] for labels in
                              samples(get(port)[2]).get("qos_queue_pass_packets_total", {}))

            def up():
                return [int(value) for value in samples(get(port)[2])["qos_subscription_up"].values()]

            def wait_for(classes):
                def right():
                    """the rows are the right ones"""
                    return shown() == classes
                wait_until(right)

            wait_for(["cs6", "ef"])
            time.sleep(3)
            self.assertEqual((shown(), up()), (["cs6", "ef"], [1, 1]))
            # The worker says it of the one, and a whole pass of the other.
            self.connection.execute("DELETE FROM queue_stat WHERE ifIndex = 18")
            self.connection.commit()
            wait_for(["ef"])
            self.connection.execute("DELETE FROM queue_stat")
            self.connection.commit()
            wait_for([])
            self.connection.execute("INSERT INTO queue_stat VALUES (17, 'a', 5, 1, 2, 3, 4, 5, 6, 7, 8)")
            self.connection.commit()
            wait_for(["ef"])
            self.connection.close()
            begin = time.monotonic()
            os.remove(self.database)

            def down():
                """both subscriptions are down"""
                return up() == [0, 0]
            wait_until(down, 20)
            self.assertGreater(time.monotonic() - begin, 8)
            self.assertEqual(shown(), [])

    def test_rules_and_dashboard_use_what_is_served(self):
        shutil.copy(os.path.join(SOURCES, "docs/prometheus/alerts.yaml"), self.folder)
        shutil.copy(os.path.join(SOURCES, "tests/agent/alerts_test.yaml"), self.folder)
        for arguments in (["check", "rules", "alerts.yaml"], ["test", "rules", "alerts_test.yaml"]):
            done = subprocess.run(["promtool", *arguments], cwd=self.folder, capture_output=True, text=True, timeout=60,
                                  check=False)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        with open(os.path.join(self.folder, "alerts.yaml"), encoding="utf-8") as file:
            rules = file.read()
        with open(os.path.join(self.folder, "alerts_test.yaml"), encoding="utf-8") as file:
            tested = set(re.findall(r"alertname: (\w+)\n +exp_alerts", file.read()))
        self.assertEqual(tested, set(re.findall(r"alert: (\w+)", rules)))

        with open(os.path.join(SOURCES, "docs/prometheus/dashboard.json"), encoding="utf-8") as file:
            dashboard = json.load(file)
        panels = dashboard["panels"]
        self.assertEqual(len({panel["id"] for panel in panels}), len(panels))
        taken = set()
        for panel in panels:
            place = panel["gridPos"]
            for x in range(place["x"], place["x"] + place["w"]):
                for y in range(place["y"], place["y"] + place["h"]):
                    self.assertTrue(x < 24 and (x, y) not in taken, panel["title"])
                    taken.add((x, y))
        expressions = [target["expr"] for panel in panels for target in panel.get("targets", [])]
        self.assertGreater(len(expressions), 15)

        with Agent(configuration(None)) as agent:
            port = port_of(agent)
            self.wait_for_rows(port)

            def all_served():
                """the mark of the feed is among the metrics"""
                names = samples(get(port)[2]).keys()
                return names if "qos_feed_last_round_timestamp_seconds" in names else None
            served = wait_until(all_served)
            queries = [each.get("definition", "") for each in dashboard["templating"]["list"]]
            with open(os.path.join(SOURCES, "docs/agent.md"), encoding="utf-8") as file:
                document = file.read()
            for text in (rules, document, *expressions, *queries):
                self.assertEqual(set(re.findall(r"\b(?:qos|process)_[a-z0-9_]+", text)) - served, set())
            server = Server(self.folder, port)
            self.addCleanup(server.end)
            server.wait_for_first_scrape()
            for expression in expressions:
                for name, value in {"$__rate_interval": "1m", "$instance": ".*", "$interface": ".*"}.items():
                    expression = expression.replace(name, value)
                self.assertNotIn("$", expression)

                def found():
                    """the expression finds something"""
                    return server.query(expression)
                wait_until(found)
            self.assertEqual(agent.stop(), 0)

    def test_the_ledger_is_the_same_as_in_the_log(self):
        more = f"  file: {{type: capture, file: {self.folder}/all.qos}}\n"
        with Agent(configuration(self.database, "  one: {path: queue-statistics, every: 500ms}\n", more)) as agent:
            port = port_of(agent)

            def some_passes():
                """three passes have ended"""
                return int(samples(get(port)[2])["qos_subscription_passes_total"][
                    frozenset({("subscription", "one"), ("path", "queue-statistics")})]) >= 3
            wait_until(some_passes)
            # Between two passes.
            time.sleep(0.75 - time.time() % 0.5)
            found = samples(get(port)[2])
            ledger = agent.ledger()
            for metric, words in {"passes": "passes", "records": "records", "batches": "batches", "rows": "rows",
                                  "rows_not_sent": "not sent", "restarts": "restarts"}.items():
                (value,) = found[f"qos_subscription_{metric}_total"].values()
                self.assertEqual(int(value), ledger["one"][words], metric)
            for output in ("file", "metrics"):
                label = frozenset({("output", output)})
                offered = int(found["qos_output_records_offered_total"][label])
                self.assertGreater(offered, 0)
                self.assertEqual(offered, ledger[output]["offered"])
                dropped = sum(int(value) for labels, value in found["qos_output_records_dropped_total"].items()
                              if ("output", output) in labels)
                self.assertEqual(offered, int(found["qos_output_records_delivered_total"][label]) + dropped
                                 + int(found["qos_output_records_waiting"][label]))
            self.assertEqual(found["qos_agent_workers"], {frozenset(): "1"})
            self.assertLess(abs(float(found["process_start_time_seconds"][frozenset()]) - time.time()), 60)
            self.assertEqual(agent.stop(), 0)


if __name__ == "__main__":
    unittest.main()
