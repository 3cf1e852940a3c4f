"""What the tests over sessions share: a folder, engines with their settings, and what their tables hold."""

import json
import os
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "cluster"))

import table_file  # noqa: E402, F401  (for tests; stands in the folder named above)
from processes import Process, ProcessTest, free_ports, wait_until  # noqa: E402  (stands in the folder named above)

# BeginString, and what else a session of that version is set with.
VERSIONS = {
    "FIX.4.2": ("FIX.4.2", {}),
    "FIX.4.4": ("FIX.4.4", {}),
    "FIX.5.0SP2": ("FIXT.1.1", {"DefaultApplVerID": "FIX.5.0SP2"}),
}


def effort():
    return int(os.environ.get("TABULO_TEST_EFFORT") or 1)


class Engine:
    """The engine program in one role, which can be stopped, killed and started again with its folder. Sessions are named
    by the client's id."""

    def __init__(self, test, role, store, port, version="FIX.4.4", clients=("CLIENT",), **settings):
        self._test = test
        self.role = role
        self._store = store
        self.folder = test.path(role)
        self.store = os.path.join(self.folder, "store")
        self._settings = self.folder + ".cfg"
        self.clients = clients
        self.process = None
        begin_string, more = VERSIONS[version]
        os.makedirs(self.store)
        shared = {
            "ConnectionType": "acceptor" if role == "exchange" else "initiator", "SocketAcceptPort": port,
            "SocketConnectHost": "127.0.0.1", "SocketConnectPort": port, "HeartBtInt": 30, "ReconnectInterval": 1,
            "StartTime": "00:00:00", "EndTime": "00:00:00", "UseDataDictionary": "N", "CheckLatency": "N",
            "SocketNodelay": "Y", "TabuloStorePath": self.store, "FileStorePath": os.path.join(self.folder, "files"),
            **more, **settings}
        lines = ["[DEFAULT]", *(f"{name}={setting}" for name, setting in shared.items())]
        for client in clients:
            sides = (("EXCHANGE", client) if role == "exchange" else (client, "EXCHANGE"))
            lines += ["[SESSION]", f"BeginString={begin_string}", f"SenderCompID={sides[0]}", f"TargetCompID={sides[1]}"]
        with open(self._settings, "w", encoding="utf-8") as file:
            file.write("\n".join(lines) + "\n")

    def start(self, sets=0, targets=0):
        """With numbers it kills itself: behind so many stored messages, or before so many received ones are counted."""
        self.process = self._test.start(self.role, [
            os.environ["TABULO_ENGINE"], self.role, self._settings, self._store, self.folder, str(sets), str(targets)])
        if not sets and not targets:  # else it may have died before
            self.told_line("created")

    def told(self, beginning):
        return [line for line in self.process.out().splitlines() if line.startswith(beginning)]

    def told_line(self, beginning, seconds=30, count=1):
        """Waits for so many lines that begin like this, and gives the last one."""
        def has():
            found = self.told(beginning)
            if len(found) >= count:
                return found[-1]
            if not self.process.runs():
                raise AssertionError(f"the {self.role} has ended: {self.process.told()}")
            return None
        return wait_until(has, seconds, lambda: f"the {self.role} tells '{beginning}': {self.process.told()}", 0.02)

    def command(self, command, answer, seconds=60):
        count = len(self.told(answer))
        self.process.tell(command)
        return self.told_line(answer, seconds, count + 1)

    def numbers(self):
        """(next sender, next target) of each session."""
        found = [int(word) for word in self.command("numbers", "numbers").split()[1:]]
        return list(zip(found[::2], found[1::2]))

    def stop(self):
        self.process.tell("quit")
        self._test.assertEqual(self.process.wait(60), 0, self.process.told())

    def kill(self):
        self.process.kill()

    def lines(self, kind, client="CLIENT"):
        """The lines of a session's file: deliveries, orders or reports."""
        sides = f"EXCHANGE-{client}" if self.role == "exchange" else f"{client}-EXCHANGE"
        try:
            with open(os.path.join(self.folder, f"{sides}.{kind}"), encoding="utf-8") as file:
                return file.read().splitlines()
        except FileNotFoundError:
            return []


class EngineTest(ProcessTest):
    def start(self, name, command):
        process = Process(command, self.folder, name, commanded=True)
        self.processes.append(process)
        return process

    def port(self):
        return free_ports(1)[0]

    def tabulo(self, *arguments, status=0):
        """What the command prints."""
        done = subprocess.run([os.environ["TABULO_COMMAND"], *arguments], capture_output=True, text=True, timeout=120,
                              check=False)
        self.assertEqual(done.returncode, status, f"tabulo {' '.join(arguments)}: {done.stdout[-2000:]}{done.stderr}")
        return done.stdout

    def tables(self, engine):
        """The paths of an engine's message tables."""
        listed = [json.loads(line) for line in self.tabulo("ls", "-o", "ndjson", engine.store).splitlines()]
        return sorted(line["path"] for line in listed if line["kind"] == "messages")

    def stored(self, path):
        """The messages of a table, each as a dictionary."""
        return [json.loads(line) for line in self.tabulo("cat", "-o", "ndjson", path).splitlines()]
