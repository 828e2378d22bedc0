/// The fixture of the lister's tests in which calls fail or are held up: a small process table, and the log of a scan.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "Faults.h"
#include "ListerTest.h"
#include "cvlog.h"

namespace lister {

struct Outcome {
    int status = 0;
    /// Whether the call that was to fail was made.
    bool wasReached = false;
    /// Categories by pid.
    std::map<pid_t, int> found;
    std::map<pid_t, std::string> paths;
    std::string log;
};

/// A small process table, and the log of its scan.
class ListerLog : public FewProcesses {
  protected:
    ListerLog() {
        m_logFile = (m_folder / "log").string();
        m_savedLogger = std::exchange(CVLogger::s_default, &m_logger);
        m_logger.openFile(m_logFile.c_str(), "host", "test", nullptr);
    }
    ~ListerLog() override { CVLogger::s_default = m_savedLogger; }

    Outcome scan(int verbosity = 0) {
        fs::resize_file(m_logFile, 0);
        Outcome result;
        CV_Process_s* list = nullptr;
        result.status = listProcesses(m_roots, &list, kAll, verbosity);
        result.wasReached = faults::disarm();
        while (list != nullptr) {
            result.found[list->pid] = list->category;
            result.paths[list->pid] = list->path;
            std::free(std::exchange(list, list->next));
        }
        result.log = textOf(m_logFile);
        return result;
    }

    std::string m_logFile;
    CVLogger m_logger;
    CVLogger* m_savedLogger = nullptr;
};

inline bool tellsOf(const Outcome& scan, pid_t pid) {
    return scan.log.find("Process " + std::to_string(pid) + " ") != std::string::npos;
}

/// Returns when the first thread of a process has exited: then the kernel shows no executable for it.
inline void awaitExitOfLeader(pid_t pid) {
    const std::string link = "/proc/" + std::to_string(pid) + "/exe";
    char path[PATH_MAX];
    EXPECT_TRUE(comesTrue([&] { return readlink(link.c_str(), path, sizeof path) < 0; })) << link;
}

} // namespace lister
