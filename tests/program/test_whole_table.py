"""The whole shutdown table against one sample process a row: order, commands, signals, waits."""
import re
import shlex

from box import ALL_SPECIFIED, BIN, GATHERING, JOURNAL, LOG, REPO, assert_ends, initiating, seconds

TABLE = REPO / "tests/unit/shutdown/shutdown_table.txt"
# Made by the build from the program's own table.
PLAN = REPO / "docs/shutdown-plan.md"
COLUMNS = "sequence group name command killType firstOnly waitType mask service".split()
ROWS = [dict(zip(COLUMNS, shlex.split(line))) for line in TABLE.read_text().splitlines() if not line.startswith("#")]
PROCESS_ROWS = [row for row in ROWS if row["command"] == "false"]
ADMIN = f"{BIN}/admincmd"

# What each action runs, given the daemon's name and path.
COMMANDS = {
    "NORMAL_TERMINATE": lambda name, path: [f"{path} -terminate"],
    "PROXY_ALL": lambda name, path: [f"{ADMIN}/vilohibo -all"],
    "LOCAL_TERMINATE": lambda name, path: [f"{path} -terminate_local"],
    "SELECTIVE_CANCEL": lambda name, path: [f"{ADMIN}/humowow -M localhost -suspend_cancel_selective",
                                            f"{ADMIN}/humowow -M localhost -terminate"],
    "HOST_T": lambda name, path: ["/usr/quarn/volmgr/bin/nodakewe -h localhost -t"],
    "REMOVE": lambda name, path: [f"{path}.stop -remove"],
    "MOSK_STOP": lambda name, path: [f"/usr/quarn/mosk/CorvaneDB/{name} -stop"],
    "STOP": lambda name, path: [f"{BIN}/duzahi_start_stop stop"],
}
# The one signal that each signalling action sends: its kind in the log, its name (SIGKILL leaves no note in a journal).
SIGNALS = {"KILL": (1, ["SIGTERM"]), "KILLH": (0, ["SIGHUP"]), "KILL9": (4, [])}


# hiwik is only marked, and no tool stops it: it ends, at somebody else's request, while everything is waited for.
ASK_HIWIK = (f"(until grep -qs 'Looking for remaining' {LOG}; do sleep 0.01; done; "
             f"kill -USR1 $(awk '$2 == \"ready\" && $4 == \"hiwik\" {{ print $3 }}' {JOURNAL})) &\n")


def commands_of(row):
    build = COMMANDS.get(row["killType"])
    return build(row["name"], f"{BIN}/{row['name']}") if build else []


def expected_actions():
    """The executed commands and the sent signals in table order, as the log tells them."""
    for row in PROCESS_ROWS:
        for command in commands_of(row):
            yield f'Executing "{command} > /dev/null 2>&1 &"'
        if row["killType"] in SIGNALS:
            yield f"Signaling process {BIN}/{row['name']} ({SIGNALS[row['killType']][0]})"


def test_the_rows_are_the_programs():
    planned = re.findall(r"^\| \d+ \| `([^`]+)` ", PLAN.read_text(), re.M)
    assert [row["name"] for row in ROWS] == planned, f"a new row stands in {TABLE} too, and the target plan makes {PLAN} anew"


def test_every_row_is_carried_out_once_in_order(host):
    # The tool that stops dbsrv17 stops CV_dbsrv, too, which must still be there when its own row comes.
    habits = {"CV_dbsrv": " stop=5"}
    fleet = "".join(f"{BIN}/{row['name']}{habits.get(row['name'], '')}\n" for row in PROCESS_ROWS)
    result = host(fleet).run("-k", before=ASK_HIWIK)

    asked = [text for text in result.texts("OrderlyShutdown") if text.startswith("Terminate request for ")]
    assert asked == [f"Terminate request for {row['name']}" for row in PROCESS_ROWS]

    actions = [r.text for r in result.log if r.function in ("executeStop", "Processes::KillProcess")]
    assert actions == list(expected_actions())

    # Background commands reach the journal in any order, but each exactly once.
    assert sorted(result.commands()) == sorted(c for row in PROCESS_ROWS for c in commands_of(row))
    for row in PROCESS_ROWS:
        assert result.signals_of(row["name"]) == SIGNALS.get(row["killType"], (0, []))[1], row["name"]
        assert not result.is_alive(row["name"]), row["name"]

    assert result.stdout.startswith(GATHERING + initiating(len(PROCESS_ROWS)))
    assert_ends(result.stdout, ALL_SPECIFIED)
    assert result.status == 1


def test_the_two_waiting_rows_wait_for_their_process_and_no_other_row_waits(host):
    """Each daemon takes six seconds to obey its command; a row is done when it has waited."""
    result = host("".join(f"{BIN}/{row['name']} stop=6\n" for row in PROCESS_ROWS)).run("-k", before=ASK_HIWIK)
    done = {r.text.split()[-1]: seconds(r) for r in result.log
            if r.text.startswith(("Terminate request", "Looking for remaining"))}
    gaps = {name: (after - before) % 86400 for before, (name, after) in zip(done.values(), list(done.items())[1:])}
    assert len(gaps) == len(PROCESS_ROWS)
    assert [name for name, gap in gaps.items() if gap >= 5.9] == ["kuror", "gowid"], gaps
    assert all(gaps[name] < 20 for name in ("kuror", "gowid")), gaps  # no full wait


def test_a_waiting_row_whose_process_is_excluded_delays_the_walk_by_the_full_wait(host):
    here = host(f"{BIN}/kuror\n{BIN}/duwozuh\n")
    here.write(f"{BIN}/excludelist.conf", f"{BIN}/kuror\n")
    result = here.run("-k")
    begun = next(seconds(r) for r in result.log if r.function == "Processes::getProcesses")
    next_row = next(seconds(r) for r in result.log if r.function == "executeStop")
    assert 29.9 <= (next_row - begun) % 86400
    assert result.is_alive("kuror") and not result.is_alive("duwozuh")


def test_first_only_rows_leave_later_instances_to_the_remaining_pass(host):
    # java is stopped once by its row; the second instance gets the series of the remaining pass.
    result = host(f"{BIN}/java count=2\n").run("-k")
    assert result.signals_of("java", 0) == ["SIGTERM"]
    assert result.signals_of("java", 1) == ["SIGINT"]
    assert not result.is_alive("java", 0) and not result.is_alive("java", 1)


def test_rows_that_only_mark_leave_their_processes_to_the_final_kill(host):
    result = host("".join(f"{BIN}/{name}\n" for name in ("nanid", "zeld", "hiwik"))).run("-k", "-q")
    for name in ("nanid", "zeld", "hiwik"):
        assert result.signals_of(name) == [] and not result.is_alive(name)
    kills = [t for t in result.texts("Processes::KillProcess")]
    assert kills == [f"Signaling process {BIN}/{name} (4)" for name in ("nanid", "zeld", "hiwik")]
