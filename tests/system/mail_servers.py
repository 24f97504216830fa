"""Debian's Postfix and Exim as scripts/fetch-mail-servers unpacked them, run in network and mount
namespaces that only the test has, below a folder that looks to them like a machine of their own.

A test script calls enter_namespaces() before its main(). Everything listens on the namespaces' own
loopback interface, so that ports are free and well-known ones may be used.
"""

import fcntl
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import textwrap
import time
from pathlib import Path

from dns_testing import lacking
from whole_program import environment

INSIDE = "QUILLFENCE_TEST_MAIL_NAMESPACES"
NAMESPACES = ["unshare", "--net", "--mount", "--propagation", "private"]
PAGE = Path(__file__).resolve().parents[2] / "docs/policyd.md"
UNPACKED = Path(__file__).resolve().parents[2] / "build/deps"
PATIENCE = 20  # seconds; nothing here takes one on an idle machine


# --- namespaces ---

def enter_namespaces():
    """Starts this script again inside, where that is allowed. The mail servers change to users of
    their own, which takes a real root."""
    if INSIDE in os.environ or os.geteuid() != 0 or not shutil.which(NAMESPACES[0]):
        return
    if subprocess.run(NAMESPACES + ["true"], capture_output=True, check=False).returncode == 0:
        os.execvpe(NAMESPACES[0], NAMESPACES + [sys.executable] + sys.argv,
                   dict(os.environ, **{INSIDE: "1"}))


def need_namespaces():
    if os.environ.get(INSIDE) != "1":
        lacking("private network and mount namespaces are not allowed here, or nobody is root")
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as handle:
        get_flags, set_flags, flag_up = 0x8913, 0x8914, 1
        request = struct.pack("16sh14x", b"lo", 0)
        flags = struct.unpack("16sh14x", fcntl.ioctl(handle, get_flags, request))[1]
        fcntl.ioctl(handle, set_flags, struct.pack("16sh14x", b"lo", flags | flag_up))


def others_inside():
    """The processes of this network namespace but this one, by id, with their command lines."""
    ours = os.stat("/proc/self/ns/net")
    found = {}
    for entry in Path("/proc").iterdir():
        if entry.name.isdigit() and int(entry.name) != os.getpid():
            try:
                theirs = os.stat(entry / "ns/net")
                words = (entry / "cmdline").read_bytes().replace(b"\0", b" ").decode("latin-1")
                state = (entry / "stat").read_text(encoding="latin-1").rpartition(")")[2].split()[0]
            except OSError:  # it has ended
                continue
            if (theirs.st_dev, theirs.st_ino) == (ours.st_dev, ours.st_ino) and state != "Z":
                found[int(entry.name)] = words.strip()
    return found


# --- waiting ---

def wait_for(what, happened, seconds=PATIENCE):
    """What `happened` gives once it is true."""
    deadline = time.monotonic() + seconds
    while not (result := happened()):
        if time.monotonic() > deadline:
            raise AssertionError(f"waited {seconds} s for {what}")
        time.sleep(0.01)
    return result


def is_listening(address, port):
    try:
        with socket.create_connection((address, port), 1):
            return True
    except OSError:
        return False


def end(process, how=signal.SIGTERM):
    """The exit status of a child that is told to end."""
    if process.poll() is None:
        process.send_signal(how)
        try:
            process.wait(PATIENCE)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
    return process.returncode


def is_alive(pid):
    """Whether a process that is nobody's child here still runs."""
    try:
        return Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[0] != "Z"
    except OSError:
        return False


# --- a machine of their own ---

SAME = ["bin", "sbin", "lib", "lib32", "lib64", "libx32"]
USERS = """root:x:0:0:root:/root:/bin/sh
daemon:x:1:1:daemon:/usr/sbin:/usr/sbin/nologin
mail:x:8:8:mail:/var/mail:/usr/sbin/nologin
postfix:x:961:961::/var/spool/postfix:/usr/sbin/nologin
Debian-exim:x:962:962::/var/spool/exim4:/usr/sbin/nologin
nobody:x:65534:65534:nobody:/nonexistent:/usr/sbin/nologin
"""
GROUPS = """root:x:0:
daemon:x:1:
mail:x:8:
postfix:x:961:
postdrop:x:963:
Debian-exim:x:962:
nogroup:x:65534:
"""


class Machine:
    """This system once more below `root`, with a package laid over it, its own users, and an empty
    /var, /run and /tmp. `host` in it is the whole of this system."""

    def __init__(self, package):
        self.package = UNPACKED / package
        if not self.package.is_dir():
            lacking(f"{package} is not there: run scripts/fetch-mail-servers")
        self.root = Path(tempfile.mkdtemp(prefix="quillfence-mail-"))
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", self.root], check=True)
        try:
            self._furnish()
        except BaseException:
            self.remove()
            raise

    def _furnish(self):
        os.chmod(self.root, 0o755)
        (self.root / "host").mkdir()
        subprocess.run(["mount", "--rbind", "/", self.root / "host"], check=True)
        for name in SAME:
            if Path("/", name).is_symlink():
                (self.root / name).symlink_to(os.readlink(Path("/", name)))
        for name in ("dev", "proc"):
            (self.root / name).symlink_to(f"host/{name}")
        for name in ("usr", "etc"):
            (self.root / name).symlink_to(f"/host/{name}")
            self._lay(name, self.package / name)
        for name in SAME:  # packages have the old places
            if (self.package / name).is_dir():
                self._lay("usr/" + name, self.package / name)
        for name in ("run", "tmp", "var/log", "var/lib", "var/spool"):
            (self.root / name).mkdir(parents=True, exist_ok=True)
        os.chmod(self.root / "tmp", 0o1777)
        self.write("etc/passwd", USERS)
        self.write("etc/group", GROUPS)
        self.write("etc/hosts", "127.0.0.1 localhost mail.forward.test mail\n")
        self.write("etc/resolv.conf", "nameserver 127.0.0.1\n")

    def _lay(self, name, folder):
        """Copies a package's folder to where this system's one is linked to."""
        target = self.root / name
        if target.is_symlink():
            ours = Path("/", name)
            target.unlink()
            target.mkdir()
            for entry in ours.iterdir():
                (target / entry.name).symlink_to(f"/host{entry}")
        target.mkdir(exist_ok=True)
        for entry in folder.iterdir():
            place = target / entry.name
            if entry.is_dir() and not entry.is_symlink():
                self._lay(f"{name}/{entry.name}", entry)
            else:
                place.unlink(missing_ok=True)
                shutil.copy2(entry, place, follow_symlinks=False)

    def write(self, name, text):
        """A file, in the place of a link to this system's."""
        path = self.root / name
        for folder in reversed(path.relative_to(self.root).parents):
            if (self.root / folder).is_symlink():
                (self.root / folder).unlink()
            (self.root / folder).mkdir(exist_ok=True)
        path.unlink(missing_ok=True)
        path.write_text(text, encoding="utf-8")
        return path

    def read(self, name):
        return (self.root / name).read_text(encoding="utf-8", errors="replace")

    def start(self, *command, **more):
        """A process below the root."""
        return subprocess.Popen(["/usr/sbin/chroot", self.root, *command],
                                env=environment(PATH="/usr/sbin:/usr/bin:/sbin:/bin"), **more)

    def run(self, *command, text="", status=0):
        """Output, both kinds, of a command below the root."""
        done = subprocess.run(["/usr/sbin/chroot", self.root, *command], input=text.encode(),
                              env=environment(PATH="/usr/sbin:/usr/bin:/sbin:/bin"),
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60,
                              check=False)
        shown = done.stdout.decode("utf-8", "replace")
        if done.returncode != status:
            raise AssertionError(f"{command}: status {done.returncode}\n{shown}")
        return shown

    def remove(self):
        subprocess.run(["umount", "--lazy", self.root], check=True)
        self.root.rmdir()


# --- the two servers ---

class Postfix:
    """Postfix on port 25 of every loopback address, as Debian configures it (chroot included), with
    these lines at the end of its main.cf. It hosts forward.test and throws its mail away."""

    MAIN = """compatibility_level = 3.6
myhostname = mail.forward.test
mydestination = forward.test
mynetworks = 127.0.0.99/32
local_recipient_maps =
local_transport = discard
inet_interfaces = all
inet_protocols = ipv4
alias_maps =
maillog_file = /var/log/mail.log
smtpd_authorized_xclient_hosts = 127.0.0.0/8
smtpd_tls_security_level = none
"""

    def __init__(self, more):
        self.machine = Machine("postfix")
        (self.machine.root / "var/spool/postfix").mkdir(exist_ok=True)
        (self.machine.root / "var/lib/postfix").mkdir(exist_ok=True)
        os.chown(self.machine.root / "var/lib/postfix", 961, 961)
        share = self.machine.package / "usr/share/postfix"
        etc = "etc/postfix/"
        self.machine.write(etc + "main.cf", self.MAIN + more)
        self.machine.write(etc + "master.cf", (share / "master.cf.dist").read_text())
        self.machine.write(etc + "dynamicmaps.cf", "")
        for name in ("postqueue", "postdrop"):
            program = self.machine.root / "usr/sbin" / name
            os.chown(program, 0, 963)
            os.chmod(program, 0o2755)
        self.master = None

    def start(self):
        try:
            self.machine.run("postfix", "start")
        except AssertionError as failed:
            raise AssertionError(f"{failed}\n{self.log()}") from None
        self.master = int(self.machine.read("var/spool/postfix/pid/master.pid"))
        wait_for("Postfix", lambda: is_listening("127.0.0.1", 25))

    def log(self):
        return self.machine.read("var/log/mail.log")

    def stop(self):
        if self.master:
            os.kill(self.master, signal.SIGTERM)
            wait_for("the end of Postfix", lambda: not is_alive(self.master))
        self.machine.remove()


class Exim:
    """Exim on port 25 with these lines in its ACL of the command RCPT, in front of the last one that
    accepts whoever got there. It hosts forward.test and keeps all mail in its queue."""

    CONFIGURATION = """primary_hostname = mail.forward.test
domainlist local_domains = forward.test
acl_smtp_rcpt = acl_check_rcpt
queue_only
disable_ipv6
tls_advertise_hosts =
log_file_path = /var/log/exim-%slog
begin acl
acl_check_rcpt:
  require domains = +local_domains
@ACL@
  accept
begin routers
begin transports
"""

    def __init__(self, acl):
        self.machine = Machine("exim")
        for name in ("var/spool/exim4", "var/log"):
            (self.machine.root / name).mkdir(exist_ok=True)
            os.chown(self.machine.root / name, 962, 962)
        self.machine.write("etc/exim4/exim4.conf", self.CONFIGURATION.replace("@ACL@", acl))
        self.daemon = None

    def start(self):
        self.daemon = self.machine.start("/usr/sbin/exim4", "-bdf", "-oX", "25",
                                         stdin=subprocess.DEVNULL)
        wait_for("Exim", lambda: self.daemon.poll() is not None or is_listening("127.0.0.1", 25))

    def said_to(self, address, *commands):
        """What Exim would say to a client of this address (-bh): its greeting and the reply to each
        command."""
        shown = self.machine.run("/usr/sbin/exim4", "-bh", address,
                                 text="".join(command + "\r\n" for command in commands))
        return replies_in(re.findall(r"^\d{3}[ -].*$", shown.replace("\r", ""), re.MULTILINE))

    def log(self):
        return self.machine.read("var/log/exim-mainlog")

    def stop(self):
        if self.daemon:
            end(self.daemon)
        self.machine.remove()


# --- what is said to them, and what the page says ---

def replies_in(lines):
    """Each reply as one line: a server may fold what is long."""
    replies, code = [], ""
    for line in lines:
        if code:
            replies[-1] += " " + line[4:].removeprefix("5.7.1 ")
        else:
            replies.append(line[:3] + " " + line[4:])
        code = line[:3] if line[3:4] == "-" else ""
    return replies


def swaks(sender, recipient, *options):
    """The reply to RCPT."""
    shown = subprocess.run(["swaks", "--server", "127.0.0.1", "--from", sender, "--to", recipient,
                            "--quit-after", "RCPT", *options], env=environment(),
                           stdin=subprocess.DEVNULL, capture_output=True, text=True,
                           timeout=PATIENCE + 60, check=False).stdout
    _, asked, replied = shown.partition(f" -> RCPT TO:<{recipient}>\n")
    if not asked:
        raise AssertionError("no RCPT: " + shown)
    (reply,) = replies_in(re.findall(r"^<(?:-|\*\*) +(\d{3}[ -].*)",
                                     replied.partition("\n -> ")[0], re.MULTILINE))
    return reply


def page_lines(beginning):
    """The indented example of docs/policyd.md that begins like this."""
    page = PAGE.read_text(encoding="utf-8")
    for example in re.findall(r"(?:^ {4}.*\n|\n(?= {4}))+", page, re.MULTILINE):
        if example.lstrip().startswith(beginning):
            return textwrap.dedent(example)
    raise AssertionError(f"{PAGE} has no example that begins with {beginning}")
