#include "lister.h"

#include <cerrno>
#include <new>

#include "scan.h"

namespace lister {

int listProcesses(const Roots& roots, CV_Process_s** list, Proc_categories categories, int verbosity) {
    *list = nullptr;
    try {
        RecordList records;
        const int status = Scan(roots, categories, verbosity).run(records);
        if (status == 0) {
            *list = records.release();
        }
        return status;
    } catch (const ScanFailure& failure) {
        return failure.error;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

} // namespace lister

int find_processes_CV(CV_Process_s** list, Proc_categories categories, int verbosity) {
    return lister::listProcesses({}, list, categories, verbosity);
}
