"""What a server of tables answers, compared with what the command prints of the same tables."""

import base64
import json
import os
import time
import unittest

from served import Server, ServeTest, line, wait_until

SAME = ("uid", "seq", "prevSeq", "id", "class", "time", "timeRaw", "type", "possDup", "outOfSequence")


class AnswersTest(ServeTest):
    def pages(self, server, limit=700, backward=False, **filters):
        """All messages, page by page, in the order of the file."""
        found = []
        cursor = {"before": "end"} if backward else {}
        while True:
            answer = server.get("/api/messages", limit=limit, **cursor, **filters)
            found = answer["messages"] + found if backward else found + answer["messages"]
            if not answer["more"]:
                return found
            cursor = {"before": answer["before"]} if backward else {"after": answer["after"]}

    def assert_same(self, found, stored):
        self.assertEqual([{name: message[name] for name in SAME} for message in found],
                         [{name: message[name] for name in SAME} for message in stored])

    def test_the_list_of_tables(self):
        folder = self.sessions("client-day1", "client-day2")
        server = Server(self, folder)
        tables = {table["id"]: table for table in server.get("/api/tables")["tables"]}
        listed = [json.loads(row) for row in self.tabulo("ls", "-o", "ndjson", folder).splitlines()]
        self.assertEqual(sorted(tables), sorted(row["table"] for row in listed))
        for row in listed:
            table = tables[row["table"]]
            self.assertEqual((table["messages"], table["size"], table["texts"], table["numbers"], table["damage"]),
                             (row["messages"], row["bytes"], row["texts"], row["numbers"], None))
            self.assertEqual((table["timeUnit"], table["writer"]), ("us", "no"))
            stored = self.stored(os.path.join(folder, row["table"]))
            self.assertEqual(table["firstTime"] * 1000, int(min(stored, key=lambda m: int(m["timeRaw"]))["timeRaw"]))
            self.assertEqual(round(table["lastTime"] * 1000), int(stored[-1]["timeRaw"]))
            for name, classes in (("lastSent", ("APP_TO", "ADMIN_TO")), ("lastReceived", ("APP_FROM", "ADMIN_FROM"))):
                last = [message for message in stored if message["class"] in classes and message["seq"] > 0][-1]
                self.assertEqual((table[name]["seq"], table[name]["type"]), (last["seq"], last["type"]))
            self.assertEqual(abs(sum(table["day"]["counts"]) - row["messages"]) < 5, True, table["day"])

    def test_messages_page_by_page_are_those_of_the_command(self):
        folder = self.sessions("client-day1", "client-day2")
        server = Server(self, folder)
        one = os.path.join(folder, "client-day1")
        stored = self.stored(one)
        self.assert_same(self.pages(server, table="client-day1"), stored)
        self.assert_same(self.pages(server, backward=True, table="client-day1"), stored)
        self.assert_same(self.pages(server, merge="time"), self.stored("--merge", "time", folder))
        self.assert_same(self.pages(server, backward=True, merge="time"), self.stored("--merge", "time", folder))
        symbol = next(message["fields"]["Symbol"] for message in stored if message["fields"]["Symbol"])
        for options in ({"where": f"Symbol={symbol}"}, {"type": ["D", "8"]}, {"type": "D,G"}, {"not_type": "8"}, {"class": "ADMIN_TO"}, {"seq": "100..200"},
                        {"uid": "5000..5100"}, {"text": "35=G"}, {"poss_dup": "yes"}, {"where": ["OrderQty>=500", "tag:54=1"]},
                        {"since": "2026-11-20T19:28:00Z", "until": "2026-11-20T19:29:00Z"}, {"where": "Price is absent", "type": "0"}):
            arguments = [f"--{name.replace('_', '-')}={value}" for name, given in options.items()
                         for value in (given if isinstance(given, list) else [given])]
            expected = self.stored(*arguments, one)
            self.assertGreater(len(expected), 0, options)
            self.assert_same(self.pages(server, limit=37, table="client-day1", **options), expected)
            self.assert_same(self.pages(server, limit=37, backward=True, table="client-day1", **options), expected)
        for number in (0, 1, 999, 1000, 1001, 5555, len(stored) - 1):
            answer = server.get("/api/messages", table="client-day1", at=number, limit=3)
            self.assert_same(answer["messages"], stored[number:number + 3])
            before = server.get("/api/messages", table="client-day1", before=answer["before"], limit=3)
            self.assert_same(before["messages"], stored[max(0, number - 3):number])
        self.assertEqual(server.get("/api/messages", table="client-day1", at=len(stored))["messages"], [])

    def test_wrong_questions_are_told_what_is_wrong(self):
        server = Server(self, self.sessions("client-day1"))
        for words, parameters in (("no table", {"table": "x"}), ("limit is a number", {"limit": "x"}), ("limit is a number", {"limit": 0}),
                                  ("limit is a number", {"limit": 1001}), ("cursor", {"after": "1.2~3.4"}), ("cursor", {"after": "x"}),
                                  ("cursor", {"before": "1.2~"}), ("exclude", {"after": "1.2", "before": "end"}), ("no message", {"after": "0.5"}),
                                  ("Nope", {"where": "Nope=1"}), ("range", {"seq": "9..1"}), ("class", {"class": "X"}), ("uid or time", {"merge": "x"}),
                                  ("without filters", {"at": 5, "type": "D"}), ("more than once", {"limit": [1, 2]})):
            status, error = server.refused("/api/messages", **{"table": "client-day1", **parameters})
            self.assertIn(status, (400, 404), parameters)
            self.assertIn(words, error, parameters)
        for path, parameters in (("/api/message", {"table": "client-day1"}), ("/api/message", {"table": "client-day1", "at": "1.1"}),
                                 ("/api/timeline", {"by": "Nope"}), ("/api/timeline", {"from": "x"}), ("/api/timeline", {"from": 5, "until": 5}),
                                 ("/api/order", {}), ("/api/order", {"id": "no such order"}), ("/api/order", {"id": "x", "id_is": "y"}),
                                 ("/api/blocks", {}), ("/api/verify", {}), ("/api/blocks", {"table": "client-day1", "from": -1})):
            status, error = server.refused(path, **parameters)
            self.assertIn(status, (400, 404), (path, parameters))
            self.assertGreater(len(error), 10)

    def test_one_message_field_by_field(self):
        folder = self.sessions("client-day1")
        server = Server(self, folder)
        stored = self.stored("--uid", "4000", os.path.join(folder, "client-day1"))[0]
        row = server.get("/api/messages", table="client-day1", uid="4000")["messages"][0]
        message = server.get("/api/message", table="client-day1", at=row["at"])
        self.assertEqual({name: message[name] for name in row}, row)
        self.assertEqual(json.loads(message["json"]), stored)
        wire = stored["wire"].encode() if stored["wire"] else base64.b64decode(stored["wireBase64"])
        self.assertEqual(base64.b64decode(message["wire"]), wire)
        self.assertEqual("".join(f"{tag['tag']}={tag['value']}\x01" for tag in message["tags"]).encode(), wire)
        self.assertIn({"tag": 8, "name": "BeginString", "value": "FIX.4.4", "valueName": ""}, message["tags"])
        self.assertIn("--uid 4000", message["command"])

    def test_timelines_count_every_message_once(self):
        folder = self.sessions("client-day1", "client-day2")
        server = Server(self, folder)
        stored = self.stored(folder)
        for by, value in ((None, None), ("type", lambda m: m["type"]), ("class", lambda m: m["class"]), ("Symbol", lambda m: m["fields"]["Symbol"] or "-")):
            answer = server.get("/api/timeline", buckets=50, **({"by": by} if by else {}))
            self.assertFalse(answer["estimate"])
            self.assertEqual(sum(sum(series["counts"]) for series in answer["series"]), len(stored), by)
            self.assertTrue(all(len(series["counts"]) == 50 for series in answer["series"]))
            for series in answer["series"]:
                if by and series["name"] != "other":
                    self.assertEqual(sum(series["counts"]), sum(value(message) == series["name"] for message in stored), series["name"])
        part = server.get("/api/timeline", **{"from": answer["from"] + 60000, "until": answer["from"] + 120000}, buckets=60, table="client-day1")
        begin = (answer["from"] + 60000) * 1000
        expected = [0] * 60
        for message in stored:
            second = int((int(message["timeRaw"]) - begin) // 1000000)
            if message["table"] == "client-day1" and 0 <= second < 60:
                expected[second] += 1
        self.assertEqual(part["series"][0]["counts"], expected)
        filtered = server.get("/api/timeline", type="D", table="client-day2")
        self.assertEqual(sum(filtered["series"][0]["counts"]), sum(m["type"] == "D" and m["table"] == "client-day2" for m in stored))

    def test_what_stands_out_is_marked(self):
        folder = self.path("data")
        os.makedirs(folder)
        lines = [line(1, kind="A"), line(1, kind="A", out=False)]
        lines += [line(number, out=False, kind="8") for number in (2, 3, 7, 8)]  # 4 to 6 are missing; 5 comes later
        lines += [line(5, (43, "Y"), out=False, kind="8"), line(2, kind="D"), line(2, (43, "Y"), kind="D"), line(1, kind="A", out=False)]
        self.write(os.path.join(folder, "orders"), lines)
        server = Server(self, folder)
        wait_until(lambda: server.get("/api/timeline")["marksComplete"], 20, "all messages are looked through")
        marks = server.get("/api/timeline")["marks"]
        self.assertEqual([(mark["kind"], mark["count"]) for mark in marks if mark["kind"] == "gap"], [("gap", 3)])
        gap = next(mark for mark in marks if mark["kind"] == "gap")
        self.assertEqual(gap["text"], "4 to 6 are missing among the numbers of received messages; 1 came later")
        self.assertEqual(server.get("/api/message", table="orders", at=gap["at"])["seq"], 7)
        self.assertEqual(sum(mark["count"] for mark in marks if mark["kind"] == "resend"), 2)
        self.assertEqual([mark["text"] for mark in marks if mark["kind"] == "reset"],
                         ["the numbers of received messages begin again behind 8"])
        table = wait_until(lambda: next(t for t in server.get("/api/tables")["tables"] if t["marksComplete"]), 20, "the list tells it")
        self.assertEqual((table["gaps"], table["resends"]), (0, 2))

    def test_a_large_table_is_estimated_and_says_so(self):
        folder = self.path("data")
        os.makedirs(folder)
        count = 300000
        self.assertEqual(self.engine(folder, count, "tables=orders").wait(120), 0)
        server = Server(self, folder)
        for parameters in ({}, {"by": "type"}, {"where": "Symbol=MSFT"}):
            answer = server.get("/api/timeline", table="orders", **parameters)
            self.assertTrue(answer["estimate"], parameters)
            self.assertLessEqual(answer["read"], 250000)
            total = sum(sum(series["counts"]) for series in answer["series"])
            expected = count if "where" not in parameters else len(self.tabulo("cat", "--where", "Symbol=MSFT", "-o", "fix",
                                                                               os.path.join(folder, "orders")).splitlines())
            self.assertLess(abs(total - expected), expected * 0.02, parameters)
        exact = server.get("/api/timeline", table="orders", where="ClOrdID=ORDER-77777")
        self.assertEqual((exact["estimate"], sum(exact["series"][0]["counts"])), (False, 1))
        near = server.get("/api/timeline", table="orders", **{"from": 1763850100000, "until": 1763850110000}, buckets=10)
        self.assertEqual((near["estimate"], near["series"][0]["counts"]), (False, [1000] * 10))
        middle = server.get("/api/messages", table="orders", at=150000, limit=1)["messages"][0]
        self.assertEqual(middle["uid"], 150001)

    def test_orders_are_those_of_the_command(self):
        folder = self.sessions("client-day1", "client-day2")
        server = Server(self, folder)
        orders = {m["fields"]["ClOrdID"] for m in self.stored("--type", "G", folder)}
        for order in sorted(orders)[:10]:
            rows = [json.loads(row) for row in self.tabulo("order", order, "-o", "ndjson", folder).splitlines()]
            answer = server.get("/api/order", id=order)
            self.assertEqual([(step["table"], step["uid"], step["isReport"], step["isLate"]) for step in answer["steps"]],
                             [(row["table"], row["uid"], row["report"], row["late"]) for row in rows[:-1]])
            state = rows[-1]
            self.assertEqual((answer["state"]["messages"], answer["state"]["reports"], answer["state"]["clOrdIds"]),
                             (state["messages"], state["reports"], state["clOrdIds"]))
            self.assertEqual(answer["state"].get("OrdStatus"), state["OrdStatus"])
            self.assertEqual([[change["field"] for change in step["changes"]] for step in answer["steps"]],
                             [list(row["changes"]) for row in rows[:-1]])
            message = server.get("/api/message", table=answer["steps"][0]["table"], at=answer["steps"][0]["at"])
            self.assertIn(answer["steps"][0]["values"]["ClOrdID"], message["orderIds"])

    def test_blocks_are_those_of_the_command(self):
        folder = self.sessions("client-day1")
        server = Server(self, folder)
        rows = [json.loads(row) for row in self.tabulo("blocks", "-o", "ndjson", os.path.join(folder, "client-day1")).splitlines()]
        answer = server.get("/api/blocks", table="client-day1")
        self.assertEqual(answer["total"], len(rows))
        self.assertEqual([block[1] for block in answer["blocks"]], [row["offset"] for row in rows])
        self.assertEqual([block[4] for block in answer["blocks"]], [row["messages"] for row in rows])
        self.assertEqual(server.get("/api/blocks", table="client-day1", **{"from": 5}, limit=2)["blocks"], answer["blocks"][5:7])
        self.assertEqual(server.get("/api/blocks", table="client-day1", **{"from": 500})["blocks"], [])

    def test_damage_is_told_and_what_is_whole_is_shown(self):
        folder = self.sessions("client-day1")
        path = os.path.join(folder, "client-day1")
        place = 3 * os.path.getsize(path) // 10
        with open(path, "r+b") as file:
            file.seek(place)
            file.write(b"\0" * 5000)
        server = Server(self, folder)
        wait_until(lambda: "CONSISTENCY" in (server.get("/api/tables")["tables"][0]["damage"] or ""), 20, "the list tells the damage")
        found = dict.fromkeys(("finding", "end"))
        for name, data in server.events("/api/verify?table=client-day1"):
            found[name] = data
        self.assertFalse(found["end"]["sound"])
        rows = [json.loads(row) for row in self.tabulo("verify", "-o", "ndjson", path, status=3).splitlines()]
        self.assertEqual(found["end"]["damages"], rows[-1]["damages"])
        self.assertEqual(found["finding"]["text"], rows[-2]["text"])
        answer = server.get("/api/messages", table="client-day1", limit=1000)
        pages = [answer]
        while answer["more"]:
            answer = server.get("/api/messages", table="client-day1", limit=1000, after=answer["after"])
            pages.append(answer)
        self.assertIsNotNone(pages[-1]["damage"])
        self.assertGreater(sum(len(page["messages"]) for page in pages), 2000)
        server.get("/api/timeline", table="client-day1")
        server.get("/api/blocks", table="client-day1")

    def test_messages_appear_as_they_are_written_and_tables_come_and_go(self):
        folder = self.path("data")
        os.makedirs(folder)
        server = Server(self, folder)
        events = server.events("/api/events")
        self.addCleanup(events.close)
        self.assertEqual(next(events)[1]["tables"], [])
        writer = self.engine(folder, 5000, "tables=orders", "rate=1000")
        known = {}
        end = time.monotonic() + 30
        while known.get("orders", {}).get("messages") != 5000 and time.monotonic() < end:
            for table in next(events)[1]["tables"]:
                known[table["id"]] = table
        self.assertEqual(known["orders"]["messages"], 5000)
        self.assertEqual(writer.wait(30), 0)
        self.assertGreater(known["orders"]["rate"], 0)
        cursor = server.get("/api/messages", table="orders", before="end", limit=1)
        self.assertEqual(cursor["messages"][0]["uid"], 5000)
        self.assertEqual(server.get("/api/messages", table="orders", after=cursor["after"])["messages"], [])
        self.assertEqual(self.engine(folder, 5010, "tables=orders").wait(30), 0)
        more = server.get("/api/messages", table="orders", after=cursor["after"])
        self.assertEqual([message["uid"] for message in more["messages"]], list(range(5001, 5011)))
        values = wait_until(lambda: [t for t in server.get("/api/tables")["tables"] if t["id"] == "session" and t["values"][0]["value"] == 5010], 20,
                            lambda: server.get("/api/tables"))
        self.assertEqual(values[0]["kind"], "session")
        self.assertEqual(self.engine(folder, 5020, "tables=orders", "drop=orders").wait(30), 0)
        wait_until(lambda: [t for t in server.get("/api/tables")["tables"] if t["id"] == "orders" and t["messages"] == 10], 20,
                   lambda: server.get("/api/tables"))
        status, error = server.refused("/api/messages", table="orders", after=more["after"])
        self.assertEqual((status, "no message" in error), (400, True), error)
        os.remove(os.path.join(folder, "orders"))
        wait_until(lambda: [t["id"] for t in server.get("/api/tables")["tables"]] == ["session"], 20, "a removed table is gone")
        self.assertEqual(server.refused("/api/messages", table="orders")[0], 404)
        removed = []
        while not removed:
            removed = next(events)[1]["removed"]
        self.assertEqual(removed, ["orders"])

    def test_two_folders_and_single_tables(self):
        for name in ("a", "b"):
            os.makedirs(self.path(name, "data"))
            self.write(self.path(name, "data", "orders"), [line(1, (11, name))])
        server = Server(self, self.path("a", "data"), self.path("b", "data"), self.path("a", "data", "orders"))
        self.assertEqual([table["id"] for table in server.get("/api/tables")["tables"]], ["data-2/orders", "data/orders", "orders"])
        for table, order in (("data/orders", "a"), ("data-2/orders", "b"), ("orders", "a")):
            self.assertEqual(server.get("/api/messages", table=table)["messages"][0]["fields"]["ClOrdID"], order)

    def test_hostile_texts_arrive_as_texts(self):
        folder = self.path("data")
        os.makedirs(folder)
        hostile = [b"<script>alert(1)</script>", b"\"'`;--", b"\xff\xfe\x00", "\u202eabc\u2066".encode(), b"a" * 1000000, b"\x1b[31m", b"%s%n", b""]
        name = "<b>&\"'.table"
        self.write(os.path.join(folder, name), [line(number + 1, (11, text), (55, text), (58, text)) for number, text in enumerate(hostile)])
        server = Server(self, folder)
        messages = server.get("/api/messages", table=name)["messages"]
        self.assertEqual(len(messages), len(hostile))
        self.assertLess(max(len(json.dumps(message)) for message in messages), 20000, "a row of a list holds a large text")
        for message in messages:
            whole = server.get("/api/message", table=name, at=message["at"])
            self.assertLess(len(json.dumps(whole)), 700000)
        self.assertEqual(messages[0]["fields"]["ClOrdID"], "<script>alert(1)</script>")
        self.assertEqual(server.get("/api/messages", table=name, where="ClOrdID=<script>alert(1)</script>")["messages"], messages[:1])
        server.get("/api/timeline", table=name, by="Symbol")
        rows = server.ask("/api/sql", "POST", 'SELECT Symbol, wire FROM "<b>&""\'.table"').json()["rows"]
        self.assertEqual(len(rows), len(hostile))


if __name__ == "__main__":
    unittest.main()
