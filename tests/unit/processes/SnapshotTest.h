/// The fixture of tests that act on one snapshot of all categories.
#pragma once

#include <cstdint>
#include <memory>

#include "Fixture.h"
#include "Processes.h"

class SnapshotTest : public fakes::ProgramTest {
  protected:
    /// Takes the snapshot and clears the journal.
    Processes& snapshot() {
        m_processes = std::make_unique<Processes>(fakes::kEverything, 0);
        host.journal.clear();
        return *m_processes;
    }

    /// The record of a pid, or null.
    CV_Process_s* record(std::int32_t pid) {
        CV_Process_s* found = m_processes->list();
        while (found != nullptr && found->pid != pid) {
            found = found->next;
        }
        return found;
    }

    void TearDown() override {
        m_processes.reset();
        ProgramTest::TearDown();
    }

    std::unique_ptr<Processes> m_processes;
};
