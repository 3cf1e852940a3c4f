"""Servers on this machine, which tests start, kill, stop and start again: a cluster, or one alone."""

import json
import os
import signal
import urllib.error
import urllib.request

from nats_client import NatsClient, NatsError
from processes import Process, free_ports, wait_until


class Node:
    """A server with its configuration and its store."""

    def __init__(self, program, folder, name, ports, routes, settings):
        self._program = program
        self._folder = folder
        self.name = name
        self.port, self._monitor, route = ports
        self.process = None
        self._configuration = os.path.join(folder, name + ".conf")
        text = (f"server_name: {name}\nlisten: 127.0.0.1:{self.port}\nhttp: 127.0.0.1:{self._monitor}\n"
                f"jetstream {{ store_dir: \"{folder}/{name}\", max_mem_store: 64MB, max_file_store: 2GB }}\n")
        if routes:  # clients are not told of the other servers: they would go round the proxies
            text += (f"cluster {{ name: tests, listen: 127.0.0.1:{route}, "
                     f"no_advertise: true, "
                     f"routes: [{', '.join(f'nats://127.0.0.1:{port}' for port in routes)}] }}\n")
        with open(self._configuration, "w", encoding="utf-8") as file:
            file.write(text + settings)

    def start(self):
        self.process = Process([self._program, "-c", self._configuration], self._folder, self.name)

    def runs(self):
        return self.process is not None and self.process.runs()

    def kill(self):
        self.process.kill()

    def pause(self):
        self.process.signal(signal.SIGSTOP)

    def resume(self):
        self.process.signal(signal.SIGCONT)

    def asked(self, page, seconds=2):
        """A page of the monitoring port, or nothing."""
        try:
            with urllib.request.urlopen(f"http://127.0.0.1:{self._monitor}/{page}", timeout=seconds) as answer:
                return json.load(answer)
        except (OSError, ValueError, urllib.error.URLError):
            return None


class Cluster:
    """One server or several. Use it in a with statement, which ends them."""

    def __init__(self, program, folder, size=3, settings="", login=None):
        os.makedirs(folder, exist_ok=True)
        self._login = login or (None, None)
        ports = free_ports(3 * size)
        routes = ports[2 * size:] if size > 1 else []
        self.nodes = [Node(program, folder, f"server{n + 1}", (ports[n], ports[size + n], ports[2 * size + n]), routes, settings)
                      for n in range(size)]

    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self.end()
            raise
        return self

    def __exit__(self, *_):
        self.end()

    def start(self):
        for node in self.nodes:
            if not node.runs():
                node.start()
        self.wait_until_ready()

    def end(self):
        for node in self.nodes:
            if node.process is not None:
                node.kill()

    def url(self, nodes=None):
        return ",".join(f"nats://127.0.0.1:{node.port}" for node in nodes or self.nodes)

    def wait_until_ready(self, seconds=60):
        """Until the servers have a leader, and all of them follow it."""
        wait_until(self._is_ready, seconds, lambda: "\n".join(["the servers have one leader", *(
            node.process.told() for node in self.nodes if node.process)]))

    def _is_ready(self):
        if len(self.nodes) == 1:
            return bool(self.nodes[0].asked("jsz"))
        for node in self.nodes:
            meta = (node.asked("jsz") or {}).get("meta_cluster") or {}
            if meta.get("leader") == node.name:
                replicas = meta.get("replicas", [])
                return (len(replicas) == len(self.nodes) - 1 and
                        all(replica.get("current") and not replica.get("offline") for replica in replicas))
        return False

    def client(self):
        """A connection to some server that answers."""
        failure = None
        for node in self.nodes:
            if node.runs():
                try:
                    return NatsClient(node.port, *self._login)
                except (OSError, NatsError, ValueError) as error:
                    failure = error
        raise NatsError(f"no server answers: {failure}")

    def stream(self, name):
        """What the stream's leader tells of it, or nothing while nobody answers."""
        try:
            with self.client() as client:
                return client.stream(name)
        except (OSError, NatsError, ValueError, IndexError):
            return None

    def leader(self, name, seconds=60):
        """The node that leads a stream, and those that follow."""
        def found():
            leader = ((self.stream(name) or {}).get("cluster") or {}).get("leader")
            return next((node for node in self.nodes if node.name == leader), None)

        leader = wait_until(found, seconds, f"the stream {name} has a leader", 0.2)
        return leader, [node for node in self.nodes if node is not leader]

    def wait_until_same(self, name, seconds=60):
        """Until every server has the same of a stream, as each tells of its own: one whose replica has fallen apart still
        counts as current."""
        def states():
            pages = [node.asked("jsz?streams=true") or {} for node in self.nodes]
            found = [[stream["state"] for account in page.get("account_details", []) for stream in account.get("stream_detail", [])
                      if stream["name"] == name] for page in pages]
            return [(state["messages"], state["last_seq"]) for stream in found for state in stream]

        def are_same():
            found = states()
            return len(found) == len(self.nodes) and len(set(found)) == 1

        wait_until(are_same, seconds, lambda: f"the servers have the same of {name}, not (messages, last sequence) {states()}", 0.5)

    def wait_until_whole(self, name, seconds=90):
        """Until every replica of a stream has all of it."""
        def is_whole():
            cluster = (self.stream(name) or {}).get("cluster") or {}
            replicas = cluster.get("replicas", [])
            return bool(cluster.get("leader")) and all(replica["current"] and not replica.get("offline") for replica in replicas)

        wait_until(is_whole, seconds, f"all replicas of {name} are current", 0.2)
