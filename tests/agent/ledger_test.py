"""What became of every record: what is read, refused and not sent adds up, and what goes wrong is said once."""

import os
import shutil
import tempfile
import unittest

from harness import Agent, wait_until
from metrics import configuration, get, make_database, port_of, samples


def some_passes(agent, name="one", count=3):
    """The ledger of a subscription that has made so many passes of a batch, between two of them."""
    def found():
        """so many passes"""
        figures = agent.ledger()[name]
        return figures["passes"] >= count and figures["batches"] == figures["passes"] and figures
    return wait_until(found)


class Ledger(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp()
        self.addCleanup(shutil.rmtree, self.folder)
        self.database = os.path.join(self.folder, "q.db")
        self.connection = make_database(self.database)
        self.addCleanup(self.connection.close)
        (self.rows,) = self.connection.execute("SELECT count(*) FROM queue_stat").fetchone()

    def test_large_numbers_arrive_in_json_as_well(self):
        self.connection.execute("UPDATE queue_stat SET passPackets = 2000000000000000, passBytes = -1 "
                                "WHERE ifIndex = (SELECT min(ifIndex) FROM queue_stat)")
        self.connection.commit()
        lines = "  one: {path: queue-statistics, every: 500ms, encoding: json}\n"
        with Agent(configuration(self.database, lines)) as agent:
            found = some_passes(agent)
            self.assertEqual((found["refused"], found["not sent"]), (0, 0))
            shown = samples(get(port_of(agent))[2])
            self.assertIn("2000000000000000", shown["qos_queue_pass_packets_total"].values())
            # The largest one: 2^64 in JSON, which has rounded it.
            self.assertIn(str(2**64 - 1), shown["qos_queue_pass_bytes_total"].values())
            self.assertEqual(agent.stop(), 0)

    def test_what_is_refused_is_counted_once_and_said_once(self):
        lines = "  one: {path: queue-statistics, every: 200ms}\n"
        plugin = {"NIVEX_QOS_PLUGIN": os.environ["FOREIGN_PLUGIN"]}
        with Agent(configuration(self.database, lines), plugin) as agent:
            found = some_passes(agent)
            self.assertEqual([found[name] / found["passes"] for name in ("rows", "records", "refused", "not sent")],
                             [self.rows, 0, 1, self.rows - 1])
            self.assertEqual(len(agent.said("a batch of subscription one cannot be read")), 1)

    def test_following_rows_says_no_more_of_a_table_that_cannot_be_read(self):
        self.connection.execute("DROP TABLE queue_stat")
        self.connection.commit()
        lines = ("  plain: {path: queue-statistics, every: 200ms}\n"
                 "  changes: {path: queue-statistics, every: 200ms, suppress-redundant: 60s}\n")
        with Agent(configuration(self.database, lines)) as agent:
            def per_pass(name):
                def between_passes():
                    """some passes have failed"""
                    figures = agent.ledger()[name]
                    return figures["passes"] > 2 and figures["messages"] % figures["passes"] == 0 and figures
                found = wait_until(between_passes)
                self.assertEqual(found["failed"], found["passes"])
                return found["messages"] // found["passes"]
            self.assertGreater(per_pass("plain"), 0)
            self.assertEqual(per_pass("changes"), per_pass("plain"))


if __name__ == "__main__":
    unittest.main()
