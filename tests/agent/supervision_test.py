"""Workers, the feed and the agent itself end in every way; nobody else notices, and the ledger knows."""

import glob
import os
import signal
import subprocess
import tempfile
import time
import unittest

from harness import BIN, Agent, alive, wait_until

SIMULATED = """
feed: {source: sim, every: 500ms, ports: 4, slots: 1, seed: 3}
subscriptions:
  first: {path: queue-statistics, every: 500ms}
  second: {path: queue-statistics, every: 500ms}
  drops: {path: queue-drop-statistics, every: 500ms, suppress-redundant: 60s}
"""


def missing(before, after, seconds, every=0.5):
    """The passes that a subscription made fewer than it has beats, one at the edge aside."""
    return seconds / every - (after["passes"] - before["passes"]) - 1


class Supervision(unittest.TestCase):
    def worker_of(self, agent, name):
        """The worker whose end restarts the subscription: found by ending it is too late, so by its order of starting."""
        return sorted(agent.children()["qos-worker"])[sorted(["first", "second", "drops"]).index(name)]

    def test_a_killed_worker_is_started_again_and_the_others_go_on(self):
        with Agent(SIMULATED) as agent:
            wait_until(lambda: agent.ledger()["first"]["passes"] > 1)
            begin, before = time.monotonic(), agent.ledger()
            for _ in range(2):
                victim = self.worker_of(agent, "drops")
                os.kill(victim, signal.SIGKILL)
                wait_until(lambda: victim not in agent.children().get("qos-worker", []))
                wait_until(lambda: len(agent.children().get("qos-worker", [])) == 3)
            after, seconds = agent.ledger(), time.monotonic() - begin
            restarts = {name: after[name]["restarts"] for name in ("first", "second", "drops")}
            self.assertEqual(sum(restarts.values()), 2)
            for name, count in restarts.items():
                if count == 0:
                    self.assertLessEqual(missing(before[name], after[name], seconds), 0, name)
                    self.assertEqual(after[name]["missed"], before[name]["missed"])
            self.assertTrue(agent.said("was killed by signal 9"))
            self.assertNotIn("zombie", agent.children())
            self.assertEqual(agent.stop(), 0)

    def test_a_stopped_worker_is_ended_and_started_again(self):
        with Agent(SIMULATED) as agent:
            wait_until(lambda: agent.ledger()["first"]["passes"] > 0)
            begin, before = time.monotonic(), agent.ledger()
            victim = agent.children()["qos-worker"][0]
            os.kill(victim, signal.SIGSTOP)
            wait_until(lambda: agent.said("answered nothing for 10 s"), 15)
            wait_until(lambda: not alive(victim))
            wait_until(lambda: len(agent.children().get("qos-worker", [])) == 3)
            after, seconds = agent.ledger(), time.monotonic() - begin
            self.assertEqual(sorted(after[name]["restarts"] for name in ("first", "second", "drops")), [0, 0, 1])
            for name in ("first", "second", "drops"):
                if after[name]["restarts"] == 0:
                    self.assertLessEqual(missing(before[name], after[name], seconds), 0, name)
            self.assertNotIn("zombie", agent.children())

    def test_a_killed_feed_is_started_again(self):
        with Agent(SIMULATED) as agent:
            first = agent.children()["qos-feed"]
            os.kill(first[0], signal.SIGKILL)
            wait_until(lambda: agent.children().get("qos-feed", first) != first)
            before = agent.ledger()["first"]
            wait_until(lambda: agent.ledger()["first"]["passes"] > before["passes"] + 1)
            self.assertEqual(agent.ledger()["first"]["failed"], 0)
            self.assertTrue(agent.said("the feed was killed by signal 9"))

    def test_a_stopped_feed_is_ended_and_started_again(self):
        with Agent(SIMULATED) as agent:
            wait_until(lambda: agent.ledger()["first"]["passes"] > 0)
            begin, before = time.monotonic(), agent.ledger()
            victim = agent.children()["qos-feed"][0]
            os.kill(victim, signal.SIGSTOP)
            wait_until(lambda: agent.said("the feed has done nothing for 10"), 16)
            wait_until(lambda: not alive(victim))
            wait_until(lambda: agent.children().get("qos-feed"))
            after, seconds = agent.ledger(), time.monotonic() - begin
            for name in ("first", "second", "drops"):
                self.assertLessEqual(missing(before[name], after[name], seconds), 0, name)
                self.assertEqual(after[name]["failed"], 0)
                self.assertEqual(after[name]["restarts"], 0)
            # The new one works: rows change again.
            wait_until(lambda: agent.ledger()["drops"]["records"] > after["drops"]["records"])
            self.assertEqual(len(agent.said("started again")), 1)
            self.assertNotIn("zombie", agent.children())

    def test_nothing_is_left_of_an_agent_that_is_killed(self):
        with Agent(SIMULATED) as agent:
            children = [process for group in agent.children().values() for process in group]
            self.assertEqual(len(children), 4)
            for each in children[::2]:
                os.kill(each, signal.SIGSTOP)
            folder = os.path.dirname(agent.database())
            agent.process.kill()
            wait_until(lambda: not any(alive(each) for each in children), 1)
            # Its database is there; the next agent removes it.
            self.assertTrue(os.path.isdir(folder))
            with Agent(SIMULATED, {"RUNTIME_DIRECTORY": os.path.dirname(folder)}):
                self.assertFalse(os.path.isdir(folder))

    def test_agents_that_begin_together_leave_each_other_and_strangers_alone(self):
        with tempfile.TemporaryDirectory() as folder:
            for name in ("qos-agent.d", "qos-agent.backup", "qos-agent-db.backups", "qos-agent-db.Ab12C."):
                os.mkdir(os.path.join(folder, name))
            strangers = set(os.listdir(folder))
            os.mkdir(os.path.join(folder, "qos-agent-db.Ab12Cd"))  # somebody's who was killed
            file = os.path.join(folder, "a.yaml")
            strangers.add("a.yaml")
            with open(file, "w", encoding="utf-8") as out:
                out.write("feed: {source: sim}\n")
            agents = [subprocess.Popen([os.path.join(BIN, "qos-agent"), "run", file], stderr=subprocess.DEVNULL,
                                       env={**os.environ, "RUNTIME_DIRECTORY": folder}) for _ in range(8)]
            try:
                wait_until(lambda: len(glob.glob(f"{folder}/qos-agent-db.*/qos.db")) == len(agents), 30)
                self.assertEqual(len(os.listdir(folder)), len(strangers) + len(agents))
            finally:
                for agent in agents:
                    agent.terminate()
            self.assertEqual({agent.wait(20) for agent in agents}, {0})
            self.assertEqual(set(os.listdir(folder)), strangers)

    def test_it_ends_when_asked_while_it_begins(self):
        for _ in range(10):
            with tempfile.TemporaryDirectory() as folder, tempfile.NamedTemporaryFile("w") as file:
                file.write("feed: {source: sim}\n")
                file.flush()
                agent = subprocess.Popen([os.path.join(BIN, "qos-agent"), "run", file.name], stderr=subprocess.DEVNULL,
                                         env={**os.environ, "RUNTIME_DIRECTORY": folder})
                end = time.monotonic() + 10
                while not os.listdir(folder) and time.monotonic() < end:
                    pass  # the moment is short
                agent.terminate()
                self.assertEqual((agent.wait(10), os.listdir(folder)), (0, []))

    def test_it_ends_when_asked_and_leaves_no_file(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            with Agent(SIMULATED) as agent:
                children = [process for group in agent.children().values() for process in group]
                self.assertEqual(agent.stop(number), 0)
                wait_until(lambda: not any(alive(each) for each in children), 2)
                self.assertEqual(os.listdir(os.path.join(agent.folder, "run")), [])
                self.assertTrue(agent.said("subscription first: passes"))

    def test_a_slow_pass_costs_the_beats_that_it_misses(self):
        with Agent(SIMULATED) as agent:
            wait_until(lambda: agent.ledger()["first"]["passes"] > 0)
            workers = agent.children()["qos-worker"]
            begin = time.monotonic()
            for worker in workers:
                os.kill(worker, signal.SIGSTOP)
            time.sleep(3)
            for worker in workers:
                os.kill(worker, signal.SIGCONT)
            stopped = time.monotonic() - begin
            after = wait_until(lambda: (figures := agent.ledger())["first"]["missed"] > 0 and figures)
            self.assertAlmostEqual(after["first"]["missed"], stopped / 0.5 - 1, delta=1)
            begin, passes = time.monotonic(), after["first"]["passes"]
            time.sleep(1)
            made = agent.ledger()["first"]["passes"] - passes
            self.assertLessEqual(made, (time.monotonic() - begin) / 0.5 + 2)  # no burst to catch up


class Reload(unittest.TestCase):
    def test_only_what_changed_is_touched(self):
        with Agent(SIMULATED) as agent:
            wait_until(lambda: agent.ledger()["first"]["passes"] > 0)
            before = agent.children()
            agent.configure(SIMULATED.replace("  second: {path: queue-statistics, every: 500ms}",
                                              "  second: {path: queue-statistics, every: 200ms}\n"
                                              "  third: {path: port-ecn-statistics}"))
            agent.process.send_signal(signal.SIGHUP)
            wait_until(lambda: agent.said("is in force"))
            after = wait_until(lambda: len((all := agent.children()).get("qos-worker", [])) == 4 and all)
            self.assertEqual(after["qos-feed"], before["qos-feed"])
            self.assertEqual(len(set(after["qos-worker"]) & set(before["qos-worker"])), 2)
            wait_until(lambda: agent.ledger()["third"]["passes"] > 0)
            self.assertGreater(agent.ledger()["first"]["passes"], 0)

    def test_another_feed_takes_the_place_of_the_first(self):
        with Agent(SIMULATED) as agent:
            before = agent.children()["qos-feed"]
            agent.configure(SIMULATED.replace("ports: 4", "ports: 6"))
            agent.process.send_signal(signal.SIGHUP)
            wait_until(lambda: agent.children().get("qos-feed", before) != before)
            wait_until(lambda: agent.ledger().get("first", {}).get("passes", 0) > 0)
            figures = agent.ledger()["first"]
            self.assertEqual(figures["records"], figures["passes"] * 6 * 8)

    def test_its_own_feed_is_no_second_one(self):
        with tempfile.TemporaryDirectory() as folder:
            text = SIMULATED + f"database: {folder}/q.db\n"
            for _ in range(2):  # the second one finds a fresh mark of a feed that is no more
                with Agent(text) as agent:
                    agent.configure(text + "device: other\n")
                    agent.process.send_signal(signal.SIGHUP)
                    wait_until(lambda: agent.said("is in force"))
                    self.assertEqual(agent.stop(), 0)
                    self.assertFalse(agent.said("already"))

    def test_a_faulty_file_is_refused_whole(self):
        with Agent(SIMULATED) as agent:
            before = agent.children()
            agent.configure(SIMULATED.replace("ports: 4", "ports: 6") + "outputs: {metrics: {type: prometheus, port: 1}}\n"
                            "gnmi: 5\n")
            agent.process.send_signal(signal.SIGHUP)
            wait_until(lambda: agent.said("stays as it was"))
            wait_until(lambda: agent.said("the keys here are type, listen") and agent.said(": gnmi: "))
            self.assertNotEqual(agent.said("the keys here are"), agent.said(": gnmi: "))
            time.sleep(0.3)
            self.assertEqual(agent.children(), before)


if __name__ == "__main__":
    unittest.main()
