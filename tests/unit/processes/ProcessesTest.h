/// The fixture of the tests of the snapshot itself.
#pragma once

#include <string>
#include <vector>

#include "Fixture.h"
#include "Processes.h"

class ProcessesTest : public fakes::ProgramTest {
  protected:
    static std::vector<std::int32_t> pids(const CV_Process_s* list) {
        std::vector<std::int32_t> result;
        for (; list != nullptr; list = list->next) {
            result.push_back(list->pid);
        }
        return result;
    }

    void addNamed(const std::vector<std::string>& names) {
        std::int32_t pid = 10;
        for (const std::string& name : names) {
            host.add(name, pid++);
        }
    }

    /// Traces of Processes and the lister's calls, without the loading of the exclude list.
    fakes::Journal traces() const {
        fakes::Journal result;
        for (const std::string& entry : host.of({"enter", "leave", "list"})) {
            if (entry.find("loadExcludelist") == std::string::npos) {
                result.push_back(entry);
            }
        }
        return result;
    }
};
