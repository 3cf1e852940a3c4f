"""What messages and damaged files do to the page: nothing but to be shown."""

import json
import os
import unittest

from shown import DAY, PageTest, figure, line

RIGHT_TO_LEFT = "\u202eevil\u202c \u05d0\u05d1\u05d2 \u2067x"
HOSTILE = (
    "<script>window.hostile = 1</script>", "<img src=x onerror='window.hostile = 1'>", "\"><svg onload=window.hostile=1>",
    "'\"`;--<!--", "javascript:window.hostile=1", "{{7*7}}${7*7}", "</textarea></title></style><b>bold", RIGHT_TO_LEFT, "&lt;b&amp;",
    "__proto__", "constructor", "\u0000\u0007\u001b[31m", "e\u0301" * 50 + "\u0300" * 50, "\U0001f4a9", "x" * 5000)
INVALID = b"\xff\xfe\xc3\x28 \x80end"
LARGE_FIELD = 1024 * 1024


class HostileTest(PageTest):
    def shown_hostile(self):
        os.makedirs(self.path("data"))
        lines = [line(n + 1, (11, text), (55, text), (1, text), (58, text), (37, text)) for n, text in enumerate(HOSTILE)]
        lines.append(line(len(lines) + 1, (11, INVALID), (55, INVALID), (58, INVALID)))
        lines.append(line(len(lines) + 1, (11, "large"), (58, b"y" * LARGE_FIELD)))
        self.write(self.path("data", "orders"), lines)
        self.write(self.path("data", "<b>bold<b> 'n \"x"), lines)
        self.data = self.path("data")
        return self.show_server()

    def assert_harmless(self):
        browser = self.browser
        self.assertIsNone(browser.run("return window.hostile ?? null"), "a text of a message was run")
        self.assertEqual(browser.run("return document.querySelectorAll('main script, main img, main b, main style, main iframe').length"), 0,
                         "a text of a message has become an element")
        scroll, window = browser.widths()
        self.assertLessEqual(scroll, window, "a text of a message makes the page wider than its window")

    def test_hostile_texts_are_texts_in_each_view(self):
        browser = self.shown_hostile()
        count = len(HOSTILE) + 2
        self.assertIn("<b>bold<b> 'n \"x", browser.texts(".table-name"))
        self.assert_harmless()
        browser.show("#/messages?table=orders&n=0", ".message .seq")
        self.settled(first=0)
        self.assertTrue(any(HOSTILE[0] in text for text in browser.texts(".message .rest")))
        self.assert_harmless()
        browser.show("#/messages", ".message .seq")
        browser.wait(".told", f"{2 * count} messages loaded")
        self.assert_harmless()
        browser.show("#/timeline?by=ClOrdID", ".legend li")
        browser.wait(".legend li", "other")
        self.assert_harmless()
        for text in (HOSTILE[0], HOSTILE[1], RIGHT_TO_LEFT):
            browser.run("location.hash = '#/order?id=' + encodeURIComponent(arguments[0])", text)
            browser.wait(".diagram .arrow")
            browser.wait(".state dd", text)
            self.assert_harmless()
        browser.show("#/sql", "#statement")
        browser.run("document.querySelector('#statement').value = 'SELECT * FROM orders WHERE uid < 17'")
        browser.all(".view.sql button.main")[0].click()
        browser.wait(".rows td", HOSTILE[0])
        self.assert_harmless()
        self.no_errors()

    def test_hostile_fields_are_shown_as_they_are(self):
        browser = self.shown_hostile()
        answer = self.server.get("/api/messages", table="orders")
        for text, message in zip(HOSTILE, answer["messages"]):
            browser.show(f"#/messages?table=orders&n=0&m=orders:{message['at']}")
            browser.wait(".panel h2", str(message["seq"]))
            browser.until(lambda seq=message["seq"]: browser.text(".panel h2 .figure") == str(seq), "the message is opened")
            value = browser.run("return [...document.querySelectorAll('.tags tbody tr')].find("
                                "row => row.cells[0].textContent === '58').cells[2].textContent")
            if len(text) < 100 and text.isprintable() and text != RIGHT_TO_LEFT:
                self.assertEqual(value, text)
            self.assert_harmless()
        self.assertTrue(browser.run("return [...document.querySelectorAll('.tags .given')].every("
                                    "one => getComputedStyle(one).unicodeBidi === 'isolate')"), "a value can turn what stands beside it")
        for message, expected in ((answer["messages"][-2], r"\xFF\xFE\xC3( \x80end"), (answer["messages"][-1], "y" * 100)):
            browser.show(f"#/messages?table=orders&n=0&m=orders:{message['at']}")
            browser.wait(".tags td", expected)
        browser.wait(".tags button", "1.0 MiB")
        browser.all(".tags button")[0].click()
        self.assertEqual(browser.run("return Math.max(...[...document.querySelectorAll('.tags .given')].map(one => one.textContent.length))"), 4096)
        self.assert_harmless()
        self.no_errors()


class DamageTest(PageTest):
    def damage(self, name, place, data=bytes(500)):
        with open(self.table(name), "r+b") as file:
            file.seek(place)
            file.write(data)

    def shown_damaged(self):
        """With damage in the middle of the table."""
        self.data = self.sessions(DAY)
        self.damage(DAY, os.path.getsize(self.table()) // 2)
        return self.show_server()

    def test_a_damaged_table_shows_its_damage(self):
        browser = self.shown_damaged()
        verified = self.tabulo("verify", self.table(), status=3)
        browser.show(f"#/blocks?table={DAY}", ".map-parts")
        browser.wait(".view.blocks p", "12 blocks")
        browser.press("v")
        browser.wait(".verdict.bad", "Damaged")
        finding = browser.text(".findings li")
        offset = finding.split(" at ")[1].split(", message")[0].replace(",", "")
        self.assertIn(f"damage at {offset}", verified)
        browser.all(".findings button")[0].click()
        browser.wait(".map-parts .error", "no message stands in")
        self.no_errors()

    def test_what_can_be_read_of_a_damaged_table_is_shown(self):
        browser = self.shown_damaged()
        browser.show(f"#/messages?table={DAY}&n=0", ".message .seq")
        self.settled(first=0)
        browser.show(f"#/messages?table={DAY}&type=8", ".told")

        def told_at_the_damage():
            browser.run("document.querySelector('.list').scrollTop = 0")
            return "Not everything could be read" in browser.text(".told")

        browser.until(told_at_the_damage, "a list that reaches the damage tells it")
        self.no_errors()

    def test_the_list_goes_on_behind_the_damage(self):
        browser = self.shown_damaged()
        count = figure(browser.text(".tables td[data-label=Messages]"))
        blocks = [json.loads(one) for one in self.tabulo("blocks", "-o", "ndjson", self.table()).splitlines()]
        broken = next(one for one in blocks if one["offset"] + one["length"] > os.path.getsize(self.table()) // 2)
        browser.show(f"#/messages?table={DAY}&n={broken['firstMessage'] + broken['messages'] - 5}", ".message")
        browser.wait(".message", "cannot be read")
        browser.wait(".told", "Not everything could be read")
        browser.show(f"#/messages?table={DAY}&n={count}", ".message")
        self.assertEqual(self.end_seq(count), json.loads(self.tabulo("tail", "-n", "1", "-o", "ndjson", self.table()))["seq"])
        errors = len(browser.console_errors())
        self.assertLess(errors, 5, "what cannot be read is asked for again and again")

    def test_the_overview_tells_damage(self):
        self.data = self.sessions(DAY, "client-day2")
        self.damage(DAY, os.path.getsize(self.table()) - 3000)
        self.damage("client-day2", 36, b"\xff" * 4)
        browser = self.show_server()
        browser.wait(".badge.bad", "Damaged")
        browser.wait(".tables .under", "corrupted")
        browser.wait(".problems li", "client-day2")
        self.no_errors()


if __name__ == "__main__":
    unittest.main()
