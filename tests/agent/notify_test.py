"""What the agent tells systemd: that it is ready, that it lives, that it reads its configuration again, that it stops."""

import os
import signal
import socket
import tempfile
import unittest

from harness import Agent, wait_until

SIMULATED = "feed: {source: sim, ports: 1, slots: 1}\nsubscriptions: {q: {path: queue-statistics}}\n"


class Notify(unittest.TestCase):
    def test_each_state_is_told(self):
        with tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as receiver:
            name = os.path.join(folder, "notify")
            receiver.bind(name)
            receiver.setblocking(False)
            told = []

            def has(state):
                try:
                    while True:
                        told.append(receiver.recv(4096).decode().split("\n")[0])
                except BlockingIOError:
                    return state in told

            with Agent(SIMULATED, {"NOTIFY_SOCKET": name, "WATCHDOG_USEC": "300000"}) as agent:
                wait_until(lambda: has("READY=1"))
                wait_until(lambda: has("WATCHDOG=1") and told.count("WATCHDOG=1") > 2, 3)
                told.clear()
                agent.process.send_signal(signal.SIGHUP)
                wait_until(lambda: has("READY=1"))
                self.assertLess(told.index("RELOADING=1"), told.index("READY=1"))
                self.assertEqual(agent.stop(), 0)
                self.assertTrue(has("STOPPING=1"))
            # A loop that stands still is not said to live.
            with Agent(SIMULATED, {"NOTIFY_SOCKET": name, "WATCHDOG_USEC": "300000"}) as agent:
                agent.process.send_signal(signal.SIGSTOP)
                has("")
                told.clear()
                with self.assertRaises(AssertionError):
                    wait_until(lambda: has("WATCHDOG=1"), 1)
                agent.process.send_signal(signal.SIGCONT)
                wait_until(lambda: has("WATCHDOG=1"), 3)


if __name__ == "__main__":
    unittest.main()
