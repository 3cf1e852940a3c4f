"""What stands in the files of tables, told without the library that has written them."""

import collections
import os
import struct

Frame = collections.namedtuple("Frame", "offset data")
_FOOTER_OF_ALL = 140  # bytes of a block's footer without any field
_NUMBER = 18
_TEXT = 1256


def read(path):
    with open(path, "rb") as file:
        return file.read()


class Layout:
    """How a table's blocks follow each other."""

    def __init__(self, first_block, per_block, texts, numbers):
        self.first_block = first_block
        self.per_block = per_block
        self.footer = _FOOTER_OF_ALL + _NUMBER * numbers + _TEXT * texts


class FrameWalk:
    """Where each frame must stand when one follows the other in a file."""

    def __init__(self, layout):
        self._layout = layout
        self.count = 0
        self.next = layout.first_block + 8

    def add(self, length):
        self.count += 1
        self.next += length
        if self.count % self._layout.per_block == 0:
            self.next += self._layout.footer + 8


class TableFile:
    """A message table's file as it is now."""

    def __init__(self, path):
        self.path = path
        self.data = read(path)
        if self.data[:10] != b"KestrovaDb":
            raise AssertionError(f"{path} is no table")
        (self.header,) = struct.unpack_from("<I", self.data, 15)
        per_block, _, texts, numbers = struct.unpack_from("<4I", self.data, 36)
        self.layout = Layout(self.header, per_block, texts, numbers)

    def frames(self):
        """The whole frames in their order."""
        walk = FrameWalk(self.layout)
        while walk.next + 4 <= len(self.data):
            (length,) = struct.unpack_from("<I", self.data, walk.next)
            if length == 0 or walk.next + length > len(self.data):
                break
            if struct.unpack_from("<I", self.data, walk.next + length - 4)[0] != length:
                raise AssertionError(f"{self.path}: the frame at {walk.next} is damaged")
            yield Frame(walk.next, self.data[walk.next:walk.next + length])
            walk.add(length)

    def uniform_ids(self):
        return [struct.unpack_from("<i", frame.data, 4)[0] for frame in self.frames()]


def last_frame(path):
    """The last whole frame, or nothing."""
    last = None
    if os.path.getsize(path) > 19:
        for last in TableFile(path).frames():
            pass
    return last


def session_values(path):
    """The values of a session info table by their tags."""
    data = read(path)
    (count,) = struct.unpack_from("<i", data, 40)
    tags = struct.unpack_from(f"<{count}i", data, 44)
    values = struct.unpack_from(f"<{count}q", data, 44 + 4 * count) if len(data) >= 44 + 12 * count else (0,) * count
    return dict(zip(tags, values))


def difference(source, copy):
    """Where the files of two closed tables differ, in words; nothing when they are the same."""
    if not os.path.exists(copy):
        return f"{copy} does not exist"
    ours, theirs = read(source), read(copy)
    if ours == theirs:
        return ""
    at = next((n for n, (a, b) in enumerate(zip(ours, theirs)) if a != b), min(len(ours), len(theirs)))
    return (f"{copy} differs from {source} from byte {at} on ({len(theirs)} and {len(ours)} bytes): "
            f"{theirs[at:at + 16].hex()} and {ours[at:at + 16].hex()}")


def open_difference(source, copy):
    """The same while the tables are open: behind the header up to the copy's end, the open block's length word aside."""
    ours, theirs = TableFile(source), TableFile(copy)
    mine = {frame.offset: frame.data for frame in ours.frames()}
    for frame in theirs.frames():
        if mine.get(frame.offset) != frame.data:
            return f"{copy}: the frame at {frame.offset} is not that of {source}"
    return ""
