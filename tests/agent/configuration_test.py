"""qos-agent check: what is wrong with a file is told with its place and what would be right, and what surprises."""

import os
import re
import subprocess
import tempfile
import time
import unittest

from harness import BIN, wait_until

GOOD = "subscriptions: {queues: {path: queue-statistics}}\n"


def check(text):
    with tempfile.TemporaryDirectory() as folder:
        file = os.path.join(folder, "a.yaml")
        with open(file, "wb") as out:
            out.write(text if isinstance(text, bytes) else text.encode())
        done = subprocess.run([os.path.join(BIN, "qos-agent"), "check", file], capture_output=True, text=True,
                              timeout=20, check=False)
        return done.returncode, done.stdout, done.stderr.replace(file, "a.yaml")


class Faults(unittest.TestCase):
    # What is written, and a part of what is said: place first.
    FAULTS = [
        ("- a\n", "a.yaml:1:1: a list stands here where a mapping"),
        ("", "a.yaml: nothing stands here where a mapping"),
        ("a: [", "this is no YAML"),
        ("colour: red\n", "a.yaml:1:9: colour: there is no such key; the keys here are device, feed, database, subscrip"),
        ("device: a\ndevice: b\n", "a.yaml:2:1: device: stands here a second time"),
        ("device: {a: b}\n", "a.yaml:1:9: device: a mapping stands here where a name is wanted"),
        ("device: 'a b'\n", "device: a name has 1 to 64 letters"),
        ("database: here.db\n", "database: 'here.db' is no whole path"),
        ("database: /" + 4095 * "d", "a.yaml:1:11: database: the name of a file has at most 4095 bytes, this one 4096"),
        ("feed: tea\n", "feed: 'tea' stands here where one of none, kernel, sim is wanted"),
        ("feed: none\n", "without a feed there is nothing to read"),
        ("feed: {source: kernel, ports: 3}\n", "feed.ports: only a feed with source: sim has this"),
        ("feed: {source: sim, ports: 1025}\n", "feed.ports: '1025' is no whole number from 1 to 1024"),
        ("feed: {every: 5}\n", "feed.every: '5' is no time span"),
        ("feed: {every: 10ms}\n", "feed.every: '10ms' is shorter than 100ms"),
        ("subscriptions: {q: {every: 1s}}\n", "subscriptions.q: the subscription names no path"),
        ("subscriptions: {q: {path: queues}}\n", "there is no path 'queues'; the paths are port-ecn-statistics, "),
        ("subscriptions: {'q q': {path: queue-statistics}}\n", "a name has 1 to 64 letters"),
        ("subscriptions:\n  q:\n    path: queue-statistics\n    where: {slot-id: 1}\n",
         "a.yaml:4:12: subscriptions.q.where: where 'slot-id=1': queue-statistics honours interface-name, service-class"),
        ("subscriptions: {q: {path: queue-statistics, threshold: 'pass-packets ~ 1'}}\n",
         "write FIELD, one of = == > >= < <=, and VALUE"),
        ("subscriptions: {q: {path: queue-statistics, threshold: ['pass-bytes>1', 'pass-packets>1']}}\n",
         "the first threshold names the field for both, here pass-bytes"),
        ("subscriptions: {q: {path: queue-statistics, relation: and}}\n", "relation says how two thresholds combine"),
        ("subscriptions: {q: {path: queue-statistics, suppress-redundant: 1500ms}}\n", "no whole number of seconds"),
        ("subscriptions: {q: {path: queue-statistics, suppress-redundant: 5s, period: 5s}}\n", "leave them out"),
        ("subscriptions: {q: {path: interface-monitoring-result, period: 5s}}\n", "period has no effect on"),
        ("outputs: {m: {listen: 127.0.0.1:1}}\n", "an output is a mapping with a type"),
        ("outputs: {m: {type: smoke}}\n", "outputs.m.type: 'smoke' stands here where one of prometheus, capture"),
        ("outputs: {m: {type: prometheus, listen: '127.0.0.1'}}\n", "'127.0.0.1' is no address"),
        ("outputs: {m: {type: prometheus, listen: '::1:9464'}}\n", "'::1:9464' is no address"),
        ("outputs: {m: {type: prometheus, listen: '127.0.0.1:99999'}}\n", "is no address"),
        ("outputs: {f: {type: capture}}\n", "a capture needs a file"),
        ("outputs: {f: {type: capture, file: /tmp/x, buffer: 64}}\n", "'64' is no size"),
        ("gnmi: {listen: 127.0.0.1:9339}\n", "give certificate and key, or insecure: true"),
        ("gnmi: {key: /k, insecure: true}\n", "certificate and key belong together"),
        ("gnmi: {insecure: true, max-subscriptions: 0}\n", "no whole number from 1 to 1000"),
    ]

    def test_each_is_told_with_its_place_and_what_is_right(self):
        for text, wanted in self.FAULTS:
            code, out, err = check(text)
            self.assertEqual((code, out), (2, ""), text)
            self.assertIn(wanted, err, text)
            self.assertRegex(err, r"\Aqos-agent: a\.yaml", text)

    def test_all_are_told_at_once_but_not_without_end(self):
        _, _, err = check("".join(f"key{number}: 1\n" for number in range(200)))
        self.assertEqual(len(err.splitlines()), 20)
        _, _, err = check("device: {}\nfeed: tea\ngnmi: 5\n")
        self.assertEqual([line.split(":")[2] for line in err.splitlines()], ["1", "2", "3", "3"])

    def test_there_are_so_many_subscriptions_and_outputs_and_no_more(self):
        for key, value, most in (("subscriptions", "{path: queue-statistics}", 256),
                                 ("outputs", "{type: capture, file: /f%d}", 32)):
            lines = [f"  n{number}: {value.replace('%d', str(number))}\n" for number in range(5000)]
            code, out, err = check(f"{key}:\n" + "".join(lines[:most]))
            self.assertEqual((code, err), (0, ""))
            self.assertEqual(len(re.findall("^(?:subscription|output) n", out, re.MULTILINE)), most)
            code, _, err = check(f"{key}:\n" + "".join(lines))
            self.assertEqual(code, 2)
            self.assertRegex(err, rf"\Aqos-agent: a\.yaml:{most + 2}:\d+: {key}\.n{most}: there are at most {most} {key}")
            self.assertEqual(len(err.splitlines()), 1)

    def test_hostile_files_are_refused_in_time(self):
        for text in (b"[" * 900_000, b"x" * 1_100_000, b"\xff\xfe\x00\x80" * 100, b"a: &a [*a, *a]\n",
                     b"a: &a [1]\n" + b"".join(b"k%d: [*a, *a]\n" % n for n in range(9999)), b"de\x1b[2Jvice: 1\n"):
            code, _, err = check(text)
            self.assertEqual(code, 2)
            self.assertNotIn("\x1b", err)
        code, out, err = check('database: "/a\\e[31mb\\nready"\nfeed: sim\noutputs: {f: {type: capture, file: "/\\e[2J"}}\n'
                               'subscriptions: {q: {path: queue-statistics, where: {interface-name: "a\\e]0;b"}}}\n')
        self.assertEqual((code, err), (0, ""))
        self.assertNotIn("\x1b", out)
        for text in (r"database: /a\x1b[31mb\x0aready", r"interface-name=a\x1b]0;b", r"capture in '/\x1b[2J'"):
            self.assertIn(text, out)


    # Tables "feed" that compute for ever or at length.
    REST = "host, process, every_ms, round, time_ms, missed, note"
    ENDLESS = [
        "CREATE VIEW feed AS WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c) SELECT x AS source, x AS host,"
        " x AS process, x AS every_ms, x AS round, x AS time_ms, x AS missed, x AS note FROM c WHERE x < 0",
        f"CREATE TABLE feed (a, b, {REST}, source AS ({' + '.join(['(a LIKE b)'] * 3)}));"
        f"INSERT INTO feed (a) VALUES ('{'a' * 15000}'); UPDATE feed SET b = '%{'a' * 7000}b'",
        f"CREATE TABLE feed (a, {REST}, source AS ({' + '.join(['instr(a, substr(a, 8000) || 1)'] * 200)}));"
        f"INSERT INTO feed (a) VALUES ('{'a' * 16000}')",
    ]

    def test_a_hostile_mark_of_a_feed_holds_nothing_up(self):
        for statements in self.ENDLESS:
            with self.subTest(statements[:80]), tempfile.TemporaryDirectory() as folder:
                file = os.path.join(folder, "q.db")
                subprocess.run(["sqlite3", file, statements], check=True, timeout=20)
                begin = time.monotonic()
                code, out, _ = check(GOOD + f"database: {file}\nfeed: none\n")
                self.assertLess(time.monotonic() - begin, 3)
                self.assertEqual(code, 0)
                self.assertIn("has no mark of a feed that can be read", out)


class Answers(unittest.TestCase):
    def test_what_would_run_is_said(self):
        code, out, err = check(GOOD + "feed: {source: sim, seed: 7}\ngnmi: {insecure: true}\n"
                               "outputs: {f: {type: capture, file: /x, buffer: 1MiB, when-full: drop-newest}}\n")
        self.assertEqual((code, err), (0, ""))
        for line in ("feed: a simulated device of 2 slots with 8 ports, load 90 %, seed 7, every 1s",
                     "subscription queues: queue-statistics every 1s", "gnmi: 127.0.0.1:9339, without TLS, at most 64",
                     "output f: capture in '/x', up to 1024 KiB waiting, then the newest batches are dropped"):
            self.assertIn(line, out)

    def test_what_surprises_a_subscriber_is_said(self):
        surprises = [
            ("threshold: pass-bytes>1", "low 32 bits of pass-bytes"),
            ("threshold: [pass-bytes>1, pass-bytes<9], relation: second", "only the second one decides"),
            ("period: 5s", "is seen first is held back, and a record passes when more than 5 s have gone by; interface index"),
            ("suppress-redundant: 60s", "not at rates; a record that was sent again unchanged after 60 s"),
            ("suppress-redundant: 60s", "256 interfaces"),
            ("where: {interface-name: eth}", "'eth' is the whole name of one interface"),
            ("encoding: json", "counters above 10^15 lose digits"),
            ("every: 100ms", "it samples every 100ms, the feed has new data every 1s"),
        ]
        for settings, wanted in surprises:
            code, out, err = check("subscriptions: {q: {path: queue-statistics, %s}}\n" % settings)
            self.assertEqual((code, err), (0, ""), settings)
            self.assertRegex(out, "note: q: .*" + re.escape(wanted), settings)
        code, _, err = check(GOOD + "gnmi: {insecure: true, listen: '0.0.0.0:9339'}")
        self.assertEqual(code, 2)
        self.assertIn("without TLS only loopback addresses are served", err)
        code, _, err = check(GOOD + "gnmi: {certificate: /nowhere.pem, key: /nowhere.pem}")
        self.assertEqual(code, 2)
        self.assertIn("gnmi.certificate '/nowhere.pem'", err)
        _, out, _ = check("device: a")
        self.assertIn("note: subscriptions: there is none", out)
        _, out, _ = check(GOOD)
        self.assertNotIn("note:", out)

    def test_a_stale_database_and_a_second_feed_are_said(self):
        with tempfile.TemporaryDirectory() as folder:
            file = os.path.join(folder, "q.db")
            feed = [os.path.join(BIN, "qos-host"), "feed", "sim", "--db", file, "--every", "1s"]
            warning = f"feeds '{file}' already: two feeds on one file do not go"
            with subprocess.Popen(feed) as process:
                try:
                    wait_until(lambda: warning in check(GOOD + f"database: {file}\n")[1])
                    for time_ms in (2**62, -1):  # of the future, and of no time that is
                        subprocess.run(["sqlite3", "-cmd", ".timeout 5000", file, f"UPDATE feed SET time_ms = {time_ms}"],
                                       check=True, timeout=20)
                        self.assertIn(warning, check(GOOD + f"database: {file}\n")[1])
                finally:
                    process.terminate()
            self.assertNotIn("already", check(GOOD + f"database: {file}\n")[1])
            subprocess.run(["sqlite3", file, "UPDATE feed SET time_ms = strftime('%s') * 1000 - 9000"], check=True, timeout=20)
            _, out, _ = check(GOOD + f"database: {file}\nfeed: none\n")
            self.assertIn(f"the data in '{file}' is old: feed sim", out)


if __name__ == "__main__":
    unittest.main()
