"""A network between programs and servers that can be cut, stalled and healed: it hands on what is sent to a port."""

import selectors
import socket
import threading


class _Pipe:
    """One connection, and the one to the server behind it."""

    def __init__(self, near, far):
        self.ends = {near: far, far: near}
        self.waiting = {near: b"", far: b""}  # read for that end and not yet sent

    def close(self):
        for end in self.ends:
            end.close()


class Proxy:
    """Listens at a port of its own for a server. Use it in a with statement."""

    def __init__(self, target):
        self._target = target
        self._listener = socket.create_server(("127.0.0.1", 0))
        self._listener.setblocking(False)
        self.port = self._listener.getsockname()[1]
        self._wake, self._wakened = socket.socketpair()
        self._lock = threading.Lock()
        self._state = "whole"
        self._pipes = []
        self._thread = threading.Thread(target=self._run, daemon=True)
        self._thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._become("ended")
        self._thread.join()
        self._wake.close()
        self._wakened.close()

    def cut(self):
        """Ends all connections, and every new one."""
        self._become("cut")

    def stall(self):
        """Hands nothing on any more, and closes nothing: as a cable that was pulled."""
        self._become("stalled")

    def heal(self):
        self._become("whole")

    def _become(self, state):
        with self._lock:
            self._state = state
        self._wake.send(b"x")

    def _run(self):
        while True:
            with self._lock:
                state = self._state
            if state in ("cut", "ended"):
                for pipe in self._pipes:
                    pipe.close()
                self._pipes.clear()
            if state == "ended":
                self._listener.close()
                return
            self._step(state)

    def _step(self, state):
        """Waits until something can be done, and does it."""
        with selectors.DefaultSelector() as selector:
            selector.register(self._wakened, selectors.EVENT_READ)
            if state != "stalled":
                selector.register(self._listener, selectors.EVENT_READ)
                for pipe in self._pipes:
                    for end, other in pipe.ends.items():
                        events = (0 if pipe.waiting[other] else selectors.EVENT_READ) | (
                            selectors.EVENT_WRITE if pipe.waiting[end] else 0)
                        if events:
                            selector.register(end, events, pipe)
            for key, events in selector.select():
                if key.fileobj is self._wakened:
                    self._wakened.recv(4096)
                elif key.fileobj is self._listener:
                    self._accept(state)
                elif key.data in self._pipes:
                    self._move(key.data, key.fileobj, events)

    def _accept(self, state):
        try:
            near, _ = self._listener.accept()
        except OSError:
            return
        if state != "whole":
            near.close()
            return
        try:
            far = socket.create_connection(("127.0.0.1", self._target), 2)
        except OSError:
            near.close()
            return
        for end in (near, far):
            end.setblocking(False)
            end.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self._pipes.append(_Pipe(near, far))

    def _move(self, pipe, end, events):
        other = pipe.ends[end]
        try:
            if events & selectors.EVENT_READ:
                data = end.recv(1 << 18)
                if not data:
                    raise ConnectionError
                pipe.waiting[other] += data
                self._send(pipe, other)
            if events & selectors.EVENT_WRITE:
                self._send(pipe, end)
        except BlockingIOError:
            pass
        except OSError:
            pipe.close()
            self._pipes.remove(pipe)

    @staticmethod
    def _send(pipe, end):
        if pipe.waiting[end]:
            sent = end.send(pipe.waiting[end])
            pipe.waiting[end] = pipe.waiting[end][sent:]
