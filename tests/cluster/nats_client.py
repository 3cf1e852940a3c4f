"""The little of the NATS protocol that the checks need: requests, and a stream from its beginning to its end."""

import base64
import collections
import json
import os
import socket
import time

_Incoming = collections.namedtuple("_Incoming", "subscription subject reply status headers payload")
# A message of a stream: where it stands there, and what it is.
StreamMessage = collections.namedtuple("StreamMessage", "sequence subject headers payload")


class NatsError(Exception):
    """The server does not answer, or refuses."""


def _headers(data):
    """The status, which is nothing with messages, and the headers of a block of headers."""
    lines = data.decode("utf-8", "replace").split("\r\n")
    pairs = [line.split(":", 1) for line in lines[1:] if ":" in line]
    return lines[0].removeprefix("NATS/1.0").strip(), {name: value.strip() for name, value in pairs}


class NatsClient:
    """A connection to one server, without TLS. Not for several threads."""

    def __init__(self, port, user=None, password=None, seconds=10):
        self._buffer = b""
        self._at = 0
        self._inbox = f"_INBOX.{os.getpid()}.{os.urandom(6).hex()}"
        self._requests = 0
        self._subscriptions = 1
        self._delivered = collections.deque()
        self._seconds = seconds
        self._socket = socket.create_connection(("127.0.0.1", port), seconds)
        self._socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.info = json.loads(self._line().split(b" ", 1)[1])
        options = {"verbose": False, "pedantic": False, "headers": True, "no_responders": True, "lang": "python", "version": "1",
                   "protocol": 1, **({"user": user, "pass": password} if user else {})}
        self._send(f"CONNECT {json.dumps(options)}\r\nSUB {self._inbox}.> 1\r\nPING\r\n".encode())
        self._wait_for_pong()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def close(self):
        self._socket.close()

    # Requests

    def request(self, subject, payload=b"", seconds=None):
        """The answer's headers and payload."""
        self._requests += 1
        reply = f"{self._inbox}.{self._requests}"
        self._send(f"PUB {subject} {reply} {len(payload)}\r\n".encode() + payload + b"\r\n")
        message = self._answer(reply, seconds)
        if message.status.startswith("503"):
            raise NatsError(f"nobody answers {subject}")
        return message.headers, message.payload

    def api(self, operation, request=None, seconds=None):
        """What the JetStream API answers; NatsError for an error."""
        payload = json.dumps(request).encode() if request is not None else b""
        answer = json.loads(self.request(f"$JS.API.{operation}", payload, seconds)[1])
        if "error" in answer:
            raise NatsError(f"{operation}: {answer['error']}")
        return answer

    def stream(self, name):
        return self.api(f"STREAM.INFO.{name}")

    def last(self, name, subjects):
        """The newest message of a stream whose subject matches, or nothing."""
        try:
            message = self.api(f"STREAM.MSG.GET.{name}", {"last_by_subj": subjects})["message"]
        except NatsError as error:
            if "no message found" in str(error):
                return None
            raise
        headers = _headers(base64.b64decode(message.get("hdrs", "")))[1]
        return StreamMessage(message["seq"], message["subject"], headers, base64.b64decode(message.get("data", "")))

    def publish(self, subject, payload=b"", headers=None):
        """Publishes to a stream and returns the answer."""
        block = "NATS/1.0\r\n" + "".join(f"{name}: {value}\r\n" for name, value in (headers or {}).items()) + "\r\n"
        block = block.encode()
        self._requests += 1
        reply = f"{self._inbox}.{self._requests}"
        self._send(f"HPUB {subject} {reply} {len(block)} {len(block) + len(payload)}\r\n".encode() + block + payload + b"\r\n")
        return json.loads(self._answer(reply).payload)

    # Streams

    def read_stream(self, name, seconds=60):
        """All messages that the stream holds now, in their order, through a consumer of its own."""
        state = self.stream(name)["state"]
        if state["messages"] == 0:
            return
        self._subscriptions += 1
        number = self._subscriptions
        inbox = f"{self._inbox}-{number}"
        self._send(f"SUB {inbox} {number}\r\n".encode())
        consumer = self.api(f"CONSUMER.CREATE.{name}", {"stream_name": name, "config": {
            "deliver_subject": inbox, "deliver_policy": "all", "ack_policy": "none", "replay_policy": "instant",
            "flow_control": True, "idle_heartbeat": 2_000_000_000, "num_replicas": 1, "mem_storage": True}})
        end = time.monotonic() + seconds
        count = 0
        while True:
            message = self._delivered.popleft() if self._delivered else self._next(end)
            if message.subscription != number:
                continue
            if message.status:
                if message.reply:  # a request of the flow control
                    self._send(f"PUB {message.reply} 0\r\n\r\n".encode())
                continue
            sequence, delivered = (int(part) for part in message.reply.split(".")[5:7])
            count += 1
            if delivered != count:
                raise NatsError(f"the server has not delivered message {count} of its stream {name}")
            yield StreamMessage(sequence, message.subject, message.headers, message.payload)
            if sequence >= state["last_seq"]:
                break
        self._send(f"UNSUB {number}\r\n".encode())
        self.api(f"CONSUMER.DELETE.{name}.{consumer['name']}")

    # The protocol

    def _answer(self, reply, seconds=None):
        end = time.monotonic() + (seconds or self._seconds)
        while True:
            message = self._next(end)
            if message.subject == reply:
                return message
            if message.subscription != 1:  # of a stream, and before the answer to who wants it
                self._delivered.append(message)

    def _next(self, end):
        while True:
            self._socket.settimeout(max(0.01, end - time.monotonic()))
            line = self._line()
            kind, _, rest = line.partition(b" ")
            kind = kind.upper()
            if kind == b"PING":
                self._send(b"PONG\r\n")
            elif kind == b"-ERR":
                raise NatsError(rest.decode())
            elif kind in (b"MSG", b"HMSG"):
                words = rest.decode().split()
                sizes = 2 if kind == b"HMSG" else 1
                head = int(words[-2]) if kind == b"HMSG" else 0
                data = self._bytes(int(words[-1]))
                status, headers = _headers(data[:head]) if head else ("", {})
                reply = words[2] if len(words) == 3 + sizes else None
                return _Incoming(int(words[1]), words[0], reply, status, headers, data[head:])

    def _wait_for_pong(self):
        while True:
            line = self._line()
            if line.startswith(b"-ERR"):
                raise NatsError(line.decode())
            if line == b"PONG":
                return

    def _send(self, data):
        self._socket.sendall(data)

    def _more(self):
        try:
            data = self._socket.recv(1 << 18)
        except TimeoutError:
            raise NatsError("the server does not answer in time") from None
        if not data:
            raise NatsError("the server has closed the connection")
        self._buffer = self._buffer[self._at:] + data
        self._at = 0

    def _line(self):
        while True:
            found = self._buffer.find(b"\r\n", self._at)
            if found >= 0:
                line = self._buffer[self._at:found]
                self._at = found + 2
                return line
            self._more()

    def _bytes(self, size):
        while len(self._buffer) - self._at < size + 2:
            self._more()
        data = self._buffer[self._at:self._at + size]
        self._at += size + 2
        return data
