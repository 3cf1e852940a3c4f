"""Whether a stream holds each table's messages once and in their order, told from its records' headers and the tables' files."""

import re
import struct
from urllib.parse import unquote

from table_file import FrameWalk, Layout, TableFile

MARK = "="  # begins the parts of subjects that name no table and no type


def place_of(record):
    """The incarnation and the offset that a record's headers tell."""
    incarnation, offset = record.headers["Tabulo-Place"].split("/")
    return int(incarnation), int(offset)


def message_of(record):
    """The uniform id, the sequence number and the time that a message's headers tell."""
    return [int(number) for number in record.headers["Tabulo-Message"].split("/")]


def _layout_of(record):
    """What a layout record's payload tells of the blocks."""
    lines = dict(line.partition(" ")[::2] for line in record.payload.decode().splitlines())
    texts = int(lines.get("summarisedTexts", 2 + len(lines["texts"].split())))
    return Layout(place_of(record)[1], int(lines["messagesPerBlock"]), texts, len(lines["numbers"].split()))


def escaped(name):
    """A name as one part of a subject."""
    return re.sub(r"[^A-Za-z0-9_-]", lambda found: "".join(f"%{byte:02X}" for byte in found[0].encode()), name)


def session_values_in(record):
    """The values of a session record by their tags."""
    return {int(tag): int(value) for tag, value in (line.split() for line in record.payload.decode().splitlines())}


class _Content:
    """One incarnation of a table as the stream tells it."""

    def __init__(self, number, layout):
        self.number = number
        self.walk = FrameWalk(layout)
        self.layout = layout
        self.frames = []  # (offset, bytes)
        self.part = b""

    def rewind(self, offset):
        kept = [frame for frame in self.frames if frame[0] < offset]
        self.frames = kept
        self.walk = FrameWalk(self.layout)
        for _, data in kept:
            self.walk.add(len(data))
        self.part = b""


class StreamCheck:
    """Takes the records of a stream one after the other, and remembers what is wrong."""

    def __init__(self, name):
        self._name = name
        self._last = 0
        self._is_fenced = False
        self.problems = []
        self.contents = {}  # by table: its incarnations
        self.sessions = {}  # by table: the newest values
        self.kinds = {}  # how many records of each kind
        self.ids = set()
        self.message_subjects = []  # of every message record
        self._contiguous = 0

    def _wrong(self, record, what):
        self.problems.append(f"record {record.sequence} ({record.subject}): {what}")

    def _count(self, kind):
        self.kinds[kind] = self.kinds.get(kind, 0) + 1

    def take(self, record):
        # What came between a fence and its owner record was deleted.
        if record.sequence != self._last + 1 and self._last and not self._is_fenced:
            self._wrong(record, f"stands behind {self._last} in the stream")
        self._last = record.sequence
        parts = record.subject.split(".")
        if parts[1:] in ([MARK + "fence"], [MARK + "owner"]):
            self._is_fenced = parts[1] == MARK + "fence"
        elif self._is_fenced:
            self._wrong(record, "stands behind a fence that no owner has ended")
        if parts[0] != self._name or len(parts) not in (2, 3, 4):
            self._wrong(record, "is no subject of this stream")
        elif len(parts) == 2:
            self._count(parts[1])
        elif len(parts) == 3:
            self._take_mark(record, parts[1], parts[2])
        else:
            self._take_message(record, parts[1], parts[2])

    def _take_mark(self, record, table, kind):
        self._count(kind)
        if record.headers.get("Tabulo-Table") != table:
            self._wrong(record, "names another table in its headers")
        incarnation, offset = place_of(record)
        known = self.contents.setdefault(unquote(table), [])
        if kind == MARK + "session":
            self._take_session(record, unquote(table))
        elif kind == MARK + "layout":
            if not known or known[-1].number != incarnation:
                known.append(_Content(incarnation, _layout_of(record)))
        elif kind == MARK + "rewind" and known:
            known[-1].rewind(offset)

    def _take_session(self, record, table):
        values = session_values_in(record)
        self.sessions[table] = values
        while self._contiguous + 1 in self.ids:
            self._contiguous += 1
        # The tests' writer keeps the newest uniform id in tag 1; ids begin at 1 and are dense.
        if values.get(1, 0) > self._contiguous and not self.kinds.get(MARK + "gap"):
            self._wrong(record, f"tells of message {values[1]} before it: {self._contiguous + 1} is not in the stream yet")

    def _take_message(self, record, table, message_class):
        self._count("message")
        self.message_subjects.append(record.subject)
        headers = record.headers
        known = self.contents.get(unquote(table))
        if not re.fullmatch(rf"(APP|ADMIN)_(FROM|TO)|RESENT|{re.escape(MARK)}none", message_class):
            self._wrong(record, "names no class")
        if not known:
            return self._wrong(record, "comes before its table's layout")
        content = known[-1]
        incarnation, offset = place_of(record)
        if incarnation != content.number:
            # After a drop the layout may stay the one of before.
            content = _Content(incarnation, content.layout)
            known.append(content)
        if offset != content.walk.next:
            return self._wrong(record, f"incarnation {content.number}: stands at {offset} instead of {content.walk.next}: " + (
                "lost" if offset > content.walk.next else "repeated or out of order"))
        if "Tabulo-Part" in headers:
            at, whole = (int(number) for number in headers["Tabulo-Part"].split("/"))
            if at == 0:
                content.part = b""
            if at != len(content.part):
                return self._wrong(record, f"the part begins at {at} instead of {len(content.part)}")
            content.part += record.payload
            if len(content.part) < whole:
                return None
            frame, content.part = content.part, b""
        else:
            frame = record.payload
        return self._take_frame(record, content, offset, frame)

    def _take_frame(self, record, content, offset, frame):
        length, uniform_id, sequence = struct.unpack_from("<Iii", frame)
        if length != len(frame) or struct.unpack_from("<I", frame, length - 4)[0] != length:
            return self._wrong(record, "its payload is no whole frame")
        if message_of(record)[:2] != [uniform_id, sequence]:
            self._wrong(record, "its headers tell other numbers than its frame")
        content.frames.append((offset, frame))
        content.walk.add(length)
        self.ids.add(uniform_id)
        return None

    def compare(self, path, table):
        """Compares the newest content of a table in the stream with the table's file."""
        if table not in self.contents or not self.contents[table]:
            self.problems.append(f"the stream has no table {table}")
            return
        shipped = self.contents[table][-1].frames
        stored = [tuple(frame) for frame in TableFile(path).frames()]
        if shipped == stored:
            return
        at = next((n for n, (a, b) in enumerate(zip(shipped, stored)) if a != b), min(len(shipped), len(stored)))
        self.problems.append(f"the stream has {len(shipped)} messages of {table}, the table {len(stored)}; "
                             f"the first difference is at number {at}")


def check_stream(cluster, name, tables=()):
    """Reads a whole stream and compares it with tables, given as (name, path). Returns the StreamCheck."""
    check = StreamCheck(name)
    with cluster.client() as client:
        for record in client.read_stream(name):
            check.take(record)
    for table, path in tables:
        check.compare(path, table)
    return check
