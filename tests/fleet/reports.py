"""Made-up results of clients, as the modules return them and cvstop-watch reports them."""
import random

NAMES = ["halvd", "koka", "momuhe", "kuror", "gowid", "lebazog", "wusivov", "kofen", "fahazude", "hidon", "dbsrv17", "nanid"]


def process(name, pid):
    return {"name": name, "path": f"/usr/quarn/corvane/bin/{name}", "pid": pid, "category": "product"}


def watched(chance, name, pid, outcome):
    asked = round(chance.uniform(0, 20), 9)
    late = round(asked + chance.expovariate(1), 9)
    signals = [{"time": asked, "kind": "command", "command": f"/usr/quarn/corvane/bin/{name} -terminate", "certain": True}]
    if outcome != "ended":
        late = 52.5
        signals.append({"time": 50.0, "kind": "signal", "signal": "SIGKILL", "certain": True})
    return {**process(name, pid), "category": 1, "excluded": False, "row": chance.randint(1, 67),
            "parent": {"pid": 1, "name": "init"}, "unit": None, "start": -100.0,
            "asked": signals, "ended": None if outcome == "survived" else late, "outcome": outcome,
            "reason": {"state": "sleeping uninterruptibly", "function": "nfs_wait_bit_killable", "tracer": None, "age": 812.5}
            if outcome == "survived" else None}


def report(chance, count=70, outcomes=("ended",)):
    """What cvstop-watch writes of a stop of so many processes."""
    processes = [watched(chance, chance.choice(NAMES), 800 + i, outcomes[i] if i < len(outcomes) else "ended")
                 for i in range(count)]
    return {"version": 1, "run": {"arguments": ["/usr/quarn/corvane/bin/cvstop", "-k"], "host": "client", "pid": 700,
                                  "begin": "2026-11-21T20:00:00.000000000Z", "end": 60.0, "status": 1, "signal": None,
                                  "clock": "CLOCK_REALTIME", "resolution": 0, "observed": True, "notes": []},
            "stages": [{"kind": kind, "row": None, "name": None, "begin": begin, "end": end, "waited_for": []}
                       for kind, begin, end in (("gathering", 0.0, 0.01), ("sweep", 12.0, 21.0), ("wait", 21.0, 50.0),
                                                ("kill", 50.0, 50.1), ("wait after the kill", 50.1, 53.0))],
            "processes": processes, "not_in_snapshot": [], "came_back": []}


def stopped(chance, count=70, survivors=0):
    """The module's result of a stop under cvstop-watch."""
    watch = report(chance, count, ["survived"] * survivors + ["killed"] * 2)
    found = [process(entry["name"], entry["pid"]) for entry in watch["processes"]]
    return {"outcome": "survivors" if survivors else "stopped", "changed": True, "failed": bool(survivors), "rc": 1,
            "found": found, "stopped": found[survivors:], "survivors": [{**entry, "new": False} for entry in found[:survivors]],
            "spared": [process("koka", 9)] if chance.random() < 0.1 else [], "listed_only": [], "elapsed": 53.2,
            "began": 1795288650.25, "output": ["Gathering process information."], "watch": watch,
            "msg": "Still running: momuhe (800)." if survivors else ""}


def fleet(count, seed=1):
    """Results of a whole fleet, by client: most are down, a few are of each other kind."""
    chance = random.Random(seed)
    results = {}
    for number in range(1, count + 1):
        kind = number % 50
        results[f"client{number:03}"] = (
            stopped(chance, survivors=1) if kind == 7 else
            {"unreachable": True, "msg": "Failed to connect to the host via ssh: ssh: connect to host: Connection timed out"}
            if kind == 13 else
            {"failed": True, "rc": 55, "msg": "cvstop ended with status 55. \"Currently only supported on clients.\" The host "
             "is a server of the product; use the server's own tools."} if kind == 21 else
            {"outcome": "nothing", "found": [], "stopped": [], "survivors": [], "rc": 0, "elapsed": 0.0} if kind == 33 else
            stopped(chance))
    return results
