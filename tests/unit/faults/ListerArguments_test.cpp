// The arguments of a process appear after the program that it executes, or never.
#include <fstream>
#include <map>
#include <set>
#include <string>

#include "ListerLog.h"

namespace lister {
namespace {

class ListerArguments : public ListerLog {
  protected:
    /// A process that does not exist: an interpreter in the caller's namespaces.
    ListerArguments() {
        fs::create_directories(m_process / "ns");
        for (const char* space : {"ns/pid", "ns/user", "ns/mnt"}) {
            fs::copy_symlink(fs::path("/proc/self") / space, m_process / space);
        }
        fs::create_symlink(fs::canonical("/bin/sh"), m_process / "exe");
        fs::create_symlink("/", m_process / "root");
        lay("0");
        std::ofstream(m_process / "status") << "Name:\tsh\nUid:\t0\t0\t0\t0\n";
        write("");
    }
    void write(const std::string& commandLine) const { std::ofstream(m_process / "cmdline") << commandLine; }
    /// The kernel has laid the arguments up to this address.
    void lay(const std::string& end) const { std::ofstream(m_process / "stat") << statLine("77", "sh", "1", end); }

    pid_t m_pid = 77;
    fs::path m_process = fs::path(m_table) / "77";
};

TEST_F(ListerArguments, OfAScriptThatIsBeingExecutedAreAwaited) {
    const std::string script = writeScript("worker", "#!/bin/sh\n");
    faults::interrupt(100, [&] { write(std::string("sh\0", 3) + script + '\0'); });
    const Outcome found = scan();
    EXPECT_TRUE(found.wasReached);
    EXPECT_EQ(found.found, (std::map<pid_t, int>{{m_pid, CAT_CORVANE}}));
    EXPECT_EQ(found.paths.at(m_pid), script);
}

TEST_F(ListerArguments, ThatNeverComePassTheProcessOver) {
    const Outcome found = scan();
    EXPECT_EQ(found.status, geteuid() == 0 ? 0 : EACCES);
    EXPECT_TRUE(found.found.empty());
    EXPECT_TRUE(tellsOf(found, m_pid)) << found.log;
}

/// Any user can start thousands of processes that erased their arguments.
TEST_F(ListerArguments, ThatAProcessErasedAreNotWaitedFor) {
    lay("140737488348048");
    bool isLate = false;
    faults::interrupt(1000, [&] { isLate = true; });
    const Outcome found = scan();
    EXPECT_FALSE(isLate);
    EXPECT_EQ(found.status, 0);
    EXPECT_TRUE(found.found.empty());
    EXPECT_FALSE(tellsOf(found, m_pid)) << found.log;
}

TEST_F(ListerArguments, ThatAreLaidWhileTheyAreReadAreReadOnceMore) {
    const std::string script = writeScript("worker", "#!/bin/sh\n");
    for (int call = 1; call < 60; ++call) {
        write("");
        lay("0");
        faults::interrupt(call, [&] {
            write(std::string("sh\0", 3) + script + '\0');
            lay("140737488348048");
        });
        EXPECT_EQ(scan().found, (std::map<pid_t, int>{{m_pid, CAT_CORVANE}})) << "before call " << call;
    }
}

/// A process can write what it likes there (prctl(2), PR_SET_MM_ARG_START): what is read may begin as the one and end
/// as the other.
TEST_F(ListerArguments, ThatAreRewrittenWhileTheyAreReadNameNothingThatIsNotThere) {
    const std::string script = writeScript("worker", "#!/bin/sh\n");
    const std::string other = writeScript("another", "#!/bin/sh\n");
    lay("140737488348048");
    std::set<std::string> seen;
    int call = 0;
    for (bool wasReached = true; wasReached;) {
        write(std::string("sh\0", 3) + script + '\0');
        // Longer than what it takes the place of, so that there is something to be read behind it.
        faults::interrupt(++call, [&] { write(std::string("sh\0-e\0-u\0", 9) + other + std::string("\0--\0", 4)); });
        const Outcome found = scan();
        wasReached = found.wasReached;
        EXPECT_EQ(found.status, 0) << "before call " << call;
        if (!found.found.empty()) {
            seen.insert(found.paths.at(m_pid));
        }
    }
    EXPECT_EQ(seen, (std::set<std::string>{script, other}));
}

TEST_F(ListerArguments, ThatNameAScriptThatVanishesMakeNothingElseOfTheProcess) {
    lay("140737488348048");
    int listed = 0;
    int call = 0;
    for (bool wasReached = true; wasReached;) {
        const std::string script = writeScript("worker", "#!/bin/sh\n");
        write(std::string("sh\0", 3) + script + '\0');
        faults::interrupt(++call, [&] { fs::remove(script); });
        const Outcome found = scan();
        wasReached = found.wasReached;
        EXPECT_EQ(found.status, 0) << "before call " << call;
        EXPECT_TRUE(found.found.empty() || found.found == (std::map<pid_t, int>{{m_pid, CAT_CORVANE}}));
        EXPECT_FALSE(tellsOf(found, m_pid)) << found.log;
        listed += wasReached && !found.found.empty() ? 1 : 0;
    }
    EXPECT_GT(listed, 0) << "when it vanished after it had been read";
    EXPECT_LT(listed, call - 1) << "when it vanished before";
}

} // namespace
} // namespace lister
