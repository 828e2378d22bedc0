#include <cstdio>
#include <iostream>

#include "Arguments.h"
#include "ExitStatus.h"
#include "Messages.h"
#include "Processes.h"
#include "front.h"

namespace {

constexpr char kUnit[] = "Main";
constexpr char kFunction[] = "Main";
constexpr Proc_categories kAllCategories =
    static_cast<Proc_categories>(CAT_CORVANE | CAT_THIRD_PARTY | CAT_OTHER_THIRD_PARTY);

void logStart(int argc, char** argv) {
    logmsgf(kLogProgress, kFunction, "********************cvstop initiated********************");
    logparams(argc - 1, argv + 1);
}

/// A shutdown that no option asks for is asked about first.
void confirmBareStart(int argc) {
    if (argc >= 2) {
        return;
    }
    formatMessage<Msg::ConfirmShutdown>();
    if (!confirmAction(outline, std::cout, std::cin)) {
        std::puts("Shutdown aborted.");
        endProgram(ExitStatus::Success);
    }
}

void parseCommandLine(int argc, char** argv) {
    const std::int32_t result = Args.parse(argc, argv);
    if (result == Arguments::Parsed) {
        return;
    }
    if (result == Arguments::Invalid || result == Arguments::UnknownOption) {
        printOutline();
    }
    if (result == Arguments::HelpWanted || result == Arguments::UnknownOption) {
        Args.printUsage();
    }
    endProgram(result == Arguments::HelpWanted ? ExitStatus::Success : ExitStatus::BadCommandLine);
}

int runListMode(Proc_categories categories) {
    takeSnapshot(categories)->PrintProcesses();
    return static_cast<int>(ExitStatus::Success);
}

} // namespace

int main(int argc, char** argv) {
    prepareStandardStreams();
    qngetlocaleEx(lc_messages, sizeof lc_messages, lc_ctype, sizeof lc_ctype, lc_time, sizeof lc_time, lc_collate,
                  sizeof lc_collate, lc_numeric, sizeof lc_numeric, &errsts);
    Initialize();
    logStart(argc, argv);
    confirmBareStart(argc);
    parseCommandLine(argc, argv);
    applyVerbosity();
    const Tracer trace(CVLogger::s_default, nullptr, kFunction, kUnit);
    const Proc_categories categories = Args.thirdParty ? kAllCategories : CAT_CORVANE;
    return Args.listMode ? runListMode(categories) : runShutdownMode(categories);
}
