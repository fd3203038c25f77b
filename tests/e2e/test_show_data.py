"""show --json, --ndjson and --csv: the records of every view, held against the table's list and the view's text."""

import csv
import io
import json
import re

import pytest
import yaml

from conftest import ROOT, nqecli, site_of
from schemas import valid

VIEWS = {}
for file in (ROOT / "host" / "layout").glob("*.yaml"):
    VIEWS.update(yaml.safe_load(file.read_text()).get("views") or {})

# How the entries of a view's table are asked for: the keys typed for the one that a record of the table's list
# belongs to. `ctrl` leads from forwarding interfaces to those of the control plane. None: the whole table.
def of(*fields):
    return lambda record, ctrl: " ".join(str(record[field]) for field in fields)


def station_address(record, ctrl):
    if record["address"].count(":") == 5 and "::" not in record["address"]:
        return f"{record['address']} 2 {record['key_type']}"
    return f"{record['address']} {0 if '.' in record['address'] else 1}"


QUERIES = {
    "fwdif": lambda record, ctrl: str(ctrl[record["if_index"]]),
    "ctrlif_map_fwdif": of("ctrl_if_index"),
    "flowif_map_fwdif": of("flow_if_index"),
    "fib": of("destination", "prefix", "vpn"),
    "nhp": of("index"),
    "nhp_group": of("index"),
    "arp": of("next_hop", "vpn"),
    "arp_miss_cache": of("next_hop", "vpn"),
    # Lists 501 to 503 are those of the forwarding interfaces 201 to 203, which the control plane knows as 3010 and on.
    "portip": lambda record, ctrl: str(ctrl[record["list_id"] - 300]),
    "bridgeinfo": of("index"),
    "global": lambda record, ctrl: "",
    "acl_group": of("group_type", "group_id"),
    "acl_rule": of("group_type", "group_id", "priority"),
    "acl_stat": of("group_type", "group_id", "stat_id"),
    "attack_smac": None,
    "attack_sip": None,
    "attack_sdata": None,
    "capture_cfg": of("index"),
    "mirr_observe": of("observe_id"),
    "vlaninfo": of("bridge_id", "vlan_id"),
    "vlan_bitmap": lambda record, ctrl: str(ctrl[record["if_index"]]),
    "ssw_boardcast": lambda record, ctrl: f"all {record['bridge_id']} {record['vlan_id']}",
    "ssw_macinfo": of("mac", "bridge_id", "vlan_id"),
    "port_isolate": lambda record, ctrl: f"{ctrl[record['source_if_index']]} {ctrl[record['destination_if_index']]}",
    "port_tag": of("port_id"),
    "afpacket_filter": lambda record, ctrl: f"0x{record['eth_type']:04x}",
    "usf_user": of("mac"),
    "usf_stat": of("stat_id"),
    "usf_macip": station_address,
    "car": of("car_id"),
    "capwap_tunnel": of("tunnel_id"),
    "capwap_decap": lambda record, ctrl: f"{record['source']}:{record['destination']} {record['port']}",
    "buf_cache_stat": of("index"),
    "cpcar_pro": of("protocol", "wireless"),
    "hsec_global_cfg": lambda record, ctrl: "",
    "timer_stat": of("index"),
    "local_mng_user": of("address"),
    "usf_roam": of("mac"),
    "usf_roam_ap2sta_elb": None,
    "http_portal_port": None,
    "arp_dup_mac": None,
    "web_proxy_portal": of("index"),
    "trunk": of("trunk_id"),
    "priority": of("vap_index"),
    "ssw_global_boardcast": None,
    "session": None,
    "mc_route_port": lambda record, ctrl: f"all {record['bridge_id']} {record['vlan_id']} 0",
    "mc_elb": lambda record, ctrl: f"{record['group']}:{record['source']} {record['bridge_id']} {record['vlan_id']} 0",
    "exclude_mc_elb": lambda record, ctrl: f"all {record['bridge_id']} {record['vlan_id']} 0",
    "mc2uc_elb": lambda record, ctrl: (f"{record['group']}:{record['source']} {record['bridge_id']} "
                                       f"{record['vlan_id']} {ctrl[record['fwd_if_index']]}"),
    "vap_to_sta": lambda record, ctrl: f"all {ctrl[record['fwd_if_index']]} {record['vlan_id']}",
    "dhcp_snooping_bind": None,
    "session_cpcar": None,
    "cpcar_port_map": None,
    "usf_map_fwdif": of("user_id"),
    "nat_arp_pool_section": of("start"),
    "nat_arp_pool_exclude": of("start"),
    "nat_arp_host": of("start"),
    "mod_info": None,
    "dns_domain": None,
    "ipv6_fib": of("destination", "prefix", "vpn"),
    "ipv6_nhp": of("index"),
    "ipv6_nhp_group": of("index"),
    "nd": of("next_hop", "vpn"),
    "nd_miss_cache": of("next_hop", "vpn"),
    # As portip, lists 601 and on.
    "ipv6_portip": lambda record, ctrl: str(ctrl[record["list_id"] - 400]),
    "port_inst_state": lambda record, ctrl: (f"0 {record['bridge_id']} {record['instance_id']} "
                                             f"{ctrl[record['fwd_if_index']]}"),
    "mfib_dummy": None,
    "cause": None,
    "sac_profile": of("sac_id"),
    "sac_policy_carid": of("sac_id", "app_id", "app_type"),
    "sac_app_group": of("group_id"),
    "sac_protocol_mapping": of("protocol_id"),
    "sac_app_mapping": of("app_id"),
    "sac_app_rvs_mapping": of("app_index"),
    "sac_priority_mapping": of("app_id"),
    "sac_if_stat": None,
    "sac_usf_stat": of("mac"),
    "eaplog_info": of("mac"),
    "arp_simulator": None,
}

TABLES = {}
for file in (ROOT / "host" / "layout").glob("*.yaml"):
    TABLES.update(yaml.safe_load(file.read_text()).get("tables") or {})


def clocks(fields):
    """Names of the fields that tell a time ago: they change while two processes look."""
    return {name for name, line in fields.items() if isinstance(line, str) and "_ago" in line.split(" -- ")[0]}


class Asker:
    """Asks a place, an engine or a snapshot, and reads the answers."""

    def __init__(self, *place):
        self.place = place
        maps = self.list("ctrlif_map_fwdif")
        self.ctrl = {record["fwd_if_index"]: record["ctrl_if_index"] for record in maps}

    def ask(self, *words):
        return nqecli(*self.place, *words)

    def document(self, *words):
        result = self.ask(*words, "--json")
        assert (result.code, result.err) == (0, ""), result
        document = valid(json.loads(result.out))
        assert document["count"] == len(document["records"])
        return document

    def list(self, table, *conditions):
        return self.document("list", table, *conditions)["records"]

    def show(self, view, keys):
        document = self.document("show", view, *keys.split())
        assert document["view"] == view and document["id"] == VIEWS[view]["id"]
        return document["records"]

    def shown_in_text(self, view, keys):
        """How many records the text shows: each begins with the same label."""
        result = self.ask("show", view, *keys.split())
        assert (result.code, result.err) == (0, ""), result
        lines = result.out.split("\n")[1:-2]
        label = re.match(r"[^:]*:", lines[0])[0]
        return sum(line.startswith(label) for line in lines)


def same(a, b, table):
    drop = clocks(TABLES[table].get("fields") or {})
    strip = lambda records: [{k: v for k, v in record.items() if k not in drop} for record in records]
    return strip(a) == strip(b)


@pytest.fixture(scope="module", params=["engine", "snapshot"])
def asker(campus, request):
    if request.param == "snapshot":
        return Asker("--snapshot", campus.snapshot)
    return Asker("--arena", campus.engine.arena)


def conditions_of(view, record):
    """The key of a record as conditions of list."""
    keys = {}
    for name, line in TABLES[view]["key"].items():
        if " = " not in line:
            keys[name] = record[name]
    return [f"{name}={value}" for name, value in keys.items()]


def test_each_view_is_asked_here():
    assert set(QUERIES) == {name for name, view in VIEWS.items() if "table" in view}
    assert len(VIEWS) == 87 and len(QUERIES) == 80


@pytest.mark.parametrize("view", [view for view, query in QUERIES.items() 
                                  if query is None and view not in ("session", "sac_if_stat")])
def test_a_whole_table(asker, view):
    records = asker.show(view, "all")
    assert records and same(records, asker.list(view), view)
    assert len(records) == asker.shown_in_text(view, "all")


@pytest.mark.parametrize("view", [view for view, query in QUERIES.items() if query is not None])
def test_the_entries_of_a_key(asker, view):
    asked = set()
    for record in asker.list(view):
        try:
            keys = QUERIES[view](record, asker.ctrl)
        except KeyError:
            continue  # an interface that the control plane does not know
        if keys in asked:
            continue
        asked.add(keys)
        records = asker.show(view, keys)
        assert same(records, asker.list(view, *conditions_of(view, record)), view), keys
        assert len(records) == asker.shown_in_text(view, keys), keys
        if len(asked) == 4:
            break
    assert asked


def test_statistics_of_an_interface_are_found_through_its_radio(asker):
    for ctrl in (2001, 2003):
        index = next(record["fwd_if_index"] for record in asker.list("ctrlif_map_fwdif", f"ctrl_if_index={ctrl}"))
        vap = asker.list("fwdif", f"if_index={index}")[0]["vap_index"]
        assert asker.show("sac_if_stat", str(ctrl)) == asker.list("sac_if_stat", f"vap_index={vap}")


# The views that show no table.

def test_table_memory(asker):
    records = asker.show("tbm_memory_stat", "")
    lines = asker.ask("show", "tbm_memory_stat").out.split("\n")
    rows = [line.split() for line in lines if re.match(r"  \d", line)]
    assert [[r["id"], r["name"], r["enabled"], r["capacity"], r["entries"], r["bytes"]] for r in records] == [
        [int(row[0]), row[1], *map(int, row[2:])] for row in rows]
    assert len(records) == 109


def labels(text):
    """Label and value of each line."""
    return [tuple(part.strip() for part in line.split(":", 1)) for line in text.split("\n") if ":" in line]


def test_capacity_of_access_lists(asker):
    record, = asker.show("acl_whole_machine_spec", "")
    shown = dict(labels(asker.ask("show", "acl_whole_machine_spec").out))
    assert {name: str(value) for name, value in record.items()} == {
        "group_capacity": shown["AclGroupSpec"], "groups": shown["AclGroupNum"],
        "rule_capacity": shown["AclGroupRuleSpec"], "rules": shown["AclRuleNum"]}


@pytest.mark.parametrize("keys", ["all", "8021x 0 1", "0 35 0 0", "num2"])
def test_rates_of_protocols(asker, keys):
    records = asker.show("cpcar_pro_pps", keys)
    blocks = [dict(labels(block)) for block in asker.ask("show", "cpcar_pro_pps", *keys.split()).out.split("\n\n")]
    assert [{"HostProType": str(r["protocol"]), "HostProName": r["name"], "Wireless": str(r["wireless"]),
             "Pps": str(r["pps"])} for r in records] == blocks
    limits = {record["car_id"]: record["cbs"] >> 32 for record in asker.list("car")}
    assert all(record["pps"] == limits[record["car_id"]] for record in records)


@pytest.mark.parametrize("mac", ["02:00:5e:00:53:01", "02:00:5e:30:00:0b"])
def test_rate_limit_of_a_station(asker, mac):
    record, = asker.show("mac_carId", mac)
    assert f"  CarId       :  {record['car_id']}\n" in asker.ask("show", "mac_carId", mac).out


def test_traced_stations(asker):
    record, = asker.show("station_trace", "")
    shown = labels(asker.ask("show", "station_trace").out)
    assert ("StaNum", str(record["station_count"])) in shown
    assert [value for label, value in shown if label == "StaMac"] == record["stations"][:record["station_count"]]


@pytest.mark.parametrize("number", [0, 1, 16, 273])
def test_drop_reasons(asker, number):
    record, = asker.show("dropid", str(number))
    assert asker.ask("show", "dropid", str(number)).out.split("\n")[1] == f"  Discard Type:  {record['name']}"


def test_nat_rules_come_from_the_engine(campus):
    asker = Asker("--arena", campus.engine.arena)
    record, = asker.show("nat_policy", "staff-out")
    assert record["properties"][0] == {"name": "RuleName", "value": "staff-out"}
    assert [(p["name"], p["value"]) for p in record["properties"]] == labels(
        asker.ask("show", "nat_policy", "staff-out").out)
    nqecli("--snapshot", campus.snapshot, "show", "nat_policy", "staff-out", "--json").failed(
        "only the engine itself can tell")


# Sessions are chosen by the view.

def test_all_sessions_that_have_both_keys(asker):
    whole = [record for record in asker.list("session")
             if any(name in record for name in ("positive", "positive6"))
             and any(name in record for name in ("negative", "negative6"))]
    assert len(whole) < len(asker.list("session"))
    assert same(asker.show("session", "all"), whole, "session")


@pytest.mark.parametrize("keys", ["all", "sip:192.0.2.11", "dip:198.51.100.80", "192.0.2.11:198.51.100.80",
                                  "192.0.2.11:198.51.100.80 51000 443 6", "num1", "num3"])
def test_sessions(asker, keys):
    records = asker.show("session", keys)
    text = asker.ask("show", "session", *keys.split()).out
    assert [str(record["index"]) for record in records] == re.findall(r"^  SessIdx    :  (\d+)$", text, re.M)


# What stops before the end says so; what fails is no document.

def test_a_count_tells_that_more_follow(asker):
    for keys, truncated in (("num3", True), ("num100", False), ("all", False)):
        assert asker.document("show", "dhcp_snooping_bind", keys)["truncated"] is truncated
    assert asker.document("show", "session", "num2")["truncated"] is True


@pytest.mark.parametrize("query, message", [
    ("ctrlif_map_fwdif 99999", "search result not found"),
    ("nhp 77777", "search result not found"),
    ("session sip:203.0.113.254", "datasize empty or invalid"),
    ("session nonsense", "datasize empty or invalid"),
    ("session " + "x" * 31, "parse data format fail"),
    ("ssw_macinfo num101", "invalid input param"),
    ("ssw_macinfo num0", "invalid input param"),
    ("ssw_macinfo nonsense", "search is not supported"),
    ("dropid 274", "invalid input param"),
    ("mac_carId 02:00", "search is not supported"),
    ("cpcar_pro_pps nonsense", "search fail"),
    ("portip 1101", "search result not found"),
])
def test_a_query_that_fails_prints_no_document(asker, query, message):
    text = asker.ask("show", *query.split())
    assert (text.code, text.out) == (1, message + "\n"), text
    for form in ("--json", "--ndjson", "--csv"):
        data = asker.ask("show", *query.split(), form)
        assert (data.code, data.out) == (1, ""), data
        assert data.err == f"nqecli: {message}\n" + text.err


# Forms and fields.

def test_lines_and_rows_hold_the_same_records(asker):
    records = asker.show("arp_dup_mac", "all")
    lines = asker.ask("show", "arp_dup_mac", "all", "--ndjson").out.splitlines()
    assert [json.loads(line) for line in lines] == records
    rows = list(csv.DictReader(io.StringIO(asker.ask("show", "arp_dup_mac", "all", "--csv").out)))
    assert [{name: str(value) for name, value in record.items()} for record in records] == rows


def test_fields_are_chosen(asker):
    assert asker.document("show", "fwdif", "1101", "--fields", "if_index,pvid")["records"] == [
        {"if_index": 11, "pvid": 10}]
    assert set(asker.document("show", "tbm_memory_stat", "--fields", "name,bytes")["records"][0]) == {"name", "bytes"}
    assert set(asker.document("show", "station_trace", "--fields", "stations")["records"][0]) == {"stations"}


def test_words_that_make_no_sense(campus):
    engine = campus.engine
    engine.cli("show", "fwdif", "1101", "--fields", "if_index").failed("add --json, --ndjson or --csv")
    engine.cli("show", "fwdif", "1101", "--json", "--csv").failed("exclude each other")
    engine.cli("show", "fwdif", "1101", "--yaml").failed('unknown option "--yaml"')
    engine.cli("show", "fwdif", "1101", "--json", "--fields", "if_indx").failed("did you mean if_index?")
    engine.cli("show", "dropid", "1", "--json", "--fields", "nam").failed("did you mean name?")
    engine.cli("show", "--json").failed("Name a table")


def test_sessions_beyond_what_the_view_lists_by_itself():
    scenario = """\
session:
  - {repeat: 5000, index: {from: 0, step: 1}, valid: 1, aging_time: 600,
     positive: {source: {from: 10.0.0.0, step: 1}, destination: 192.0.2.1, protocol: 6},
     negative: {source: 192.0.2.1, destination: {from: 10.0.0.0, step: 1}, protocol: 6}}
"""
    with site_of(scenario) as site:
        for place in (["--arena", site.engine.arena], ["--snapshot", site.snapshot]):
            for keys in ("all", "dip:192.0.2.1"):
                result = nqecli(*place, "show", "session", keys, "--json", "--fields", "index")
                document = json.loads(result.out)
                assert [record["index"] for record in document["records"]] == list(range(5000))
                assert document["truncated"] is False
