#include "lister.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <new>
#include <string>

#include "cvlog.h"
#include "errors.h"
#include "scan.h"

namespace lister {

namespace {

/// A tree that is gone keeps its name, and its processes with it. One that cannot be looked up may have another name:
/// everything in it would be missed.
std::string canonical(const std::string& path) {
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) != nullptr) {
        return resolved;
    }
    if (isRefusal(errno)) {
        throw ScanFailure{errno};
    }
    return path;
}

} // namespace

int listProcesses(const Roots& roots, CV_Process_s** list, Proc_categories categories, int verbosity) {
    *list = nullptr;
    try {
        Roots canonicalRoots = roots;
        canonicalRoots.install = canonical(roots.install);
        RecordList records;
        const int status = Scan(canonicalRoots, categories, verbosity).run(records);
        if (status == 0) {
            *list = records.release();
        }
        return status;
    } catch (const ScanFailure& failure) {
        if (failure.error == ENOSYS) {
            logmsgf(kLogError, kScanName, "The kernel does not tell which mount a file is on: that takes Linux 4.12");
        }
        return failure.error;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

} // namespace lister

int find_processes_CV(CV_Process_s** list, Proc_categories categories, int verbosity) {
    return lister::listProcesses({}, list, categories, verbosity);
}
