"""DNS servers for tests: NSD with zones of our own, and a scripted one for what a sound server
never does. Each is stopped by the test that started it."""

import os
import shutil
import socket
import struct
import subprocess
import threading
import time

A, NS, CNAME, SOA, PTR, MX, TXT, AAAA = 1, 2, 5, 6, 12, 15, 16, 28
NOERROR, FORMERR, SERVFAIL, NXDOMAIN, NOTIMP, REFUSED = 0, 1, 2, 3, 4, 5

# --- messages ---


def encode_name(name):
    """A dotted name, or a list of labels as bytes, in wire form without compression."""
    labels = name
    if isinstance(name, str):
        labels = [label.encode() for label in name.rstrip(".").split(".") if label]
    return b"".join(bytes([len(label)]) + label for label in labels) + b"\0"


def decode_question(message):
    """The name (dotted, as asked), type and end of a query's question."""
    labels, at = [], 12
    while message[at]:
        labels.append(message[at + 1 : at + 1 + message[at]].decode("latin-1"))
        at += 1 + message[at]
    kind, _ = struct.unpack_from(">HH", message, at + 1)
    return ".".join(labels) + ".", kind, at + 5


def query(name, kind):
    return struct.pack(">HHHHHH", 0x1234, 0x0100, 1, 0, 0, 0) + encode_name(name) + \
        struct.pack(">HH", kind, 1)


def record(kind, data, owner=b"\xC0\x0C"):
    return owner + struct.pack(">HHIH", kind, 1, 60, len(data)) + data


def reply(message, code=NOERROR, answers=(), truncated=False, identifier=None):
    """An answer to a query, with the given response code and records of the answer section."""
    _, _, end = decode_question(message)
    flags = 0x8180 | code | (0x0200 if truncated else 0)
    number = struct.unpack_from(">H", message)[0] if identifier is None else identifier
    head = struct.pack(">HHHHHH", number, flags, 1, len(answers), 0, 0)
    return head + message[12:end] + b"".join(answers)


# --- ports ---


def free_port(address="127.0.0.1"):
    """A port that is free for UDP and TCP alike."""
    for _ in range(100):
        with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as stream:
            stream.bind((address, 0))
            port = stream.getsockname()[1]
            with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as datagram:
                try:
                    datagram.bind((address, port))
                    return port
                except OSError:
                    pass
    raise RuntimeError("no port is free for UDP and TCP")


# --- NSD ---


class Nsd:
    """The authoritative server NSD with zones given as text, as a child of this process."""

    PROGRAM = shutil.which("nsd") or "/usr/sbin/nsd"

    def __init__(self, folder, zones, address="127.0.0.1", port=None):
        self.address = address
        self.port = port or free_port(address)
        self.process = None
        self.folder = os.path.join(folder, "nsd")
        os.makedirs(self.folder)
        config = os.path.join(self.folder, "nsd.conf")
        with open(config, "w", encoding="ascii") as out:
            out.write(self._config(zones))
        for name, text in zones.items():
            with open(os.path.join(self.folder, name + "zone"), "w", encoding="ascii") as out:
                out.write(text)
        with open(os.path.join(self.folder, "output"), "wb") as output:
            self.process = subprocess.Popen([self.PROGRAM, "-d", "-c", config], stdout=output,
                                            stderr=output, stdin=subprocess.DEVNULL)
        self._wait(next(iter(zones)))

    @classmethod
    def available(cls):
        return os.access(cls.PROGRAM, os.X_OK)

    def _config(self, zones):
        lines = [
            "server:",
            f"  ip-address: {self.address}@{self.port}",
            '  username: ""',
            '  database: ""',
            f'  zonesdir: "{self.folder}"',
            f'  zonelistfile: "{self.folder}/zone.list"',
            f'  xfrdfile: "{self.folder}/xfrd.state"',
            f'  xfrdir: "{self.folder}"',
            f'  pidfile: "{self.folder}/nsd.pid"',
            f'  logfile: "{self.folder}/nsd.log"',
            "  server-count: 1",
            "  do-ip6: no",
            "remote-control:",
            "  control-enable: no",
        ]
        for name in zones:
            lines += ["zone:", f"  name: {name}", f"  zonefile: {name}zone"]
        return "\n".join(lines) + "\n"

    def _wait(self, zone):
        """Until it answers over TCP; then it answers over UDP, too."""
        for _ in range(200):
            if self.process.poll() is not None:
                break
            try:
                with socket.create_connection((self.address, self.port), 1) as stream:
                    message = query(zone, SOA)
                    stream.sendall(struct.pack(">H", len(message)) + message)
                    stream.settimeout(1)
                    if len(stream.recv(12)) > 0:
                        return
            except OSError:
                pass
            time.sleep(0.05)
        self.stop()
        raise RuntimeError("NSD does not start: " + self._output())

    def _output(self):
        texts = []
        for name in ("output", "nsd.log"):
            path = os.path.join(self.folder, name)
            if os.path.exists(path):
                with open(path, encoding="utf-8", errors="replace") as text:
                    texts.append(text.read())
        return "\n".join(texts)

    def stop(self):
        if self.process and self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()


# --- the scripted server ---

CLOSE = object()  # over TCP: cut the connection
RESET = object()  # over TCP: cut it with a reset


class Raw(bytes):
    """Bytes for a TCP connection as they stand, without the length in front."""


class ScriptedServer:
    """Answers over UDP and TCP as a function says.

    answer(message, tcp) gives what is done in turn: bytes are sent as one message, Raw bytes as
    they are, a number is a pause in seconds, CLOSE and RESET end a connection. None is silence.
    What was asked is kept in `asked` as (name, type, "udp" or "tcp"); `connections` counts them.
    """

    def __init__(self, answer, address="127.0.0.1", port=None):
        self.answer = answer
        self.address = address
        self.port = port or free_port(address)
        self.asked = []
        self.connections = 0
        self._ended = threading.Event()
        family = socket.AF_INET6 if ":" in address else socket.AF_INET
        self._datagram = socket.socket(family, socket.SOCK_DGRAM)
        self._datagram.bind((address, self.port))
        self._stream = socket.socket(family, socket.SOCK_STREAM)
        self._stream.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self._stream.bind((address, self.port))
        self._stream.listen(16)
        for listener in (self._datagram, self._stream):
            listener.settimeout(0.1)
        self._threads = [threading.Thread(target=work, daemon=True)
                         for work in (self._serve_datagrams, self._serve_connections)]
        for thread in self._threads:
            thread.start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.stop()

    def stop(self):
        self._ended.set()
        for thread in self._threads:
            thread.join()
        self._datagram.close()
        self._stream.close()

    def _note(self, message, transport):
        name, kind, _ = decode_question(message)
        self.asked.append((name, kind, transport))

    def _actions(self, message, tcp):
        self._note(message, "tcp" if tcp else "udp")
        done = self.answer(message, tcp)
        if done is None:
            return []
        return [done] if isinstance(done, bytes) or done in (CLOSE, RESET) else done

    def _serve_datagrams(self):
        while not self._ended.is_set():
            try:
                message, sender = self._datagram.recvfrom(65535)
            except socket.timeout:
                continue
            for action in self._actions(message, False):
                if isinstance(action, (int, float)):
                    self._ended.wait(action)
                elif isinstance(action, bytes):
                    self._datagram.sendto(action, sender)

    def _serve_connections(self):
        while not self._ended.is_set():
            try:
                stream, _ = self._stream.accept()
            except socket.timeout:
                continue
            self.connections += 1
            threading.Thread(target=self._serve_connection, args=(stream,), daemon=True).start()

    def _serve_connection(self, stream):
        with stream:
            stream.settimeout(0.1)
            while not self._ended.is_set():
                message = self._receive(stream)
                if message is None:
                    return
                for action in self._actions(message, True):
                    if not self._act(stream, action):
                        return

    def _receive(self, stream):
        """The next query, or None at the connection's end."""
        wanted, got = 2, b""
        while len(got) < wanted and not self._ended.is_set():
            try:
                part = stream.recv(wanted - len(got))
            except socket.timeout:
                continue
            except OSError:
                return None
            if not part:
                return None
            got += part
            if len(got) == 2 and wanted == 2:
                wanted = 2 + struct.unpack(">H", got)[0]
        return got[2:] if len(got) == wanted else None

    def _act(self, stream, action):
        """False when the connection is to end."""
        try:
            if action is CLOSE:
                return False
            if action is RESET:
                stream.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                return False
            if isinstance(action, (int, float)):
                self._ended.wait(action)
            elif isinstance(action, Raw):
                stream.sendall(action)
            else:
                stream.sendall(struct.pack(">H", len(action)) + action)
            return True
        except OSError:
            return False


class DeafPort:
    """A TCP port that takes no further connections: its queue is full, attempts go unanswered."""

    def __init__(self, address="127.0.0.1"):
        self._listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        self._listener.bind((address, 0))
        self._listener.listen(0)
        self.address, self.port = self._listener.getsockname()
        self._fillers = []
        for _ in range(2):
            filler = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
            filler.setblocking(False)
            filler.connect_ex((self.address, self.port))
            self._fillers.append(filler)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for one in self._fillers + [self._listener]:
            one.close()
