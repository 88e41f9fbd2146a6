"""What streams send of what changes, comes and goes; and what they do not."""

import os
import signal
import time
import unittest

import gnmi_pb2 as gnmi
import grpc

from harness import wait_until
from stand import LISTS, SECOND, Stand, list_path, next_pass, on_change, path_of, sample, take_apart

QUEUES = "queue-statistics"
MONITOR = "interface-monitoring-result"


def gaps(stream, begin, end):
    """For each row the longest time without an update between two moments, and the number of its updates."""
    times = {}
    for arrival, response in stream.responses:
        for update in response.update.update:
            if arrival >= begin:
                arrivals = times.setdefault(take_apart(update.path)[1], [])
                if arrivals[-1:] != [arrival]:  # of another leaf
                    arrivals.append(arrival)
    longest = 0
    for arrivals in times.values():
        edges = [begin, *arrivals, end]
        longest = max(longest, *(after - before for before, after in zip(edges, edges[1:])))
    return longest, {len(arrivals) for arrivals in times.values()}, len(times)


class Changes(unittest.TestCase):
    def setUp(self):
        self.stand = Stand()
        self.stand.__enter__()
        self.addCleanup(self.stand.__exit__, None, None, None)

    def streams(self, *subscriptions, **more):
        """A stream for each subscription, when all have their first values."""
        streams = [self.stand.subscribe(each, **more) for each in subscriptions]
        for stream in streams:
            stream.wait_sync()
        return streams

    def arriving(self, streams, *statements):
        """The rows that each stream sends because of the statements."""
        next_pass()
        marks = [len(stream.responses) for stream in streams]
        self.stand.execute(*statements)
        next_pass(2)
        return [stream.rows(mark) for stream, mark in zip(streams, marks)]

    def test_only_what_changed_is_sent(self):
        streams = self.streams(
            on_change(list_path(QUEUES)), sample(list_path(QUEUES), suppress_redundant=True),
            on_change(list_path(QUEUES, "pass-packets")), on_change(list_path(QUEUES, "pass-packet-rate")),
            on_change(list_path(QUEUES, interface_name="ETH1/0/3")), on_change(list_path(MONITOR)),
            gnmi.Subscription(path=list_path(MONITOR)))
        begun = [stream.rows() for stream in streams]
        self.assertEqual(begun[0], {QUEUES: self.stand.expected(QUEUES)})
        self.assertEqual(begun[5], {MONITOR: self.stand.expected(MONITOR)})
        # Unchanged rows come twice from the plug-in: not from here.
        self.assertEqual(self.arriving(streams), [{}] * len(streams))

        changed = self.arriving(streams, "UPDATE queue_stat SET passPackets = passPackets + 1 WHERE ifIndex % 3 = 0",
                                "UPDATE queue_stat SET dropBytes = dropBytes + 5 WHERE ifName = 'ETH1/0/3' AND queueId > 5")
        now = self.stand.expected(QUEUES)
        before = begun[0][QUEUES]
        different = {key: row for key, row in now.items() if row != before[key]}
        self.assertGreater(len(different), 8)
        for rows in changed[:2]:
            self.assertEqual(rows, {QUEUES: different})
        passed = {key: {"pass-packets": row["pass-packets"]} for key, row in different.items()
                  if row["pass-packets"] != before[key]["pass-packets"]}
        self.assertLess(len(passed), len(different))
        self.assertEqual(changed[2], {QUEUES: passed})
        self.assertEqual(changed[4], {QUEUES: {key: row for key, row in different.items() if key[0] == "ETH1/0/3"}})
        self.assertEqual([changed[3], changed[5], changed[6]], [{}] * 3)

        # A rate follows from its counter: it is news only to those who subscribed to it.
        changed = self.arriving(streams, "UPDATE queue_stat SET passPktRate = passPktRate + 1 WHERE queueId = 2")
        rates = {key: {"pass-packet-rate": row["pass-packet-rate"]}
                 for key, row in self.stand.expected(QUEUES).items() if row["service-class"] == 2}
        self.assertEqual(changed, [{}, {}, {}, {QUEUES: rates}, {}, {}, {}])

        changed = self.arriving(streams, "UPDATE buffer_monitor_result SET burst_number = burst_number + 1, "
                                         "percent = 7 WHERE queue_index = 1")
        results = self.stand.expected(MONITOR, lambda row: row["queue-id"] == 1)
        self.assertTrue(results)
        self.assertEqual(changed, [{}] * 5 + [{MONITOR: results}] * 2)
        self.assertEqual([stream.syncs() for stream in streams], [1] * len(streams))

    def test_changes_of_every_list(self):
        streams = dict(zip(LISTS, self.streams(*(on_change(list_path(alias)) for alias in LISTS))))
        # A value, and what it is to be.
        values = {"port-ecn-statistics": ("port_ecn_stat", "packets"),
                  "port-buffer-usage-statistics": ("port_buf_stat", "avgUsed"),
                  "queue-buffer-usage-statistics": ("queue_buf_stat", "peakUsed"),
                  QUEUES: ("queue_stat", "dropPackets"), "queue-drop-statistics": ("queue_drop_stat", "queue7DropPkts"),
                  "ing-port-drop-statistics": ("ing_port_drop_stat", "dropPkts"),
                  "tm-chip-buffer-usage-statistics": ("tm_chip_buf_stat", "usedBuf"),
                  "intf-ing-buf-usage-statistics": ("ing_buf_usage_stat", "current_headroom"),
                  MONITOR: ("buffer_monitor_result", "peak_used_buf")}
        before = {alias: self.stand.expected(alias) for alias in LISTS}
        changed = self.arriving(streams.values(), *(
            f"UPDATE {table} SET {column} = {column} + 3 WHERE rowid % 5 IN (SELECT MAX(rowid) % 5 FROM {table})"
            for table, column in values.values()))
        for alias, rows in zip(streams, changed):
            now = self.stand.expected(alias)
            different = {key: row for key, row in now.items() if row != before[alias][key]}
            self.assertTrue(different, alias)
            self.assertEqual(rows, {alias: different})

    def test_rows_that_go_and_come(self):
        streams = self.streams(sample(list_path(QUEUES)), on_change(list_path(QUEUES)),
                               sample(list_path(QUEUES, "pass-bytes", interface_name="ETH1/0/1")),
                               on_change(list_path(QUEUES, service_class=3)),
                               sample(list_path(MONITOR)), on_change(list_path(MONITOR)))
        poll = self.stand.subscribe(list_path(QUEUES), mode="POLL")
        poll.send(gnmi.SubscribeRequest(poll=gnmi.Poll()))
        poll.wait_sync()
        self.arriving(streams, "CREATE TABLE kept AS SELECT * FROM queue_stat WHERE ifName = 'ETH1/0/1'",
                      "DELETE FROM queue_stat WHERE ifName = 'ETH1/0/1'",
                      "DELETE FROM buffer_monitor_result WHERE queue_index = 1")
        gone = sorted((QUEUES, ("ETH1/0/1", str(queue))) for queue in range(8))
        deletes = [[(schema.alias, keys) for schema, keys in stream.deletes()] for stream in [*streams, poll]]
        for index in (0, 1, 2):
            self.assertEqual(sorted(deletes[index]), gone)
        self.assertEqual(deletes[3], [(QUEUES, ("ETH1/0/1", "3"))])
        self.assertEqual(sorted(deletes[4]), sorted(deletes[5]))
        self.assertEqual({keys[1] for _, keys in deletes[4]}, {"1"})
        poll.send(gnmi.SubscribeRequest(poll=gnmi.Poll()))
        poll.wait_sync(2)
        self.assertEqual(sorted((schema.alias, keys) for schema, keys in poll.deletes()), gone)

        back = self.arriving(streams, "INSERT INTO queue_stat SELECT * FROM kept")
        rows = self.stand.expected(QUEUES, lambda row: row["interface-name"] == "ETH1/0/1")
        self.assertEqual(back[1], {QUEUES: rows})
        self.assertEqual(back[3], {QUEUES: {key: row for key, row in rows.items() if key[1] == "3"}})
        self.assertEqual([len(stream.deletes()) for stream in streams[:4]], [8, 8, 8, 1])

    def test_a_heartbeat_comes_in_time(self):
        # With periods of none, one and several seconds for the plug-in, without one, and in samples.
        beats = (1, 3, 6, 12)
        streams = self.streams(*(on_change(list_path(QUEUES), heartbeat_interval=each * SECOND) for each in beats),
                               on_change(list_path(MONITOR), heartbeat_interval=3 * SECOND),
                               sample(list_path(QUEUES, "pass-bytes"), 2, suppress_redundant=True,
                                      heartbeat_interval=4 * SECOND))
        begin = max(stream.responses[-1][0] for stream in streams)
        time.sleep(1)
        # A change is no heartbeat: the next one is due a heartbeat later at most.
        self.stand.execute("UPDATE queue_stat SET passBytes = passBytes + 1 WHERE queueId = 4")
        time.sleep(24.5 - (time.time() - begin))
        end = time.time()
        queues = len(self.stand.expected(QUEUES))
        for stream, beat, rows in zip(streams, (*beats, 3, 4),
                                      (*[queues] * 4, len(self.stand.expected(MONITOR)), queues)):
            longest, counts, seen = gaps(stream, begin, end)
            self.assertEqual(seen, rows)
            # What is due on the second may be some milliseconds late.
            self.assertLess(longest, beat + 0.3, beat)
            # Twice as often as due is too often; one for the change.
            self.assertLessEqual(max(counts), 24 / beat * 2 + 2, beat)

    def test_updates_only(self):
        streams = self.streams(on_change(list_path(QUEUES)), sample(list_path("port-ecn-statistics"), 1),
                               updates_only=True)
        self.assertTrue(all(stream.responses[0][1].sync_response for stream in streams))
        poll = self.stand.subscribe(list_path(QUEUES), mode="POLL", updates_only=True)
        poll.send(gnmi.SubscribeRequest(poll=gnmi.Poll()))
        poll.wait_sync()
        changed = self.arriving(streams, "UPDATE queue_stat SET passBytes = passBytes + 1 WHERE queueId = 4")
        rows = self.stand.expected(QUEUES, lambda row: row["service-class"] == 4)
        self.assertEqual(changed, [{QUEUES: rows},
                                   {"port-ecn-statistics": self.stand.expected("port-ecn-statistics")}])
        self.assertEqual(streams[0].rows(), {QUEUES: rows})
        poll.send(gnmi.SubscribeRequest(poll=gnmi.Poll()))
        poll.wait_sync(2)
        self.assertEqual(poll.rows(), {QUEUES: rows})
        once = self.stand.subscribe(path_of("qos"), mode="ONCE", updates_only=True)
        self.assertEqual(once.wait_end(), grpc.StatusCode.OK)
        self.assertEqual([response.sync_response for _, response in once.responses], [True])

    def test_intervals_and_modes(self):
        slow, defined, both = self.streams(
            sample(list_path(QUEUES), 3), gnmi.Subscription(path=path_of("qos")),
            sample(list_path("port-ecn-statistics"), 3600))
        begin = time.time()
        next_pass(6)
        passes = {notification.timestamp // SECOND for notification in slow.notifications()
                  if notification.timestamp / 1e9 > begin}
        self.assertEqual({each % 3 for each in passes}, {0})
        self.assertEqual(len(passes), 2)
        # Counters are sampled; results, which have not changed, were sent once.
        times = {}
        for notification in defined.notifications():
            for update in notification.update:
                times.setdefault(update.path.elem[3].name, set()).add(notification.timestamp)
        self.assertEqual({alias for alias in LISTS if len(times[alias]) == 1}, {MONITOR})
        # A long interval does not hold back the first values.
        self.assertEqual(len({each.timestamp for each in both.notifications()}), 1)

    def test_subscriptions_of_one_stream_are_independent(self):
        stream = self.stand.subscribe(sample(list_path("port-ecn-statistics")), on_change(list_path(QUEUES)),
                                      on_change(list_path("port-ecn-statistics", interface_name="ETH1/0/1")))
        stream.wait_sync()
        self.assertEqual(len(self.stand.workers()), 3)
        first = [sum(update.path.elem[3].key["interface-name"] == "ETH1/0/1" and
                     update.path.elem[4].name == "packets" for notification in stream.notifications()
                     for update in notification.update if update.path.elem[3].name == "port-ecn-statistics")]
        self.assertEqual(first, [2])
        changed, = self.arriving([stream])
        self.assertEqual(changed, {"port-ecn-statistics": self.stand.expected("port-ecn-statistics")})
        self.assertEqual(stream.syncs(), 1)

    def test_a_lost_worker_costs_nothing_but_time(self):
        changes, samples = self.streams(on_change(list_path(QUEUES)), sample(list_path(QUEUES)))
        next_pass()
        mark = len(changes.responses)
        for process in self.stand.workers():
            os.kill(process, signal.SIGKILL)
        self.stand.execute("DELETE FROM queue_stat WHERE ifName = 'ETH1/0/1' AND queueId = 2",
                           "UPDATE queue_stat SET passPackets = passPackets + 9 WHERE queueId = 7")
        wait_until(lambda: changes.deletes())
        next_pass(2)
        self.assertEqual(changes.rows(mark), {QUEUES: self.stand.expected(QUEUES, lambda row: row["service-class"] == 7)})
        for stream in (changes, samples):
            self.assertEqual([keys for _, keys in stream.deletes()], [("ETH1/0/1", "2")])
            self.assertEqual(stream.syncs(), 1)
            self.assertIsNone(stream.error)

    def test_a_line_in_the_log_about_a_row_that_comes_costs_nothing(self):
        chips = "tm-chip-buffer-usage-statistics"
        # A slot that is no number comes all the same, and is told in the log in each call.
        self.stand.execute("INSERT INTO tm_chip_buf_stat VALUES ('MPU', 1, 1, 1)")
        expected = self.stand.expected(chips)
        self.assertIn(("MPU",), expected)
        self.assertEqual(self.stand.get(list_path(chips))[chips], expected)
        (stream,) = self.streams(sample(list_path(chips)))
        wait_until(lambda: self.stand.said("slot"))
        self.assertEqual(stream.rows()[chips], expected)
        gone = next(key for key in expected if key != ("MPU",))
        self.stand.execute(f"DELETE FROM tm_chip_buf_stat WHERE slotId = '{gone[0]}'")
        wait_until(lambda: stream.deletes())
        self.assertEqual([keys for _, keys in stream.deletes()], [gone])

    def test_tables_that_cannot_be_read(self):
        changes, samples = self.streams(on_change(list_path("port-ecn-statistics")),
                                        sample(list_path("port-ecn-statistics")))
        self.stand.execute("ALTER TABLE port_ecn_stat RENAME TO elsewhere")
        path = list_path("port-ecn-statistics")
        with self.assertRaises(grpc.RpcError) as caught:
            self.stand.get(path)
        self.assertEqual(caught.exception.code(), grpc.StatusCode.UNAVAILABLE)
        self.assertIn("port_ecn_stat", caught.exception.details())
        for mode in ("ONCE", "POLL"):
            stream = self.stand.subscribe(path, mode=mode)
            stream.send(gnmi.SubscribeRequest(poll=gnmi.Poll()) if mode == "POLL" else None)
            self.assertEqual(stream.wait_end(), grpc.StatusCode.UNAVAILABLE)
        late = self.stand.subscribe(path)
        next_pass(2)
        self.assertEqual((late.responses, late.error), ([], None))
        marks = [len(changes.responses), len(samples.responses)]
        self.stand.execute("UPDATE elsewhere SET packets = packets + 1 WHERE ifIndex = 1025",
                           "ALTER TABLE elsewhere RENAME TO port_ecn_stat")
        late.wait_sync()
        next_pass(2)
        rows = {"port-ecn-statistics": self.stand.expected("port-ecn-statistics")}
        self.assertEqual(late.rows(), rows)
        self.assertEqual(samples.rows(marks[1]), rows)
        changed, = changes.rows(marks[0])["port-ecn-statistics"]
        self.assertEqual(changed, ("ETH1/0/1",))
        self.assertEqual([stream.deletes() for stream in (changes, samples, late)], [[]] * 3)


if __name__ == "__main__":
    unittest.main()
