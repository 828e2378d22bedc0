#include "ProcFiles.h"

#include <array>

#include <fcntl.h>

#include "Clock.h"
#include "ProcTexts.h"
#include "UniqueFd.h"

namespace watch {

namespace {

/// Enough for every file that is read whole; arguments are cut there.
constexpr std::size_t kLongestText = 16384;

std::string readText(int pid, const char* file) {
    const UniqueFd fd(::open(("/proc/" + std::to_string(pid) + '/' + file).c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    std::array<char, 4096> buffer;
    ssize_t got = 0;
    while (fd && text.size() < kLongestText && (got = ::read(fd.get(), buffer.data(), buffer.size())) > 0) {
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return text;
}

} // namespace

std::optional<ProcState> readProcState(int pid) {
    const std::string text = readText(pid, "stat");
    const std::optional<ProcStat> stat = parseProcStat(text);
    if (!stat) {
        return std::nullopt;
    }
    return ProcState{std::string(stat->name), stateOf(stat->state), stat->parent, ofTicks(stat->start)};
}

std::string readKernelFunction(int pid) {
    const std::string function = readText(pid, "wchan");
    // "0" for a process that sleeps nowhere, and for a reader that may not know.
    return function == "0" ? "" : function;
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
    return sleepsForATime(readText(pid, "syscall"), readKernelFunction(pid));
}

Peer peerOf(int pid) {
    const std::optional<ProcState> state = readProcState(pid);
    return {pid, state ? state->name : ""};
}

} // namespace watch
