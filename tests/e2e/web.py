"""nqeweb as a process, and requests to it."""

import http.client
import json
import ssl
import subprocess
import urllib.parse

from conftest import BIN, PATIENCE


class Answer:
    def __init__(self, path, status, headers, body):
        self.path, self.status, self.headers, self.body = path, status, headers, body

    def __repr__(self):
        return f"\nGET {self.path}\n{self.status}\n{self.headers}\n{self.body[:2000]!r}"

    @property
    def json(self):
        return json.loads(self.body)

    def is_problem(self, status, kind=None):
        """Asserts a problem document of this status and kind."""
        assert self.status == status, self
        assert self.headers["Content-Type"] == "application/problem+json", self
        assert self.json["status"] == status and self.json["detail"], self
        assert self.json["type"] == ("about:blank" if kind is None else f"urn:qdt:problem:{kind}"), self
        return self


class Web:
    """A server on a free port of the loopback; for `with`."""

    def __init__(self, *words, tls=None):
        self.tls = tls
        self.process = subprocess.Popen([BIN / "nqeweb", "--listen", "127.0.0.1:0", *map(str, words)],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        line = self.process.stdout.readline().decode()
        assert line.startswith("nqeweb: ready at "), (line, self.process.communicate()[1])
        self.url = line.split()[-1]
        self.port = urllib.parse.urlsplit(self.url).port

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.terminate()
        try:
            assert self.process.wait(PATIENCE) == 0
        finally:
            self.process.kill()
            self.process.communicate()

    def connection(self):
        if self.tls is None:
            return http.client.HTTPConnection("127.0.0.1", self.port, timeout=PATIENCE)
        return http.client.HTTPSConnection("127.0.0.1", self.port, timeout=PATIENCE, context=self.tls)

    def ask(self, method, path, body=None, headers=()):
        connection = self.connection()
        try:
            connection.request(method, path, body, dict(headers))
            answer = connection.getresponse()
            return Answer(path, answer.status, answer.headers, answer.read())
        finally:
            connection.close()

    def get(self, path, parameters=(), headers=()):
        """`parameters` are a dictionary or pairs; lists of values are given one by one."""
        query = urllib.parse.urlencode(parameters, doseq=True)
        return self.ask("GET", path + ("?" + query if query else ""), headers=headers)

    def data(self, path, parameters=()):
        """The document at /api/v1/PATH."""
        answer = self.get("/api/v1/" + path, parameters)
        assert answer.status == 200, answer
        return answer.json


def certificate(directory):
    """A certificate for 127.0.0.1 that signs itself: (file, file of its key, what trusts it)."""
    cert, key = directory / "cert.pem", directory / "key.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "2",
                    "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", cert],
                   check=True, capture_output=True)
    return cert, key, ssl.create_default_context(cafile=cert)
