#include "Processes.h"

// The check in ExcludeProcess holds in every build: without this, a release build does not even declare what it calls.
#undef NDEBUG
#include <cassert>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "ExitStatus.h"
#include "Messages.h"
#include "cvlog.h"

namespace {

constexpr char kUnit[] = "CV_Processes";

/// The first record from `from` on with exactly this name, or null.
CV_Process_s* findFrom(CV_Process_s* from, const std::string& name) {
    CV_Process_s* proc = from;
    while (proc != nullptr && name != proc->name) {
        proc = proc->next;
    }
    return proc;
}

} // namespace

Processes::Processes() {
    const Tracer trace(CVLogger::s_default, this, "Processes::Processes", kUnit);
    loadExcludelist();
    getProcesses(0, CAT_CORVANE);
}

Processes::Processes(Proc_categories categories, int verbosity) {
    const Tracer trace(CVLogger::s_default, this, "Processes::Processes", kUnit);
    loadExcludelist();
    getProcesses(verbosity, categories);
}

Processes::~Processes() {
    free_process_list(procs);
}

CV_Process_s* Processes::getProcesses(int verbosity, Proc_categories categories) {
    constexpr char kFunction[] = "Processes::getProcesses";
    const Tracer trace(CVLogger::s_default, this, kFunction, kUnit);
    verbose = verbosity;
    logmsgf(kLogProgress, kFunction, "Calling find_processes_CV with verbose = %d", verbose);
    free_process_list(procs);
    procs = nullptr;
    const int status = find_processes_CV(&procs, categories, verbose);
    if (status != 0) {
        logmsgf(kLogError, kFunction, "find_processes_CV failed with status %d", status);
        printMessage<Msg::ListerFailed>(status);
        endProgram(ExitStatus::NoSnapshot);
    }
    cleanProcs();
    return procs;
}

void Processes::cleanProcs() {
    // The log knows it by this name.
    const Tracer trace(CVLogger::s_default, this, "Processes::clearProcs", kUnit);
    for (CV_Process_s* proc = procs; proc != nullptr; proc = proc->next) {
        proc->signalled = 0;
        proc->excluded = userList.processExcludelistContains(proc->path) ? 1 : 0;
    }
}

CV_Process_s* Processes::findProcess(std::string name) {
    const Tracer trace(CVLogger::s_default, this, "Processes::findProcesses", kUnit);
    CV_Process_s* found = findFrom(procs, name);
    if (found != nullptr) {
        lastProc = found;
    }
    return found;
}

CV_Process_s* Processes::findNextProcess(std::string name) {
    const Tracer trace(CVLogger::s_default, this, "Processes::findNextProcesses", kUnit);
    if (lastProc == nullptr) {
        return nullptr;
    }
    CV_Process_s* found = findFrom(lastProc->next, name);
    if (found != nullptr) {
        lastProc = found;
    }
    return found;
}

void Processes::ExcludeProcess(const char* name) {
    if (lastProc != nullptr) {
        // Not assert(lastProc == NULL): the text of the abort would differ from the required one.
        __assert_fail("lastProc == __null", kUnit, __LINE__, __PRETTY_FUNCTION__);
    }
    free_process_list(exclude_process(procs, name));
}

unsigned int Processes::CountProcesses() const {
    unsigned int count = 0;
    for (const CV_Process_s* proc = procs; proc != nullptr; proc = proc->next) {
        ++count;
    }
    return count;
}

bool Processes::isProcessActive(const CV_Process_s* proc) {
    const Tracer trace(CVLogger::s_default, nullptr, "Processes::isProcessActive", kUnit);
    return proc != nullptr && kill(proc->pid, 0) == 0;
}

int Processes::findGroup(CV_Process_s* proc) {
    constexpr char kFunction[] = "Process::findGroup";
    const Tracer trace(CVLogger::s_default, this, kFunction, kUnit);
    for (const killDef& row : KillDefines) {
        if (row.name == proc->name) {
            return row.group;
        }
    }
    logmsgf(kLogProgress, kFunction, "Could not find process name %s in CV_Daemons table", proc->name);
    return -1;
}

void Processes::loadExcludelist() {
    loadExcludelistInto(userList);
}

CV_Process_s* exclude_process(CV_Process_s*& list, const char* name) {
    CV_Process_s* removed = nullptr;
    CV_Process_s** link = &list;
    while (*link != nullptr) {
        CV_Process_s* proc = *link;
        if (strcasecmp(proc->name, name) == 0) {
            *link = proc->next;
            proc->next = removed;
            removed = proc;
        } else {
            link = &proc->next;
        }
    }
    return removed;
}

void free_process_list(CV_Process_s* list) {
    while (list != nullptr) {
        std::free(std::exchange(list, list->next));
    }
}
