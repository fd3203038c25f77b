"""The dashboards: their files against what is used of their format, and each question of theirs asked of a Prometheus that
scrapes engines with traffic, so that no panel stays empty."""

import copy
import itertools
import json
import math
import re
import signal
import urllib.parse

import jsonschema
import pytest
from fleet import DEPLOY, ROOT, fleet, get, scaled, wait_until

FACTOR, INTERVAL = 360, 1  # an hour is 10 seconds
DASHBOARDS = {file.stem: json.loads(file.read_text()) for file in sorted((DEPLOY / "grafana").glob("*.json"))}
SCHEMA = json.loads((ROOT / "tests" / "fleet" / "dashboard.schema.json").read_text())
DEVICE, MANY = "gateway-1", ("ap-1", "ap-2")


def problems(dashboard):
    return [f"{'/'.join(map(str, error.absolute_path))}: {error.message[:200]}" for error in
            jsonschema.Draft202012Validator(SCHEMA).iter_errors(dashboard)]


@pytest.mark.parametrize("name", DASHBOARDS)
def test_files_have_the_format(name):
    jsonschema.Draft202012Validator.check_schema(SCHEMA)
    dashboard = DASHBOARDS[name]
    assert problems(dashboard) == []
    # Panels fit 24 columns, and none stands on another.
    places = [panel["gridPos"] for panel in dashboard["panels"]]
    assert all(at["x"] + at["w"] <= 24 for at in places)
    for one, other in itertools.combinations(places, 2):
        beside = one["x"] + one["w"] <= other["x"] or other["x"] + other["w"] <= one["x"]
        assert beside or one["y"] + one["h"] <= other["y"] or other["y"] + other["h"] <= one["y"], (one, other)
    # Links lead to dashboards that there are, with variables that those have.
    for url in re.findall(r'"url": "/d/([^"]+)"', json.dumps(dashboard)):
        target, _, words = url.partition("?")
        variables = {f"var-{variable['name']}" for variable in DASHBOARDS[target]["templating"]["list"]}
        assert {word.split("=")[0] for word in words.split("&") if word} <= variables, url


@pytest.mark.parametrize("spoil", [
    lambda panel: panel.update(type="graph"), lambda panel: panel["fieldConfig"]["defaults"].update(unit="furlongs"),
    lambda panel: panel.pop("targets"), lambda panel: panel["targets"][0].pop("expr"), lambda panel: panel["gridPos"].update(w=25),
    lambda panel: panel["datasource"].update(uid="local"), lambda panel: panel.update(tragets=[]),
])
def test_a_wrong_file_is_noticed(spoil):
    dashboard = copy.deepcopy(DASHBOARDS["nqe-engine"])
    spoil(dashboard["panels"][0])
    assert problems(dashboard)


@pytest.fixture(scope="module")
def site():
    with fleet() as made:
        made.words = {name: ["--scenario", ROOT / "examples" / "campus.yaml", "--traffic", "500"] for name in (DEVICE, *MANY)}
        made.start_engines(made.words)
        single, many = made.start_web([DEVICE]), made.start_web(MANY)
        made.start_prometheus(made.configure(FACTOR, INTERVAL, {DEVICE: single}, {many: list(MANY)}))
        yield made


def filled_in(expression, **variables):
    """As Grafana asks: variables by their values, ranges as short as the rules' are here."""
    for name, value in {**variables, "__rate_interval": "10s"}.items():
        expression = re.sub(rf"\$(\{{{name}\}}|{name}\b)", lambda _, value=value: value, expression)
    assert "$" not in expression, expression
    return scaled(expression, FACTOR)


def numbers(series):
    return [(labels, value) for labels, value in series if math.isfinite(value)]


# What people choose: all of it, one engine that has a console of its own, one of many.
CHOICES = [{"job": ".*", "instance": DEVICE}, {"job": "nqe", "instance": DEVICE}, {"job": "(nqe|nqe-probe)", "instance": MANY[0]}]


def questions():
    for name, dashboard in DASHBOARDS.items():
        for panel in dashboard["panels"]:
            for target in panel.get("targets", ()):
                yield pytest.param(target, id=f"{name}: {panel['title']} {target['refId']}")


@pytest.mark.parametrize("target", questions())
def test_each_panel_shows_something(site, target):
    for choice in CHOICES:
        expression = filled_in(target["expr"], **choice)
        series = wait_until(lambda expression=expression: numbers(site.query(expression)), f"something of {expression}")
        # What the legend names is there.
        for labels, _ in series:
            assert set(re.findall(r"\{\{(\w+)\}\}", target["legendFormat"])) <= set(labels), (expression, labels)
        # Several lines are told from each other.
        if "{{" in target["legendFormat"]:
            assert len({tuple(labels.items()) for labels, _ in series}) == len(series)


@pytest.mark.parametrize("name", DASHBOARDS)
def test_variables_have_values(site, name):
    for variable in DASHBOARDS[name]["templating"]["list"]:
        if variable["type"] != "query":
            continue
        assert variable["query"]["query"] == variable["definition"]
        selector, label = re.fullmatch(r"label_values\((.+), (\w+)\)", variable["definition"]).groups()
        asked = urllib.parse.urlencode({"match[]": filled_in(selector, job=".*")})
        values = wait_until(lambda: json.loads(get(f"http://{site.prometheus}/api/v1/label/{label}/values?{asked}"))["data"],
                            f"values of {variable['name']}")
        wanted = {"job": {"nqe", "nqe-probe"}, "instance": {DEVICE, *MANY}}[variable["name"]]
        assert wanted <= set(values), values


def test_an_engine_that_starts_anew_is_marked(site):
    engine = site.engines[DEVICE]
    engine.send_signal(signal.SIGTERM)
    engine.wait()
    wait_until(lambda: site.number(f'nqe_up{{instance="{DEVICE}"}}') == 0, "its end")
    site.start_engines({DEVICE: site.words[DEVICE]})
    for dashboard in DASHBOARDS.values():
        for note in dashboard["annotations"]["list"]:
            asked = filled_in(note["expr"], job="nqe", instance=DEVICE)
            # It stands there for as long as the range is; a page asks over its whole time.
            wait_until(lambda asked=asked: site.query(f"max_over_time(({asked})[60s:1s])"), f"{note['name']} by {asked}")
