// What a process does in front of each call that a scan makes, each in turn: its first thread exits, or it executes
// another program. A process that is the product's throughout is listed, and none is taken for what it was before.
#include <csignal>
#include <functional>
#include <memory>
#include <string>

#include <sched.h>

#include "ListerLog.h"

namespace lister {
namespace {

class ListerRaces : public ListerLog {
  protected:
    using Start = std::function<std::unique_ptr<Child>()>;
    using Act = std::function<void(pid_t)>;
    using Check = std::function<void(pid_t, const Outcome&)>;

    static fs::path copy(const char* program, const fs::path& path) {
        fs::copy_file(program, path);
        return path;
    }
    fs::path installLibrary() const { return copy(mappedFile("libm.so").c_str(), m_root + "/bin/library.so"); }

    /// With a new process each time, until the scan makes no more calls.
    void atEachCall(const Start& start, const Act& act, const Check& check) {
        int calls = 0;
        for (bool wasReached = true; wasReached; ++calls) {
            const std::unique_ptr<Child> child = start();
            const pid_t pid = child->pid();
            awaitReady(pid);
            show(pid);
            faults::interrupt(calls + 1, [&] { act(pid); });
            const Outcome found = scan();
            fs::remove(m_table + "/" + std::to_string(pid));
            wasReached = found.wasReached;
            SCOPED_TRACE("call " + std::to_string(calls + 1) + "\n" + found.log);
            EXPECT_EQ(found.status, 0);
            check(pid, found);
        }
        EXPECT_GT(calls, 10);
    }

    static Check expectCategory(int category) {
        return [category](pid_t pid, const Outcome& scan) {
            EXPECT_EQ(scan.found, (std::map<pid_t, int>{{pid, category}}));
        };
    }

    static void leave(pid_t pid) {
        kill(pid, SIGUSR1);
        awaitExitOfLeader(pid);
    }
    static Act becomes(const fs::path& executable) {
        return [executable](pid_t pid) {
            kill(pid, SIGUSR1);
            const std::string process = "/proc/" + std::to_string(pid);
            EXPECT_TRUE(comesTrue([&] {
                return textOfLink(process + "/exe") == executable && !textOf(process + "/cmdline").empty();
            })) << executable;
        };
    }
    static std::string textOfLink(const std::string& link) {
        char text[PATH_MAX];
        const ssize_t length = readlink(link.c_str(), text, sizeof text);
        return {text, length > 0 ? static_cast<std::size_t>(length) : 0};
    }

    /// By then it has all its libraries, and waits for the signal, or is about to.
    static void awaitReady(pid_t pid) {
        const std::string name = "/proc/" + std::to_string(pid) + "/comm";
        ASSERT_TRUE(comesTrue([&] { return textOf(name) == "ready\n"; })) << textOf(name);
    }
};

// --- the first thread exits, and another one goes on

class ListerExits : public ListerRaces {
  protected:
    void expectWhenTheLeaderExits(
        int category, const fs::path& path, const std::function<void()>& prepare = [] {}) {
        atEachCall(
            [&] {
                return std::make_unique<Child>(path, std::vector<std::string>{"leader", "leave"}, prepare);
            },
            leave, expectCategory(category));
    }
};

/// Both ways to ask for executable mappings run, whatever the kernel.
class ThirdPartyExits : public ListerExits, public testing::WithParamInterface<bool> {
  protected:
    ThirdPartyExits() { m_roots.queryMappings = GetParam(); }
};

TEST_F(ListerExits, DaemonIsListed) {
    expectWhenTheLeaderExits(CAT_CORVANE, copy(CVSTOP_EXITED_LEADER, m_root + "/bin/halvd"));
}

TEST_F(ListerExits, DaemonWithMountsOfItsOwnIsListed) {
    expectWhenTheLeaderExits(CAT_CORVANE, copy(CVSTOP_EXITED_LEADER, m_root + "/bin/halvd"),
                             [] { static_cast<void>(unshare(CLONE_NEWNS)); });
}

TEST_F(ListerExits, ReplacedDaemonWithMountsOfItsOwnIsListed) {
    const auto start = [&] {
        const fs::path path = copy(CVSTOP_EXITED_LEADER, m_root + "/bin/halvd");
        auto child = std::make_unique<Child>(path, std::vector<std::string>{"halvd", "leave"},
                                             [] { static_cast<void>(unshare(CLONE_NEWNS)); });
        fs::remove(path);
        return child;
    };
    atEachCall(start, leave, expectCategory(CAT_CORVANE));
}

TEST_F(ListerExits, ScriptIsListed) {
    const std::string interpreter = fs::canonical(copy(CVSTOP_EXITED_LEADER, m_folder / "perl"));
    const std::string script = writeScript("worker", "#!" + interpreter + "\n");
    const std::vector<std::string> arguments = {"perl", script, "leave"};
    atEachCall([&] { return std::make_unique<Child>(interpreter, arguments); }, leave, expectCategory(CAT_CORVANE));
}

TEST_P(ThirdPartyExits, ProcessThatRunsTheProductsCodeIsListed) {
    const std::string library = installLibrary();
    expectWhenTheLeaderExits(CAT_THIRD_PARTY, copy(CVSTOP_EXITED_LEADER, m_folder / "mapper"),
                             [&] { setenv("LD_PRELOAD", library.c_str(), 1); });
}

TEST_P(ThirdPartyExits, ProcessThatWorksInTheTreeIsListed) {
    expectWhenTheLeaderExits(CAT_OTHER_THIRD_PARTY, copy(CVSTOP_EXITED_LEADER, m_folder / "editor"),
                             [this] { fs::current_path(m_root); });
}

TEST_P(ThirdPartyExits, ProcessThatHoldsAFileOfTheTreeIsListed) {
    const fs::path file = writeScript("data", "");
    expectWhenTheLeaderExits(CAT_OTHER_THIRD_PARTY, copy(CVSTOP_EXITED_LEADER, m_folder / "reader"),
                             [&] { open(file.c_str(), O_RDONLY); });
}

/// A thread that executes a program takes the place of the first one (execve(2)): no folder of its own is left.
TEST_F(ListerExits, DaemonThatAThreadExecutesIsListed) {
    const fs::path path = copy(CVSTOP_EXITED_LEADER, m_root + "/bin/starter");
    const std::string daemon = fs::canonical(install("halvd"));
    const auto start = [&] {
        auto child = std::make_unique<Child>(path, std::vector<std::string>{"starter", "execute", daemon});
        awaitExitOfLeader(child->pid());
        return child;
    };
    atEachCall(start, becomes(daemon), expectCategory(CAT_CORVANE));
}

// --- another program is executed

class ListerExecutions : public ListerRaces {
  protected:
    using Arguments = std::vector<std::string>;

    static Start starting(
        const fs::path& path, const Arguments& arguments, const std::function<void()>& prepare = [] {}) {
        return [=] { return std::make_unique<Child>(path, arguments, prepare); };
    }
};

class ThirdPartyExecutions : public ListerExecutions, public testing::WithParamInterface<bool> {
  protected:
    ThirdPartyExecutions() { m_roots.queryMappings = GetParam(); }
};

TEST_F(ListerExecutions, ScriptThatExecutesADaemonIsListed) {
    const std::string interpreter = fs::canonical(copy(CVSTOP_SUCCESSOR, m_folder / "perl"));
    const std::string script = writeScript("starter", "#!" + interpreter + "\n");
    const std::string daemon = fs::canonical(install("halvd"));
    atEachCall(starting(interpreter, {"perl", script, "execute", daemon, "60"}), becomes(daemon),
               expectCategory(CAT_CORVANE));
}

TEST_F(ListerExecutions, DaemonThatExecutesAScriptIsListed) {
    const fs::path path = copy(CVSTOP_SUCCESSOR, m_root + "/bin/starter");
    const std::string script = writeScript("worker", "#!/bin/sh\nkill -STOP $$\n");
    atEachCall(starting(path, {"starter", "execute", script}), becomes(fs::canonical("/bin/sh")),
               expectCategory(CAT_CORVANE));
}

TEST_F(ListerExecutions, DaemonThatExecutesAnotherWithMountsOfItsOwnIsListed) {
    const fs::path path = copy(CVSTOP_SUCCESSOR, m_root + "/bin/starter");
    const std::string daemon = fs::canonical(install("halvd"));
    atEachCall(starting(path, {"starter", "execute", daemon, "60"}, [] { static_cast<void>(unshare(CLONE_NEWNS)); }),
               becomes(daemon), expectCategory(CAT_CORVANE));
}

/// A stranger must not be killed for what it was before.
TEST_P(ThirdPartyExecutions, StrangerIsNotTakenForTheThirdPartyThatExecutedIt) {
    const std::string library = installLibrary();
    const std::string stranger = fs::canonical(copySleep(m_folder / "stranger"));
    const fs::path mapper = copy(CVSTOP_SUCCESSOR, m_folder / "mapper");
    const Start start =
        starting(mapper, {"mapper", "execute", stranger, "60"}, [&] { setenv("LD_PRELOAD", library.c_str(), 1); });
    std::size_t taken = 0;
    atEachCall(start, becomes(stranger), [&](pid_t pid, const Outcome& scan) {
        taken += scan.found.size();
        EXPECT_TRUE(scan.found.empty() || scan.found == (std::map<pid_t, int>{{pid, CAT_THIRD_PARTY}}));
        EXPECT_TRUE(scan.paths.empty() || scan.paths.at(pid) == mapper);
    });
    EXPECT_GT(taken, 0U) << "when it executed the stranger only after it had been judged";
}

/// A process that changes at each look cannot be judged.
TEST_F(ListerExecutions, ProcessThatKeepsExecutingIsPassedOverWithAWarning) {
    Arguments arguments = {"first"};
    std::vector<std::string> programs = {fs::canonical(copy(CVSTOP_SUCCESSOR, m_root + "/bin/first"))};
    for (int number = 0; number < 200; ++number) {
        programs.push_back(m_root + "/bin/next" + std::to_string(number));
        fs::create_hard_link(programs.front(), programs.back());
        arguments.insert(arguments.end(), {"execute", programs.back()});
    }
    const Child child(programs.front(), arguments);
    awaitReady(child.pid());
    show(child.pid());
    std::size_t calls = 0;
    const std::function<void()> actAgain = [&] {
        if (++calls < programs.size()) {
            becomes(programs[calls])(child.pid());
            faults::interrupt(1, actAgain);
        }
    };
    faults::interrupt(1, actAgain);
    const Outcome found = scan();
    EXPECT_LT(calls, programs.size()) << "the scan was over before";
    EXPECT_TRUE(found.found.empty());
    EXPECT_THAT(found.log, testing::HasSubstr("warning find_processes_CV: Process " + std::to_string(child.pid()) +
                                              " category 0, passed over: it executes one program after another: " +
                                              m_root + "/bin/next"));
}

INSTANTIATE_TEST_SUITE_P(Mappings, ThirdPartyExits, testing::Values(true, false),
                         [](const auto& parameter) { return parameter.param ? "Queried" : "ReadFromMaps"; });
INSTANTIATE_TEST_SUITE_P(Mappings, ThirdPartyExecutions, testing::Values(true, false),
                         [](const auto& parameter) { return parameter.param ? "Queried" : "ReadFromMaps"; });

} // namespace
} // namespace lister
