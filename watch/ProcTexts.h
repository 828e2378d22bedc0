/// What the kernel's texts about one process mean. Pure.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Run.h"

namespace watch {

/// What PID/stat (proc_pid_stat(5)) says.
struct ProcStat {
    std::string_view name;
    char state = '?';
    int parent = 0;
    /// Of a process that is over at most 1.
    int threads = 0;
    /// Ticks of the kernel since the machine's start.
    std::uint64_t start = 0;
};

/// Of a process, or of one of its threads (PID/task/TID/stat).
///
/// Reads "PID (NAME) STATE PPID ...". A name may hold blanks and brackets: the last ')' ends it.
std::optional<ProcStat> parseProcStat(std::string_view text);

State stateOf(char letter);

/// What the process is doing as a whole, as far as its first thread tells: one whose first thread has exited is a
/// zombie only if no other thread is left; else it sleeps.
State stateOf(const ProcStat& stat);

/// The pid behind "TracerPid:" in PID/status; 0 for none.
int tracerIn(std::string_view status);

/// Sets of signals: signal 1 is the lowest bit.
struct SignalSets {
    std::uint64_t ignored = 0;
    std::uint64_t blocked = 0;
};

/// Behind "SigIgn:" and "SigBlk:" in PID/status; empty for none.
SignalSets signalsIn(std::string_view status);
bool holds(std::uint64_t set, int signal);

/// The systemd unit in PID/cgroup: the last component of the path that ends in ".service", ".scope" or another unit's
/// ending; empty for none. Both forms of the file are read (cgroups(7)): "0::PATH", and "1:name=systemd:PATH".
std::string unitIn(std::string_view cgroup);

/// PID/cmdline with blanks between the arguments.
std::string commandLineIn(std::string_view cmdline);

/// Whether a process sleeps for a time, as PID/syscall tells it; where that is empty, because the kernel tells it
/// nobody, as PID/wchan, the kernel's function that it sleeps in.
bool sleepsForATime(std::string_view syscall, std::string_view wchan);

} // namespace watch
