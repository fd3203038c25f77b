"""What strangers and their browsers may try at nqeweb, and what it does about it."""

import os
import re
import resource
import socket
import ssl
import threading
import time

import pytest

from conftest import BIN, PATIENCE, run, wait_until
from web import Web, certificate

API = "/api/v1"


@pytest.fixture(scope="module")
def web(campus):
    with Web("--arena", campus.engine.arena, "--snapshot", campus.snapshot) as server:
        yield server


def raw(server, data, half_close=False):
    """What comes for bytes that are sent as they are, up to the end of the connection."""
    with socket.create_connection(("127.0.0.1", server.port), timeout=PATIENCE) as peer:
        try:
            peer.sendall(data)
        except (BrokenPipeError, ConnectionResetError):
            pass
        if half_close:
            peer.shutdown(socket.SHUT_WR)
        answer = b""
        while True:
            try:
                piece = peer.recv(65536)
            except ConnectionResetError:
                return answer
            if not piece:
                return answer
            answer += piece


def request(target, *headers, method=b"GET", host=b"127.0.0.1", body=b""):
    lines = [method + b" " + target + b" HTTP/1.1", b"Host: " + host, b"Connection: close", *headers]
    return b"\r\n".join(lines) + b"\r\n\r\n" + body


def status(answer):
    assert answer.startswith(b"HTTP/1.1 "), answer[:200]
    return int(answer[9:12])


def still_answers(server):
    assert server.get(API + "/engines").status == 200


def test_it_listens_on_the_loopback_unless_told_and_safe(tmp_path):
    token, others = tmp_path / "token", tmp_path / "others"
    token.write_text("0123456789abcdef\n")
    token.chmod(0o600)
    others.write_text("0123456789abcdef\n")
    others.chmod(0o644)
    short = tmp_path / "short"
    short.write_text("secret\n")
    short.chmod(0o600)
    cert, key, _ = certificate(tmp_path)
    tls = ("--certificate", cert, "--key", key)
    for words, part in (
            (("--listen", "0.0.0.0:0"), "takes --token-file, --certificate and --key"),
            (("--listen", "[::]:0", "--token-file", token), "takes --token-file, --certificate and --key"),
            (("--listen", "0.0.0.0:0", *tls), "takes --token-file, --certificate and --key"),
            (("--listen", "nowhere:80"), "is no address to listen on"),
            (("--listen", "127.0.0.1:99999"), "is no address to listen on"),
            (("--allow-changes",), "takes a token"),
            (("--certificate", cert), "TLS takes both"),
            (("--certificate", token, "--key", key), "cannot use the certificate"),
            (("--certificate", cert, "--key", token), "cannot use the key"),
            (("--token-file", others), "others may read the token"),
            (("--token-file", short), "is no token"),
            (("--token-file", tmp_path / "none"), "cannot read the token"),
            (("--connections", "0"), "is not a number from 1 to 4096"),
            (("--arena", "/a", "--snapshot", "/a"), "is named twice"),
            (("--no-such",), "unknown option"),
    ):
        run(BIN / "nqeweb", *words).failed(part, tool="nqeweb")
    with Web("--listen", "127.0.0.1:0") as first:
        run(BIN / "nqeweb", "--listen", f"127.0.0.1:{first.port}").failed("cannot listen on", tool="nqeweb")


@pytest.mark.filterwarnings("ignore:ssl.TLSVersion:DeprecationWarning")
def test_beyond_the_loopback_with_token_and_tls(tmp_path, campus):
    token = tmp_path / "token"
    token.write_text("0123456789abcdef\n")
    token.chmod(0o600)
    cert, key, trust = certificate(tmp_path)
    with Web("--arena", campus.engine.arena, "--listen", "0.0.0.0:0", "--token-file", token, "--certificate", cert, "--key", key,
             tls=trust) as server:
        assert server.url.startswith("https://0.0.0.0:")
        page = server.get("/")
        assert page.status == 200 and page.headers["Strict-Transport-Security"]
        server.get(API + "/engines").is_problem(401)
        server.get(API + "/engines", headers={"Authorization": "Bearer wrong"}).is_problem(401)
        server.get("/metrics").is_problem(401)
        answer = server.get(API + "/engines", headers={"Authorization": "Bearer 0123456789abcdef"})
        assert answer.status == 200, answer
        # Who speaks without TLS, or an old one, gets nothing.
        assert not raw(server, request(b"/")).startswith(b"HTTP")
        old = ssl.SSLContext(ssl.PROTOCOL_TLS_CLIENT)
        old.check_hostname, old.verify_mode = False, ssl.CERT_NONE
        old.maximum_version = ssl.TLSVersion.TLSv1_1
        with socket.create_connection(("127.0.0.1", server.port), timeout=PATIENCE) as plain, pytest.raises((ssl.SSLError, OSError)):
            old.wrap_socket(plain)


def test_names_and_pages_of_strangers(web):
    for host in (b"evil.example", b"127.0.0.1.evil.example", b"", b"localhost@evil.example", b"[::1]evil"):
        assert status(raw(web, request(b"/api/v1/engines", host=host))) == 421, host
    assert status(raw(web, b"GET / HTTP/1.1\r\nConnection: close\r\n\r\n")) == 421
    assert status(raw(web, request(b"/", b"Host: localhost"))) == 421
    assert status(raw(web, request(b"/api/v1/engines", b"Origin: http://evil.example"))) == 403
    assert status(raw(web, request(b"/api/v1/engines", b"Origin: null"))) == 403
    assert status(raw(web, request(b"/api/v1/engines", b"Sec-Fetch-Site: cross-site", b"Sec-Fetch-Mode: cors"))) == 403
    own = f"127.0.0.1:{web.port}"
    assert web.get(API + "/engines", headers={"Origin": f"http://{own}"}).status == 200


def test_every_answer_carries_the_policy_and_no_cookie(web):
    for path in ("/", "/index.html", API + "/engines", API + "/nothing", "/nothing", API + "/sql?q=x", "/metrics"):
        headers = web.get(path).headers
        policy = headers["Content-Security-Policy"]
        assert policy.startswith("default-src 'none';") and "unsafe" not in policy, path
        assert "frame-ancestors 'none'" in policy and "*" not in policy and "http:" not in policy
        assert headers["X-Content-Type-Options"] == "nosniff" and headers["Referrer-Policy"] == "no-referrer"
        assert headers["Set-Cookie"] is None and headers["Server"] is None
        assert headers["Access-Control-Allow-Origin"] is None
        if path.startswith("/api"):
            assert headers["Cache-Control"] == "no-store"
    for refused in (request(b"/%gg"), b"GET\r\n\r\n", request(b"/", b"Content-Length: 1000000000", method=b"POST")):
        answer = raw(web, refused)
        assert b"Content-Security-Policy: default-src 'none';" in answer and b"X-Content-Type-Options: nosniff" in answer, answer


def test_tricks_with_paths(web):
    for target in (b"/../etc/passwd", b"/..%2f..%2fetc%2fpasswd", b"/%2e%2e/%2e%2e/etc/passwd", b"//etc/passwd", b"/./index.html",
                   b"/index.html/", b"/index.html%00.js", b"/index.html\x00", b"/%c0%ae%c0%ae/etc/passwd", b"/page/../index.html",
                   b"/\\..\\..\\etc\\passwd", b"/index.htm%6c/x", b"/api/v1/../../index.html", b"http://127.0.0.1/", b"*", b"index.html",
                   b"/%", b"/%2", b"/%gg", b"/a b", b"/\xff\xfe", b"/" + b"../" * 2000, b"/" + b"%2e" * 4000,
                   b"/api/v1/tables/..%2f..%2fetc/records", b"/api/v1/schema/..%2f..%2fpasswd", b"/proc/self/environ"):
        answer = raw(web, request(target))
        assert status(answer) in (400, 404, 431), (target, answer[:300])
        assert b"root:" not in answer
    still_answers(web)


def test_floods_of_headers_and_bodies(web):
    for data, code in (
            (request(b"/", *[b"X-%d: 1" % i for i in range(1000)]), 431),
            (request(b"/", b"X: " + b"a" * 100000), 431),
            (request(b"/" + b"a" * 100000), 431),
            (b"GET / HTTP/1.1\r\n" + b"A: b\r\n" * 200000, 431),
            (request(b"/", b"Content-Length: 1000000000", method=b"POST"), 413),
            (request(b"/", b"Content-Length: -1", method=b"POST"), 400),
            (request(b"/", b"Content-Length: 5", b"Content-Length: 6", method=b"POST", body=b"hello"), 400),
            (request(b"/", b"Transfer-Encoding: chunked", method=b"POST", body=b"ffffffffffffffff\r\n"), 413),
            (request(b"/", b"Transfer-Encoding: chunked", b"Content-Length: 3", method=b"POST", body=b"0\r\n\r\n"), 400),
            (b"\x16\x03\x01\x02\x00" + b"\x00" * 600, 400),
            (b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", 400),
    ):
        answer = raw(web, data)
        # Who goes on sending is cut off, and may not see why.
        if answer:
            assert status(answer) == code, (data[:100], answer[:300])
    still_answers(web)


def test_what_is_sent_one_behind_the_other_is_answered_so(web):
    two = request(b"/api/v1/engines").replace(b"Connection: close\r\n", b"") + request(b"/nothing")
    answer = raw(web, two)
    assert re.findall(rb"HTTP/1\.1 (\d+)", answer) == [b"200", b"404"], answer[:500]


def test_two_thousand_connections(campus):
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    if hard < 2200:
        pytest.skip("this machine lets a process open fewer files")
    resource.setrlimit(resource.RLIMIT_NOFILE, (max(soft, 2200), hard))
    peers = []
    try:
        with Web("--arena", campus.engine.arena, "--connections", "32") as server:
            for i in range(2000):
                peer = socket.socket()
                peer.setblocking(False)
                peer.connect_ex(("127.0.0.1", server.port))
                peers.append(peer)
                # Among them one that asks: a request that comes at once does not wait for those that say nothing.
                if i % 500 == 499:
                    wait_until(lambda: answers(server), "an answer among silent connections")
            threads = int(re.search(r"Threads:\s+(\d+)", open(f"/proc/{server.process.pid}/status").read())[1])
            assert threads < 64
            for peer in peers:
                peer.close()
            wait_until(lambda: answers(server), "an answer behind them")
    finally:
        for peer in peers:
            peer.close()
        resource.setrlimit(resource.RLIMIT_NOFILE, (soft, hard))


def answers(server):
    try:
        return server.get(API + "/engines").status == 200
    except OSError:  # turned away or cut off in between
        return False


def test_slow_clients_are_left(campus):
    with Web("--arena", campus.engine.arena, "--patience", "1") as server:
        # One that sends its request byte by byte, each well in time.
        began = time.monotonic()
        ended = threading.Event()

        def trickle():
            with socket.create_connection(("127.0.0.1", server.port), timeout=PATIENCE) as peer:
                try:
                    for byte in request(b"/api/v1/engines") * 100:
                        peer.sendall(bytes([byte]))
                        if ended.wait(0.05):
                            return
                except OSError:
                    pass

        thread = threading.Thread(target=trickle)
        thread.start()
        # One that says nothing behind its first line.
        answer = raw(server, b"GET / HTTP/1.1\r\n")
        assert status(answer) == 408
        assert time.monotonic() - began < PATIENCE
        thread.join(PATIENCE)
        assert not thread.is_alive(), "it was borne for longer than a request may take"
        ended.set()
        still_answers(server)


def test_who_does_not_read_is_left(campus):
    with Web("--arena", campus.engine.arena, "--patience", "1", "--connections", "8") as server:
        peers = []
        for _ in range(20):
            peer = socket.socket()
            peer.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
            peer.connect(("127.0.0.1", server.port))
            peer.sendall(request(b"/api/v1/schema"))
            peers.append(peer)
        wait_until(lambda: answers(server), "an answer beside clients that do not read")
        for peer in peers:
            peer.close()


def test_the_arena_is_mapped_for_reading_alone(campus):
    with Web("--arena", campus.engine.arena) as server:
        server.data("tables")
        arena = str(campus.engine.arena)
        maps = [line for line in open(f"/proc/{server.process.pid}/maps") if line.rstrip().endswith(arena)]
        assert maps
        for line in maps:
            assert line.split()[1] == "r--s", line
        folder = f"/proc/{server.process.pid}/fd"
        modes = [re.search(r"flags:\s+(\d+)", open(f"/proc/{server.process.pid}/fdinfo/{fd}").read())[1]
                 for fd in os.listdir(folder) if os.readlink(f"{folder}/{fd}") == arena]
        assert modes and all(int(mode, 8) & 3 == os.O_RDONLY for mode in modes), modes


def test_listeners_are_bounded(campus):
    with Web("--arena", campus.engine.arena, "--connections", "16") as server:
        peers = []
        for _ in range(4):
            peer = socket.create_connection(("127.0.0.1", server.port), timeout=PATIENCE)
            peer.sendall(request(b"/api/v1/events"))
            assert status(peer.recv(4096)) == 200
            peers.append(peer)
        server.get(API + "/events").is_problem(503)
        still_answers(server)
        peers.pop().close()
        wait_until(lambda: status(first_piece(server)) == 200, "a listener's place")
        for peer in peers:
            peer.close()


def first_piece(server):
    with socket.create_connection(("127.0.0.1", server.port), timeout=PATIENCE) as peer:
        peer.sendall(request(b"/api/v1/events"))
        return peer.recv(4096)
