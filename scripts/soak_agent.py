#!/usr/bin/python3
"""Runs an agent for a while, throws faults at it, and looks each second whether it keeps what it promises.

An agent with a simulated device, subscriptions each 100 ms, Prometheus, a capture and gNMI: ten times the pace of one
that samples each second. Bouts of all faults, in an order that SEED draws, alternate with calms. Every look: the ledger balances wherever
it is read and is the same in the log and in /metrics, figures never go back, nobody is a zombie, a scrape answers. Every
calm: descriptors, threads, children and calls are those of the first calm, and memory has not grown. At the end: exit
code, time to stop, captures that read back whole with every record, nothing left behind. Ends with tables; exits 1 on any
violation. See docs/reliability.md.

usage: scripts/soak_agent.py [SECONDS [SEED [FOLDER_OF_PROGRAMS]]]
"""

import collections
import contextlib
import os
import random
import re
import shutil
import signal
import socket
import sqlite3
import struct
import subprocess
import sys
import tempfile
import threading
import time
import traceback

SOURCES = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SETTLE = 20  # seconds until all is as before: a worker that hangs is ended after 10 s and begun again 1 s later
ANSWER = 5  # seconds for a scrape: on a machine that is busy with other work, too
FEED_SEEN = 3  # seconds: the agent looks for its rounds every 2 s
STOP = 8  # seconds: 5 s for what waits, and the feed's end
ENDING = 12  # seconds, of those that are given
UNTIRED = 31  # seconds after which a child that ends is started again after 1 s, not later
WARM = 5  # seconds after which a worker or feed has all memory that it needs
CROWD = 7  # clients of all lists: more than 64 subscriptions at once are refused
GROWTH = {"qos-agent": 4096, "qos-feed": 1024, "qos-worker": 1024}  # KiB after that, the agent's after a warm-up
STRAY_THREADS = 16  # gRPC keeps threads for calls as it needs them, so many at the most

SUBSCRIPTIONS = {
    "plain": "{path: queue-statistics, every: 100ms}",
    "filtered": '{path: queue-drop-statistics, every: 100ms, where: {interface-name: "ETH2/0/*"}}',
    "suppressing": "{path: port-buffer-usage-statistics, every: 100ms, suppress-redundant: 2s}",
    "period": "{path: queue-buffer-usage-statistics, every: 100ms, period: 1s}",
    "bursts": "{path: interface-monitoring-result, every: 100ms, encoding: json}",
    "other": "{path: port-ecn-statistics, every: 100ms}",
}
OUTPUTS = ("metrics", "today")
GNMI = ("subscription", "(gnmi)")  # all that were made for gNMI
# What the log calls a figure, and what /metrics does.
OF_SUBSCRIPTION = {"passes": "passes", "failed": "failed_passes", "missed": "missed_passes", "restarts": "restarts",
                   "rows": "rows", "records": "records", "not sent": "rows_not_sent", "refused": "records_refused",
                   "gaps": "batches_lost", "batches": "batches", "bytes": "payload_bytes", "messages": "messages"}
LEDGER = re.compile(
    r"qos-agent: (?:ledger of|(subscription|output|gnmi) (.*): ((?:passes|offered) \d.*?)(?:, last error: .*)?$)")
REASONS = ("full", "replaced", "too_large", "refused", "not_connected", "stopped")


def arguments():
    given = sys.argv[1:]
    if len(given) > 3 or not all(re.fullmatch(r"\d{1,9}", each) for each in given[:2]) or (given and int(given[0]) < 20):
        sys.exit(f"soak: '{' '.join(given)}' is no number of seconds from 20, and a seed\n{__doc__.splitlines()[-1]}")
    seconds, seed, programs = [*given, *["360", "1", os.path.join(SOURCES, "build/release/bin")][len(given):]]
    return int(seconds), int(seed), os.path.abspath(programs)


SECONDS, SEED, PROGRAMS = arguments()
# Everything that this program, the agent and the clients make is in one folder.
FOLDER = tempfile.TemporaryDirectory(prefix="soak-agent-")
os.environ.update(QOS_BIN=PROGRAMS, TMPDIR=FOLDER.name, PYTHONDONTWRITEBYTECODE="1")
tempfile.tempdir = FOLDER.name
sys.dont_write_bytecode = True
sys.path[:0] = [os.path.join(SOURCES, each) for each in ("tests/agent", "tests/gnmi", "bench")]

import gnmi_stream  # noqa: E402,F401  it makes the next two
import gnmi_pb2 as gnmi  # noqa: E402
import gnmi_pb2_grpc  # noqa: E402
import grpc  # noqa: E402
import harness  # noqa: E402
import metrics  # noqa: E402
import stand  # noqa: E402


class Soak:
    """The agent, what is thrown at it, and what was seen."""

    def __init__(self, seconds, seed, folder):
        self.folder = folder
        self.warm = time.monotonic() + min(seconds / 3, 120)
        self.end = time.monotonic() + seconds - ENDING
        self.random = random.Random(seed)
        self.violations = []
        self.log = []  # what was thrown, and violations
        self.counts = collections.Counter()  # of faults and looks
        self.worst = collections.Counter()  # times in seconds
        self.calls = []  # of gNMI clients in this process
        self.threads = []
        self.clients = []  # processes
        self.calm = threading.Event()  # asks the faults under way to end
        self.thrown = {}  # when a fault with a rest was thrown last
        self.previous = {}  # the figures of the last look
        self.unknown = None  # records that outputs were offered by subscriptions that are no more
        self.zombies = set()
        self.own = {}  # workers of subscriptions, by when they were first seen; 0 for the first ones
        self.hung = set()
        self.seen = {}  # children, and when first
        self.processes = {}  # by id
        self.baseline = None
        self.excess = {}  # at the last calm
        self.today = os.path.join(folder, "today.qos")
        self.port = stand.free_port()
        self.variant = 0
        self.variants = [self.configuration(), self.configuration(other=SUBSCRIPTIONS["other"].replace("100ms", "200ms")),
                         self.configuration(buffer="128KiB"), self.configuration(second=True),
                         self.configuration(other=None), self.configuration(load=50)]
        self.agent = None
        self.metrics_port = 0
        self.workers = self.open_calls = self.last_round = 0  # in /metrics
        self.ending = {}  # the last ledger

    def configuration(self, other=SUBSCRIPTIONS["other"], buffer="64KiB", second=False, load=90):
        subscriptions = {**SUBSCRIPTIONS, "other": other}
        lines = "".join(f"  {name}: {text}\n" for name, text in subscriptions.items() if text)
        more = f"  second: {{type: capture, file: {self.folder}/second.qos, buffer: 1MiB}}\n" if second else ""
        return (f"device: soak\nfeed: {{source: sim, every: 100ms, slots: 2, ports: 4, speed: 10, load: {load}}}\n"
                f"subscriptions:\n{lines}outputs:\n  metrics: {{type: prometheus, listen: '127.0.0.1:0'}}\n"
                f"  today: {{type: capture, file: {self.today}, buffer: 16MiB}}\n{more}"
                f"gnmi: {{listen: '127.0.0.1:{self.port}', insecure: true, buffer: {buffer}}}\n")

    def complain(self, text):
        self.violations.append(text)
        self.note(f"VIOLATION: {text}")
        print(f"soak: {text}", file=sys.stderr, flush=True)

    def note(self, text):
        self.log.append(f"{time.strftime('%T')} {text}")

    def took(self, what, seconds):
        self.worst[what] = max(self.worst[what], seconds)
        if seconds > ANSWER / 4:
            self.note(f"{what}: {seconds:.2f} s")

    # What the agent says.

    def logged(self):
        """The figures in the log: by (kind, name), those of all gNMI calls as one output and one subscription."""
        begin, since = len(self.agent.lines), time.monotonic()
        self.agent.ledger()
        self.took("slowest SIGUSR1", time.monotonic() - since)
        return self.ledger_in(self.agent.lines[begin:])

    def ledger_in(self, lines):
        figures = {("output", "(gnmi)"): collections.Counter()}
        for line in lines:
            found = LEDGER.match(line)
            if not found or not found.group(1):
                continue
            kind, name, text = found.groups()
            each = {figure: int(value) for figure, value in re.findall(r"([a-z][a-z_ ]*?) (\d+)", text)}
            if kind != "subscription":
                self.balance(f"{kind} {name} in the log", each)
            if kind == "gnmi":
                figures["output", "(gnmi)"].update(each)
            elif name.startswith("gnmi"):
                figures.setdefault(GNMI, collections.Counter()).update(each)
            else:
                figures[kind, name] = each
        return figures

    def scraped(self):
        """The same figures out of /metrics."""
        begin = time.monotonic()
        status, _, text = metrics.get(self.metrics_port)
        took = time.monotonic() - begin
        self.took("slowest scrape", took)
        if status != 200 or took > ANSWER:
            self.complain(f"a scrape took {took:.2f} s and has the status {status}")
        values = metrics.samples(text)
        figures = collections.defaultdict(dict)
        for figure, name in OF_SUBSCRIPTION.items():
            for labels, value in values.get(f"qos_subscription_{name}_total", {}).items():
                each = figures["subscription", dict(labels)["subscription"]]
                each[figure] = each.get(figure, 0) + int(value)  # those of gNMI by path
        for figure, name in (("offered", "offered_total"), ("delivered", "delivered_total"), ("waiting", "waiting")):
            for labels, value in values[f"qos_output_records_{name}"].items():
                figures["output", dict(labels)["output"]][figure] = int(value)
        for labels, value in values["qos_output_records_dropped_total"].items():
            labels = dict(labels)
            each = figures["output", labels["output"]]
            each[labels["reason"]] = int(value)
            each["dropped"] = each.get("dropped", 0) + int(value)
        for (kind, name), each in figures.items():
            if kind == "output":
                self.balance(f"output {name} in /metrics", each)
        self.workers, = map(int, values["qos_agent_workers"].values())
        self.last_round = max(map(float, values.get("qos_feed_last_round_timestamp_seconds", {}).values()), default=0)
        self.open_calls, = map(int, values["qos_agent_gnmi_calls"].values())
        return figures

    # What must hold at every look.

    def balance(self, what, each):
        self.counts["accounts balanced"] += 1
        if each and each["offered"] != each["delivered"] + each["waiting"] + each["dropped"]:
            self.complain(f"{what} does not balance: {dict(each)}")

    def order(self, earlier, later, what):
        """What is counted only grows; answers how many figures stood still."""
        still = 0
        for key in earlier.keys() & later.keys():
            for name in OF_SUBSCRIPTION if key[0] == "subscription" else ("offered", "delivered", *REASONS):
                before, after = earlier[key].get(name, 0), later[key].get(name, 0)
                still += before == after
                if before > after:
                    self.complain(f"{key[1]}: {name} {what}: {before}, then {after}")
        return still

    def whole(self, figures, where):
        """What the subscriptions bring both outputs are offered, and nothing else."""
        offered = {name: figures["output", name]["offered"] for name in OUTPUTS}
        brought = sum(each["records"] for key, each in figures.items() if key[0] == "subscription" and key != GNMI)
        unknown = offered["metrics"] - brought
        if self.unknown is None:
            self.unknown = unknown
        if len(set(offered.values())) > 1 or unknown != self.unknown:
            self.complain(f"{where}: outputs were offered {offered}, subscriptions brought {brought}, and "
                          f"{self.unknown} before")
        for (kind, name), each in figures.items():
            if kind == "subscription" and each["records"] + each["not sent"] + each["refused"] < each["rows"]:
                self.complain(f"{where}: {name} has rows that nothing became of: {each}")

    def look(self):
        self.counts["looks"] += 1
        before = self.logged()
        time.sleep(0.11)  # /metrics may be 100 ms old
        shown = self.scraped()
        after = self.logged()
        self.order(self.previous, before, "since the last look")
        self.counts["figures that agree"] += self.order(before, shown, "in the log and in /metrics")
        self.order(shown, after, "in /metrics and in the log")
        for figures, where in ((before, "log"), (shown, "/metrics"), (after, "log")):
            self.whole(figures, where)
        self.previous = after
        children = self.agent.children()
        zombies = set(children.get("zombie", []))
        if zombies & self.zombies:
            self.complain(f"zombies stay: {zombies & self.zombies}")
        self.zombies = zombies
        self.measure_children(children)
        if self.agent.process.poll() is not None:
            raise RuntimeError(f"the agent has ended with {self.agent.process.returncode}")
        return after

    # What must hold at every calm.

    def settle(self):
        """Ends the clients, and waits until nothing is left of them."""
        self.calm.set()
        for call, channel, politely in self.calls:
            if politely:
                call.cancel()
            channel.close()
        for client in self.clients:
            client.kill()
            client.wait()
        for thread in self.threads:
            thread.join(10)
            if thread.is_alive():
                self.complain(f"the client '{thread.name}' does not end")
        for client in self.clients:
            client.stdout.close()
        self.calls, self.clients, self.threads = [], [], []
        self.calm = threading.Event()
        if self.variant != 0:
            self.reload(0)
        begin = time.monotonic()
        while (odd := self.out_of_place()) and time.monotonic() < begin + SETTLE:
            time.sleep(0.2)
        if odd:
            self.complain(f"not within {SETTLE} s: {odd}")
        self.took("longest way back", time.monotonic() - begin)

    def out_of_place(self):
        """What is not as at the first calm."""
        self.scraped()
        children = self.agent.children()
        now = {name: len(each) for name, each in children.items()}
        self.hung &= set(children.get("qos-worker", []))
        if self.hung:
            return f"workers that hang: {self.hung}"
        now["calls"] = self.open_calls
        due = {"qos-feed": 1, "qos-worker": len(SUBSCRIPTIONS), "calls": 0}
        if now != due or self.workers != len(SUBSCRIPTIONS):
            return f"{now} and {self.workers} workers in /metrics where {due} are due"
        if self.baseline and (descriptors := self.descriptors(self.agent.process.pid)) > self.baseline["descriptors"]:
            return f"{descriptors} descriptors, at first {self.baseline['descriptors']}"
        if self.baseline and (threads := self.status("Threads")) > self.baseline["threads"] + STRAY_THREADS:
            return f"{threads} threads, at first {self.baseline['threads']}"
        if time.time() - self.last_round > FEED_SEEN:
            return "the feed writes no rounds"
        return None

    @staticmethod
    def descriptors(process):
        """Those that last: a file may be open for a moment."""
        most = []
        for _ in range(3):
            most.append(len(os.listdir(f"/proc/{process}/fd")))
            time.sleep(0.013)
        return min(most)

    def status(self, field, process=None):
        with open(f"/proc/{process or self.agent.process.pid}/status", encoding="utf-8") as file:
            return int(re.search(rf"^{field}:\s*(\d+)", file.read(), re.MULTILINE).group(1))

    def measure(self, name, process):
        """A process has the memory of its first measure, the agent that of its warm-up, and never more descriptors."""
        resident, descriptors = self.status("VmRSS", process), self.descriptors(process)
        each = self.processes.setdefault(process, {"name": name, "warm": resident, "most": resident, "looks": 0,
                                                   "descriptors": descriptors})
        if name == "qos-agent" and time.monotonic() < self.warm:
            each["warm"] = max(each["warm"], resident)
        each.update(looks=each["looks"] + 1, most=max(each["most"], resident), peak=self.status("VmHWM", process))
        if each["most"] - each["warm"] > GROWTH[name]:
            self.complain(f"{name} {process} grew from {each['warm']} to {each['most']} KiB, bound {GROWTH[name]}")
        if descriptors > each["descriptors"]:
            self.complain(f"{name} {process} has {descriptors} descriptors, {each['descriptors']} at first")

    def measure_children(self, children):
        """Those that are no longer new; clients make no difference to them."""
        now = time.monotonic()
        for name in ("qos-feed", "qos-worker"):
            for process in children.get(name, []):
                if now - self.seen.setdefault(process, now) > WARM:
                    with contextlib.suppress(OSError):  # it has just ended
                        self.measure(name, process)

    def measure_agent(self):
        self.measure("qos-agent", self.agent.process.pid)
        now = time.monotonic()
        self.own = {worker: self.own.get(worker, now if self.baseline else 0)
                    for worker in self.agent.children()["qos-worker"]}
        if not self.baseline:
            self.baseline = {"descriptors": self.descriptors(self.agent.process.pid), "threads": self.status("Threads")}
        self.worst["most threads in a calm"] = max(self.worst["most threads in a calm"], self.status("Threads"))

    def account_for_rows(self):
        """Rows are records or not sent, but for those of passes that were broken off: between passes that is exact."""
        def excess(each):
            return each["records"] + each["not sent"] + each["refused"] - each["rows"]
        lowest = {}
        for _ in range(10):
            figures = {key[1]: each for key, each in self.logged().items() if key[0] == "subscription" and key != GNMI}
            for name, each in figures.items():
                key = (name, each["restarts"], each["failed"], self.counts["reloads"])
                lowest[key] = min(lowest.get(key, excess(each)), excess(each))
            time.sleep(0.037)
        for key, least in lowest.items():
            name, restarts, failed, *_ = key
            if least != self.excess.get(key, least) or (restarts == failed == 0 and least != 0):
                self.complain(f"{name} has {least} records more than rows, {self.excess.get(key, 0)} before")
        self.excess = lowest

    def progress(self, before):
        """Every subscription goes on, and gNMI answers."""
        after = self.logged()
        for name in SUBSCRIPTIONS:
            key = ("subscription", name)
            if after[key]["passes"] <= before[key]["passes"]:
                self.complain(f"{name} makes no passes in a calm")
        with stand_channel(self.port) as channel:
            path = stand.list_path("port-ecn-statistics")
            response = gnmi_pb2_grpc.gNMIStub(channel).Get(gnmi.GetRequest(path=[path], encoding="PROTO"), timeout=5)
            rows = stand.rows_of(response.notification)["port-ecn-statistics"]
        if len(rows) != 8:
            self.complain(f"Get answers {len(rows)} of 8 rows in a calm")

    def rest(self):
        self.settle()
        before = self.look()
        self.account_for_rows()
        self.progress(before)
        self.settle()  # which that call has to leave, too
        self.measure_agent()
        self.counts["calms"] += 1

    # The faults.

    def begin(self, name, work, *arguments):
        def run(calm=self.calm):
            try:
                work(calm, *arguments)
            except Exception as error:  # pylint: disable=broad-except
                self.complain(f"{name}: {error!r}")
        thread = threading.Thread(target=run, name=name, daemon=True)
        self.threads.append(thread)
        thread.start()

    def signal_child(self, process, number):
        try:
            os.kill(process, number)
            return True
        except ProcessLookupError:
            return False

    def untired(self):
        """The workers of subscriptions and of streams that would be started again soon, but for those that hang."""
        now = time.monotonic()
        workers = [worker for worker in self.agent.children().get("qos-worker", []) if worker not in self.hung]
        return ([worker for worker in workers if now - self.own.get(worker, now) > UNTIRED],
                [worker for worker in workers if worker not in self.own])

    def victim(self):
        """One of either, or None."""
        kinds = [each for each in self.untired() if each]
        return self.random.choice(self.random.choice(kinds)) if kinds else None

    def kill_worker(self):
        worker = self.victim()
        return worker is not None and self.signal_child(worker, signal.SIGKILL)

    def stop_worker(self):
        worker = self.victim()
        return worker is not None and self.pause_child(worker, self.random.uniform(0.2, 3))

    def hang_worker(self):
        """Nobody lets it go on: the agent has to end it."""
        owns, _ = self.untired()
        if not owns:
            return False
        worker = self.random.choice(owns)
        self.hung.add(worker)
        return self.signal_child(worker, signal.SIGSTOP)

    def pause_child(self, process, seconds):
        def run(calm):
            calm.wait(seconds)
            self.signal_child(process, signal.SIGCONT)
        if not self.signal_child(process, signal.SIGSTOP):
            return False
        self.begin("a child that is stopped", run)
        return True

    def kill_feed(self):
        return any(self.signal_child(feed, signal.SIGKILL) for feed in self.agent.children().get("qos-feed", []))

    def stop_feed(self):
        return any(self.pause_child(feed, self.random.uniform(0.2, 2))
                   for feed in self.agent.children().get("qos-feed", []))

    def lock_database(self):
        """Writers wait, or leave a round out; readers go on. What keeps those out the feed does not let others have."""
        mode = self.random.choice(("BEGIN IMMEDIATE", "BEGIN EXCLUSIVE"))
        self.begin(f"locking, {mode}", self.hold_lock, self.agent.database(), mode, self.random.uniform(0.1, 2))
        return True

    def hold_lock(self, calm, database, mode, seconds):
        connection = sqlite3.connect(f"file:{database}?mode=rw", uri=True, isolation_level=None, timeout=2)
        try:
            connection.execute(mode)
            self.counts["locks held"] += 1
            calm.wait(seconds)
            connection.execute("ROLLBACK")
        except sqlite3.OperationalError:  # another lock is there, or another feed begins
            self.counts["locks not had"] += 1
        finally:
            connection.close()

    # Subscribers, in this process and in others.

    def requests(self, calm):
        """The messages of a client: a subscribe, in the mode of polls some of them, and no end before the calm."""
        path = self.random.choice((stand.path_of("qos"), stand.list_path(self.random.choice(list(stand.LISTS)))))
        kind = self.random.choice(("sample", "suppressing", "on change", "target defined", "once", "poll"))
        wanted = {"sample": lambda: stand.sample(path), "on change": lambda: stand.on_change(path),
                  "suppressing": lambda: stand.sample(path, suppress_redundant=True, heartbeat_interval=2 * stand.SECOND)}
        mode = kind.upper() if kind in ("once", "poll") else "STREAM"
        first = stand.subscribe(wanted.get(kind, lambda: path)(), mode=mode,
                                encoding=self.random.choice(("PROTO", "JSON_IETF")))
        self.counts[f"gNMI {kind}"] += 1

        def messages():
            yield first
            while not calm.wait(0.5):
                if kind == "poll":
                    yield gnmi.SubscribeRequest(poll=gnmi.Poll())
        return messages()

    def subscriber(self, pause, answers, first=None):
        """One that waits so long after each answer, and ends after so many of them or at the calm."""
        channel = stand_channel(self.port)
        call = gnmi_pb2_grpc.gNMIStub(channel).Subscribe(first or self.requests(self.calm))
        self.calls.append((call, channel, self.random.random() < 0.5))

        def run(calm):
            try:
                for number, _ in enumerate(call, 1):
                    self.counts["gNMI answers"] += 1
                    if calm.wait(pause) or number == answers:
                        break
                call.cancel()
            except grpc.RpcError as error:
                self.judge(error)
        self.begin("a subscriber", run)
        return True

    def judge(self, error):
        """How calls end that a worker, a lock or a reload may have broken off, or this client itself."""
        # Of as many subscriptions as are allowed some may be too many.
        if error.code().name not in ("UNAVAILABLE", "CANCELLED", "RESOURCE_EXHAUSTED"):
            self.complain(f"a gNMI call ended with {error.code()}: {error.details()}")

    def fast_subscriber(self):
        return self.subscriber(0, self.random.choice((1, 10, 1000)))

    def slow_subscriber(self):
        return self.subscriber(self.random.uniform(0.3, 2), 1000)

    def stalled_subscriber(self):
        """It takes one answer of all lists each second, and then none."""
        first = stand.subscribe(stand.sample(stand.path_of("qos")))
        return self.subscriber(3600, 1000, self.once_said(first, self.calm))

    @staticmethod
    def once_said(first, calm):
        yield first
        calm.wait()

    def get(self):
        path = stand.path_of("qos") if self.random.random() < 0.5 else stand.list_path("queue-statistics")

        def run(_):
            request = gnmi.GetRequest(path=[path], encoding="JSON_IETF")
            with stand_channel(self.port) as channel:
                try:
                    gnmi_pb2_grpc.gNMIStub(channel).Get(request, timeout=SETTLE)
                except grpc.RpcError as error:
                    self.judge(error)
        self.begin("a Get", run)
        return True

    def client_process(self):
        """Another process, which is killed, or stopped first."""
        client = subprocess.Popen(["/usr/bin/python3", "-B", os.path.join(SOURCES, "bench/gnmi_stream.py"),
                                   f"127.0.0.1:{self.port}", self.random.choice(list(stand.LISTS)), "proto"],
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.clients.append(client)
        stops = self.random.random() < 0.5

        def run(calm):
            if client.stdout.readline() and stops:  # none when the service was begun anew meanwhile
                client.send_signal(signal.SIGSTOP)
                calm.wait()
            client.kill()
        self.begin("a client process", run)
        return True

    # Scrapers.

    def scraper(self):
        behaviour = self.random.choice(("slow", "breaks off", "half a request", "stalled"))

        def run(calm):
            with (socket.create_connection(("127.0.0.1", self.metrics_port), timeout=5) as connection,
                  contextlib.suppress(ConnectionError)):  # those that are slow for long are closed
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
                request = b"GET /metrics HTTP/1.1\r\nHost: soak\r\nConnection: close\r\n\r\n"
                connection.sendall(request[:20] if behaviour == "half a request" else request)
                if behaviour == "breaks off":
                    connection.recv(1000)
                    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                elif behaviour == "slow":
                    connection.settimeout(0.1)
                    while not calm.wait(0.1):
                        with contextlib.suppress(TimeoutError):  # so small a window moves in jerks
                            if not connection.recv(500):
                                break
                else:
                    calm.wait()
        self.begin(f"a scraper, {behaviour}", run)
        self.counts[f"scrapes, {behaviour}"] += 1
        return True

    # The configuration.

    def reload(self, variant):
        self.variant = variant
        self.hang_up(self.variants[variant], "is in force")
        # Ledgers of what was begun anew are, too.
        self.previous, self.unknown = {}, None
        self.counts["reloads"] += 1

    def hang_up(self, text, answer):
        answered = len(self.agent.said(answer))
        self.agent.configure(text)
        begin = time.monotonic()
        self.agent.process.send_signal(signal.SIGHUP)
        try:
            harness.wait_until(lambda: len(self.agent.said(answer)) > answered, 5)
        except AssertionError:
            self.complain(f"a SIGHUP is not answered with '{answer}': {self.agent.lines[-3:]}")
        self.took("slowest SIGHUP", time.monotonic() - begin)

    def change_configuration(self):
        self.reload(self.random.choice([each for each in range(len(self.variants)) if each != self.variant]))
        return True

    def faulty_configuration(self):
        text = self.variants[self.variant]
        self.hang_up(self.random.choice((text.replace("speed: 10", "sped: 10"), text + "\x00", text.replace("}", "", 1),
                                         text.replace(f"file: {self.today}", "file: /dev/null"),
                                         text.replace("insecure: true", "certificate: no.pem, key: no.pem"))),
                     "stays as it was")
        self.agent.configure(text)
        return True

    def rotate_capture(self):
        os.rename(self.today, f"{self.today}.{self.counts['rotate capture']}")
        return True

    # (fault, how often in a bout, seconds of rest)
    FAULTS = ((kill_worker, 3, 0), (stop_worker, 2, 0), (hang_worker, 1, 60), (kill_feed, 1, UNTIRED + 4),
              (stop_feed, 1, 0), (lock_database, 4, 0), (fast_subscriber, 5, 0), (slow_subscriber, 3, 0), (stalled_subscriber, 2, 0),
              (get, 3, 0), (client_process, 2, 0), (scraper, 4, 0), (change_configuration, 1, 0),
              (faulty_configuration, 1, 0), (rotate_capture, 1, 0))

    def throw(self, fault, rest):
        now = time.monotonic()
        if now - self.thrown.get(fault, -rest) >= rest and fault(self):
            self.thrown[fault] = now
            self.counts[fault.__name__.replace("_", " ")] += 1
            self.note(fault.__name__.replace("_", " "))

    # The whole.

    def run(self):
        with harness.Agent(self.variants[0]) as self.agent:
            self.metrics_port = metrics.port_of(self.agent)
            harness.wait_until(lambda: self.out_of_place() is None)
            self.own = dict.fromkeys(self.agent.children()["qos-worker"], 0)
            self.crowd()
            while self.counts["calms"] < 2 or time.monotonic() < self.end:
                look = 0
                deck = [each for each in self.FAULTS for _ in range(each[1])]
                self.random.shuffle(deck)
                # It takes 10 s to be found; and nobody is stopped who would be let go on.
                deck.sort(key=lambda each: each[0] is not Soak.hang_worker)
                for fault, _, rest in deck:
                    self.throw(fault, rest)
                    if time.monotonic() - look > 1:
                        look = time.monotonic()
                        self.look()
                    time.sleep(self.random.uniform(0, 0.4))
                self.rest()
            self.stop()
        if left := [name for name in os.listdir(self.folder) if ".qos" not in name and not name.startswith("gnmi-")]:
            self.complain(f"folders are left: {left}")

    def crowd(self):
        """The warm-up: as many clients as there can be, so that the agent's memory has been as large as it gets."""
        for number in range(CROWD):
            first = stand.subscribe(stand.sample(stand.path_of("qos")), encoding=("PROTO", "JSON_IETF")[number % 2])
            self.subscriber(3600 if number < 3 else 0, 100000, self.once_said(first, self.calm))
        for _ in range(CROWD):
            self.scraper()
        for _ in range(4):
            time.sleep(1)
            self.look()
        self.rest()

    def stop(self):
        """With a client that listens and one that does not."""
        everything = stand.subscribe(stand.sample(stand.path_of("qos")))
        self.stalled_subscriber()
        self.subscriber(0, 100000, self.once_said(everything, self.calm))
        time.sleep(5)
        self.look()
        children = [process for each in self.agent.children().values() for process in each]
        said = len(self.agent.lines)
        begin = time.monotonic()
        code = self.agent.stop(seconds=STOP)  # or this fails
        self.worst["time to stop"] = time.monotonic() - begin
        figures = self.ledger_in(self.agent.lines[said:])
        self.order(self.previous, figures, "between the last look and the end")
        dropped = sum(each["dropped"] for (kind, _), each in figures.items() if kind == "output")
        if code != (1 if dropped else 0):
            self.complain(f"the agent ends with {code}, {dropped} records were dropped")
        if not dropped:
            self.complain("nothing was dropped: no client was slow enough for that to be tried")
        if left := [process for process in children if harness.alive(process)]:
            self.complain(f"processes are left: {left}")
        if left := os.listdir(os.path.join(self.agent.folder, "run")):
            self.complain(f"files are left: {left}")
        self.ending = figures
        for call, channel, _ in self.calls:
            call.cancel()
            channel.close()

    def captured(self):
        """Every record that the capture was offered is in its files, which read back whole when they are joined."""
        files = [*(f"{self.today}.{number}" for number in range(self.counts["rotate capture"])), self.today]
        joined = os.path.join(self.folder, "joined.qos")
        with open(joined, "wb") as whole:
            for name in filter(os.path.exists, files):
                with open(name, "rb") as part:
                    shutil.copyfileobj(part, whole)
                os.remove(name)
                self.counts["capture files"] += 1
        with subprocess.Popen([os.path.join(harness.BIN, "qos-host"), "decode", joined, "--output", "none"],
                              stdout=subprocess.PIPE, text=True) as decode:
            kept = sum(int(found.group(1)) for found in
                       (re.match(r"batch .*?, records (\d+),", line) for line in decode.stdout) if found)
        if decode.returncode != 0:
            self.complain("the captures do not read back whole")
        account = self.ending["output", "today"]
        if kept != account["offered"] or account["dropped"]:
            self.complain(f"the captures have {kept} records of {account}")

    def report(self):
        print(f"\n{'most of each':<12} {'processes':>9} {'looks':>7} {'warm KiB':>9} {'most KiB':>9} {'grew KiB':>8} "
              f"{'peak KiB':>9} {'descriptors':>12}")
        for name in GROWTH:
            all_of = [each for each in self.processes.values() if each["name"] == name]
            figures = [max((each[figure] for each in all_of), default=0)
                       for figure in ("warm", "most", "peak", "descriptors")]
            growth = max((each["most"] - each["warm"] for each in all_of), default=0)
            looks = sum(each["looks"] for each in all_of)
            print(f"{name:<12} {len(all_of):>9} {looks:>7} {figures[0]:>9} {figures[1]:>9} {growth:>8} {figures[2]:>9} "
                  f"{figures[3]:>12}")
        print(f"\n{'records':<28} {'offered':>12} {'delivered':>12} {'waiting':>9} {'dropped':>12}")
        for (kind, name), each in sorted(self.ending.items()):
            if kind == "output":
                print(f"{name:<28} {each['offered']:>12} {each['delivered']:>12} {each['waiting']:>9} "
                      f"{each['dropped']:>12}")
        print()
        for name, count in sorted(self.counts.items()):
            print(f"{name:<40} {count:>9}")
        for name, value in sorted(self.worst.items()):
            print(f"{name:<40} {value:>9.3g}")


def stand_channel(port):
    """A connection of its own that takes little before its client reads."""
    return grpc.insecure_channel(f"127.0.0.1:{port}", options=[
        ("grpc.use_local_subchannel_pool", 1), ("grpc.http2.bdp_probe", 0), ("grpc.http2.lookahead_bytes", 65536)])


def main():
    soak = Soak(SECONDS, SEED, FOLDER.name)
    print(f"soak: {SECONDS} s of an agent with faults, seed {SEED}", flush=True)
    try:
        soak.run()
        soak.captured()
    except Exception:  # pylint: disable=broad-except
        traceback.print_exc()
        soak.complain("it did not come to its end")
    finally:
        for client in soak.clients:
            client.kill()
    soak.report()
    if soak.violations:
        print("\nwhat was done:", *soak.log, "what the agent said last:",
              *[line for line in soak.agent.lines if not LEDGER.match(line)][-40:], sep="\n", file=sys.stderr)
    if not soak.violations:
        print("soak: no violation")
    return 1 if soak.violations else 0


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    sys.exit(main())
