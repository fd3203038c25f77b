"""nqecli engine, and what the engine answers to its commands region and nat."""

import pytest

from conftest import nqecli, site_of


def test_reply_goes_to_standard_output(engine):
    engine.cli("engine", "diag", "search", "nqpTable", "1", "0", "1005", "0", "0").answered(
        engine.cli("show", "ctrlif_map_fwdif", "1005").out)
    status = engine.cli("engine", "status")
    assert status.code == 0 and status.out.startswith(f"pid       {engine.process.pid}\n"), status
    words = engine.cli("engine", "help")
    for name in ("clear", "diag", "help", "nat", "region", "snapshot", "status"):
        assert f"\n  {name} " in "\n" + words.out, words


@pytest.mark.parametrize("words", [["two words"], ["it's"], ["a \"b\" 'c'"], [""], ["\t"], ["'"], ["\"'\"'"]])
def test_words_arrive_as_they_are(engine, words):
    shown = words[0].replace("\t", "?")
    engine.cli("engine", *words).failed(f'unknown command "{shown}"', code=1)


def test_refusals_are_the_engines_line(engine):
    engine.cli("engine", "clear").failed("clear what?", code=1)
    engine.cli("engine", "x" * 100000).failed("unknown command", "...", code=1)
    engine.cli("engine", "nat").failed("nat what?", "query-nat-policy", code=1)
    engine.cli("engine", "nat", "query-nat-policy", "ruleName", "x", "y").failed(
        "nat query-nat-policy ruleName NAME", code=1)
    engine.cli("engine", "nat", "query-nat-policy", "ruleName", "x").failed('no rule "x"', code=1)


def test_what_takes_no_engine_line(engine, directory):
    engine.cli("engine").failed("engine help")
    engine.cli("engine", "snapshot").failed("nqecli snapshot FILE")
    engine.cli("snapshot", directory / "copy").answered("")
    nqecli("--snapshot", directory / "copy", "engine", "status").failed("running engine")


def test_without_engine(place):
    place.cli("engine", "status").failed(str(place.arena))


@pytest.mark.parametrize("words, part", [
    (["IPP_SESSION_AGING_TIM"], "did you mean IPP_SESSION_AGING_TIME?"),
    (["elsewhere"], '"region" lists them'),
    (["SCHED_TRACE_SSMAP_PTR"], "no fields yet"),
    (["IPP_SESSION_AGING_TIME", "tpc"], "did you mean tcp?"),
    (["IPP_SESSION_AGING_TIME", "temperature"], '"region IPP_SESSION_AGING_TIME" lists them'),
    (["IPP_SESSION_AGING_TIME", "tcp", "65536"], "65536 does not fit 16 bits (0 to 65535)"),
    (["IPP_SESSION_AGING_TIME", "tcp", "-1"], "-1 does not fit 16 bits (0 to 65535)"),
    (["IPP_SESSION_AGING_TIME", "tcp", "ten"], '"ten" is not a number'),
    (["IPP_SESSION_AGING_TIME", "tcp", ""], '"" is not a number'),
    (["IPP_SESSION_AGING_TIME", "tcp", "1", "2"], "too many words"),
    (["APP_SESSION_AGING_TIME", "apps[53].ttl", "1"], "no value"),
    (["APP_SESSION_AGING_TIME", "apps", "1"], "no value"),
])
def test_region_refusals(campus, words, part):
    before = campus.engine.cli("engine", "region", "IPP_SESSION_AGING_TIME").out
    campus.engine.cli("engine", "region", *words).failed(part, code=1)
    assert campus.engine.cli("engine", "region", "IPP_SESSION_AGING_TIME").out == before


def test_regions(campus):
    names = campus.engine.cli("engine", "region").out.splitlines()
    assert {"IPP_SESSION_AGING_TIME", "APP_SESSION_AGING_TIME"} <= set(names), names
    campus.engine.cli("engine", "region", "APP_SESSION_AGING_TIME", "apps[2].ttl").answered("apps[2].ttl 15\n")


def test_nat_rules_by_name():
    with site_of("""\
nat_policy:
  - {name: short, action: no-nat}
  - {name: whole, source: 192.0.2.0/24, destination: 198.51.100.7/32, service: udp 53, egress: 0x10, action: source-nat,
     address_group: 3, hits: 18446744073709551615}
""") as site:
        site.engine.cli("engine", "nat", "query-nat-policy", "ruleName", "short").answered("""\
  RuleName     :  short
  Source       :  any
  Destination  :  any
  Service      :  any
  EgressIfIdx  :  0
  Action       :  no-nat
  AddressGroup :  0
  Hits         :  0
""")
        site.engine.cli("show", "67", "whole").answered("""\
------------------------------
  RuleName     :  whole
  Source       :  192.0.2.0/24
  Destination  :  198.51.100.7/32
  Service      :  udp 53
  EgressIfIdx  :  0x10
  Action       :  source-nat
  AddressGroup :  3
  Hits         :  18446744073709551615
------------------------------
""")


def test_nat_policy_of_an_engine_that_dies(place):
    place.start()
    place.end(9)
    place.cli("show", "nat_policy", "x").failed("the engine is gone")
