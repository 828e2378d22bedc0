#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>

#include "MadeUpProcess.h"
#include "Threads.h"

namespace lister {
namespace {

class ScanOfTheTable : public Lister {};

TEST_F(ScanOfTheTable, ProcessWithAnExitedFirstThreadIsListed) {
    const fs::path path = m_root + "/bin/halvd";
    fs::copy_file(CVSTOP_EXITED_LEADER, path);
    const auto child = run(path);
    const std::string stat = "/proc/" + std::to_string(child->pid()) + "/stat";
    ASSERT_TRUE(comesTrue([&] { return textOf(stat).find(") Z ") != std::string::npos; })) << textOf(stat);
    const auto record = find(child->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_CORVANE);
    EXPECT_EQ(record->path, path.string());
}

TEST_F(ScanOfTheTable, PidsAscend) {
    const fs::path path = install("halvd");
    const auto first = run(path);
    const auto second = run(path);
    const auto third = run(path);
    CV_Process_s* list = nullptr;
    ASSERT_EQ(listProcesses(m_roots, &list, CAT_CORVANE, 0), 0);
    std::vector<pid_t> pids;
    while (list != nullptr) {
        pids.push_back(list->pid);
        std::free(std::exchange(list, list->next));
    }
    EXPECT_EQ(pids.size(), 3U);
    EXPECT_TRUE(std::is_sorted(pids.begin(), pids.end()));
}

TEST_F(ScanOfTheTable, UnreadableTableIsAnErrno) {
    m_roots.proc = "/nonexistent";
    CV_Process_s* list = nullptr;
    EXPECT_EQ(listProcesses(m_roots, &list, kAll, 0), ENOENT);
    EXPECT_EQ(list, nullptr);
}

TEST_F(ScanOfTheTable, TableWithoutPid1IsNotWhole) {
    fs::create_directories(m_folder / "proc/77");
    const std::string proc = m_folder / "proc";
    m_roots.proc = proc.c_str();
    CV_Process_s* list = nullptr;
    EXPECT_EQ(listProcesses(m_roots, &list, kAll, 0), EACCES);
    EXPECT_EQ(list, nullptr);
}

TEST_F(ScanOfTheTable, TableOfStrangersGivesAnEmptyList) {
    for (const char* pid : {"1", "20", "300"}) {
        fs::create_directories(m_folder / "proc" / pid);
        fs::create_symlink("/usr/bin/stranger", m_folder / "proc" / pid / "exe");
    }
    const std::string proc = m_folder / "proc";
    m_roots.proc = proc.c_str();
    CV_Process_s* list = nullptr;
    EXPECT_EQ(listProcesses(m_roots, &list, CAT_CORVANE, 0), 0);
    EXPECT_EQ(list, nullptr);
}

TEST_F(ScanOfTheTable, ScanClosesWhatItOpens) {
    const auto child = run(install("halvd"));
    const auto openDescriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = openDescriptors();
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(openDescriptors(), before);
}

/// A made-up table with one process whose executable is no link: it is there, and cannot be read.
TEST_F(ScanOfTheTable, UnreadableProcessIsPassedOverByACallerThatMayReadAll) {
    fs::create_directories(m_folder / "proc/1");
    fs::create_directories(m_folder / "proc/7");
    fs::create_symlink("/usr/bin/stranger", m_folder / "proc/1/exe");
    std::ofstream(m_folder / "proc/7/exe") << "no link";
    fs::create_symlink("/proc/self", m_folder / "proc/self");
    const std::string proc = m_folder / "proc";
    m_roots.proc = proc.c_str();
    CV_Process_s* list = nullptr;
    EXPECT_EQ(listProcesses(m_roots, &list, CAT_CORVANE, 0), geteuid() == 0 ? 0 : EACCES);
    EXPECT_EQ(list, nullptr);
}

TEST_F(ScanOfTheTable, UnknownCallerEndsTheScan) {
    fs::create_directories(m_folder / "proc/1");
    const fs::path daemon = install("halvd");
    fs::create_symlink(daemon, m_folder / "proc/1/exe");
    const std::string proc = m_folder / "proc";
    m_roots.proc = proc.c_str();
    CV_Process_s* list = nullptr;
    EXPECT_EQ(listProcesses(m_roots, &list, CAT_CORVANE, 0), ENOENT) << "there is no self in this table";
    EXPECT_EQ(list, nullptr);
}

TEST_F(ScanOfTheTable, KernelThreadIsNotListed) {
    fs::create_directories(m_folder / "proc/1/task/1");
    fs::create_directories(m_folder / "proc/2/task/2");
    const std::string proc = m_folder / "proc";
    m_roots.proc = proc.c_str();
    CV_Process_s* list = nullptr;
    EXPECT_EQ(listProcesses(m_roots, &list, kAll, 0), 0);
    EXPECT_EQ(list, nullptr);
}

/// What judges processes that may not answer costs nothing where there are none.
class ThreadsOfAScan : public MadeUpProcess {
  protected:
    int threadsStartedFor(const fs::path& executable) {
        make("1", "/usr/bin/stranger");
        for (int count = 0; count < 40; ++count) {
            make(std::to_string(5'000'000 + count), executable);
        }
        const int before = threads::started();
        CV_Process_s* list = nullptr;
        EXPECT_EQ(listProcesses(m_roots, &list, CAT_CORVANE, 0), 0);
        EXPECT_EQ(list, nullptr);
        return threads::started() - before;
    }
};

TEST_F(ThreadsOfAScan, AreNotNeededWithoutInterpreters) {
    EXPECT_EQ(threadsStartedFor("/usr/bin/stranger"), 0);
}

TEST_F(ThreadsOfAScan, AreNotNeededForTheCallersOwnShell) {
    make(std::to_string(getppid()), fs::canonical("/bin/sh"));
    EXPECT_EQ(threadsStartedFor("/usr/bin/stranger"), 0);
}

TEST_F(ThreadsOfAScan, AreOneForAllInterpreters) {
    EXPECT_EQ(threadsStartedFor(fs::canonical("/bin/sh")), 1);
}

/// A scan that is short of descriptors either lists everything or fails.
class Shortage : public Lister {
  protected:
    Shortage() : m_daemon(run(install("halvd"))) { getrlimit(RLIMIT_NOFILE, &m_limit); }
    ~Shortage() override { setrlimit(RLIMIT_NOFILE, &m_limit); }

    /// The result of a scan that may open that many more descriptors.
    std::pair<int, bool> scanWith(rlim_t descriptors, Proc_categories categories) {
        UniqueFd next(open("/", O_PATH | O_CLOEXEC));
        const rlimit few = {static_cast<rlim_t>(next.get()) + descriptors, m_limit.rlim_max};
        next.reset();
        setrlimit(RLIMIT_NOFILE, &few);
        CV_Process_s* list = nullptr;
        const int status = listProcesses(m_roots, &list, categories, 0);
        setrlimit(RLIMIT_NOFILE, &m_limit);
        bool found = false;
        while (list != nullptr) {
            found = found || list->pid == m_daemon->pid();
            std::free(std::exchange(list, list->next));
        }
        return {status, found};
    }

    std::unique_ptr<Child> m_daemon;
    rlimit m_limit = {};
};

TEST_F(Shortage, OfDescriptorsIsAnErrorAndNeverAMissingProcess) {
    for (const Proc_categories categories : {CAT_CORVANE, kAll}) {
        int errors = 0;
        std::pair<int, bool> result = {EMFILE, false};
        for (rlim_t count = 0; count < 16; ++count) {
            result = scanWith(count, categories);
            EXPECT_THAT(result.first, testing::AnyOf(0, EMFILE)) << count;
            EXPECT_EQ(result.second, result.first == 0) << count << " descriptors";
            errors += result.first != 0 ? 1 : 0;
        }
        EXPECT_GE(errors, 3) << "the table, the process and the caller need one each";
        EXPECT_EQ(result.first, 0);
    }
}

class ScanOfADeniedProcess : public MadeUpProcess {
  protected:
    int statusFrom(const char* userNamespace) {
        make("1", "/bin/true");
        make("7", "/bin/true");
        fs::remove(fs::path(m_proc) / "7/exe");
        write("7", "exe", "no link, so it cannot be read");
        link("self", "ns/user", userNamespace);
        CV_Process_s* list = nullptr;
        const int status = listProcesses(m_roots, &list, CAT_CORVANE, 0);
        EXPECT_EQ(list, nullptr);
        return status;
    }
};

TEST_F(ScanOfADeniedProcess, IsWholeForRootOfTheHost) {
    EXPECT_EQ(statusFrom("user:[4026531837]"), geteuid() == 0 ? 0 : EACCES);
}

/// Its CAP_SYS_PTRACE says nothing of the host's processes: it must not hear that nothing runs.
TEST_F(ScanOfADeniedProcess, IsNotWholeForRootOfAUserNamespaceOfItsOwn) {
    EXPECT_EQ(statusFrom("user:[4026532837]"), EACCES);
}

} // namespace
} // namespace lister
