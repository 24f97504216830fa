#!/usr/bin/env python3
"""How many transactions a second `quillfence batch --dns live` judges when answers take a while.

    batch_live.py BUILD_FOLDER SOURCE_FOLDER [COUNT [MILLISECONDS [QUESTIONS]]]

COUNT transactions (100,000), of as many clients, HELO names and sender domains, so that no answer
serves twice, are judged against examples/drive_c. The DNS server is slow_dns.py on this machine,
which answers each question after MILLISECONDS (50); QUESTIONS (4096) are on their way at once. The
server's processor time is printed, too: on a machine with few processors it is part of the cost.
"""

import os
import socket
import subprocess
import sys
import tempfile
import time
from pathlib import Path

PROGRAM = Path(sys.argv[1]).resolve() / "programs/quillfence/quillfence"
SOURCE = Path(sys.argv[2]).resolve()
COUNT, DELAY, QUESTIONS = (sys.argv[3:] + ["100000", "50", "4096"][len(sys.argv) - 3:])[:3]


def free_port():
    with socket.socket() as one:
        one.bind(("127.0.0.1", 0))
        return one.getsockname()[1]


def write_transactions(path, count):
    """Clients from 11.0.0.0 on."""
    with open(path, "w", encoding="ascii") as out:
        for i in range(count):
            ip = f"11.{i >> 16 & 255}.{i >> 8 & 255}.{i & 255}"
            out.write(f'{{"ip":"{ip}","port":"4{i % 9000:04}","tls":false,"authuser":"",'
                      f'"mua":false,"helo":"mail.h{i}.example","sender":"a@s{i}.example",'
                      f'"recipient":"b@here.example"}}\n')


def cpu_of(used):
    return used.ru_utime + used.ru_stime


def main():
    with tempfile.TemporaryDirectory() as folder:
        transactions = Path(folder) / "transactions"
        write_transactions(transactions, int(COUNT))
        port = free_port()
        server = subprocess.Popen([SOURCE / "bench/slow_dns.py", str(port), DELAY],
                                  stdout=subprocess.PIPE, text=True)
        server.stdout.readline()
        began = time.monotonic()
        batch = subprocess.Popen([PROGRAM, "batch", "--quiet",
                                  "--drive-c", SOURCE / "examples/drive_c", "--dns", "live",
                                  "--server", f"127.0.0.1:{port}", "--questions", QUESTIONS,
                                  transactions],
                                 stdout=subprocess.DEVNULL)
        _, status, used = os.wait4(batch.pid, 0)
        seconds = time.monotonic() - began
        server.terminate()
        told = server.communicate()[0].strip()
    count = int(COUNT)
    print(f"{count:,} transactions in {seconds:.1f} s: {count / seconds:,.0f} a second; status "
          f"{os.waitstatus_to_exitcode(status)}")
    print(f"quillfence: {cpu_of(used):.1f} s of processor time, "
          f"{used.ru_maxrss / 1024:.0f} MiB; the server: {told}")


if __name__ == "__main__":
    main()
