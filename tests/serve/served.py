"""What the tests of served tables share: a server on a folder, requests to it, and tables of recorded sessions."""

import http.client
import json
import os
import socket
import subprocess
import sys
import urllib.parse

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "cluster"))

from processes import Process, ProcessTest, wait_until  # noqa: E402  (stands in the folder named above)

SESSIONS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "examples", "data")


class Answer:
    def __init__(self, status, headers, body):
        self.status = status
        self.headers = headers
        self.body = body

    def json(self):
        return json.loads(self.body)


class Server:
    """A server on folders, at a free port of this machine."""

    def __init__(self, test, *arguments, listen="127.0.0.1:0"):
        self.process = Process([os.environ["TABULO_COMMAND"], "serve", *arguments, "--listen", listen], test.folder, "serve")
        test.processes.append(self.process)
        wait_until(lambda: "Ctrl-C" in self.process.out() or not self.process.runs(), 20, self.process.told)
        if not self.process.runs():
            raise AssertionError(f"the server has ended: {self.process.told()}")
        self.page = next(line for line in self.process.out().splitlines() if line.startswith("http"))
        parts = urllib.parse.urlsplit(self.page)
        self.scheme = parts.scheme
        self.host = parts.hostname
        self.port = parts.port
        self.token = urllib.parse.parse_qs(parts.query)["token"][0]

    def connection(self, timeout=30):
        return http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)

    def socket(self, timeout=30):
        return socket.create_connection(("127.0.0.1", self.port), timeout=timeout)

    def ask(self, path, method="GET", body=None, token=True, headers=None):
        """One request over a connection of its own."""
        connection = self.connection()
        try:
            given = dict(headers or {})
            if token:
                given["Authorization"] = f"Bearer {self.token if token is True else token}"
            connection.request(method, path, body=body, headers=given)
            response = connection.getresponse()
            return Answer(response.status, response.headers, response.read())
        finally:
            connection.close()

    def raw(self, data, timeout=30):
        """All that is answered to some bytes, until the server closes the connection or has answered once."""
        with self.socket(timeout) as connection:
            try:
                connection.sendall(data)
            except (BrokenPipeError, ConnectionResetError):
                pass  # refused while it was sent
            answer = b""
            while True:
                try:
                    piece = connection.recv(65536)
                except ConnectionResetError:
                    break
                answer += piece
                if not piece or b"\r\n\r\n" in answer and b"}\n" in answer:
                    break
            return answer

    def get(self, path, **parameters):
        """The JSON of an answer that must be one."""
        answer = self.ask(address(path, **parameters))
        if answer.status != 200:
            raise AssertionError(f"{address(path, **parameters)}: status {answer.status}: {answer.body[:500]!r}")
        return answer.json()

    def refused(self, path, **parameters):
        """(status, error) of an answer that must tell an error."""
        answer = self.ask(address(path, **parameters))
        if answer.status == 200:
            raise AssertionError(f"{address(path, **parameters)} is answered: {answer.body[:500]!r}")
        return answer.status, answer.json()["error"]

    def events(self, path):
        """(name, data) of each event, as they come."""
        connection = self.connection()
        try:
            connection.request("GET", path, headers={"Authorization": f"Bearer {self.token}"})
            response = connection.getresponse()
            if response.status != 200:
                raise AssertionError(f"{path}: status {response.status}: {response.read()[:500]!r}")
            name = None
            for line in response:
                text = line.decode().rstrip("\n")
                if text.startswith("event: "):
                    name = text[7:]
                elif text.startswith("data: "):
                    yield name, json.loads(text[6:])
        finally:
            connection.close()

    def peak_memory(self):
        """The most memory that it has had, in MiB."""
        with open(f"/proc/{self.process.pid}/status", encoding="ascii") as status:
            return next(int(line.split()[1]) for line in status if line.startswith("VmHWM")) / 1024


def address(path, **parameters):
    """A path with parameters; a list is given once for each value, and "_" stands for "-" in names."""
    pairs = [(name.replace("_", "-"), value) for name, given in parameters.items()
             for value in (given if isinstance(given, list) else [given])]
    return path + ("?" + urllib.parse.urlencode(pairs) if pairs else "")


class ServeTest(ProcessTest):
    def tabulo(self, *arguments, status=0):
        """What the command prints."""
        done = subprocess.run([os.environ["TABULO_COMMAND"], *arguments], capture_output=True, timeout=120, check=False)
        self.assertEqual(done.returncode, status, f"tabulo {' '.join(arguments)}: {done.stdout[-2000:]}{done.stderr}")
        return done.stdout.decode()

    def stored(self, *arguments):
        """The messages that `tabulo cat` prints, each as a dictionary."""
        return [json.loads(line) for line in self.tabulo("cat", "-o", "ndjson", *arguments).splitlines()]

    def write(self, table, lines, *options):
        """Stores recorded lines, given as bytes, in a new table."""
        subprocess.run([os.environ["TABULO_RECORDED_WRITER"], table, *options], input=b"".join(lines), check=True,
                       stdout=subprocess.DEVNULL, timeout=120)

    def sessions(self, *days):
        """A folder with the tables of recorded days."""
        folder = self.path("data")
        os.makedirs(folder, exist_ok=True)
        for day in days:
            with open(os.path.join(SESSIONS, day + ".fixlog"), "rb") as lines:
                self.write(os.path.join(folder, day), lines)
        return folder

    def engine(self, folder, last, *options):
        """A process that writes messages of its own into a folder."""
        process = Process([os.environ["TABULO_SHIPPED_WRITER"], folder, str(last), *options], self.folder, "writer")
        self.processes.append(process)
        return process


def line(number, *fields, out=True, kind="D"):
    """A recorded line of made-up fields: (tag, value) with values as bytes or text."""
    inside = [(35, kind), (34, str(number)), *fields]
    body = b"".join(str(tag).encode() + b"=" + (value if isinstance(value, bytes) else str(value).encode()) + b"\x01"
                    for tag, value in inside)
    second = number % 60
    return (f"20261120-19:{number // 60 % 60:02}:{second:02}.000000 {'OUT' if out else 'IN'} ".encode()
            + b"8=FIX.4.4\x01" + body + b"10=000\x01\n")
