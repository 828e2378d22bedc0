/// The words that stand for the run's enums, in JSON, report and picture alike. The schema has them once more.
#pragma once

#include <algorithm>
#include <iterator>
#include <string_view>
#include <vector>

#include "Run.h"
#include "cvcategories.h"

namespace watch {

template <typename Enum> struct Word {
    Enum value;
    std::string_view word;
};

inline constexpr Word<Asked::Kind> kAskedWords[] = {
    {Asked::Kind::signal, "signal"},
    {Asked::Kind::command, "command"},
};

inline constexpr Word<State> kStateWords[] = {
    {State::unknown, "unknown"},   {State::running, "running"},
    {State::sleeping, "sleeping"}, {State::uninterruptible, "sleeping uninterruptibly"},
    {State::stopped, "stopped"},   {State::traced, "stopped by its tracer"},
    {State::zombie, "zombie"},
};

inline constexpr Word<Outcome> kOutcomeWords[] = {
    {Outcome::ended, "ended"},       {Outcome::endedUnasked, "ended before it was asked"},
    {Outcome::killed, "killed"},     {Outcome::spared, "spared"},
    {Outcome::survived, "survived"},
};

inline constexpr Word<Stage::Kind> kStageWords[] = {
    {Stage::Kind::gathering, "gathering"},
    {Stage::Kind::row, "row"},
    {Stage::Kind::sweep, "sweep"},
    {Stage::Kind::wait, "wait"},
    {Stage::Kind::kill, "kill"},
    {Stage::Kind::waitAfterKill, "wait after the kill"},
    {Stage::Kind::thirdParties, "third parties"},
};

/// The word of a value that the table has; it has all of them.
template <typename Enum, std::size_t count>
constexpr std::string_view wordOf(const Word<Enum> (&table)[count], Enum value) {
    return std::find_if(std::begin(table), std::end(table), [&](const Word<Enum>& row) { return row.value == value; })
        ->word;
}

/// Whether nothing is known to have been asked of the process, and that may be because records are missing.
inline bool isAskingUnknown(const Process& process, const Run& run) {
    return !run.logComplete && !process.certain && process.asked.empty();
}

/// Why a process that was spared was left alone.
inline std::string_view whyLeftAlone(const Process& process) {
    return process.excluded ? "excluded" : process.category == CAT_OTHER_THIRD_PARTY ? "only listed" : "not asked";
}

/// Whether it is a guess that each of the requests was for this one.
inline bool isGuess(const std::vector<Asked>& asked) {
    return std::any_of(asked.begin(), asked.end(), [](const Asked& request) { return !request.certain; });
}

/// Whether it is a guess what became of the process: it may have been asked, or not.
inline bool isOutcomeGuess(const Process& process) {
    return !process.certain && std::none_of(process.asked.begin(), process.asked.end(),
                                            [](const Asked& request) { return request.certain; });
}

} // namespace watch
