"""Every value that arrives is the database's: all lists, all encodings, every way to ask."""

import re
import subprocess
import sys
import time
import unittest

import gnmi_pb2 as gnmi

from stand import LISTS, Stand, Stream, list_path, path_of, rows_of, subscribe

ENCODINGS = ("PROTO", "JSON_IETF", "JSON")


class Values(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.stand = Stand()
        # Numbers that are not exact as floating-point ones.
        cls.stand.execute("UPDATE queue_stat SET passBytes = 9007199254740993 + queueId WHERE ifIndex % 2 = 0",
                          "UPDATE port_ecn_stat SET packets = 9223372036854775807 WHERE ifIndex = 1025")
        cls.stand.__enter__()
        cls.addClassCleanup(cls.stand.__exit__, None, None, None)
        cls.all = {alias: cls.stand.expected(alias) for alias in LISTS}
        for alias, rows in cls.all.items():
            assert rows, alias

    def test_every_way_to_ask_answers_with_all_that_the_database_has(self):
        everything = path_of("qos")
        for encoding in ENCODINGS:
            with self.subTest(encoding=encoding):
                self.assertEqual(self.stand.get(everything, encoding=encoding), self.all)
                once = self.stand.subscribe(everything, mode="ONCE", encoding=encoding)
                self.assertEqual(once.wait_end().name, "OK")
                self.assertEqual(once.rows(), self.all)
                self.assertTrue(once.responses[-1][1].sync_response)
                self.assertEqual(once.syncs(), 1)
                stream = self.stand.subscribe(everything, encoding=encoding).wait_sync()
                self.assertEqual(stream.rows(), self.all)
                stream.end()
        poll = self.stand.subscribe(everything, mode="POLL")
        time.sleep(0.5)
        self.assertEqual(poll.responses, [])
        for count in (1, 2):
            since = len(poll.responses)
            poll.send(gnmi.SubscribeRequest(poll=gnmi.Poll()))
            poll.wait_sync(count)
            self.assertEqual(poll.rows(since), self.all)
            self.assertEqual(poll.syncs(), count)
        poll.requests.put(None)
        self.assertEqual(poll.wait_end().name, "OK")

    def test_a_path_addresses_what_it_says(self):
        def asked(path, **more):
            rows = self.stand.get(path, **more)
            return rows["queue-statistics"] if rows else {}

        def queues(where):
            return self.stand.expected("queue-statistics", where)

        whole = self.all["queue-statistics"]
        container = path_of("vexlor-qos:qos", "global-query", "queue-statisticss")
        for path in (container, list_path("queue-statistics"),
                     list_path("queue-statistics", interface_name="*", service_class="*")):
            self.assertEqual(asked(path), whole)
        name = "ETH1/0/3"
        self.assertEqual(asked(list_path("queue-statistics", interface_name=name)),
                         queues(lambda row: row["interface-name"] == name))
        self.assertEqual(asked(list_path("queue-statistics", service_class=5)),
                         queues(lambda row: row["service-class"] == 5))
        self.assertEqual(len(asked(list_path("queue-statistics", service_class=5, interface_name=name))), 1)
        self.assertEqual(self.stand.get(list_path("interface-monitoring-result", queue_id=2)),
                         {"interface-monitoring-result": self.stand.expected("interface-monitoring-result",
                                                                             lambda row: row["queue-id"] == 2)})
        self.assertEqual(asked(list_path("queue-statistics", "pass-bytes")),
                         {key: {"pass-bytes": row["pass-bytes"]} for key, row in whole.items()})
        # What the prefix has, the path need not have; names of the client come back.
        half = gnmi.Path(origin="vexlor-qos", target="leaf-3", elem=container.elem[:2])
        response = self.stand.stub.Get(gnmi.GetRequest(prefix=half, path=[path_of(*["queue-statisticss"])],
                                                       encoding="PROTO"))
        self.assertEqual(rows_of(response.notification)["queue-statistics"], whole)
        self.assertEqual({(each.prefix.target, each.prefix.origin, len(each.prefix.elem))
                          for each in response.notification}, {("leaf-3", "vexlor-qos", 0)})

    def test_the_path_of_each_row_asks_for_that_row(self):
        # Names with operators of the pattern language, that differ in case only, with a byte that is no UTF-8, the
        # longest one, and one that looks like such a byte.
        names = ["eth(0)", "eth.0.", "ETH(0)", "[a-z]+", "a*b|c", "w" * 31, "100%", "\\xff", "Ü"]
        self.stand.execute("CREATE TABLE kept AS SELECT * FROM port_ecn_stat", "DELETE FROM port_ecn_stat",
                           *(f"INSERT INTO port_ecn_stat VALUES ({number + 7}, '{name}', {number})"
                             for number, name in enumerate(names)),
                           "INSERT INTO port_ecn_stat VALUES (99, CAST(x'6580' AS TEXT), 99)")
        self.addCleanup(self.stand.execute, "DELETE FROM port_ecn_stat",
                        "INSERT INTO port_ecn_stat SELECT * FROM kept", "DROP TABLE kept")
        rows = self.stand.get(list_path("port-ecn-statistics"))["port-ecn-statistics"]
        self.assertEqual({key for key, in rows}, {*names, "e\\x80"})
        for (name,), row in rows.items():
            for encoding in ENCODINGS:
                self.assertEqual(self.stand.get(list_path("port-ecn-statistics", interface_name=name),
                                                encoding=encoding), {"port-ecn-statistics": {(name,): row}})

    def test_capabilities_health_and_reflection(self):
        answer = self.stand.stub.Capabilities(gnmi.CapabilityRequest())
        self.assertEqual(answer.gNMI_version, "0.10.0")
        self.assertEqual([gnmi.Encoding.Name(each) for each in answer.supported_encodings],
                         ["JSON_IETF", "PROTO", "JSON"])
        with open(f"{__file__.rpartition('/tests/')[0]}/schema/vexlor-qos.yang", encoding="utf-8") as yang:
            text = yang.read()
        model, = answer.supported_models
        self.assertEqual(model.name, "vexlor-qos")
        self.assertIn(f"revision {model.version} {{", text)
        self.assertIn(f'organization "{model.organization}"', text)
        channel = self.stand.channel
        for service in (b"", b"\n\tgnmi.gNMI"):
            self.assertEqual(channel.unary_unary("/grpc.health.v1.Health/Check")(service), b"\x08\x01")
        listed = channel.stream_stream("/grpc.reflection.v1alpha.ServerReflection/ServerReflectionInfo")(
            iter([b"\x3a\x00"]))
        self.assertIn(b"gnmi.gNMI", next(listed))

    def test_times_are_those_of_the_reading(self):
        begin = time.time_ns()
        stream = self.stand.subscribe(list_path("port-ecn-statistics")).wait_sync()
        time.sleep(2.2)
        stream.end()
        times = [notification.timestamp for notification in stream.notifications()]
        self.assertGreaterEqual(len(times), 3)
        self.assertEqual(times, sorted(times))
        for arrival, response in stream.responses:
            if response.HasField("update"):
                self.assertLess(abs(arrival * 1e9 - response.update.timestamp), 0.5e9)
        self.assertGreaterEqual(times[0], begin - 2_000_000)

    def test_a_get_of_nothing(self):
        response = self.stand.stub.Get(gnmi.GetRequest(path=[path_of("qos")], type="CONFIG", encoding="PROTO"))
        self.assertEqual([len(each.update) for each in response.notification], [0])
        self.assertEqual(self.stand.get(path_of("qos"), type="STATE"), self.all)

    def test_the_example_of_the_manual(self):
        with open(f"{__file__.rpartition('/tests/')[0]}/docs/agent.md", encoding="utf-8") as manual:
            program, = re.findall("```python\n(.*?)```", manual.read(), re.DOTALL)
        client = subprocess.Popen([sys.executable, "-uc", program.replace("9339", str(self.stand.port))],
                                  stdout=subprocess.PIPE, text=True)
        with client:
            said = []
            while not said or "changes follow" not in said[-1]:
                said.append(client.stdout.readline())
                self.assertNotEqual(said[-1], "")
            client.kill()
        row = self.all["queue-statistics"]["ETH1/0/2", "5"]
        self.assertIn(f"ETH1/0/2 pass-bytes {row['pass-bytes']}\n", said)

    def test_a_client_that_has_said_all_still_hears(self):
        call = self.stand.stub.Subscribe(iter([subscribe(list_path("port-ecn-statistics"))]))
        arrived = [next(call) for _ in range(4)]
        call.cancel()
        self.assertEqual([each.sync_response for each in arrived], [False, True, False, False])


if __name__ == "__main__":
    unittest.main()
