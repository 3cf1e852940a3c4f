"""Writes the report of a benchmark run: a Markdown file and a plot.

Run as report.py <folder of results> <build folder> <report.md> <plot.svg> <growth.svg>. Every *.json in the folder is read: files of
one JSON object a line (group, subject, metric, unit, value), whoever wrote them, and Google Benchmark's own files.
Several values of one figure are its turns, in their order; the report shows medians.
"""

import datetime
import glob
import json
import os
import platform
import subprocess
import sys

import plot
import targets

STORES = [
    ("raw", "raw limit: `write(2)`, `read(2)`", None),
    ("tabulo", "**Tabulo, native**", None),
    ("tabulo-indexed", "**Tabulo, native, with its index**", None),
    ("java-strings", "**Tabulo through Java, strings**", None),
    ("java-bytes", "**Tabulo through Java, bytes**", None),
    ("java-frames", "**Tabulo through Java, frames**", None),
    ("java-append", "**Tabulo through Java, `append()`**", None),
    ("quickfix", "QuickFIX FileStore", "libquickfix-dev"),
    ("leveldb", "LevelDB", "libleveldb-dev"),
    ("leveldb-indexed", "LevelDB, indexed", "libleveldb-dev"),
    ("lmdb", "LMDB", "liblmdb-dev"),
    ("lmdb-indexed", "LMDB, indexed", "liblmdb-dev"),
    ("lmdb-mapped", "LMDB, writable map", "liblmdb-dev"),
    ("lmdb-mapped-indexed", "LMDB, writable map, indexed", "liblmdb-dev"),
    ("rocksdb", "RocksDB", "librocksdb-dev"),
    ("rocksdb-indexed", "RocksDB, indexed", "librocksdb-dev"),
    ("sqlite", "SQLite", "libsqlite3-dev"),
    ("sqlite-indexed", "SQLite, indexed", "libsqlite3-dev"),
]


MOST_FOREIGN = 5  # percent, as in quiet_turn.cpp


class Results:
    """The figures of a run: values(group, subject, metric) in the order of the turns."""

    def __init__(self, folder):
        self.figures = {}
        self.micro = []
        for path in sorted(glob.glob(os.path.join(folder, "*.json"))):
            with open(path, encoding="utf-8") as file:
                text = file.read()
            if text.lstrip().startswith("{\n"):
                self.micro += json.loads(text)["benchmarks"]
                continue
            for line in text.splitlines():
                figure = json.loads(line)
                key = (figure["group"], figure["subject"], figure["metric"])
                self.figures.setdefault(key, []).append(figure["value"])

    def values(self, group, subject, metric):
        return self.figures.get((group, subject, metric), [])

    def median(self, group, subject, metric):
        values = self.values(group, subject, metric)
        return targets.Turns(values) if values else None

    def mark(self, group, subject):
        """What a row bears when others took a noticeable part of the machine in most of its turns."""
        share = self.median("foreign", f"{group} {subject}", "share")
        return " †" if share is not None and share > MOST_FOREIGN else ""

    def subjects(self, group):
        found = []
        for key in self.figures:
            if key[0] == group and key[1] not in found:
                found.append(key[1])
        return found


def number(value, digits=None):
    if value is None:
        return "-"
    if digits is None:
        digits = 0 if abs(value) >= 100 else 1 if abs(value) >= 10 else 2 if abs(value) >= 1 else 3
    return f"{value:,.{digits}f}"


def scaled(value, divisor, digits=None):
    """A median in another unit, with its spread."""
    if value is None:
        return "-"
    spread = f" ±{value.spread():.0f}%" if isinstance(value, targets.Turns) and value.count > 1 else ""
    return number(value / divisor, digits) + spread


def table(head, rows, alignment="---:"):
    """A Markdown table; the first column is text, the others are numbers if nothing else is said."""
    yield "| " + " | ".join(head) + " |"
    yield "|---" + f"|{alignment}" * (len(head) - 1) + "|"
    for row in rows:
        yield "| " + " | ".join(row) + " |"


def append_rows(results):
    for name, title, _ in STORES:
        if not results.values("append", name, "rate"):
            continue
        def of(metric, store=name):
            return results.median("append", store, metric)
        disk = results.median("fill", name, "disk") or of("disk")
        yield [title + results.mark("append", name), scaled(of("rate"), 1000, 0), scaled(of("p50"), 1000, 2), scaled(of("p99"), 1000, 2),
               scaled(of("p99.9"), 1000, 1), scaled(of("max"), 1e6, 1), number(disk, 0),
               scaled(of("memory"), 1024 * 1024, 1)]


def read_rows(results):
    for name, title, _ in STORES:
        if not results.values("read", name, "scan forward"):
            continue
        def of(metric, store=name):
            return results.median("read", store, metric)
        yield [title + results.mark("read", name), scaled(of("scan forward"), 1e6, 2),
               scaled(of("scan backward"), 1e6, 2), scaled(of("sequence range"), 1), scaled(of("time range"), 1),
               scaled(of("ClOrdID present"), 1), scaled(of("ClOrdID absent"), 1), scaled(of("one symbol"), 1),
               scaled(of("last 1000"), 1),
               scaled(of("open and close"), 1), scaled(results.median("fill", name, "open after kill"), 1)]


def growth_sizes(results):
    return sorted({int(subject.split()[-1]) for subject in results.subjects("growth")})


GROWTH = [("look-up of a ClOrdID", "ClOrdID present"), ("look-up of an absent one", "ClOrdID absent"),
          ("1000 by sequence", "sequence range"), ("1000 by time", "time range"), ("uniform id", "uniform id"),
          ("connection message id", "connection message id"), ("open and close", "open and close")]


def growth_curve(results, subject, metric):
    """The medians by size, where they were measured."""
    found = ((size, results.median("growth", f"{subject} {size}", metric)) for size in growth_sizes(results))
    return [(size, value) for size, value in found if value is not None]


def growth_rows(results):
    def row(title, subject, metric, divisor=1):
        curve = dict(growth_curve(results, subject, metric))
        return [title, *(number(curve[size] / divisor) if size in curve else "-" for size in growth_sizes(results))]
    for title, metric in GROWTH:
        yield row(f"{title}, no index", "no index", metric)
        yield row(f"{title}, with the index", "index", metric)
    for metric in ("ClOrdID present", "ClOrdID absent"):
        yield row(f"{metric}, with the index: calls to read", "index", f"{metric}, reads")
        yield row(f"{metric}, with the index: bytes read", "index", f"{metric}, read")
    yield row("recover", "table", "recover")
    yield row("build the index, ms", "index", "build", 1000)
    yield row("build the index, messages/s", "index", "build rate")
    yield row("the index, % of the table", "index", "share of the table")


def keep_rows(results):
    for subject in results.subjects("keep"):
        def of(metric, name=subject):
            return results.median("keep", name, metric)
        yield [subject, scaled(of("append rate"), 1000, 0),
               *(scaled(of(metric), 1) for metric in ("append p50", "append p99.8", "append p99.99", "longest append"))]


def growth_panels(results):
    """What plot.growth draws: look-ups, ranges, opening, recovering, building."""
    def pair(metric):
        return [("without", growth_curve(results, "no index", metric), "raw"),
                ("with the index", growth_curve(results, "index", metric), "own")]
    return [("One ClOrdID", pair("ClOrdID present")), ("1000 by sequence", pair("sequence range")),
            ("Open and close", pair("open and close")),
            ("Recover", [("after a kill", growth_curve(results, "table", "recover"), "raw")]),
            ("Build the index", [("from nothing", growth_curve(results, "index", "build"), "own")])]


def delay_rows(results):
    for scenario in results.subjects("delay"):
        def of(metric, subject=scenario):
            return results.median("delay", subject, metric)
        yield [scenario, number(of("rate"), 0), number(of("first")), number(of("median")), number(of("99 %")),
               number(of("longest")), number(of("in pauses"), 1)]


def command_rows(results):
    for name, title in (("tabulo", "**the command**"), ("native scan", "native scan"), ("sqlite3", "SQLite's shell")):
        def of(metric, subject=name):
            return results.median("command", subject, metric)
        yield [title, *(scaled(of(metric), 1e6, 2) for metric in ("raw", "ndjson", "csv", "verify")), number(of("tail")),
               number(of("ls"), 0), number(of("order, no index"), 0), number(of("order"), 1), scaled(of("index"), 1e6, 2)]


def sql_rows(results):
    for name, title in (("tabulo", "**the table**"), ("sqlite", "SQLite's own table"),
                        ("tabulo-indexed", "**the table with its side index**"),
                        ("sqlite-indexed", "SQLite's own table with indexes")):
        def of(metric, subject=name):
            return number(results.median("sql", subject, metric))
        yield [title, of("aggregate"), of("group by"), of("ClOrdID"), of("join")]


def first_line(command):
    try:
        run = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
    except OSError:
        return ""
    return run.stdout.splitlines()[0] if run.stdout else ""


def value_of(path, name, separator):
    """The text behind the first line of a file that begins with a name."""
    try:
        with open(path, encoding="utf-8") as file:
            for line in file:
                if line.startswith(name):
                    return line.split(separator, 1)[1].strip().strip('"')
    except OSError:
        pass
    return ""


def optimisation(build):
    """The options about optimising with which the library was compiled."""
    try:
        with open(os.path.join(build, "compile_commands.json"), encoding="utf-8") as file:
            commands = json.load(file)
    except OSError:
        return "unknown options"
    command = next(c["command"] for c in commands if c["file"].endswith("src/messagetable/frame.cpp"))
    return " ".join(word for word in command.split() if word.startswith(("-O", "-march", "-DNDEBUG", "-flto")))


def machine(build):
    cache = os.path.join(build, "CMakeCache.txt")
    compiler = value_of(cache, "CMAKE_CXX_COMPILER:", "=")
    memory = value_of("/proc/meminfo", "MemTotal", ":").split()
    yield ["processor", f"{value_of('/proc/cpuinfo', 'model name', ':') or platform.machine()}, {os.cpu_count()} cores"]
    yield ["memory", f"{int(memory[0]) / 1024 / 1024:.0f} GiB" if memory else "unknown"]
    yield ["system", f"{value_of('/etc/os-release', 'PRETTY_NAME', '=')}, Linux {platform.release()}"]
    yield ["compiler", f"{first_line([compiler, '--version'])}, {optimisation(build)}"]
    packages = sorted({package for _, _, package in STORES if package})
    versions = [f"{p} {v}" for p in packages if (v := first_line(["dpkg-query", "-W", "-f", "${Version}", p]))]
    yield ["peers", ", ".join(versions)]
    yield ["date", datetime.date.today().isoformat()]


def missing(results):
    names = list(results.subjects("missing"))
    if not results.values("append", "java-strings", "rate"):
        names.append("this library through Java")
    return names


def report(results, build, plot_name, curves_name):
    append_messages = results.median("setting", "append", "messages")
    read_messages = results.median("setting", "read", "messages")
    yield "# Benchmark results"
    yield ""
    yield "Written by `./bench`; [README.md](README.md) says what is measured and how to read it."
    yield ""
    yield from table(["machine", ""], machine(build), "---")
    yield ""
    names = missing(results)
    yield f"Left out, because not installed or not built: {', '.join(names)}." if names else "No peer was left out."
    yield ""
    if results.subjects("append"):
        yield f"![Append throughput and latency]({plot_name})"
        yield ""
    yield "## To reach"
    yield ""
    yield from table(["what", "to reach", "measured", "met"], targets.rows(results), "---")
    yield ""
    if results.subjects("instructions"):
        yield "## Instructions"
        yield ""
        yield ("Counted by callgrind, in the library and what it calls, without the system's own. They hardly change from"
               " run to run: a difference to the last report comes from the code or the compiler.")
        yield ""
        yield from table(["step", "instructions a message"],
                         ([step, number(results.median("instructions", step, "a message"), 0)]
                          for step in results.subjects("instructions")))
        yield ""
    yield "## Appending"
    yield ""
    yield (f"{number(append_messages, 0)} orders a turn, medians of {number(results.median('setting', 'append', 'turns'), 0)}"
           f" turns; bytes on disk after {number(read_messages, 0)} orders and a clean close.")
    yield ""
    yield from table(["store", "1000 messages/s", "p50 µs", "p99 µs", "p99.9 µs", "max ms", "bytes/message", "memory MiB"],
                     append_rows(results))
    yield ""
    yield "## Reading"
    yield ""
    yield (f"Among {number(read_messages, 0)} orders, medians of {number(results.median('setting', 'read', 'turns'), 0)}"
           " turns; milliseconds where nothing else is said.")
    yield ""
    yield from table(["store", "scan M/s", "backward M/s", "1000 by sequence", "1000 by time", "ClOrdID present",
                      "ClOrdID absent", "one symbol", "last 1000", "open and close", "open after kill"],
                     read_rows(results))
    if results.subjects("growth"):
        yield ""
        yield "## Growth"
        yield ""
        yield ("One table of orders, all of its blocks closed, without and with its side index; medians in microseconds,"
               " without the debug log.")
        yield ""
        yield f"![Growth with the number of messages]({curves_name})"
        yield ""
        yield from table(["", *(number(size, 0) for size in growth_sizes(results))], growth_rows(results))
    if results.subjects("keep"):
        yield ""
        yield "Appends of a Writer that keeps the index, beside one that does not; microseconds."
        yield ""
        yield from table(["", "1000 messages/s", "p50", "p99.8", "p99.99", "longest"], keep_rows(results))
    if results.subjects("delay"):
        yield ""
        yield "## The watcher's delay"
        yield ""
        yield from table(["messages", "messages/s", "first of a burst, median ms", "median ms", "99 % ms", "longest ms",
                          "% in pauses"], delay_rows(results))
    if results.subjects("command"):
        def setting(name):
            return number(results.median("setting", "command", name), 0)
        yield ""
        yield "## The command"
        yield ""
        yield (f"Whole processes that write into a pipe. Millions of messages a second of a table of {setting('orders')}"
               f" orders, medians of the turns; milliseconds for the last 50 of {setting('large table')} messages, for"
               f" the life of one order in them, and for the list of {setting('tables')} tables of 1,500 orders.")
        yield ""
        yield from table(["", "raw M/s", "ndjson M/s", "csv M/s", "verify M/s", "tail -n 50", "ls", "order, no index",
                      "order, index", "index M/s"], command_rows(results))
    if results.subjects("sql"):
        yield ""
        yield "## SQL"
        yield ""
        yield from table(["", "aggregate s", "GROUP BY s", "one ClOrdID, µs", "join of 1,000 orders, ms"],
                         sql_rows(results))
    if results.micro:
        yield ""
        yield "## Small steps"
        yield ""
        yield from table(["step", "ns"], ([m["name"], number(m["cpu_time"], 1)] for m in results.micro))
    yield ""


def main():
    folder, build, report_path, plot_path, curves_path = sys.argv[1:]
    results = Results(folder)
    if not results.figures:
        sys.exit(f"There are no results in {folder}.")
    with open(report_path, "w", encoding="utf-8") as file:
        file.write("\n".join(report(results, build, os.path.basename(plot_path), os.path.basename(curves_path))))
    bars = [(title.replace("*", "").replace("`", ""), results.median("append", name, "rate"),
             results.median("append", name, "p50"), results.median("append", name, "p99"),
             "raw" if name == "raw" else "own" if package is None else "peer")
            for name, title, package in STORES if results.values("append", name, "rate")]
    if bars:
        with open(plot_path, "w", encoding="utf-8") as file:
            file.write(plot.appends(bars))
    if results.subjects("growth"):
        with open(curves_path, "w", encoding="utf-8") as file:
            file.write(plot.growth(growth_panels(results)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
