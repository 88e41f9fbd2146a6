"""What the gNMI tests share: an agent over a database of their own, paths, and rows out of notifications."""

import json
import os
import queue
import re
import shutil
import socket
import sqlite3
import subprocess
import tempfile
import threading
import time

import gnmi_pb2 as gnmi
import gnmi_pb2_grpc
import grpc

from harness import BIN, Agent, wait_until

SECOND = 1_000_000_000


def moment(column):
    return (f"strftime('%Y-%m-%d %H:%M:%S', {column}time_stamp, 'unixepoch') || "
            f"printf('.%03d', {column}milli_second)")


# The rows of each list as the database has them, in the order of the schema's leaves.
SELECTS = {
    "port-ecn-statistics": "ifName, packets FROM port_ecn_stat",
    "port-buffer-usage-statistics":
        "slotIdStr, ifName, totalBuff, currentUsed, remained, peakUsed, avgUsed FROM port_buf_stat",
    "queue-buffer-usage-statistics":
        "slotIdStr, ifName, queueId, curUsed, peakUsed, avgUsed, totalBuf FROM queue_buf_stat",
    "queue-statistics": "ifName, queueId, passPackets, passBytes, passPktRate, passBytRate, dropPackets, dropBytes, "
                        "dropPktRate, dropBytRate FROM queue_stat",
    "queue-drop-statistics":
        "ifName, " + ", ".join(f"queue{queue}DropByts, queue{queue}DropPkts" for queue in range(8)) +
        " FROM queue_drop_stat",
    "ing-port-drop-statistics": "ifName, dropByts, dropPkts FROM ing_port_drop_stat",
    "tm-chip-buffer-usage-statistics": "slotId, totalBuf, usedBuf, usedPct FROM tm_chip_buf_stat",
    "intf-ing-buf-usage-statistics":
        "if_name, queue, is_pfc_dynamic, current_guaranteed, total_guaranteed, current_buffer, total_buffer, "
        "current_headroom, total_headroom FROM ing_buf_usage_stat WHERE is_lossless = 1",
    "interface-monitoring-result":
        f"ifName, queue_index, 1, 0, {moment('')}, used_buf, percent, {moment('start_')}, start_used_buf, "
        f"start_percent, {moment('peak_')}, peak_used_buf, peak_percent, slot, burst_number FROM buffer_monitor_result",
}


class Schema:
    """What qos-host says of a path."""

    def __init__(self, path):
        self.alias = path["alias"]
        self.container = path["xpath"].split("/")[-2]
        self.types = {field["name"]: field["type"] for field in path["fields"]}
        self.leaves = list(self.types)
        self.keys = path["keys"]


LISTS = {path["alias"]: Schema(path) for path in json.loads(
    subprocess.run([os.path.join(BIN, "qos-host"), "paths", "--json"], check=True, capture_output=True).stdout)}
CONTAINERS = {schema.container: schema for schema in LISTS.values()}


def path_of(*names, **more):
    """A path of names; a pair is a name with its keys."""
    path = gnmi.Path(**more)
    for name in names:
        name, keys = name if isinstance(name, tuple) else (name, {})
        element = path.elem.add(name=name)
        for key, value in keys.items():
            element.key[key] = str(value)
    return path


def list_path(alias, leaf=None, **keys):
    names = ["qos", "global-query", LISTS[alias].container, (alias, {key.replace("_", "-"): keys[key] for key in keys})]
    return path_of(*names, *([leaf] if leaf else []))


def subscribe(*subscriptions, mode="STREAM", encoding="PROTO", **more):
    """The first message of a stream; a path alone is a subscription."""
    return gnmi.SubscribeRequest(subscribe=gnmi.SubscriptionList(
        subscription=[each if isinstance(each, gnmi.Subscription) else gnmi.Subscription(path=each)
                      for each in subscriptions],
        mode=mode, encoding=encoding, **more))


def sample(path, seconds=1, **more):
    return gnmi.Subscription(path=path, mode="SAMPLE", sample_interval=round(seconds * SECOND), **more)


def on_change(path, **more):
    return gnmi.Subscription(path=path, mode="ON_CHANGE", **more)


def take_apart(path):
    """The schema of a path in a notification, its key values, and the rest of it."""
    names = [element.name for element in path.elem]
    assert names[:2] == ["qos", "global-query"], names
    schema = CONTAINERS[names[2]]
    assert names[3] == schema.alias, names
    assert set(path.elem[3].key) == set(schema.keys), path
    return schema, tuple(path.elem[3].key[key] for key in schema.keys), names[4:]


def python_value(text, kind):
    return {"string": str, "bool": bool, "uint32": int, "uint64": int}[kind](text)


def from_json(value, kind, encoding):
    """Checks how the encoding writes a leaf of this type."""
    if encoding == "JSON_IETF":
        assert isinstance(value, str) == (kind in ("string", "uint64")), (value, kind)
    elif kind == "uint64":
        assert isinstance(value, str) == (int(value) > 2**53), value
    return python_value(value, kind)


def leaves_of(update, encoding):
    """The leaves of an update, by name."""
    schema, _, rest = take_apart(update.path)
    kind = update.val.WhichOneof("value")
    if encoding == "PROTO":
        leaf, = rest
        assert kind == {"string": "string_val", "bool": "bool_val"}.get(schema.types[leaf], "uint_val"), update
        return {leaf: getattr(update.val, kind)}
    assert kind == {"JSON": "json_val", "JSON_IETF": "json_ietf_val"}[encoding], update
    value = json.loads(getattr(update.val, kind))
    if rest:
        leaf, = rest
        return {leaf: from_json(value, schema.types[leaf], encoding)}
    first, *others = value
    assert first == "vexlor-qos:" + schema.leaves[0], first
    value = {schema.leaves[0]: value[first], **{name: value[name] for name in others}}
    return {name: from_json(each, schema.types[name], encoding) for name, each in value.items()}


def rows_of(notifications, encoding="PROTO"):
    """Leaves by list and key, of the updates of some notifications."""
    rows = {}
    for notification in notifications:
        for update in notification.update:
            schema, keys, _ = take_apart(update.path)
            rows.setdefault(schema.alias, {}).setdefault(keys, {}).update(leaves_of(update, encoding))
    return rows


class Stream:
    """A Subscribe call whose answers are collected as they come."""

    def __init__(self, stub, *requests, encoding="PROTO"):
        self.encoding = encoding
        self.requests = queue.Queue()
        for request in requests:
            self.requests.put(request)
        self.call = stub.Subscribe(iter(self.requests.get, None))
        self.responses = []  # with the time of their arrival
        self.error = None
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        try:
            for response in self.call:
                self.responses.append((time.time(), response))
        except grpc.RpcError as error:
            self.error = error

    def send(self, request):
        self.requests.put(request)

    def syncs(self):
        return sum(response.sync_response for _, response in self.responses)

    def wait_sync(self, count=1, seconds=10):
        wait_until(lambda: self.syncs() >= count or self.error, seconds)
        assert self.error is None, self.error
        return self

    def notifications(self, since=0):
        return [response.update for _, response in self.responses[since:] if response.HasField("update")]

    def rows(self, since=0):
        return rows_of(self.notifications(since), self.encoding)

    def deletes(self, since=0):
        return [take_apart(path)[:2] for notification in self.notifications(since) for path in notification.delete]

    def end(self):
        self.requests.put(None)
        self.call.cancel()
        self.reader.join(5)

    def wait_end(self, seconds=10):
        """The status that the server ended it with."""
        self.reader.join(seconds)
        assert not self.reader.is_alive()
        return self.error.code() if self.error else grpc.StatusCode.OK


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Stand(Agent):
    """An agent that serves gNMI over a database which changes only when the test says so."""

    def __init__(self, slots=2, ports=8, settings="", environment=None):
        self.data = tempfile.mkdtemp(prefix="gnmi-test-")
        self.file_of_tables = os.path.join(self.data, "q.db")
        # Counters of some rounds; the last bursts are over.
        subprocess.run([os.path.join(BIN, "qos-host"), "feed", "sim", "--db", self.file_of_tables, "--count", "1",
                        "--seed", "7", "--ports", str(ports), "--slots", str(slots)], check=True, timeout=60)
        self.port = free_port()
        super().__init__(f"feed: none\ndatabase: {self.file_of_tables}\n"
                         f"gnmi: {{listen: '127.0.0.1:{self.port}', insecure: true{settings}}}\n", environment)
        self.channel = None

    def __enter__(self):
        super().__enter__()
        self.channel = self.connect()
        self.stub = gnmi_pb2_grpc.gNMIStub(self.channel)
        return self

    def __exit__(self, kind, *rest):
        if self.channel:
            self.channel.close()
        super().__exit__(kind, *rest)
        shutil.rmtree(self.data)

    def connect(self, **options):
        # A connection of its own each time.
        return grpc.insecure_channel(f"127.0.0.1:{self.port}",
                                     options=[("grpc.use_local_subchannel_pool", 1), *options.items()])

    def connect_slowly(self):
        """A connection that takes little before its client reads."""
        return self.connect(**{"grpc.http2.bdp_probe": 0, "grpc.http2.lookahead_bytes": 65536})

    def execute(self, *statements):
        connection = sqlite3.connect(self.file_of_tables, timeout=10)
        with connection:
            for statement in statements:
                connection.execute(statement)
        connection.close()

    def expected(self, alias, where=None):
        """The rows of a list as the database has them: leaves by key."""
        schema = LISTS[alias]
        select = f"SELECT * FROM (SELECT {SELECTS[alias]})"
        connection = sqlite3.connect(self.file_of_tables, timeout=10)
        rows = {}
        for row in connection.execute(select):
            leaves = {name: python_value(value, schema.types[name]) for name, value in zip(schema.leaves, row)}
            rows[tuple(str(leaves[key]) for key in schema.keys)] = leaves
        connection.close()
        return {key: row for key, row in rows.items() if where is None or where(row)}

    def subscribe(self, *subscriptions, encoding="PROTO", **more):
        return Stream(self.stub, subscribe(*subscriptions, encoding=encoding, **more), encoding=encoding)

    def get(self, *paths, encoding="PROTO", **more):
        response = self.stub.Get(gnmi.GetRequest(path=paths, encoding=encoding, **more), timeout=20)
        return rows_of(response.notification, encoding)

    def workers(self):
        return self.children().get("qos-worker", [])

    def calls(self):
        """The account of each gNMI call, and of "(ended)" ones; a second call of one name has a number behind it."""
        begin = len(self.lines)
        self.ledger()
        accounts = {}
        for line in self.lines[begin:]:
            found = re.match(r"qos-agent: gnmi (.*): (offered .*)", line)
            if found:
                pairs = re.findall(r"([a-z][a-z_ ]*?) (\d+)", found.group(2))
                account = {name: int(value) for name, value in pairs}
                assert account["offered"] == account["delivered"] + account["waiting"] + account["dropped"], line
                name = found.group(1)
                accounts[name if name not in accounts else f"{name} {len(accounts)}"] = account
        return accounts


def memory(process):
    """The bytes that a process has to itself."""
    with open(f"/proc/{process}/smaps_rollup", encoding="utf-8") as file:
        return sum(int(line.split()[1]) for line in file if line.startswith("Private_")) * 1024


def next_pass(passes=1):
    """Sleeps until that many passes have begun and ended that begin at whole seconds."""
    now = time.time()
    time.sleep(int(now) + passes + 0.5 - now)
