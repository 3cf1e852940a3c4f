"""Measures the page of `tabulo serve` in a browser: how soon it shows something, answers a filter, and shows what is written.

Run as page_benchmark.py <tabulo> <command_driver> <results.json> <messages> <turns> in a directory of its own, by the system's
own Python, which has Selenium. The browser runs beside the server, on the same cores.
"""

import http.client
import json
import os
import shutil
import statistics
import subprocess
import sys
import threading
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "page"))
from shown import Browser, Server  # noqa: E402

VIEWERS = 20
SECONDS = 5
LIVE = 600  # messages, 5 ms apart

# Keeps when something was there first, and the newest number of the list whenever it changes, in ms since 1970.
_WATCH = """
window.seen = {first: null, rows: null, newest: []};
const look = () => {
  const now = performance.timeOrigin + performance.now();
  if (!seen.first && document.querySelector(".tables tbody tr")) seen.first = performance.now();
  const rows = document.querySelectorAll(".message .seq");
  if (rows.length && !seen.rows) seen.rows = performance.now();
  const last = Math.max(0, ...[...rows].map(row => Number(row.textContent.replaceAll(",", ""))));
  if (rows.length && last !== seen.newest.at(-1)?.[1]) seen.newest.push([now, last]);
};
new MutationObserver(look).observe(document, {childList: true, subtree: true, characterData: true, attributes: true});
"""


class Bench:
    """Stands for the test that a server and a browser belong to."""

    def __init__(self, folder):
        self.folder = folder
        self.processes = []
        self._ends = []

    def addCleanup(self, end, *arguments):  # noqa: N802  (as a test is called)
        self._ends.append((end, arguments))

    def end(self):
        for end, arguments in reversed(self._ends):
            end(*arguments)
        for process in self.processes:
            process.kill()


class Page:
    def __init__(self, arguments):
        tabulo, self.driver, results, messages, turns = arguments
        os.environ["TABULO_COMMAND"] = tabulo
        self.tabulo, self.messages, self.turns = tabulo, int(messages), int(turns)
        self.results = open(results, "w", encoding="utf-8")

    def add(self, metric, unit, value):
        print(f"{'page':12} {'tabulo':24} {metric:28} {value:14.3f} {unit}", flush=True)
        self.results.write(json.dumps({"group": "page", "subject": "tabulo", "metric": metric, "unit": unit,
                                       "value": float(f"{value:.6g}")}) + "\n")
        self.results.flush()

    def begin(self, folder, path="#/overview"):
        """A server that was started just now, and a browser that has its key and has shown nothing yet."""
        self.bench = Bench(os.getcwd())
        server = Server(self.bench, folder)
        browser = Browser(self.bench)
        browser.driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": _WATCH})
        browser.base = f"http://127.0.0.1:{server.port}/"
        browser.driver.get(browser.base + f"?token={server.token}{path}")
        return server, browser

    def seen(self, browser, name):
        return browser.until(lambda: browser.run(f"return seen.{name}"), name, 60)

    def first_view_and_filters(self):
        printed = subprocess.run([self.tabulo, "cat", "-o", "ndjson", "--uid", str(self.messages // 3), "large/orders"],
                                 stdout=subprocess.PIPE, check=True).stdout
        fields = json.loads(printed)["fields"]
        for _ in range(self.turns):
            server, browser = self.begin("large")
            self.add("first view", "ms", self.seen(browser, "first"))
            for turn, condition in enumerate((f"ClOrdID={fields['ClOrdID']}", f"Symbol={fields['Symbol']}")):
                begin = browser.run("window.seen.rows = null; return performance.now()")
                browser.run("location.hash = arguments[0]", f"#/messages?table=orders&where={condition.replace('=', '%3D')}")
                value = self.seen(browser, "rows") - begin
                self.add("filter, one order" if turn == 0 else "filter, a symbol", "ms", value)
                browser.show("#/overview", ".tables tbody tr")
            self.bench.end()

    def views(self):
        """Each view of the large table: how soon what it shows is there. An error in the browser's console ends the run."""
        server, browser = self.begin("large")
        self.seen(browser, "first")
        middle = server.get("/api/messages", table="orders", at=self.messages // 2, limit=1)["messages"][0]
        order = middle["fields"]["ClOrdID"]
        for _ in range(self.turns):
            for view, address, ready in (
                    ("messages", "#/messages?table=orders", ".message .seq"),
                    ("timeline", "#/timeline?table=orders", None),
                    ("timeline by symbol", "#/timeline?table=orders&by=Symbol", ".legend li"),
                    ("order", f"#/order?id={order}&table=orders", ".diagram .arrow"),
                    ("blocks", f"#/blocks?table=orders&block={self.messages // 2000}", ".map-parts dd")):
                begin = time.monotonic()
                browser.show(address, ready)
                if ready is None:
                    browser.until(lambda: "messages from" in browser.text("main"), "the figures of the timeline")
                self.add(f"view: {view}", "ms", 1000 * (time.monotonic() - begin))
                browser.show("#/overview", ".tables tbody tr")
        if browser.console_errors():
            raise AssertionError(browser.console_errors())
        self.bench.end()

    def live(self):
        for _ in range(self.turns):
            shutil.rmtree("live", ignore_errors=True)
            writer = subprocess.Popen([self.driver, "trickle", "live", str(LIVE)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
            writer.stdout.readline()
            server, browser = self.begin("live", "#/messages?table=orders")
            browser.show("#/messages?table=orders")
            time.sleep(1)
            ahead = time.time_ns() - time.monotonic_ns()
            writer.stdin.write("\n")
            writer.stdin.flush()
            written = [(int(line) + ahead) / 1e6 for line in writer.stdout]
            browser.until(lambda: browser.run("return (seen.newest.at(-1) ?? [0, 0])[1]") >= LIVE, "all messages")
            shown = browser.run("return seen.newest")
            delays = []
            for number, when in enumerate(written, 1):
                delays.append(next(time_ for time_, newest in shown if newest >= number) - when)
            delays.sort()
            self.add("live, median", "ms", statistics.median(delays))
            self.add("live, 99 %", "ms", delays[len(delays) * 99 // 100])
            self.bench.end()

    def viewers(self):
        """The most memory of the server while many look at the large table, and ask."""
        self.bench = Bench(os.getcwd())
        server = Server(self.bench, "large")
        end = time.monotonic() + SECONDS
        answered = []

        def view(number):
            stream = server.events("/api/events")
            next(stream)
            paths = ("/api/timeline?by=type", f"/api/messages?at={number * self.messages // VIEWERS}&table=orders&limit=200",
                     "/api/messages?before=end&limit=200", "/api/blocks?table=orders&limit=20000", "/api/tables")
            connection = http.client.HTTPConnection("127.0.0.1", server.port, timeout=60)
            count = 0
            while time.monotonic() < end:
                connection.request("GET", paths[(count + number) % len(paths)], headers={"Authorization": f"Bearer {server.token}"})
                response = connection.getresponse()
                response.read()
                count += response.status == 200
            answered.append(count)
            stream.close()

        threads = [threading.Thread(target=view, args=(number,)) for number in range(VIEWERS)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.add("memory, 20 viewers", "MiB", server.peak_memory())
        self.add("answers, 20 viewers", "/s", sum(answered) / SECONDS)
        self.bench.end()

    def run(self):
        subprocess.run([self.driver, "orders", "large", str(self.messages)], check=True)
        subprocess.run([self.tabulo, "index", "large/orders"], check=True, stdout=subprocess.DEVNULL)
        self.add("messages", "", self.messages)
        self.first_view_and_filters()
        self.views()
        self.live()
        self.viewers()


if __name__ == "__main__":
    Page(sys.argv[1:]).run()
