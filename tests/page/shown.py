"""What the tests of the page share: a server on tables of recorded sessions, a browser that shows it, and the list of
messages as it is seen."""

import os
import re
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "serve"))

from browser import Browser, Keys, LARGE, SMALL  # noqa: E402, F401  (for tests)
from served import Process, Server, ServeTest, line  # noqa: E402, F401  (stands in the folder named above)

DAY = "client-day1"


def figure(text):
    """The first number of a text, as 11,115 is written there."""
    return int(re.search(r"-?\d[\d,]*", text).group().replace(",", ""))


class PageTest(ServeTest):
    def served(self, *days, **options):
        """A browser that shows recorded days."""
        self.data = self.sessions(*days)
        return self.show_server(**options)

    def show_server(self, **options):
        """A browser that shows the tables of the test's folder."""
        self.server = Server(self, self.data)
        self.browser = Browser(self, **options)
        self.browser.open(self.server)
        return self.browser

    def no_errors(self):
        self.assertEqual(self.browser.console_errors(), [], "the browser's console tells errors")

    def table(self, name=DAY):
        return os.path.join(self.data, name)

    # The list of messages

    def rows(self):
        """(sequence number, type in words, text) of each row that is seen, in their order; None while some are loading."""
        found = self.browser.run("""
            const list = document.querySelector(".list").getBoundingClientRect();
            return [...document.querySelectorAll(".message")].filter(row => {
                const at = row.getBoundingClientRect();
                return at.top >= list.top - 1 && at.bottom <= list.bottom + 1;
            }).sort((a, b) => a.dataset.number - b.dataset.number).map(row => [
                Number(row.dataset.number), row.querySelector(".seq")?.textContent ?? null,
                row.classList.contains("sent") ? true : row.classList.contains("received") ? false : null,
                row.querySelector(".rest")?.textContent ?? null]);""")
        return None if not found or any(row[1] is None for row in found) else found

    def settled(self, first=None, last=None):
        """The rows once all are there and the first or last of them is the one with this number in the list."""
        def are():
            rows = self.rows()
            return rows and (first is None or rows[0][0] == first) and (last is None or rows[-1][0] == last) and rows
        return self.browser.until(are, f"rows from {first} to {last}")

    def assert_rows(self, rows, stored):
        for number, seq, sent, _ in rows:
            message = stored[number]
            self.assertEqual(int(seq), message["seq"], f"row {number} shows another sequence number than the table has")
            self.assertEqual(sent, message["class"] in ("APP_TO", "ADMIN_TO", "RESENT"), f"row {number} stands at the wrong side")

    def end_seq(self, count):
        """The sequence number of the last row once the list has so many messages."""
        return int(self.settled(last=count - 1)[-1][1])
