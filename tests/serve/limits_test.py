"""What a server of tables stands: requests that are no requests, too large or too slow, many connections, clients that go."""

import os
import random
import socket
import struct
import threading
import time
import unittest

from served import Server, ServeTest, line

MIB = 128  # that it may need with many viewers


class LimitsTest(ServeTest):
    def served(self, messages=2000):
        folder = self.path("data")
        os.makedirs(folder, exist_ok=True)
        self.write(os.path.join(folder, "orders"), [line(number, (11, f"A{number}"), (58, "x" * 200)) for number in range(1, messages + 1)])
        server = Server(self, folder)
        self.addCleanup(lambda: self.assertLess(server.peak_memory(), MIB) if server.process.runs() else None)
        return server

    def lives(self, server):
        self.assertTrue(server.process.runs(), server.process.told())
        self.assertEqual(server.get("/api/tables")["tables"][0]["messages"], 2000)

    def request(self, server, *headers, path="/api/tables", method="GET", body=b""):
        lines = [f"{method} {path} HTTP/1.1", f"Host: 127.0.0.1:{server.port}", f"Authorization: Bearer {server.token}", *headers]
        return "\r\n".join(lines).encode() + b"\r\n\r\n" + body

    def status(self, server, data, timeout=30):
        first = server.raw(data, timeout).split(b"\r\n")[0].split(b" ")
        return int(first[1]) if len(first) > 1 else None

    def test_requests_that_are_too_large(self):
        server = self.served()
        self.assertEqual(self.status(server, self.request(server, "X: " + "a" * 20000)), 431)
        self.assertEqual(self.status(server, self.request(server, *[f"X{n}: {'a' * 100}" for n in range(200)])), 431)
        told = server.raw(self.request(server, path="/" + "a" * 12000))
        self.assertIn(int(told.split(b" ")[1]), (400, 414))
        self.assertIn(b'{"error":', told)
        self.assertEqual(self.status(server, b"G" * 100000), 431)
        self.assertEqual(self.status(server, self.request(server, "Content-Length: 70000", path="/api/sql", method="POST",
                                                          body=b" " * 70000)), 413)
        self.assertEqual(self.status(server, self.request(server, "Content-Length: 999999999999", path="/api/sql", method="POST")), 413)
        chunks = b"2000\r\n" + b"a" * 0x2000 + b"\r\n"
        self.assertIn(self.status(server, self.request(server, "Transfer-Encoding: chunked", path="/api/sql", method="POST",
                                                       body=chunks * 100)), (400, 413, 431))
        self.assertEqual(self.status(server, self.request(server, path="/api/messages?" + "&".join(["where=a"] * 150))), 400)
        self.lives(server)

    def test_requests_that_are_none(self):
        server = self.served()
        good = self.request(server)
        for data in (b"\0" * 50, b"\r\n\r\n", b"GET\r\n\r\n", b"GET / HTTP/9.9\r\n\r\n", b"GET  / HTTP/1.1\r\n\r\n", b"\x16\x03\x01\x02\0\x01\0",
                     b"GET / HTTP/1.1\r\nHost\r\n\r\n", good.replace(b"\r\n", b"\n"), b"HTTP/1.1 200 OK\r\n\r\n",
                     self.request(server, "Content-Length: -1"), self.request(server, "Content-Length: x", path="/api/sql", method="POST"),
                     self.request(server, "Transfer-Encoding: chunked", path="/api/sql", method="POST", body=b"zz\r\n\r\n"),
                     self.request(server, "Range: bytes=" + ",".join("0-" for _ in range(2000))),
                     self.request(server, "Expect: 100-continue", "Content-Length: 5", path="/api/sql", method="POST")):
            with server.socket(5) as connection:
                connection.sendall(data)
                connection.shutdown(socket.SHUT_WR)
                try:
                    while connection.recv(65536):
                        pass
                except (ConnectionResetError, TimeoutError):
                    pass
        self.lives(server)

    def test_random_requests(self):
        seed = int(os.environ.get("TABULO_TEST_SEED") or random.SystemRandom().randrange(1 << 32))
        print(f"random numbers from {seed}; to repeat this run: TABULO_TEST_SEED={seed}", flush=True)
        draw = random.Random(seed)
        server = self.served()
        paths = ("/api/messages", "/api/message", "/api/timeline", "/api/order", "/api/blocks", "/")
        names = ("table", "limit", "after", "before", "at", "where", "type", "since", "until", "seq", "uid", "id", "class", "text", "from",
                 "buckets", "by", "merge", "id-is", "poss-dup", "x")
        values = ("orders", "0", "-1", "1", "99999999999999999999", "end", "0.0", "186.194", "186.195~1.2", "1e308", "nan", "ClOrdID=A1", "tag:11=A5",
                  "A..B", "1..", "..5", "type", "%00", "%ff", "'", "2026-11-20", "-10m", "\u202e", "", "yes", "time", "D", "APP_TO", "0x10", "1" * 500)
        for number in range(600):
            query = "&".join(f"{draw.choice(names)}={draw.choice(values)}" for _ in range(draw.randrange(5)))
            data = self.request(server, path=f"{draw.choice(paths)}?table=orders&{query}".replace("\u202e", "%E2%80%AE"))
            if draw.random() < 0.3:
                place = draw.randrange(len(data))
                data = data[:place] + bytes([draw.randrange(256)]) + data[place + draw.randrange(3):]
            with server.socket(30) as connection:
                connection.sendall(data)
                connection.shutdown(socket.SHUT_WR)
                answer = b""
                try:
                    while piece := connection.recv(65536):
                        answer += piece
                except ConnectionResetError:
                    pass
            if answer:
                status = int(answer.split(b" ")[1])
                self.assertLess(status, 500, f"request {number}: {data!r}: {answer[-500:]!r}")
        self.lives(server)

    def test_slow_clients_hold_up_nobody(self):
        server = self.served()
        connections = [server.socket(60) for _ in range(40)]
        begun = time.monotonic()
        for connection in connections[:20]:
            connection.sendall(b"GET / HT")  # and the rest never comes
        for connection in connections[20:]:  # more than is taken is asked for, and nothing of it is read
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            connection.sendall(self.request(server, path="/api/messages?limit=1000") * 20)
        self.lives(server)
        drip = connections[0]
        drip.settimeout(60)
        told = b""
        try:
            while piece := drip.recv(4096):
                told += piece
        except ConnectionResetError:
            pass
        self.assertIn(b" 408 ", told.split(b"\r\n")[0])
        self.assertLess(time.monotonic() - begun, 60)
        self.lives(server)
        for connection in connections:
            connection.close()

    def test_two_hundred_connections_and_as_many_streams_as_may_be(self):
        server = self.served()
        streams = [server.events("/api/events") for _ in range(60)]
        self.assertTrue(all(next(stream)[0] == "tables" for stream in streams))
        idle = [server.socket() for _ in range(140)]
        for connection in idle[:70]:
            connection.sendall(self.request(server))
        self.lives(server)
        more = [server.events("/api/events") for _ in range(8)]
        refused = 0
        for stream in more:
            try:
                next(stream)
            except AssertionError as error:
                self.assertIn("status 503", str(error))
                refused += 1
        self.assertEqual(refused, 4, "of 68 streams 64 are given")
        for connection in idle:
            connection.close()
        for stream in [*streams, *more]:
            stream.close()
        self.lives(server)

    def test_clients_that_go_in_the_middle(self):
        server = self.served()
        requests = [self.request(server, path="/api/messages?limit=1000"), self.request(server, path="/api/events"),
                    self.request(server, path="/api/verify?table=orders"), self.request(server, path="/api/timeline?by=type"),
                    self.request(server, "Content-Length: 100", path="/api/sql", method="POST", body=b"SELECT")]
        for number in range(200):
            connection = server.socket()
            connection.sendall(requests[number % len(requests)])
            if number % 3 == 0 and number % len(requests) != 4:  # the last one is answered when it is whole
                connection.recv(10)
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))  # a reset
            connection.close()
        self.lives(server)

    def test_statements_are_bounded_in_time_memory_and_rows(self):
        server = self.served()
        answer = server.ask("/api/sql", "POST", "WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n) SELECT x FROM n").json()
        self.assertEqual((len(answer["rows"]), answer["more"]), (1000, True))
        begun = time.monotonic()
        endless = threading.Thread(target=lambda: self.told.append(
            server.ask("/api/sql", "POST", "WITH RECURSIVE n(x) AS (SELECT 1 UNION ALL SELECT x + 1 FROM n) SELECT max(x) FROM n")))
        self.told = []
        endless.start()
        self.lives(server)
        endless.join(60)
        self.assertEqual(self.told[0].status, 408, self.told[0].body)
        self.assertGreater(time.monotonic() - begun, 5)
        for statement in ("SELECT group_concat(a.wire || b.wire || c.wire) FROM orders a, orders b, orders c",
                          "SELECT hex(zeroblob(900000000))",
                          "WITH RECURSIVE n(x) AS (SELECT wire FROM orders UNION ALL SELECT x || x FROM n) SELECT max(length(x)) FROM n"):
            answer = server.ask("/api/sql", "POST", statement)
            self.assertIn(answer.status, (400, 408, 413), f"{statement}: {answer.body[:200]!r}")
        self.assertEqual(server.ask("/api/sql", "POST", "SELECT count(*) FROM orders").json()["rows"], [[2000]])
        self.assertLess(server.peak_memory(), MIB)


if __name__ == "__main__":
    unittest.main()
