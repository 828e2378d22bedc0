#include "shutdown.h"

#include "Arguments.h"
#include "ExitStatus.h"
#include "Messages.h"
#include "Sparing.h"

namespace {

constexpr char kUnit[] = "StopRow";
constexpr char kFunction[] = "terminateAllProcesses";

/// What follows an action: run `command`, or only mark the process.
enum class Next { Run, Mark };

[[noreturn]] void endWithUndefinedAction(killDef const& row) {
    // The caller has formatted `outline`; it is printed even with -q.
    printOutline();
    logmsgf(kLogError, kFunction, "Unimplemented Definition %d", static_cast<int>(row.killType));
    endProgram(ExitStatus::UndefinedAction);
}

/// Whether the row's action runs a command about the process, rather than signalling it or only marking it.
bool runsCommand(kill_type killType) {
    switch (killType) {
    case NORMAL_TERMINATE:
    case PROXY_ALL:
    case LOCAL_TERMINATE:
    case SELECTIVE_CANCEL:
    case HOST_T:
    case REMOVE:
    case MOSK_STOP:
    case STOP:
        return true;
    default:
        return false;
    }
}

/// Puts the executable's path into `command`, from which some actions make a stop command. Never a third party's: such
/// a record comes here only for actions that run none (sparingOf), and none is to be had by mistake, either.
void startCommand(CV_Process_s* proc) {
    if (proc->category == CAT_THIRD_PARTY) {
        command.clear();
    } else {
        InitCommand(proc);
    }
}

Next appendToCommand(const char* arguments) {
    command += arguments;
    return Next::Run;
}

Next replaceCommand(void (*build)(char const*), char const* tail) {
    build(tail);
    return Next::Run;
}

Next sendSignals(Processes& procs, CV_Process_s* proc, sig_types first, sig_types second, int secondSignal) {
    procs.KillProcess(proc, first, Args.quiet);
    if (secondSignal != 0) {
        procs.KillProcess(proc, second, Args.quiet);
    }
    return Next::Mark;
}

/// Suspends what can be suspended and cancels the rest, then asks the job daemon to end.
Next cancelSelectively() {
    AdminCommand("humowow");
    command += " -M localhost -suspend_cancel_selective";
    if (const int status = executeStop(command); status != 0) {
        logmsgf(kLogError, kFunction, "Command %s system call returned error: %d", command.c_str(), status);
    }
    AdminCommand("humowow");
    return appendToCommand(" -M localhost -terminate");
}

Next stopThroughMosk(killDef const& row) {
    MoskCommand(row.name.c_str());
    return appendToCommand(" -stop");
}

/// Carries out the row's action on one active process, whose path `command` holds.
Next act(Processes& procs, CV_Process_s* proc, killDef const& row, int secondSignal, int pass) {
    // For a look at a core file: whether a polite termination was begun, whether robots were left to end. Nothing reads
    // them; without the attribute they would be optimised away.
    [[maybe_unused, gnu::used]] static bool done = false;
    [[maybe_unused, gnu::used]] static bool robots_stopped = false;
    switch (row.killType) {
    case NORMAL_TERMINATE:
        done = true;
        return appendToCommand(" -terminate");
    case TERMINATE_T:
        robots_stopped = true;
        return Next::Mark;
    case KILL:
        return sendSignals(procs, proc, SIGTYPE_TERM, SIGTYPE_HUP, secondSignal);
    case KILLH:
        return sendSignals(procs, proc, SIGTYPE_HUP, SIGTYPE_TERM, secondSignal);
    case KILL9:
        return sendSignals(procs, proc, SIGTYPE_KILL, SIGTYPE_KILL, 0);
    case PROXY_ALL:
        return replaceCommand(AdminCommand, "vilohibo -all");
    case LOCAL_TERMINATE:
        return appendToCommand(" -terminate_local");
    case SELECTIVE_CANCEL:
        return cancelSelectively();
    case NOARGS:
        return Next::Mark;
    case HOST_T:
        return replaceCommand(VmCommand, "nodakewe -h localhost -t");
    case REMOVE:
        return appendToCommand(".stop -remove");
    case MOSK_STOP:
        return stopThroughMosk(row);
    case SKIP:
        return pass == 1 ? Next::Mark : sendSignals(procs, proc, SIGTYPE_TERM, SIGTYPE_HUP, secondSignal);
    case STOP:
        return replaceCommand(BinCommand, "duzahi_start_stop stop");
    case LOCALHOST_TERMINATE:
    case UNMOUNT:
    case ZELDPARAMS:
    case JAVA_STOP:
        break;
    }
    formatMessage<Msg::UndefinedProcessAction>(row.name.c_str(), static_cast<int>(row.killType));
    endWithUndefinedAction(row);
}

void runCommand(const CV_Process_s* proc) {
    const int status = executeStop(command);
    if (!Args.quiet && Args.verbose) {
        printMessage<Msg::RequestingTermination>(proc->path);
    }
    logmsgf(kLogProgress, kFunction, " Requesting termination of %s. Return status=%d. Command=%s", proc->path, status,
            command.c_str());
}

void stopActive(Processes& procs, CV_Process_s* proc, killDef const& row, int secondSignal, int pass) {
    if (row.waitType == WAIT_ALL_FIRST) {
        procs.WaitForAllDone(Args.waitTime, false, Args.quiet);
    }
    startCommand(proc);
    if (act(procs, proc, row, secondSignal, pass) == Next::Run) {
        runCommand(proc);
    }
}

void waitAfter(Processes& procs, CV_Process_s* proc, wait_type waitType) {
    if (waitType == WAIT_PROCESS) {
        procs.WaitForProcess(proc, Args.waitTime);
    } else if (waitType == WAIT_ALL) {
        procs.WaitForAllDone(Args.waitTime, false, Args.quiet);
    }
}

/// Stops, marks and waits for one process of the row. One that has already ended counts as stopped.
void handle(Processes& procs, CV_Process_s* proc, killDef const& row, int secondSignal, int pass) {
    if (Processes::isProcessActive(proc)) {
        stopActive(procs, proc, row, secondSignal, pass);
    }
    proc->signalled = 1;
    waitAfter(procs, proc, row.waitType);
}

} // namespace

std::int32_t terminateCommand(killDef const& row, int pass) {
    command.clear();
    if (pass != 1) {
        return 0;
    }
    if (!row.isCommand) {
        if (!Args.quiet) {
            printMessage<Msg::UnimplementedCommand>(row.name.c_str(), 0);
        }
        logmsgf(kLogError, kFunction, "Unimplemented command, %s %d", row.name.c_str(),
                static_cast<int>(row.isCommand));
        return 0;
    }
    switch (row.killType) {
    case UNMOUNT:
        return 0;
    case ZELDPARAMS:
        command = "not supported";
        return 0;
    default:
        formatMessage<Msg::UndefinedCommandAction>(row.name.c_str(), static_cast<int>(row.killType), 5);
        endWithUndefinedAction(row);
    }
}

std::int32_t terminateAllProcesses(Processes& procs, killDef const& row, int secondSignal, int pass) {
    if (row.isCommand) {
        return terminateCommand(row, pass);
    }
    // A row finds processes by name alone, so a stranger of that name may be among them.
    const Touch touch = runsCommand(row.killType) ? Touch::RunCommand : Touch::Signal;
    std::int32_t count = 0;
    for (CV_Process_s* proc = procs.findProcess(row.name); proc != nullptr; proc = procs.findNextProcess(row.name)) {
        if (const Sparing sparing = sparingOf(proc, touch); sparing != Sparing::None) {
            logSparing(sparing, {kUnit, kFunction}, proc);
            continue;
        }
        handle(procs, proc, row, secondSignal, pass);
        ++count;
        if (row.firstOnly != 0) {
            break;
        }
    }
    return count;
}
