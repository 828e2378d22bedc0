// Each call of a scan fails once, in turn: the scan fails, or it lists every process all the same, or the log names the
// ones that were passed over. A daemon is never missing in silence, and no error makes a process the product's.
#include <cerrno>
#include <utility>

#include <sched.h>

#include "Kernel.h"
#include "ListerLog.h"

namespace lister {
namespace {

class ListerFaults : public ListerLog, public testing::WithParamInterface<std::pair<const char*, int>> {};

TEST_P(ListerFaults, NoProcessIsMissingInSilence) {
    const auto [call, error] = GetParam();
    const auto daemon = run(install("halvd"));
    const fs::path leader = m_root + "/bin/leader";
    fs::copy_file(CVSTOP_EXITED_LEADER, leader);
    // Where the user may not make namespaces, these are more of the same.
    const auto hardened = run(install("hardened"), [] { static_cast<void>(unshare(CLONE_NEWNS)); });
    const auto replaced = run(install("replaced"), [] { static_cast<void>(unshare(CLONE_NEWNS)); });
    fs::remove(m_root + "/bin/replaced");
    const auto contained = run(install("contained"), [] { static_cast<void>(unshare(CLONE_NEWUSER)); });
    const Child exited(leader, {"leader"});
    awaitExitOfLeader(exited.pid());
    const Child worker(writeScript("worker", "#!/bin/sh\nkill -STOP $$\n"), {"worker"});
    awaitStop(worker.pid());
    const Child byHand("/bin/sh", {"sh", "worker"}, [this] { fs::current_path(m_root + "/bin"); });
    awaitStop(byHand.pid());
    fs::create_symlink(m_root + "/bin/worker", m_folder / "link");
    const Child byLink("/bin/sh", {"sh", m_folder / "link"});
    awaitStop(byLink.pid());
    fs::copy_file(mappedFile("libm.so"), m_root + "/bin/library.so");
    const Child mapper("/bin/sleep", {"sleep", "60"},
                       [this] { setenv("LD_PRELOAD", (m_root + "/bin/library.so").c_str(), 1); });
    const Child editor("/bin/sleep", {"sleep", "60"}, [this] { fs::current_path(m_root); });
    for (const Child* child :
         std::initializer_list<const Child*>{daemon.get(), hardened.get(), replaced.get(), contained.get(), &exited,
                                             &worker, &byHand, &byLink, &mapper, &editor}) {
        show(child->pid());
    }
    Outcome whole;
    const auto haveTakenTheirShape = [&] {
        whole = scan();
        return whole.found.size() == 10 && whole.found[mapper.pid()] == CAT_THIRD_PARTY;
    };
    ASSERT_TRUE(comesTrue(haveTakenTheirShape)) << whole.found.size() << " are listed\n" << whole.log;
    int tried = 0;
    for (bool wasReached = true; wasReached; ++tried) {
        faults::arm(call, error, tried + 1);
        const Outcome found = scan();
        wasReached = found.wasReached;
        if (found.status != 0) {
            EXPECT_TRUE(found.found.empty()) << call << tried;
            continue;
        }
        // The caller's own shortage is never one process's fault.
        EXPECT_FALSE(wasReached && (error == ENOMEM || error == EMFILE)) << call << " " << tried;
        if (call == std::string("ioctl") && error != EIO) {
            EXPECT_EQ(found.found.count(mapper.pid()), 1U) << "the text of maps is read instead";
        }
        for (const auto& [pid, category] : whole.found) {
            const auto record = found.found.find(pid);
            if (record == found.found.end()) {
                EXPECT_TRUE(tellsOf(found, pid)) << call << " " << tried << ": category " << category;
            } else if (category != CAT_THIRD_PARTY || record->second != CAT_OTHER_THIRD_PARTY) {
                // A process that an exclude list may not be able to name is only listed.
                EXPECT_EQ(record->second, category) << call << " " << tried;
            }
        }
        EXPECT_LE(found.found.size(), whole.found.size());
    }
    EXPECT_GT(tried, 1) << call << " was never called";
}

/// By the name that a link has, nothing of the tree would be found.
TEST_F(ListerLog, InstallRootThatCannotBeLookedUpEndsTheScan) {
    const auto daemon = run(install("halvd"));
    show(daemon->pid());
    fs::create_symlink(m_root, m_folder / "link");
    m_roots.install = m_folder / "link";
    EXPECT_EQ(scan().found, (std::map<pid_t, int>{{daemon->pid(), CAT_CORVANE}}));
    for (const int error : {EIO, ESTALE, ENOMEM, EACCES}) {
        faults::arm("realpath", error, 1);
        const Outcome found = scan();
        EXPECT_TRUE(found.wasReached);
        EXPECT_EQ(found.status, error);
    }
}

TEST_F(ListerLog, TellsOfAPathThatIsTooLong) {
    const auto daemon = run(install("halvd"));
    show(daemon->pid());
    // A kernel with larger pages gives more than there is room for.
    for (const int error : {ENAMETOOLONG, 0}) {
        faults::arm("readlinkat", error, 1);
        const Outcome found = scan();
        EXPECT_TRUE(found.wasReached);
        EXPECT_EQ(found.status, 0);
        EXPECT_THAT(found.log,
                    testing::ContainsRegex("warning find_processes_CV: Process [0-9]+ passed over: the path of its "
                                           "executable is too long\n"));
    }
}

TEST_F(ListerLog, TellsOfAnExecutableThatCannotBeRead) {
    const auto daemon = run(install("halvd"));
    show(daemon->pid());
    faults::arm("readlinkat", EACCES, 1);
    const Outcome found = scan();
    EXPECT_TRUE(found.wasReached);
    EXPECT_THAT(found.log,
                testing::ContainsRegex("warning find_processes_CV: Process [0-9]+ passed over: its executable "
                                       "cannot be read\n"));
}

TEST_F(ListerLog, TellsWhyADaemonOfAnUnfitPathIsOnlyListed) {
    const fs::path path = install("hal vd");
    const auto daemon = run(path);
    show(daemon->pid());
    EXPECT_THAT(scan().log, testing::HasSubstr("warning find_processes_CV: Process " + std::to_string(daemon->pid()) +
                                               " category 4, its path must not become part of a command line: " +
                                               path.string() + "\n"));
}

TEST_F(ListerLog, TellsOfAProcessOverTheBudget) {
    const auto child = run(copySleep(m_folder / "reader"));
    show(child->pid());
    m_roots.budget.descriptors = 0;
    EXPECT_THAT(scan().log, testing::HasSubstr("warning find_processes_CV: Process " + std::to_string(child->pid()) +
                                               " category 0, passed over: too many mappings or descriptors: "));
}

TEST_F(ListerLog, TellsOfEveryRelatedProcessWhenAskedForDetail) {
    const auto daemon = run(install("halvd"));
    show(daemon->pid());
    const auto stranger = run(copySleep(m_folder / "stranger"));
    show(stranger->pid());
    const Outcome found = scan(99);
    EXPECT_THAT(found.log,
                testing::HasSubstr("info find_processes_CV: Process " + std::to_string(daemon->pid()) +
                                   " category 1, runs an executable of the product: " + m_root + "/bin/halvd\n"));
    EXPECT_FALSE(tellsOf(found, stranger->pid()));
}

/// Without the mount of a file nothing proves a path, and "nothing runs" would be a lie.
class NoMounts : public ListerLog {
  protected:
    void expectThatTheScanEnds() {
        const auto daemon = run(install("halvd"));
        show(daemon->pid());
        const Outcome found = scan();
        EXPECT_EQ(found.status, ENOSYS);
        EXPECT_TRUE(found.found.empty());
        EXPECT_THAT(found.log,
                    testing::HasSubstr("error find_processes_CV: The kernel does not tell which mount a file "
                                       "is on: that takes Linux 4.12\n"));
    }
};

TEST_F(NoMounts, KernelThatTellsThemInNoWayEndsTheScan) {
    kernel::pretend("5.4");
    faults::hide("/proc/thread-self/fdinfo/");
    expectThatTheScanEnds();
    faults::hide("");
    kernel::pretend(nullptr);
}

class NoStatx : public NoMounts, public testing::WithParamInterface<int> {};

TEST_P(NoStatx, EndsTheScan) {
    faults::refuse("statx", GetParam());
    expectThatTheScanEnds();
}

/// No executable is read of a kernel thread, and its other threads are looked for.
TEST_P(NoStatx, EndsTheScanWhereNothingOfTheProductRuns) {
    fs::create_directories(m_table + "/77");
    faults::refuse("statx", GetParam());
    EXPECT_EQ(scan().status, ENOSYS);
}

// An old kernel's answer, an old filter's, and that of libc's own statx.
INSTANTIATE_TEST_SUITE_P(Answers, NoStatx, testing::Values(ENOSYS, EPERM, EINVAL),
                         [](const auto& parameter) { return std::string(strerrorname_np(parameter.param)); });

TEST_F(ListerLog, SaysNothingOfProcessesThatItKnows) {
    const auto daemon = run(install("halvd"));
    show(daemon->pid());
    const auto stranger = run(copySleep(m_folder / "stranger"));
    show(stranger->pid());
    const Outcome found = scan();
    EXPECT_FALSE(tellsOf(found, daemon->pid())) << found.log;
    EXPECT_FALSE(tellsOf(found, stranger->pid())) << found.log;
}

INSTANTIATE_TEST_SUITE_P(
    EachCall, ListerFaults,
    testing::Values(std::pair("open", EACCES), std::pair("open", EMFILE), std::pair("openat", EACCES),
                    std::pair("openat", EMFILE), std::pair("read", EIO), std::pair("read", ENOMEM),
                    std::pair("readlinkat", EACCES), std::pair("readlinkat", ENOMEM), std::pair("realpath", EIO),
                    std::pair("statx", EACCES), std::pair("statx", ENOMEM), std::pair("getdents64", EIO),
                    std::pair("close", EIO), std::pair("ioctl", EIO), std::pair("ioctl", ENOTTY),
                    std::pair("ioctl", EINVAL), std::pair("ioctl", ENAMETOOLONG), std::pair("ioctl", EPERM),
                    std::pair("ioctl", EACCES), std::pair("ioctl", ENOSYS), std::pair("syscall", EACCES),
                    std::pair("syscall", ENOSYS)),
    [](const auto& test) { return std::string(test.param.first) + "_" + strerrorname_np(test.param.second); });

} // namespace
} // namespace lister
