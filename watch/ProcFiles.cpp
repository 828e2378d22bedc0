#include "ProcFiles.h"

#include <array>
#include <filesystem>
#include <system_error>
#include <vector>

#include <fcntl.h>

#include "Clock.h"
#include "ProcTexts.h"
#include "UniqueFd.h"

namespace watch {

namespace {

/// Enough for every file that is read whole; arguments are cut there.
constexpr std::size_t kLongestText = 16384;

std::string folderOf(int pid) {
    return "/proc/" + std::to_string(pid);
}

std::string readText(const std::string& path) {
    const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    std::array<char, 4096> buffer;
    ssize_t got = 0;
    while (fd && text.size() < kLongestText && (got = ::read(fd.get(), buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return text;
}

std::string readText(int pid, const char* file) {
    return readText(folderOf(pid) + '/' + file);
}

/// "0" for a thread that sleeps nowhere, and for a reader that may not know.
std::string readKernelFunction(const std::string& folder) {
    const std::string function = readText(folder + "/wchan");
    return function == "0" ? "" : function;
}

/// The folder of each of its threads.
std::vector<std::string> threadsOf(int pid) {
    std::vector<std::string> found;
    std::error_code error;
    std::filesystem::directory_iterator thread(folderOf(pid) + "/task", error);
    for (; !error && thread != std::filesystem::directory_iterator(); thread.increment(error)) {
        found.push_back(thread->path());
    }
    return found;
}

/// How much a thread's state explains of why its process is there: uninterruptible sleep heeds nothing.
int weightOf(State state) {
    switch (state) {
    case State::zombie:
    case State::unknown:
        return 0;
    case State::sleeping:
        return 1;
    case State::uninterruptible:
        return 3;
    default:
        return 2;
    }
}

} // namespace

std::optional<ProcState> readProcState(int pid) {
    const std::string text = readText(pid, "stat");
    const std::optional<ProcStat> stat = parseProcStat(text);
    if (!stat) {
        return std::nullopt;
    }
    return ProcState{std::string(stat->name), stateOf(*stat), stat->parent, ofTicks(stat->start)};
}

Activity readActivity(int pid) {
    const std::optional<ProcState> process = readProcState(pid);
    if (!process || process->state != State::sleeping) {
        return {process ? process->state : State::unknown, readKernelFunction(folderOf(pid))};
    }
    Activity activity;
    for (const std::string& thread : threadsOf(pid)) {
        const std::string text = readText(thread + "/stat");
        const std::optional<ProcStat> stat = parseProcStat(text);
        const State state = stat ? stateOf(stat->state) : State::unknown;
        if (weightOf(state) > weightOf(activity.state)) {
            activity = {state, readKernelFunction(thread)};
        }
    }
    return activity;
}

SignalSets readSignals(int pid) {
    SignalSets all = signalsIn(readText(pid, "status"));
    for (const std::string& thread : threadsOf(pid)) {
        // What a thread that has just ended blocked is not there to be read.
        if (const std::string text = readText(thread + "/status"); !text.empty()) {
            all.blocked &= signalsIn(text).blocked;
        }
    }
    return all;
}

std::optional<Peer> readTracer(int pid) {
    const int tracer = tracerIn(readText(pid, "status"));
    if (tracer == 0) {
        return std::nullopt;
    }
    return peerOf(tracer);
}

std::string readUnit(int pid) {
    return unitIn(readText(pid, "cgroup"));
}

std::string readCommandLine(int pid) {
    return commandLineIn(readText(pid, "cmdline"));
}

bool sleepsForATime(int pid) {
    return sleepsForATime(readText(pid, "syscall"), readKernelFunction(folderOf(pid)));
}

Peer peerOf(int pid) {
    const std::optional<ProcState> state = readProcState(pid);
    return {pid, state ? state->name : ""};
}

} // namespace watch
