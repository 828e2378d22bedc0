/// The program: started as it would have been without a watcher, waited for, and died like.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "Inherited.h"
#include "UniqueFd.h"

namespace watch {

struct Program {
    /// What is executed, and as what: argv[0] is the name that was given.
    std::string path;
    std::vector<std::string> words;
};

/// Where the program's streams go instead of where they are; -1: they are inherited.
struct Streams {
    int output = -1;
    bool takesStandardOutput = false;
};

struct Started {
    pid_t pid = -1;
    /// 0, or the errno value for which there is no process.
    int error = 0;
    /// The interrupt that came first, so that there is no process either: the watcher has to end by it.
    std::optional<int> interrupt;
    /// Where it says why it could not become the program, if it could not.
    UniqueFd reason;
};

/// `letGo` is run in the watcher when the program has its streams, and before it can look around. An interrupt that
/// reaches the watcher until then is held; one that reaches both is the program's.
Started startProgram(const Program& program, const Streams& streams, const Inherited& inherited,
                     const std::function<void()>& letGo);

/// 0, or the errno value for which the process, which has ended, never became the program.
int whyItNeverRan(const Started& started);

/// How a program ended; exactly one is set.
struct Ending {
    std::optional<int> status;
    std::optional<int> signal;
};

/// Nothing while it runs, or stands still.
std::optional<Ending> endingOf(pid_t pid);

/// Ends the watcher as the program ended: with its status, or by its signal, without a core file of its own.
[[noreturn]] void endLike(const Ending& ending);

} // namespace watch
