"""The page while tables are written, when the server goes, and for those who have no key."""

import os
import signal
import time
import unittest

from shown import Browser, DAY, PageTest, Process, Server, line


def made(number, *fields):
    return line(number, (11, f"ORDER-{number}"), (55, "ACME"), *fields).decode()


class LiveTest(PageTest):
    def writing(self, name="orders", count=100):
        """A process that stores each line that it is told, in a new table with some messages."""
        os.makedirs(self.path("data"), exist_ok=True)
        writer = Process([os.environ["TABULO_RECORDED_WRITER"], self.path("data", name)], self.folder, "writer", commanded=True)
        self.processes.append(writer)
        for number in range(1, count + 1):
            writer.tell(made(number).rstrip("\n"))
        return writer

    def test_more_tabs_than_a_browser_has_connections(self):
        """Each of them asks and follows: one stream of events serves them all."""
        writer = self.writing()
        browser = self.shown()
        for _ in range(8):
            browser.driver.switch_to.new_window("tab")
            browser.driver.get(browser.base + "#/messages?table=orders")
            browser.wait("#connection.connected", "Connected")
            browser.wait(".told", "100 messages")
        writer.tell(made(101).rstrip("\n"))
        for tab in browser.driver.window_handles[-1:0:-3]:
            browser.driver.switch_to.window(tab)
            browser.wait(".told", "101 messages")
        self.assertEqual(browser.console_errors(), [])

    def shown(self):
        self.data = self.path("data")
        return self.show_server()

    def test_new_messages_appear_by_themselves(self):
        writer = self.writing()
        browser = self.shown()
        browser.show("#/messages?table=orders", ".message")
        self.assertEqual(self.end_seq(100), 100)
        latest = 0
        for number in range(101, 111):
            writer.tell(made(number).rstrip("\n"))
            begin = time.monotonic()
            self.assertEqual(self.end_seq(number), number)
            latest = max(latest, time.monotonic() - begin)
        print(f"the latest of 10 messages was seen after {latest:.2f} s")
        browser.press("f")
        browser.wait("button", "Follow")
        top = browser.run("return document.querySelector('.list').scrollTop")
        for number in range(111, 161):
            writer.tell(made(number).rstrip("\n"))
        browser.wait(".told", "160 messages")
        self.assertEqual(browser.run("return document.querySelector('.list').scrollTop"), top, "a list that is paused moves")
        browser.press("f")
        self.assertEqual(self.end_seq(160), 160)
        self.no_errors()

    def test_new_messages_that_filters_choose_appear(self):
        writer = self.writing()
        browser = self.shown()
        browser.show("#/messages?where=ClOrdID%3DORDER-105&where=Symbol%3DACME", ".told")
        browser.wait(".told", "No message")
        for number in range(101, 107):
            writer.tell(made(number).rstrip("\n"))
        browser.wait(".message .rest", "ORDER-105")
        self.assertEqual(len(browser.all(".message")), 1)
        self.no_errors()

    def test_the_overview_moves_and_has_tables_that_come_and_go(self):
        writer = self.writing()
        browser = self.shown()
        browser.wait(".tables td[data-label=Messages]", "100")
        browser.wait(".tables td[data-label=Writer]", "Writing")
        for number in range(101, 121):
            writer.tell(made(number).rstrip("\n"))
        browser.wait(".tables td[data-label=Messages]", "120")
        browser.wait(".tables td[data-label='Rate now']", "/s")
        self.writing("second", 7)
        browser.wait(".table-name", "second")
        self.engine(self.data, 170, "tables=third", "session=numbers").wait(30)
        browser.wait(".card h3", "numbers")
        browser.wait(".card dd", "170")
        browser.wait(".tables td[data-label=Messages]", "50")
        os.remove(self.path("data", "third"))
        browser.until(lambda: "third" not in browser.texts(".table-name"), "a table that is deleted leaves the page")
        self.no_errors()

    def test_a_server_that_goes_and_comes_back(self):
        browser = self.served(DAY)
        self.server.process.signal(signal.SIGKILL)
        self.server.process.wait(10)
        browser.wait("#connection.lost", "trying again")
        again = Server(self, self.data, listen=f"127.0.0.1:{self.server.port}")
        browser.wait("#connection.refused", "Open the address")
        browser.open(again)
        browser.wait(".table-name", DAY)

    def test_without_the_key_it_says_how_to_get_in(self):
        self.data = self.sessions(DAY)
        server = Server(self, self.data)
        browser = Browser(self)
        browser.driver.get(f"http://127.0.0.1:{server.port}/")
        browser.wait("#connection.refused", "Open the address that tabulo serve printed")
        self.assertEqual(browser.texts(".table-name"), [])


if __name__ == "__main__":
    unittest.main()
