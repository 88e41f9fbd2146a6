"""The metrics' HTTP server: what it answers, and that no client holds it up or makes it grow."""

import http.client
import os
import socket
import sqlite3
import tempfile
import time
import unittest

from harness import MEASURED, Agent, wait_until
from metrics import configuration, get, make_database, port_of

CONNECTIONS = 64
ROWS = 8000


def resident(agent):
    """Bytes of the agent in memory."""
    with open(f"/proc/{agent.process.pid}/statm", encoding="ascii") as file:
        return int(file.read().split()[1]) * os.sysconf("SC_PAGESIZE")


class Http(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = scratch.name
        self.database = os.path.join(self.folder, "q.db")
        make_database(self.database).close()

    def sockets(self, port, count, send):
        """So many connections that take next to nothing from their socket."""
        made = []
        for _ in range(count):
            each = socket.socket()
            self.addCleanup(each.close)
            each.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            each.connect(("127.0.0.1", port))
            each.sendall(send)
            made.append(each)
        return made

    def scrape(self, port, seconds):
        begin = time.monotonic()
        self.assertEqual(get(port)[0], 200)
        self.assertLess(time.monotonic() - begin, seconds)

    def test_requests_and_answers(self):
        with Agent(configuration(self.database)) as agent:
            port = port_of(agent)
            status, fields, body = get(port)
            self.assertEqual((status, int(fields["Content-Length"])), (200, len(body.encode())))
            status, fields, body = get(port, method="HEAD")
            self.assertEqual((status, body), (200, ""))
            self.assertGreater(int(fields["Content-Length"]), 1000)
            self.assertEqual(get(port, "/")[0], 200)
            self.assertEqual(get(port, "/metrics?x=1")[0], 200)
            for path in ("/metric", "/metrics/", "/../metrics", "//", "/%ff"):
                self.assertEqual(get(port, path)[0], 404, path)
            for method in ("POST", "PUT", "DELETE", "OPTIONS", "TRACE", "X"):
                status, fields, _ = get(port, method=method)
                self.assertEqual((status, fields["Allow"]), (405, "GET, HEAD"), method)
            self.assertEqual(get(port, body=b"x")[0], 413)
            self.assertEqual(get(port, headers={"Transfer-Encoding": "chunked"}, body=iter([b"x" * 100]))[0], 413)
            self.assertEqual(get(port, headers={"X": "x" * 20000})[0], 431)
            self.assertEqual(get(port, "/" + "x" * 20000)[0], 414)
            for text in (b"\r\n\r\n \r\n", b"GET\r\n", b"GET / HTTP/1.1\r\n", b"\xff" * 5000, b"\x16\x03\x01\x00\r\n"):
                (each,) = self.sockets(port, 1, text + b"\r\n")
                each.settimeout(5)
                self.assertRegex(each.recv(4096), b"^(HTTP/1.[01] 400 |$)", text)
            # One connection for many requests, and several requests at once.
            connection = http.client.HTTPConnection("127.0.0.1", port, timeout=5)
            for _ in range(3):
                connection.request("GET", "/")
                self.assertEqual(connection.getresponse().read()[:10], b"Prometheus")
                first = connection.sock
            self.assertIs(connection.sock, first)
            connection.sock.sendall(b"GET / HTTP/1.1\r\nHost: x\r\n\r\n" * 2 +
                                    b"GET / HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n")
            answers = b""
            while piece := first.recv(4096):
                answers += piece
            self.assertEqual(answers.count(b"HTTP/1.1 200 OK"), 3)
            connection.close()
            self.assertEqual(agent.stop(), 0)

    def test_an_address_that_is_in_use_is_named(self):
        with socket.socket() as listener:
            listener.bind(("127.0.0.1", 0))
            listener.listen()
            address = f"127.0.0.1:{listener.getsockname()[1]}"
            agent = Agent(configuration(self.database).replace("127.0.0.1:0", address))
            self.assertEqual(agent.process.wait(10), 1)
            agent.__exit__(None, None, None)
            self.assertTrue(agent.said(f"cannot listen at {address}: Address already in use"), agent.lines)

    def test_idle_connections_make_room(self):
        with Agent(configuration(self.database)) as agent:
            port = port_of(agent)
            for text in (b"", b"GET /metrics HTTP/1.1\r\nX: ", b"GET / HTTP/1.1\r\nHost: x\r\n\r\n"):
                self.sockets(port, 3 * CONNECTIONS, text)
                self.scrape(port, 2)
            self.assertEqual(agent.stop(), 0)

    def test_slow_readers_cost_a_bounded_amount_of_memory(self):
        connection = sqlite3.connect(self.database)
        connection.execute("PRAGMA journal_mode = WAL")  # so that nothing waits for a pass
        connection.execute("WITH RECURSIVE n(i) AS (VALUES (0) UNION ALL SELECT i + 1 FROM n WHERE i < ?) "
                           "INSERT INTO queue_stat "
                           "SELECT 100 + i / 8, printf('ETH4/%026d', i / 8), i % 8, i, 0, 0, 0, 0, 0, 0, 0 FROM n",
                           (ROWS - 1,))
        connection.commit()
        with Agent(configuration(self.database, "  q: {path: queue-statistics, every: 100ms}\n"), MEASURED) as agent:
            port = port_of(agent)

            def all_rows():
                """all rows are served"""
                return get(port)[2].count("\nqos_queue_pass_packets_total{") == ROWS + 2
            wait_until(all_rows, 60)
            size = len(get(port)[2])
            self.assertGreater(size, 6 << 20)
            before = most = resident(agent)
            request = b"GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n"
            for _ in range(CONNECTIONS * 2 // 3):
                # Each time there is another text to send.
                connection.execute("UPDATE queue_stat SET passPackets = passPackets + 1")
                connection.commit()
                time.sleep(0.2)
                self.sockets(port, 1, request)
                most = max(most, resident(agent))
            # Of answers under way at most 64 MiB, of what is kept for the next one and is being made the rest.
            self.assertLess(most - before, (64 << 20) + 4 * size)
            slow = self.sockets(port, 2 * CONNECTIONS, request)
            begin = time.monotonic()
            statuses = set()
            while 200 not in statuses:
                self.assertLess(time.monotonic() - begin, 60)
                statuses.add(get(port)[0])  # waits for its turn; nobody is turned away
            self.assertLessEqual(statuses, {200, 503})
            self.assertEqual(agent.stop(), 0)
        connection.close()

    def test_a_flood_of_scrapes_does_not_hold_up_sampling(self):
        with Agent(configuration(self.database, "  q: {path: queue-statistics, every: 100ms}\n")) as agent:
            port = port_of(agent)
            connection = http.client.HTTPConnection("127.0.0.1", port, timeout=20)

            def passes(work):
                """How many there are in some seconds of the work, and of how many runs of it."""
                before = agent.ledger()["q"]["passes"]
                begin, count = time.monotonic(), 0
                while time.monotonic() - begin < 2:
                    work()
                    count += 1
                return agent.ledger()["q"]["passes"] - before, count

            def scrape():
                connection.request("GET", "/metrics")
                self.assertEqual(connection.getresponse().read()[:1], b"#")

            undisturbed, _ = passes(lambda: time.sleep(0.1))
            flooded, scrapes = passes(scrape)
            connection.close()
            self.assertGreater(scrapes, flooded)
            self.assertGreater(flooded, undisturbed / 2)
            self.assertEqual(agent.stop(), 0)


if __name__ == "__main__":
    unittest.main()
