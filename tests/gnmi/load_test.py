"""Clients that are slow, many, gone without a word, or there when the agent stops."""

import os
import signal
import subprocess
import sys
import time
import unittest

import gnmi_pb2 as gnmi
import gnmi_pb2_grpc
import grpc

from harness import MEASURED, wait_until
from stand import (Stand, Stream, list_path, memory, next_pass, on_change, path_of, rows_of, sample, subscribe,
                   take_apart)

QUEUES = "queue-statistics"


class Load(unittest.TestCase):
    def test_a_client_that_does_not_read_costs_its_bound_and_then_gets_the_newest(self):
        bound = 256 * 1024
        with Stand(slots=2, ports=64, settings=", buffer: 256KiB", environment=MEASURED) as stand:
            rows = len(stand.expected(QUEUES))
            witness = stand.subscribe(sample(list_path("port-ecn-statistics"))).wait_sync()
            channel = stand.connect_slowly()
            call = gnmi_pb2_grpc.gNMIStub(channel).Subscribe(iter([subscribe(sample(list_path(QUEUES)))]))
            self.assertTrue(next(call).update.update)

            def account():
                return next(each for name, each in stand.calls().items() if QUEUES in name)

            passes, most, grown = 12, 0, []
            for number in range(passes):
                # Rows that come and go unheard, and one that the client knows.
                come = ", ".join(f"({9000 + each}, 'new{number}-{each}', 0, 1, 1, 1, 1, 1, 1, 1, 1)" for each in range(100))
                stand.execute("UPDATE queue_stat SET passPackets = passPackets + 1",
                              "DELETE FROM queue_stat WHERE ifIndex >= 9000", f"INSERT INTO queue_stat VALUES {come}",
                              "DELETE FROM queue_stat WHERE ifName = 'ETH1/0/5' AND queueId = 5")
                next_pass()
                most = max(most, account()["bytes waiting"])
                if number >= passes // 3:
                    grown.append(memory(stand.process.pid))
            # One value of each row is a few hundred bytes.
            self.assertGreater(most, bound)
            self.assertLess(most, bound + (rows + 200) * 1000)
            # A pass replaces half a megabyte, and half of the passes four times as much; the kernel's huge pages and an
            # allocator's new region are steps, which come once.
            half = len(grown) // 2
            self.assertLess(min(grown[half:]) - min(grown[:half]), 1_500_000, grown)
            before = account()
            self.assertGreater(before["replaced"], rows * passes / 2)
            self.assertEqual(before["dropped"], before["replaced"])
            # Nobody else waited.
            self.assertGreaterEqual(len({each.timestamp for each in witness.notifications()}), passes)

            latest, duplicates, gone = {}, 0, set()
            newest = stand.expected(QUEUES)
            for response in call:
                for path in response.update.delete:
                    gone.add(take_apart(path)[1])
                    latest.pop(take_apart(path)[1], None)
                duplicates += sum(update.duplicates for update in response.update.update
                                  if update.path.elem[4].name == "pass-packets")
                latest.update(rows_of([response.update]).get(QUEUES, {}))
                if latest == newest:
                    break
            self.assertIn(("ETH1/0/5", "5"), gone)
            # Values of rows that went unheard left nothing; all others that were replaced are told.
            unheard = 100 * passes
            self.assertGreaterEqual(duplicates, before["replaced"] - unheard)
            self.assertLessEqual(duplicates, account()["replaced"])
            call.cancel()
            channel.close()
            wait_until(lambda: len(stand.calls()) == 2)

    def test_a_client_that_vanishes_leaves_nothing(self):
        program = ("import sys, grpc, gnmi_pb2_grpc; from stand import *\n"
                   "stub = gnmi_pb2_grpc.gNMIStub(grpc.insecure_channel('127.0.0.1:' + sys.argv[1]))\n"
                   "for response in stub.Subscribe(iter([subscribe(path_of('qos'))])):\n"
                   "    if response.sync_response: print('synced', flush=True)\n")
        with Stand() as stand:
            for number in (signal.SIGKILL, signal.SIGINT):
                client = subprocess.Popen([sys.executable, "-B", "-c", program, str(stand.port)],
                                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, cwd=os.path.dirname(__file__))
                with client:
                    self.assertEqual(client.stdout.readline(), b"synced\n")
                    self.assertEqual(len(stand.workers()), 9)
                    client.send_signal(number)
                wait_until(lambda: not stand.workers(), 5)
                wait_until(lambda: list(stand.calls()) == ["(ended)"], 5)
            self.assertNotIn("zombie", stand.children())
            # One that is there, but has no power: nothing is read, nothing is answered. What tells is a ping.
            client = subprocess.Popen([sys.executable, "-B", "-c", program, str(stand.port)], stdout=subprocess.PIPE,
                                      cwd=os.path.dirname(__file__))
            with client:
                self.assertEqual(client.stdout.readline(), b"synced\n")
                client.send_signal(signal.SIGSTOP)
                wait_until(lambda: not stand.workers(), 45)
                client.kill()

    def test_as_many_streams_as_are_allowed(self):
        with Stand(settings=", max-subscriptions: 64") as stand:
            services = range(8)
            channels = [stand.connect() for _ in range(4)]
            stubs = [gnmi_pb2_grpc.gNMIStub(channel) for channel in channels]
            streams = [Stream(stubs[number % 4], subscribe(on_change(list_path(QUEUES, service_class=number % 8))))
                       for number in range(64)]
            for stream in streams:
                stream.wait_sync(1, 60)
            self.assertEqual(len(stand.workers()), 64)
            for request in (subscribe(list_path(QUEUES)), subscribe(path_of("qos"))):
                refused = Stream(stand.stub, request)
                self.assertEqual(refused.wait_end(), grpc.StatusCode.RESOURCE_EXHAUSTED)
                self.assertRegex(refused.error.details(), "^path /qos.*: 64 .*: end another stream, or raise max-sub")
            with self.assertRaises(grpc.RpcError) as caught:
                stand.get(list_path(QUEUES))
            self.assertEqual(caught.exception.code(), grpc.StatusCode.RESOURCE_EXHAUSTED)
            self.assertRegex(caught.exception.details(), f"^path /qos/.*/{QUEUES}: 64 .*: end another stream")
            stand.execute("UPDATE queue_stat SET dropPackets = dropPackets + 1 WHERE ifIndex % 2 = 0")
            time.sleep(4)
            for number, stream in enumerate(streams):
                self.assertEqual(stream.rows(), {QUEUES: stand.expected(
                    QUEUES, lambda row: row["service-class"] == services[number % 8])})
                self.assertEqual(stream.syncs(), 1)
                stream.end()
            for channel in channels:
                channel.close()
            wait_until(lambda: not stand.workers())
            self.assertEqual(len(stand.get(list_path(QUEUES))[QUEUES]), 128)

    def test_streams_that_say_nothing_are_counted(self):
        with Stand() as stand:
            idle = [Stream(gnmi_pb2_grpc.gNMIStub(channel)) for channel in [stand.connect(), stand.connect()]
                    for _ in range(128)]
            wait_until(lambda: len(stand.calls()) == 256)
            refused = Stream(stand.stub)
            self.assertEqual(refused.wait_end(), grpc.StatusCode.RESOURCE_EXHAUSTED)
            idle[0].end()
            wait_until(lambda: len(stand.calls()) == 255)
            stand.subscribe(list_path(QUEUES)).wait_sync().end()
            for stream in idle[1:]:
                self.assertEqual(stream.wait_end(40), grpc.StatusCode.INVALID_ARGUMENT)
            self.assertIn("no subscribe came within", idle[1].error.details())

    def test_the_agent_stops_while_clients_listen(self):
        with Stand(slots=2, ports=64) as stand:
            streams = [stand.subscribe(path_of("qos")).wait_sync(), stand.subscribe(list_path(QUEUES), mode="POLL")]
            # One that does not read is waited for no longer than the agent says.
            channel = stand.connect_slowly()
            call = gnmi_pb2_grpc.gNMIStub(channel).Subscribe(iter([subscribe(sample(list_path(QUEUES)))]))
            next(call)
            next_pass(2)
            begin = time.monotonic()
            self.assertEqual(stand.stop(), 1)
            self.assertLess(time.monotonic() - begin, 8)
            for stream in streams:
                self.assertEqual(stream.wait_end(), grpc.StatusCode.UNAVAILABLE)
                self.assertIn("stopping", stream.error.details())
        with Stand() as stand:
            stream = stand.subscribe(path_of("qos")).wait_sync()
            begin = time.monotonic()
            self.assertEqual(stand.stop(), 0)
            self.assertLess(time.monotonic() - begin, 2)
            self.assertEqual(stream.wait_end(), grpc.StatusCode.UNAVAILABLE)

    def test_settings_that_change_while_the_agent_runs(self):
        with Stand() as stand:
            with open(stand.file, encoding="utf-8") as file:
                text = file.read()
            stream = stand.subscribe(list_path(QUEUES)).wait_sync()
            for count, settings in enumerate((text + "subscriptions: {a: {path: queue-statistics}}\n",
                                              text.replace("insecure: true", "insecure: true, buffer: 1MiB")), 1):
                stand.configure(settings)
                stand.process.send_signal(signal.SIGHUP)
                wait_until(lambda: len(stand.said("is in force")) == count)
                if count == 1:
                    next_pass()
                    self.assertIsNone(stream.error)
            # Other settings are another service, at the same address.
            self.assertEqual(stream.wait_end(), grpc.StatusCode.UNAVAILABLE)
            stand.subscribe(list_path(QUEUES)).wait_sync(1, 20).end()
            self.assertEqual(stand.stop(), 0)


if __name__ == "__main__":
    unittest.main()
