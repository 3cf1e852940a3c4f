"""What the tests of shipping share: a folder, programs, a cluster, and what must be so at the end."""

import os
import signal
import sys

import table_file
from cluster import Cluster
from nats_client import NatsError
from processes import Process, ProcessTest, wait_until
from stream_check import MARK, check_stream, escaped, place_of, session_values_in

STREAM = "ENG1"


def effort():
    return int(os.environ.get("TABULO_TEST_EFFORT") or 1)


def end_on_signals():
    """A test that is asked to end cleans up: its with statements and clean-ups run."""
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))


class ShippingTest(ProcessTest):
    def setUp(self):
        super().setUp()
        self.source = self.path("source")
        self.copy = self.path("copy")
        os.mkdir(self.source)
        self.cluster = None

    def start_cluster(self, size=3, settings="", login=None):
        folder = self.path("servers")
        self.cluster = Cluster(os.environ["TABULO_NATS_SERVER"], folder, size, settings, login)
        self.addCleanup(self.cluster.end)
        self.cluster.start()
        return self.cluster

    # Programs

    def start(self, name, command, environment=None, before=None):
        process = Process(command, self.folder, name, environment, before)
        self.processes.append(process)
        return process

    def verb(self, verb, arguments, url=None, environment=None, before=None):
        command = [os.environ["TABULO_COMMAND"], verb, "--stream", STREAM, "--server", url or self.cluster.url(), *arguments]
        return self.start(verb, command, environment, before)

    def ship(self, *arguments, url=None, environment=None):
        return self.verb("ship", [self.source, "--replicas", str(len(self.cluster.nodes)), *arguments], url, environment)

    def receive(self, *arguments, url=None, environment=None, before=None):
        return self.verb("receive", [self.copy, *arguments], url, environment, before)

    def write(self, last_id, **options):
        """Starts the writer."""
        return self.start("writer", [os.environ["TABULO_SHIPPED_WRITER"], self.source, str(last_id),
                                     *(f"{name}={value}" for name, value in options.items())])

    def written(self, last_id, **options):
        self.ended(self.write(last_id, **options))

    def ended(self, process, status=0, seconds=60):
        """Waits for a process, which must end with that status, and gives what it has told its user."""
        found = process.wait(seconds)
        self.assertEqual(found, status, process.told())
        return process.err()

    def stopped(self, process, status=130):
        """Asks a process that follows to end."""
        self.assertTrue(process.runs(), f"has ended by itself: {process.told()}")
        self.assertEqual(process.stop(), status, process.told())

    # What must be so

    def tables(self):
        """The message tables of the source, and its session info tables."""
        messages, sessions = [], []
        for name in sorted(os.listdir(self.source)):
            data = table_file.read(os.path.join(self.source, name))[:40]
            if b"MessageTable" in data:
                messages.append(name)
            elif b"SessionInfoTable" in data:
                sessions.append(name)
        return messages, sessions

    def assert_copied(self, copy=None):
        """Closed tables are byte for byte the same, and the values of sessions equal."""
        copy = copy or self.copy
        messages, sessions = self.tables()
        self.assertTrue(messages)
        found = [table_file.difference(os.path.join(self.source, name), os.path.join(copy, name)) for name in messages]
        for name in sessions:
            if not os.path.exists(os.path.join(copy, name)):
                found.append(f"{copy} has no session info table {name}")
                continue
            ours, theirs = (table_file.session_values(os.path.join(folder, name)) for folder in (self.source, copy))
            if ours != theirs:
                found.append(f"session {name}: {theirs} instead of {ours}")
        extra = set(os.listdir(copy)) - set(messages) - set(sessions)
        found += [f"{copy} holds {name}" for name in sorted(extra) if not name.startswith(".") and ".cut-" not in name]
        self.assertEqual([line for line in found if line], [])

    def assert_stream_is_right(self, name=STREAM):
        """Each table's messages stand in the stream once, in their order, and are those of the table."""
        messages, sessions = self.tables()
        check = check_stream(self.cluster, name, [(table, os.path.join(self.source, table)) for table in messages])
        for session in sessions:
            ours = table_file.session_values(os.path.join(self.source, session))
            if check.sessions.get(session) != ours:
                check.problems.append(f"session {session}: the stream has {check.sessions.get(session)} instead of {ours}")
        self.assertEqual(check.problems[:10], [])
        return check

    def missing_in_stream(self, name=STREAM):
        """The tables whose newest message, or values, the stream does not hold yet."""
        missing = []
        messages, sessions = self.tables()
        with self.cluster.client() as client:
            for table in sessions:
                record = client.last(name, f"{name}.{escaped(table)}.{MARK}session")
                if not record or session_values_in(record) != table_file.session_values(os.path.join(self.source, table)):
                    missing.append(table)
            for table in messages:
                last = table_file.last_frame(os.path.join(self.source, table))
                record = client.last(name, f"{name}.{escaped(table)}.>")
                if last and not (record and place_of(record)[1] == last.offset and
                                 record.payload == last.data[len(last.data) - len(record.payload):]):
                    missing.append(table)
        return missing

    def wait_until_shipped(self, seconds=60):
        def is_shipped():
            try:
                return not self.missing_in_stream()
            except (OSError, NatsError):
                return False

        wait_until(is_shipped, seconds, lambda: "the tables are shipped: " + self.told())

    def wait_until_received(self, seconds=60):
        def is_received():
            messages, sessions = self.tables()
            return all(os.path.exists(os.path.join(self.copy, table)) and
                       content(os.path.join(self.copy, table)) == content(os.path.join(self.source, table))
                       for tables, content in ((messages, table_file.last_frame), (sessions, table_file.session_values))
                       for table in tables)

        wait_until(is_received, seconds, lambda: "the copy has what the tables have: " + self.told())

    def told(self):
        return "\n".join(process.told() for process in self.processes)
