"""A scripted FIX counterparty: what it sends is said field by field, and what is answered is kept as text."""

import socket
import time

SOH = "\x01"
# Times, and what depends on them.
_OF_THE_MOMENT = {"52", "60", "122", "10"}


def fields(message):
    """[(tag, value)] of a message."""
    return [tuple(field.split("=", 1)) for field in message.split(SOH) if field]


def value(message, tag):
    """The value of the first field with that tag, or nothing."""
    return next((value for found, value in fields(message) if found == tag), None)


def comparable(message):
    """A message without what differs from one run to the next, as people read it."""
    return "|".join(f"{tag}={value}" for tag, value in fields(message) if tag not in _OF_THE_MOMENT)


def now():
    return time.strftime("%Y%m%d-%H:%M:%S", time.gmtime())


class Counterparty:
    """One side of a session, over connections that follow each other. Numbers its messages itself: `number` is the next."""

    def __init__(self, begin_string, sender, target):
        self._begin_string = begin_string
        self._ids = [("49", sender), ("56", target)]
        self._socket = None
        self._rest = ""
        self.number = 1
        self.answers = []

    def connect(self, port, seconds=20):
        end = time.monotonic() + seconds
        while True:
            try:
                self.use(socket.create_connection(("127.0.0.1", port), timeout=seconds))
                return
            except OSError:
                if time.monotonic() > end:
                    raise
                time.sleep(0.05)

    def use(self, connection):
        """Goes on over a connection that has been made."""
        self.close()
        connection.settimeout(30)
        self._socket = connection
        self._rest = ""

    def connected(self):
        return self._socket is not None

    def close(self):
        if self._socket:
            self._socket.close()
            self._socket = None

    def message(self, kind, body=(), number=None, header=()):
        """A message in bytes; takes the next number unless one is given."""
        if number is None:
            number = self.number
            self.number += 1
        inside = [("35", kind), *self._ids, ("34", str(number)), *header, ("52", now()), *body]
        text = "".join(f"{tag}={value}{SOH}" for tag, value in inside)
        text = f"8={self._begin_string}{SOH}9={len(text)}{SOH}{text}"
        return (text + f"10={sum(text.encode()) % 256:03}{SOH}").encode()

    def send(self, kind, body=(), number=None, header=()):
        self._socket.sendall(self.message(kind, body, number, header))

    def repeat(self, kind, body, number):
        """A message that is sent again."""
        self.send(kind, body, number, [("43", "Y"), ("122", now())])

    def logon(self, heartbeat=30, body=(), number=None):
        version = [("1137", "9")] if self._begin_string == "FIXT.1.1" else []
        self.send("A", [("98", "0"), ("108", str(heartbeat)), *body, *version], number)

    def order(self, name, number=None):
        self.send("D", order(name), number)

    def next(self):
        """The next answer, or nothing when the other side has closed the connection."""
        while True:
            end = self._rest.find(SOH + "10=")
            if end >= 0 and SOH in self._rest[end + 1:]:
                end = self._rest.index(SOH, end + 1) + 1
                message, self._rest = self._rest[:end], self._rest[end:]
                self.answers.append(message)
                return message
            try:
                data = self._socket.recv(1 << 16)
            except ConnectionResetError:
                data = b""
            except TimeoutError:
                raise AssertionError("no answer for 30 s; the last ones were\n" + "\n".join(
                    comparable(answer) for answer in self.answers[-5:])) from None
            if not data:
                self.answers.append("closed")
                return None
            self._rest += data.decode("latin-1")

    def until(self, kind, tag=None, wanted=None):
        """Takes answers up to one of that type, with that value if one is named."""
        while True:
            message = self.next()
            if message is None:
                raise AssertionError(f"closed before a message {kind} {tag or ''}={wanted or ''}; the last answers were\n"
                                     + "\n".join(comparable(answer) for answer in self.answers[-5:]))
            if value(message, "35") == kind and (tag is None or value(message, tag) == wanted):
                return message

    def until_closed(self):
        while self.next() is not None:
            pass

    def settle(self, name):
        """Takes all answers to what was sent so far: those up to the answer of a test request with this name."""
        self.send("1", [("112", name)])
        return self.until("0", "112", name)

    def ask(self, first, last):
        """Asks for messages again."""
        self.send("2", [("7", str(first)), ("16", str(last))])


def order(name):
    """The fields of an order."""
    return [("11", name), ("1", "ACCOUNT"), ("21", "1"), ("55", "TBLO"), ("54", "1"), ("60", now()), ("38", "100"),
            ("40", "2"), ("44", "12.5")]
