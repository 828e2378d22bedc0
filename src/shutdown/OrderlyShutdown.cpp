#include "shutdown.h"

#include <unistd.h>

#include "Arguments.h"
#include "Messages.h"
#include "Sparing.h"

namespace {

constexpr char kUnit[] = "OrderlyShutdown";
constexpr char kFunction[] = "OrderlyShutdown";

void carryOutRow(Processes& procs, const killDef& row, int secondSignal, int pass) {
    CV_Process_s* first = procs.findProcess(row.name);
    if (terminateAllProcesses(procs, row, secondSignal, pass) != 0) {
        logmsgf(kLogProgress, kFunction, "Terminate request for %s", row.name.c_str());
    }
    if (row.waitType != WAIT_NONE) {
        // For the process found before the row ran, whether or not the row stopped it.
        procs.WaitForProcess(first, Args.waitTime);
    }
}

/// Whether the pass over what remains may stop the record: in pass 1 what no row handled, in pass 2 everything.
bool isEligible(const CV_Process_s* proc, int pass) {
    return pass == 2 || (pass == 1 && proc->signalled != 1);
}

/// Only the first signal is announced on the console; the process has a second after each of the first two.
void stopWithSignals(Processes& procs, CV_Process_s* proc) {
    logmsgf(kLogProgress, kFunction, "Name=%s Pid=%d", proc->name, proc->pid);
    procs.KillProcess(proc, SIGTYPE_INT, Args.quiet);
    sleep(1);
    procs.KillProcess(proc, SIGTYPE_TERM, true);
    sleep(1);
    procs.KillProcess(proc, SIGTYPE_QUIT, true);
    proc->signalled = 1;
}

void stopRemaining(Processes& procs, int pass) {
    for (CV_Process_s* proc = procs.list(); proc != nullptr; proc = proc->next) {
        // Third parties are no business of the sweep: only an excluded one is worth a line.
        if (const Sparing sparing = sparingOf(proc, Touch::Signal); sparing == Sparing::Excluded) {
            logSparing(sparing, {kUnit, kFunction}, proc);
            continue;
        }
        if (isEligible(proc, pass) && proc->category == CAT_CORVANE && Processes::isProcessActive(proc)) {
            stopWithSignals(procs, proc);
        }
    }
}

} // namespace

std::int32_t OrderlyShutdown(Processes& procs, bool secondSignal, int pass) {
    for (const killDef& row : KillDefines) {
        carryOutRow(procs, row, secondSignal ? 1 : 0, pass);
    }
    logmsgf(kLogProgress, kFunction, "Looking for remaining processes to shut down");
    stopRemaining(procs, pass);
    const int remaining = procs.WaitForAllDone(Args.waitTime, false, Args.quiet);
    if (remaining == 0) {
        if (!Args.quiet) {
            printMessage<Msg::AllSpecifiedTerminated>();
        }
        logmsgf(kLogProgress, kFunction, "All Corvane processes terminated normally.\n");
    }
    return remaining;
}
