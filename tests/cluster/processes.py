"""Processes that end with the test that has started them, also when that is killed."""

import ctypes
import os
import random
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest

_libc = ctypes.CDLL(None)
_PR_SET_PDEATHSIG = 1


def wait_until(condition, seconds, what, pause=0.05):
    """Waits until a condition holds and returns what it has given; fails behind the time."""
    end = time.monotonic() + seconds
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError(f"after {seconds} s still not so: {what() if callable(what) else what}")
        time.sleep(pause)


def free_ports(count):
    """Ports that nobody listens at, below those that the system gives to outgoing connections, so that they stay free while a
    server is down."""
    found = []
    sockets = []
    try:
        while len(found) < count:
            port = random.SystemRandom().randrange(10000, 32000)
            probe = socket.socket()
            try:
                probe.bind(("127.0.0.1", port))
            except OSError:
                probe.close()
                continue
            sockets.append(probe)
            found.append(port)
    finally:
        for probe in sockets:
            probe.close()
    return found


class Process:
    """A process with its output in files. To be made by the main thread: the process ends with the thread that has made it.
    One that is commanded takes lines with tell; others have nothing to read."""

    _count = 0

    def __init__(self, command, folder, name, environment=None, before=None, commanded=False):
        Process._count += 1
        self.name = name
        self.command = command
        self._path = os.path.join(folder, f"{Process._count:03}-{name}")
        parent = os.getpid()

        def in_child():
            _libc.prctl(_PR_SET_PDEATHSIG, signal.SIGKILL)
            if os.getppid() != parent:
                os._exit(1)
            if before:
                before()

        with open(self._path + ".out", "wb") as out, open(self._path + ".err", "wb") as err:
            self._process = subprocess.Popen(command, stdin=subprocess.PIPE if commanded else subprocess.DEVNULL, stdout=out,
                                             stderr=err, preexec_fn=in_child, env={**os.environ, **(environment or {})})

    @property
    def pid(self):
        return self._process.pid

    def status(self):
        """The exit status, minus the signal that has ended it, or None while it runs."""
        return self._process.poll()

    def runs(self):
        return self.status() is None

    def signal(self, number):
        if self.runs():
            self._process.send_signal(number)

    def wait(self, seconds):
        """The exit status; fails and kills when it does not end in that time."""
        try:
            return self._process.wait(seconds)
        except subprocess.TimeoutExpired:
            told = self.told()
            self.kill()
            raise AssertionError(f"{self.name} has not ended after {seconds} s; it has told:\n{told}") from None

    def tell(self, line):
        self._process.stdin.write(line.encode() + b"\n")
        self._process.stdin.flush()

    def stop(self, seconds=30):
        """Asks it to end, and returns its status."""
        self.signal(signal.SIGTERM)
        return self.wait(seconds)

    def kill(self):
        if self.runs():
            self._process.kill()
        if self._process.stdin:
            try:
                self._process.stdin.close()
            except BrokenPipeError:
                pass
        return self._process.wait()

    def out(self):
        return self._read(".out")

    def err(self):
        return self._read(".err")

    def told(self):
        """The end of all that it has told, for a failing test."""
        return f"[{' '.join(self.command)}: status {self.status()}]\n{self.out()[-2000:]}{self.err()[-4000:]}"

    def _read(self, suffix):
        with open(self._path + suffix, encoding="utf-8", errors="replace") as file:
            return file.read()


class ProcessTest(unittest.TestCase):
    """Each test has a folder of its own, which stays when it fails, and processes that end with it."""

    def setUp(self):
        root = os.environ["TABULO_TEST_FOLDER"]
        os.makedirs(root, exist_ok=True)
        self.folder = tempfile.mkdtemp(prefix=self._testMethodName[5:45] + "-", dir=root)
        self.processes = []
        self.addCleanup(self._end)

    def _end(self):
        for process in self.processes:
            process.kill()
        outcome = self._outcome.result
        if any(test is self for test, _ in outcome.failures + outcome.errors):
            for process in self.processes:
                print(process.told(), file=sys.stderr)
            print(f"what is left of the test: {self.folder}", file=sys.stderr)
        else:
            shutil.rmtree(self.folder, ignore_errors=True)

    def path(self, *names):
        return os.path.join(self.folder, *names)
