"""Requests that cannot be served get their status and a text that says why, and harm nobody."""

import os
import time
import unittest

import gnmi_pb2 as gnmi
import gnmi_pb2_grpc
import grpc

from harness import MEASURED, wait_until
from stand import SECOND, Stand, Stream, list_path, memory, on_change, path_of, sample, subscribe

ECN = "port-ecn-statistics"
POLL = gnmi.SubscribeRequest(poll=gnmi.Poll())


def many_keys(count):
    path = list_path(ECN)
    for number in range(count):
        path.elem[3].key[f"key{number}"] = "1"
    return path


# Paths: the status, and what its text has.
PATHS = [
    (gnmi.Path(), "INVALID_ARGUMENT", "/qos is everything"),
    (path_of("qos", ""), "INVALID_ARGUMENT", "element 2 has no name"),
    (path_of("vexlor-qos:"), "INVALID_ARGUMENT", "element 1 has no name"),
    (path_of("interfaces"), "UNIMPLEMENTED", "path /interfaces: the schema has no 'interfaces' there, but qos"),
    (path_of("openconfig:qos"), "UNIMPLEMENTED", "no 'openconfig:qos'"),
    (path_of("qos", "global"), "UNIMPLEMENTED", "but global-query"),
    (path_of("qos", "global-query", "queue-statistics"), "UNIMPLEMENTED", "queue-statisticss, "),
    (path_of("qos", "global-query", "queue-statisticss", "queue"), "UNIMPLEMENTED", "but queue-statistics"),
    (list_path(ECN, "bytes"), "UNIMPLEMENTED", "but interface-name, packets"),
    (path_of("qos", "global-query", "port-ecn-statisticss", ECN, "packets", "more"), "UNIMPLEMENTED", "6 elements"),
    (path_of(*["x" * 100] * 1000), "UNIMPLEMENTED", "1000 elements"),
    (path_of("qos", origin="openconfig"), "UNIMPLEMENTED", "leave it empty, or write vexlor-qos"),
    (gnmi.Path(element=["qos"]), "INVALID_ARGUMENT", "use elem"),
    (path_of(("qos", {"a": 1})), "INVALID_ARGUMENT", "element 1 is no list"),
    (path_of("qos", "global-query", "port-ecn-statisticss", ECN, ("packets", {"a": 1})), "INVALID_ARGUMENT",
     "element 5 is no list"),
    (list_path(ECN, queue_id=1), "INVALID_ARGUMENT", "'queue-id' is no key of port-ecn-statistics, which has interface"),
    (list_path("queue-statistics", service_class="ef"), "INVALID_ARGUMENT", "whole number from 0 to 4294967295"),
    (list_path("queue-statistics", service_class=2**32), "INVALID_ARGUMENT", "whole number"),
    (list_path(ECN, interface_name="x" * 256), "INVALID_ARGUMENT", "256 bytes, the longest have 255"),
    (list_path(ECN, packets="*"), "INVALID_ARGUMENT", "'packets' is no key"),
    (many_keys(7000), "INVALID_ARGUMENT", "is no key"),
    (path_of("q\x1b[31mos\n\u202e"), "UNIMPLEMENTED", "q\\x1b[31mos\\x0a\\xe2\\x80\\xae"),
]

# Subscriptions of a list that is there.
SUBSCRIPTIONS = [
    (sample(list_path(ECN), 1e-9), "INVALID_ARGUMENT", "sample_interval 1 ns"),
    (sample(list_path(ECN), 0.999), "INVALID_ARGUMENT", "1000000000"),
    (gnmi.Subscription(path=list_path(ECN), mode="SAMPLE", sample_interval=2**64 - 1), "INVALID_ARGUMENT", "366 days"),
    (on_change(list_path(ECN), heartbeat_interval=1), "INVALID_ARGUMENT", "heartbeat_interval 1 ns"),
    (sample(list_path(ECN), 10, suppress_redundant=True, heartbeat_interval=9 * SECOND), "INVALID_ARGUMENT",
     "heartbeat_interval 9s is shorter than sample_interval 10s"),
    (gnmi.Subscription(path=list_path(ECN), mode=7), "UNIMPLEMENTED", "mode 7"),
]


class Faults(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.stand = Stand()
        cls.stand.__enter__()
        cls.addClassCleanup(cls.stand.__exit__, None, None, None)

    def setUp(self):
        # Somebody who notices when others are harmed.
        self.witness = self.stand.subscribe(list_path(ECN)).wait_sync()
        self.worker, = self.stand.workers()
        self.addCleanup(self.check_witness)

    def check_witness(self):
        count = len(self.witness.responses)
        wait_until(lambda: len(self.witness.responses) > count, 3)
        self.assertEqual(self.stand.workers(), [self.worker])
        self.assertIsNone(self.witness.error)
        self.witness.end()
        wait_until(lambda: not self.stand.workers())

    def check(self, error, status, text):
        self.assertEqual((error.code().name, text in error.details()), (status, True), error.details())
        self.assertLess(len(error.details()), 2000)

    def refused(self, status, text, *requests):
        stream = Stream(self.stand.stub, *requests)
        self.assertEqual(stream.wait_end().name, status)
        self.check(stream.error, status, text)

    def get_refused(self, status, text, **request):
        with self.assertRaises(grpc.RpcError) as caught:
            self.stand.stub.Get(gnmi.GetRequest(**{"encoding": "PROTO", **request}), timeout=10)
        self.check(caught.exception, status, text)

    def test_paths(self):
        for path, status, text in PATHS:
            with self.subTest(text=text):
                for mode in ("STREAM", "ONCE", "POLL"):
                    self.refused(status, text, subscribe(path, mode=mode))
                self.refused(status, text, subscribe(list_path(ECN), path))
                self.get_refused(status, text, path=[path])
                self.get_refused(status, text, path=[list_path("queue-statistics"), path])
        self.get_refused("NOT_FOUND", "there is no such row", path=[list_path(ECN, interface_name="ETH9/9/9")])
        self.get_refused("NOT_FOUND", "no such row", path=[list_path("queue-statistics", "pass-bytes", service_class=8)])
        self.get_refused("INVALID_ARGUMENT", "/qos is everything")
        # What does not exist may come: a stream waits for it.
        stream = self.stand.subscribe(list_path(ECN, interface_name="ETH9/9/9")).wait_sync()
        self.assertEqual(stream.rows(), {})
        self.stand.execute("INSERT INTO port_ecn_stat VALUES (9, 'ETH9/9/9', 1)")
        wait_until(lambda: stream.rows())
        self.stand.execute("DELETE FROM port_ecn_stat WHERE ifIndex = 9")
        stream.end()

    def test_subscriptions(self):
        for subscription, status, text in SUBSCRIPTIONS:
            with self.subTest(text=text):
                self.refused(status, text, subscribe(subscription))
                self.refused(status, text, subscribe(list_path(ECN), subscription))
        self.refused("UNIMPLEMENTED", "mode 9", subscribe(list_path(ECN), mode=9))
        for encoding, name in (("BYTES", "BYTES"), ("ASCII", "ASCII"), (77, "77")):
            self.refused("UNIMPLEMENTED", f"encoding {name} is not served: JSON_IETF, PROTO and JSON",
                         subscribe(list_path(ECN), encoding=encoding))
            self.get_refused("UNIMPLEMENTED", f"encoding {name}", path=[list_path(ECN)], encoding=encoding)
        models = [gnmi.ModelData(name="openconfig-qos")]
        self.refused("UNIMPLEMENTED", "vexlor-qos", subscribe(list_path(ECN), use_models=models))
        self.get_refused("UNIMPLEMENTED", "vexlor-qos", path=[list_path(ECN)], use_models=models)
        self.get_refused("INVALID_ARGUMENT", "type 9", path=[list_path(ECN)], type=9)
        self.refused("INVALID_ARGUMENT", "300 bytes", subscribe(list_path(ECN), prefix=gnmi.Path(target="t" * 300)))

    def test_order_of_messages(self):
        first = subscribe(list_path(ECN))
        self.refused("INVALID_ARGUMENT", "there is no subscription", subscribe())
        self.refused("INVALID_ARGUMENT", "first message", None)
        self.refused("INVALID_ARGUMENT", "first message", gnmi.SubscribeRequest())
        self.refused("INVALID_ARGUMENT", "first message", POLL)
        self.refused("INVALID_ARGUMENT", "one subscribe", first, first)
        self.refused("INVALID_ARGUMENT", "one subscribe", subscribe(list_path(ECN), mode="POLL"), first)
        self.refused("INVALID_ARGUMENT", "this stream has STREAM", first, POLL)
        # Polls that come faster than their answers are answered one after the other.
        polls = Stream(self.stand.stub, subscribe(list_path(ECN), mode="POLL"), *[POLL] * 20).wait_sync(20)
        time.sleep(0.2)
        self.assertEqual(polls.syncs(), 20)
        polls.send(first)
        self.assertEqual(polls.wait_end().name, "INVALID_ARGUMENT")

    def test_set(self):
        with self.assertRaises(grpc.RpcError) as caught:
            self.stand.stub.Set(gnmi.SetRequest())
        self.check(caught.exception, "UNIMPLEMENTED", "state")

    def test_requests_that_are_too_large(self):
        begin = time.monotonic()
        self.refused("RESOURCE_EXHAUSTED", "more than 64 lists", subscribe(*[gnmi.Path()] * 20000))
        self.refused("RESOURCE_EXHAUSTED", "more than 64 lists", subscribe(*[path_of("qos")] * 8))
        self.get_refused("RESOURCE_EXHAUSTED", "more than 64 lists", path=[gnmi.Path()] * 20000)
        for large in ([gnmi.Path()] * 100000, [path_of(("qos", {"k" * 5_000_000: 1}))]):
            self.refused("RESOURCE_EXHAUSTED", "larger than max", subscribe(*large))
            self.get_refused("RESOURCE_EXHAUSTED", "larger than max", path=large)
        self.assertLess(time.monotonic() - begin, 8)
        # As many lists as are allowed, with names of the greatest length, are not: here the last one is at fault.
        longest = [list_path("queue-statistics", "pass-bytes", interface_name="x" * 255, service_class=2**32 - 1)] * 63
        self.refused("UNIMPLEMENTED", "but interface-name", subscribe(*longest, list_path(ECN, "bytes")))

    def test_what_requests_of_the_largest_size_cost(self):
        empty = gnmi.Path()
        empty.elem.extend([gnmi.PathElem()] * 65000)
        models = [gnmi.ModelData()] * 65000
        unknown = gnmi.SubscribeRequest.FromString(b"\x7a\x00" * 65000 + subscribe(list_path(ECN)).SerializeToString())
        with Stand(environment=MEASURED) as stand:
            stand.get(list_path(ECN))
            before = memory(stand.process.pid)
            # Also while a stream lasts that has begun with such a one.
            streams = [Stream(stand.stub, unknown).wait_sync() for _ in range(8)]
            for request in ({"path": [empty]}, {"path": [list_path(ECN)], "use_models": models}):
                stream = Stream(stand.stub, subscribe(*request["path"], use_models=request.get("use_models")))
                self.assertEqual(stream.wait_end(), grpc.StatusCode.UNIMPLEMENTED)
                with self.assertRaises(grpc.RpcError) as caught:
                    stand.stub.Get(gnmi.GetRequest(encoding="PROTO", **request), timeout=10)
                self.assertEqual(caught.exception.code(), grpc.StatusCode.UNIMPLEMENTED)
            self.assertLess(memory(stand.process.pid) - before, 32_000_000)
            for stream in streams:
                stream.end()

    def test_bytes_that_are_no_message(self):
        for name in ("Get", "Set", "Capabilities", "Subscribe", "Nothing"):
            kind = self.stand.channel.stream_stream if name == "Subscribe" else self.stand.channel.unary_unary
            method = kind(f"/gnmi.gNMI/{name}")
            for request in (b"\xff" * 100, os.urandom(5000), b"\x0a\xff\xff\xff\xff\x0f", b"\x0a\x02\x0a\x00" * 1000):
                with self.subTest(method=name, request=request[:20]):
                    try:
                        if name == "Subscribe":
                            list(method(iter([request]), timeout=5))
                        else:
                            method(request, timeout=5)
                        # Fields that are not known are no fault.
                        self.assertIn(name, ("Set", "Capabilities"))
                    except grpc.RpcError as error:
                        self.assertNotIn(error.code().name, ("OK", "DEADLINE_EXCEEDED", "UNAVAILABLE"))

    def test_an_answer_that_is_too_large(self):
        with Stand(slots=8, ports=128) as stand:
            with self.assertRaises(grpc.RpcError) as caught:
                stand.get(list_path("queue-statistics"))
            self.check(caught.exception, "RESOURCE_EXHAUSTED", "subscribe in mode ONCE")
            self.assertEqual(len(stand.get(list_path("queue-statistics", service_class=1))["queue-statistics"]), 1024)
            once = stand.subscribe(list_path("queue-statistics"), mode="ONCE")
            self.assertEqual(once.wait_end(30), grpc.StatusCode.OK)
            self.assertEqual(once.rows()["queue-statistics"], stand.expected("queue-statistics"))
            self.assertLess(max(response.ByteSize() for _, response in once.responses), 1_000_000)
            accounts = stand.calls()["(ended)"]
            self.assertEqual(accounts["too_large"], 8192)
            self.assertEqual(accounts["delivered"], 8192 + 1024)
            self.assertEqual(stand.stop(), 1)


if __name__ == "__main__":
    unittest.main()
