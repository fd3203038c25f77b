"""nqecli agent egn-..., perf-mode-set, nat-group-usage: what switches the engine, and what it answers."""

import pytest

from conftest import site_of
from engine_texts import EGN_HELP

SCENARIO = """\
session:
  - {index: 1, valid: 1, aging_time: 65535, positive: {source: 192.0.2.1, destination: 192.0.2.2}, sac: {app_id: 1001}}
  - {index: 2, valid: 1, aging_time: 65535, positive: {source: 192.0.2.3, destination: 192.0.2.4}}
nat_policy:
  - {name: staff, action: source-nat, address_group: 1, hits: 5}
  - {name: guests, action: source-nat, address_group: 2, hits: 7}
  - {name: stay, action: no-nat}
"""


@pytest.fixture
def site():
    with site_of(SCENARIO) as running:
        yield running


def status(error="off", info="off", statistic="off", threshold=10):
    return (f"  Debug error      :  {error}\n"
            "  Debug warning    :  off\n"
            f"  Debug info       :  {info}\n"
            "  Debug packet     :  off\n"
            f"  Statistic        :  {statistic}\n"
            f"  DetectThreshold  :  {threshold}\n")


def test_what_is_switched_shows(site):
    agent = lambda *words: site.engine.cli("agent", *words)
    agent("egn-info-query", "info-type=status").answered(status())
    agent("egn-dbg-switch-set", "level=error", "switch=on").answered("debug-level error is on\n")
    agent("egn-dbg-switch-set", "level=info", "switch=on").answered("debug-level info is on\n")
    agent("egn-dbg-switch-set", "level=error", "switch=off").answered("debug-level error is off\n")
    agent("egn-stat-switch-set", "switch=on").answered("statistic is on\n")
    agent("egn-detect-threshold-set", "threshold-value=25").answered("detect-threshold is 25\n")
    agent("egn-info-query", "info-type=status").answered(status(info="on", statistic="on", threshold=25))
    agent("egn-stat-reset", "stat-type=all").answered("statistic is reset\n")
    agent("egn-info-query", "info-type=statistic").answered(
        "  Sessions         :  2\n"
        "  Identified       :  1\n"
        "  DeniedPackets    :  0\n"
        "  LimitedPackets   :  0\n")


@pytest.mark.parametrize("words", [
    ["egn-info-query"], ["egn-dbg-switch-set"], ["egn-dbg-switch-set", "switch=on"],
    ["egn-dbg-switch-set", "level=error"], ["egn-stat-switch-set"], ["egn-detect-threshold-set"], ["egn-stat-reset"],
])
def test_help_without_parameters(site, words):
    # The usage in place of an answer: that is a failure.
    site.engine.cli("agent", *words).refused(EGN_HELP)
    site.engine.cli("agent", "egn-info-query", "info-type=status").answered(status())


def test_performance_mode(site):
    show = lambda: site.engine.cli("engine", "perf-mode")
    show().answered("performance mode is off\n")
    site.engine.cli("agent", "perf-mode-set", "enable=true").answered("performance mode is on\n")
    show().answered("performance mode is on\n")
    site.engine.cli("agent", "perf-mode-set").answered("performance mode is off\n")
    show().answered("performance mode is off\n")


def test_nat_address_groups(site):
    one = "  AddressGroup :  1\n  Rules        :  staff\n  Hits         :  5\n"
    two = "  AddressGroup :  2\n  Rules        :  guests\n  Hits         :  7\n"
    site.engine.cli("agent", "nat-group-usage").answered(one + "\n" + two)
    site.engine.cli("agent", "nat-group-usage", "id=2").answered(two)
    site.engine.cli("agent", "nat-group-usage", "id=9").answered(
        "no rule of the NAT policy takes addresses from group 9\n")


def test_what_has_no_engine(place):
    place.cli("agent", "egn-info-query").failed(str(place.arena))
