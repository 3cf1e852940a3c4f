"""One shipper for a stream, and what becomes of a second one."""

import unittest

from processes import wait_until
from shipping_test import ShippingTest, end_on_signals


class OwnersTest(ShippingTest):
    def test_a_second_shipper_ends_and_names_the_first(self):
        self.start_cluster(1)
        self.written(500)
        first = self.ship()
        self.wait_until_shipped()
        second = self.ship()
        told = self.ended(second, 1)
        self.assertIn(str(first.pid), told)
        self.assertIn("--takeover", told)
        self.written(1000)
        self.wait_until_shipped()
        self.stopped(first)
        self.assert_stream_is_right()

    def test_a_takeover_ends_the_first(self):
        self.start_cluster()
        self.written(500)
        first = self.ship()
        self.wait_until_shipped()
        writer = self.write(20_000, rate=4000)
        second = self.ship("--takeover")
        self.assertIn(str(second.pid), self.ended(first, 1))
        self.ended(writer)
        self.wait_until_shipped()
        self.stopped(second)
        check = self.assert_stream_is_right()
        self.assertEqual(check.kinds["message"], 20_000)

    def test_a_shipper_that_was_killed_keeps_nobody_out(self):
        self.start_cluster(1)
        self.written(500)
        first = self.ship()
        self.wait_until_shipped()
        first.kill()
        self.written(1000)
        self.ended(self.ship("--once"))
        self.assert_stream_is_right()

    def test_a_shipper_that_was_stopped_and_overtaken_ends_when_it_wakes(self):
        self.start_cluster(1)
        self.written(500)
        first = self.ship()
        self.wait_until_shipped()
        first.signal(19)
        self.written(1000)
        second = self.ship()
        self.wait_until_shipped()
        first.signal(18)
        self.written(1500)
        self.assertIn(str(second.pid), self.ended(first, 1))
        self.wait_until_shipped()
        self.stopped(second)
        check = self.assert_stream_is_right()
        self.assertEqual(check.kinds["message"], 1500)

    def test_two_shippers_that_begin_at_the_same_time_ship_nothing_twice(self):
        self.start_cluster(1)
        self.written(3000)
        both = [self.ship(), self.ship()]
        wait_until(lambda: not all(process.runs() for process in both), 30, lambda: "one has ended: " + self.told())
        self.assertEqual(sum(process.runs() for process in both), 1, self.told())
        ended = next(process for process in both if not process.runs())
        self.assertEqual(ended.status(), 1, ended.told())
        self.wait_until_shipped()
        self.stopped(next(process for process in both if process.runs()))
        self.assert_stream_is_right()


if __name__ == "__main__":
    end_on_signals()
    unittest.main()
