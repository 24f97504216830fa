#!/usr/bin/env python3
"""Two processes speak in packets: over a socket pair, over named pipes and over plain pipes.

    transport_test.py PEER [LAUNCHER]

PEER is the program packet_peer; LAUNCHER runs it (Wine), and then only plain pipes are tried.
"""

import os
import socket
import subprocess
import sys
import tempfile
import unittest

PEER = sys.argv[2:3] + [sys.argv[1]]
UNDER_WINE = len(sys.argv) > 2

TOLD = ("result 7 message [192.0.2.1 4711 carol 1 long alice@example.org bob@example.net] "
        "spam hit [require_helo]\n")


def start(role, stdin, stdout):
    return subprocess.Popen(PEER + [role], stdin=stdin, stdout=stdout, stderr=subprocess.PIPE,
                            text=True)


class Transport(unittest.TestCase):
    def converse(self, ask_in, ask_out, answer_in, answer_out):
        answering = start("answer", answer_in, answer_out)
        asking = start("ask", ask_in, ask_out)
        for end in {ask_in, ask_out, answer_in, answer_out}:
            os.close(end)
        told = asking.communicate(timeout=120)[1].replace("\r\n", "\n")
        complaint = answering.communicate(timeout=120)[1]
        self.assertEqual((asking.returncode, answering.returncode, told, complaint),
                         (0, 0, TOLD, ""))

    def test_plain_pipes(self):
        question, reply = os.pipe(), os.pipe()
        self.converse(reply[0], question[1], question[0], reply[1])

    @unittest.skipIf(UNDER_WINE, "a socket is no standard stream of a Windows program")
    def test_socket_pair(self):
        ours, theirs = socket.socketpair()
        self.converse(ours.fileno(), ours.detach(), theirs.fileno(), theirs.detach())

    @unittest.skipIf(UNDER_WINE, "a Linux named pipe is none for a Windows program")
    def test_named_pipes(self):
        with tempfile.TemporaryDirectory() as folder:
            question, reply = os.path.join(folder, "question"), os.path.join(folder, "reply")
            os.mkfifo(question)
            os.mkfifo(reply)
            # Opened for both directions once, so that no opening waits for the other side.
            holders = [os.open(path, os.O_RDWR) for path in (question, reply)]
            ends = (os.open(reply, os.O_RDONLY), os.open(question, os.O_WRONLY),
                    os.open(question, os.O_RDONLY), os.open(reply, os.O_WRONLY))
            self.converse(*ends)
            for holder in holders:
                os.close(holder)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
