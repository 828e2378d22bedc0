// A run as the model would fill it in: each outcome, each kind of stage, and texts that are not nice.
#pragma once

#include <string>

#include "Run.h"

namespace sample {

// 2026-11-21T19:53:02.123456789Z
inline constexpr watch::Time kBegin = 1'795'290'782'123'456'789;

constexpr watch::Time at(double seconds) {
    return kBegin + static_cast<watch::Time>(seconds * static_cast<double>(watch::kSecond));
}

inline watch::Asked command(double time, const std::string& line) {
    return {at(time), watch::Asked::Kind::command, line, true};
}

inline watch::Asked signal(double time, const std::string& name, bool certain = true) {
    return {at(time), watch::Asked::Kind::signal, name, certain};
}

inline watch::Process process(int pid, const std::string& name, int row, watch::Outcome outcome) {
    watch::Process process;
    process.pid = pid;
    process.name = name;
    process.path = "/usr/quarn/corvane/bin/" + name;
    process.category = 1;
    process.row = row;
    process.parent = {1, "systemd"};
    process.start = at(-3600);
    process.outcome = outcome;
    return process;
}

inline watch::Process ended(int pid, const std::string& name, int row, double askedAt, double endedAt) {
    watch::Process made = process(pid, name, row, watch::Outcome::ended);
    made.asked = {command(askedAt, made.path + " -terminate")};
    made.ended = at(endedAt);
    return made;
}

inline watch::Process killed(int pid, const std::string& name) {
    watch::Process made = process(pid, name, 0, watch::Outcome::killed);
    made.asked = {signal(3.5, "SIGINT"), signal(4.5, "SIGTERM"), signal(5.5, "SIGQUIT"), signal(34.5, "SIGKILL")};
    made.ended = at(34.51);
    return made;
}

inline watch::Process survivor(int pid, const std::string& name) {
    watch::Process made = process(pid, name, 12, watch::Outcome::survived);
    made.unit = "corvane-" + name + ".service";
    made.asked = {signal(0.9, "SIGTERM", false), signal(34.5, "SIGKILL")};
    made.certain = false;
    made.reason = {watch::State::uninterruptible,
                   "nfs_wait_bit_killable",
                   watch::Peer{77, "gdb"},
                   3664 * watch::kSecond,
                   {"SIGTERM"},
                   {"SIGHUP"}};
    return made;
}

inline watch::Process thirdParty(int pid, const std::string& name) {
    watch::Process made = process(pid, name, 0, watch::Outcome::spared);
    made.path = "/opt/" + name;
    made.category = 4;
    return made;
}

inline watch::Stage stage(watch::Stage::Kind kind, double begin, double end, const std::vector<int>& waitedFor = {}) {
    return {kind, 0, "", at(begin), at(end), waitedFor};
}

inline watch::Stage row(int row, const std::string& name, double begin, double end,
                        const std::vector<int>& waitedFor = {}) {
    return {watch::Stage::Kind::row, row, name, at(begin), at(end), waitedFor};
}

inline watch::Run run() {
    using Kind = watch::Stage::Kind;
    watch::Run run;
    run.arguments = {"/usr/quarn/corvane/bin/cvstop", "-k", "-3"};
    run.host = "client.example";
    run.pid = 4000;
    run.begin = kBegin;
    run.end = at(64.75);
    run.status = 1;
    run.notes = {"the debug log was rotated"};
    run.stages = {stage(Kind::gathering, 0, 0.25),      row(8, "nuwezato", 0.25, 0.3),
                  row(12, "mamegok", 0.3, 1),           row(66, "kuror", 1, 3.5, {102}),
                  stage(Kind::sweep, 3.5, 5.5),         stage(Kind::wait, 5.5, 34.5, {103, 104}),
                  stage(Kind::kill, 34.5, 34.5),        stage(Kind::waitAfterKill, 34.5, 63.5, {104}),
                  stage(Kind::thirdParties, 63.5, 64.5)};
    watch::Process unasked = process(105, "detd", 2, watch::Outcome::endedUnasked);
    unasked.ended = at(0.5);
    unasked.start.reset();
    run.processes = {ended(101, "nuwezato", 8, 0.26, 0.5),
                     ended(102, "kuror", 66, 1.01, 3.25),
                     killed(103, "stray"),
                     survivor(104, "mamegok"),
                     unasked,
                     thirdParty(106, "a\\b\xff\"<&>\n\xE3\x83\x90")};
    run.processes.back().excluded = true;
    run.strangers = {{0, "/usr/quarn/corvane/bin/late", {signal(3, "SIGHUP")}}, {120, "later", {}}};
    run.cameBack = {{130, "kuror", "/usr/quarn/corvane/bin/kuror", 1, {1, "systemd"}, "kuror.service", at(4.25)}};
    return run;
}

} // namespace sample
