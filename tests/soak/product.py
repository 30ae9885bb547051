"""The programs under test and the ways to reach them: processes, the node API, clients of the tunnel."""

import collections
import json
import os
import pathlib
import random
import selectors
import signal
import socket
import struct
import subprocess
import threading
import time

PATIENCE = 30.0  # seconds that anything may take on a busy machine, before it counts as not happening


class Failure(Exception):
    """Something that must be true is not."""


def expect(what, expected, found):
    if expected != found:
        raise Failure(f"{what}\n  expected: {expected}\n  found:    {found}")


def wait_until(what, condition, seconds=PATIENCE):
    """Looks until condition() is true; returns its value. `what` is a text, or a function that says it at the end."""
    deadline = time.monotonic() + seconds
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > deadline:
            text = what() if callable(what) else what
            raise Failure(f"this did not happen within {seconds:.0f} s: {text}")
        time.sleep(0.002)


class Program:
    """A process whose output is read as it comes."""

    def __init__(self, arguments, log):
        self.arguments = [str(argument) for argument in arguments]
        self._process = subprocess.Popen(self.arguments, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                         stderr=subprocess.PIPE, text=True, bufsize=1, errors="replace")
        self.pid = self._process.pid
        self._log = log
        log.add(self.pid, "(started) " + " ".join(self.arguments[1:]))
        self._lines = collections.deque()
        self._errors = collections.deque(maxlen=1000)
        self.errors_seen = collections.Counter()
        self._readers = [threading.Thread(target=self._read, args=arguments, daemon=True)
                         for arguments in ((self._process.stdout, self._lines, ""),
                                           (self._process.stderr, self._errors, "! "))]
        for reader in self._readers:
            reader.start()

    def _read(self, stream, lines, mark):
        for line in stream:
            line = line.rstrip("\n")
            self._log.add(self.pid, mark + line)
            lines.append(line)
            if mark:
                self.errors_seen[line] += 1

    def has_errors(self, text):
        return any(text in line for line in list(self._errors))

    def next_line(self):
        """The oldest unread line of the standard output, or None."""
        return self._lines.popleft() if self._lines else None

    def type(self, line):
        self._log.add(self.pid, "< " + line)
        try:
            self._process.stdin.write(line + "\n")
        except BrokenPipeError:
            raise Failure(f"'{' '.join(self.arguments[1:4])}' has ended by itself") from None

    def is_running(self):
        return self._process.poll() is None

    def send_signal(self, number):
        self._process.send_signal(number)

    def end(self, number=None):
        """Signals it, if asked to, awaits its end and all of its output; returns its exit status."""
        if number is not None:
            self._log.add(self.pid, f"({signal.Signals(number).name})")
            self._process.send_signal(number)
        try:
            status = self._process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            raise Failure(f"process {self.pid} did not end: {' '.join(self.arguments)}") from None
        for reader in self._readers:
            reader.join(PATIENCE)
        for stream in (self._process.stdin, self._process.stdout, self._process.stderr):
            try:
                stream.close()
            except BrokenPipeError:
                pass
        return status

    def kill_if_running(self):
        if self.is_running():
            self._process.kill()
            self._process.wait()

    def resident_kib(self):
        for line in pathlib.Path(f"/proc/{self.pid}/status").read_text().splitlines():
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
        raise Failure(f"process {self.pid} has no memory any more")

    def descriptors(self):
        """What its descriptors lead to, sorted; sockets and the like without their numbers."""
        found = []
        for entry in os.listdir(f"/proc/{self.pid}/fd"):
            try:
                found.append(os.readlink(f"/proc/{self.pid}/fd/{entry}").split(":")[0])
            except FileNotFoundError:
                pass
        return sorted(found)


class Log:
    """The latest lines of all programs, for the report of a failure."""

    def __init__(self, lines=120):
        self._lines = collections.deque(maxlen=lines)
        self._start = time.monotonic()

    def add(self, who, line):
        self._lines.append(f"{time.monotonic() - self._start:9.3f} {who} {line[:300]}")

    def tail(self):
        return list(self._lines)


class Refused(Exception):
    """The node API's answer is an error."""


class NodeApi:
    """A client of the module's node API."""

    def __init__(self, path, log):
        self._log = log
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.settimeout(PATIENCE)
        self._socket.connect(path)
        self._file = self._socket.makefile("rw")
        self._id = 0

    def _call(self, method, **params):
        self._id += 1
        request = {"jsonrpc": "2.0", "id": self._id, "method": method, "params": params}
        self._log.add("api", "< " + method + " " + json.dumps(params))
        self._file.write(json.dumps(request) + "\n")
        self._file.flush()
        try:
            answer = json.loads(self._file.readline())
        except (OSError, ValueError) as error:
            raise Failure(f"the node API did not answer {request}: {error}") from None
        expect("number of the node API's answer", self._id, answer.get("id"))
        if "error" in answer:
            raise Refused(answer["error"]["message"])
        return answer["result"]

    def get(self, path):
        return self._call("get", path=path)

    def set(self, path, value):
        self._call("set", path=path, value=value)

    def invoke(self, path, data):
        return self._call("invoke", path=path, data=data)

    def link_counters(self):
        return self.get("VornHostLinkLinksPath")["links"][0]["counters"]

    def close(self):
        self._file.close()
        self._socket.close()


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


# Messages of the link. Tag 0xC0 is nil; the text is UTF-8.
NUMBERS = {0xCC: ("u8", ">B"), 0xCD: ("u16", ">H"), 0xCE: ("u32", ">I"), 0xD0: ("i8", ">b"),
           0xD2: ("i32", ">i"), 0xD3: ("i64", ">q")}
IDS_ONLY = {0x0002, 0x0003, 0x8003, 0x0005, 0x8005}


def decode(text):
    """Number of the message, and its content: state numbers, or (state, type, value)."""
    message = bytes.fromhex(text)
    identity, body = int.from_bytes(message[:2], "big"), message[2:]
    if identity in IDS_ONLY:
        return identity, list(struct.unpack(f">{len(body) // 2}H", body))
    values = []
    while body:
        tag, kind, body = int.from_bytes(body[:2], "big"), body[2], body[3:]
        if kind == 0xC0:
            values.append((tag, "nil", None))
        elif kind in NUMBERS:
            name, form = NUMBERS[kind]
            size = struct.calcsize(form)
            values.append((tag, name, struct.unpack(form, body[:size])[0]))
            body = body[size:]
        elif kind in (0xDA, 0xC5):
            size = int.from_bytes(body[:2], "big")
            content, body = body[2:2 + size], body[2 + size:]
            values.append((tag, "str", content.decode()) if kind == 0xDA else (tag, "bin", content))
        else:
            raise Failure(f"message {text} holds a value of the unknown type {kind:#x}")
    return identity, values


class TunnelClient:
    """A client that sends bytes and wants the very same back."""

    def __init__(self, port, seed, size):
        self._content = random.Random(seed).randbytes(size)
        self.socket = socket.create_connection(("127.0.0.1", port), PATIENCE)
        self.socket.setblocking(False)
        self.sent = 0
        self.received = 0
        self.is_cut = False

    def is_done(self):
        return self.is_cut or self.received == len(self._content)

    def is_sending(self):
        return self.sent < len(self._content) and not self.is_cut

    def write(self):
        try:
            self.sent += self.socket.send(self._content[self.sent:self.sent + 16384])
        except BlockingIOError:
            pass
        except OSError:
            self.is_cut = True

    def read(self):
        try:
            data = self.socket.recv(65536)
        except BlockingIOError:
            return
        except OSError:
            self.is_cut = True
            return
        if not data:
            self.is_cut = True
            return
        self.take(data)

    def take(self, data):
        place = self.received
        if data != self._content[place:place + len(data)]:
            raise Failure(f"the tunnel's echo differs within the {len(data)} bytes behind byte {place}")
        if place + len(data) > self.sent:
            raise Failure(f"the tunnel's echo has {place + len(data)} bytes, only {self.sent} were sent")
        self.received = place + len(data)

    def close(self):
        self.socket.close()


class TunnelProbe(TunnelClient):
    """A client that takes what is still under way to an earlier client of its number, which may come before its own
    bytes are back: the protocol says so."""

    def __init__(self, port, seed):
        super().__init__(port, seed, 16)
        self._found = b""

    def is_done(self):
        return self.is_cut or self._found.endswith(self._content)

    def take(self, data):
        self._found += data


def run_clients(clients, is_over, seconds=2 * PATIENCE):
    """Moves the clients' bytes until is_over() or all have theirs back."""
    deadline = time.monotonic() + seconds
    while not is_over() and not all(client.is_done() for client in clients):
        if time.monotonic() > deadline:
            places = [(client.sent, client.received) for client in clients]
            raise Failure(f"the tunnel's clients did not get back what they sent; (sent, received): {places}")
        with selectors.DefaultSelector() as selector:
            for client in clients:
                if not client.is_done():
                    events = selectors.EVENT_READ | (selectors.EVENT_WRITE if client.is_sending() else 0)
                    selector.register(client.socket, events, client)
            for key, events in selector.select(0.05):
                if events & selectors.EVENT_READ:
                    key.data.read()
                if events & selectors.EVENT_WRITE and key.data.is_sending():
                    key.data.write()
