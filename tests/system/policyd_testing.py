"""quillfence policyd as a child of a test: started when it says that it is ready, stopped by its id,
its log read; and the mail server's side of the policy protocol."""

import json
import os
import signal
import socket
import subprocess
from pathlib import Path

from dns_testing import Programs, environment
from mail_servers import end, wait_for

ENDED = 0


class Policyd:
    """The service on a Unix socket, with a drive c: and a log; its events are in a file."""

    def __init__(self, drive, folder, *options, listen=None, log=None):
        self.folder = Path(folder)
        self.path = Path(listen or self.folder / "policy")
        self.log = Path(log or self.folder / "decisions")
        self._notices = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        with self._notices:
            notify = self.folder / "notify"
            notify.unlink(missing_ok=True)
            self._notices.bind(str(notify))
            with open(self.folder / "output", "ab") as output:
                self.process = subprocess.Popen(
                    [Programs.quillfence, "policyd", "--listen", f"unix:{self.path}",
                     "--socket-mode", "0666", "--log", self.log, *options],
                    env=environment(**{**drive.settings, "NOTIFY_SOCKET": str(notify)}),
                    stdin=subprocess.DEVNULL, stdout=output, stderr=output)
            self._notices.settimeout(0.05)
            try:
                wait_for("policyd", self._is_ready)
            except BaseException:
                self.process.kill()
                self.process.wait()
                raise

    def _is_ready(self):
        if self.process.poll() is not None:
            raise AssertionError(f"policyd ended with {self.process.returncode}: {self.output()}")
        try:
            return b"READY=1" in self._notices.recv(4096).split(b"\n")
        except socket.timeout:
            return False

    def output(self):
        return (self.folder / "output").read_text(encoding="utf-8", errors="replace")

    def stop(self):
        """Its exit status."""
        return end(self.process)

    def kill(self):
        return end(self.process, signal.SIGKILL)

    def reload(self):
        self.process.send_signal(signal.SIGHUP)

    def records(self):
        return records_of(self.log)


def records_of(path):
    """The records of a log. A line that is none, or a last one that is cut off, is an error."""
    content = Path(path).read_bytes()
    if content and not content.endswith(b"\n"):
        raise AssertionError(f"{path} ends inside a line: {content[-200:]!r}")
    return [json.loads(line) for line in content.splitlines()]


# --- the other side ---

FACTS = {
    "request": "smtpd_access_policy", "protocol_state": "RCPT", "protocol_name": "ESMTP",
    "helo_name": "host-with-an-a.forward.test", "queue_id": "", "sender": "user@forward.test",
    "recipient": "bob@forward.test", "recipient_count": "0", "client_address": "192.0.2.1",
    "client_name": "host-with-an-a.forward.test",
    "reverse_client_name": "host-with-an-a.forward.test", "instance": "1a2b.5f0c3b7e.3d090.0",
    "sasl_method": "", "sasl_username": "", "sasl_sender": "", "size": "1234",
    "ccert_subject": "", "ccert_issuer": "", "ccert_fingerprint": "", "etrn_domain": "",
    "stress": "", "ccert_pubkey_fingerprint": "", "encryption_protocol": "",
    "encryption_cipher": "", "encryption_keysize": "0", "policy_context": "",
    "server_address": "127.0.0.1", "server_port": "25", "client_port": "40000",
}


def request_of(**facts):
    """What Postfix sends, in its order."""
    return "".join(f"{name}={value}\n" for name, value in {**FACTS, **facts}.items()) + "\n"


class Client:
    """A mail server's connection."""

    def __init__(self, path, seconds=30):
        self._socket = socket.socket(socket.AF_UNIX)
        self._socket.settimeout(seconds)
        self._socket.connect(str(path))
        self._got = b""

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self._socket.close()

    def send(self, **facts):
        self._socket.sendall(request_of(**facts).encode())

    def receive(self):
        """The action; None when the connection ends before there is one."""
        while b"\n\n" not in self._got:
            piece = self._socket.recv(65536)
            if not piece:
                return None
            self._got += piece
        answer, _, self._got = self._got.partition(b"\n\n")
        name, _, action = answer.decode().partition("=")
        if name != "action" or "\n" in action:
            raise AssertionError(f"no answer: {answer!r}")
        return action

    def ask(self, **facts):
        self.send(**facts)
        return self.receive()
