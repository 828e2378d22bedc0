/// The fixture of the tests of one row: made-up rows, carried out on the snapshot of a made-up host.
#pragma once

#include <string>

#include "SnapshotTest.h"
#include "shutdown.h"

inline const std::string kInBackground = " > /dev/null 2>&1 &";

inline killDef rowOf(const std::string& name, kill_type killType, std::int32_t firstOnly = 0,
                     wait_type wait = WAIT_NONE) {
    return {1, GROUP_JOBS, name, false, killType, firstOnly, wait, 1, ""};
}

class StopRowTest : public SnapshotTest {
  protected:
    bool isMarked(std::int32_t pid) { return record(pid)->signalled == 1; }

    std::int32_t stop(const killDef& row, int secondSignal = 0, int pass = 1) {
        std::int32_t count = -1;
        m_printed = host.run([&] { count = terminateAllProcesses(*m_processes, row, secondSignal, pass); });
        return count;
    }

    [[nodiscard]] fakes::Journal actions() const { return host.of({"kill", "system", "sleep"}); }

    std::string m_printed;
};
