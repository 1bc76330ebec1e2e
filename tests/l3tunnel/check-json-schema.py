#!/usr/bin/env python3
"""Runs the installed l3tunnel with --json on the examples and on scenarios
written here, with every combination of the output options, and checks each
document it writes (and the error object of every refused run) against
docs/l3tunnel-output.schema.json.

It also checks that the runs reach what they were written for (a refused
block, a full table, ...), so that a scenario that stops reaching its case
fails instead of passing unnoticed, and that the schema rejects documents
with a fault put in, so that a schema that accepts anything fails too.

  check-json-schema.py --program BIN --schema FILE --examples DIR
"""
import argparse
import copy
import fcntl
import json
import os
import subprocess
import sys
import tempfile

try:
    import jsonschema
except ImportError:
    sys.exit("check-json-schema.py: python3-jsonschema is not installed")

KINDS = ("state", "changes", "tunnel", "show", "error")
OPTION_SETS = ([], ["--each-step"], ["--changes"], ["--changes", "--each-step"])
UNUSED_TUNNEL = ("192.0.2.250", "198.51.100.250")


def via(dst, adj=1, weight=1, src="10.0.0.1", **extra):
    v = {"nhEntryType": "nextHopArpResolved", "srcIpAddr": src, "dstIpAddr": dst,
         "weight": weight, "underlayAdjId": {"adjId": adj}}
    v.update(extra)
    return v


DROP = {"nhEntryType": "nextHopDrop"}

# Scenarios written to a temporary directory, each for a case the examples
# may not reach; REACHED below checks that they do.
SCENARIOS = {
    "range-refused.json": {
        "chip": {"tableSizes": {"L3EcmpMember0Table": 4}},
        "underlay": [{"adjId": 1}],
        "steps": [
            {"op": "program", "group": "a", "vias": [via("10.0.2.1", weight=3)]},
            {"op": "program", "group": "b", "vias": [via("10.0.2.2", weight=2)]},
        ],
    },
    "tunnel-full.json": {
        "chip": {"tableSizes": {"L3EgrL3Ipv4TunnelTable": 3}},
        "underlay": [{"adjId": 1}],
        "steps": [
            {"op": "program", "group": "g", "vias": [via("10.0.3.1"), via("10.0.3.2"), via("10.0.3.3")]},
            {"op": "release", "group": "g"},
        ],
    },
    "missing-underlay.json": {
        "underlay": [{"adjId": 1}],
        "steps": [
            {"op": "program", "group": "g", "vias": [via("10.0.4.1", adj=1), via("10.0.4.2", adj=9)]},
        ],
    },
    "drop.json": {
        "underlay": [{"adjId": 1}],
        "steps": [
            {"op": "program", "group": "g", "vias": [via("10.0.5.1", ttl=8), DROP]},
            {"op": "program", "group": "only-drop", "vias": [DROP]},
            {"op": "reconcile"},
        ],
    },
    "separate-v6.json": {
        "toggles": {"CommonIifOifIndex": False},
        "underlay": [{"adjId": 1}, {"adjId": 2, "type": 3}],
        "steps": [
            {"op": "program", "group": "v6", "vias": [
                via("2001:db8::10", src="2001:db8::1", weight=2),
                via("2001:db8::11", src="2001:db8::1", adj=2)]},
            {"op": "restart"},
            {"op": "program", "group": "v6", "vias": [via("2001:db8::10", src="2001:db8::1")]},
            {"op": "reconcile"},
        ],
    },
    # 5 of 7 usable tunnel rows (71%); 6 of 7 next hops with the drop one (86%).
    "high-use.json": {
        "chip": {"tableSizes": {"L3TunnelIngL3NextHopTable": 7, "L3EgrL3Ipv4TunnelTable": 8,
                                "L3EgrL3Ipv6TunnelTable": 8}},
        "underlay": [{"adjId": 1}],
        "steps": [
            {"op": "program", "group": "g", "vias": [via("10.0.6.%d" % i) for i in range(1, 6)]},
        ],
    },
    "no-steps.json": {"steps": []},
}

# Input the program must refuse: a file name and its text.
BAD_SCENARIOS = {
    "malformed.json": '{"steps": [',
    "unknown-field.json": '{"steps": [], "colour": 1}',
}


def walk(value):
    """Every (parent, key, value) in a document, depth first."""
    if isinstance(value, dict):
        items = value.items()
    elif isinstance(value, list):
        items = enumerate(value)
    else:
        return
    for k, v in items:
        yield value, k, v
        yield from walk(v)


def entries(doc):
    """(table name, entry) of a state document."""
    for name, table in doc.get("tables", {}).items():
        for e in table["entries"]:
            yield name, e


def members(doc):
    for g in doc.get("groups", {}).values():
        yield from g["members"]


def change_items(doc):
    """(section, name, item) of a changes document."""
    c = doc.get("changes", {})
    for section in ("tables", "hardware"):
        for name, items in c.get(section, {}).items():
            for item in items:
                yield section, name, item
    for item in c.get("groups", []):
        yield "groups", item.get("name"), item


def has_change(doc, section, change):
    return any(s == section and i["change"] == change for s, _, i in change_items(doc))


# What the runs must reach between them: (what, kind, test of one document).
REACHED = [
    ("a group listed but not programmed", "show",
     lambda d: any(g["state"] == "notProgrammed" for g in d.get("groups", {}).values())),
    ("a group with its routes", "show",
     lambda d: any("routes" in g for g in d.get("groups", {}).values())),
    ("a member over an unresolved neighbour", "show",
     lambda d: any("not resolved" in (m["reason"] or "") for g in d.get("groups", {}).values()
                   for m in g["members"])),
    ("the usage view", "show", lambda d: "usage" in d),
    ("a tunnel's chain", "show", lambda d: bool(d.get("tunnel", {}).get("chain"))),
    ("a group refused for lack of a range", "state",
     lambda d: any(g["state"] == "noHwIndex" and g["base"] is None for g in d["groups"].values())),
    ("a full tunnel table", "state",
     lambda d: any(d["tables"][t]["level"] == "full" and d["tables"][t]["refused"] > 0
                   for t in ("L3EgrL3Ipv4TunnelTable", "L3EgrL3Ipv6TunnelTable"))),
    ("a table at the high level", "state",
     lambda d: any(t["level"] == "high" for t in d["tables"].values())),
    ("a table at the critical level", "state",
     lambda d: any(t["level"] == "critical" for t in d["tables"].values())),
    ("an entry waiting for one refused", "state",
     lambda d: any(e["entryState"] == "failedNeededEntry" for _, e in entries(d))),
    ("a missing underlay", "state",
     lambda d: any(not m["drop"] and m["underlayAdjId"] is not None and m["underlayIndex"] is None
                   for m in members(d))),
    ("a dropping member", "state", lambda d: any(m["drop"] for m in members(d))),
    ("a capacity warning", "state", lambda d: len(d["warnings"]) > 0),
    ("separate interface tables", "state", lambda d: "L3TunnelEgrL3Oif1Table" in d["tables"]),
    ("an IPv6 tunnel", "state",
     lambda d: any(isinstance(e["key"], dict) and ":" in e["key"]["dstIpAddr"] for _, e in entries(d))),
    ("a member without a row", "state",
     lambda d: any(n == "L3EcmpMember0Table" and e["key"] is None for n, e in entries(d))),
    ("a start from a saved state", "state", lambda d: d["run"]["recoveredRows"] is not None),
    ("a restart step", "state", lambda d: d.get("op") == "restart"),
    ("a reconcile step", "state", lambda d: d.get("op") == "reconcile"),
    ("a release step", "state", lambda d: d.get("op") == "release"),
    ("an entry added", "changes", lambda d: has_change(d, "tables", "added")),
    ("an entry changed", "changes", lambda d: has_change(d, "tables", "changed")),
    ("an entry removed", "changes", lambda d: has_change(d, "tables", "removed")),
    ("a row changed", "changes", lambda d: has_change(d, "hardware", "changed")),
    ("a row removed", "changes", lambda d: has_change(d, "hardware", "removed")),
    ("a group removed", "changes", lambda d: has_change(d, "groups", "removed")),
    ("a tunnel used by a group", "tunnel", lambda d: len(d["tunnel"]["groups"]) > 0),
    ("a tunnel with a chain through separate interfaces", "tunnel",
     lambda d: any(l["table"] == "L3TunnelEgrL3Oif1Table" for l in d["tunnel"]["chain"])),
    ("a tunnel no table holds", "tunnel", lambda d: d["tunnel"]["chain"] == []),
    ("an error naming its step and field", "error",
     lambda d: d["step"] is not None and d["field"] is not None),
    ("an error naming no file", "error", lambda d: d["file"] is None),
]


def first_index_zero(d):
    for parent, k, v in walk(d):
        if isinstance(k, str) and k.endswith(("Index", "index")) and v == 0 and v is not False:
            parent[k] = "0"
            return True
    return False


def rename(obj, old, new):
    if not isinstance(obj, dict) or old not in obj:
        return False
    obj[new] = obj.pop(old)
    return True


def on_entry(table, change):
    """Applies `change` to the first entry of `table` it succeeds on."""
    def apply(d):
        return any(change(e) for e in d["tables"].get(table, {}).get("entries", []))
    return apply


def set_if(obj, key, value, when=lambda o: True):
    if not isinstance(obj, dict) or key not in obj or not when(obj):
        return False
    obj[key] = value
    return True


def add_field(obj, key, value):
    if not isinstance(obj, dict) or key in obj:
        return False
    obj[key] = value
    return True


def on_member(change):
    return lambda d: any(change(m) for m in members(d))


def on_change_item(section, change):
    return lambda d: any(change(i) for s, _, i in change_items(d) if s == section)


def on_chain_link(change):
    return lambda d: any(change(l) for l in d["tunnel"]["chain"])


# Faults put into real documents: the schema must reject each. A fault that
# finds nothing to change in any document fails the check. Each function
# changes the document in place and says whether it found its target.
FAULTS = [
    ("formatVersion raised", "state", lambda d: set_if(d, "formatVersion", 2)),
    ("a run field renamed", "state", lambda d: rename(d["run"], "stateDir", "statedir")),
    ("an index of 0 as a string", "state", first_index_zero),
    ("an index past 32 bits", "state",
     on_entry("L3EgrL3Ipv4TunnelTable", lambda e: set_if(e, "hwIndex", 4294967296))),
    ("a negative index", "state", on_member(lambda m: set_if(m, "nextHopIndex", -1))),
    ("a member table field renamed", "state",
     on_entry("L3EcmpMember0Table", lambda e: rename(e, "nextHopIndex", "nextHopIdx"))),
    ("a group member field renamed", "state",
     on_member(lambda m: rename(m, "underlayIndex", "underlayIdx"))),
    ("a group field missing", "state",
     lambda d: any(g.pop("reason", 0) != 0 for g in d["groups"].values())),
    ("an unknown entry state", "state",
     on_entry("L3TunnelIngL3NextHopTable", lambda e: set_if(e, "entryState", "programmed"))),
    ("an unknown entry type", "state", on_entry("IngL3Iif", lambda e: set_if(e, "entryType", "owned"))),
    ("an unknown level", "state",
     lambda d: set_if(d["tables"]["L3EcmpMember0Table"], "level", "warning")),
    ("an unknown link state", "state", on_member(lambda m: set_if(m, "tunnelState", "missing"))),
    ("a tunnel field on an IngL3Iif entry", "state",
     on_entry("IngL3Iif", lambda e: add_field(e, "ttl", 64))),
    ("an interface field on a next hop", "state",
     on_entry("L3TunnelIngL3NextHopTable", lambda e: add_field(e, "tunnelIndex", 1))),
    ("a next hop field missing", "state",
     on_entry("L3TunnelIngL3NextHopTable", lambda e: e.pop("drop", None) is not None)),
    ("a tunnel key on an index-keyed table", "state",
     on_entry("EgrL3Oif1Table",
              lambda e: set_if(e, "key", {"srcIpAddr": "10.0.0.1", "dstIpAddr": "10.0.0.2"}))),
    ("largestFree on a tunnel table", "state",
     lambda d: add_field(d["tables"]["L3EgrL3Ipv4TunnelTable"], "largestFree", 1)),
    ("largestFree missing from the member table", "state",
     lambda d: d["tables"]["L3EcmpMember0Table"].pop("largestFree", None) is not None),
    ("a full table with rows free", "state",
     lambda d: any(set_if(t, "free", 1, lambda t: t["level"] == "full") for t in d["tables"].values())),
    ("an unknown table", "state",
     lambda d: add_field(d["tables"], "L3EgrL3TunnelTable",
                         copy.deepcopy(d["tables"]["L3EgrL3Ipv4TunnelTable"]))),
    ("both interface layouts", "state",
     lambda d: "IngL3Iif" in d["tables"] and add_field(
         d["tables"], "L3TunnelEgrL3Oif1Table", copy.deepcopy(d["tables"]["L3InterfaceTable"]))),
    ("a dropping next hop with interface index 0", "state",
     on_entry("L3TunnelIngL3NextHopTable",
              lambda e: set_if(e, "interfaceIndex", 0, lambda e: e["drop"]))),
    ("a dropping member with underlay index 0", "state",
     on_member(lambda m: set_if(m, "underlayIndex", 0, lambda m: m["drop"]))),
    ("a refused entry with index 0", "state",
     on_entry("L3EgrL3Ipv4TunnelTable",
              lambda e: set_if(e, "hwIndex", 0, lambda e: e["entryState"] == "noHwIndex"))),
    ("a programmed entry without an index", "state",
     on_entry("L3InterfaceTable",
              lambda e: set_if(e, "hwIndex", None, lambda e: e["entryState"] == "success"))),
    ("a missing link with an index", "state",
     on_member(lambda m: set_if(m, "interfaceState", "none",
                                lambda m: m["interfaceIndex"] is not None))),
    ("a hardware row renamed", "state",
     lambda d: any(rows and rename(rows[0], "row", "value") for rows in d["hardware"].values())),
    ("an unknown hardware table", "state", lambda d: add_field(d["hardware"], "EcmpGroup1Table", [])),
    ("a stats counter renamed", "state", lambda d: rename(d["stats"]["IngL3Iif"], "changes", "changed")),
    ("a step without its op", "state", lambda d: "op" in d and d.pop("op") is not None),
    ("a group named on a restart step", "state",
     lambda d: d.get("op") in ("restart", "reconcile") and add_field(d, "group", "g")),
    ("step 0", "state", lambda d: set_if(d, "step", 0)),
    ("an unknown change kind", "changes",
     on_change_item("tables", lambda i: set_if(i, "change", "modified"))),
    ("a removed entry with fields", "changes",
     on_change_item("tables", lambda i: i["change"] == "removed" and add_field(i, "hwIndex", 1))),
    ("an added entry without its state", "changes",
     on_change_item("tables",
                    lambda i: i["change"] == "added" and i.pop("entryState", None) is not None)),
    ("a removed row with a row", "changes",
     on_change_item("hardware", lambda i: i["change"] == "removed" and add_field(i, "row", ""))),
    ("a changed group without its members", "changes",
     on_change_item("groups",
                    lambda i: i["change"] != "removed" and i.pop("members", None) is not None)),
    ("the full state in a changes document", "changes", lambda d: add_field(d, "groups", {})),
    ("a next hop field on a tunnel link", "tunnel",
     on_chain_link(lambda l: l["table"].endswith("TunnelTable") and add_field(l, "drop", False))),
    ("a chain link of an index-keyed table", "tunnel",
     on_chain_link(lambda l: set_if(l, "table", "IngL3Iif"))),
    ("a tunnel field renamed", "tunnel", lambda d: rename(d["tunnel"], "chain", "links")),
    ("warnings in a tunnel document", "tunnel", lambda d: add_field(d, "warnings", [])),
    ("an error field renamed", "error", lambda d: rename(d, "error", "message")),
    ("an error step as a string", "error",
     lambda d: set_if(d, "step", "3", lambda d: d["step"] is not None)),
    ("an empty error", "error", lambda d: set_if(d, "error", "")),
    ("an agent without its phase", "show", lambda d: "agent" in d and d["agent"].pop("phase")),
    ("an agent phase unknown", "show", lambda d: "agent" in d and set_if(d["agent"], "phase", "idle")),
    ("an agent field added", "show", lambda d: "agent" in d and add_field(d["agent"], "uptime", 1)),
    ("a group's routes empty", "show",
     lambda d: any(set_if(g, "routes", [], lambda g: "routes" in g)
                   for g in d.get("groups", {}).values())),
    ("a group state unknown", "show",
     lambda d: any(set_if(g, "state", "pending") for g in d.get("groups", {}).values())),
    ("usage with entries", "show",
     lambda d: any(add_field(t, "entries", []) for t in d.get("usage", {}).values())),
]

# The agent in a namespace of its own: the kernel's example objects, one group
# over an unresolved neighbour and one that is no tunnel, then every view.
AGENT_SCRIPT = r"""
set -e
ip link set lo up
ip link add veth0 type veth peer name veth1; ip link set veth0 up; ip link set veth1 up
for i in $(seq 200); do ip link show veth0 | grep -q LOWER_UP && break; sleep 0.01; done
ip addr add 172.16.0.1/24 dev veth0
ip neigh add 172.16.0.2 lladdr 02:00:00:00:00:02 dev veth0 nud permanent
ip nexthop add id 1 encap ip src 192.0.2.1 dst 198.51.100.1 ttl 64 via 172.16.0.2 dev veth0
ip nexthop add id 2 encap ip src 192.0.2.1 dst 198.51.100.2 ttl 64 via 172.16.0.3 dev veth0
ip nexthop add id 3 blackhole
ip nexthop add id 4 via 172.16.0.2 dev veth0
ip nexthop add id 100 group 1,2/2,1
ip nexthop add id 101 group 3
ip nexthop add id 104 group 1/4
ip route add 10.1.0.0/16 nhid 100
ip route add 10.2.0.0/16 encap ip src 192.0.2.1 dst 198.51.100.3 via 172.16.0.2 dev veth0
"$PROGRAM" agent --state-dir "$WORK/agent" 2>"$WORK/agent.log" &
agent=$!
for i in $(seq 500); do "$PROGRAM" show --state-dir "$WORK/agent" usage >/dev/null 2>&1 && break; sleep 0.01; done
n=0
for view in all groups tables usage "tunnel 192.0.2.1 198.51.100.1" "tunnel 192.0.2.9 198.51.100.9"; do
   n=$((n + 1))
   "$PROGRAM" show --state-dir "$WORK/agent" --json $view >"$WORK/show.$n"
done
"$PROGRAM" show --state-dir "$WORK/agent" --json frobnicate 2>"$WORK/show.error" || true
kill $agent; wait $agent
"""


def check_agent(c, work):
    """show --json of a running agent, where a network namespace can be made."""
    probe = subprocess.run(["unshare", "-n", "true"], stderr=subprocess.DEVNULL)
    if probe.returncode != 0:
        if os.environ.get("L3TUNNEL_REQUIRE_NETNS") == "1":
            c.fail("agent", "no network namespace (unshare -n) where one is required")
        else:
            print("agent documents not checked: no network namespace here (run as root)")
        return False
    c.runs += 1
    env = dict(os.environ, PROGRAM=c.program, WORK=work)
    p = subprocess.run(["unshare", "-n", "bash", "-c", AGENT_SCRIPT], env=env,
                       stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120)
    if p.returncode != 0:
        c.fail("agent", "the script failed (%d): %.400s" % (p.returncode, p.stderr.decode()))
        return True
    for n in range(1, 7):
        with open(os.path.join(work, "show.%d" % n)) as f:
            text = f.read()
        if len(text.splitlines()) != 1:
            c.fail("agent", "show view %d: %d lines, expected 1" % (n, len(text.splitlines())))
            continue
        c.document("agent: show view %d" % n, text, "show")
    with open(os.path.join(work, "show.error")) as f:
        c.document("agent: show error", f.read().strip(), "error")
    return True


class Checker:
    def __init__(self, program, schema_path):
        self.program = program
        with open(schema_path) as f:
            self.schema = json.load(f)
        cls = jsonschema.Draft202012Validator
        cls.check_schema(self.schema)
        self.validator = cls(self.schema)
        # One validator per document kind, for the error that kind gives.
        self.kind_validators = {}
        for kind in KINDS:
            sub = {k: v for k, v in self.schema.items() if k != "oneOf"}
            sub["$ref"] = "#/$defs/%sDocument" % kind
            self.kind_validators[kind] = cls(sub)
        self.failures = []
        self.documents = {kind: [] for kind in KINDS}
        self.runs = 0

    def fail(self, label, what):
        self.failures.append("%s: %s" % (label, what))

    def run(self, args, stdout=None):
        self.runs += 1
        try:
            p = subprocess.run([self.program] + args, stdout=stdout or subprocess.PIPE,
                               stderr=subprocess.PIPE, timeout=120)
        except subprocess.TimeoutExpired:
            return None, "", "(no end after 120 s)"
        return p.returncode, (p.stdout or b"").decode(), p.stderr.decode()

    def kind_of(self, doc):
        kinds = [k for k in KINDS if self.kind_validators[k].is_valid(doc)]
        return kinds[0] if len(kinds) == 1 else None

    def document(self, label, text, kind):
        """One document: valid, and of the kind expected."""
        try:
            doc = json.loads(text)
        except ValueError as e:
            self.fail(label, "not JSON (%s): %.200s" % (e, text))
            return None
        if not self.validator.is_valid(doc):
            self.fail(label, "schema error " + explain(self.kind_validators[kind].iter_errors(doc)))
            return None
        found = self.kind_of(doc)
        if found != kind:
            self.fail(label, "a %s document where a %s document was expected" % (found, kind))
            return None
        self.documents[kind].append(doc)
        return doc

    def output(self, label, args, scenario, kind, each_step):
        rc, out, err = self.run(args)
        if rc != 0 or err:
            self.fail(label, "exit code %s, standard error %r" % (rc, err[:400]))
            return []
        if out and not out.endswith("\n"):
            self.fail(label, "output does not end with a line end")
        steps = scenario.get("steps", [])
        lines = out.splitlines()
        expected = len(steps) if each_step else 1
        if len(lines) != expected:
            self.fail(label, "%d documents, expected %d" % (len(lines), expected))
        docs = []
        for n, line in enumerate(lines, 1):
            where = "%s: line %d" % (label, n)
            doc = self.document(where, line, kind)
            if doc is None:
                continue
            docs.append(doc)
            # The step a document names is the scenario's step of that line.
            step = steps[n - 1] if each_step and n <= len(steps) else {}
            named = {k: doc.get(k) for k in ("step", "op", "group")}
            expected = {"step": n if step else None, "op": step.get("op"),
                        "group": step.get("group") if step.get("op") in ("program", "release") else None}
            if named != expected:
                self.fail(where, "names %r, expected %r" % (named, expected))
        return docs

    def refused(self, label, args, rc_expected, stdout=None):
        rc, out, err = self.run(args, stdout)
        if rc != rc_expected:
            self.fail(label, "exit code %s, expected %d" % (rc, rc_expected))
        if out:
            self.fail(label, "standard output %r, expected none" % out[:200])
        lines = err.splitlines()
        if len(lines) != 1 or not err.endswith("\n"):
            self.fail(label, "standard error %r, expected one line" % err[:400])
            return
        self.document(label + ": standard error", lines[0], "error")


def explain(errors):
    """The deepest error, where the field at fault is: a failure inside a
    field also leaves the field unevaluated, which is reported higher up."""
    flat = []

    def add(es):
        for e in es:
            flat.append(e)
            add(e.context)
    add(errors)
    if not flat:
        return "(none: valid as the kind expected, not as the document)"
    direct = [e for e in flat if e.validator not in ("unevaluatedProperties", "oneOf", "anyOf", "$ref")]
    e = max(direct or flat, key=lambda e: len(e.absolute_path))
    where = "/".join(str(p) for p in e.absolute_path) or "(document)"
    return "at %s: %s" % (where, e.message[:400])


def tunnels_of(scenario):
    """The first and the last tunnel a scenario names, and one it does not."""
    pairs = [(v["srcIpAddr"], v["dstIpAddr"]) for s in scenario.get("steps", [])
             for v in s.get("vias", []) if "srcIpAddr" in v]
    chosen = []
    for p in pairs[:1] + pairs[-1:] + [UNUSED_TUNNEL]:
        if p not in chosen:
            chosen.append(p)
    return chosen


def describe(path, options):
    return "%s [%s]" % (os.path.basename(path), " ".join(["--json"] + options))


def kind_for(options):
    if "--tunnel" in options:
        return "tunnel"
    return "changes" if "--changes" in options else "state"


def scenario_files(examples, work):
    """The examples the program takes, and SCENARIOS written to `work`."""
    files = [os.path.join(examples, n) for n in sorted(os.listdir(examples))
             if n.endswith(".json") and n != "bad.json"]
    for name, scenario in SCENARIOS.items():
        files.append(os.path.join(work, name))
        with open(files[-1], "w") as f:
            json.dump(scenario, f)
    for name, text in BAD_SCENARIOS.items():
        with open(os.path.join(work, name), "w") as f:
            f.write(text)
    return files


def check_outputs(c, files):
    """Every scenario with every option set, and with each of its tunnels."""
    for path in files:
        with open(path) as f:
            scenario = json.load(f)
        option_sets = list(OPTION_SETS)
        for src, dst in tunnels_of(scenario):
            option_sets += [["--tunnel", "%s,%s" % (src, dst)] + o for o in ([], ["--each-step"])]
        for options in option_sets:
            c.output(describe(path, options), ["run", path, "--json"] + options, scenario,
                     kind_for(options), "--each-step" in options)


def check_state_dirs(c, files, work):
    """A run that saves the chip, then one that starts from it."""
    for path in files:
        name = os.path.basename(path)
        if name not in ("restart.json", "separate-v6.json"):
            continue
        with open(path) as f:
            scenario = json.load(f)
        tunnel = ["--tunnel", "%s,%s" % tunnels_of(scenario)[0]]
        for n, options in enumerate(OPTION_SETS + (tunnel,)):
            state_dir = os.path.join(work, "state-%s-%d" % (name, n))
            options = options + ["--state-dir", state_dir]
            for attempt, recovered in (("first run", False), ("second run", True)):
                label = "%s, %s" % (describe(path, options), attempt)
                for doc in c.output(label, ["run", path, "--json"] + options, scenario,
                                    kind_for(options), "--each-step" in options):
                    run = doc["run"]
                    if run["stateDir"] != state_dir or (run["recoveredRows"] is not None) != recovered:
                        c.fail(label, "run is %r" % run)


def check_refusals(c, examples, work):
    """The error object on standard error, and the exit code."""
    bad = os.path.join(examples, "bad.json")
    for options in OPTION_SETS + (["--tunnel", "10.0.0.1,10.0.3.1"],):
        c.refused(describe(bad, options), ["run", bad, "--json"] + options, 2)

    default = os.path.join(examples, "default.json")
    not_dir = os.path.join(work, "not-a-directory")
    open(not_dir, "w").close()
    corrupt = os.path.join(work, "corrupt-state")
    os.mkdir(corrupt)
    with open(os.path.join(corrupt, "chip.state"), "w") as f:
        f.write("not a chip\n")
    refusals = [
        ("a missing scenario", [os.path.join(work, "missing.json")], 2),
        ("malformed JSON", [os.path.join(work, "malformed.json")], 2),
        ("an unknown scenario field", [os.path.join(work, "unknown-field.json")], 2),
        ("an unknown option", [default, "--colour"], 2),
        ("a bad --tunnel", [default, "--tunnel", "10.0.0.1"], 2),
        ("--tunnel with --changes", [default, "--changes", "--tunnel", "10.0.0.1,10.0.0.2"], 2),
        ("a state directory that is a file", [default, "--state-dir", not_dir], 2),
        ("a corrupt chip state", [default, "--state-dir", corrupt], 2),
    ]
    for what, args, rc in refusals:
        c.refused("%s (run %s --json)" % (what, " ".join(args)), ["run"] + args + ["--json"], rc)
    c.refused("no command", ["--json"], 2)

    held = os.path.join(work, "held-state")
    os.mkdir(held)
    with open(os.path.join(held, "lock"), "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        c.refused("a state directory another run holds",
                  ["run", default, "--json", "--state-dir", held], 1)
    if os.path.exists("/dev/full"):
        with open("/dev/full", "w") as full:
            c.refused("standard output full", ["run", default, "--json"], 1, stdout=full)


def check_reached(c, agent):
    for what, kind, test in REACHED:
        if kind == "show" and not agent:
            continue
        if not any(test(d) for d in c.documents[kind]):
            c.fail("coverage", "no %s document shows %s" % (kind, what))


def check_faults(c, agent):
    """The schema rejects each fault put into a real document."""
    for what, kind, put in FAULTS:
        if kind == "show" and not agent:
            continue
        for doc in c.documents[kind]:
            changed = copy.deepcopy(doc)
            if not put(changed):
                continue
            if c.validator.is_valid(changed):
                c.fail("schema", "accepts a %s document with %s" % (kind, what))
            break
        else:
            c.fail("schema", "no %s document to put %s into" % (kind, what))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--program", required=True)
    ap.add_argument("--schema", required=True)
    ap.add_argument("--examples", required=True)
    a = ap.parse_args()

    c = Checker(a.program, a.schema)
    with tempfile.TemporaryDirectory(prefix="l3tunnel-schema-") as work:
        files = scenario_files(a.examples, work)
        check_outputs(c, files)
        check_state_dirs(c, files, work)
        check_refusals(c, a.examples, work)
        agent = check_agent(c, work)
    check_reached(c, agent)
    check_faults(c, agent)

    counts = ", ".join("%d %s" % (len(c.documents[k]), k) for k in KINDS)
    if c.failures:
        for f in c.failures:
            print("FAIL " + f)
        print("%d failures in %d runs (%s documents valid); the scenarios not in %s are SCENARIOS here"
              % (len(c.failures), c.runs, counts, a.examples))
        return 1
    print("%d runs: %s documents valid; %d cases reached; %d faults rejected"
          % (c.runs, counts, len(REACHED), len(FAULTS)))
    return 0


if __name__ == "__main__":
    sys.exit(main())
