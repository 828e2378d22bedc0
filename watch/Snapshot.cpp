#include "Snapshot.h"

#include <cstdlib>
#include <utility>

#include "Clock.h"
#include "cvbase.h"

namespace watch {

Snapshot takeSnapshot(bool thirdParty, const std::string& program) {
    constexpr auto kAll = static_cast<Proc_categories>(CAT_CORVANE | CAT_THIRD_PARTY | CAT_OTHER_THIRD_PARTY);
    Snapshot snapshot;
    CV_Process_s* list = nullptr;
    snapshot.error = find_processes_CV(&list, thirdParty ? kAll : CAT_CORVANE, 0);
    snapshot.taken = sinceBoot();
    while (list != nullptr) {
        if (program != list->path) {
            Process process;
            process.pid = list->pid;
            process.name = list->name;
            process.path = list->path;
            process.category = list->category;
            snapshot.processes.push_back(std::move(process));
        }
        // A record is 2 KiB: freed one by one, it does not stand beside the whole of what is kept.
        std::free(std::exchange(list, list->next));
    }
    return snapshot;
}

} // namespace watch
