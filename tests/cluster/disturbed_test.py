"""Shipping, receiving and writing go on whatever is killed, stopped or cut off; nothing is lost, repeated or out of order."""

import contextlib
import os
import random
import signal
import time
import unittest

import table_file
from processes import wait_until
from proxy import Proxy
from shipping_test import STREAM, ShippingTest, effort, end_on_signals

ROUNDS = 6 if effort() == 1 else 60
RATE = 1500
FOR_EVER = 2_000_000_000


class DisturbedTest(ShippingTest):
    def setUp(self):
        super().setUp()
        seed = int(os.environ.get("TABULO_TEST_SEED") or random.SystemRandom().randrange(1 << 31))
        print(f"random numbers from {seed}; to repeat this run: TABULO_TEST_SEED={seed}", flush=True)
        self.random = random.Random(seed)
        self.running = {}
        self.proxies = []

    # What is disturbed, and how it goes on

    def begin(self, name):
        self.running[name] = {
            "shipper": lambda: self.ship(url=",".join(f"nats://127.0.0.1:{proxy.port}" for proxy in self.proxies)),
            "receiver": self.receive,
            "writer": lambda: self.write(FOR_EVER, rate=RATE),
        }[name]()

    def kill_and_begin(self, name):
        self.running[name].kill()
        time.sleep(self.random.uniform(0, 1))
        self.begin(name)

    def kill_nodes(self, nodes):
        for node in nodes:
            node.kill()
        time.sleep(self.random.uniform(0, 4))
        for node in nodes:
            node.start()

    def node(self, leads):
        leader, others = self.cluster.leader(STREAM)
        return leader if leads else self.random.choice(others)

    def pause(self, process):
        process.signal(signal.SIGSTOP)
        time.sleep(self.random.uniform(1, 10))
        process.signal(signal.SIGCONT)

    def disturb_network(self, how):
        for proxy in self.proxies:
            how(proxy)
        time.sleep(self.random.uniform(0, 8))
        for proxy in self.proxies:
            proxy.heal()

    def disturbances(self):
        return {
            "the shipper is killed": lambda: self.kill_and_begin("shipper"),
            "the receiver is killed": lambda: self.kill_and_begin("receiver"),
            "the writer is killed": lambda: self.kill_and_begin("writer"),
            "the stream's leader is killed": lambda: self.kill_nodes([self.node(True)]),
            "a follower is killed": lambda: self.kill_nodes([self.node(False)]),
            "two servers are killed": lambda: self.kill_nodes(self.random.sample(self.cluster.nodes, 2)),
            "the network is cut": lambda: self.disturb_network(Proxy.cut),
            "the network stalls": lambda: self.disturb_network(Proxy.stall),
            "the shipper is stopped for a while": lambda: self.pause(self.running["shipper"]),
            "the receiver is stopped for a while": lambda: self.pause(self.running["receiver"]),
            "the stream's leader is stopped for a while": lambda: self.pause(self.node(True).process),
            "a follower is stopped for a while": lambda: self.pause(self.node(False).process),
        }

    def wait_until_going_on(self):
        """Until what the tables hold now is in the stream and in the copy."""
        ends = {name: table_file.last_frame(os.path.join(self.source, name)).offset for name in self.tables()[0]}

        def has_all():
            for name, process in self.running.items():
                self.assertTrue(process.runs(), f"the {name} has ended: {process.told()}")
            try:
                return all(table_file.last_frame(os.path.join(self.copy, name)).offset >= end for name, end in ends.items())
            except (OSError, AttributeError):
                return False

        wait_until(has_all, 90, lambda: "the copy has what the tables had: " + "\n".join(
            process.told() for process in self.running.values()), 0.3)

    def test_nothing_is_lost_repeated_or_out_of_order(self):
        self.start_cluster()
        with contextlib.ExitStack() as stack:
            self.proxies = [stack.enter_context(Proxy(node.port)) for node in self.cluster.nodes]
            self.written(10)
            for name in ("writer", "shipper", "receiver"):
                self.begin(name)
            self.wait_until_going_on()
            waiting = []
            for number in range(1, ROUNDS + 1):
                if not waiting:
                    waiting = list(self.disturbances().items())
                    self.random.shuffle(waiting)
                what, disturb = waiting.pop()
                print(f"round {number}: {what}", flush=True)
                time.sleep(self.random.uniform(0, 1))
                disturb()
                self.cluster.wait_until_ready(90)
                self.wait_until_going_on()
            self.finish()

    def finish(self):
        self.running["writer"].kill()
        newest = max(max(table_file.TableFile(os.path.join(self.source, name)).uniform_ids()) for name in self.tables()[0])
        self.written(newest + 100)
        self.wait_until_shipped()
        self.wait_until_received()
        self.stopped(self.running["shipper"])
        self.stopped(self.running["receiver"])
        self.assert_copied()
        self.cluster.wait_until_same(STREAM)
        check = self.assert_stream_is_right()
        self.assertEqual(check.ids, set(range(1, newest + 101)))
        print(f"figure: cluster: messages shipped in {ROUNDS} disturbed rounds: {newest + 100}", flush=True)


if __name__ == "__main__":
    end_on_signals()
    unittest.main()
