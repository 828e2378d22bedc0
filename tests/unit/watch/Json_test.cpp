#include "Json.h"

#include <random>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "sample.h"

namespace {

using nlohmann::json;
using testing::HasSubstr;
using watch::fromJson;
using watch::toJson;

/// The sample as a document, to be changed.
json document() {
    return json::parse(toJson(sample::run()));
}

std::string errorOf(const json& changed) {
    const watch::ReadRun read = fromJson(changed.dump());
    EXPECT_TRUE(read.error.empty() || read.run == watch::Run());
    return read.error;
}

TEST(Json, SaysWhatTheRunHolds) {
    const json made = document();
    EXPECT_EQ(made["version"], 1);
    EXPECT_EQ(made["run"], json::parse(R"({"arguments": ["/usr/quarn/corvane/bin/cvstop", "-k", "-3"],
        "host": "client.example", "pid": 4000, "begin": "2026-11-21T19:53:02.123456789Z", "end": 64.75, "status": 1,
        "signal": null, "clock": "CLOCK_REALTIME", "resolution": 0.0, "observed": true,
        "log_complete": true,
        "notes": ["the debug log was rotated"]})"));
    EXPECT_EQ(made["stages"][0],
              json::parse(R"({"kind": "gathering", "row": null, "name": null, "begin": 0.0, "end": 0.25,
        "waited_for": []})"));
    EXPECT_EQ(made["stages"][3], json::parse(R"({"kind": "row", "row": 66, "name": "kuror", "begin": 1.0, "end": 3.5,
        "waited_for": [102]})"));
    EXPECT_EQ(made["processes"][0], json::parse(R"({"pid": 101, "name": "nuwezato",
        "path": "/usr/quarn/corvane/bin/nuwezato", "category": 1, "excluded": false, "row": 8,
        "parent": {"pid": 1, "name": "systemd"}, "unit": null, "start": -3600.0,
        "asked": [{"time": 0.26, "kind": "command", "command": "/usr/quarn/corvane/bin/nuwezato -terminate", "certain": true}],
        "ended": 0.5, "gone": null, "outcome": "ended", "certain": true, "reason": null})"));
    EXPECT_EQ(made["processes"][3]["certain"], false);
    EXPECT_EQ(made["processes"][3]["asked"][0],
              json::parse(R"({"time": 0.9, "kind": "signal", "signal": "SIGTERM", "certain": false})"));
    EXPECT_EQ(made["processes"][3]["reason"], json::parse(R"({"state": "sleeping uninterruptibly",
        "function": "nfs_wait_bit_killable", "tracer": {"pid": 77, "name": "gdb"}, "age": 3664.0,
        "ignores": ["SIGTERM"], "blocks": ["SIGHUP"]})"));
    EXPECT_EQ(made["processes"][3]["unit"], "corvane-mamegok.service");
    EXPECT_EQ(made["not_in_snapshot"][0], json::parse(R"({"pid": null, "name": "/usr/quarn/corvane/bin/late",
        "asked": [{"time": 3.0, "kind": "signal", "signal": "SIGHUP", "certain": true}]})"));
    EXPECT_EQ(made["came_back"][0], json::parse(R"({"pid": 130, "name": "kuror", "path": "/usr/quarn/corvane/bin/kuror",
        "category": 1, "parent": {"pid": 1, "name": "systemd"}, "unit": "kuror.service", "start": 4.25})"));
}

TEST(Json, HasALineForEachStageAndProcess) {
    const std::string text = toJson(sample::run());
    EXPECT_THAT(text, testing::StartsWith("{\n  \"version\": 1,\n  \"run\": {\"arguments\":["));
    EXPECT_THAT(text, HasSubstr("\n  \"processes\": [\n    {\"pid\":101,\"name\":\"nuwezato\","));
    EXPECT_THAT(text, HasSubstr("},\n    {\"pid\":102,"));
    EXPECT_THAT(text, testing::EndsWith("}\n  ]\n}\n"));
    EXPECT_THAT(toJson(watch::Run()), HasSubstr("\n  \"stages\": [],\n  \"processes\": [],\n"));
}

TEST(Json, WritesBytesThatAreNoUtf8) {
    const json made = document();
    EXPECT_EQ(made["processes"][5]["name"], "a\\x5cb\\xff\"<&>\nバ");
}

TEST(Json, ReadsWhatItWrote) {
    const watch::Run run = sample::run();
    const watch::ReadRun read = fromJson(toJson(run));
    EXPECT_EQ(read.error, "");
    EXPECT_TRUE(read.run == run);
}

TEST(Json, KeepsWhenAZombieWasGoneAndThatRecordsAreMissing) {
    watch::Run run = sample::run();
    run.processes[1].gone = sample::at(31);
    run.logComplete = false;
    const json made = json::parse(toJson(run));
    EXPECT_EQ(made["processes"][1]["gone"], 31.0);
    EXPECT_EQ(made["run"]["log_complete"], false);
    EXPECT_TRUE(fromJson(toJson(run)).run == run);
}

TEST(Json, ReadsARunThatASignalEnded) {
    watch::Run run = sample::run();
    run.status.reset();
    run.signal = 2;
    run.observed = false;
    run.resolution = watch::kSecond / 10;
    EXPECT_EQ(document()["run"]["signal"], nullptr);
    EXPECT_EQ(json::parse(toJson(run))["run"]["signal"], 2);
    EXPECT_TRUE(fromJson(toJson(run)).run == run);
}

TEST(Json, WritesEveryWord) {
    watch::Run run = sample::run();
    for (int state = 0; state <= static_cast<int>(watch::State::zombie); ++state) {
        run.processes[3].reason->state = static_cast<watch::State>(state);
        EXPECT_NE(json::parse(toJson(run))["processes"][3]["reason"]["state"], "");
        EXPECT_TRUE(fromJson(toJson(run)).run == run) << state;
    }
}

watch::Time upTo(std::mt19937& random, watch::Time most) {
    return std::uniform_int_distribution(watch::Time(0), most)(random);
}

/// Any bytes but NUL; some of them make what looks like an escape.
std::string randomText(std::mt19937& random) {
    constexpr std::string_view kParts = "\\xf0\x80\xE3\x83\x90\"\n/a\x1f";
    std::string text;
    for (watch::Time length = upTo(random, 12); length > 0; --length) {
        const auto part = static_cast<std::size_t>(upTo(random, 2 * kParts.size() - 1));
        text += part < kParts.size() ? kParts[part] : static_cast<char>(1 + upTo(random, 254));
    }
    return text;
}

TEST(Json, KeepsEveryByteAndEveryNanosecond) {
    constexpr watch::Time kDay = 86'400 * watch::kSecond;
    std::mt19937 random(20261121);
    for (int round = 0; round < 500; ++round) {
        watch::Run run;
        run.pid = 1;
        run.status = 0;
        run.begin = upTo(random, 130 * 365 * kDay);
        run.end = run.begin + upTo(random, kDay);
        run.host = randomText(random);
        run.arguments = {randomText(random), randomText(random)};
        run.processes = {sample::process(2, randomText(random), 0, watch::Outcome::ended)};
        run.processes[0].start = run.begin - upTo(random, 26 * kDay);
        run.processes[0].asked = {
            {run.begin + upTo(random, kDay), watch::Asked::Kind::command, randomText(random), true}};
        run.processes[0].ended = run.begin + upTo(random, kDay);
        ASSERT_TRUE(fromJson(toJson(run)).run == run) << toJson(run);
    }
}

TEST(JsonReader, PassesOverKeysThatItDoesNotKnow) {
    json changed = document();
    changed["later"] = {{"more", 1}};
    changed["processes"][0]["later"] = true;
    EXPECT_EQ(errorOf(changed), "");
}

TEST(JsonReader, SaysWhereATextIsNoJson) {
    EXPECT_EQ(fromJson("").error, "line 1: is no JSON");
    EXPECT_EQ(fromJson("{\n\"version\": 1,\n}").error, "line 3: is no JSON");
    EXPECT_EQ(fromJson("\xff").error, "line 1: is no JSON");
    EXPECT_EQ(fromJson("\"a\nb\"").error, "line 1: is no JSON"); // its end is what is wrong with line 1
    EXPECT_EQ(fromJson("[1e999]").error, "holds a number that is too large");
    EXPECT_EQ(fromJson("[]").error, "the document must be an object");
    EXPECT_EQ(fromJson(std::string(100'000, '[')).error, "line 1: is no JSON");
}

TEST(JsonReader, DemandsEveryKey) {
    const json whole = document();
    for (const json::json_pointer& object :
         {json::json_pointer(""), json::json_pointer("/run"), json::json_pointer("/stages/3"),
          json::json_pointer("/processes/3"), json::json_pointer("/processes/3/parent"),
          json::json_pointer("/processes/3/asked/1"), json::json_pointer("/processes/3/reason"),
          json::json_pointer("/processes/3/reason/tracer"), json::json_pointer("/not_in_snapshot/0"),
          json::json_pointer("/came_back/0")}) {
        for (const auto& [key, value] : whole[object].items()) {
            json changed = whole;
            changed[object].erase(key);
            // Written for people and other programs: the picture does not need it.
            EXPECT_EQ(errorOf(changed).empty(), key == "clock") << object << key;
        }
    }
}

TEST(JsonReader, SaysWhichValueIsWrong) {
    const struct {
        const char* place;
        json value;
        const char* error;
    } rows[] = {
        {"/version", 2, "version: only version 1 is known"},
        {"/version", "1", "version: must be a whole number from 1 to 2147483647"},
        {"/run", nullptr, "run: must be an object"},
        {"/run/arguments", "cvstop", "run.arguments: must be a list"},
        {"/run/arguments/1", 7, "run.arguments[1]: must be a text"},
        {"/run/begin", "2026-11-21T19:53:02Z", "run.begin: must be a date such as 2026-11-21T19:53:02.123456789Z"},
        {"/run/begin", "2026-11-21t19:53:02.123456789Z",
         "run.begin: must be a date such as 2026-11-21T19:53:02.123456789Z"},
        {"/run/begin", "2026-02-29T00:00:00.000000000Z", "run.begin: there is no such date"},
        {"/run/begin", "2026-11-21T24:00:00.000000000Z", "run.begin: there is no such date"},
        {"/run/begin", "2026-11-21T00:60:00.000000000Z", "run.begin: there is no such date"},
        {"/run/begin", "2026-11-21T00:00:60.000000000Z", "run.begin: there is no such date"},
        {"/run/begin", "1969-12-31T23:59:59.000000000Z", "run.begin: there is no such date"},
        {"/run/begin", "2100-01-01T00:00:00.000000000Z", "run.begin: there is no such date"},
        {"/run/end", "1", "run.end: must be a number of seconds"},
        {"/run/end", 4.1e9, "run.end: must be a number of seconds"},
        {"/run/end", -4.1e9, "run.end: must be a number of seconds"},
        {"/run/status", 256, "run.status: must be a whole number from 0 to 255"},
        {"/run/status", -1, "run.status: must be a whole number from 0 to 255"},
        {"/run/status", 1.0, "run.status: must be a whole number from 0 to 255"},
        {"/run/status", 18'446'744'073'709'551'615U, "run.status: must be a whole number from 0 to 255"},
        {"/run/status", nullptr, "run: either status or signal must be null"},
        {"/run/signal", 9, "run: either status or signal must be null"},
        {"/run/signal", 0, "run.signal: must be a whole number from 1 to 127"},
        {"/run/signal", 128, "run.signal: must be a whole number from 1 to 127"},
        {"/run/resolution", -0.1, "run.resolution: must be a number of seconds"},
        {"/run/observed", 1, "run.observed: must be true or false"},
        {"/stages/0/kind", "lunch",
         "stages[0].kind: must be one of: gathering, row, sweep, wait, kill, wait after the kill, "
         "third parties"},
        {"/stages/3/row", 0, "stages[3].row: must be a whole number from 1 to 100000"},
        {"/stages/3/waited_for/0", 0, "stages[3].waited_for[0]: must be a whole number from 1 to 4194304"},
        {"/processes/2/pid", 0, "processes[2].pid: must be a whole number from 1 to 4194304"},
        {"/processes/2/pid", 4'194'305, "processes[2].pid: must be a whole number from 1 to 4194304"},
        {"/processes/2/parent/pid", -1, "processes[2].parent.pid: must be a whole number from 0 to 4194304"},
        {"/processes/2/category", 3, "processes[2].category: must be 1, 2 or 4"},
        {"/processes/2/name", "a\\b",
         "processes[2].name: a backslash stands as \\x5c, a byte that is no UTF-8 as \\xNN, and "
         "none is 0"},
        {"/processes/2/outcome", "gone",
         "processes[2].outcome: must be one of: ended, ended before it was asked, killed, "
         "spared, survived"},
        {"/processes/2/certain", nullptr, "processes[2].certain: must be true or false"},
        {"/processes/3/asked/0/kind", "plea", "processes[3].asked[0].kind: must be one of: signal, command"},
        {"/processes/3/reason/state", "odd",
         "processes[3].reason.state: must be one of: unknown, running, sleeping, sleeping "
         "uninterruptibly, stopped, stopped by its tracer, zombie"},
        {"/processes/3/reason/age", -1, "processes[3].reason.age: must be a number of seconds"},
        {"/not_in_snapshot/0/pid", 0, "not_in_snapshot[0].pid: must be a whole number from 1 to 4194304"},
        {"/came_back/0/name", nullptr, "came_back[0].name: must be a text"},
    };
    for (const auto& row : rows) {
        json changed = document();
        changed[json::json_pointer(row.place)] = row.value;
        EXPECT_EQ(errorOf(changed), row.error) << row.place;
    }
}

TEST(JsonReader, TakesTheEndsOfItsRanges) {
    json changed = document();
    changed["run"]["begin"] = "2099-12-31T23:59:59.999999999Z";
    changed["run"]["end"] = 4e9;
    changed["processes"][0]["start"] = -4e9;
    changed["run"]["status"] = 255;
    changed["processes"][0]["pid"] = 4'194'304;
    changed["processes"][0]["parent"]["pid"] = 0;
    changed["stages"][3]["row"] = 100'000;
    const watch::ReadRun read = fromJson(changed.dump());
    EXPECT_EQ(read.error, "");
    EXPECT_EQ(read.run.end - read.run.begin, 4'000'000'000 * watch::kSecond);
    changed["run"]["begin"] = "1970-01-01T00:00:00.000000000Z";
    EXPECT_EQ(fromJson(changed.dump()).run.begin, 0);
    EXPECT_EQ(errorOf(changed), "");
}

TEST(JsonReader, RefusesEscapesThatAreNone) {
    for (const char* text : {"\\", "\\x", "\\x5", "\\x5G", "\\xFF", "\\n", "a\\x00", "\\xg0"}) {
        json changed = document();
        changed["run"]["host"] = text;
        EXPECT_THAT(errorOf(changed), testing::StartsWith("run.host: a backslash stands as")) << text;
    }
    json changed = document();
    changed["run"]["host"] = std::string("a\0b", 3);
    EXPECT_THAT(errorOf(changed), HasSubstr("none is 0"));
}

} // namespace
