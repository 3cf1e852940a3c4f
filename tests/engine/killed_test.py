"""Engines that are killed at any moment come back, and at the end each application has every order and report once."""

import collections
import os
import random
import time
import unittest

from engine import VERSIONS, Engine, EngineTest, effort, table_file, wait_until

ROUNDS = 10 if effort() == 1 else 10 * effort()
# The tags of the session table's next numbers.
SENDER, TARGET = 1, 2
RATE = 1700  # orders a second, each of three messages: itself and two reports


class KilledTest(EngineTest):
    def setUp(self):
        super().setUp()
        self.seed = int(os.environ.get("TABULO_TEST_SEED") or random.SystemRandom().randrange(1 << 31))
        print(f"random numbers from {self.seed}; to repeat this run: TABULO_TEST_SEED={self.seed}", flush=True)
        self.random = random.Random(self.seed)

    def says(self, what):
        return f"TABULO_TEST_SEED={self.seed}: {what}"

    def test_every_order_and_report_arrives_and_counts_once(self):
        version = self.random.choice(sorted(VERSIONS))
        print(version, flush=True)
        port = self.port()
        sides = {role: Engine(self, role, "tabulo", port, version) for role in ("exchange", "client")}
        for engine in sides.values():
            engine.start()
        self.go_on(sides["client"])
        kills = collections.Counter()
        for _ in range(ROUNDS):
            if self.random.random() < 0.7:  # else also while they find together, or resend
                wait_until(lambda: self.counts(sides["client"].told("on"), 1), 60, self.says("the engines log on again"))
            killed = self.random.choice(sorted(sides))
            kills[killed] += 1
            if self.random.random() < 0.3:
                self.die_inside(sides[killed])
                kills[killed] += 1
            else:
                time.sleep(self.random.uniform(0.05, 1.5))
                sides[killed].kill()
            time.sleep(self.random.choice([0, self.random.uniform(0, 0.5)]))
            sides[killed].start()
            if killed == "client":
                self.go_on(sides["client"])
        sides["client"].command("hold", "held")
        orders = sides["client"].lines("orders")
        wait_until(lambda: len(sides["client"].lines("reports")) >= 2 * len(orders), 60, lambda: self.says(
            f"the client has 2 reports about each of {len(orders)} orders, and not {len(sides['client'].lines('reports'))}; "
            f"the exchange has {len(sides['exchange'].lines('orders'))} orders"), 0.2)
        self.agree(sides)
        sides["client"].stop()
        sides["exchange"].stop()
        self.check(sides, orders, kills)
        print(f"figure: engine: engines killed: {ROUNDS}", flush=True)
        print(f"figure: engine: orders and reports counted once over kills: {3 * len(orders)}", flush=True)

    @staticmethod
    def counts(lines, least):
        return len(lines) >= least

    def go_on(self, client):
        try:
            client.process.tell(f"flow {RATE}")
        except BrokenPipeError:
            pass  # it has died already

    def die_inside(self, engine):
        """Starts an engine again that dies between storing or handing over a message and counting it."""
        engine.kill()
        moment = self.random.choice(["sets", "targets"])
        engine.start(**{moment: self.random.randrange(3, 1500)})
        if engine.role == "client":
            self.go_on(engine)
        wait_until(lambda: not engine.process.runs(), 60, self.says(f"the {engine.role} dies by its {moment}"))

    def agree(self, sides):
        """Waits until what one side has sent is what the other one expects next. What was lost at the end is missed when the
        next message comes, which is a heartbeat, within 30 seconds."""
        def numbers():
            return sides["client"].numbers()[0], sides["exchange"].numbers()[0][::-1]
        wait_until(lambda: len(set(numbers())) == 1, 75, lambda: self.says(f"the engines agree on the numbers: {numbers()}"))

    def check(self, sides, orders, kills):
        client, exchange = sides["client"], sides["exchange"]
        self.assertEqual(orders, [f"CLIENT-{number}" for number in range(1, len(orders) + 1)], self.says("orders are missing"))
        self.assertEqual(sorted(exchange.lines("orders")), sorted(orders), self.says("the exchange has not each order once"))
        reports = sorted(f"{order}-{kind}" for order in orders for kind in ("fill", "new"))
        self.assertEqual(sorted(client.lines("reports")), reports, self.says("the client has not each report once"))
        stored = {}
        for role, engine in sides.items():
            self.check_deliveries(role, engine, kills[role])
            stored[role] = self.check_tables(role, engine)
        for sender, receiver in (("client", "exchange"), ("exchange", "client")):
            self.assertEqual(stored[sender]["sent"], stored[receiver]["received"], self.says(
                f"the {receiver} has stored other messages than the {sender} has sent"))
            self.assertEqual(stored[sender]["next"][0], stored[receiver]["next"][1], self.says(
                f"the next number of the {sender} is not the one that the {receiver} expects"))
        self.assertEqual(sorted(stored["client"]["sent"].values()), sorted(orders), self.says("an order was sent twice"))
        self.assertEqual(sorted(stored["exchange"]["sent"].values()), reports, self.says("a report was sent twice"))

    def check_deliveries(self, role, engine, kills):
        """What came to the application more than once came under one number, and not more often than it was killed."""
        given = [line.split() for line in engine.lines("deliveries")]
        numbers = collections.defaultdict(set)
        for name, number, _ in given:
            numbers[name].add(number)
        for name, found in numbers.items():
            self.assertEqual(len(found), 1, self.says(f"the {role} was given {name} under the numbers {found}"))
        self.assertLessEqual(len(given) - len(numbers), kills, self.says(f"the {role} was given messages again without a kill"))

    def check_tables(self, role, engine):
        """The application messages of a side's table by their numbers, and the numbers of its session table."""
        (path,) = self.tables(engine)
        self.tabulo("verify", engine.store)
        found = {"sent": {}, "received": {}}
        given = set()
        for message in self.stored(path):
            if message["class"] == "RESENT":
                continue
            if message["class"].endswith("_TO"):
                self.assertNotIn(message["seq"], given, self.says(f"the {role} has given a number to two messages"))
                given.add(message["seq"])
            kind = {"APP_TO": "sent", "APP_FROM": "received"}.get(message["class"])
            if kind:
                tag = "11" if message["type"] == "D" else "17"
                name = next(field[len(tag) + 1:] for field in message["wire"].split("\x01") if field.startswith(tag + "="))
                before = found[kind].setdefault(message["seq"], name)
                self.assertEqual(before, name, self.says(f"the {role} has two messages under one number, {kind}"))
        sessions = [os.path.join(engine.store, name) for name in os.listdir(engine.store)
                    if b"SessionInfoTable" in table_file.read(os.path.join(engine.store, name))[:40]]
        self.assertEqual(len(sessions), 1)
        values = table_file.session_values(sessions[0])
        found["next"] = (values[SENDER], values[TARGET])
        self.assertEqual(given, set(range(1, found["next"][0])), self.says(f"the {role}'s table lacks sent messages"))
        return found


if __name__ == "__main__":
    unittest.main()
