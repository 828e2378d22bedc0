#include "Processes.h"

#include <unistd.h>

#include "Messages.h"
#include "Sparing.h"

namespace {

constexpr char kUnit[] = "CV_Processes";
constexpr char kFunction[] = "Processes::terminate3rdParty";

/// The whole series at once: nothing waits for a third party, the last signal is relied upon. One console line is
/// enough for the five.
void sendAllSignals(Processes& procs, CV_Process_s* proc, bool quiet) {
    procs.KillProcess(proc, SIGTYPE_INT, quiet);
    for (const sig_types signal : {SIGTYPE_TERM, SIGTYPE_HUP, SIGTYPE_QUIT, SIGTYPE_KILL}) {
        procs.KillProcess(proc, signal, true);
    }
}

} // namespace

bool isTerminable(const CV_Process_s* proc) {
    return Processes::isProcessActive(proc);
}

bool isTerminable3rdParty(const CV_Process_s* proc) {
    return proc->category == CAT_THIRD_PARTY && proc->signalled != 1 && Processes::isProcessActive(proc) &&
           proc->pid != getpid();
}

int Processes::terminate3rdParty(bool quiet) {
    const Tracer trace(CVLogger::s_default, this, kFunction, kUnit);
    int count = 0;
    for (CV_Process_s* proc = procs; proc != nullptr; proc = proc->next) {
        if (!isTerminable3rdParty(proc)) {
            continue;
        }
        if (const Sparing sparing = sparingOf(proc, Touch::Signal); sparing != Sparing::None) {
            logSparing(sparing, {kUnit, kFunction}, proc);
            continue;
        }
        logmsgf(kLogProgress, kFunction, "KILLING %s ACTION=%d PID=%d", proc->name, proc->signalled, proc->pid);
        if (!quiet) {
            printMessage<Msg::TerminatingThirdParty>(proc->name, proc->pid);
        }
        sendAllSignals(*this, proc, quiet);
        ++count;
    }
    return count;
}
