"""Clients that do not take what their calls end with: it is bounded, in bytes and in time, and accounted for."""

import unittest

import gnmi_pb2 as gnmi
import gnmi_pb2_grpc
import grpc

from harness import MEASURED, wait_until
from stand import Stand, list_path, memory, subscribe

QUEUES = "queue-statistics"
ROWS = 8 * 128 * 8


class Slow(unittest.TestCase):
    def test_answers_that_nobody_takes(self):
        large = gnmi.GetRequest(encoding="PROTO", path=[list_path(QUEUES, service_class=each) for each in (1, 2)])
        with Stand(slots=8, ports=128, environment=MEASURED) as stand:
            before = memory(stand.process.pid)
            channel = stand.connect_slowly()
            # For the client's library a call whose answers are many is one that it does not read of itself.
            get = channel.unary_stream("/gnmi.gNMI/Get", request_serializer=gnmi.GetRequest.SerializeToString,
                                       response_deserializer=gnmi.GetResponse.FromString)

            def calls(kind, figure):
                return [account[figure] for name, account in stand.calls().items() if f" {kind} of " in name]

            most = 11
            gets = []
            for number in range(1, most + 1):
                gets.append(get(large))
                wait_until(lambda: calls("Get", "waiting") == [2048] * number)
            once = gnmi_pb2_grpc.gNMIStub(channel).Subscribe(iter([subscribe(list_path(QUEUES), mode="ONCE")]))
            wait_until(lambda: calls("ONCE", "offered") == [ROWS])
            # Another one has no room; what is smaller has.
            with self.assertRaises(grpc.RpcError) as caught:
                stand.stub.Get(large, timeout=10)
            self.assertEqual(caught.exception.code(), grpc.StatusCode.RESOURCE_EXHAUSTED)
            self.assertRegex(caught.exception.details(), "^path /qos/.*: answers to Get .* have not taken")
            self.assertEqual(len(stand.get(list_path(QUEUES, interface_name="ETH1/0/1"))[QUEUES]), 8)
            # Some 3 MB each, twice; as objects they would be ten times as much.
            self.assertLess(memory(stand.process.pid) - before, 110_000_000)
            ended = stand.calls()["(ended)"]
            self.assertGreaterEqual(ended["full"], 1024)
            self.assertEqual((ended["full"], ended["delivered"]), (ended["dropped"], 8))

            wait_until(lambda: not calls("Get", "waiting"), 40)
            ended = stand.calls()["(ended)"]
            self.assertEqual((ended["stopped"], ended["delivered"]), (most * 2048, 8))
            self.assertEqual(sum(len(each.update) for each in stand.stub.Get(large, timeout=10).notification), 2048 * 10)
            # A client of ONCE may take its time for each message, but must take it.
            wait_until(lambda: not calls("ONCE", "waiting"), 60)
            ended = stand.calls()["(ended)"]
            self.assertEqual(ended["stopped"] + ended["delivered"], most * 2048 + 8 + 2048 + ROWS)
            once.cancel()
            channel.close()


if __name__ == "__main__":
    unittest.main()
