"""Servers that ask who comes, and show who they are."""

import os
import subprocess
import unittest

from shipping_test import ShippingTest, end_on_signals

SECRET = "pass-word-of-the-test"


class LoginTest(ShippingTest):
    def openssl(self, *arguments):
        run = subprocess.run(["openssl", *arguments], cwd=self.folder, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                             check=False)
        self.assertEqual(run.returncode, 0, run.stdout)

    def make_authority(self, name):
        self.openssl("req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", f"/CN={name}",
                     "-keyout", name + ".key", "-out", name + ".pem")

    def make_certificate(self, name, authority):
        with open(self.path(name + ".names"), "w", encoding="ascii") as file:
            file.write("subjectAltName=IP:127.0.0.1,DNS:localhost\n")
        self.openssl("req", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=localhost", "-keyout", name + ".key", "-out", name + ".csr")
        self.openssl("x509", "-req", "-in", name + ".csr", "-CA", authority + ".pem", "-CAkey", authority + ".key", "-CAcreateserial",
                     "-days", "2", "-extfile", name + ".names", "-out", name + ".pem")

    def start_tls(self, verify):
        for name in ("authority", "stranger"):
            self.make_authority(name)
        self.make_certificate("server", "authority")
        self.make_certificate("client", "authority")
        self.make_certificate("other", "stranger")
        self.start_cluster(1, f"tls {{ cert_file: \"{self.path('server.pem')}\", key_file: \"{self.path('server.key')}\", "
                              f"ca_file: \"{self.path('authority.pem')}\", verify: {str(verify).lower()} }}\n")

    def test_a_server_with_a_foreign_certificate_is_refused(self):
        self.start_tls(False)
        self.written(500)
        for options in (["--ca", self.path("stranger.pem")], []):
            for process in (self.ship("--once", *options), self.receive("--once", *options)):
                self.assertRegex(self.ended(process, 1).lower(), "certificate|tls|ssl")
        self.ended(self.ship("--once", "--ca", self.path("authority.pem")))
        self.ended(self.receive("--once", "--ca", self.path("authority.pem")))
        self.assert_copied()

    def test_a_server_that_asks_for_a_certificate_gets_the_one_that_is_named(self):
        self.start_tls(True)
        self.written(500)
        trusted = ["--ca", self.path("authority.pem")]
        for options in ([], ["--cert", self.path("other.pem"), "--key", self.path("other.key")]):
            self.ended(self.ship("--once", *trusted, *options), 1)
        mine = [*trusted, "--cert", self.path("client.pem"), "--key", self.path("client.key")]
        self.ended(self.ship("--once", *mine))
        self.ended(self.receive("--once", *mine))
        self.assert_copied()

    def test_a_server_that_asks_for_a_password_gets_it_from_a_file_or_the_environment(self):
        self.start_cluster(1, f"authorization {{ user: engine, password: \"{SECRET}\" }}\n", ("engine", SECRET))
        self.written(500)
        for environment in ({}, {"TABULO_NATS_USER": "engine", "TABULO_NATS_PASSWORD": "another"}):
            process = self.ship("--once", environment=environment)
            self.assertRegex(self.ended(process, 1).lower(), "authori[sz]ation|authentication|password|refused")
        with open(self.path("login"), "w", encoding="ascii") as file:
            file.write(f"engine\n{SECRET}\n")
        os.chmod(self.path("login"), 0o600)
        process = self.ship("--once", "--login-file", self.path("login"))
        self.assertNotIn(SECRET, self.ended(process))
        self.assert_stream_is_right()
        self.ended(self.receive("--once", environment={"TABULO_NATS_USER": "engine", "TABULO_NATS_PASSWORD": SECRET}))
        self.assert_copied()


if __name__ == "__main__":
    end_on_signals()
    unittest.main()
