"""The management agent as a process, and a NETCONF client that goes byte by byte."""

import contextlib
import getpass
import os
import pathlib
import re
import signal
import socket
import subprocess

from ncclient import manager
from ncclient.operations.rpc import RPCError
from ncclient.xml_ import to_ele

from conftest import BIN, PATIENCE, ROOT, run, short_directory

MODEL = "urn:tavrix:params:xml:ns:yang:tavrix-software-fwd"
BASE = "urn:ietf:params:xml:ns:netconf:base:1.0"
NACM = "urn:ietf:params:xml:ns:yang:ietf-netconf-acm"
END_1_0 = b"]]>]]>"


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def make_key(path, kind="ecdsa"):
    subprocess.run(["ssh-keygen", "-q", "-t", kind, "-N", "", "-f", path], check=True)
    return path


ROLES = ROOT / "deploy" / "nacm"


def rules_of(directory, **groups):
    """A directory of rules: the ready roles, and who is in which group ("administrator" for the tests' own user)."""
    place = pathlib.Path(directory) / "nacm"
    place.mkdir(mode=0o700)
    for role in ROLES.iterdir():
        (place / role.name).write_text(role.read_text())
    members = groups or {"administrator": ["operator", getpass.getuser()]}
    text = "".join(f"<group><name>{group}</name>" + "".join(f"<user-name>{user}</user-name>" for user in users) + "</group>"
                   for group, users in members.items())
    (place / "users.xml").write_text(f'<nacm xmlns="{NACM}"><groups>{text}</groups></nacm>\n')
    for file in place.iterdir():
        file.chmod(0o600)
    return place


class Agent:
    """One omad with its own sshd, keys, rules and record."""

    def __init__(self, arena, directory):
        self.arena, self.directory = arena, pathlib.Path(directory)
        self.host_key = make_key(self.directory / "host")
        self.user_key = make_key(self.directory / "user")
        self.socket = self.directory / "omad.sock"
        self.record = self.directory / "record"
        self.rules = rules_of(self.directory)
        self.port = None
        self.process = None
        self.sessions = []

    def words(self):
        return [BIN / "omad", "--arena", self.arena, "--socket", self.socket, "--nacm", self.rules, "--log", self.record]

    def start(self, *words, ssh=True):
        # Tests run side by side, so that a port which was free may be taken before the agent has it.
        for _ in range(10):
            self.port = free_port()
            keys = ["--host-key", self.host_key, "--user-key", f"operator={self.user_key}.pub", "--port", str(self.port)]
            self.process = subprocess.Popen([*self.words(), *(keys if ssh else ()), *words], stdin=subprocess.DEVNULL,
                                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            ready = self.process.stdout.readline()
            at = f", SSH 127.0.0.1:{self.port} as {getpass.getuser()}" if ssh else ""
            if ready == f"omad: ready, pid {self.process.pid}{at}, socket {self.socket}\n":
                return self
            _, error = self.process.communicate(timeout=PATIENCE)
            if f"cannot listen on 127.0.0.1:{self.port}" not in error:
                break
        raise AssertionError(f"{ready}{error}")

    def stop(self):
        """A clean end: exit code 0, nothing said, and nothing left."""
        self.process.send_signal(signal.SIGTERM)
        _, err = self.process.communicate(timeout=PATIENCE)
        code, self.process = self.process.returncode, None
        assert (code, err) == (0, ""), (code, err)
        assert not self.socket.exists() and not pathlib.Path(f"{self.socket}.ssh").exists()

    def kill(self):
        for session in self.sessions:
            session.kill()
        if self.process is not None:
            self.process.kill()
            self.process.communicate()

    def connect(self, **options):
        options = {"username": getpass.getuser(), "key_filename": str(self.user_key), **options}
        return manager.connect(host="127.0.0.1", port=self.port, hostkey_verify=False, allow_agent=False,
                               look_for_keys=False, timeout=PATIENCE, **options)

    def raw(self, user="operator", *words, **options):
        session = RawSession(self.socket, user, *words, **options)
        self.sessions.append(session)
        return session

    def recorded(self, event=None):
        """The lines of the record, as dictionaries of what stands in them."""
        found = [recorded_line(line) for line in self.record.read_text().splitlines()]
        return [line for line in found if event in (None, line["event"])]


def recorded_line(line):
    """A line of RFC 5424, by its grammar."""
    shape = re.fullmatch(r"<(\d{1,3})>1 (\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{6}Z) (\S+) omad (\d+) ([A-Z]+) "
                         r'\[omad@32473((?: [a-z]+="(?:[^"\\\]]|\\["\\\]])*")*)\] (.*)', line)
    assert shape, line
    values = {name: re.sub(r"\\(.)", r"\1", value)
              for name, value in re.findall(r' ([a-z]+)="((?:[^"\\\]]|\\.)*)"', shape[6])}
    return {"priority": int(shape[1]), "event": shape[5], "text": shape[7], **values}


@contextlib.contextmanager
def agent_of(arena, *words):
    with short_directory() as directory:
        agent = Agent(arena, directory)
        try:
            yield agent.start(*words)
            agent.stop()
        finally:
            agent.kill()


def call(session, rpc, **leaves):
    """The answer's text; None for an answer that is only <ok/>."""
    body = "".join(f"<{name.replace('_', '-')}>{value}</{name.replace('_', '-')}>" for name, value in leaves.items())
    reply = session.dispatch(to_ele(f'<{rpc} xmlns="{MODEL}">{body}</{rpc}>'))
    root = to_ele(reply.xml)
    if root.find(f"{{{BASE}}}ok") is not None:
        return None
    text = root.find(f"{{{MODEL}}}text")
    assert text is not None and len(root) == 1, reply.xml
    return text.text or ""


def error_of(session, rpc, **leaves):
    """(tag, message) of a request that must fail."""
    try:
        answer = call(session, rpc, **leaves)
    except RPCError as error:
        return error.tag, error.message
    raise AssertionError(f"{rpc} answered: {answer}")


class RawSession:
    """NETCONF byte by byte with a process of a session, for what a proper client does not send."""

    def __init__(self, path, user="operator", *words, address="192.0.2.7", wrapper=()):
        ours, theirs = socket.socketpair()
        self.socket = ours
        self.socket.settimeout(PATIENCE)
        self.process = subprocess.Popen(
            [*wrapper, BIN / "omad-session", "--socket", path, *(["--user", user] if user else []), *words], stdin=theirs,
            stdout=theirs, stderr=subprocess.PIPE, text=True,
            env={**os.environ, "SSH_CONNECTION": f"{address} 40000 192.0.2.1 830"})
        theirs.close()
        self.pending = b""

    def hello(self, version="1.0"):
        text = self.message()
        assert b"<hello" in text, (text, self.ended() if not text else "")
        self.send(f'<hello xmlns="{BASE}"><capabilities><capability>urn:ietf:params:netconf:base:{version}</capability>'
                  "</capabilities></hello>")
        return self

    def send(self, text):
        self.socket.sendall(text.encode() + END_1_0)

    def message(self):
        """The next message; what came so far when the agent closes."""
        while END_1_0 not in self.pending:
            try:
                piece = self.socket.recv(65536)
            except ConnectionResetError:
                piece = b""
            if not piece:
                break
            self.pending += piece
        text, _, self.pending = self.pending.partition(END_1_0)
        return text

    def send_chunks(self, text):
        self.socket.sendall(f"\n#{len(text.encode())}\n{text}\n##\n".encode())

    def chunked(self, text):
        """The answer to a message in NETCONF 1.1 framing, its chunks joined."""
        self.send_chunks(text)
        return self.chunks()

    def chunks(self):
        answer = b""
        while True:
            while (head := re.match(rb"\n#(\d+)\n|\n##\n", self.pending)) is None:
                self.more()
            self.pending = self.pending[head.end():]
            if head[1] is None:
                return answer.decode()
            while len(self.pending) < int(head[1]):
                self.more()
            answer += self.pending[:int(head[1])]
            self.pending = self.pending[int(head[1]):]

    def more(self):
        piece = self.socket.recv(65536)
        assert piece, self.pending
        self.pending += piece

    def rpc(self, body, number=1):
        self.send(f'<rpc xmlns="{BASE}" message-id="{number}">{body}</rpc>')
        return self.message().decode()

    def error(self, body):
        """(type, tag, path, message) of a request that must fail."""
        return error_in(self.rpc(body))

    def close(self):
        self.socket.close()

    def ended(self):
        """(exit code, what it said) when the process has ended."""
        _, err = self.process.communicate(timeout=PATIENCE)
        return self.process.returncode, err

    def kill(self):
        self.socket.close()
        if self.process.poll() is None:
            self.process.kill()
            self.process.communicate()


def error_in(reply):
    """(type, tag, path, message) of the one error of a reply."""
    root = to_ele(reply)
    errors = root.findall(f"{{{BASE}}}rpc-error")
    assert len(errors) == 1, reply
    return tuple(errors[0].findtext(f"{{{BASE}}}error-{name}") for name in ("type", "tag", "path", "message"))


def data_text(reply):
    """The content of a reply's <data>."""
    return re.fullmatch(r"<rpc-reply [^>]*><data>(.*)</data></rpc-reply>", reply, re.S)[1]


def yanglint(data, directory):
    """What yanglint makes of the data of a <get>, by the modules that the data itself names as those of the agent."""
    file = pathlib.Path(directory) / "data.xml"
    file.write_text(data)
    named = re.findall(r"<schema><identifier>([^<]*)</identifier>", data)
    modules = [module for module in (ROOT / "yang").rglob("*.yang") if module.name.split(".")[0].split("@")[0] in named]
    assert len(modules) == 10
    # One of the IETF's modules has a condition that libyang warns of.
    return run("yanglint", "-Q", "-y", "-p", ROOT / "yang" / "ietf", "-F", "ietf-netconf:xpath", "-F",
               "ietf-alarms:alarm-history,alarm-summary", "-t", "get", "-f", "json", *modules, file)
