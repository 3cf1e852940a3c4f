"""Measures the command: how fast it prints, checks and lists tables, beside a native scan and SQLite's shell.

Run as command_benchmark.py <tabulo> <command_driver> <results.json> <orders> <large table> <tables> <turns> in a directory
of its own. Every figure is the time of a whole process, from its start until nothing more comes out of the pipe to which
it writes. Before anything is timed, what is printed is compared with what others print of the same messages.
"""

import csv
import io
import itertools
import json
import os
import shutil
import sqlite3
import statistics
import subprocess
import sys
import time

COMPARED = 1000  # messages whose values are compared one by one
LAST = 50
TAILS = 31
LISTINGS = 5
ORDERS = 31
FOLLOWED = 500
FIELDS = ["ClOrdID", "Symbol", "Account", "OrderQty", "Price"]
COLUMNS = ["table", "uid", "seq", "prevSeq", "id", "class", "time", "timeRaw", "type", "possDup", "outOfSequence",
           "text0", "text1", *FIELDS, "wire", "nonMetadata", "wireBase64", "nonMetadataBase64"]
# JSON has true and false, which SQLite keeps as texts here; nothing is left for it to compute.
JSON_TEXTS = {"possDup", "outOfSequence"}


class Figures:
    """The results, a JSON object a line; each is printed, too."""

    def __init__(self, path):
        self.file = open(path, "w", encoding="utf-8")

    def add(self, subject, metric, unit, value):
        print(f"{'command':12} {subject:24} {metric:28} {value:14.3f} {unit}", flush=True)
        self.write("command", subject, metric, unit, value)

    def write(self, group, subject, metric, unit, value):
        self.file.write(json.dumps({"group": group, "subject": subject, "metric": metric, "unit": unit,
                                    "value": float(f"{value:.6g}")}) + "\n")
        self.file.flush()


def drained(command):
    """Runs a command to its end; the seconds it took, and how many bytes it has written."""
    buffer = bytearray(1024 * 1024)
    written = 0
    start = time.monotonic()
    with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, bufsize=0) as process:
        while count := process.stdout.readinto(buffer):
            written += count
    seconds = time.monotonic() - start
    if process.returncode != 0:
        sys.exit(f"{' '.join(command)} ended with {process.returncode}.")
    return seconds, written


def lines_of(command, most=None):
    """The first lines that a command prints, with their ends."""
    with subprocess.Popen(command, stdout=subprocess.PIPE) as process:
        lines = list(itertools.islice(process.stdout, most))
        process.stdout.close()
    return [line.decode() for line in lines]


def json_expression():
    """What SQLite is asked for to have an object like ours."""
    def value(column):
        return f"json({column})" if column in JSON_TEXTS else f'"{column}"'
    plain = [column for column in COLUMNS if column not in FIELDS and not column.endswith("Base64")]
    parts = [f"'{column}', {value(column)}" for column in plain]
    fields = ", ".join(f"'{column}', {value(column)}" for column in FIELDS)
    parts.insert(plain.index("wire"), f"'fields', json_object({fields})")
    return f"json_object({', '.join(parts)})"


def sqlite_shell(mode, columns):
    """The shell's command; what the setting answers is not printed."""
    first = [".output /dev/null", "PRAGMA mmap_size=17179869184", ".output stdout", f".mode {mode}"]
    shell = ["sqlite3", "-batch", "-readonly", "-header" if mode == "csv" else "-noheader"]
    for line in first:
        shell += ["-cmd", line]
    return [*shell, "orders.sqlite", f"SELECT {columns} FROM messages"]


def fill_sqlite(tabulo):
    """Puts the same messages into a table with a column for each of ours."""
    types = {"uid": "INTEGER PRIMARY KEY", "seq": "INTEGER", "prevSeq": "INTEGER", "id": "INTEGER",
             "OrderQty": "INTEGER", "Price": "REAL"}
    columns = ", ".join(f'"{column}" {types.get(column, "TEXT")}' for column in COLUMNS)
    with subprocess.Popen([*tabulo, "cat", "orders", "-o", "ndjson"], stdout=subprocess.PIPE) as process:
        def rows():
            for line in process.stdout:
                message = json.loads(line)
                message |= message["fields"] | {name: json.dumps(message[name]) for name in JSON_TEXTS}
                yield [message.get(column) for column in COLUMNS]
        with sqlite3.connect("orders.sqlite") as database:
            database.execute("PRAGMA journal_mode=OFF")
            database.execute(f"CREATE TABLE messages ({columns})")
            database.executemany(f"INSERT INTO messages VALUES ({','.join('?' * len(COLUMNS))})", rows())
    database.close()


def number_or_text(value):
    try:
        return float(value)
    except ValueError:
        return value


def compare(what, ours, theirs, parse):
    """Ends the run unless the first messages have the same values, and both have as many lines."""
    def first(command):
        return parse(lines_of(command, COMPARED))
    if first(ours) != first(theirs):
        sys.exit(f"{what}: the values of the command are not those of SQLite's shell.")
    counts = [sum(1 for _ in subprocess.Popen(command, stdout=subprocess.PIPE).stdout) for command in (ours, theirs)]
    if counts[0] != counts[1]:
        sys.exit(f"{what}: the command prints {counts[0]} lines, and SQLite's shell {counts[1]}.")


def csv_values(lines):
    rows = list(csv.reader(io.StringIO("".join(lines), newline="")))
    return [rows[0]] + [[number_or_text(value) for value in row] for row in rows[1:]]


def print_rates(figures, tabulo, driver, orders, turns):
    """Printing and checking a table of orders, in turns with what it is compared with."""
    def rate(subject, metric, command):
        seconds, written = drained(command)
        figures.add(subject, metric, "messages/s", orders / seconds)
        return written
    shells = {}
    if shutil.which("sqlite3") is None:
        figures.write("missing", "SQLite's shell (sqlite3)", "missing", "tool", 1)
    else:
        fill_sqlite(tabulo)
        shells = {"ndjson": sqlite_shell("list", json_expression()), "csv": sqlite_shell("csv", "*")}
        compare("ndjson", [*tabulo, "cat", "orders", "-o", "ndjson"], shells["ndjson"],
                lambda lines: [json.loads(line) for line in lines])
        compare("csv", [*tabulo, "cat", "orders", "-o", "csv"], shells["csv"], csv_values)
    for _ in range(turns):
        wire = [rate("tabulo", "raw", [*tabulo, "cat", "orders", "-o", "raw"]),
                rate("native scan", "raw", [driver, "pipe", ".", str(orders)])]
        if wire[0] != wire[1]:
            sys.exit(f"The command writes {wire[0]} bytes of wire messages, and the native scan {wire[1]}.")
        for metric in ("ndjson", "csv"):
            rate("tabulo", metric, [*tabulo, "cat", "orders", "-o", metric])
            if metric in shells:
                rate("sqlite3", metric, shells[metric])
        rate("tabulo", "verify", [*tabulo, "verify", "orders"])
        rate("native scan", "verify", [driver, "scan", ".", str(orders)])


def milliseconds(command, times):
    return 1000 * statistics.median(drained(command)[0] for _ in range(times))


def ask_for_orders(figures, tabulo, large):
    """The life of an order of the large table: without its index, and with it."""
    def order(number):
        return [*tabulo, "order", f"C{number}", "reports"]
    places = [1 + (number * 618033 + 271828) % (large // 4) for number in range(ORDERS)]
    lines = lines_of(order(places[0]))
    if sum(f"C{places[0]}" in line for line in lines) < 4:
        sys.exit("The command does not find the messages of an order.")
    figures.add("tabulo", "order, no index", "ms", milliseconds(order(places[0]), 1))
    figures.add("tabulo", "index", "messages/s", large / drained([*tabulo, "index", "reports"])[0])
    if lines_of(order(places[0])) != lines:
        sys.exit("The command finds other messages with an index than without.")
    times = [1000 * drained(order(place))[0] for place in places]
    figures.add("tabulo", "order", "ms", statistics.median(times))
    os.remove("reports.idx")


def follow(figures, tabulo, driver):
    """How long after an append's return tail -f has shown the message."""
    with subprocess.Popen([driver, "trickle", "trickle", str(FOLLOWED)], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                          bufsize=0) as writer:
        returned = iter(writer.stdout.readline, b"")
        next(returned)
        with subprocess.Popen([*tabulo, "tail", "-f", "-n", "0", "trickle/orders"], stdout=subprocess.PIPE,
                              stderr=subprocess.DEVNULL, bufsize=0) as tail:
            time.sleep(1)
            writer.stdin.write(b"\n")
            shown = []
            while len(shown) < FOLLOWED and tail.stdout.readline():
                shown.append(time.monotonic_ns())
            tail.terminate()
        delays = sorted(at - int(line) for at, line in zip(shown, returned))
    if len(delays) != FOLLOWED:
        sys.exit(f"tail -f has shown {len(delays)} of {FOLLOWED} messages.")
    figures.add("tabulo", "tail -f, median", "ms", statistics.median(delays) / 1e6)
    figures.add("tabulo", "tail -f, 99 %", "ms", delays[len(delays) * 99 // 100] / 1e6)
    shutil.rmtree("trickle")


def main():
    tabulo, driver, results = sys.argv[1:4]
    orders, large, tables, turns = (int(argument) for argument in sys.argv[4:])
    tabulo = [tabulo]
    figures = Figures(results)
    for name, value in (("orders", orders), ("large table", large), ("tables", tables)):
        figures.write("setting", "command", name, "messages" if name != "tables" else name, value)

    subprocess.run([driver, "orders", ".", str(orders)], check=True)
    print_rates(figures, tabulo, driver, orders, turns)
    os.remove("orders")
    if os.path.exists("orders.sqlite"):
        os.remove("orders.sqlite")

    subprocess.run([driver, "reports", ".", str(large)], check=True)
    tail = [*tabulo, "tail", "-n", str(LAST), "reports"]
    lines = lines_of(tail)
    if len(lines) != LAST or f" {large} " not in lines[-1]:
        sys.exit("The command does not print the last messages.")
    figures.add("tabulo", "tail", "ms", milliseconds(tail, TAILS))
    ask_for_orders(figures, tabulo, large)
    os.remove("reports")

    follow(figures, tabulo, driver)

    subprocess.run([driver, "folder", "folder", str(tables), "1500"], check=True)
    listing = [*tabulo, "ls", "folder"]
    if len(lines_of(listing)) != tables + 1:
        sys.exit("The command does not list every table.")
    figures.add("tabulo", "ls", "ms", milliseconds(listing, LISTINGS))
    shutil.rmtree("folder")
    return 0


if __name__ == "__main__":
    sys.exit(main())
