#include "front.h"

#include <csignal>
#include <exception>
#include <iostream>

#include "Arguments.h"
#include "ExitStatus.h"
#include "Messages.h"
#include "shutdown.h"

namespace {

constexpr char kFunction[] = "Main";
/// The highest kill level at which survivors are killed.
constexpr unsigned int kHighestKillingLevel = 2;

/// A reader that goes away or a terminal that is dropped must not end a shutdown half way. For the rest of the run: the
/// last buffer is written when the program exits.
void ignoreLossOfTheTerminal() {
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
}

template <Msg Id, class... Values> void tell(const Values&... values) {
    if (!Args.quiet) {
        printMessage<Id>(values...);
    }
}

void announceKill(const Processes& snapshot, int remaining) {
    if (!Args.quiet) {
        printMessage<Msg::StillActive>();
        print_processes(std::cout, snapshot.list(), false, isTerminable);
        printMessage<Msg::KillingRemaining>(remaining);
    }
    logmsgf(kLogProgress, kFunction, "Attempting to kill remaining %d process(es) ", remaining);
}

void killRemaining(Processes& snapshot, int remaining) {
    announceKill(snapshot, remaining);
    snapshot.SignalAllProcesses(Args.quiet, SIGTYPE_KILL);
    if (snapshot.WaitForAllDone(Args.waitTime, false, Args.quiet) == 0) {
        tell<Msg::AllTerminated>();
        logmsgf(kLogProgress, kFunction, "All processes terminated normally.\n");
    }
}

void shutDown(Processes& snapshot, int count) {
    tell<Msg::InitiatingShutdown>(count);
    const int remaining = OrderlyShutdown(snapshot, false, 1);
    if (remaining >= 1 && static_cast<unsigned int>(Args.killLevel) <= kHighestKillingLevel) {
        killRemaining(snapshot, remaining);
    }
}

int countThirdParties(const CV_Process_s* list) {
    int count = 0;
    for (const CV_Process_s* proc = list; proc != nullptr; proc = proc->next) {
        count += (proc->category & CAT_CORVANE) == 0 ? 1 : 0;
    }
    return count;
}

void reportThirdParties(const Processes& snapshot) {
    const int count = countThirdParties(snapshot.list());
    if (count >= 1 && !Args.quiet) {
        printMessage<Msg::ThirdPartyActive>(count);
        print_processes(std::cout, snapshot.list(), false, isTerminable3rdParty);
    }
}

} // namespace

std::unique_ptr<Processes> takeSnapshot(Proc_categories categories) {
    try {
        return std::make_unique<Processes>(categories, Args.verbosity);
    } catch (const std::exception& exception) {
        logmsgf(kLogError, kFunction, "Exception-%s", exception.what());
        endProgram(ExitStatus::NoSnapshot);
    }
}

int runShutdownMode(Proc_categories categories) {
    ignoreLossOfTheTerminal();
    tell<Msg::GatheringProcesses>();
    const std::unique_ptr<Processes> snapshot = takeSnapshot(categories);
    const int count = static_cast<int>(snapshot->CountProcesses());
    const bool wereActive = count > 0;
    if (wereActive) {
        shutDown(*snapshot, count);
    }
    reportThirdParties(*snapshot);
    if (snapshot->terminate3rdParty(Args.quiet) <= 0 && !wereActive) {
        tell<Msg::NothingToTerminate>();
    }
    return static_cast<int>(snapshot->CountProcesses() != 0 ? ExitStatus::FoundProcesses : ExitStatus::Success);
}
