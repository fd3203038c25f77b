"""A fleet on this machine: many engines, nqeweb before them, Debian's Prometheus and Alertmanager with the files of
deploy/prometheus, everything on loopback and in a directory of its own."""

import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import urllib.error
import urllib.parse
import urllib.request

ROOT = pathlib.Path(__file__).resolve().parents[2]
BIN = pathlib.Path(os.environ.get("QDT_BIN", ROOT / "build" / "bin")).resolve()
DEPLOY = ROOT / "deploy" / "prometheus"
PATIENCE = 180  # seconds that anything may take before it is called hanging


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def get(url):
    """The body of an answer, whatever its status."""
    try:
        with urllib.request.urlopen(url, timeout=PATIENCE) as answer:
            return answer.read().decode()
    except urllib.error.HTTPError as error:
        return error.read().decode()


def answers(url):
    try:
        with urllib.request.urlopen(url, timeout=5):
            return True
    except (urllib.error.URLError, OSError):
        return False


def wait_until(condition, what, beat=0.2):
    """What `condition` gives once it is true."""
    deadline = time.monotonic() + PATIENCE
    while True:
        found = condition()
        if found:
            return found
        assert time.monotonic() < deadline, f"waited {PATIENCE} s for: {what}"
        time.sleep(beat)


SECONDS = {"s": 1, "m": 60, "h": 3600, "d": 86400}


def scaled(text, factor, least=10):
    """Rules whose hours are seconds: ranges, offsets, waits, intervals and forecasts, `factor` times as short. Ranges keep
    room for some scrapes."""
    def short(match, floor):
        return f"{max(floor, int(match[2]) * SECONDS[match[3]] // factor)}s"

    text = re.sub(r"(\[)(\d+)([smhd])\]", lambda m: f"[{short(m, least)}]", text)
    text = re.sub(r"(offset )(\d+)([smhd])", lambda m: m[1] + short(m, 1), text)
    text = re.sub(r"((?:for|interval): )(\d+)([smhd])", lambda m: m[1] + short(m, 1), text)
    return re.sub(r"4 \* 3600", str(4 * 3600 // factor), text)


class Fleet:
    """Ends whatever it has started, by its process."""

    def __init__(self):
        # Socket paths have little room.
        self.directory = pathlib.Path(tempfile.mkdtemp(prefix="nqe-fleet-"))
        os.chmod(self.directory, 0o755)
        self.running = []
        self.engines = {}
        self.prometheus = self.alertmanager = None

    def close(self):
        for process in self.running:
            if process.poll() is None:
                process.send_signal(signal.SIGTERM)
        for process in self.running:
            try:
                process.wait(timeout=60)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
            if process.stdout is not None:
                process.stdout.close()
        shutil.rmtree(self.directory)

    def spawn(self, *words, log=None):
        out = open(self.directory / log, "wb") if log else subprocess.PIPE
        process = subprocess.Popen([str(word) for word in words], stdin=subprocess.DEVNULL, stdout=out,
                                   stderr=subprocess.STDOUT)
        if log:
            out.close()
        self.running.append(process)
        return process

    @staticmethod
    def ready(process, mark):
        line = process.stdout.readline().decode()
        assert mark in line, line + process.stdout.read().decode()
        return line

    def start_engines(self, engines, at_a_time=8):
        """`engines` are names with the words that nqed takes."""
        names = list(engines)
        for first in range(0, len(names), at_a_time):
            some = names[first:first + at_a_time]
            for name in some:
                self.engines[name] = self.spawn(BIN / "nqed", *engines[name], "--arena", self.directory / name)
            for name in some:
                self.ready(self.engines[name], "nqed: ready")

    def start_web(self, names):
        """One nqeweb for the engines of these names; its address."""
        words = [word for name in names for word in ("--arena", self.directory / name)]
        process = self.spawn(BIN / "nqeweb", *words, "--listen", "127.0.0.1:0")
        line = self.ready(process, "ready at http://")
        self.web = process
        return re.search(r"http://([0-9.:]+)/", line)[1]

    def configure(self, factor, interval, devices, arenas):
        """The files of deploy/prometheus for this machine. `devices`: addresses of nqeweb by the names of devices;
        `arenas`: names by the address of the nqeweb that has them."""
        config = self.directory / "prometheus"
        shutil.copytree(DEPLOY, config)
        self.prometheus, self.alertmanager = f"127.0.0.1:{free_port()}", f"127.0.0.1:{free_port()}"
        main = (config / "prometheus.yml").read_text()
        main, count = re.subn(r"(scrape_interval|evaluation_interval): \d+s", rf"\1: {interval}s", main)
        assert count == 2
        main = main.replace("scrape_timeout: 10s", f"scrape_timeout: {interval}s")
        assert "127.0.0.1:9093" in main
        (config / "prometheus.yml").write_text(main.replace("127.0.0.1:9093", self.alertmanager))
        for rules in (config / "rules").iterdir():
            rules.write_text(scaled(rules.read_text(), factor))
        targets = config / "targets"
        (targets / "devices.yml").write_text(json.dumps(
            [{"targets": [address], "labels": {"device": name}} for name, address in devices.items()]))
        (targets / "arenas.yml").write_text(json.dumps(
            [{"targets": names, "labels": {"__exporter__": address}} for address, names in arenas.items()]))
        (targets / "exporters.yml").write_text(json.dumps([{"targets": list(arenas)}]))
        return config

    def start_prometheus(self, config, *words):
        self.spawn("prometheus-alertmanager", f"--config.file={config / 'alertmanager.yml'}",
                   f"--storage.path={self.directory / 'alerts'}", f"--web.listen-address={self.alertmanager}",
                   "--cluster.listen-address=", log="alertmanager.log")
        self.database = self.spawn("prometheus", f"--config.file={config / 'prometheus.yml'}",
                                   f"--storage.tsdb.path={self.directory / 'data'}",
                                   f"--web.listen-address={self.prometheus}", *words, log="prometheus.log")
        for address in (self.prometheus, self.alertmanager):
            wait_until(lambda: answers(f"http://{address}/-/ready"), f"{address} to be ready")

    def query(self, expression):
        """The samples of an instant query, as (labels, value)."""
        text = get(f"http://{self.prometheus}/api/v1/query?" + urllib.parse.urlencode({"query": expression}))
        answer = json.loads(text)
        assert answer["status"] == "success", text
        return [(sample["metric"], float(sample["value"][1])) for sample in answer["data"]["result"]]

    def number(self, expression):
        """The value of a query for one; None where there is nothing yet."""
        samples = self.query(expression)
        return samples[0][1] if samples else None

    def firing(self, name):
        """Labels of the alerts of a name that fire."""
        alerts = json.loads(get(f"http://{self.prometheus}/api/v1/alerts"))["data"]["alerts"]
        return [alert["labels"] for alert in alerts
                if alert["labels"]["alertname"] == name and alert["state"] == "firing"]

    def told(self, name):
        """Summaries of the alerts of a name that Alertmanager holds."""
        filters = urllib.parse.urlencode({"filter": f'alertname="{name}"'})
        return [alert["annotations"]["summary"]
                for alert in json.loads(get(f"http://{self.alertmanager}/api/v2/alerts?{filters}"))]


@contextlib.contextmanager
def fleet():
    made = Fleet()
    try:
        yield made
    finally:
        made.close()
