/// Live processes that map, hold or have nothing of the product, and the verdict on them.
#pragma once

#include <fstream>
#include <memory>
#include <string>

#include <fcntl.h>

#include "ListerTest.h"

namespace lister {

/// Ways to ask for executable mappings: both run whatever the kernel.
class LiveMapper : public Lister, public testing::WithParamInterface<bool> {
  protected:
    LiveMapper() { m_roots.queryMappings = GetParam(); }

    [[nodiscard]] Verdict judgeHolder(pid_t pid) const {
        const UniqueFd proc(open("/proc", O_PATH | O_DIRECTORY | O_CLOEXEC));
        return verdictOf([&] {
            return judgeThirdParty(m_roots, Caller(m_roots),
                                   PinnedProcess(proc.get(), pid, std::to_string(pid).c_str()));
        });
    }

    /// Starts a copy of sleep(1) that runs a library of the product inside, and waits until the loader has mapped it.
    std::unique_ptr<Child> runMapper(const std::string& name) {
        const fs::path library = m_root + "/bin/libproduct.so";
        fs::copy_file(fs::canonical("/lib/x86_64-linux-gnu/libm.so.6"), library);
        auto child = run(copySleep(m_folder / name), [&] { setenv("LD_PRELOAD", library.c_str(), 1); });
        awaitSleep(*child);
        return child;
    }

    /// sleep(1) waits in nanosleep when its libraries are all there.
    static void awaitSleep(const Child& child) {
        std::string where;
        while (where.find("nanosleep") == std::string::npos) {
            std::ifstream file("/proc/" + std::to_string(child.pid()) + "/wchan");
            std::getline(file, where);
        }
    }
};

} // namespace lister
