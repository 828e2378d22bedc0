#include "Processes.h"

#include <array>
#include <csignal>
#include <cstdio>

#include <unistd.h>

#include "Arguments.h"
#include "Messages.h"
#include "Sparing.h"

namespace {

constexpr char kUnit[] = "CV_Processes";
constexpr int kLongestWaitSeconds = 30;
/// Report when remaining % 10 == 1: of 30 looks, the 10th, the 20th and the 30th.
constexpr int kProgressPeriodSeconds = 10;
constexpr std::size_t kActiveNamesSize = 500;

/// The system's number for a kind of signal, or 0 (which is never sent) for an unknown kind.
int signalNumber(sig_types signal) {
    switch (signal) {
    case SIGTYPE_HUP:
        return SIGHUP;
    case SIGTYPE_TERM:
        return SIGTERM;
    case SIGTYPE_INT:
        return SIGINT;
    case SIGTYPE_QUIT:
        return SIGQUIT;
    case SIGTYPE_KILL:
        return SIGKILL;
    }
    return 0;
}

bool isWatched(const CV_Process_s* proc, bool all) {
    return all || proc->signalled == 1;
}

/// Fills `names` with the watched processes that are active, as "name (pid), name (pid)", cut to fit. Returns how many
/// there are.
int collectActive(const CV_Process_s* list, bool all, std::array<char, kActiveNamesSize>& names) {
    names.fill('\0');
    int count = 0;
    for (const CV_Process_s* proc = list; proc != nullptr; proc = proc->next) {
        if (!isWatched(proc, all) || !Processes::isProcessActive(proc)) {
            continue;
        }
        if (count > 0) {
            V_cat_snprintf(names.data(), names.size(), ", ");
        }
        ++count;
        V_cat_snprintf(names.data(), names.size(), "%s (%d)", proc->name, proc->pid);
    }
    return count;
}

void announceWait(int count, const char* names, bool quiet, const char* function) {
    if (!quiet && Args.verbose) {
        printMessage<Msg::WaitingFor>(count, names);
    }
    logmsgf(kLogProgress, function, "Waiting for %d processes to terminate. (Active process(es): %s)", count, names);
}

/// Names the signalled processes that a wait has not seen end.
void reportSurvivors(const CV_Process_s* list, bool quiet, const char* function) {
    for (const CV_Process_s* proc = list; proc != nullptr; proc = proc->next) {
        if (proc->signalled != 1 || !Processes::isProcessActive(proc)) {
            continue;
        }
        if (!quiet) {
            printMessage<Msg::HasNotTerminated>(proc->name, proc->pid);
        }
        logmsgf(kLogWarning, function, "%s(%d) has not terminated", proc->name, proc->pid);
    }
}

} // namespace

void Processes::KillProcess(CV_Process_s* proc, sig_types signal, bool quiet) {
    constexpr char kFunction[] = "Processes::KillProcess";
    const Tracer trace(CVLogger::s_default, this, kFunction, kUnit);
    if (proc->pid == getpid()) {
        return;
    }
    // SignalAllProcesses ignores categories: an administrator's editor may be in its list.
    if (const Sparing sparing = sparingOf(proc, Touch::Signal); sparing != Sparing::None) {
        logSparing(sparing, {kUnit, kFunction}, proc);
        return;
    }
    if (const int number = signalNumber(signal); number != 0) {
        // A failure shows as a process that stays active.
        static_cast<void>(kill(proc->pid, number));
    }
    if (!quiet && Args.verbose) {
        printMessage<Msg::SignalingProcess>(proc->path);
    }
    // The number is the kind of signal, not the pid.
    logmsgf(kLogProgress, kFunction, "Signaling process %s (%d)", proc->path, static_cast<int>(signal));
}

void Processes::SignalAllProcesses(bool quiet, sig_types signal) {
    const Tracer trace(CVLogger::s_default, this, "Process::SignalAllProcesses", kUnit);
    for (CV_Process_s* proc = procs; proc != nullptr; proc = proc->next) {
        if (isProcessActive(proc)) {
            KillProcess(proc, signal, quiet);
        }
    }
}

bool Processes::WaitForProcess(CV_Process_s* proc, int seconds) {
    const Tracer trace(CVLogger::s_default, this, "Processes::WaitForProcess", kUnit);
    int count = seconds;
    if (seconds > kLongestWaitSeconds) {
        std::printf("Wait time too long (%d), setting to %d\n", seconds, Args.waitTime);
        count = Args.waitTime;
    }
    if (count == 0) {
        count = 1;
    }
    for (; count > 0; --count) {
        if (!isProcessActive(proc)) {
            return true;
        }
        if (seconds == 0) {
            return false;
        }
        sleep(1);
    }
    return false;
}

int Processes::WaitForAllDone(int seconds, bool all, bool quiet) {
    constexpr char kFunction[] = "Processes::WaitForAllDone";
    const Tracer trace(CVLogger::s_default, this, kFunction, kUnit);
    int count = 0;
    for (int remaining = seconds; remaining > 0; --remaining) {
        std::array<char, kActiveNamesSize> names;
        count = collectActive(procs, all, names);
        if (count == 0) {
            return 0;
        }
        if (remaining % kProgressPeriodSeconds == 1) {
            announceWait(count, names.data(), quiet, kFunction);
        }
        if (remaining > 1) {
            sleep(1);
        }
    }
    if (count > 0) {
        reportSurvivors(procs, quiet, kFunction);
    }
    return count;
}
