"""The packet trace on simulated traffic: conditions set with nqecli, packets counted and printed by nqed."""

import contextlib
import json
import re
import time

import pytest

from conftest import engine_place, nqecli, nqed, short_directory, wait_until

SCENARIO = """\
ctrlif_map_fwdif:
  - {repeat: 4, ctrl_if_index: {from: 1011, step: 1}, fwd_if_index: {from: 11, step: 1}}
fwdif:
  - {repeat: 4, if_index: {from: 11, step: 1}, enable: 1, pvid: {from: 10, step: 10}}
statistics:
  arp miss: [40, 2]
"""

LABELS = ["Packets from driver number", "Packets to driver number", "Packets from RLK number", "Packets to RLK number"]


class Traced:
    """An engine under traffic, whose standard error is kept in a file."""

    def __init__(self, place, log):
        self.place, self.log = place, log

    def trace(self, *words):
        return self.place.cli("pkt_trace", *words)

    def says(self, text, *words):
        result = self.trace(*words)
        assert (result.out, result.err) == (text + "\n", ""), result

    def counters(self):
        out = self.trace("counter").out
        return [int(re.search(rf"^ {label} +: (\d+)$", out, re.M).group(1)) for label in LABELS]

    def lets_packets_pass(self, number):
        """Waits until so many more have been sent out."""
        def sent():
            result = self.place.cli("statistics", "--json", "Total *transmitted")
            return sum(counter["sum"] for counter in json.loads(result.out)["statistics"])
        before = sent()
        wait_until(lambda: sent() >= before + number, f"{number} packets")

    def left_prints(self):
        return int(re.search(r"^ LeftPrintNum +: (\d+)$", self.trace("show").out, re.M).group(1))

    def is_on(self):
        return int(re.search(r"^ DebugFlag +: (\d+)$", self.trace("show").out, re.M).group(1))

    def lines(self):
        return self.log.read_text().splitlines()


@contextlib.contextmanager
def traffic(rate, *words):
    with engine_place() as place, short_directory() as directory:
        place.scenario.write_text(SCENARIO)
        log = directory / "stderr"
        with open(log, "wb") as stderr:
            place.start("--traffic", str(rate), *words, stderr=stderr)
        yield Traced(place, log)
        place.stop()


@pytest.fixture
def traced():
    with traffic(5000) as running:
        yield running


def test_counters_grow_while_the_trace_is_on(traced):
    assert traced.counters() == [0, 0, 0, 0]
    traced.lets_packets_pass(500)
    assert traced.counters() == [0, 0, 0, 0]
    traced.says("packet trace set enable OK", "enable")
    wait_until(lambda: all(traced.counters()), "packets on all four ways")
    before = traced.counters()
    wait_until(lambda: all(now > then for now, then in zip(traced.counters(), before)), "more of them")
    assert traced.lines() == []  # nobody asked for lines
    traced.says("packet trace set disable OK", "disable")
    still = traced.counters()
    traced.lets_packets_pass(500)
    assert traced.counters() == still
    traced.says("packet trace clear condition OK", "clear")
    assert traced.counters() == [0, 0, 0, 0]


# Conditions, and what each of the lines printed then must hold.
CONDITIONS = [
    (["arp"], "type 0x0806,"),
    (["eth_type", "0x86DD"], "type 0x86dd,"),
    (["eap_key"], ", EAP key,"),
    (["capwap_ka"], ", CAPWAP keepalive,"),
    (["pppoe_ka"], ", PPPoE keepalive,"),
    (["src_fwdif", "12"], ", from if 12"),
    (["dst_fwdif", "13"], " to if 13,"),
    (["vlan", "30"], ", vlan 30,"),
    (["from_cp", "1"], ", from the control plane to if "),
    (["smac", "02:00:5e:90:00:03"], ", 02:00:5e:90:00:03 > "),
    (["sip", "192.0.2.13"], ", 192.0.2.13 > "),
    (["dip", "198.51.100.4"], " > 198.51.100.4 "),
    (["sip6", "2001:db8:0:10::d"], ", 2001:db8:0:10::d > "),
    (["protocol", "17"], " UDP"),
    (["icmp"], " ICMP type "),
    (["icmp_type", "8"], " type 8,"),
    (["dport", "53"], " > 53,"),
    (["tcp_flags", "2"], " flags 0x02,"),
    (["not_first_frag"], ", fragment at "),
    (["last_frag"], " (the last),"),
    (["ip_type", "ipv6"], "type 0x86dd,"),
    (["min_pkt_len", "1514"], ", 1514 bytes"),
    (["discard_type", "all"], ", discarded: "),
    (["discard_type", "car"], ", discarded: car"),
    (["cause_id", "8"], ", cause 8,"),
]


@pytest.mark.parametrize("rate", [20000])
def test_conditions_choose_what_is_printed(rate):
    with traffic(rate) as traced:
        for words, part in CONDITIONS:
            traced.says("packet trace clear condition OK", "clear")
            result = traced.trace("set", *words)
            assert "Error" not in result.out, result
            traced.says("packet trace set print num ok", "set", "print_num", "5")
            seen = len(traced.lines())
            traced.says("packet trace set enable OK", "enable")
            wait_until(lambda: len(traced.lines()) == seen + 5, f"five lines for {words}")
            assert traced.left_prints() == 0
            for line in traced.lines()[seen:]:
                assert line.startswith("nqed: trace: core ") and part in line, (words, line)


def test_without_conditions_all_kinds_are_printed(traced):
    traced.trace("set", "print_num", "256")
    traced.trace("enable")
    wait_until(lambda: len(traced.lines()) == 256, "256 lines")
    kinds = ("type 0x0806", "type 0x86dd", " TCP ", " UDP ", " ICMP ", "CAPWAP keepalive", "EAP key", "discarded: ")

    def all_were_printed():
        # On a busy machine packets come in bursts, of which the first are printed.
        text = "\n".join(traced.lines())
        missing = [kind for kind in kinds if kind not in text]
        if missing:
            traced.trace("set", "print_num", "256")
        return not missing

    wait_until(all_were_printed, "lines of all kinds")


def test_prints_run_out_and_counting_goes_on(traced):
    traced.trace("set", "print_num", "3")
    assert traced.left_prints() == 3
    traced.trace("enable")
    wait_until(lambda: traced.left_prints() == 0, "all lines are printed")
    before = traced.counters()
    wait_until(lambda: traced.counters()[0] > before[0] + 100, "a hundred packets more")
    assert len(traced.lines()) == 3 and traced.is_on() == 1


def test_disable_ends_printing():
    with traffic(100) as traced:
        traced.trace("set", "print_num", "256")
        traced.trace("enable")
        wait_until(lambda: traced.lines(), "a line")
        traced.trace("disable")
        assert traced.left_prints() == 0
        seen = len(traced.lines())
        traced.lets_packets_pass(20)
        # One line may have been on its way.
        assert seen <= len(traced.lines()) <= seen + 1 and len(traced.lines()) < 200


def test_lines_for_the_log_stay_off_the_console(traced):
    traced.trace("set", "print_to_log", "1")
    traced.trace("set", "print_num", "5")
    traced.trace("enable")
    wait_until(lambda: traced.left_prints() == 0, "five lines went to the log")
    assert traced.lines() == []
    traced.trace("set", "print_console", "1")
    traced.trace("set", "print_num", "5")
    wait_until(lambda: len(traced.lines()) == 5, "five lines on both")


def test_timeout_switches_the_trace_off(traced):
    traced.trace("set", "timeout", "1")
    traced.trace("set", "print_num", "1")
    traced.trace("set", "eap_key")
    started = time.monotonic()
    traced.trace("enable")
    wait_until(lambda: traced.is_on() == 0, "the trace is off")
    assert time.monotonic() - started > 0.9
    assert traced.left_prints() == 0


def test_snapshot_keeps_its_own_block(traced, directory):
    copy = directory / "copy"
    traced.place.cli("snapshot", copy).answered("")
    result = nqecli("--snapshot", copy, "pkt_trace", "enable")
    assert "packet trace set enable OK" in result.out, result
    assert traced.is_on() == 0


def test_region_shows_the_block(traced):
    traced.trace("set", "vlan", "30")
    traced.place.cli("engine", "region", "PKT_TRACE_CTX_PTR", "vlan_id").answered("vlan_id 30\n")
    traced.place.cli("engine", "region", "PKT_TRACE_CTX_PTR", "condition").answered("condition 64\n")
    traced.place.cli("engine", "region", "PKT_TRACE_CTX_PTR", "dst_fwd_if_index", "13").answered("dst_fwd_if_index 13\n")


def test_interface_counters_grow(traced):
    def counters():
        shown = traced.place.cli("show", "fwdif", "1011").out
        return {name: int(re.search(rf"^  {name} +: +(\d+)$", shown, re.M).group(1))
                for name in ("InPkts", "InUcPkts", "InBcPkts", "OutPkts", "OutUcPkts", "InBytes", "OutBytes")}

    before = counters()
    wait_until(lambda: all(now > before[name] + 5 for name, now in counters().items()), "interface 11 is in use")
    now = counters()
    # A view may be taken between two stores.
    assert abs(now["InPkts"] - now["InUcPkts"] - now["InBcPkts"]) < 50, now


def test_high_rate_leaves_the_engine_responsive():
    with traffic(1000000) as traced:
        traced.trace("enable")
        wait_until(lambda: traced.counters()[0] > 100000, "100000 packets")
        for _ in range(20):  # a client gives up on an engine that hangs
            assert traced.place.cli("engine", "status").code == 0


def test_a_console_that_nobody_reads_stops_nothing():
    with engine_place() as place:
        place.scenario.write_text(SCENARIO)
        place.start("--traffic", "20000")  # standard error is a pipe that this test does not read
        running = Traced(place, None)
        running.trace("enable")
        for _ in range(8):
            running.trace("set", "print_num", "256")
            wait_until(lambda: running.left_prints() == 0, "256 lines")
        assert place.cli("engine", "status").code == 0
        code, err = place.end()
        assert code == 0
        lines = err.splitlines()
        assert 10 < len(lines) <= 2048 and all(line.startswith("nqed: trace: core ") for line in lines), lines[-1]


def test_without_traffic_nothing_moves(engine):
    engine.cli("pkt_trace", "enable")
    time.sleep(0.1)
    out = engine.cli("pkt_trace", "counter").out
    assert [int(n) for n in re.findall(r": (\d+)$", out, re.M)] == [0, 0, 0, 0], out


@pytest.mark.parametrize("words, part", [
    (["--traffic", "0"], '--traffic "0" is not a number from 1 to 1000000'),
    (["--traffic", "1000001"], "is not a number from 1 to 1000000"),
    (["--traffic", "fast"], '--traffic "fast" is not a number'),
    (["--traffic"], "--traffic needs a value"),
    (["--cores", "0"], '--cores "0" is not a number from 1 to 64'),
    (["--cores", "65"], "is not a number from 1 to 64"),
    (["--cores=4x"], '--cores "4x" is not a number'),
    (["--cores", "1"], "statistics.arp miss: 2 numbers are too many (the engine has 1 cores; --cores tells it)"),
])
def test_wrong_options(place, words, part):
    place.scenario.write_text(SCENARIO)
    result = nqed("--scenario", place.scenario, "--arena", place.arena, *words)
    result.failed(part, tool="nqed")
    assert place.leftovers() == []


def test_traffic_needs_interfaces(place):
    result = nqed("--scenario", place.scenario, "--arena", place.arena, "--traffic", "10")
    result.failed("--traffic needs two forwarding interfaces; add entries to the scenario's fwdif", tool="nqed")
    assert place.leftovers() == []
