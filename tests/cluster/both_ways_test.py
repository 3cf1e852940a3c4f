"""Tables that are shipped and received while they are written."""

import os
import unittest

from processes import wait_until
from shipping_test import STREAM, ShippingTest, end_on_signals
from stream_check import MARK


class BothWaysTest(ShippingTest):
    def test_two_tables_are_shipped_and_received_while_they_are_written(self):
        self.start_cluster()
        self.written(1)
        shipper = self.ship()
        receiver = self.receive()
        self.ended(self.write(200_000, rate=40_000), seconds=120)
        self.wait_until_shipped(120)
        self.wait_until_received(120)
        self.stopped(shipper)
        self.stopped(receiver)
        self.assert_copied()
        check = self.assert_stream_is_right()
        self.assertEqual(check.ids, set(range(1, 200_001)))
        # Again from nothing, and again over what is there.
        again = self.path("again")
        for _ in range(2):
            self.ended(self.verb("receive", [again, "--once"]), seconds=120)
            self.assert_copied(again)

    def test_shipping_again_ships_nothing_twice(self):
        self.start_cluster(1)
        self.written(3000)
        self.ended(self.ship("--once"))
        first = self.assert_stream_is_right()
        self.ended(self.ship("--once"))
        second = self.assert_stream_is_right()
        for kind in ("message", MARK + "layout"):
            self.assertEqual(first.kinds[kind], second.kinds[kind])
        self.written(5000)
        self.ended(self.ship("--once"))
        self.assertEqual(self.assert_stream_is_right().kinds["message"], 5000)

    def test_frames_beyond_the_limit_of_a_record_go_over_in_parts(self):
        self.start_cluster(1)
        self.written(2500, long=3_000_000)
        self.ended(self.ship("--once"))
        check = self.assert_stream_is_right()
        self.assertGreater(check.kinds["message"], 2500)
        self.ended(self.receive("--once"))
        self.assert_copied()

    def test_the_streams_of_two_engines_are_received_into_a_folder_each(self):
        self.start_cluster(1)
        self.written(700)
        desk = self.path("desk")
        command, url = os.environ["TABULO_COMMAND"], self.cluster.url()
        for stream in ("ENG1", "ENG2"):
            self.ended(self.start("ship", [command, "ship", self.source, "--stream", stream, "--server", url,
                                           "--replicas", "1", "--once"]))
        self.ended(self.start("receive", [command, "receive", desk, "--stream", "ENG1,ENG2", "--server", url, "--once"]))
        for stream in ("ENG1", "ENG2"):
            self.assert_copied(os.path.join(desk, stream))
        # A folder is of one stream.
        foreign = [command, "receive", os.path.join(desk, "ENG1"), "--stream", "ENG2", "--server", url, "--once"]
        self.assertIn("a folder is of one stream", self.ended(self.start("receive", foreign), 1))

    def test_both_wait_for_a_cluster_that_is_away(self):
        cluster = self.start_cluster(1)
        cluster.end()
        self.written(1000)
        shipper, receiver = self.ship(), self.receive()
        wait_until(lambda: shipper.err() and receiver.err(), 30, lambda: "both say so: " + self.told())
        cluster.start()
        self.wait_until_received()
        self.stopped(shipper)
        self.stopped(receiver)
        self.assert_copied()
        self.assertIsNotNone(cluster.stream(STREAM))


if __name__ == "__main__":
    end_on_signals()
    unittest.main()
