"""Connections, however many, keep no client out for longer than they last, and leave the agent what else it needs."""

import os
import resource
import signal
import socket
import time
import unittest

import gnmi_pb2 as gnmi
import gnmi_pb2_grpc
import grpc

from harness import wait_until
from stand import Stand, list_path

ECN = "port-ecn-statistics"


def processor_time(process):
    with open(f"/proc/{process}/stat", encoding="utf-8") as file:
        times = file.read().rpartition(")")[2].split()[11:13]
    return sum(int(each) for each in times) / os.sysconf("SC_CLK_TCK")


class Connections(unittest.TestCase):
    def setUp(self):
        self.stand = Stand()
        self.stand.__enter__()
        self.addCleanup(self.stand.__exit__, None, None, None)
        self.process = self.stand.process.pid

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process}/fd"))

    def limit(self, descriptors):
        _, most = resource.prlimit(self.process, resource.RLIMIT_NOFILE)
        resource.prlimit(self.process, resource.RLIMIT_NOFILE, (descriptors, most))

    def connect(self, count):
        connections = [socket.create_connection(("127.0.0.1", self.stand.port)) for _ in range(count)]
        for connection in connections:
            self.addCleanup(connection.close)
        return connections

    def served(self):
        """A new client gets an answer."""
        with self.stand.connect() as channel:
            try:
                gnmi_pb2_grpc.gNMIStub(channel).Capabilities(gnmi.CapabilityRequest(), timeout=2)
                return True
            except grpc.RpcError:
                return False

    def goes_on(self, stream):
        count = len(stream.responses)
        wait_until(lambda: len(stream.responses) > count, 3)
        self.assertIsNone(stream.error)

    def test_more_than_there_are_descriptors(self):
        stream = self.stand.subscribe(list_path(ECN)).wait_sync()
        before = self.descriptors()
        self.limit(100)
        connections = self.connect(200)
        wait_until(lambda: self.stand.said("takes no more connections"))
        self.assertFalse(self.served())
        self.assertLess(self.descriptors(), 60)
        # What is left is for what else there is to do.
        worker, = self.stand.workers()
        os.kill(worker, signal.SIGKILL)
        wait_until(lambda: self.stand.workers() not in ([], [worker]))
        self.goes_on(stream)
        for connection in connections:
            connection.close()
        wait_until(self.served)
        # Whoever says nothing is closed.
        self.connect(200)
        wait_until(lambda: self.descriptors() >= 45)
        wait_until(lambda: self.descriptors() <= before, 15)
        self.assertTrue(self.served())
        self.goes_on(stream)
        wait_until(lambda: self.stand.said("taking gNMI connections goes on after"), 15)
        self.assertEqual(len(self.stand.said("takes no more connections")), 1, self.stand.lines)
        self.assertEqual(self.stand.stop(), 0)

    def test_none_is_left(self):
        before, _ = resource.prlimit(self.process, resource.RLIMIT_NOFILE)
        self.limit(self.descriptors())
        waiting, = self.connect(1)
        wait_until(lambda: self.stand.said("takes no more connections: Too many open files"))
        begin = processor_time(self.process)
        time.sleep(3)
        self.assertLess(processor_time(self.process) - begin, 0.3)
        self.limit(before)
        wait_until(self.served)
        waiting.close()


if __name__ == "__main__":
    unittest.main()
