"""The files of deploy/prometheus: the tools of their makers take them, each rule has a test, and whatever they ask for is
something that an engine or a rule gives."""

import json
import re
import subprocess

import pytest
import yaml
from fleet import DEPLOY, ROOT, fleet, get

RULES = sorted((DEPLOY / "rules").glob("*.yml"))
TESTS = sorted((DEPLOY / "tests").glob("*.yml"))
DASHBOARDS = sorted((DEPLOY / "grafana").glob("*.json"))


def tool(*words):
    done = subprocess.run([str(word) for word in words], text=True, capture_output=True, check=False, timeout=120)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def all_rules():
    return [rule for file in RULES for group in yaml.safe_load(file.read_text())["groups"] for rule in group["rules"]]


@pytest.fixture(scope="module")
def scrape():
    """What an engine on the campus site gives, once its findings are counted."""
    with fleet() as made:
        made.start_engines({"ap": ["--scenario", ROOT / "examples" / "campus.yaml"]})
        address = made.start_web(["ap"])
        text = ""
        while "nqe_survey_time_seconds" not in text:
            text = get(f"http://{address}/metrics")
        yield text


def test_configurations_are_valid():
    tool("promtool", "check", "config", DEPLOY / "prometheus.yml")
    tool("promtool", "check", "config", DEPLOY / "shard.yml")
    tool("promtool", "check", "config", DEPLOY / "global.yml")
    tool("amtool", "check-config", DEPLOY / "alertmanager.yml")


def test_rules_do_what_their_tests_say():
    assert RULES and TESTS
    tool("promtool", "test", "rules", *TESTS)


def test_each_rule_has_a_test():
    tests = [case for file in TESTS for case in yaml.safe_load(file.read_text())["tests"]]
    fires = {check["alertname"] for case in tests for check in case.get("alert_rule_test", ()) if check.get("exp_alerts")}
    rests = {check["alertname"] for case in tests for check in case.get("alert_rule_test", ())
             if not check.get("exp_alerts")}
    asked = " ".join(check["expr"] for case in tests for check in case.get("promql_expr_test", ()))
    for rule in all_rules():
        if "alert" in rule:
            assert rule["alert"] in fires and rule["alert"] in rests, rule["alert"]
        elif rule["record"] not in asked:
            # Else what is made of it has one.
            users = [other for other in all_rules() if rule["record"] in other["expr"]]
            assert any(user.get("record", "?") in asked or user.get("alert") in fires for user in users), rule["record"]


def known_names(scrape):
    names = set(re.findall(r"^# TYPE (\S+) ", scrape, re.M))
    return names | {rule["record"] for rule in all_rules() if "record" in rule} | {"nqe_snapshot_time_seconds"}


def asked_names(expression):
    return set(re.findall(r"\b(?:[a-z_0-9]+:)?nqe_[a-zA-Z0-9_:]+", expression))


def test_rules_ask_for_what_there_is(scrape):
    for rule in all_rules():
        assert asked_names(rule["expr"]) <= known_names(scrape), rule


def expressions(dashboard):
    for panel in dashboard["panels"]:
        for target in panel.get("targets", ()):
            yield panel["title"], target["expr"]
    for note in dashboard["annotations"]["list"]:
        yield note["name"], note["expr"]


@pytest.mark.parametrize("file", DASHBOARDS, ids=lambda file: file.stem)
def test_dashboards_ask_for_what_there_is(file, scrape, tmp_path):
    dashboard = json.loads(file.read_text())
    assert dashboard["uid"] == file.stem and dashboard["schemaVersion"] > 30
    ids = [panel["id"] for panel in dashboard["panels"]]
    assert len(ids) == len(set(ids)) and ids
    variables = {variable["name"] for variable in dashboard["templating"]["list"]} | {"__rate_interval"}
    asked = list(expressions(dashboard))
    assert asked
    for title, expression in asked:
        assert asked_names(expression), (title, expression)
        assert asked_names(expression) <= known_names(scrape), (title, expression)
        assert set(re.findall(r"\$\{?(\w+)", expression)) <= variables, (title, expression)
    # Whether they are PromQL at all is told by a tool that reads rules.
    rules = [{"record": f"panel:{place}:check", "expr": expression.replace("$__rate_interval", "5m")}
             for place, (_, expression) in enumerate(asked)]
    written = tmp_path / "rules.yml"
    written.write_text(yaml.safe_dump({"groups": [{"name": "panels", "rules": rules}]}))
    tool("promtool", "check", "rules", written)


def test_the_document_names_all_of_it(scrape):
    text = (ROOT / "docs" / "metrics.md").read_text()
    named = set(re.findall(r"nqe_[a-z0-9_]+", text.split("## Bounds")[0]))
    given = set(re.findall(r"^# TYPE (\S+) ", scrape, re.M)) | {"nqe_snapshot_time_seconds"}
    # Families of which the document names one.
    alike = ("nqe_fwdif_out_", "nqe_buf_cache_stat_")
    assert {name for name in given if not name.startswith(alike)} == {name for name in named if not name.startswith(alike)}
    assert {name for name in named if name.startswith(alike)} <= given
    for rule in all_rules():
        assert rule.get("alert", "") in text


def test_a_scrape_keeps_to_its_bounds(scrape):
    assert len(scrape.encode()) <= 64 * 1024
    series = [line for line in scrape.splitlines() if not line.startswith("#")]
    limits = [int(number) for number in re.findall(r"sample_limit: (\d+)", (DEPLOY / "prometheus.yml").read_text())]
    assert limits == [5000, 5000] and len(series) < 5000
    # No address of a packet, a station or a user.
    for line in series:
        assert not re.search(r"\d+\.\d+\.\d+\.\d+|([0-9a-f]{2}:){5}|[0-9a-f]+::", line.rsplit(" ", 1)[0]), line
