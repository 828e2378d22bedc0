/// The ground of the lister's tests with calls that fail or are held up: a process table of few, and the log of a scan.
#pragma once

#include <map>
#include <sstream>
#include <string>
#include <utility>

#include <sched.h>

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

/// A process table of few, and the log of what a scan has to say of it.
class ListerLog : public Lister {
  protected:
    /// A process table of few: whoever else runs here costs nothing, and cannot come or go between two scans.
    ListerLog() {
        m_table = (m_folder / "proc").string();
        fs::create_directories(m_table);
        m_roots.proc = m_table.c_str();
        show("1");
        show("self");
        show(std::to_string(getppid()));
        m_logFile = (m_folder / "log").string();
        m_savedLogger = std::exchange(CVLogger::s_default, &m_logger);
        m_logger.openFile(m_logFile.c_str(), "host", "test", nullptr);
    }
    ~ListerLog() override { CVLogger::s_default = m_savedLogger; }

    void show(const std::string& name) { fs::create_symlink("/proc/" + name, m_table + "/" + name); }

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
        std::ostringstream text;
        text << std::ifstream(m_logFile).rdbuf();
        result.log = text.str();
        return result;
    }

    std::string m_table;
    std::string m_logFile;
    CVLogger m_logger;
    CVLogger* m_savedLogger = nullptr;
};

/// The path of a file that the test itself has mapped.
inline std::string mappedFile(const std::string& name) {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    while (std::getline(maps, line) && line.find("/" + name) == std::string::npos) {
    }
    return line.substr(line.find('/'));
}

inline bool tellsOf(const Outcome& scan, pid_t pid) {
    return scan.log.find("Process " + std::to_string(pid) + " ") != std::string::npos;
}

/// Returns when the first thread of a process has exited: the kernel shows no executable for it then.
inline void awaitExitOfLeader(pid_t pid) {
    char path[PATH_MAX];
    while (readlink(("/proc/" + std::to_string(pid) + "/exe").c_str(), path, sizeof path) >= 0) {
        sched_yield();
    }
}

} // namespace lister
