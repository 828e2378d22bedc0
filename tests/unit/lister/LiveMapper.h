/// Live processes that run the product's code inside, and the verdict on them.
#pragma once

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include "ListerTest.h"

namespace lister {

class LiveMapper : public Lister {
  protected:
    [[nodiscard]] Verdict judgeAsThirdParty(pid_t pid) const {
        return judge(pid, [this](const Caller& caller, const PinnedProcess& process) {
            return judgeThirdParty(m_roots, caller, process);
        });
    }

    /// Puts a library into a tree; any will do, as long as sleep(1) does not use it.
    static std::string installLibrary(const fs::path& tree) {
        const fs::path library = tree / "bin/library.so";
        fs::copy_file(mappedFile("libm.so"), library);
        return library;
    }

    /// Starts a copy of sleep(1) with a library inside, and waits until the loader has mapped it.
    std::unique_ptr<Child> runMapper(
        const std::string& name, const std::string& library, const std::function<void()>& prepare = [] {}) const {
        auto child = run(copySleep(m_folder / name), [&] {
            prepare();
            setenv("LD_PRELOAD", library.c_str(), 1);
        });
        awaitSleep(child->pid());
        return child;
    }

    /// Once sleep(1) is in nanosleep, all its libraries are mapped.
    static void awaitSleep(pid_t pid) {
        const std::string file = "/proc/" + std::to_string(pid) + "/wchan";
        EXPECT_TRUE(comesTrue([&] { return textOf(file).find("nanosleep") != std::string::npos; })) << textOf(file);
    }
};

} // namespace lister
