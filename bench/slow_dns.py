#!/usr/bin/env python3
"""A DNS server for benchmarks: answers every question over TCP after a while.

    slow_dns.py PORT [MILLISECONDS]

It listens on 127.0.0.1 with one process and answers 50 ms (MILLISECONDS) after a question came,
however many are waiting, in the order in which they came:

    PTR   mail.<the name without in-addr.arpa>.customers.example
    A     192.0.2.1; for a name that begins with four numbers, as those of DNS block lists do, that
          it does not exist
    other "no such record"

On SIGTERM it writes how many questions it has answered, the most that waited at once, and the
processor time that it used.
"""

import asyncio
import collections
import re
import resource
import signal
import sys

PTR, A = 12, 1
TICK = 0.002  # seconds: answers that are due are sent together
LISTED = re.compile(rb"(?:[\x01-\x03][0-9]{1,3}){4}")


def name_of(*labels):
    return b"".join(bytes([len(label)]) + label for label in labels)


CUSTOMERS = name_of(b"customers", b"example") + b"\0"
MAIL = name_of(b"mail")
IN_ADDR = name_of(b"in-addr", b"arpa")


def answer_to(question):
    """The answer's message; all that is not worked out is copied from the question."""
    end = question.index(b"\0", 12)
    kind = question[end + 2]
    asked = question[12:end + 5]
    if kind == PTR:
        host = MAIL + question[12:end].removesuffix(IN_ADDR) + CUSTOMERS
        data = len(host).to_bytes(2, "big") + host
        return question[:2] + b"\x81\x80\0\1\0\1\0\0\0\0" + asked + \
            b"\xC0\x0C\0\x0C\0\1\0\0\0\x3C" + data
    if kind == A and LISTED.match(question, 12):
        return question[:2] + b"\x81\x83\0\1\0\0\0\0\0\0" + asked
    if kind == A:
        return question[:2] + b"\x81\x80\0\1\0\1\0\0\0\0" + asked + \
            b"\xC0\x0C\0\1\0\1\0\0\0\x3C\0\4\xC0\0\2\1"
    return question[:2] + b"\x81\x80\0\1\0\0\0\0\0\0" + asked


class Server:
    def __init__(self, delay):
        self.delay = delay
        self.waiting = collections.deque()  # when, connection, its questions
        self.count = self.at_once = self.most = 0
        self.connections = 0

    def take(self, connection, questions):
        self.at_once += len(questions)
        self.most = max(self.most, self.at_once)
        self.waiting.append((asyncio.get_running_loop().time() + self.delay, connection, questions))

    async def answer_all(self):
        loop = asyncio.get_running_loop()
        while True:
            now = loop.time()
            while self.waiting and self.waiting[0][0] <= now:
                _, connection, questions = self.waiting.popleft()
                self.at_once -= len(questions)
                self.count += len(questions)
                out = []
                for question in questions:
                    message = answer_to(question)
                    out += [len(message).to_bytes(2, "big"), message]
                connection.write(b"".join(out))
            await asyncio.sleep(TICK)


class Connection(asyncio.Protocol):
    def __init__(self, server):
        self.server = server
        self.transport = None
        self.rest = b""

    def connection_made(self, transport):
        self.transport = transport
        self.server.connections += 1

    def data_received(self, data):
        data = self.rest + data
        place, questions = 0, []
        while len(data) - place >= 2:
            end = place + 2 + (data[place] << 8 | data[place + 1])
            if end > len(data):
                break
            questions.append(data[place + 2:end])
            place = end
        self.rest = data[place:]
        if questions:
            self.server.take(self.transport, questions)


async def serve(port, delay):
    loop = asyncio.get_running_loop()
    ended = asyncio.Event()
    for one in (signal.SIGTERM, signal.SIGINT):
        loop.add_signal_handler(one, ended.set)
    server = Server(delay)
    listener = await loop.create_server(lambda: Connection(server), "127.0.0.1", port,
                                        backlog=4096)
    answering = asyncio.create_task(server.answer_all())
    print("ready", flush=True)
    await ended.wait()
    answering.cancel()
    listener.close()
    used = resource.getrusage(resource.RUSAGE_SELF)
    print(f"{server.count} questions, {server.most} at once, {server.connections} connections, "
          f"{used.ru_utime + used.ru_stime:.1f} s of processor time", flush=True)


if __name__ == "__main__":
    asyncio.run(serve(int(sys.argv[1]), float(sys.argv[2]) / 1000 if len(sys.argv) > 2 else 0.05))
