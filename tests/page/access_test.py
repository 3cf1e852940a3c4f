"""Who can use the page: with keys alone, in both themes, at both widths, by what reads it aloud; and that an address brings
everything back."""

import os
import unittest

from shown import DAY, Keys, LARGE, PageTest, SMALL

# Each view with something in it, and what must be there.
VIEWS = (
    ("#/overview", ".tables tbody tr"),
    (f"#/messages?table={DAY}", ".message .seq"),
    ("#/messages?type=8", ".message .seq"),
    (f"#/timeline?table={DAY}&by=type", ".legend li"),
    ("#/order", ".view.order form"),
    ("#/order?id=C1A-10860", ".diagram .arrow"),
    (f"#/blocks?table={DAY}&block=3", ".map-parts dd"),
    (f"#/sql?q=SELECT%20*%20FROM%20%22{DAY}%22%20LIMIT%205", "#statement"),
)


class AccessTest(PageTest):
    def each_view(self):
        """Goes through the views at both sizes, with a message and the list of keys opened, too."""
        browser = self.browser
        for size in (LARGE, SMALL):
            browser.resize(size)
            for address, ready in VIEWS:
                browser.show(address, ready)
                if "sql" in address:
                    browser.all(".view.sql button.main")[0].click()
                    browser.wait(".rows tbody tr")
                if "type=8" in address:
                    browser.run("document.querySelector('.filter-box').open = true")
                yield f"{address} at {size[0]}"
            browser.show(f"#/messages?table={DAY}&n=8", ".message .seq")
            browser.run("document.querySelector('#message-8').click()")
            browser.wait(".tags tbody tr")
            yield f"an opened message at {size[0]}"
            browser.show("#/overview", ".tables")
            browser.run("document.getElementById('show-keys').click()")
            yield f"the list of keys at {size[0]}"
            browser.press(Keys.ESCAPE)

    def test_no_view_has_what_keeps_people_out(self):
        if not os.path.exists(os.environ.get("TABULO_AXE", "")):
            self.skipTest("TABULO_AXE does not name axe.min.js of the npm package axe-core: nothing was checked")
        browser = self.served(DAY)
        for theme in ("light", "dark"):
            browser.theme(theme)
            for place in self.each_view():
                with self.subTest(place=place, theme=theme):
                    self.assertEqual(browser.violations(), [])
        self.no_errors()

    def test_no_view_is_wider_than_its_window(self):
        browser = self.served(DAY, "client-day2")
        for place in self.each_view():
            with self.subTest(place=place):
                scroll, window = browser.widths()
                self.assertLessEqual(scroll, window)
                self.assertEqual(len(browser.all("h1")), 1)
        self.no_errors()

    def test_keys_alone_reach_everything(self):
        browser = self.served(DAY)
        browser.press("?")
        browser.wait("dialog[open] dt", "/")
        browser.press(Keys.ESCAPE)
        browser.press("2")
        browser.wait(".view.messages .message .seq")
        browser.press("l")
        browser.press(Keys.HOME)
        self.settled(first=0)
        browser.press(Keys.ARROW_DOWN, Keys.ENTER)
        browser.wait(".panel h2 .figure")
        self.assertEqual(browser.text(".panel h2 .figure"), str(self.stored("--limit", "2", self.table())[1]["seq"]))
        browser.press(Keys.END)
        browser.until(lambda: browser.text(".panel h2 .figure") == str(self.stored(self.table())[-1]["seq"]), "the last message is opened")
        for number, view in enumerate(("overview", "messages", "timeline", "order", "blocks", "sql"), 1):
            browser.press(str(number))
            browser.wait(f".view.{view} h1")
        browser.press("/")
        self.assertEqual(browser.run("return document.activeElement.id"), "order-id")
        browser.run("document.activeElement.blur(); document.getElementById('skip').focus()")
        browser.press(Keys.ENTER)
        self.assertEqual(browser.run("return document.activeElement.id"), "main")
        self.no_errors()

    def test_choices_stay_and_times_say_their_zone(self):
        browser = self.served(DAY, zone="Asia/Tokyo")
        stored = self.stored("--limit", "1", self.table())[0]
        browser.show(f"#/messages?table={DAY}&n=0", ".message .seq")
        self.settled(first=0)
        hour = (int(stored["time"][11:13]) + 9) % 24
        browser.wait(".message .time", f"{hour:02}{stored['time'][13:23]}")
        browser.wait("#zone-told", "Asia/Tokyo")
        browser.run("const zone = document.getElementById('zone'); zone.value = 'utc'; zone.dispatchEvent(new Event('change'))")
        browser.wait(".message .time", stored["time"][11:23])
        browser.run("const theme = document.getElementById('theme'); theme.value = 'dark'; theme.dispatchEvent(new Event('change'))")
        dark = browser.run("return getComputedStyle(document.documentElement).backgroundColor")
        browser.driver.refresh()
        browser.wait(".message .time", stored["time"][11:23])
        browser.wait("#zone-told", "UTC")
        self.assertEqual(browser.run("return getComputedStyle(document.documentElement).backgroundColor"), dark)
        self.no_errors()

    def test_tables_and_filters_go_along_to_other_views(self):
        browser = self.served(DAY)
        browser.show(f"#/messages?table={DAY}&type=8", ".message .seq")
        browser.press("3")
        browser.wait(".view.timeline .chosen", f"{DAY}; type 8")
        browser.press("5")
        browser.until(lambda: f"table={DAY}" in browser.address(), "the map is of the same table")
        browser.press("1")
        browser.wait(".view.overview h1")
        self.no_errors()

    def test_back_goes_through_the_views(self):
        browser = self.served(DAY)
        addresses = []
        for address, ready in VIEWS:
            browser.show(address, ready)
            addresses.append(address.split("?")[0])
        for address in reversed(addresses[:-1]):
            browser.driver.back()
            browser.until(lambda expected=address: browser.address().startswith(expected), f"back leads to {address}")
            browser.wait(f".view.{address[2:]} h1")
        self.no_errors()


if __name__ == "__main__":
    unittest.main()
