"""What the watcher writes is what its schema says, and so is what the manual shows of it."""
import copy
import json
import re
import subprocess

import jsonschema
import pytest

from box import BUILD, REPO
from watching import WATCH, WATCHED, watch

PROGRAM = BUILD / "watch/cvstop-watch"
SCHEMA = json.loads((REPO / "watch/schema.json").read_text())
MANUAL = (REPO / "packaging/man/cvstop-watch.8.scd").read_text()
# What stands in a document that scdoc would take for its own.
UNESCAPED = MANUAL.replace("\\\\", "\\")


def closed(schema):
    """The same, with every key that it does not name refused: a later release may add keys, this one must know its own."""
    schema = copy.deepcopy(schema)
    for part in [schema, *schema["$defs"].values(), schema["$defs"]["asked"]["items"]]:
        if part.get("type") == "object":
            part["additionalProperties"] = False
    return schema


VALIDATOR = jsonschema.Draft202012Validator(closed(SCHEMA))


def draw(folder, text):
    (folder / "run.json").write_bytes(text if isinstance(text, bytes) else text.encode())
    return subprocess.run([PROGRAM, "--draw", folder / "run.json", "--svg", folder / "run.svg"], capture_output=True, text=True,
                          check=False)


def examples():
    blocks = re.findall(r"^```\n(.*?)^```", UNESCAPED, re.M | re.S)
    return [block for block in blocks if block.startswith("{")]


def example():
    return json.loads(examples()[0])


def test_schema_is_a_schema():
    jsonschema.Draft202012Validator.check_schema(SCHEMA)


def test_examples_of_the_manual_are_as_the_schema_says(tmp_path):
    assert len(examples()) == 1
    for text in examples():
        VALIDATOR.validate(json.loads(text))
        assert draw(tmp_path, text).returncode == 0


def test_words_are_those_of_the_code():
    words = {name: re.findall(r'\{\w+(?:::\w+)+, "([^"]+)"\}', table) for name, table in
             re.findall(r"(k\w+Words)\[\] = \{(.*?)\n\};", (REPO / "watch/Words.h").read_text(), re.S)}
    parts = SCHEMA["$defs"]
    assert words["kAskedWords"] == parts["asked"]["items"]["properties"]["kind"]["enum"]
    assert words["kStateWords"] == parts["reason"]["properties"]["state"]["enum"]
    assert words["kOutcomeWords"] == parts["process"]["properties"]["outcome"]["enum"]
    assert words["kStageWords"] == parts["stage"]["properties"]["kind"]["enum"]
    told = MANUAL.split("_outcome_ is one of:")[1].split("\n# ")[0]
    assert re.findall(r"^\*([^*]+)\*$", told, re.M) == words["kOutcomeWords"]


FLEET = """/usr/quarn/corvane/bin/nuwezato
/usr/quarn/corvane/bin/rawurudo stop=1
/usr/quarn/corvane/bin/koka
/usr/quarn/corvane/bin/stray ignore=INT,TERM,QUIT
/usr/quarn/corvane/bin/kuror stop=2
/opt/holder cwd=/usr/quarn/corvane
"""


def test_run_is_told_as_the_schema_says_and_drawn_again_alike(host, tmp_path):
    here = host(FLEET)
    here.write("/usr/quarn/corvane/bin/excludelist.conf", "/usr/quarn/corvane/bin/koka\n")
    result, _ = watch(here, "-k", "-3", options=("--svg", "/opt/watch/run.svg"))
    told = json.loads(here.inside(WATCHED).read_text())
    VALIDATOR.validate(told)
    outcomes = {process["name"]: process["outcome"] for process in told["processes"]}
    assert outcomes == {"nuwezato": "ended", "rawurudo": "ended", "koka": "spared", "stray": "killed", "kuror": "ended",
                        "holder": "spared"}
    assert [stage["kind"] for stage in told["stages"] if stage["kind"] != "row"] == [
        "gathering", "sweep", "wait", "kill", "wait after the kill"]
    assert draw(tmp_path, here.inside(WATCHED).read_bytes()).returncode == 0
    assert (tmp_path / "run.svg").read_bytes() == here.inside("/opt/watch/run.svg").read_bytes()
    assert re.match(r"\ncvstop-watch: client: 6 processes in \d+\.\d s, 3 ended, 1 killed, 2 spared; status 1\n", result.stderr)
    assert re.search(r"^  stray \(\d+\) +\d+\.\d s +[\d.]+ s +[\d.]+ s  SIGINT, SIGTERM, SIGQUIT, SIGKILL$", result.stderr, re.M)
    assert re.search(rf"^  wait +\d+\.\d s  stray \({result.pid('stray')}\)$", result.stderr, re.M)


@pytest.mark.parametrize("change, error", [
    (lambda run: run.update(version=2), "version: only version 1 is known"),
    (lambda run: run.pop("stages"), "stages: is missing"),
    (lambda run: run["processes"][0].update(pid=0), "processes[0].pid: must be a whole number from 1 to 4194304"),
    (lambda run: run["processes"][0].update(outcome="gone"), "processes[0].outcome: must be one of: ended, "),
    (lambda run: run["run"].update(signal=9), "run: either status or signal must be null"),
])
def test_what_the_reader_refuses_the_schema_refuses(tmp_path, change, error):
    changed = example()
    change(changed)
    assert not VALIDATOR.is_valid(changed)
    run = draw(tmp_path, json.dumps(changed))
    assert (run.returncode, run.stdout) == (1, "")
    assert run.stderr.startswith(f"cvstop-watch: {tmp_path}/run.json: {error}")
    assert not (tmp_path / "run.svg").exists()


def test_file_that_is_no_json_is_refused(tmp_path):
    run = draw(tmp_path, b"\x7fELF\n")
    assert (run.returncode, run.stderr) == (1, f"cvstop-watch: {tmp_path}/run.json: line 1: is no JSON\n")


@pytest.mark.parametrize("option", ["--json", "--svg"])
@pytest.mark.parametrize("make, why", [
    ("ln -s other /tmp/file", "is a link"), ("mkfifo /tmp/file", "is no regular file"), ("mkdir /tmp/file", "is a folder"),
    ("touch /tmp/x; ln -s x /tmp/file", "is a link"), ("file=/tmp/nowhere/file", "No such file or directory"),
])
def test_file_that_is_none_is_refused_before_anything_happens(host, option, make, why):
    here = host("/usr/quarn/corvane/bin/nuwezato\n")
    result = here.run(command=f"file=/tmp/file; {make}; {WATCH} {option} $file -- -k")
    assert (result.status, result.stdout) == (125, "") and re.fullmatch(f"cvstop-watch: [\\w/]+/file: {why}\n", result.stderr)
    assert result.is_alive("nuwezato")
