"""Debian's Prometheus against 200 engines, with the rules of deploy/prometheus whose hours are seconds here."""

import os
import signal
import subprocess

import pytest
from fleet import BIN, fleet, get, wait_until

FACTOR = 180  # an hour is 20 seconds
INTERVAL = 2
COUNT = 200
FILLED, GONE, STALE, DEVICE = "ap-117", "ap-042", "ap-007", "gateway-1"
CAPACITY = 800

SMALL = """\
fwdif: [{repeat: 4, if_index: {from: 1, step: 1}, enable: 1, counters: [{in_packets: 5, in_bytes: 500}]}]
nhp: [{repeat: 3, index: {from: 1, step: 1}}]
fib: [{prefix: 24, vpn: 0, destination: 192.0.2.0, nhp_index: 1, next_hop: {nhp: {index: 1}}}]
"""
BOUND_TO_NOTHING = SMALL.replace("{nhp: {index: 1}}", "{nhp: {stale: {index: 1}}}")


@pytest.fixture(scope="module")
def kernel():
    """A network namespace whose neighbours an engine mirrors."""
    name = f"nqe-fleet-{os.getpid()}"
    subprocess.run(["ip", "netns", "add", name], check=True)
    try:
        ip(name, "link add up0 type veth peer name far0\nlink set up0 up\nlink set far0 up\n"
                 "addr add 10.0.0.1/16 dev up0\n")
        yield name
    finally:
        subprocess.run(["ip", "netns", "del", name], check=True)


def ip(namespace, batch):
    subprocess.run(["ip", "-n", namespace, "-batch", "-"], input=batch, text=True, check=True)


def add_neighbours(namespace, first, count):
    ip(namespace, "".join(
        f"neigh add 10.0.{number // 250 + 1}.{number % 250 + 1} lladdr 02:00:5e:00:{number // 256:02x}:{number % 256:02x} "
        "nud permanent dev up0\n" for number in range(first, first + count)))


@pytest.fixture(scope="module")
def site(kernel):
    with fleet() as made:
        (made.directory / "small.yaml").write_text(SMALL)
        (made.directory / "stale.yaml").write_text(BOUND_TO_NOTHING)
        words = {f"ap-{number:03}": ["--scenario", made.directory / "small.yaml"] for number in range(1, COUNT)}
        words[STALE] = ["--scenario", made.directory / "stale.yaml"]
        words[FILLED] = ["--linux", "--netns", kernel, "--capacity", f"arp={CAPACITY}"]
        words[DEVICE] = ["--scenario", made.directory / "small.yaml", "--traffic", "500"]
        made.words = words
        made.start_engines(words)
        many = made.start_web([name for name in words if name != DEVICE])
        single = made.start_web([DEVICE])
        made.many, made.single = many, single
        config = made.configure(FACTOR, INTERVAL, {DEVICE: single}, {many: [name for name in words if name != DEVICE]})
        made.start_prometheus(config)
        wait_until(lambda: made.number('sum(nqe_up{target=""})') == COUNT, "all engines to be up in Prometheus")
        yield made


def test_all_are_scraped(site):
    assert site.number("count(up)") == COUNT + 1  # and the nqeweb of many itself
    assert site.number("sum(up)") == COUNT + 1
    wait_until(lambda: site.number("job:nqe_up:sum{job='nqe-probe'}") == COUNT - 1, "the recording rules")
    assert site.number("job:nqe_engines:count{job='nqe'}") == 1
    # The exporter of many says of each whether it is there.
    assert site.number('count(nqe_up{job="nqe-exporter",target!=""} == 1)') == COUNT - 1
    [(labels, _)] = site.query(f'nqe_info{{instance="{DEVICE}"}}')
    assert (labels["job"], labels["source"]) == ("nqe", "engine")
    assert "device" not in labels
    wait_until(lambda: site.number(f'instance:nqe_discarded_packets:rate5m{{instance="{DEVICE}"}}'),
               "what simulated traffic discards")


def test_stale_bindings_are_named(site):
    wait_until(lambda: site.firing("NqeStaleBindings"), "NqeStaleBindings to fire")
    assert [(alert["instance"], alert["table"]) for alert in site.firing("NqeStaleBindings")] == [(STALE, "fib")]


def test_a_table_that_fills_is_named(site, kernel):
    assert site.firing("NqeTableFillsSoon") == []
    # More than half at once, then bit by bit until somebody notices.
    used = CAPACITY * 55 // 100
    add_neighbours(kernel, 0, used)
    while not site.firing("NqeTableFillsSoon"):
        assert used + 2 < CAPACITY, "the table is full, and nobody has said that it would be"
        add_neighbours(kernel, used, 2)
        used += 2
        wait_until(lambda: site.number(f'nqe_table_entries{{instance="{FILLED}",table="arp"}}') >= used,
                   "Prometheus to see the entries")
    [alert] = site.firing("NqeTableFillsSoon")
    assert (alert["job"], alert["instance"], alert["table"], alert["severity"]) == ("nqe-probe", FILLED, "arp", "ticket")
    wait_until(lambda: site.told("NqeTableFillsSoon"), "Alertmanager to hear of it")
    assert site.told("NqeTableFillsSoon") == [f"Table arp of {FILLED} fills within four hours"]
    # To the brim.
    add_neighbours(kernel, used, CAPACITY - used)
    wait_until(lambda: site.firing("NqeTableFull"), "NqeTableFull to fire")
    assert [(alert["instance"], alert["table"]) for alert in site.firing("NqeTableFull")] == [(FILLED, "arp")]


def test_an_engine_that_ends_and_comes_back(site):
    assert site.firing("NqeEngineGone") == []
    gone = site.engines[GONE]
    gone.send_signal(signal.SIGKILL)
    gone.wait()
    wait_until(lambda: site.firing("NqeEngineGone"), "NqeEngineGone to fire")
    assert [alert["instance"] for alert in site.firing("NqeEngineGone")] == [GONE]
    assert get(f"http://{site.many}/probe?target={GONE}").endswith("\nnqe_up 0\n")
    assert site.number('sum(nqe_up{target=""})') == COUNT - 1
    site.start_engines({GONE: site.words[GONE]})
    wait_until(lambda: not site.firing("NqeEngineGone"), "NqeEngineGone to go")
    assert site.number(f'nqe_up{{instance="{GONE}"}}') == 1


def test_what_a_scrape_says_pleases_promtool(site):
    for url in (f"http://{site.single}/metrics", f"http://{site.many}/probe?target={FILLED}", f"http://{site.many}/metrics"):
        text = get(url)
        done = subprocess.run(["promtool", "check", "metrics"], input=text, text=True, capture_output=True, check=False)
        assert (done.returncode, done.stdout, done.stderr) == (0, "", ""), text


def test_requests_that_name_no_target(site):
    for wrong, status in ((f"/probe?target={site.directory}/{FILLED}", 404), ("/probe?target=../ap-001", 404),
                          ("/probe?target=ap-001%00", 400), ("/probe?target=", 404), ("/probe", 400),
                          ("/probe?target=ap-001&target=ap-002", 400), ("/probe?target=ap-001&x=1", 400),
                          ("/metrics?x=1", 400)):
        text = get(f"http://{site.many}{wrong}")
        assert f'"status":{status},' in text, (wrong, text)
