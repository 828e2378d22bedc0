"""The watcher: it changes nothing, and what it tells is what was."""
import re
import signal

import pytest

from box import ALL, ALL_SPECIFIED, BIN, CVSTOP, LOG, WATCH, WATCHED, assert_ends, until_ended, watch
from watching import REFUSE_PIDFD, Watched, assert_asked_as_logged, assert_outcomes, lateness

LIBRARY = "/usr/quarn/corvane/lib/libsampled.so"


def test_course_of_a_whole_shutdown(host):
    here = host(f"{BIN}/halvd\n{BIN}/kuror stop=2\n{BIN}/momuhe count=3\n{BIN}/strayd ignore=all\n{BIN}/nanid life=4\n"
                f"/opt/x/mapper map={LIBRARY}\n")
    result, seen = watch(here, "-k", "-3")
    assert (result.stderr, result.status) == ("", 1)
    assert seen.run["arguments"] == [CVSTOP, "-k", "-3"] and (seen.run["status"], seen.run["signal"]) == (1, None)
    stages = [(stage["kind"], stage["name"]) for stage in seen.stages]
    # The third party is sent SIGKILL with the survivor, and nobody waits for it: on a busy machine it is asked once more.
    again = ["SIGINT", "SIGTERM", "SIGHUP", "SIGQUIT", "SIGKILL"] if stages[-1] == ("third parties", None) else []
    assert stages[:9] == [
        ("gathering", None), ("row", "momuhe"), ("row", "kuror"), ("row", "nanid"), ("row", "halvd"), ("sweep", None),
        ("wait", None), ("kill", None), ("wait after the kill", None)] and len(stages) == (10 if again else 9)
    ends = [stage["end"] for stage in seen.stages]
    assert ends == sorted(ends) and all(stage["begin"] <= stage["end"] for stage in seen.stages)
    stage = {stage["name"] or stage["kind"]: stage for stage in seen.stages}
    assert stage["kuror"]["waited_for"] == [result.pid("kuror")]
    # Each upper bound leaves a busy machine room, and none for a wait of twice 30 seconds.
    assert 2 < stage["kuror"]["end"] - stage["kuror"]["begin"] < 20
    assert stage["sweep"]["waited_for"] == [result.pid("strayd")]
    assert stage["wait"]["waited_for"][0] == result.pid("strayd")
    assert 28.5 < stage["wait"]["end"] - stage["wait"]["begin"] < 55
    assert seen.asked("halvd") == [f"{BIN}/halvd -terminate"] and seen.asked("kuror") == [f"{BIN}/kuror -terminate_local"]
    assert seen.asked("strayd") == ["SIGINT", "SIGTERM", "SIGQUIT", "SIGKILL"]
    assert seen.asked("nanid") == [] and seen.asked("mapper") == ["SIGKILL", *again]
    momuhes = [process for process in seen.json["processes"] if process["name"] == "momuhe"]
    assert [process["asked"][0]["signal"] for process in momuhes] == 3 * ["SIGTERM"]
    assert seen.outcomes() == {
        "halvd": "ended", "kuror": "ended", "momuhe": "ended", "strayd": "killed", "nanid": "ended before it was asked",
        "mapper": "killed"}
    assert all(asked["certain"] for process in seen.json["processes"] for asked in [process, *process["asked"]])
    assert seen.run["notes"] == [] and seen.json["not_in_snapshot"] == [] and seen.json["came_back"] == []
    assert_asked_as_logged(result, seen)
    assert_outcomes(result, seen)


def test_third_parties_are_a_stage_of_their_own(host):
    here = host(f"{BIN}/momuhe\n/opt/x/mapper map={LIBRARY} ignore=all\n/opt/x/reader open={BIN}/momuhe\n")
    result, seen = watch(here, "-k", "-3", after=until_ended("/opt/x/mapper"))
    assert seen.kinds()[-1] == "third parties"
    assert seen.asked("mapper") == ["SIGINT", "SIGTERM", "SIGHUP", "SIGQUIT", "SIGKILL"]
    # It dies by a signal that nobody waits for: the watcher does.
    assert seen.outcomes() == {"momuhe": "ended", "mapper": "killed", "reader": "spared"}
    assert_asked_as_logged(result, seen)


def test_excluded_process_that_a_row_waits_for(host):
    here = host(f"{BIN}/gowid\n{BIN}/momuhe count=2\n")
    here.write(f"{BIN}/excludelist.conf", f"{BIN}/gowid\n{BIN}/momuhe\n")
    result, seen = watch(here, "-k")
    assert {process["name"]: process["excluded"] for process in seen.json["processes"]} == {"gowid": True, "momuhe": True}
    assert set(seen.outcomes().values()) == {"spared"}
    row, = (stage for stage in seen.stages if stage["name"] == "gowid")
    assert row["waited_for"] == [result.pid("gowid")] and 29 < row["end"] - row["begin"] < 55


def test_excluded_file_of_a_name_that_another_file_has(host):
    """The log names the file that is excluded. In a listing as well."""
    other = "/usr/quarn/corvane/other/pazed"
    here = host(f"{BIN}/pazed count=2\n{other} count=2\n")
    here.write(f"{BIN}/excludelist.conf", f"{other}\n")
    _, listed = watch(here, "-l")
    result, seen = watch(here, "-k", "-q")
    for told in (listed, seen):
        assert [(process["path"], process["excluded"], process["certain"]) for process in told.processes.values()] == (
            2 * [(f"{BIN}/pazed", False, True)] + 2 * [(other, True, True)])
        assert told.run["notes"] == [] and told.run["log_complete"] is True
    assert [process["outcome"] for process in seen.processes.values()] == ["ended", "ended", "spared", "spared"]
    assert_outcomes(result, seen)


def test_sharers_of_a_path_of_which_one_is_gone_are_told_apart(host):
    """One of three is gone before its row: the two that are left were asked, and it was not."""
    here = host(f"{BIN}/kuror stop=5\n{BIN}/pazed count=3\n")
    one_ends = f"""
set -- $(awk '$2 == "ready" && $4 == "pazed" {{ print $3 }}' /usr/quarn/sandbox/journal)
(until grep -qs 'kuror -terminate_local' {LOG}; do sleep 0.01; done; kill -USR1 $3) >/dev/null 2>&1 &
"""
    result, seen = watch(here, "-k", before=one_ends)
    outcomes = [seen.processes[result.pid("pazed", place)]["outcome"] for place in range(3)]
    assert outcomes == ["ended", "ended", "ended before it was asked"]
    assert all(process["certain"] for process in seen.json["processes"])
    assert_outcomes(result, seen)


def test_sharers_of_a_path_that_cannot_be_told_apart_are_marked_each(host):
    """Two end while kuror is waited for, and one of them is reaped between the two waits: when the row comes to it there is
    one left, which is reaped later. The log has one request, for one or the other."""
    here = host(f"{BIN}/kuror stop=33\n{BIN}/pazed survive=zombie parent=/opt/keeper/one\n"
                f"{BIN}/pazed survive=zombie parent=/opt/keeper/other\n")
    meanwhile = f"""
set -- $(awk '$2 == "ready" && $4 == "pazed" {{ print $3 }}' /usr/quarn/sandbox/journal)
one=$(cut -d ' ' -f 4 /proc/$1/stat) other=$(cut -d ' ' -f 4 /proc/$2/stat)
until_logged() {{ until grep -qs "$1" {LOG}; do sleep 0.1; done; }}
(until_logged 'kuror -terminate_local'; kill -KILL $1 $2; until_logged 'Terminate request for kuror'; kill -KILL $one
until_logged 'pazed (1)'; kill -KILL $other) >/dev/null 2>&1 &
"""
    result, seen = watch(here, "-k", options=(), before=meanwhile)
    told = [seen.processes[result.pid("pazed", place)] for place in (0, 1)]
    assert [(process["certain"], process["outcome"]) for process in told] == 2 * [(False, "ended before it was asked")]
    assert sorted(len(process["asked"]) for process in told) == [0, 1] and seen.named("kuror")["certain"]
    names = ", ".join(f"pazed ({process['pid']})" for process in sorted(told, key=lambda process: process["pid"]))
    assert f"\n  Note: the debug log names only a path: what was asked of {names} is a guess\n" in result.stderr
    assert_asked_as_logged(result, seen)
    assert_outcomes(result, seen)


@pytest.mark.parametrize("words, status", [
    (["--bad"], 125), (["-k"], 125), (["--json"], 125), (["--json="], 125), (["--no-report=1"], 125), (["--draw", "/x"], 125),
    (["--json", "run", "--svg", "$PWD/run", "--", "-k"], 125), (["--draw", "/opt/run", "--svg", "/opt/../opt/run"], 125),
    (["--json", "/opt", "--", "-l"], 125), (["--json", "/opt/none/x", "--", "-l"], 125),
    (["--json", "/tmp/link", "--", "-l"], 125), (["--json", "/tmp/fifo", "--", "-l"], 125),
    (["nosuchprogram", "-l"], 127), (["/opt/none"], 127), (["/opt/x/plain"], 126),
    (["/opt"], 126), (["/opt/x/bad"], 127)])
def test_statuses_of_its_own_where_the_program_never_ran(host, words, status):
    here = host(f"{BIN}/momuhe\n")
    here.write("/opt/x/plain", "no program\n")
    here.install("/dev/null", "/opt/x/bad")
    here.write("/opt/x/bad", "#!/no/such/interpreter\n")
    here.inside("/opt/x/bad").chmod(0o755)
    result = here.run(command=" ".join([WATCH, *words]), before="ln -s /opt/there /tmp/link; mkfifo /tmp/fifo\n")
    assert (result.status, result.stdout) == (status, "")
    assert re.fullmatch("cvstop-watch: .+\n", result.stderr), result.stderr
    assert result.log == [] and result.is_alive("momuhe")


def test_help(host):
    result = host().run(command=f"{WATCH} --help")
    assert result.status == 0 and result.stderr == "" and result.stdout.startswith("Usage: cvstop-watch ")


@pytest.mark.parametrize("words", ["cvstop -l", f"-- {CVSTOP} -l", "-- -l", f"{CVSTOP} -l", "--no-report cvstop -l"])
def test_ways_to_name_the_program(host, words):
    result = host(f"{BIN}/momuhe\n").run(command=f"{WATCH} {words}")
    assert result.status == 0 and result.stdout.count(f"{BIN}/momuhe") == 1 and result.stderr == ""


def test_death_by_a_signal_is_passed_on(host):
    """And the watcher itself heeds no Ctrl-C."""
    here = host(f"{BIN}/strayd ignore=all\n")
    script = (f"import os, signal, subprocess, time\n"
              f"run = subprocess.Popen(['{WATCH}', '--no-report', '--json', '{WATCHED}', '--', '-k'], start_new_session=True)\n"
              f"while not os.path.exists('{LOG}') or 'strayd (1)' not in open('{LOG}').read(): time.sleep(0.01)\n"
              f"os.killpg(run.pid, signal.SIGINT)\nprint(run.wait())\n")
    here.write("/opt/interrupt.py", script)
    result = here.run(command="/usr/bin/python3 /opt/interrupt.py")
    assert_ends(result.stdout, "-2\n")
    seen = Watched(here.inside(WATCHED).read_text())
    assert (seen.run["status"], seen.run["signal"]) == (None, signal.SIGINT)
    assert seen.outcomes() == {"strayd": "survived"}
    # It may still be at what its signal makes it do, which is to write to a file.
    assert seen.named("strayd")["reason"]["state"] in ("sleeping", "running", "sleeping uninterruptibly")


def test_first_process_of_a_container_tells_of_a_death_by_its_status(host):
    """No signal of its own ends it."""
    here = host()
    here.write("/opt/x/dies", "#!/bin/sh\nkill -TERM $$\n")
    here.inside("/opt/x/dies").chmod(0o755)
    assert here.run(command=f"unshare --pid --fork {WATCH} --no-report /opt/x/dies").status == 128 + signal.SIGTERM


@pytest.mark.parametrize("stands, moment", [("", "Name=strayd"), ("", "Waiting for"), ("Waiting for", "Attempting to kill")])
def test_watcher_that_is_killed_ends_nothing(host, stands, moment):
    """What is killed ends at once, and the watcher with it: then it stands still before."""
    here = host(f"{BIN}/strayd ignore=all\n")
    until = f"until grep -qs \"{{}}\" {LOG}; do sleep 0.01; done; "
    stop = until.format(stands) + "kill -STOP $watcher; " if stands else ""
    result = here.run(command=(
        f"sh -c '{WATCH} --json {WATCHED} -- -k & watcher=$!; {stop}{until.format(moment)}kill -KILL $watcher; "
        f"until ! readlink /proc/[0-9]*/exe | grep -qx {CVSTOP}; do sleep 0.1; done'"))
    assert_ends(result.stdout, ALL)
    assert not result.is_alive("strayd") and not here.inside(WATCHED).exists()


def test_two_watchers_at_once(host):
    here = host(f"{BIN}/momuhe\n{BIN}/strayd ignore=INT\n")
    one, other = (f"{WATCH} --no-report --json /opt/watch/{number} -- -k -q" for number in (1, 2))
    here.run(command=f"sh -c '{one} & {other}; wait'")
    seen = [Watched(here.inside(f"/opt/watch/{number}").read_text()) for number in (1, 2)]
    # Neither takes the other's program for one of the product's, nor its records for its own's.
    assert all(set(one.outcomes()) <= {"momuhe", "strayd"} and one.json["not_in_snapshot"] == [] for one in seen)
    assert seen[0].run["pid"] != seen[1].run["pid"]
    assert any("momuhe" in one.outcomes() for one in seen)


def test_twenty_descriptors(host):
    here = host(f"{BIN}/momuhe count=12\n{BIN}/nuwezato count=12\n")
    result, seen = watch(here, "-k", prefix="ulimit -n 20; ")
    assert (result.stderr, result.status) == ("", 1)
    assert_ends(result.stdout, ALL_SPECIFIED)
    assert seen.run["resolution"] == 0.1 and set(seen.outcomes().values()) == {"ended"}
    assert_asked_as_logged(result, seen)


def test_kernel_without_pidfd_is_exact_to_100_ms(host):
    here = host(f"{BIN}/momuhe count=3\n{BIN}/strayd ignore=INT\n")
    here.write("/opt/refuse.py", REFUSE_PIDFD)
    result, seen = watch(here, "-k", prefix="/usr/bin/python3 /opt/refuse.py ")
    assert (result.stderr, result.status) == ("", 1)
    assert seen.run["resolution"] == 0.1
    assert seen.outcomes() == {"momuhe": "ended", "strayd": "ended"}
    assert_asked_as_logged(result, seen)
    late = lateness(here, seen)
    # Beside everything else that keeps this machine busy; test_watch_exact.py has the figure.
    assert late and all(-0.001 < one < 1 for one in late.values()), late


# --- the log

def test_log_that_cannot_be_written(host):
    here = host(f"{BIN}/momuhe\n")
    (here.quarn / "corvane/logs").rmdir()
    here.write("/usr/quarn/corvane/logs", "a file stands in the way\n")
    result, seen = watch(here, "-k")
    assert_ends(result.stdout, ALL_SPECIFIED)
    assert_nothing_is_known(seen)
    assert len(seen.run["notes"]) == 1 and "log" in seen.run["notes"][0]


def assert_nothing_is_known(seen):
    """Of nobody is it said for certain that nothing was asked of it, and no stage is told."""
    assert seen.run["log_complete"] is False and seen.stages == []
    assert not any(process["asked"] or process["certain"] for process in seen.json["processes"]) and seen.json["processes"]


def test_script_around_the_program(host):
    """Its pid has no record."""
    here = host(f"{BIN}/momuhe\n{BIN}/koka\n")
    here.write("/opt/x/wrap", f"#!/bin/sh\n{CVSTOP} -k -q\nexit 1\n")
    here.inside("/opt/x/wrap").chmod(0o755)
    here.write(f"{BIN}/excludelist.conf", f"{BIN}/koka\n")
    result = here.run(command=f"{WATCH} --json {WATCHED} --svg /opt/watch/run.svg /opt/x/wrap")
    seen = Watched(here.inside(WATCHED).read_text())
    assert_nothing_is_known(seen)
    headline = r"client: 2 processes in \d\.\d\d s, 1 ended, 1 still there; who was asked is not known; status 1"
    assert re.search(rf"^cvstop-watch: {headline}$", result.stderr, re.M), result.stderr
    assert re.search(rf'<title id="t">{headline}</title>', here.inside("/opt/watch/run.svg").read_text())
    assert "ended before" not in result.stderr and "gathering" not in result.stderr


def test_disk_under_the_log_that_is_full_in_the_middle(host):
    """The program goes on, and its records are lost from then on."""
    here = host(f"{BIN}/kuror stop=2\n{BIN}/halvd\n{BIN}/nanid\n")
    folder = LOG.rsplit("/", 1)[0]
    # The log's own last page is filled as well.
    fill = (f"mkdir -p {folder}; mount -t tmpfs -o size=64k tmpfs {folder}\n(until grep -qs 'Requesting .*kuror' {LOG}; "
            f"do sleep 0.01; done; cat /dev/zero >{folder}/full; cat /dev/zero >>{LOG}) >/dev/null 2>&1 &\n")
    result, seen = watch(here, "-k", "-q", before=fill)
    assert result.status == 1 and not result.is_alive("halvd")
    assert seen.run["log_complete"] is False
    assert seen.run["notes"] == ["the debug log breaks off before the end of the shutdown, records are missing"]
    assert seen.named("kuror")["certain"] and seen.outcomes()["kuror"] == "ended"
    unknown = [process for process in seen.json["processes"] if not process["asked"]]
    assert unknown and not any(process["certain"] for process in unknown)


@pytest.mark.parametrize("name", ["cvstop.log.1", "elsewhere"])
def test_log_that_is_rotated_in_the_middle(host, name):
    here = host(f"{BIN}/momuhe\n{BIN}/strayd ignore=all\n")
    rotate = (f"(until grep -qs 'strayd (1)' {LOG}; do sleep 0.01; done; mv {LOG} {LOG.replace('cvstop.log', name)}; : >{LOG}) "
              ">/dev/null 2>&1 &\n")
    result, seen = watch(here, "-k", before=rotate)
    assert seen.asked("strayd") == ["SIGINT", "SIGTERM", "SIGQUIT", "SIGKILL"] and seen.run["notes"] == []
    assert seen.outcomes() == {"momuhe": "ended", "strayd": "killed"}


OTHERS_RECORD = "2026-11-21T19:53:02.123456+00:00 client cvstop[1] info Main: nothing"


@pytest.mark.parametrize("lines", [0, 3000], ids=["is short", "has outgrown what it was"])
def test_log_that_is_truncated_in_the_middle(host, lines):
    here = host(f"{BIN}/momuhe\n{BIN}/strayd ignore=all\n")
    truncate = (f"(until grep -qs 'Waiting for' {LOG}; do sleep 0.01; done; yes '{OTHERS_RECORD}' | head -n {lines} >{LOG}) "
                ">/dev/null 2>&1 &\n")
    result, seen = watch(here, "-k", before=truncate)
    assert result.status == 1 and not result.is_alive("strayd")
    assert seen.run["notes"] == ["the debug log was truncated while it was followed, records may be missing"]
    assert seen.named("strayd")["outcome"] == "killed"


@pytest.mark.parametrize("log", ["folder", "fifo", "link"])
def test_log_that_is_no_file(host, log):
    here = host(f"{BIN}/momuhe\n")
    folder = LOG.rsplit("/", 1)[0]
    make = {"folder": f"mkdir {LOG}", "fifo": f"mkfifo {LOG}", "link": f"ln -s /etc/passwd {LOG}"}[log]
    command = f"{WATCH} --no-report --json {WATCHED} -- -k"
    result = here.run(command=command, before=f"mkdir -p {folder}; {make}\n", after=f"rm -rf {LOG}\n")
    assert result.status == 1 and not result.is_alive("momuhe")
    assert len(Watched(here.inside(WATCHED).read_text()).run["notes"]) == 1


def test_log_with_the_longest_records(host):
    """Of paths as long as a path can be the records are whole; the one record that is cut tells of nobody."""
    def longest(name):
        folder = BIN + 4 * f"/{'d' * 200}"
        return f"{folder}/{'d' * (1023 - len(folder) - len(name) - 2)}/{name}"

    halvd, momuhe = longest("halvd"), longest("momuhe")
    here = host(f"{halvd}\n{momuhe}\n{BIN}/kofen\n")
    result, seen = watch(here, "-k", *1000 * ["-q"])
    cut, = (record for record in result.log if record.text.endswith(" [cut]"))
    assert cut.function == "logparams" and cut.pid == seen.run["pid"]
    assert {len(process["path"]) for process in seen.processes.values()} == {1023, len(f"{BIN}/kofen")}
    assert seen.asked("halvd") == [f"{halvd} -terminate"]
    assert seen.asked("momuhe") == seen.asked("kofen") == ["SIGTERM"]
    assert set(seen.outcomes().values()) == {"ended"} and seen.run["notes"] == []
    assert_asked_as_logged(result, seen)


# --- what it writes

def test_full_disk_under_the_json(host):
    here = host(f"{BIN}/momuhe\n")
    result = here.run(
        before="mkdir /tmp/small; mount -t tmpfs -o size=4k tmpfs /tmp/small; head -c 4096 /dev/zero >/tmp/small/full\n",
        command=f"{WATCH} --no-report --json /tmp/small/run.json -- -k", after="ls /tmp/small >/opt/names\n")
    assert result.status == 1 and result.stderr.startswith("cvstop-watch: /tmp/small/run.json is not written: ")
    assert here.inside("/opt/names").read_text() == "full\n"


# --- the watcher beside the program

@pytest.mark.parametrize("arguments", [("-l", "-3"), ("-k", "-3")])
@pytest.mark.parametrize("others", ["", " 9>/usr/quarn/corvane/run.lock"], ids=["streams", "a lock"])
def test_watcher_is_no_user_of_the_product(host, arguments, others):
    """Though it was started in the product's tree, with files of it as its streams, or with one that a script holds as its
    lock."""
    here = host(f"{BIN}/momuhe\n/opt/x/reader open={BIN}/momuhe\n")
    command = f"sh -c 'cd /usr/quarn/corvane && exec {WATCH} --json {WATCHED} -- {' '.join(arguments)}{others}'"
    result = here.run(command=command)
    assert "cvstop-watch" not in result.stdout and result.status == (0 if "-l" in arguments else 1)
    seen = Watched(here.inside(WATCHED).read_text())
    assert set(seen.outcomes()) == {"momuhe", "reader"}


@pytest.mark.parametrize("arguments", ["-l -3", "-k -3"])
def test_lock_of_the_starter_changes_nothing(host, arguments):
    """On a host where nothing runs, one user more is another status."""
    here = host()
    lock = "9>/usr/quarn/corvane/run.lock"
    plain = here.run(command=f"sh -c 'exec {CVSTOP} {arguments} {lock}'")
    through = here.run(command=f"sh -c 'exec {WATCH} --no-report -- {arguments} {lock}'")
    assert (through.stdout, through.stderr, through.status) == (plain.stdout, plain.stderr, plain.status)
    assert through.status == 0


@pytest.mark.parametrize("streams", ["<&-", ">&-", "2>&-", "<&- >&- 2>&-"])
def test_closed_streams_stay_closed(host, streams):
    here = host()
    here.write("/opt/x/look", "#!/bin/sh\nfor fd in 0 1 2; do test -e /proc/$$/fd/$fd && echo $fd; done >/opt/open\n")
    here.inside("/opt/x/look").chmod(0o755)
    here.run(command=f"sh -c '/opt/x/look {streams}'")
    alone = here.inside("/opt/open").read_text()
    here.run(command=f"sh -c '{WATCH} --no-report /opt/x/look {streams}'")
    assert here.inside("/opt/open").read_text() == alone


def test_program_has_what_it_would_have_had(host):
    """Signals, limits, environment, working folder, umask, descriptors."""
    here = host()
    here.write("/opt/x/look", "#!/usr/bin/python3\nimport os, resource, sys\n"
               "status = open('/proc/self/status').read().splitlines()\n"
               "kept = [line for line in status if line.startswith(('SigB', 'SigI', 'SigC', 'Umask', 'NoNew', 'Cap'))]\n"
               "limits = [resource.getrlimit(number) for number in range(16)]\n"
               "print(kept, limits, sorted(os.environ.items()), os.getcwd(), sorted(os.listdir('/proc/self/fd')), sys.argv,"
               " os.getpgrp() == os.getpgid(os.getppid()), os.getsid(0), os.nice(0), file=open('/opt/looked', 'a'))\n")
    here.inside("/opt/x/look").chmod(0o755)
    script = ("import os, resource, signal, sys\nsignal.signal(signal.SIGCHLD, signal.SIG_IGN)\n"
              "signal.signal(signal.SIGQUIT, signal.SIG_IGN)\nsignal.signal(signal.SIGPIPE, signal.SIG_DFL)\n"
              "signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGUSR2, signal.SIGTERM])\nos.umask(0o27)\n"
              "resource.setrlimit(resource.RLIMIT_NOFILE, (30, 60))\nos.chdir('/usr')\n"
              "if os.fork() == 0: os.execv(sys.argv[1], sys.argv[1:])\nimport time\n"
              "while len(open('/opt/looked').readlines()) < int(os.environ['RUNS']): time.sleep(0.01)\n")
    here.write("/opt/before.py", script)
    here.write("/opt/looked", "")
    here.run(command="sh -c 'RUNS=1 python3 /opt/before.py /opt/x/look -k; sed -i s/.RUNS...1..// /opt/looked;"
                     f" RUNS=2 python3 /opt/before.py {WATCH} --no-report -- /opt/x/look -k'")
    alone, through = here.inside("/opt/looked").read_text().splitlines()
    assert through.replace("('RUNS', '2'), ", "") == alone.replace("('RUNS', '1'), ", "")


def test_no_proc(host):
    """Without a process table there is nothing to see, and the program says what it says."""
    here = host(f"{BIN}/momuhe\n")
    unseen = "unshare --mount sh -c 'mount -t tmpfs none /proc && "
    plain = here.run(command=f"{unseen}{CVSTOP} -k'")
    through = here.run(command=f"{unseen}{WATCH} --no-report --json {WATCHED} -- -k'")
    assert (through.stdout, through.status) == (plain.stdout, plain.status)
    seen = Watched(here.inside(WATCHED).read_text())
    assert seen.run["observed"] is False and "cannot be listed" in seen.run["notes"][0]


def test_process_table_that_goes_away(host):
    """Who came back is not known then, and that is said."""
    here = host(f"{BIN}/momuhe\n")
    here.write("/opt/x/hide", "#!/bin/sh\nexec mount -t tmpfs none /proc\n")
    here.inside("/opt/x/hide").chmod(0o755)
    here.run(command=f"unshare --mount {WATCH} --no-report --json {WATCHED} /opt/x/hide")
    seen = Watched(here.inside(WATCHED).read_text())
    assert seen.run["status"] == 0 and seen.json["came_back"] == []
    assert any(note.startswith("who came back is not known: ") for note in seen.run["notes"])
