/// What was seen of one run: the values that the run model fills in, and that report, JSON and picture are made from.
///
/// Plain values, no behaviour. Texts are bytes as the kernel or the log gave them: any but NUL may be in them, so
/// whoever shows one to a terminal makes it harmless first.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace watch {

/// A moment, or a length of time: nanoseconds of CLOCK_REALTIME, the clock of the debug log; a moment counts from the
/// epoch. An administrator may set that clock during a run, so that a later moment can be the smaller number.
using Time = std::int64_t;
inline constexpr Time kSecond = 1'000'000'000;

/// Another process that explains one of the run's: a parent, a tracer. The name is empty if it was gone before it was
/// read.
struct Peer {
    int pid = 0;
    std::string name;

    bool operator==(const Peer&) const = default;
};

/// One request to end.
struct Asked {
    enum class Kind { signal, command };
    /// When the program wrote the record of it into the debug log.
    Time time = 0;
    Kind kind = Kind::signal;
    /// "SIGTERM"; or the command line, without the shell's redirection.
    std::string what;
    /// False if the log names only a path that several processes share, and this one is a guess among them.
    bool certain = true;

    bool operator==(const Asked&) const = default;
};

/// What a process was doing when the program had ended; the kernel's letters in brackets.
enum class State {
    unknown,
    running,         // R
    sleeping,        // S, I
    uninterruptible, // D
    stopped,         // T
    traced,          // t
    zombie,          // Z, X
};

/// Why a process outlived the run, as far as the kernel tells.
struct Reason {
    State state = State::unknown;
    /// The kernel's function that it sleeps in (/proc/PID/wchan); empty if it is in none, or the kernel does not say.
    std::string function;
    /// The process that traces it, if one does.
    std::optional<Peer> tracer;
    /// How long it had run when it was looked at.
    Time age = 0;
    /// Of the signals that it was asked with, those that it ignores, and those that each of its threads blocks.
    std::vector<std::string> ignores;
    std::vector<std::string> blocks;

    bool operator==(const Reason&) const = default;
};

enum class Outcome {
    /// It ended after it was asked, without SIGKILL.
    ended,
    /// It ended, and until then nothing had been asked of it: by itself, with its parent, or by another one's command.
    endedUnasked,
    /// It ended after SIGKILL.
    killed,
    /// It was running at the end, and nothing had been asked of it: excluded, only listed, or the program did not come
    /// to it.
    spared,
    /// It was asked, and there at the end. A zombie has ended, and is still there.
    survived,
};

/// One process of the snapshot that was taken just before the program started.
struct Process {
    int pid = 0;
    std::string name;
    std::string path;
    /// One of Proc_categories.
    int category = 0;
    bool excluded = false;
    /// Its row's place in the shutdown table, from 1; 0 if no row has its name.
    int row = 0;
    Peer parent;
    /// The systemd unit that it belongs to (/proc/PID/cgroup); empty if none does.
    std::string unit;
    /// When it started, to a tick of the kernel (10 ms); nothing if it was gone before it was looked at.
    std::optional<Time> start;
    /// In the order of their times.
    std::vector<Asked> asked;
    /// When it ended, exact to Run::resolution; nothing if it was running when the program had ended.
    std::optional<Time> ended;
    /// When its parent took note of the end, if that was not at once: until then it was a zombie, which the program
    /// waits for.
    std::optional<Time> gone;
    Outcome outcome = Outcome::spared;
    /// False if it shares a path with others and the log does not tell which of them were asked, or when, or if nothing
    /// is known to have been asked of it and the log is not complete: what was asked of it, and so its outcome, is a
    /// guess.
    bool certain = true;
    /// Set for each one that survived, and only for those.
    std::optional<Reason> reason;

    bool operator==(const Process&) const = default;
};

/// A part of the shutdown. Rows that found no process are no stages.
struct Stage {
    enum class Kind { gathering, row, sweep, wait, kill, waitAfterKill, thirdParties };
    Kind kind = Kind::gathering;
    /// The row's place in the shutdown table, from 1, and its name; of other stages 0 and empty.
    int row = 0;
    std::string name;
    Time begin = 0;
    Time end = 0;
    /// Pids of processes in the snapshot that the stage waited for, the one that it waited for the longest first.
    std::vector<int> waitedFor;

    bool operator==(const Stage&) const = default;
};

/// A process that the program's log names and the snapshot has not: it started, or changed, in between.
struct Stranger {
    /// 0 if the log does not tell.
    int pid = 0;
    /// A path or a name, whichever the log tells.
    std::string name;
    std::vector<Asked> asked;

    bool operator==(const Stranger&) const = default;
};

/// A process of the product that started after the snapshot and was running when the program had ended.
struct CameBack {
    int pid = 0;
    std::string name;
    std::string path;
    int category = 0;
    Peer parent;
    std::string unit;
    Time start = 0;

    bool operator==(const CameBack&) const = default;
};

struct Run {
    /// The program's path and then its arguments, as it was executed.
    std::vector<std::string> arguments;
    std::string host;
    /// The program's pid.
    int pid = 0;
    Time begin = 0;
    Time end = 0;
    /// How it ended: by itself with `status`, or by `signal`; exactly one is set.
    std::optional<int> status;
    std::optional<int> signal;
    /// How exact the ends of processes are: 0 if the kernel told each at once, else the time between two looks.
    Time resolution = 0;
    /// False if the processes could not be listed: `processes` and `cameBack` are empty then.
    bool observed = true;
    /// False if records of the debug log are missing: one that nothing is known to have been asked of may have been
    /// asked all the same.
    bool logComplete = true;
    /// What could not be seen, and why, a sentence each ("the debug log cannot be read: Permission denied").
    std::vector<std::string> notes;
    /// In the order of time.
    std::vector<Stage> stages;
    /// In the order of the snapshot: by pid.
    std::vector<Process> processes;
    std::vector<Stranger> strangers;
    std::vector<CameBack> cameBack;

    bool operator==(const Run&) const = default;
};

} // namespace watch
