"""A full disk at the receiver, and a stream whose limits have deleted what was not received yet."""

import json
import os
import re
import resource
import signal
import unittest

import table_file
from processes import wait_until
from stream_check import message_of
from shipping_test import STREAM, ShippingTest, end_on_signals


def small_files(limit):
    """What a process does first whose files cannot become longer than that."""
    def limited():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
    return limited


class LimitsTest(ShippingTest):
    def test_a_receiver_whose_disk_is_full_says_so_and_goes_on_when_there_is_space(self):
        self.start_cluster(1)
        self.written(5000, block=300)
        self.ended(self.ship("--once"))
        for limit in (50_000, 123_456, 200_001):
            receiver = self.receive("--once", before=small_files(limit))
            status = receiver.wait(60)
            self.assertIn(status, (1, 3), receiver.told())
            self.assertRegex(receiver.err(), "orders|fills")
            self.assertIn("File too large", receiver.err())
            for name in self.tables()[0]:
                self.assertEqual(table_file.open_difference(self.path("source", name), self.path("copy", name)), "")
        self.ended(self.receive("--once"))
        self.assert_copied()

    def limited_stream(self, limit):
        with self.cluster.client() as client:
            client.api(f"STREAM.CREATE.{STREAM}", {"name": STREAM, "subjects": [STREAM + ".>"], "storage": "file",
                                                   "num_replicas": 1, "max_bytes": limit, "discard": "old", "allow_direct": True})

    def test_what_a_stream_has_deleted_before_it_was_received_is_told_with_its_ids(self):
        self.start_cluster(1)
        self.limited_stream(600_000)
        self.written(500)
        self.ended(self.ship("--once"))
        self.ended(self.receive("--once"))
        self.assert_copied()
        had = {name: table_file.read(self.path("copy", name)) for name in self.tables()[0]}
        self.written(10_000)
        self.ended(self.ship("--once"))
        with self.cluster.client() as client:
            self.assertGreater(client.stream(STREAM)["state"]["first_seq"], 3000, "the test needs a stream that has deleted")
            kept = {name: [] for name in had}
            for record in client.read_stream(STREAM):
                if "Tabulo-Message" in record.headers:
                    kept[record.headers["Tabulo-Table"]].append(message_of(record)[0])
        told = self.ended(self.receive("--once"), 3)
        numbers = set(map(int, re.findall(r"\d+", told)))
        for name, data in had.items():
            newest = max(table_file.TableFile(self.path("copy", name)).uniform_ids())
            self.assertTrue({newest, newest + 1} & numbers, f"{name} is not told to end with {newest}: {told}")
            self.assertTrue({kept[name][0], kept[name][0] - 1} & numbers, f"{name} is not told to go on with {kept[name][0]}: {told}")
            self.assertEqual(table_file.read(self.path("copy", name))[256:], data[256:], f"{name} was changed behind its header")

    def test_a_new_copy_of_a_stream_without_its_beginning_is_told_and_not_begun_in_the_middle(self):
        self.start_cluster(1)
        self.limited_stream(400_000)
        self.written(8000)
        self.ended(self.ship("--once"))
        told = self.ended(self.receive("--once"), 3)
        for name in self.tables()[0]:
            self.assertIn(name, told)
            path = self.path("copy", name)
            if os.path.exists(path) and os.path.getsize(path) > 19:
                self.assertEqual(list(table_file.TableFile(path).frames()), [])

    def test_lag_tells_how_far_shipper_and_receiver_are_behind(self):
        self.start_cluster(1)
        self.written(3000)
        shipper, receiver = self.ship(), self.receive()
        self.wait_until_received()

        def lags():
            lag = self.verb("lag", ["-o", "ndjson"])
            if lag.wait(30) != 0:
                return None
            lines = [json.loads(line) for line in lag.out().splitlines()]
            return lines if len(lines) == 2 and all(line["messages"] == 0 for line in lines) else None

        lines = wait_until(lags, 30, lambda: "shipper and receiver tell that they are up to date: " + self.told(), 0.3)
        self.assertEqual({(line["stream"], line["role"], line["pid"]) for line in lines},
                         {(STREAM, "shipper", shipper.pid), (STREAM, "receiver", receiver.pid)})
        receiver.signal(signal.SIGSTOP)
        receiver_lines = self.verb("lag", ["-o", "ndjson"])
        receiver_lines.wait(30)
        self.assertEqual([json.loads(line)["role"] for line in receiver_lines.out().splitlines()], ["shipper"])
        receiver.signal(signal.SIGCONT)
        self.stopped(shipper)
        self.stopped(receiver)


if __name__ == "__main__":
    end_on_signals()
    unittest.main()
