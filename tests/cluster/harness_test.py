"""Tests of what the other tests here rely on: that it notices what is wrong."""

import os
import socket
import struct
import subprocess
import sys
import time
import unittest

import table_file
from nats_client import StreamMessage
from processes import wait_until
from proxy import Proxy
from shipping_test import ShippingTest, end_on_signals
from stream_check import MARK, StreamCheck


class HarnessTest(ShippingTest):
    def records(self):
        """What a stream of the written tables would be, one table behind the other."""
        sequence = 0
        for table in self.tables()[0]:
            file = table_file.TableFile(os.path.join(self.source, table))
            common = {"Tabulo-Table": table}
            sequence += 1
            yield StreamMessage(sequence, f"ENG1.{table}.{MARK}layout", {**common, "Tabulo-Place": f"1/{file.header}"},
                                b"texts ClOrdID Symbol\nnumbers OrderQty Price\nmessagesPerBlock 7\n")
            for frame in file.frames():
                sequence += 1
                uid, seq = struct.unpack_from("<ii", frame.data, 4)
                yield StreamMessage(sequence, f"ENG1.{table}.APP_TO.D", {
                    **common, "Tabulo-Place": f"1/{frame.offset}", "Tabulo-Message": f"{uid}/{seq}/0"}, frame.data)

    def problems(self, records):
        check = StreamCheck("ENG1")
        for record in records:
            check.take(record)
        for table in self.tables()[0]:
            check.compare(os.path.join(self.source, table), table)
        return check.problems

    def test_a_stream_that_loses_repeats_swaps_or_changes_a_message_is_noticed(self):
        self.written(100, block=7)
        records = list(self.records())
        self.assertEqual(self.problems(records), [])
        for at in (3, 9, 60, len(records) - 1):
            self.assertTrue(self.problems(records[:at] + records[at + 1:]), f"without record {at}")
            self.assertTrue(self.problems(records[:at] + [records[at]] + records[at:]), f"twice record {at}")
            changed = records[at]._replace(payload=records[at].payload[:-5] + b"?" + records[at].payload[-4:])
            self.assertTrue(self.problems(records[:at] + [changed] + records[at + 1:]), f"changed record {at}")
        self.assertTrue(self.problems(records[:8] + [records[9], records[8]] + records[10:]))
        early = StreamMessage(0, f"ENG1.session.{MARK}session", {"Tabulo-Table": "session", "Tabulo-Place": "1/0"}, b"1 1\n2 1\n")
        self.assertTrue(self.problems([early, *records]))

    def test_a_copy_that_differs_is_noticed(self):
        self.written(50, block=7)
        os.mkdir(self.copy)
        for name in os.listdir(self.source):
            with open(self.path("copy", name), "wb") as file:
                file.write(table_file.read(self.path("source", name)))
        self.assert_copied()
        for name in os.listdir(self.source):
            data = table_file.read(self.path("copy", name))
            with open(self.path("copy", name), "wb") as file:
                file.write(data[:-1] + bytes([data[-1] ^ 1]))
            with self.assertRaises(AssertionError, msg=name):
                self.assert_copied()
            with open(self.path("copy", name), "wb") as file:
                file.write(data)

    def test_a_writer_goes_on_where_a_killed_one_has_ended(self):
        writer = self.write(1_000_000, block=50)
        wait_until(lambda: os.path.exists(self.path("source", "fills")) and
                   os.path.getsize(self.path("source", "fills")) > 20000, 20, "some messages are written")
        writer.kill()
        reached = max(max(table_file.TableFile(self.path("source", name)).uniform_ids()) for name in self.tables()[0])
        self.written(reached + 1000)
        ids = sorted(uid for name in self.tables()[0] for uid in table_file.TableFile(self.path("source", name)).uniform_ids())
        self.assertEqual(ids, list(range(1, reached + 1001)))

    def test_the_proxy_hands_on_stalls_and_cuts(self):
        with socket.create_server(("127.0.0.1", 0)) as server, Proxy(server.getsockname()[1]) as proxy:
            near = socket.create_connection(("127.0.0.1", proxy.port), 10)
            far, _ = server.accept()
            far.settimeout(10)
            near.sendall(b"a" * 1_000_000)
            left = 1_000_000
            while left:
                left -= len(far.recv(left))
            proxy.stall()
            time.sleep(0.1)
            near.sendall(b"b")
            far.settimeout(0.3)
            with self.assertRaises(TimeoutError):
                far.recv(1)
            proxy.heal()
            far.settimeout(10)
            self.assertEqual(far.recv(1), b"b")
            proxy.cut()
            self.assertEqual(near.recv(1), b"")
            far.close()
            near.close()

    def test_a_cluster_elects_another_leader_and_keeps_its_stream(self):
        cluster = self.start_cluster()
        with cluster.client() as client:
            client.api("STREAM.CREATE.S", {"name": "S", "subjects": ["S.>"], "storage": "file", "num_replicas": 3})
            for n in range(5):
                self.assertEqual(client.publish("S.a", b"x" * n, {"Name": f"value {n}"})["seq"], n + 1)
        leader, _ = cluster.leader("S")
        leader.kill()
        other, _ = cluster.leader("S")
        self.assertIsNot(other, leader)
        leader.start()
        cluster.wait_until_ready()
        cluster.wait_until_whole("S")
        with cluster.client() as client:
            found = [(m.sequence, m.subject, m.headers["Name"], m.payload) for m in client.read_stream("S")]
        self.assertEqual(found, [(n + 1, "S.a", f"value {n}", b"x" * n) for n in range(5)])

    def test_a_killed_test_leaves_no_process_behind(self):
        program = ("import sys; sys.path.insert(0, sys.argv[1])\n"
                   "from processes import Process\n"
                   "print(Process(['sleep', '1000'], sys.argv[2], 'sleep').pid, flush=True)\n"
                   "import time; time.sleep(1000)\n")
        with subprocess.Popen([sys.executable, "-B", "-c", program, os.path.dirname(os.path.abspath(__file__)), self.folder],
                              stdout=subprocess.PIPE) as test:
            pid = int(test.stdout.readline())
            test.kill()
        wait_until(lambda: not os.path.exists(f"/proc/{pid}/exe"), 10, "the process has ended")


if __name__ == "__main__":
    end_on_signals()
    unittest.main()
