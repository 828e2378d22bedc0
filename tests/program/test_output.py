"""Standard output of whole runs, byte for byte."""
import pytest

from box import ALL, ALL_SPECIFIED, BIN, GATHERING, initiating, product, seconds, table, third, until_ended


def signaling(path):
    return f"Signaling process {path}\n"


def requesting(path):
    return f"Requesting termination of {path}.\n"


def waiting(names):
    """The progress lines of one whole wait: the same survivors at each of the three."""
    return 3 * f"Waiting for {len(names)} processes to terminate. (Active process(es): {', '.join(names)})\n"


def test_normal_shutdown(host):
    result = host(f"{BIN}/halvd\n{BIN}/momuhe count=2\n{BIN}/strayd\n").run("-k")
    assert result.stdout == (
        GATHERING + initiating(4) + 2 * signaling(f"{BIN}/momuhe") + requesting(f"{BIN}/halvd")
        + signaling(f"{BIN}/strayd") + ALL_SPECIFIED)
    assert result.stderr == ""
    assert result.status == 1
    assert not any(result.is_alive(name) for name in ("halvd", "momuhe", "strayd"))


def test_process_that_no_row_names_gets_one_signal_announced_of_three(host):
    result = host(f"{BIN}/strayd ignore=INT,TERM\n").run("-k")
    assert result.stdout == GATHERING + initiating(1) + signaling(f"{BIN}/strayd") + ALL_SPECIFIED
    assert result.signals_of("strayd") == ["SIGINT", "SIGTERM", "SIGQUIT"]
    # By the program's own log: a busy machine lets the daemon notice a signal late.
    times = [seconds(r) for r in result.log if r.function == "Processes::KillProcess"]
    assert len(times) == 3 and all((later - sooner) % 86400 >= 0.99 for sooner, later in zip(times, times[1:]))


def test_quiet_shutdown_prints_nothing(host):
    result = host(f"{BIN}/halvd\n{BIN}/momuhe ignore=all\n{BIN}/strayd\n").run("-k", "-q")
    assert result.stdout == ""
    assert result.stderr == ""
    assert result.status == 1
    assert "Attempting to kill remaining 1 process(es) " in result.texts("Main")
    assert not result.is_alive("momuhe")


def test_survivors_are_listed_killed_and_waited_for(host):
    result = host(f"{BIN}/momuhe ignore=all\n{BIN}/halvd stop=never\n").run("-k")
    names = [f"momuhe ({result.pid('momuhe')})", f"halvd ({result.pid('halvd')})"]
    survivors = "".join(f"{name} has not terminated\n" for name in names)
    assert result.stdout == (
        GATHERING + initiating(2) + signaling(f"{BIN}/momuhe") + requesting(f"{BIN}/halvd") + waiting(names) + survivors
        + "\nThere are still processes active.\n" + table([product(result, "momuhe"), product(result, "halvd")])
        + "\n***** Attempting to kill remaining 2 process(es).\n"
        + signaling(f"{BIN}/momuhe") + signaling(f"{BIN}/halvd") + ALL)
    assert result.status == 1
    assert ALL.rstrip() in result.texts("Main")
    assert not result.is_alive("momuhe") and not result.is_alive("halvd")


def test_survivor_of_sigkill_is_reported_twice(host):
    # A zombie whose parent never reaps it answers signal 0 for ever.
    result = host(f"{BIN}/momuhe survive=zombie parent=/opt/keeper/keeper\n").run("-k")
    names = [f"momuhe ({result.pid('momuhe')})"]
    survivor = f"{names[0]} has not terminated\n"
    assert result.stdout == (
        GATHERING + initiating(1) + signaling(f"{BIN}/momuhe") + waiting(names) + survivor
        + "\nThere are still processes active.\n" + table([product(result, "momuhe")])
        + "\n***** Attempting to kill remaining 1 process(es).\n" + signaling(f"{BIN}/momuhe")
        + waiting(names) + survivor)
    assert result.status == 1
    assert result.texts("Processes::WaitForAllDone", "warning") == 2 * [f"momuhe({result.pid('momuhe')}) has not terminated"]


def test_nothing_to_terminate(host):
    result = host().run("-k")
    assert result.stdout == GATHERING + "Nothing to terminate.\n"
    assert result.status == 0


THIRD_PARTIES = (
    "/opt/other/mapper map=/usr/quarn/corvane/lib/libsampled.so\n"
    "/opt/other/editor cwd=/usr/quarn/corvane/bin\n")
HAS_OTHERS = "\nThere are 3 3rd party processes active.\n"


def test_third_parties_of_both_categories_beside_a_survivor(host):
    """Because of the survivor whatever is alive is signalled, and still the editor and the caller's own shell live on."""
    here = host(f"{BIN}/momuhe ignore=all\n" + THIRD_PARTIES)
    result = here.run("-k", "-3", before="cd /usr/quarn/corvane; echo $$ >/usr/quarn/sandbox/shell",
                      after=until_ended("/opt/other/mapper"))
    shell = int(here.file("shell"))
    names = [f"momuhe ({result.pid('momuhe')})"]
    rows = sorted([product(result, "momuhe"), third(result, "mapper", "/opt/other/mapper"),
                   third(result, "editor", "/opt/other/editor"), (here.SHELL.name, here.SHELL, shell, "Third Party")],
                  key=lambda row: row[2])
    expected = (
        GATHERING + initiating(4) + signaling(f"{BIN}/momuhe") + waiting(names) + f"{names[0]} has not terminated\n"
        + "\nThere are still processes active.\n" + table(rows)
        + "\n***** Attempting to kill remaining 1 process(es).\n"
        + "".join(signaling(row[1]) for row in rows if row[0] in ("momuhe", "mapper")) + ALL + HAS_OTHERS)
    # Nobody waits for the mapper's end: where the kernel has not yet ended it, it is listed, or told and signalled once more.
    mapper = third(result, "mapper", "/opt/other/mapper")
    listed = table([mapper])
    told = f"Terminating third party process, mapper pid-{mapper[2]}\n" + signaling("/opt/other/mapper")
    assert result.stdout in (expected, expected + listed, expected + listed + told)
    assert result.signals_of("editor") == []
    assert result.is_alive("editor") and shell in result.alive
    assert not result.is_alive("momuhe") and not result.is_alive("mapper")
    assert result.status == 1


def test_third_party_gets_five_signals_and_is_told_once(host):
    # One that the first signal ends may be gone before the last is sent.
    withstands = THIRD_PARTIES.replace("libsampled.so\n", "libsampled.so ignore=all\n")
    result = host(withstands).run("-k", "-3", after=until_ended("/opt/other/mapper"))
    mapper = third(result, "mapper", "/opt/other/mapper")
    assert result.stdout == (
        GATHERING + initiating(2) + ALL_SPECIFIED + "\nThere are 2 3rd party processes active.\n" + table([mapper])
        + f"Terminating third party process, mapper pid-{mapper[2]}\n" + signaling("/opt/other/mapper"))
    kinds = [text for text in result.texts("Processes::KillProcess") if text.startswith("Signaling")]
    assert kinds == [f"Signaling process /opt/other/mapper ({kind})" for kind in (2, 1, 0, 3, 4)]
    assert result.texts("Processes::terminate3rdParty") == [f"KILLING mapper ACTION=0 PID={mapper[2]}"]
    assert not result.is_alive("mapper") and result.is_alive("editor")


def test_strangers_named_like_rows_with_stop_commands_are_never_run(host):
    """halvd maps the product's library, gowid only sits in its tree: both carry names that rows stop with commands."""
    result = host("/opt/other/halvd map=/usr/quarn/corvane/lib/libsampled.so\n"
                  "/opt/other/wehelud cwd=/usr/quarn/corvane\n").run("-k", "-3")
    halvd = third(result, "halvd", "/opt/other/halvd")
    assert result.stdout == (
        GATHERING + initiating(2) + ALL_SPECIFIED + "\nThere are 2 3rd party processes active.\n" + table([halvd])
        + f"Terminating third party process, halvd pid-{halvd[2]}\n" + signaling("/opt/other/halvd"))
    assert result.commands() == []
    assert any("only listed, Name = wehelud(StopRow:" in text for text in result.texts("terminateAllProcesses"))
    assert any("no command is run for a third party, Name = halvd(StopRow:" in text
               for text in result.texts("terminateAllProcesses"))
    assert result.is_alive("wehelud") and result.signals_of("wehelud") == []


def test_excluded_daemons_are_left_alone(host):
    here = host(f"{BIN}/halvd\n{BIN}/momuhe\n{BIN}/strayd\n{BIN}/lebazog\n")
    here.write("/usr/quarn/corvane/bin/excludelist.conf", f"# kept\n{BIN}/halvd\n  {BIN}/momuhe\t\n{BIN}/./strayd\n")
    result = here.run("-k")
    assert result.stdout == GATHERING + initiating(4) + signaling(f"{BIN}/lebazog") + ALL_SPECIFIED
    for name in ("halvd", "momuhe", "strayd"):
        assert result.is_alive(name) and result.signals_of(name) == []
    assert not result.is_alive("lebazog")
    assert result.status == 1


def test_exclude_list_option_alone_is_a_shutdown_without_a_question(host):
    here = host(f"{BIN}/momuhe\n{BIN}/lebazog\n")
    here.write("/usr/quarn/corvane/bin/excludelist.conf", f"{BIN}/lebazog\n")
    result = here.run("-b", here.write("/usr/quarn/sandbox/mine", f"{BIN}/momuhe\n"))
    # Only the named file counts; but without -k nothing asks for a shutdown level, and the plan runs all the same.
    assert result.stdout == GATHERING + initiating(2) + signaling(f"{BIN}/lebazog") + ALL_SPECIFIED
    assert result.is_alive("momuhe") and not result.is_alive("lebazog")


@pytest.mark.sanitized
def test_list(host):
    result = host(f"{BIN}/halvd\n{BIN}/momuhe count=2\n/usr/quarn/volmgr/bin/zeld\n" + THIRD_PARTIES).run("-l")
    rows = [product(result, "halvd"), product(result, "momuhe"), product(result, "momuhe", 1),
            product(result, "zeld", path="/usr/quarn/volmgr/bin/zeld")]
    assert result.stdout == table(sorted(rows, key=lambda row: row[2]), header=True)
    assert result.status == 0
    assert all(result.is_alive(name) for name in result.pids)


@pytest.mark.sanitized
def test_list_with_third_parties(host):
    # The daemon was started last, and is judged first.
    result = host(THIRD_PARTIES + f"{BIN}/halvd\n").run("-l", "-3")
    rows = [product(result, "halvd"), third(result, "mapper", "/opt/other/mapper"),
            third(result, "editor", "/opt/other/editor")]
    assert result.stdout == table(sorted(rows, key=lambda row: row[2]), header=True)
    assert result.signals == []


@pytest.mark.sanitized
def test_list_of_nothing_is_empty(host):
    result = host().run("-l")
    assert (result.stdout, result.status) == ("", 0)
