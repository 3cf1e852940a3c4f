"""Two engines, each on one store or the other: what a session does is the same, and the tables can be read meanwhile."""

import json
import os
import time
import unittest

from engine import VERSIONS, Engine, EngineTest, effort, wait_until

from cluster import Cluster  # stands in the folder that the line before has named

STORES = [("tabulo", "tabulo"), ("tabulo", "file"), ("file", "tabulo")]  # the exchange's, the client's


class SessionsTest(EngineTest):
    def each(self, what, stores=tuple(STORES), **settings):
        """Tries something with an exchange and a client for all versions and stores; ./check takes the file store for one
        version alone."""
        whole = self.folder
        for version in VERSIONS:
            for exchange, client in stores if effort() > 1 or version == "FIX.4.4" else stores[:1]:
                with self.subTest(version=version, exchange=exchange, client=client):
                    self.folder = os.path.join(whole, f"{version}-{exchange}-{client}")
                    os.mkdir(self.folder)
                    try:
                        self.both(what, exchange, client, version, settings)
                    finally:
                        for process in self.processes:
                            process.kill()
                        self.folder = whole

    def both(self, what, exchange, client, version, settings):
        port = self.port()
        exchange = Engine(self, "exchange", exchange, port, version, **settings)
        client = Engine(self, "client", client, port, version, **settings)
        exchange.start()
        client.start()
        client.told_line("on")
        what(exchange, client)

    def order_and_wait(self, exchange, client, count):
        """Sends orders, and waits until each has come and has its reports."""
        before = len(client.lines("orders"))
        client.command(f"send {count}", "sent", 60)
        wait_until(lambda: len(client.lines("reports")) == 2 * (before + count), 60, lambda: (
            f"the client has {len(client.lines('reports'))} reports about {before + count} orders, the exchange "
            f"{len(exchange.lines('orders'))} orders"))
        self.assertEqual(exchange.lines("orders"), client.lines("orders"))
        self.agree(exchange, client)

    def agree(self, exchange, client):
        wait_until(lambda: client.numbers()[0] == exchange.numbers()[0][::-1], 30,
                   lambda: f"the numbers agree: {client.numbers()} {exchange.numbers()}")

    def again(self, client, exchange):
        """Logs out and on."""
        client.command("logout", "logout")
        exchange.told_line("off", count=len(exchange.told("on")))
        client.told_line("off", count=len(client.told("on")))
        count = len(client.told("on"))
        client.command("logon", "logon")
        client.told_line("on", count=count + 1)

    def test_orders_logout_and_logon(self):
        def run(exchange, client):
            self.order_and_wait(exchange, client, 100)
            self.again(client, exchange)
            self.order_and_wait(exchange, client, 100)
            self.assertGreater(client.numbers()[0][0], 200)
        self.each(run)

    def test_orders_that_were_given_without_a_connection_are_sent_again(self):
        def run(exchange, client):
            self.order_and_wait(exchange, client, 10)
            exchange.stop()
            client.told_line("off")
            client.command("send 300", "sent")
            exchange.start()
            wait_until(lambda: len(client.lines("reports")) == 620, 60,
                       lambda: f"there are {len(client.lines('reports'))} reports about 310 orders")
            self.assertEqual(exchange.lines("orders"), client.lines("orders"))
            self.agree(exchange, client)
            # All but the first ten came again, as possible duplicates.
            flags = [line.split()[2] for line in exchange.lines("deliveries")]
            self.assertEqual(flags, ["N"] * 10 + ["Y"] * 300)
        self.each(run)

    def test_a_client_that_has_forgotten_what_it_got_gets_it_again(self):
        def run(exchange, client):
            self.order_and_wait(exchange, client, 500)
            client.command("logout", "logout")
            client.told_line("off")
            client.command("target 1", "target")
            client.command("logon", "logon")
            client.told_line("on", count=2)
            wait_until(lambda: len(client.lines("deliveries")) == 2000, 60,
                       lambda: f"the client was given {len(client.lines('deliveries'))} reports")
            self.assertEqual(len(client.lines("reports")), 1000)
            first, second = client.lines("deliveries")[:1000], client.lines("deliveries")[1000:]
            self.assertEqual([line.replace(" N", " Y") for line in first], second)
            self.agree(exchange, client)
        self.each(run)

    def test_reset_on_logon(self):
        def run(exchange, client):
            self.order_and_wait(exchange, client, 20)
            self.again(client, exchange)
            self.agree(exchange, client)
            self.assertEqual(client.numbers(), [(2, 2)])
            self.order_and_wait(exchange, client, 20)
            for engine in (exchange, client):  # history stays
                for path in self.tables(engine):
                    orders = [message for message in self.stored(path) if message["type"] == "D"]
                    self.assertEqual(len(orders), 40)
        self.each(run, ResetOnLogon="Y")

    def test_refresh_on_logon(self):
        def run(exchange, client):
            self.order_and_wait(exchange, client, 20)
            self.again(client, exchange)
            self.order_and_wait(exchange, client, 20)
        self.each(run, RefreshOnLogon="Y")

    def test_both_ends_start_again(self):
        def run(exchange, client):
            self.order_and_wait(exchange, client, 50)
            client.stop()
            exchange.stop()
            exchange.start()
            client.start()
            client.told_line("on")
            self.order_and_wait(exchange, client, 50)
            for engine in (exchange, client):
                self.assertEqual(engine.lines("deliveries"), list(dict.fromkeys(engine.lines("deliveries"))))
        self.each(run)

    def test_heartbeats_keep_a_silent_session(self):
        def run(exchange, client):
            before = client.numbers()[0]
            wait_until(lambda: all(now >= then + 2 for now, then in zip(client.numbers()[0], before)), 30,
                       "heartbeats go both ways")
            self.assertEqual(len(client.told("off")), 0)
            client.command("logout", "logout")  # no heartbeat comes between
            client.told_line("off")
            exchange.told_line("off")
            self.agree(exchange, client)
        self.each(run, stores=[("tabulo", "tabulo")], HeartBtInt=1)

    def test_several_sessions_in_several_threads(self):
        clients = [f"CLIENT{number}" for number in range(6)]
        port = self.port()
        exchange = Engine(self, "exchange", "tabulo", port, clients=clients, Threaded="Y")
        client = Engine(self, "client", "tabulo", port, clients=clients, Threaded="Y")
        exchange.start()
        client.start()
        client.told_line("on", count=len(clients))
        client.process.tell("flow 300")
        time.sleep(2)
        client.command("hold", "held")
        for name in clients:
            wait_until(lambda name=name: len(client.lines("reports", name)) == 2 * len(client.lines("orders", name)), 60,
                       f"{name} has all reports")
            self.assertEqual(exchange.lines("orders", name), client.lines("orders", name))
        wait_until(lambda: client.numbers() == [pair[::-1] for pair in exchange.numbers()], 30, "the numbers agree")
        client.stop()
        exchange.stop()
        for engine in (client, exchange):
            self.assertEqual(len(self.tables(engine)), len(clients))
            self.tabulo("verify", engine.store)
            ids = [message["uid"] for path in self.tables(engine) for message in self.stored(path)]
            self.assertEqual(len(ids), len(set(ids)), "an id was given to two messages of one process")


class TablesOfARunningEngineTest(EngineTest):
    def test_its_tables_are_shipped(self):
        server = os.environ.get("TABULO_NATS_SERVER")
        if not server:
            self.skipTest("no nats-server, or a command that was built without libnats")
        with Cluster(server, self.path("servers"), size=1) as cluster:
            engines = [Engine(self, role, "tabulo", port) for port in [self.port()] for role in ("exchange", "client")]
            for engine in engines:
                engine.start()
            exchange, client = engines
            client.told_line("on")
            copies = self.path("copies")
            where = ["--stream", "ENGINE", "--server", cluster.url()]
            ship = self.start("ship", [os.environ["TABULO_COMMAND"], "ship", exchange.store, *where, "--replicas", "1"])
            client.command("send 300", "sent")
            receive = self.start("receive", [os.environ["TABULO_COMMAND"], "receive", copies, *where])
            client.command("send 300", "sent")
            wait_until(lambda: len(client.lines("reports")) == 1200, 60, "all reports come")
            [table] = self.tables(exchange)
            copy = os.path.join(copies, os.path.basename(table))
            stored = self.stored(table)
            self.assertGreaterEqual(len(stored), 1800)
            wait_until(lambda: os.path.exists(copy) and len(self.stored(copy)) >= len(stored), 60,
                       lambda: ship.told() + receive.told())
            self.assertEqual(self.stored(copy)[:len(stored)], stored)

    def test_the_command_beside_a_writing_engine(self):
        port = self.port()
        exchange = Engine(self, "exchange", "tabulo", port)
        client = Engine(self, "client", "tabulo", port)
        exchange.start()
        client.start()
        client.told_line("on")
        (table,) = self.tables(client)
        tail = self.start("tail", [os.environ["TABULO_COMMAND"], "tail", "-n", "0", "-f", "-o", "ndjson", table])
        client.process.tell("flow 500")
        wait_until(lambda: len(client.lines("reports")) > 200, 30, "reports come")
        order = client.lines("orders")[20]
        self.assertIn('"statusName":"Filled"', self.tabulo("order", "-o", "ndjson", order, table))
        counted = self.tabulo("sql", "SELECT count(*) FROM messages WHERE type = 'D'", table)
        self.assertGreater(int("".join(character for character in counted if character.isdigit())), 20)
        for _ in range(5):
            self.tabulo("verify", client.store)
        client.command("hold", "held")
        last = client.lines("orders")[-1]
        wait_until(lambda: f"{last}-fill" in tail.out(), 30, f"tail -f shows the last report, {last}-fill")
        shown = [json.loads(line)["seq"] for line in tail.out().splitlines() if '"APP_TO"' in line]
        self.assertEqual(shown, list(range(shown[0], shown[0] + len(shown))), "tail -f has left out messages")
        client.stop()
        exchange.stop()


if __name__ == "__main__":
    unittest.main()
