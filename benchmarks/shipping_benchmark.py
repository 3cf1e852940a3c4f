"""Measures shipping: how fast tables go into a stream and out of it, beside libnats' own publishing, and how soon.

Run as shipping_benchmark.py <tabulo> <shipping_driver> <nats-server> <results.json> <messages> <turns> in a directory of its
own. The servers run on this machine, beside what is measured: with two cores they take most of both.
"""

import filecmp
import json
import os
import shutil
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "cluster"))
from cluster import Cluster  # noqa: E402
from processes import wait_until  # noqa: E402

RATE = 10_000  # messages a second of an engine whose copy is waited for
SECONDS = 10


def memory_of(pid):
    """The most memory that a process has had so far, in MiB; 0 when it has ended."""
    try:
        with open(f"/proc/{pid}/status", encoding="utf-8") as status:
            return next((int(line.split()[1]) / 1024 for line in status if line.startswith("VmHWM:")), 0)
    except OSError:
        return 0


class Shipping:
    def __init__(self, arguments):
        self.tabulo, self.driver, self.server, results, messages, turns = arguments
        self.messages, self.turns = int(messages), int(turns)
        self.results = open(results, "w", encoding="utf-8")
        self.streams = 0
        self.cluster = None

    def add(self, subject, metric, unit, value):
        print(f"{'shipping':12} {subject:24} {metric:28} {value:14.3f} {unit}", flush=True)
        self.results.write(json.dumps({"group": "shipping", "subject": subject, "metric": metric, "unit": unit,
                                       "value": float(f"{value:.6g}")}) + "\n")
        self.results.flush()

    def stream(self):
        self.streams += 1
        return f"BENCH{self.streams}"

    def drive(self, *arguments):
        run = subprocess.run([self.driver, *map(str, arguments)], stdout=subprocess.PIPE, check=True, text=True)
        return [float(word) for word in run.stdout.split()]

    def command(self, verb, folder, stream, *arguments):
        url = self.cluster.url(self.cluster.nodes[:1] if len(self.cluster.nodes) == 1 else None)
        return [self.tabulo, verb, folder, "--stream", stream, "--server", url, *arguments]

    def timed(self, command):
        """The seconds that a process takes to its end, and the most memory that it has had, in MiB."""
        start = time.monotonic()
        with open("told", "w+", encoding="utf-8") as told:
            process = subprocess.Popen(command, stderr=told)
            most = 0
            while process.poll() is None:
                most = max(most, memory_of(process.pid))
                time.sleep(0.002)
            seconds = time.monotonic() - start
            if process.returncode != 0:
                told.seek(0)
                sys.exit(f"{' '.join(command)} ended with {process.returncode}: {told.read()}")
        return seconds, most

    def measure_rates(self, replicas):
        where = f"replicas {replicas}"
        for turn in range(self.turns):
            url = self.cluster.url(self.cluster.nodes[:1])
            self.add("libnats, " + where, "publish", "/s", self.drive("publish", url, self.stream(), replicas, "source/orders")[0])
            stream = self.stream()
            seconds, memory = self.timed(self.command("ship", "source", stream, "--replicas", str(replicas), "--once"))
            self.add("tabulo, " + where, "publish", "/s", self.messages / seconds)
            self.add("tabulo, " + where, "memory of the shipper", "MiB", memory)
            shutil.rmtree("copy", ignore_errors=True)
            seconds, memory = self.timed(self.command("receive", "copy", stream, "--once"))
            self.add("tabulo, " + where, "receive", "/s", self.messages / seconds)
            self.add("tabulo, " + where, "memory of the receiver", "MiB", memory)
            if not filecmp.cmp("source/orders", "copy/orders", shallow=False):
                sys.exit("the copy differs from its source")
            with self.cluster.client() as client:
                for number in (self.streams - 1, self.streams):
                    client.api(f"STREAM.DELETE.BENCH{number}")

    def measure_delays(self, replicas):
        for folder in ("live", "live-copy"):
            shutil.rmtree(folder, ignore_errors=True)
            os.mkdir(folder)
        stream = self.stream()
        running = [subprocess.Popen(command, stderr=subprocess.DEVNULL) for command in (
            self.command("ship", "live", stream, "--replicas", str(replicas)), self.command("receive", "live-copy", stream))]
        try:
            wait_until(lambda: self.cluster.stream(stream), 30, "the stream is there")
            median, most = self.drive("delays", "live/orders", "live-copy/orders", RATE, RATE * SECONDS)
        finally:
            for process in running:
                process.terminate()
                process.wait()
        self.add(f"tabulo, replicas {replicas}", "delay, median", "ms", median)
        self.add(f"tabulo, replicas {replicas}", "delay, 99 %", "ms", most)

    def measure_engine(self):
        """How fast an engine stores, alone and beside a shipper of its table."""
        for _ in range(self.turns):
            for beside in (False, True):
                shutil.rmtree("engine", ignore_errors=True)
                os.mkdir("engine")
                stream = self.stream()
                shipper = subprocess.Popen(self.command("ship", "engine", stream, "--replicas", "1"),
                                           stderr=subprocess.DEVNULL) if beside else None
                if shipper:
                    wait_until(lambda stream=stream: self.cluster.stream(stream), 30, "the stream is there")
                rate = self.drive("store", "engine/orders", self.messages)[0]
                if shipper:
                    shipper.kill()
                    shipper.wait()
                self.add("engine beside a shipper" if beside else "engine", "append", "/s", rate)

    def run(self):
        os.mkdir("source")
        self.drive("store", "source/orders", self.messages)
        for size in (1, 3):
            with Cluster(self.server, os.path.abspath(f"servers{size}"), size) as self.cluster:
                self.measure_rates(size)
                self.measure_delays(size)
                if size == 1:
                    self.measure_engine()
        self.add("setting", "messages", "", self.messages)


if __name__ == "__main__":
    Shipping(sys.argv[1:]).run()
