"""The same bytes to an engine on the engine's own file store and to one on tables: both answer the same, message by message."""

import contextlib
import os
import socket
import unittest

from engine import VERSIONS, Engine, EngineTest
from fix import Counterparty, comparable, order, value

MANY = 5000  # orders, of two reports each


class Played:
    """A script's view of one engine: the counterparty, and starting it again."""

    def __init__(self, test, store, version, settings):
        self._port = test.port()
        self.engine = Engine(test, "exchange", store, self._port, version, **settings)
        self.side = Counterparty(VERSIONS[version][0], "CLIENT", "EXCHANGE")
        self.engine.start()

    def connect(self, **logon):
        self.side.connect(self._port)
        self.side.logon(**logon)
        self.side.until("A")

    def log_out(self):
        gone = len(self.engine.told("off"))
        self.side.send("5")
        self.side.until("5")
        self.engine.told_line("off", count=gone + 1)
        self.side.close()

    def cut(self):
        """Ends the connection without a word, and waits until the engine has seen it."""
        gone = len(self.engine.told("off"))
        self.side.close()
        self.engine.told_line("off", count=gone + 1)

    def restart(self):
        if self.side.connected():
            self.cut()  # an engine waits for the answer to its logout
        self.engine.stop()
        self.engine.start()


def basics(played):
    played.connect()
    side = played.side
    side.order("one")
    side.order("two")
    side.settle("after orders")
    for first, last in ((1, 0), (2, 2), (2, 4), (1, 1), (6, 6), (5, 0), (5, 999999), (40, 50)):
        side.ask(first, last)
        side.settle(f"after {first} to {last}")
    played.log_out()
    played.connect()
    side.ask(1, 0)
    side.settle("after a logout")
    played.restart()
    played.connect()
    side.order("three")
    side.ask(1, 0)
    side.settle("after a start")
    played.log_out()


def gaps(played):
    played.connect()
    side = played.side
    # Two messages are missing in front of this one; the first comes again, a gap fill stands for the other.
    missing = side.number
    side.number += 2
    side.order("behind a gap")
    side.until("2")
    side.repeat("D", order("missing"), missing)
    side.repeat("4", [("123", "Y"), ("36", str(missing + 2))], missing + 1)
    side.settle("gap filled")
    # What comes a second time with PossDup is left out; without the time of its first sending it is refused.
    side.repeat("D", order("missing"), missing)
    side.send("D", order("missing"), missing, [("43", "Y")])
    side.settle("repeated")
    # A reset skips ahead; it does not go back.
    side.send("4", [("123", "N"), ("36", str(side.number + 10))])
    side.number += 9
    side.settle("skipped ahead")
    side.send("4", [("123", "N"), ("36", "2")], side.number)  # refused, and not counted
    side.settle("not back")
    side.ask(1, 0)
    side.settle("resent")
    # Too low without PossDup ends the session.
    side.order("too low", 2)
    side.until_closed()
    side.number += 3  # what was sent without a connection
    played.connect()
    side.until("2")
    side.repeat("4", [("123", "Y"), ("36", str(side.number))], side.number - 4)
    side.settle("reconnected")
    played.restart()
    played.connect()
    side.settle("after a start")
    played.log_out()


def resets(played):
    played.connect()
    side = played.side
    side.order("before")
    side.settle("before")
    played.log_out()
    side.number = 1
    played.connect(body=[("141", "Y")])
    side.order("after")
    side.ask(1, 0)
    side.settle("after")
    played.restart()
    played.connect()
    side.ask(1, 0)
    side.settle("after a start")
    side.number = 1
    side.logon(body=[("141", "Y")])  # in the middle of a session
    side.until("A")
    side.order("again")
    side.ask(1, 0)
    side.settle("again")
    played.log_out()


def resets_on_logon(played):
    side = played.side
    for name in ("first", "second", "third"):
        side.number = 1
        played.connect()
        side.order(name)
        side.settle(name)
        side.ask(1, 0)
        side.settle("resent")
        if name == "second":
            played.restart()
        else:
            played.log_out()


def many(played):
    played.connect()
    side = played.side
    for number in range(MANY):
        side.order(f"order {number}")
        if number % 500 == 499:
            side.settle(f"up to {number}")
    for first, last in ((2, 2), (3, 12), (500, 1499), (2, 2 * MANY + 1), (1, 0)):
        side.ask(first, last)
        side.settle(f"{first} to {last}")
    played.restart()
    played.connect()
    side.ask(1, 0)
    side.settle("after a start")
    played.log_out()


class ComparedTest(EngineTest):
    @contextlib.contextmanager
    def inside(self, name):
        """Works in a folder of the test's folder."""
        self.folder, whole = os.path.join(self.folder, name), self.folder
        os.mkdir(self.folder)
        try:
            yield
        finally:
            self.folder = whole

    def played(self, store, version, script, settings):
        """Plays a script to an engine: its answers, and its numbers behind them."""
        with self.inside(store):
            played = Played(self, store, version, settings)
            self.addCleanup(played.side.close)
            script(played)
            numbers = played.engine.numbers()
            played.side.close()
            played.engine.kill()
        return played.side, numbers

    def answers(self, *arguments):
        side, numbers = self.played(*arguments)
        return [answer if "\x01" not in answer else comparable(answer) for answer in side.answers] + [str(numbers)]

    def compare(self, script, versions=tuple(VERSIONS), **settings):
        for version in versions:
            with self.subTest(version=version), self.inside(version):
                expected = self.answers("file", version, script, settings)
                found = self.answers("tabulo", version, script, settings)
                for number, pair in enumerate(zip(expected, found)):
                    self.assertEqual(*pair, f"answer {number} on tables is not the one on the file store")
                self.assertEqual(len(expected), len(found), "there are more answers on one of the stores")
                print(f"figure: engine: answers compared with those on the file store: {len(found)}", flush=True)

    def test_orders_resend_requests_and_starts(self):
        self.compare(basics)

    def test_gaps_repeated_messages_and_sequence_resets(self):
        self.compare(gaps)

    def test_resets_that_a_logon_asks_for(self):
        self.compare(resets)

    def test_reset_on_logon(self):
        self.compare(resets_on_logon, ResetOnLogon="Y")

    def test_refresh_on_logon(self):
        self.compare(basics, RefreshOnLogon="Y")

    def test_ten_thousand_messages_again(self):
        self.compare(many)

    def test_an_engine_alone_with_its_heartbeats(self):
        """The other side is silent: heartbeats, a test request, and the end. Which of them come, and how often, depends on
        the moments at which the engine looks, so what is compared is what was sent with what was counted."""
        def silence(played):
            played.connect(heartbeat=1)
            played.side.until_closed()

        for version in VERSIONS:
            for store in ("file", "tabulo"):
                with self.subTest(version=version, store=store), self.inside(version + store):
                    side, numbers = self.played(store, version, silence, {})
                    kinds = [value(answer, "35") for answer in side.answers[:-1]]
                    self.assertEqual(kinds[0], "A")
                    self.assertLessEqual(set(kinds[1:]), {"0", "1"})
                    self.assertEqual(numbers, [(1 + len(kinds), 2)], f"other numbers than those of {kinds}")

    def test_a_client(self):
        for version in VERSIONS:
            with self.subTest(version=version):
                expected = self.client_answers("file", version)
                self.assertEqual(expected, self.client_answers("tabulo", version))

    def client_answers(self, store, version):
        """What an engine that connects says to a scripted exchange."""
        with socket.create_server(("127.0.0.1", 0)) as listener:
            listener.settimeout(30)
            with self.inside(version + store):
                engine = Engine(self, "client", store, listener.getsockname()[1], version)
            side = Counterparty(VERSIONS[version][0], "EXCHANGE", "CLIENT")
            self.addCleanup(side.close)
            for part in ("first", "second"):
                engine.start()
                for connection in ("one", "two"):
                    side.use(listener.accept()[0])
                    side.until("A")
                    side.logon()
                    engine.told_line("on", count=2 if connection == "two" else 1)
                    engine.command("send 5", "sent")
                    side.settle(f"{part} orders, connection {connection}")
                    side.ask(1, 0)
                    side.settle("resent")
                    if connection == "two":  # it does not connect again then
                        engine.command("logout", "logout")
                        side.until("5")
                        side.send("5")
                        side.until_closed()
                    side.close()
                    engine.told_line("off", count=2 if connection == "two" else 1)
                engine.command("send 2", "sent")
                engine.stop()
            side.answers.append(str(len(engine.lines("orders"))))
        return [answer if "\x01" not in answer else comparable(answer) for answer in side.answers]


if __name__ == "__main__":
    unittest.main()
