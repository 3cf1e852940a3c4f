"""Tables that are emptied, replaced or added while they are shipped, or while nobody looks."""

import os
import unittest

import table_file
from processes import wait_until
from shipping_test import STREAM, ShippingTest, end_on_signals
from stream_check import MARK, message_of


class ChangesTest(ShippingTest):
    def incarnations(self, check):
        return {table: [content.number for content in contents] for table, contents in check.contents.items() if contents}

    def test_a_drop_a_new_layout_and_a_new_table_go_over_while_shipping(self):
        self.start_cluster()
        self.written(2000, block=100)
        shipper, receiver = self.ship(), self.receive()
        for step, options in ((2500, {"drop": "orders"}), (3000, {"recreate": "fills", "layout": 2, "block": 50}),
                              (3500, {"tables": "orders,fills,more%20tables.x", "block": 30}), (3501, {"drop": "fills"}),
                              (6000, {})):
            with self.subTest(step=step):
                self.wait_until_shipped()
                self.wait_until_received()
                self.written(step, **options)
        self.wait_until_received()
        self.stopped(shipper)
        self.stopped(receiver)
        self.assert_copied()
        check = self.assert_stream_is_right()
        self.assertEqual(self.incarnations(check), {"orders": [1, 2], "fills": [1, 2, 3], "more%20tables.x": [1]})
        self.assertEqual(check.ids, set(range(1, 6001)))
        self.copy = self.path("again")
        self.ended(self.receive("--once"))
        self.assert_copied()

    def test_a_receiver_that_was_away_takes_over_drops_and_layouts(self):
        self.start_cluster(1)
        self.written(1000, block=100)
        self.ended(self.ship("--once"))
        self.ended(self.receive("--once"))
        shipper = self.ship()
        self.written(1001)  # what is shipped shows that the tables are followed
        self.wait_until_shipped()
        for step, options in ((1500, {"drop": "orders"}), (2000, {"recreate": "fills", "layout": 2}), (2500, {"drop": "orders"})):
            self.written(step, **options)
            self.wait_until_shipped()
        self.stopped(shipper)
        self.ended(self.receive("--once"))
        self.assert_copied()
        self.assert_stream_is_right()

    def test_a_drop_while_the_shipper_was_away_is_told_with_the_ids(self):
        self.start_cluster(1)
        self.written(1000)
        self.ended(self.ship("--once"))
        newest = {name: max(table_file.TableFile(self.path("source", name)).uniform_ids()) for name in self.tables()[0]}
        self.written(1500)
        self.written(2000, drop="orders")
        told = self.ended(self.ship("--once"), 3)
        self.assertIn("orders", told)
        self.assertIn(str(newest["orders"]), told)
        with self.cluster.client() as client:
            record = client.last(STREAM, f"{STREAM}.fills.>")
        self.assertEqual(message_of(record)[0], max(table_file.TableFile(self.path("source", "fills")).uniform_ids()),
                         "the other table is not shipped")
        self.ended(self.ship("--once", "--allow-gap"))
        check = self.assert_stream_is_right()
        self.assertEqual(check.kinds.get(MARK + "gap"), 1)
        self.ended(self.receive("--once"))
        self.assert_copied()

    def test_a_copy_that_somebody_else_has_written_to_is_refused(self):
        self.start_cluster(1)
        self.written(1000)
        self.ended(self.ship("--once"))
        self.ended(self.receive("--once"))
        source, self.source = self.source, self.copy
        self.written(1100, tables="orders")
        self.source = source
        self.written(2000)
        self.ended(self.ship("--once"))
        before = table_file.read(self.path("copy", "orders"))
        self.assertIn("orders", self.ended(self.receive("--once"), 3))
        self.assertEqual(table_file.read(self.path("copy", "orders")), before)
        self.assertEqual(table_file.difference(self.path("source", "fills"), self.path("copy", "fills")), "")

    def test_a_receiver_without_its_notes_goes_on_where_the_tables_end(self):
        self.start_cluster(1)
        self.written(1500, block=100)
        self.ended(self.ship("--once"))
        self.ended(self.receive("--once"))
        for name in os.listdir(self.copy):
            if name.startswith("."):
                os.remove(self.path("copy", name))
        self.written(2500)
        self.ended(self.ship("--once"))
        self.ended(self.receive("--once"))
        self.assert_copied()

    def test_a_stream_ahead_of_its_source_stops_shipping_until_that_is_accepted(self):
        for goes_on in (False, True):
            with self.subTest(goes_on=goes_on):
                self.rewind(goes_on)
                self.doCleanups()
                self.setUp()

    def rewind(self, goes_on):
        self.start_cluster(1)
        self.written(2000, block=300)
        self.ended(self.ship("--once"))
        self.ended(self.receive("--once"))
        path = self.path("source", "orders")
        frames = list(table_file.TableFile(path).frames())
        ids = table_file.TableFile(path).uniform_ids()
        os.truncate(path, frames[-20].offset)
        last_id = 2300 if goes_on else 2000
        self.written(last_id)
        with self.cluster.client() as client:
            before = client.last(STREAM, f"{STREAM}.*.*.*").sequence
        told = self.ended(self.ship("--once"), 3)
        for uid in (ids[-20], ids[-1]):
            self.assertIn(str(uid), told)
        with self.cluster.client() as client:
            self.assertEqual(client.last(STREAM, f"{STREAM}.*.*.*").sequence, before, "messages were shipped nevertheless")
        self.ended(self.ship("--once", "--accept-rewind"))
        check = self.assert_stream_is_right()
        self.assertEqual(check.kinds.get(MARK + "rewind"), 1)
        was = table_file.read(self.path("copy", "orders"))
        self.ended(self.receive("--once"))
        self.assert_copied()
        saved = [name for name in os.listdir(self.copy) if name.startswith("orders.cut-")]
        self.assertEqual(saved, [f"orders.cut-{frames[-20].offset}"])
        kept = table_file.read(self.path("copy", saved[0]))
        self.assertEqual(kept, was[frames[-20].offset:])
        self.copy = self.path("again")  # a copy that has never had what was cut
        self.ended(self.receive("--once"))
        self.assert_copied()

    def test_a_file_that_is_cut_while_it_is_shipped_stops_the_shipper(self):
        self.start_cluster(1)
        self.written(1000, block=300)
        shipper = self.ship()
        self.wait_until_shipped()
        path = self.path("source", "orders")
        frames = list(table_file.TableFile(path).frames())
        ids = table_file.TableFile(path).uniform_ids()
        os.truncate(path, frames[-5].offset)
        status = shipper.wait(30)
        self.assertEqual(status, 3, shipper.told())
        self.assertIn(str(ids[-5]), shipper.err())
        self.assertIn(str(ids[-1]), shipper.err())
        wait_until(lambda: not shipper.runs(), 10, "the shipper has ended")


if __name__ == "__main__":
    end_on_signals()
    unittest.main()
