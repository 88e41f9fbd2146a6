"""SIGHUP while outputs deliver, other settings for the same receivers, and an agent that ends meanwhile."""

import fcntl
import os
import signal
import subprocess
import tempfile
import time
import unittest

from harness import BIN, Agent, wait_until
from metrics import get, port_of

SIMULATED = """
device: {device}
feed: {{source: sim, every: 500ms, ports: {ports}, slots: 1, seed: 3}}
subscriptions:
  queues: {{path: queue-statistics, every: 500ms}}
outputs: {{{outputs}}}
"""


def configuration(outputs, device="one", ports=4):
    return SIMULATED.format(outputs=outputs, device=device, ports=ports)


class Reload(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.capture = os.path.join(scratch.name, "all.cap")

    def reload(self, agent, text):
        """What the agent says to it."""
        begin = len(agent.lines)
        agent.configure(text)
        agent.process.send_signal(signal.SIGHUP)
        said = ("is in force", "stays as it was", "is not read again")
        return wait_until(lambda: [line for line in agent.lines[begin:] if any(each in line for each in said)])[0]

    def test_the_same_file_and_place_under_other_settings(self):
        metrics = "metrics: {type: prometheus, listen: '127.0.0.1:0'}"
        with Agent(configuration(f"file: {{type: capture, file: {self.capture}}}, {metrics}")) as agent:
            port = port_of(agent)
            wait_until(lambda: agent.ledger()["file"]["delivered"] > 0)
            before = agent.ledger()["file"]["offered"]
            other = configuration(f"renamed: {{type: capture, file: {self.capture}, buffer: 512KiB, when-full: drop-newest}}, "
                                  + metrics.replace("metrics", "shown"), device="two")
            self.assertIn("is in force", self.reload(agent, other))
            self.assertNotIn("file", agent.ledger())
            self.assertGreaterEqual(agent.ledger()["renamed"]["offered"], before)
            text = get(port)[2]
            self.assertIn('device="two"', text)
            self.assertNotIn('device="one"', text)
            self.assertIn('output="shown"', text)
            self.assertEqual(agent.stop(), 0)
        shown = subprocess.run([os.path.join(BIN, "qos-host"), "decode", self.capture], capture_output=True, text=True)
        self.assertEqual((shown.returncode, shown.stderr), (0, ""))

    def test_two_outputs_do_not_have_one_receiver(self):
        for outputs in (f"a: {{type: capture, file: {self.capture}}}, b: {{type: capture, file: {self.capture}}}",
                        "a: {type: prometheus}, b: {type: prometheus}"):
            with tempfile.NamedTemporaryFile("w", suffix=".yaml") as file:
                file.write(configuration(outputs))
                file.flush()
                checked = subprocess.run([os.path.join(BIN, "qos-agent"), "check", file.name], capture_output=True, text=True)
            self.assertEqual(checked.returncode, 2)
            self.assertRegex(checked.stderr, r"yaml:\d+:\d+: .*the output a has '.*' already")

    def test_an_output_in_the_way_leaves_everything_as_it_was(self):
        with Agent(configuration("")) as agent, open(self.capture, "wb") as taken:
            fcntl.flock(taken, fcntl.LOCK_EX)
            before = agent.children()
            self.assertIn("stays as it was", self.reload(agent, configuration(
                f"file: {{type: capture, file: {self.capture}}}", ports=6)))
            self.assertEqual(agent.children(), before)
            self.assertNotIn("file", agent.ledger())

    def test_one_that_ends_is_not_begun_anew(self):
        with Agent(configuration("")) as agent:
            feed = agent.children()["qos-feed"][0]
            os.kill(feed, signal.SIGSTOP)  # it is waited for
            agent.process.send_signal(signal.SIGTERM)
            wait_until(lambda: "qos-worker" not in agent.children())
            self.assertIn("is not read again", self.reload(agent, configuration("", ports=6)))
            self.assertEqual(agent.process.wait(5), 0)

    def test_asked_twice_to_end_it_does_not_wait_and_says_what_was_lost(self):
        # Nobody reads the pipe that the capture's place is taken by, so that what waits cannot go.
        with Agent(configuration(f"file: {{type: capture, file: {self.capture}}}", ports=256)) as agent:
            wait_until(lambda: agent.ledger()["file"]["delivered"] > 0)
            os.unlink(self.capture)
            os.mkdir(self.capture)
            wait_until(lambda: agent.ledger()["file"]["waiting"] > 0, 20)
            agent.process.send_signal(signal.SIGTERM)
            time.sleep(0.2)
            begin = time.monotonic()
            self.assertEqual(agent.stop(signal.SIGINT), 1)
            self.assertLess(time.monotonic() - begin, 3)
            self.assertRegex(agent.lines[-1], "ledger of 1 subscriptions and 1 outputs: records were dropped")
            figures = [line for line in agent.lines if "output file: " in line][-1]
            self.assertRegex(figures, r"refused [1-9]")


if __name__ == "__main__":
    unittest.main()
