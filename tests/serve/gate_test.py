"""Who may ask a server of tables: the token, hosts, origins, methods, addresses, and what cannot be named."""

import http.client
import os
import signal
import ssl
import subprocess
import unittest

from served import Process, Server, ServeTest, line


class GateTest(ServeTest):
    def served(self, *arguments, **options):
        folder = self.path("data")
        os.makedirs(folder, exist_ok=True)
        self.write(os.path.join(folder, "orders"), [line(number, (11, f"A{number}")) for number in range(1, 6)])
        return Server(self, folder, *arguments, **options)

    def refuses_to_start(self, status, *arguments):
        """What it says on standard error."""
        os.makedirs(self.path("data"), exist_ok=True)
        process = Process([os.environ["TABULO_COMMAND"], "serve", *arguments], self.folder, "refused")
        self.processes.append(process)
        self.assertEqual(process.wait(20), status, process.told())
        self.assertNotIn("token=", process.out())
        return process.err()

    def test_everything_of_the_tables_needs_the_token(self):
        server = self.served()
        for path in ("/api/tables", "/api/events", "/api/messages", "/api/message", "/api/timeline", "/api/order", "/api/blocks",
                     "/api/verify", "/api/nothing"):
            for token in (None, "", "x", server.token[:-1], server.token + "x", server.token.swapcase()):
                answer = server.ask(path, token=token)
                self.assertEqual(answer.status, 401, f"{path} with the token {token}")
                self.assertIn("token", answer.json()["error"])
                self.assertNotIn(b"orders", answer.body)
        self.assertEqual(server.ask("/api/sql", "POST", "SELECT 1", token=None).status, 401)
        self.assertEqual(server.ask("/api/tables").status, 200)

    def test_the_printed_address_makes_a_cookie_of_the_token(self):
        server = self.served()
        answer = server.ask(f"/?token={server.token}", token=None)
        self.assertEqual((answer.status, answer.headers["Location"]), (303, "/"))
        cookie = answer.headers["Set-Cookie"]
        for part in ("HttpOnly", "SameSite=Strict", "Path=/"):
            self.assertIn(part, cookie)
        self.assertEqual(server.ask("/api/tables", token=None, headers={"Cookie": cookie.split(";")[0]}).status, 200)
        self.assertEqual(
            server.ask("/api/tables", token=None, headers={"Cookie": "a=b; " + cookie.split(";")[0] + "; c"}).status, 200)
        for wrong in (cookie.split(";")[0][:-1], "other=" + server.token, server.token, ";;;", "="):
            self.assertEqual(server.ask("/api/tables", token=None, headers={"Cookie": wrong}).status, 401, wrong)
        self.assertEqual(server.ask("/?token=wrong", token=None).status, 401)
        self.assertEqual(self.served_again(server), 401, "the token of another server is taken")

    def served_again(self, server):
        other = Server(self, self.path("data"))
        return other.ask("/api/tables", token=server.token).status

    def test_the_page_comes_without_a_token_and_runs_nothing_but_itself(self):
        answer = self.served().ask("/", token=None)
        self.assertEqual(answer.status, 200)
        self.assertIn("text/html", answer.headers["Content-Type"])
        policy = answer.headers["Content-Security-Policy"]
        self.assertIn("default-src 'none'", policy)
        self.assertIn("script-src 'self';", policy)
        self.assertNotIn("unsafe", policy)
        self.assertEqual(answer.headers["X-Content-Type-Options"], "nosniff")
        self.assertEqual(answer.headers["Referrer-Policy"], "no-referrer")

    def test_hosts_and_origins_of_others_are_refused(self):
        server = self.served("--host", "desk.example")
        port = server.port
        self.assertEqual(server.host, "desk.example", "the address is printed by the name that others use")
        for host in (f"127.0.0.1:{port}", f"localhost:{port}", f"LOCALHOST:{port}", f"desk.example:{port}", f"[::1]:{port}"):
            self.assertEqual(server.ask("/api/tables", headers={"Host": host}).status, 200, host)
        for host in (f"evil.example:{port}", "127.0.0.1", "localhost:1", f"desk.example.evil:{port}", "", f"127.0.0.1.evil:{port}"):
            self.assertEqual(server.ask("/api/tables", headers={"Host": host}).status, 403, host)
            self.assertEqual(server.ask("/", headers={"Host": host}).status, 403, host)
        request = "GET /api/tables HTTP/1.1\r\n{}Authorization: Bearer " + server.token + "\r\nConnection: close\r\n\r\n"
        self.assertIn(b" 403 ", server.raw(request.format("").encode()).split(b"\r\n")[0])
        two = f"Host: 127.0.0.1:{port}\r\nHost: evil.example:{port}\r\n"
        self.assertIn(b" 403 ", server.raw(request.format(two).encode()).split(b"\r\n")[0])

        ours = f"http://127.0.0.1:{port}"
        self.assertEqual(server.ask("/api/tables", headers={"Origin": ours}).status, 200)
        for origin in ("http://evil.example", "null", f"https://127.0.0.1:{port}", f"http://localhost:{port}", ours + "x"):
            self.assertEqual(server.ask("/api/sql", "POST", "SELECT 1", headers={"Origin": origin}).status, 403, origin)
        for site in ("cross-site", "same-site"):
            self.assertEqual(server.ask("/api/tables", headers={"Sec-Fetch-Site": site}).status, 403, site)
            self.assertEqual(server.ask("/", headers={"Sec-Fetch-Site": site, "Sec-Fetch-Mode": "no-cors"}).status, 403, site)
            self.assertEqual(server.ask("/", headers={"Sec-Fetch-Site": site, "Sec-Fetch-Mode": "navigate"}).status, 200, site)
        self.assertEqual(server.ask("/api/tables", headers={"Sec-Fetch-Site": "same-origin"}).status, 200)

    def test_other_methods_are_refused(self):
        server = self.served()
        for method in ("POST", "PUT", "DELETE", "PATCH", "OPTIONS", "TRACE", "CONNECT", "get", "X"):
            self.assertIn(server.ask("/api/tables", method).status, (400, 405), method)
        self.assertEqual(server.ask("/api/sql").status, 405)
        self.assertEqual(server.ask("/api/sql", "POST", "SELECT 1").status, 200)
        self.assertEqual(server.ask("/", "HEAD").body, b"")

    def test_nothing_outside_the_folder_can_be_named(self):
        folder = self.path("data")
        os.makedirs(folder)
        self.write(self.path("secret"), [line(1, (11, "SECRET"))])
        self.write(os.path.join(folder, "orders"), [line(1, (11, "A1"))])
        os.symlink(self.path("secret"), os.path.join(folder, "link"))
        os.symlink("orders", os.path.join(folder, "inside"))
        os.symlink("/nowhere", os.path.join(folder, "broken"))
        server = Server(self, folder)
        tables = server.get("/api/tables")
        self.assertEqual([table["id"] for table in tables["tables"]], ["inside", "orders"])
        self.assertTrue(any("link" in problem and "out of the folder" in problem for problem in tables["problems"]),
                        tables["problems"])
        for name in ("../secret", "link", self.path("secret"), "/etc/passwd", "./orders", "orders/", "orders\0", "..", ""):
            for path in ("/api/messages", "/api/timeline", "/api/order", "/api/blocks", "/api/verify"):
                status, error = server.refused(path, table=name, **({"id": "SECRET"} if path == "/api/order" else {}))
                self.assertIn(status, (400, 404), f"{path} {name!r}: {error}")
        for path in ("/../secret", "/data/orders", "/..%2f..%2fetc/passwd", "//etc/passwd", "/api/../api/tables/", "/%00", "/index.html/"):
            self.assertEqual(server.ask(path).status, 404, path)
        raw = server.raw(f"GET /../../../../etc/passwd HTTP/1.1\r\nHost: 127.0.0.1:{server.port}\r\nConnection: close\r\n\r\n".encode())
        self.assertIn(b" 404 ", raw.split(b"\r\n")[0])
        for statement in (f"SELECT * FROM tabulo_messages('{self.path('secret')}')", f"ATTACH '{self.path('secret')}' AS x",
                          f"CREATE VIRTUAL TABLE x USING tabulo('{self.path('secret')}')", "SELECT load_extension('x')",
                          f"SELECT * FROM tabulo_session('{self.path('secret')}')", "SELECT sql FROM sqlite_master",
                          "PRAGMA database_list", "SELECT * FROM pragma_database_list", "SELECT * FROM dbstat",
                          "CREATE TABLE x(y)", "DELETE FROM orders", "VACUUM INTO 'x'", "SELECT readfile('/etc/passwd')",
                          "BEGIN", "EXPLAIN SELECT 1; SELECT 2", "SELECT 1; SELECT 2", "DROP TABLE orders", ""):
            answer = server.ask("/api/sql", "POST", statement)
            self.assertEqual(answer.status, 400, f"{statement}: {answer.body[:300]!r}")
            self.assertNotIn(b"SECRET", answer.body)
        self.assertFalse(os.path.exists(os.path.join(os.getcwd(), "x")))
        self.assertEqual(server.ask("/api/sql", "POST", "SELECT ClOrdID FROM orders;").json()["rows"], [["A1"]])
        self.assertEqual(server.ask("/api/sql", "POST", "SELECT t.value FROM orders m, fix_tags(m.wire) t WHERE t.tag = 11").json()["rows"],
                         [["A1"]])

    def test_addresses_that_others_reach_need_tls_or_a_word(self):
        data = self.path("data")
        told = self.refuses_to_start(2, data, "--listen", "0.0.0.0:0")
        self.assertIn("--tls-certificate", told)
        self.assertIn("--insecure", told)
        for listen in ("here", "127.0.0.1", "127.0.0.1:", "127.0.0.1:x", "127.0.0.1:65536", ":80", "example.com:80"):
            self.assertIn("--listen", self.refuses_to_start(2, data, "--listen", listen), listen)
        self.assertIn("belong together", self.refuses_to_start(2, data, "--listen", "127.0.0.1:0", "--tls-key", "x"))
        self.assertIn("No such file", self.refuses_to_start(1, self.path("missing")))
        server = self.served("--insecure", listen="0.0.0.0:0")
        self.assertIn("--insecure", server.process.err())
        self.assertEqual(server.ask("/api/tables").status, 200)
        taken = self.refuses_to_start(1, data, "--listen", f"127.0.0.1:{server.port}")
        self.assertIn("cannot be listened at", taken)

    def test_tls(self):
        certificate, key, other = self.path("cert.pem"), self.path("key.pem"), self.path("other.pem")
        for name in ([certificate, key], [self.path("unused.pem"), other]):
            subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=localhost", "-addext",
                            "subjectAltName=IP:127.0.0.1", "-days", "2", "-out", name[0], "-keyout", name[1]],
                           check=True, capture_output=True)
        told = self.refuses_to_start(1, self.path("data"), "--listen", "127.0.0.1:0", "--tls-certificate", certificate, "--tls-key", other)
        self.assertIn("belongs to the certificate", told)
        told = self.refuses_to_start(1, self.path("data"), "--listen", "127.0.0.1:0", "--tls-certificate", "missing", "--tls-key", key)
        self.assertIn("no certificate", told)
        server = self.served("--tls-certificate", certificate, "--tls-key", key)
        self.assertEqual(server.scheme, "https")
        context = ssl.create_default_context(cafile=certificate)
        for _ in range(3):
            connection = http.client.HTTPSConnection("127.0.0.1", server.port, context=context, timeout=20)
            connection.request("GET", "/api/tables", headers={"Authorization": f"Bearer {server.token}"})
            response = connection.getresponse()
            self.assertEqual((response.status, len(response.read()) > 100), (200, True))
            connection.request("GET", f"/?token={server.token}")
            self.assertIn("Secure", connection.getresponse().headers["Set-Cookie"])
            connection.close()
        server.raw(b"GET / HTTP/1.1\r\n\r\n")  # no TLS at all: the connection ends
        with server.socket():  # and one that says nothing does not hold up the others
            connection = http.client.HTTPSConnection("127.0.0.1", server.port, context=context, timeout=20)
            connection.request("GET", "/", headers={})
            self.assertEqual(connection.getresponse().status, 200)
            connection.close()

    def test_it_ends_when_it_is_told_to_also_while_pages_look(self):
        server = self.served()
        streams = [server.events("/api/events") for _ in range(5)]
        for stream in streams:
            self.addCleanup(stream.close)
            next(stream)
        idle = [server.socket() for _ in range(5)]
        server.process.signal(signal.SIGINT)
        self.assertEqual(server.process.wait(10), 130, server.process.told())
        for connection in idle:
            connection.close()


if __name__ == "__main__":
    unittest.main()
