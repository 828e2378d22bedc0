#include "ProcTexts.h"

#include <algorithm>
#include <array>
#include <charconv>

#include <sys/syscall.h>

namespace watch {

namespace {

/// The words after the name are counted from the state on: proc_pid_stat(5) has it third, the number of threads 20th,
/// the start 22nd.
constexpr std::size_t kParent = 1;
constexpr std::size_t kThreads = 17;
constexpr std::size_t kStart = 19;

std::string_view takeWord(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \n"), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(" \n"));
    text.remove_prefix(word.size());
    return word;
}

template <class Number> bool parseWhole(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

/// The word behind a key in PID/status; empty where there is none.
std::string_view valueIn(std::string_view status, std::string_view key) {
    const std::size_t position = status.find(key);
    std::string_view rest = position == std::string_view::npos ? "" : status.substr(position + key.size());
    return takeWord(rest);
}

std::uint64_t setIn(std::string_view digits) {
    std::uint64_t set = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), set, 16);
    return error == std::errc() && end == digits.data() + digits.size() ? set : 0;
}

bool isUnit(std::string_view component) {
    constexpr std::array<std::string_view, 5> kEndings = {".service", ".scope", ".socket", ".mount", ".swap"};
    return std::any_of(kEndings.begin(), kEndings.end(), [&](std::string_view ending) {
        return component.size() > ending.size() && component.ends_with(ending);
    });
}

/// A manager's own unit (user@1000.service) stands before those that it runs.
std::string_view lastUnit(std::string_view path) {
    std::string_view unit;
    while (!path.empty()) {
        const std::size_t slash = std::min(path.find('/'), path.size());
        if (isUnit(path.substr(0, slash))) {
            unit = path.substr(0, slash);
        }
        path.remove_prefix(std::min(slash + 1, path.size()));
    }
    return unit;
}

} // namespace

std::optional<ProcStat> parseProcStat(std::string_view text) {
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
        return std::nullopt;
    }
    ProcStat stat;
    stat.name = text.substr(open + 1, close - open - 1);
    std::string_view rest = text.substr(close + 1);
    const std::string_view state = takeWord(rest);
    if (state.size() != 1) {
        return std::nullopt;
    }
    stat.state = state.front();
    for (std::size_t position = kParent; position <= kStart; ++position) {
        const std::string_view word = takeWord(rest);
        if ((position == kParent && !parseWhole(word, stat.parent)) ||
            (position == kThreads && !parseWhole(word, stat.threads)) ||
            (position == kStart && !parseWhole(word, stat.start))) {
            return std::nullopt;
        }
    }
    return stat;
}

State stateOf(char letter) {
    switch (letter) {
    case 'R':
        return State::running;
    case 'S':
    case 'I':
        return State::sleeping;
    case 'D':
        return State::uninterruptible;
    case 'T':
        return State::stopped;
    case 't':
        return State::traced;
    case 'Z':
    case 'X':
        return State::zombie;
    default:
        return State::unknown;
    }
}

State stateOf(const ProcStat& stat) {
    const State state = stateOf(stat.state);
    return state == State::zombie && stat.threads > 1 ? State::sleeping : state;
}

int tracerIn(std::string_view status) {
    int pid = 0;
    return parseWhole(valueIn(status, "\nTracerPid:\t"), pid) ? pid : 0;
}

SignalSets signalsIn(std::string_view status) {
    return {setIn(valueIn(status, "\nSigIgn:\t")), setIn(valueIn(status, "\nSigBlk:\t"))};
}

bool holds(std::uint64_t set, int signal) {
    return (set >> static_cast<unsigned int>(signal - 1) & 1U) != 0;
}

std::string unitIn(std::string_view cgroup) {
    while (!cgroup.empty()) {
        const std::size_t end = std::min(cgroup.find('\n'), cgroup.size());
        const std::string_view line = cgroup.substr(0, end);
        cgroup.remove_prefix(std::min(end + 1, cgroup.size()));
        for (const std::string_view hierarchy : {":name=systemd:", "0::"}) {
            const std::size_t position = line.find(hierarchy);
            if (position == std::string_view::npos) {
                continue;
            }
            if (const std::string_view unit = lastUnit(line.substr(position + hierarchy.size())); !unit.empty()) {
                return std::string(unit);
            }
        }
    }
    return {};
}

std::string commandLineIn(std::string_view cmdline) {
    if (cmdline.ends_with('\0')) {
        cmdline.remove_suffix(1);
    }
    std::string line(cmdline);
    std::replace(line.begin(), line.end(), '\0', ' ');
    return line;
}

bool sleepsForATime(std::string_view syscall, std::string_view wchan) {
    if (syscall.empty()) {
        return wchan == "hrtimer_nanosleep" || wchan == "do_nanosleep";
    }
    long number = -1;
    std::from_chars(syscall.data(), syscall.data() + syscall.size(), number);
    return number == SYS_clock_nanosleep;
}

} // namespace watch
