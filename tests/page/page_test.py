"""The page that `tabulo serve` shows, in a browser: each view, compared with what the command prints of the same tables."""

import json
import os
import re
import shlex
import unittest

from shown import DAY, Keys, PageTest, figure


class ViewsTest(PageTest):
    def test_the_overview_has_the_figures_of_the_command(self):
        browser = self.served(DAY, "client-day2")
        for listed in map(json.loads, self.tabulo("ls", "-o", "ndjson", self.data).splitlines()):
            cells = browser.run("""
                const row = [...document.querySelectorAll(".tables tbody tr")].find(
                    one => one.querySelector(".table-name").textContent === arguments[0]);
                return Object.fromEntries([...row.children].map(cell => [cell.dataset.label, cell.textContent]));""", listed["table"])
            stored = self.stored(listed["path"])
            self.assertEqual(figure(cells["Messages"]), listed["messages"])
            self.assertIn(listed["lastTime"][:23].replace("T", " "), cells["Last message"])
            self.assertIn("ago", cells["Last message"])
            for label, classes in (("Sent", ("APP_TO", "ADMIN_TO")), ("Received", ("APP_FROM", "ADMIN_FROM"))):
                self.assertEqual(figure(cells[label]), [one for one in stored if one["class"] in classes][-1]["seq"], label)
            self.assertEqual((cells["Writer"], cells["Pending"]), ("none", "none"))
            self.assertIn("none met", cells["Damage"])
        self.no_errors()

    def test_a_list_of_messages_has_those_of_the_command(self):
        browser = self.served(DAY)
        stored = self.stored(self.table())
        browser.show(f"#/messages?table={DAY}", ".message")
        self.assert_rows(self.settled(last=len(stored) - 1), stored)
        for first in (0, 5000, 999):
            browser.show(f"#/messages?table={DAY}&n={first}")
            self.assert_rows(self.settled(first=first), stored)
        browser.run("document.querySelector('.list').scrollTop = 7000 * 28")
        self.assert_rows(self.settled(first=7000), stored)
        browser.until(lambda: "n=7000" in browser.address(), "the address tells where the list is")
        self.no_errors()

    def test_a_list_of_more_messages_than_a_browser_scrolls_through(self):
        self.data = self.path("data")
        os.makedirs(self.data)
        self.engine(self.data, 400000, "tables=big").wait(120)
        browser = self.show_server()
        stored = figure(browser.text(".tables td[data-label=Messages]"))
        first = json.loads(self.tabulo("cat", "--limit", "1", "-o", "ndjson", self.table("big")))["seq"]

        def seq_of(number):
            return json.loads(self.tabulo("cat", "--uid", f"{first + number}", "-o", "ndjson", self.table("big")))["seq"]

        browser.show("#/messages?table=big&n=200000", ".message .seq")
        self.assertEqual(int(self.settled(first=200000)[0][1]), seq_of(200000))
        browser.run("document.querySelector('.list').scrollTop += 28 * 10")
        self.assertEqual(int(self.settled(first=200010)[0][1]), seq_of(200010))
        browser.run("document.querySelector('.list').focus()")
        browser.press(Keys.END)
        self.assertEqual(self.end_seq(stored), seq_of(stored - 1))
        browser.press(Keys.HOME)
        self.assertEqual(int(self.settled(first=0)[0][1]), first)
        browser.run("const list = document.querySelector('.list'); list.scrollTop = list.scrollHeight / 2")
        middle = browser.until(lambda: (self.rows() or [[0]])[0][0], "the middle is shown")
        self.assertLess(abs(middle - stored / 2), stored / 50)
        self.no_errors()

    def test_filters_choose_as_those_of_the_command_do(self):
        browser = self.served(DAY, "client-day2")
        symbol = next(one["fields"]["Symbol"] for one in self.stored(self.table()) if one["fields"]["Symbol"])
        browser.show(f"#/messages?table={DAY}", ".message")
        browser.run("document.querySelector('.filter-box').open = true")
        for selector, text in (("#filter-type", "8,D"), (".conditions input", f"Symbol={symbol}")):
            browser.all(selector)[0].send_keys(text)
        browser.all(".conditions input")[0].send_keys(Keys.ENTER)
        browser.until(lambda: "where=Symbol" in browser.address(), "the address has the filters")
        expected = self.stored("--type", "8,D", "--where", f"Symbol={symbol}", self.table())
        browser.wait(".told", f"{len(expected):,} messages loaded, which are all")
        self.assert_rows(self.settled(last=len(expected) - 1), expected)
        browser.show(f"#/messages?merge=time&where=Symbol%3D{symbol}&type=8")
        merged = self.stored("--merge", "time", "--type", "8", "--where", f"Symbol={symbol}", self.data)
        browser.wait(".told", f"{len(merged):,} messages loaded, which are all")
        self.assert_rows(self.settled(last=len(merged) - 1), merged)
        browser.show(f"#/messages?table={DAY}&where=Nope%3D1")
        browser.wait(".error", "Nope")
        self.assertEqual(len(browser.console_errors()), 1, "only the question that was refused")

    def test_cursors_go_on_at_both_ends(self):
        browser = self.served(DAY, "client-day2")
        stored = self.stored("--merge", "time", self.data)
        browser.show("#/messages?merge=time", ".message")
        self.settled()
        for _ in range(6):
            count = figure(browser.text(".told"))
            browser.run("document.querySelector('.list').scrollTop = 0")
            browser.until(lambda before=count: figure(browser.text(".told")) > before, "older messages are loaded")
        loaded = figure(browser.text(".told"))
        self.assertGreater(loaded, 1000)
        self.assert_rows(self.settled(), stored[-loaded:])
        browser.until(lambda: "from=" in browser.address(), "the address has the cursor")
        seen = [row[1:] for row in self.settled()]
        browser.driver.refresh()
        browser.until(lambda: [row[1:] for row in (self.rows() or [])] == seen, "the address brings the same rows back")
        browser.run("document.querySelector('.list').scrollTop = 1e9")
        browser.until(lambda: figure(browser.text(".told")) > 200, "newer messages are loaded")
        self.no_errors()

    def test_a_message_is_shown_field_by_field(self):
        browser = self.served(DAY)
        stored = self.stored(self.table())
        number = next(n for n, one in enumerate(stored) if one["type"] == "8")
        browser.show(f"#/messages?table={DAY}&n={number}", ".message .seq")
        self.settled(first=number)
        browser.all(f"#message-{number}")[0].click()
        browser.wait(".tags tbody tr")
        shown = browser.run("return [...document.querySelectorAll('.tags tbody tr')].map(row => "
                            "[row.cells[0].textContent, row.cells[2].querySelector('.given').textContent])")
        fields = [pair.split("=", 1) for pair in stored[number]["wire"].rstrip("\x01").split("\x01")]
        self.assertEqual(shown, fields)
        self.assertIn("ExecutionReport", browser.text(".panel h2"))
        dump = browser.text(".dump")
        taken = bytes.fromhex("".join(re.match(r"[0-9a-f]+  ((?:[0-9a-f]{2} )+)", one).group(1) for one in dump.splitlines()))
        self.assertEqual(taken, stored[number]["wire"].encode())
        self.assertIn(f"m={DAY}", browser.address().replace("%3A", ":"))
        opened = browser.address()
        browser.press("j")
        browser.until(lambda: browser.address() != opened, "the next message is opened")
        browser.driver.back()
        browser.until(lambda: browser.address() == opened, "back goes to the message before")
        browser.driver.refresh()
        browser.wait(".tags tbody td", "ExecutionReport")
        browser.press(Keys.ESCAPE)
        browser.until(lambda: not browser.all(".panel")[0].is_displayed(), "Escape closes the message")
        self.no_errors()

    def test_what_is_copied_leads_to_the_same(self):
        browser = self.served(DAY)
        line = self.tabulo("cat", "--uid", "2000", "-o", "ndjson", self.table()).rstrip("\n")
        message = json.loads(line)
        browser.show(f"#/messages?table={DAY}&uid=2000", ".message .seq")
        browser.all(".message")[0].click()
        browser.wait(".tags tbody tr")
        self.assertEqual(browser.copied("Copy JSON"), line)
        self.assertEqual([one.split(" = ", 1)[1].split(" (")[0] for one in browser.copied("Copy fields").splitlines()],
                         [pair.split("=", 1)[1] for pair in message["wire"].rstrip("\x01").split("\x01")])
        words = shlex.split(browser.copied("Copy command"))
        self.assertEqual(words[0], "tabulo")
        self.assertEqual(json.loads(self.tabulo(*words[1:], "-o", "ndjson")), message)
        browser.show("#/order?id=C1A-10860", ".diagram .arrow")
        self.assertIn("C1A-10860", self.tabulo(*shlex.split(browser.copied("Copy command"))[1:]))
        browser.show(f"#/sql?q=SELECT%20uid,%20type%20FROM%20%22{DAY}%22%20LIMIT%202", "#statement")
        browser.all(".view.sql button.main")[0].click()
        browser.wait(".rows tbody tr")
        self.assertEqual(browser.copied("Copy as CSV").splitlines(), ["uid,type", "1,A", "2,A"])
        self.no_errors()

    def test_the_timeline_counts_what_the_command_counts(self):
        browser = self.served(DAY)
        stored = self.stored(self.table())
        browser.show(f"#/timeline?table={DAY}&by=type", ".legend li")
        self.assertEqual(figure(browser.text("#timeline-told")), len(stored))
        for entry in browser.texts(".legend li"):
            kind, count = entry.rsplit(" ", 1)
            if kind != "other":
                self.assertEqual(figure(count), sum(one["type"] == kind for one in stored), f"messages of type {kind}")
        browser.run("document.querySelectorAll('.view.timeline details')[1].open = true")
        browser.wait(".timeline .number")
        self.assertEqual(sum(figure(cell) for cell in browser.texts(".timeline td.number")), len(stored), "the table has other figures")
        self.assertIn("are missing among the numbers of received messages", " ".join(browser.texts(".marks td")))
        browser.run("document.querySelector('.stage').focus()")
        browser.press("+")
        browser.until(lambda: "to=" in browser.address(), "the address has the stretch")
        browser.until(lambda: 0 < figure(browser.text("#timeline-told")) < len(stored), "the stretch has fewer messages")
        count = figure(browser.text("#timeline-told"))
        browser.press(Keys.ENTER)
        browser.wait(".view.messages .told", "messages")
        since = re.search(r"since ([^;]+); until ([^;]+)", browser.text(".chosen"))
        self.assertEqual(len(self.stored("--since", since.group(1), "--until", since.group(2), self.table())), count)
        browser.driver.back()
        browser.wait("#timeline-told", f"{count:,} messages")
        browser.wait(".marks a")
        browser.all(".marks a")[0].click()
        browser.wait(".tags tbody tr")
        self.no_errors()

    def test_a_stretch_is_dragged_zoomed_and_opened(self):
        browser = self.served(DAY)
        browser.show(f"#/timeline?table={DAY}", ".marks a")
        stage = browser.all(".stage")[0]
        whole = browser.text("#timeline-told")
        browser.drag(stage, -200, 100)
        browser.wait("a.button", "Messages of the selection")
        browser.wheel(stage, -120)
        browser.until(lambda: browser.text("#timeline-told") != whole, "the wheel zooms")
        zoomed = browser.text("#timeline-told")
        browser.press("+")
        browser.until(lambda: browser.text("#timeline-told") != zoomed, "the key zooms into the selection")
        browser.wait("a.button", "Messages of this")
        count = figure(browser.text("#timeline-told"))
        since, until = re.search(r"since=([^&]+)&until=([^&]+)", browser.all("a.button")[0].get_attribute("href")).groups()
        self.assertEqual(count, len(self.stored("--since", since.replace("%3A", ":"), "--until", until.replace("%3A", ":"), self.table())))
        browser.press("0")
        browser.wait("#timeline-told", whole[:6])
        browser.drag(stage, -300, 300)
        browser.run("document.querySelector('.stage').focus()")
        browser.press(Keys.ENTER)
        browser.wait(".view.messages .message .seq")
        self.no_errors()

    def test_an_order_has_the_steps_that_the_command_tells(self):
        browser = self.served(DAY)
        told = [json.loads(one) for one in self.tabulo("order", "C1A-10860", "-o", "ndjson", self.table()).splitlines()]
        steps = [one for one in told if one["kind"] == "message"]
        browser.press("/")
        browser.press("C1A-10860", Keys.ENTER)
        browser.wait(".diagram .arrow")
        self.assertEqual(len(browser.all(".diagram .arrow")), len(steps))
        self.assertEqual(len(browser.all(".order-parts tbody tr")), len(steps))
        arrows = browser.run("return [...document.querySelectorAll('.arrow')].map(one => one.classList.contains('sent'))")
        self.assertEqual(arrows, [one["class"] in ("APP_TO", "ADMIN_TO", "RESENT") for one in steps])
        state = next(one for one in told if one["kind"] == "state")
        values = dict(browser.run("return [...document.querySelectorAll('.state .values > div')].map(one => "
                                  "[one.children[0].textContent, one.children[1].textContent])"))
        for name in ("CumQty", "LeavesQty", "ClOrdID", "OrderID"):
            self.assertEqual(values[name], str(state[name]), name)
        browser.show("#/order?id=nobody")
        browser.wait(".error", "nobody")
        self.assertEqual(len(browser.console_errors()), 1, "only the question that found nothing")

    def test_sql_shows_rows_and_errors(self):
        browser = self.served(DAY)
        browser.show("#/sql", "#statement")
        browser.run("document.querySelector('#statement').value = arguments[0]",
                    f'SELECT type, count(*) AS n FROM "{DAY}" GROUP BY type ORDER BY n DESC')
        browser.all("#statement")[0].send_keys(Keys.CONTROL, Keys.ENTER)
        browser.wait(".rows tbody tr")
        stored = self.stored(self.table())
        for kind, count in browser.run("return [...document.querySelectorAll('.rows tbody tr')].map("
                                       "row => [row.cells[0].textContent, Number(row.cells[1].textContent)])"):
            self.assertEqual(count, sum(one["type"] == kind for one in stored), kind)
        self.no_errors()
        browser.run("document.querySelector('#statement').value = 'DROP TABLE nothing'")
        browser.all("#statement")[0].send_keys(Keys.CONTROL, Keys.ENTER)
        browser.wait(".view.sql .error")
        self.assertIn("q=DROP", browser.address())

    def test_blocks_and_their_numbers(self):
        browser = self.served(DAY)
        blocks = [json.loads(one) for one in self.tabulo("blocks", "-o", "ndjson", self.table()).splitlines()]
        browser.show(f"#/blocks?table={DAY}&block=3", ".map-parts dd")
        self.assertEqual(figure(browser.text(".view.blocks p[role=status]")), len(blocks))
        facts = " ".join(browser.texts(".map-parts dd"))
        self.assertIn(f"{blocks[3]['offset']:,}", facts)
        self.assertIn(f"{blocks[3]['uids'][0]:,} to {blocks[3]['uids'][1]:,}", facts)
        browser.run("document.querySelector('.map').focus()")
        browser.press(Keys.ARROW_RIGHT)
        browser.wait("#block-title", "Block 4")
        browser.press("v")
        browser.wait(".verdict.good", f"{len(self.stored(self.table())):,} whole messages")
        self.no_errors()


if __name__ == "__main__":
    unittest.main()
