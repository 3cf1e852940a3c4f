"""What the library has to reach, each a row of the report: what, to reach, measured, met."""

import statistics

# Peers whose appends are handed over by system calls; a writable map has none, and stands in a row of its own.
INDEXED = ["leveldb-indexed", "lmdb-indexed", "rocksdb-indexed", "sqlite-indexed"]
PLAIN = ["quickfix", "leveldb", "lmdb", "lmdb-mapped", "rocksdb", "sqlite"]


def ratio(results, group, metric, subject, other, other_group=None):
    """The median over the turns of one subject's value divided by the other's."""
    pairs = list(zip(results.values(group, subject, metric), results.values(other_group or group, other, metric)))
    return Turns(a / b for a, b in pairs) if pairs else None


class Turns(float):
    """The median of the values of several turns, which knows the smallest and the largest of them."""

    def __new__(cls, values):
        values = list(values)
        made = super().__new__(cls, statistics.median(values))
        made.smallest, made.largest, made.count = min(values), max(values), len(values)
        return made

    def spread(self):
        """Half the distance between the smallest and the largest, in percent of the median."""
        return 50 * (self.largest - self.smallest) / self if self else 0


def fastest(results, group, metric, subjects):
    there = [s for s in subjects if results.values(group, s, metric)]
    return max(there, key=lambda s: results.median(group, s, metric)) if there else None


def text(value):
    return f"{value:,.0f}" if abs(value) >= 1000 else f"{value:.3g}"


def at_least(what, least, value, unit=""):
    return _row(what, f"at least {text(least)}{unit}", value, unit, value is not None and value >= least)


def at_most(what, most, value, unit=""):
    return _row(what, f"at most {text(most)}{unit}", value, unit, value is not None and value <= most)


def shown(what, value, unit=""):
    return [what, "-", "not measured" if value is None else text(value) + unit, "-"]


def _row(what, goal, value, unit, met):
    if value is None:
        return [what, goal, "not measured", "-"]
    spread = ""
    if isinstance(value, Turns) and value.count > 1:
        spread = f" ({text(value.smallest)} to {text(value.largest)})"
    return [what, goal, text(value) + unit + spread, "yes" if met else "**no**"]


def append_rows(results):
    def rate(other, subject="tabulo"):
        return ratio(results, "append", "rate", subject, other) if other else None
    peer = fastest(results, "append", "rate", INDEXED)
    yield at_least("append, native: of the raw limit's rate", 0.82, rate("raw"))
    yield at_most("append, native: of the raw p99", 1.5, ratio(results, "append", "p99", "tabulo", "raw"))
    yield at_most("append, native: of the raw p99.9", 1.2, ratio(results, "append", "p99.9", "tabulo", "raw"))
    yield at_least("append, native, 100 frames a call: times the raw limit's rate of one message a call", 2.5,
                   rate("raw", "tabulo-frames"))
    yield at_least("append, native: times LevelDB", 1.8, rate("leveldb"))
    yield at_least(f"append, native: times the fastest indexed peer ({peer})", 8, rate(peer))
    yield shown("append, native: times LMDB with a writable map and indexes, which makes no system call",
                rate("lmdb-mapped-indexed"))
    for name, least in (("strings", 0.5), ("bytes", 0.7), ("frames", 0.8)):
        yield at_least(f"append through Java, {name}: of the native rate", least,
                       ratio(results, "append", "rate", "java-" + name, "tabulo", "append beside Java"))
    yield at_least("append through Java, append(): of the rate with strings", 0.9, rate("java-strings", "java-append"))
    for name in ("strings", "bytes"):
        yield at_least(f"append through Java, frames: of the rate with {name}", 1, rate("java-" + name, "java-frames"))
    for name in ("strings", "bytes", "frames", "append"):
        yield shown(f"append through Java, {name}: allocated for a message",
                    results.median("append", "java-" + name, "allocated"), " bytes")


def read_rows(results):
    def of(metric):
        return results.median("read", "tabulo", metric)
    for metric in ("scan forward", "scan backward"):
        peer = fastest(results, "read", metric, PLAIN + INDEXED + ["lmdb-mapped-indexed"])
        yield at_least(f"{metric}: of a raw loop", 0.7, ratio(results, "read", metric, "tabulo", "raw"))
        yield at_least(f"{metric}: times the fastest peer ({peer})", 1,
                       ratio(results, "read", metric, "tabulo", peer) if peer else None)
    yield at_least("scan through Java, wire bytes and five getters", 1e6, results.median("read", "java", "scan forward"),
                   "/s")
    for metric in ("sequence range", "time range"):
        yield at_most(f"1000 messages by {metric}, further query", 0.3, of(metric), " ms")
        yield at_most(f"1000 messages by {metric}, first query", 1.5, of(metric + ", first"), " ms")
    yield at_most("one ClOrdID, present", 4, of("ClOrdID present"), " ms")
    yield at_most("one ClOrdID, absent", 3, of("ClOrdID absent"), " ms")
    yield at_most("last 1000 backward", 0.4, of("last 1000"), " ms")
    yield from indexed_read_rows(results)


def indexed_read_rows(results):
    def of(metric):
        return results.median("read", "tabulo-indexed", metric)
    for metric in ("sequence range", "time range"):
        others = [p for p in PLAIN + INDEXED + ["lmdb-mapped-indexed"] if not p.startswith("leveldb")]
        times = [t for t in (results.median("read", p, metric) for p in others) if t]
        yield at_most(f"1000 messages by {metric}, with the index", 0.25, of(metric), " ms")
        yield at_least(f"the same: the fastest peer but LevelDB takes so many times as long", 1,
                       min(times) / of(metric) if times and of(metric) else None)
    yield at_most("all of one symbol of 500, with the index", 10, of("one symbol"), " ms")
    rocksdb = results.median("read", "rocksdb-indexed", "one symbol")
    yield at_least("the same: RocksDB with indexes takes so many times as long", 1,
                   rocksdb / of("one symbol") if rocksdb and of("one symbol") else None)


def growth_rows(results):
    sizes = [size for size in (1_000_000, 10_000_000) if results.values("growth", f"index {size}", "ClOrdID present")]

    def of(metric, size, subject="index"):
        return results.median("growth", f"{subject} {size}", metric)
    for metric, most in (("ClOrdID present", 25), ("ClOrdID absent", 12)):
        for size in sizes:
            yield at_most(f"with the index, {metric} among {text(size)}", most, of(metric, size), " µs")
        if len(sizes) == 2:
            yield at_most(f"the same: among {text(sizes[1])} times among {text(sizes[0])}", 1.5,
                          of(metric, sizes[1]) / of(metric, sizes[0]))
    for size in sizes:
        for metric in ("sequence range", "time range"):
            yield at_most(f"with the index, 1000 by {metric} among {text(size)}", 250, of(metric, size), " µs")
        for metric, call in (("uniform id", "mt_findUniformId"), ("connection message id", "mt_readMessages")):
            yield at_most(f"with the index, a {metric} by {call} among {text(size)}", 50, of(metric, size), " µs")
        opened, plain = of("open and close", size), of("open and close", size, "no index")
        yield at_most(f"opening and closing an indexed table of {text(size)}: more than without", 30,
                      opened - plain, " µs")
        yield at_most(f"the index of {text(size)}: of the table", 4, of("share of the table", size), " %")
        yield at_least(f"building the index of {text(size)}", 2_000_000, of("build rate", size), "/s")


def table_rows(results):
    for metric in ("for writing", "for reading"):
        few = results.median("open", "thousand", metric)
        many = results.median("open", "large", metric)
        yield at_most(f"open {metric} after a clean close: large table, times a small one", 1.5,
                      many / few if few and many else None)
        yield at_most(f"open {metric} after a clean close: large table", 1, many, " ms")
    orders = results.median("setting", "table", "orders") or 0
    for metric in ("open at once", "open again"):
        yield at_most(f"{metric} after a kill, {text(orders)} messages", 5 * max(1, orders / 1e6),
                      results.median("kill", "tabulo", metric), " ms")
    yield at_most("a skipped block: system calls, forward", 1, results.median("skip", "forward", "calls"))
    yield at_most("a skipped block: system calls, backward", 2, results.median("skip", "backward", "calls"))
    yield at_least("watcher, from a backlog, with its DEBUG lines", 200_000, results.median("watcher", "backlog", "rate"),
                   "/s")
    for who, most in (("writer", 1), ("iterator", 128)):
        early = results.median("memory", who, "after a tenth")
        late = results.median("memory", who, "at the end")
        yield at_most(f"memory of a {who if who == 'writer' else 'walk by an iterator'}", most, late, " MiB")
        yield at_most("memory of the same: growth from a tenth of the large table to all of it", 0.25,
                      None if late is None else late - early, " MiB")
    yield at_most("disk above the frames", 2, results.median("disk", "footers and header", "above the frames"), " %")


def delay_rows(results):
    def of(scenario, metric):
        return results.median("delay", scenario, metric)
    for rate in ("10", "100", "1,000", "10,000", "100,000"):
        yield at_most(f"delivery, steady {rate}/s: median delay", 0.1, of(f"steady {rate}/s", "median"), " ms")
        yield at_most(f"delivery, steady {rate}/s: 99 %", 1, of(f"steady {rate}/s", "99 %"), " ms")
    for burst in ("10 messages every 50 ms", "1,000 messages every 1 s", "10,000 messages every 3 s"):
        yield at_most(f"delivery, {burst}: the first of them, median", 0.1, of(burst, "first"), " ms")
    yield at_most("delivery after an hour of silence: median delay", 0.1, of("after an hour of silence", "median"), " ms")
    for rate in ("10", "100", "1,000"):
        yield at_most(f"delivery, 1,000 tables, {rate}/s: median delay", 2, of(f"1,000 tables, {rate}/s", "median"), " ms")
    yield at_most("a watch of 32 tables without messages, of a core", 0.1, results.median("watch", "idle", "share"), " %")


def command_rows(results):
    def of(metric):
        return results.median("command", "tabulo", metric)

    def beside(metric, other):
        return ratio(results, "command", metric, "tabulo", other)
    tables = results.median("setting", "command", "tables") or 0
    large = results.median("setting", "command", "large table") or 0
    yield at_least("the command, cat -o raw: of a native scan into the same pipe", 0.5, beside("raw", "native scan"))
    for form in ("ndjson", "csv"):
        yield at_least(f"the command, cat -o {form}: times SQLite's shell", 2, beside(form, "sqlite3"))
    yield at_least("the command, verify: of a native scan", 1 / 3, beside("verify", "native scan"))
    yield at_most(f"the command, tail -n 50 of {text(large)} messages", 20, of("tail"), " ms")
    yield at_most("the command, tail -f: from an append's return to the shown message, median", 1, of("tail -f, median"), " ms")
    yield at_most(f"the command, order of a ClOrdID among {text(large)}, with the index", 30, of("order"), " ms")
    yield at_most(f"the command, ls of {text(tables)} tables", 1000, of("ls"), " ms")


def sql_rows(results):
    def beside(metric, subject, other):
        return ratio(results, "sql", metric, subject, other)
    yield at_least("SQL, an aggregate of all messages: SQLite's own table takes so many times as long", 1.5,
                   beside("aggregate", "sqlite", "tabulo"))
    yield at_least("SQL, GROUP BY of a text: SQLite's own table takes so many times as long", 1.5,
                   beside("group by", "sqlite", "tabulo"))
    yield at_least("SQL, one ClOrdID: SQLite's own table without an index takes so many times as long", 50,
                   beside("ClOrdID", "sqlite", "tabulo"))
    yield at_most("SQL, one ClOrdID with the side index: times SQLite's own table with an index", 3,
                  beside("ClOrdID", "tabulo-indexed", "sqlite-indexed"))
    yield at_most("SQL, 1,000 orders joined with their reports, with the side index", 30,
                  results.median("sql", "tabulo-indexed", "join"), " ms")


def shipping_rows(results):
    for replicas in (1, 3):
        subject = f"tabulo, replicas {replicas}"
        where = f"with replicas {replicas}"
        yield at_least(f"shipping {where}: of libnats' own publishing", 0.7,
                       ratio(results, "shipping", "publish", subject, f"libnats, replicas {replicas}"))
        yield at_least(f"receiving {where}: of the shipping rate", 1, _receiving(results, subject))
        for who in ("shipper", "receiver"):
            yield at_most(f"shipping {where}: memory of the {who}", 64,
                          results.median("shipping", subject, f"memory of the {who}"), " MiB")
        yield at_most(f"shipping {where}, 10,000/s: from the append to the copy, median", 5,
                      results.median("shipping", subject, "delay, median"), " ms")
        yield at_most(f"shipping {where}, 10,000/s: from the append to the copy, 99 %", 50,
                      results.median("shipping", subject, "delay, 99 %"), " ms")
    yield shown("append, beside a shipper of the table: of the rate alone",
                ratio(results, "shipping", "append", "engine beside a shipper", "engine"))


def _receiving(results, subject):
    pairs = list(zip(results.values("shipping", subject, "receive"), results.values("shipping", subject, "publish")))
    return Turns(a / b for a, b in pairs) if pairs else None


def engine_rows(results):
    def beside(metric, first, second):
        return ratio(results, "engine", metric, first, second)
    count = text(results.median("engine", "setting", "messages") or 0)
    yield at_least("the store for QuickFIX, set: times the engine's file store", 3, beside("set", "tabulo", "file store"))
    yield shown("the store for QuickFIX, set and count: times the engine's file store",
                beside("set and count", "tabulo", "file store"))
    yield at_least(f"the store for QuickFIX, start with {count} messages: the file store takes so many times as long", 50,
                   beside("start", "file store", "tabulo"))
    yield at_least(f"the store for QuickFIX, 1,000 of {count}: the file store takes so many times as long", 1,
                   beside("get", "file store", "tabulo"))
    yield shown(f"the store for QuickFIX, the first get behind a start, of 1,000 of {count}",
                results.median("engine", "tabulo", "first get"), " ms")
    yield shown("the store for QuickFIX: memory", results.median("engine", "tabulo", "memory"), " MiB")


def page_rows(results):
    count = text(results.median("page", "tabulo", "messages") or 0)

    def of(metric):
        return results.median("page", "tabulo", metric)
    yield at_most(f"the page of {count} messages: first view", 500, of("first view"), " ms")
    yield at_most(f"the page of {count} messages: a filter's first answer, one order", 200, of("filter, one order"), " ms")
    yield at_most(f"the page of {count} messages: a filter's first answer, a symbol", 200, of("filter, a symbol"), " ms")
    for view in ("messages", "timeline", "timeline by symbol", "order", "blocks"):
        yield shown(f"the page of {count} messages: the view {view}", of(f"view: {view}"), " ms")
    yield at_most("the page: from the append to the screen, median", 300, of("live, median"), " ms")
    yield at_most("the page: from the append to the screen, 99 %", 300, of("live, 99 %"), " ms")
    yield at_most(f"the page of {count} messages: memory of the server with 20 viewers", 128, of("memory, 20 viewers"), " MiB")
    yield shown(f"the page of {count} messages: answers to 20 viewers", of("answers, 20 viewers"), "/s")


def rows(results):
    yield from append_rows(results)
    yield from read_rows(results)
    yield from growth_rows(results)
    yield from table_rows(results)
    yield from delay_rows(results)
    yield from command_rows(results)
    yield from sql_rows(results)
    yield from shipping_rows(results)
    yield from engine_rows(results)
    yield from page_rows(results)
