/// The words that stand for the run's enums, in JSON, report and picture alike. The schema has them once more.
#pragma once

#include <string_view>

#include "Run.h"

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
    for (const Word<Enum>& row : table) {
        if (row.value == value) {
            return row.word;
        }
    }
    return {};
}

} // namespace watch
