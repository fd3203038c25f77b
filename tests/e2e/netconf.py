"""The management agent as a process, and a NETCONF client that goes byte by byte."""

import contextlib
import pathlib
import re
import signal
import socket
import subprocess

from ncclient import manager
from ncclient.operations.rpc import RPCError
from ncclient.xml_ import to_ele

from conftest import BIN, PATIENCE, short_directory

MODEL = "urn:tavrix:params:xml:ns:yang:tavrix-software-fwd"
BASE = "urn:ietf:params:xml:ns:netconf:base:1.0"
END_1_0 = b"]]>]]>"


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def make_key(path, kind="ecdsa"):
    subprocess.run(["ssh-keygen", "-q", "-t", kind, "-N", "", "-f", path], check=True)
    return path


class Agent:
    """One omad with its keys, over SSH and a local socket."""

    def __init__(self, arena, directory):
        self.arena, self.directory = arena, pathlib.Path(directory)
        self.host_key = make_key(self.directory / "host")
        self.user_key = make_key(self.directory / "user")
        self.socket = self.directory / "nc.sock"
        self.port = None
        self.process = None

    def start(self, *words):
        # Tests run side by side, so that a port which was free may be taken before the agent has it.
        for _ in range(10):
            self.port = free_port()
            self.process = subprocess.Popen(
                [BIN / "omad", "--arena", self.arena, "--host-key", self.host_key, "--user-key",
                 f"operator={self.user_key}.pub", "--port", str(self.port), "--unix", self.socket, *words],
                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
            ready = self.process.stdout.readline()
            if ready == (f"omad: ready, pid {self.process.pid}, SSH 127.0.0.1:{self.port}, "
                         f"socket {self.socket}\n"):
                return self
            _, error = self.process.communicate(timeout=PATIENCE)
            if f"cannot listen on 127.0.0.1:{self.port}" not in error:
                break
        raise AssertionError(f"{ready}{error}")

    def stop(self):
        """A clean end: exit code 0 and nothing said."""
        self.process.send_signal(signal.SIGTERM)
        _, err = self.process.communicate(timeout=PATIENCE)
        code, self.process = self.process.returncode, None
        assert (code, err) == (0, "")

    def kill(self):
        if self.process is not None:
            self.process.kill()
            self.process.communicate()

    def connect(self, **options):
        options = {"username": "operator", "key_filename": str(self.user_key), **options}
        return manager.connect(host="127.0.0.1", port=self.port, hostkey_verify=False, allow_agent=False,
                               look_for_keys=False, timeout=PATIENCE, **options)

    def raw(self):
        return RawSession(self.socket)


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
    """NETCONF 1.0 framing over the local socket, for what a proper client does not send."""

    def __init__(self, path):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(str(path))  # waits its turn; with a time limit it would be refused while others wait
        self.socket.settimeout(PATIENCE)
        self.pending = b""

    def hello(self, version="1.0"):
        text = self.message()
        assert b"<hello" in text, text
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

    def chunked(self, text):
        """The answer to a message in NETCONF 1.1 framing, its chunks joined."""
        self.socket.sendall(f"\n#{len(text)}\n{text}\n##\n".encode())
        answer = b""
        while not answer.endswith(b"\n##\n"):
            piece = self.socket.recv(65536)
            assert piece, answer
            answer += piece
        return re.sub(rb"\n#[0-9#]+\n", b"", answer).decode()

    def rpc(self, body, number=1):
        self.send(f'<rpc xmlns="{BASE}" message-id="{number}">{body}</rpc>')
        return self.message().decode()

    def close(self):
        self.socket.close()
