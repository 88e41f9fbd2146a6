"""What the agent's tests share: an agent that runs, its children, and its ledger."""

import os
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

BIN = os.environ["QOS_BIN"]

# The environment of an agent whose memory is measured: a sanitizer keeps what is freed, which would count as in use.
MEASURED = {"ASAN_OPTIONS": ":".join(filter(None, [os.environ.get("ASAN_OPTIONS"), "quarantine_size_mb=1",
                                                   "thread_local_quarantine_size_kb=64"]))}


def wait_until(what, seconds=10.0):
    """Waits until what() is true, and answers that; fails after so long."""
    end = time.monotonic() + seconds
    while True:
        value = what()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f"not within {seconds} s: {what.__doc__ or what}")
        time.sleep(0.02)


class Agent:
    """An agent that runs in a folder of its own; with a configuration text, or with the default one."""

    def __init__(self, configuration=None, environment=None):
        self.folder = tempfile.mkdtemp(prefix="agent-test-")
        self.file = os.path.join(self.folder, "agent.yaml")
        arguments = [os.path.join(BIN, "qos-agent"), "run"]
        if configuration is not None:
            self.configure(configuration)
            arguments.append(self.file)
        self.lines = []
        runtime = os.path.join(self.folder, "run")
        os.mkdir(runtime)
        self.process = subprocess.Popen(
            arguments, stderr=subprocess.PIPE, text=True, errors="backslashreplace",
            env={**os.environ, "RUNTIME_DIRECTORY": runtime, **(environment or {})})
        self.reader = threading.Thread(target=self._read, daemon=True)
        self.reader.start()

    def _read(self):
        for line in self.process.stderr:
            self.lines.append(line.rstrip("\n"))

    def __enter__(self):
        try:
            wait_until(lambda: self.said("ready") or self.process.poll() is not None)
            assert self.process.poll() is None, self.lines
            # A child has another name until its program has begun.
            wait_until(lambda: not {"exe", "qos-agent"} & set(self.children()))
        except BaseException:
            self.__exit__(None, None, None)
            raise
        return self

    def __exit__(self, kind, *_):
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        self.reader.join(5)
        if not self.reader.is_alive():  # somebody is left who has the pipe, which a test is about to tell
            self.process.stderr.close()
        if kind is not None:
            print("the agent said:", *self.lines[-40:], sep="\n  ", file=sys.stderr)
        shutil.rmtree(self.folder)
        # What a sanitizer found, in a child as well, which would only be started again.
        found = [number for number, line in enumerate(self.lines) if re.search("[a-z]Sanitizer|: runtime error: ", line)]
        assert not found, "\n".join(self.lines[found[0]:found[0] + 60])

    def configure(self, text):
        with open(self.file, "w", encoding="utf-8") as file:
            file.write(text)

    def said(self, text):
        """The lines that have the text."""
        return [line for line in self.lines if text in line]

    def database(self):
        for folder, _, files in os.walk(os.path.join(self.folder, "run")):
            if "qos.db" in files:
                return os.path.join(folder, "qos.db")
        return None

    def children(self):
        """Process ids by name; a zombie's name is 'zombie'."""
        found = {}
        for entry in os.listdir("/proc"):
            if entry.isdigit():
                try:
                    with open(f"/proc/{entry}/stat", encoding="utf-8", errors="replace") as file:
                        stat = file.read()
                except OSError:
                    continue
                name, rest = re.match(r"\d+ \((.*)\) (.*)", stat, re.DOTALL).groups()
                state, parent = rest.split()[:2]
                if int(parent) == self.process.pid:
                    found.setdefault("zombie" if state == "Z" else name, []).append(int(entry))
        return found

    def ledger(self):
        """The figures of each subscription and output, by its name."""
        begin = len(self.lines)
        self.process.send_signal(signal.SIGUSR1)
        wait_until(lambda: any("ledger of" in line for line in self.lines[begin:]))
        figures = {}
        for line in self.lines[begin:]:
            found = re.match(r"qos-agent: (subscription|output) (\S+): (.*)", line)
            if found:
                pairs = re.findall(r"([a-z][a-z_ ]*?) (\d+)", found.group(3))
                figures[found.group(2)] = {name: int(value) for name, value in pairs}
        return figures

    def stop(self, number=signal.SIGTERM, seconds=10):
        """Answers the exit code."""
        self.process.send_signal(number)
        code = self.process.wait(seconds)
        self.reader.join(5)
        return code


def alive(process):
    """Whether the process runs, or is stopped; one that waits to be collected does not."""
    try:
        with open(f"/proc/{process}/stat", encoding="utf-8", errors="replace") as file:
            return file.read().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False
