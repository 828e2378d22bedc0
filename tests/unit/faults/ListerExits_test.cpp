// The first thread of a process exits in front of each call that a scan makes: its other threads run the product all the
// same, so it is listed as if nothing had happened.
#include <csignal>
#include <memory>
#include <tuple>

#include <sched.h>

#include "ListerLog.h"

namespace lister {
namespace {

/// One that exits at SIGUSR1, by what makes it the product's.
class ListerExits : public ListerLog, public testing::WithParamInterface<bool> {
  protected:
    ListerExits() { m_roots.queryMappings = GetParam(); }

    using Start = std::function<std::unique_ptr<Child>()>;

    fs::path copyLeader(const fs::path& path) const {
        fs::copy_file(CVSTOP_EXITED_LEADER, path);
        return path;
    }
    static std::unique_ptr<Child> start(
        const fs::path& path, const std::function<void()>& prepare = [] {}) {
        return std::make_unique<Child>(path, std::vector<std::string>{"leader", "leave"}, prepare);
    }

    /// Each time with a new process, until the scan makes no more calls.
    void expectAtEachCall(int category, const Start& start, const std::function<void(pid_t)>& act) {
        int calls = 0;
        for (bool wasReached = true; wasReached; ++calls) {
            const std::unique_ptr<Child> child = start();
            const pid_t pid = child->pid();
            awaitBothThreads(pid);
            show(std::to_string(pid));
            faults::interrupt(calls + 1, [&] { act(pid); });
            const Scan found = scan();
            fs::remove(m_table + "/" + std::to_string(pid));
            wasReached = found.wasReached;
            EXPECT_EQ(found.status, 0) << "call " << calls;
            EXPECT_EQ(found.found, (std::map<pid_t, int>{{pid, category}})) << "call " << calls << ":\n" << found.log;
        }
        EXPECT_GT(calls, 10);
    }
    void expectWhenTheLeaderExits(int category, const Start& start) {
        expectAtEachCall(category, start, [](pid_t pid) {
            kill(pid, SIGUSR1);
            awaitExitOfLeader(pid);
        });
    }

  private:
    /// By then it has blocked the signal, too.
    static void awaitBothThreads(pid_t pid) {
        const fs::path task = "/proc/" + std::to_string(pid) + "/task";
        while (std::distance(fs::directory_iterator(task), fs::directory_iterator()) < 2) {
        }
    }
};

TEST_P(ListerExits, DaemonIsListed) {
    const fs::path path = copyLeader(m_root + "/bin/halvd");
    expectWhenTheLeaderExits(CAT_CORVANE, [&] { return start(path); });
}

TEST_P(ListerExits, DaemonWithMountsOfItsOwnIsListed) {
    const fs::path path = copyLeader(m_root + "/bin/halvd");
    expectWhenTheLeaderExits(CAT_CORVANE,
                             [&] { return start(path, [] { static_cast<void>(unshare(CLONE_NEWNS)); }); });
}

TEST_P(ListerExits, ReplacedDaemonWithMountsOfItsOwnIsListed) {
    expectWhenTheLeaderExits(CAT_CORVANE, [&] {
        const fs::path path = copyLeader(m_root + "/bin/halvd");
        auto child = start(path, [] { static_cast<void>(unshare(CLONE_NEWNS)); });
        fs::remove(path);
        return child;
    });
}

TEST_P(ListerExits, ScriptIsListed) {
    const fs::path interpreter = fs::canonical(copyLeader(m_folder / "perl"));
    const fs::path script = writeScript("worker", "#!" + interpreter.string() + "\n");
    expectWhenTheLeaderExits(CAT_CORVANE, [&] {
        return std::make_unique<Child>(interpreter, std::vector<std::string>{"perl", script.string(), "leave"});
    });
}

TEST_P(ListerExits, WhoRunsTheProductsCodeInsideIsListed) {
    const fs::path path = copyLeader(m_folder / "mapper");
    const std::string library = m_root + "/bin/library.so";
    fs::copy_file(mappedFile("libm.so"), library);
    expectWhenTheLeaderExits(
        CAT_THIRD_PARTY, [&] { return start(path, [&] { setenv("LD_PRELOAD", library.c_str(), 1); }); });
}

TEST_P(ListerExits, WhoWorksInTheTreeIsListed) {
    const fs::path path = copyLeader(m_folder / "editor");
    expectWhenTheLeaderExits(CAT_OTHER_THIRD_PARTY,
                             [&] { return start(path, [this] { fs::current_path(m_root); }); });
}

TEST_P(ListerExits, WhoHoldsAFileOfTheTreeIsListed) {
    const fs::path path = copyLeader(m_folder / "reader");
    const fs::path file = writeScript("data", "");
    expectWhenTheLeaderExits(CAT_OTHER_THIRD_PARTY,
                             [&] { return start(path, [&] { open(file.c_str(), O_RDONLY); }); });
}

/// A thread that executes a program takes the place of the first one (execve(2)): no folder of its own is left.
TEST_P(ListerExits, ThreadThatExecutesADaemonMeanwhileIsListed) {
    const fs::path path = copyLeader(m_root + "/bin/starter");
    const fs::path daemon = install("halvd");
    expectAtEachCall(
        CAT_CORVANE,
        [&] {
            auto child = std::make_unique<Child>(path, std::vector<std::string>{"starter", "execute", daemon.string()});
            awaitExitOfLeader(child->pid());
            return child;
        },
        [&](pid_t pid) {
            kill(pid, SIGUSR1);
            const std::string link = "/proc/" + std::to_string(pid) + "/exe";
            char text[PATH_MAX] = "";
            while (readlink(link.c_str(), text, sizeof text) < 0) {
            }
        });
}

INSTANTIATE_TEST_SUITE_P(Mappings, ListerExits, testing::Values(true, false),
                         [](const auto& parameter) { return parameter.param ? "Queried" : "ReadFromMaps"; });

} // namespace
} // namespace lister
