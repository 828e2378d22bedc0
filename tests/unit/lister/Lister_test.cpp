// The rules of the lister on live processes: children of the test, started from a made-up install root. They are only
// listed; each is ended by its parent, by pid.

#include "ListerTest.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include <fcntl.h>

namespace lister {
namespace {

TEST_F(Lister, ProductProcessHasItsFullPathAndName) {
    const auto child = run(install("a-daemon-with-a-name-beyond-fifteen-bytes"));
    const auto record = find(child->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_CORVANE);
    EXPECT_STREQ(record->name, "a-daemon-with-a-name-beyond-fifteen-bytes");
    EXPECT_EQ(record->path, m_root + "/bin/a-daemon-with-a-name-beyond-fifteen-bytes");
    EXPECT_EQ(record->signalled, 0);
    EXPECT_EQ(record->excluded, 0);
}

TEST_F(Lister, NameOf255BytesIsWhole) {
    const std::string name(255, 'n');
    const auto child = run(install(name));
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->name, name);
}

TEST_F(Lister, ForgedArgumentsAndProcessNameDoNotMatter) {
    const fs::path outside = copySleep(m_folder / "sleep");
    const std::string forged = m_root + "/bin/halvd";
    const Child liar(outside, {forged, "60"});
    EXPECT_FALSE(find(liar.pid()));
    const Child shy(install("halvd"), {"/usr/sbin/other", "60"});
    ASSERT_TRUE(find(shy.pid()));
    EXPECT_STREQ(find(shy.pid())->name, "halvd");
}

TEST_F(Lister, NeighbourOfTheRootIsNotBelowIt) {
    fs::create_directories(m_root + "2");
    const auto child = run(copySleep(m_root + "2/halvd"));
    EXPECT_FALSE(find(child->pid()));
}

TEST_F(Lister, HostWithoutTheProductHasNoProcessOfIt) {
    const auto child = run(install("halvd"));
    m_roots.install = "/nonexistent/quarn";
    EXPECT_FALSE(find(child->pid()));
}

TEST_F(Lister, SymbolicLinkAsRootIsMadeCanonical) {
    const auto child = run(install("halvd"));
    fs::create_directory_symlink(m_root, m_folder / "link");
    const std::string link = m_folder / "link";
    m_roots.install = link.c_str();
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->path, m_root + "/bin/halvd");
}

TEST_F(Lister, RemovedAndReplacedExecutablesKeepTheirPath) {
    const fs::path path = install("halvd");
    const auto child = run(path);
    fs::remove(path);
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->path, path.string());
    install("halvd");
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->path, path.string());
}

TEST_F(Lister, LiveFileWhoseNameEndsInDeletedKeepsIt) {
    const fs::path path = install("halvd (deleted)");
    const auto child = run(path);
    const auto record = find(child->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->path, path.string());
    EXPECT_EQ(record->category, CAT_OTHER_THIRD_PARTY) << "a blank makes the path unfit for a command line";
}

TEST_F(Lister, UnfitPathIsOnlyListedWithItsControlsHidden) {
    const auto semicolon = run(install("halvd;reboot"));
    ASSERT_TRUE(find(semicolon->pid()));
    EXPECT_EQ(find(semicolon->pid())->category, CAT_OTHER_THIRD_PARTY);
    EXPECT_FALSE(find(semicolon->pid(), CAT_CORVANE));
    const auto newline = run(install("a\nb\x1b[2J"));
    ASSERT_TRUE(find(newline->pid()));
    EXPECT_STREQ(find(newline->pid())->name, "a?b?[2J");
}

TEST_F(Lister, LeaderThreadThatHasExitedIsSeenThroughALiveOne) {
    const fs::path path = m_root + "/bin/halvd";
    fs::copy_file(CVSTOP_EXITED_LEADER, path);
    const auto child = run(path);
    std::string stat;
    while (stat.find(") Z ") == std::string::npos) {
        std::ifstream file("/proc/" + std::to_string(child->pid()) + "/stat");
        std::getline(file, stat);
    }
    const auto record = find(child->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_CORVANE);
    EXPECT_EQ(record->path, path.string());
}

TEST_F(Lister, CallersOwnExecutableIsLeftOut) {
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        pause();
        _exit(0);
    }
    m_root = fs::read_symlink("/proc/self/exe").parent_path().string();
    m_roots.install = m_root.c_str();
    EXPECT_FALSE(find(pid));
    EXPECT_FALSE(find(getpid()));
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

TEST_F(Lister, PidsAscend) {
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

TEST_F(Lister, TableThatCannotBeReadIsAnErrno) {
    m_roots.proc = "/nonexistent";
    CV_Process_s* list = nullptr;
    EXPECT_EQ(listProcesses(m_roots, &list, kAll, 0), ENOENT);
    EXPECT_EQ(list, nullptr);
}

TEST_F(Lister, TableWithoutPid1IsNotWhole) {
    fs::create_directories(m_folder / "proc/77");
    const std::string proc = m_folder / "proc";
    m_roots.proc = proc.c_str();
    CV_Process_s* list = nullptr;
    EXPECT_EQ(listProcesses(m_roots, &list, kAll, 0), EACCES);
    EXPECT_EQ(list, nullptr);
}

TEST_F(Lister, MadeUpTableOfStrangersIsEmptyAndNoError) {
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

// --- scripts

TEST_F(Lister, ScriptThatNamesItsInterpreterIsTheProduct) {
    const fs::path script = writeScript("worker", "#!/bin/sh\nkill -STOP $$\n");
    const Child child(script, {"worker"});
    const auto record = find(child.pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_CORVANE);
    EXPECT_EQ(record->path, script.string());
    EXPECT_STREQ(record->name, "worker");
}

TEST_F(Lister, ProductFileGivenToAPagerOrToAShellAsDataIsNoScript) {
    const fs::path data = writeScript("data", "no script at all\n");
    const Child pager("/usr/bin/tail", {"tail", "-f", data.string()});
    EXPECT_FALSE(find(pager.pid(), CAT_CORVANE));
    const Child shell("/bin/sh", {"sh", "-c", "kill -STOP $$", data.string()});
    EXPECT_FALSE(find(shell.pid(), CAT_CORVANE));
}

TEST_F(Lister, ScriptOutsideTheRootIsNotTheProduct) {
    const fs::path script = m_folder / "worker";
    std::ofstream(script) << "#!/bin/sh\nkill -STOP $$\n";
    fs::permissions(script, fs::perms::owner_all);
    const Child child(script, {"worker"});
    EXPECT_FALSE(find(child.pid(), CAT_CORVANE));
}

// --- third parties

/// Ways to ask for executable mappings: both run whatever the kernel.
class ThirdParty : public Lister, public testing::WithParamInterface<bool> {
  protected:
    ThirdParty() { m_roots.queryMappings = GetParam(); }

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

/// The text of maps is bounded by its bytes, questions by their number.
class AskedMappings : public ThirdParty {};
INSTANTIATE_TEST_SUITE_P(Mappings, AskedMappings, testing::Values(true));

INSTANTIATE_TEST_SUITE_P(Mappings, ThirdParty, testing::Values(true, false),
                         [](const auto& parameter) { return parameter.param ? "Queried" : "ReadFromMaps"; });

TEST_P(ThirdParty, WhoWorksInTheTreeIsOnlyListed) {
    const auto child = run(copySleep(m_folder / "editor"), [this] { EXPECT_EQ(chdir(m_root.c_str()), 0); });
    const auto record = find(child->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_OTHER_THIRD_PARTY);
    EXPECT_STREQ(record->name, "editor");
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE)) << "not looked for unless asked";
}

TEST_P(ThirdParty, WhoHoldsAFileOfTheTreeIsOnlyListed) {
    const fs::path file = install("halvd");
    const auto child = run(copySleep(m_folder / "reader"), [&] { open(file.c_str(), O_RDONLY); });
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
}

TEST_P(ThirdParty, WhoHasNothingToDoWithTheProductIsNotListed) {
    const auto child = run(copySleep(m_folder / "stranger"));
    EXPECT_FALSE(find(child->pid()));
}

/// A hostile process may have as much as it likes, in front of what it holds.
TEST_P(ThirdParty, WhoGoesOverTheBudgetWithoutAReasonIsPassedOver) {
    const fs::path file = install("halvd");
    const auto child = run(copySleep(m_folder / "reader"), [&] { open(file.c_str(), O_RDONLY); });
    EXPECT_EQ(judgeHolder(child->pid()).reason, Reason::HoldsProduct);
    m_roots.budget.descriptors = 3; // ".", ".." and "0" come first
    EXPECT_EQ(judgeHolder(child->pid()).reason, Reason::OverBudget);
    EXPECT_FALSE(find(child->pid()));
    m_roots.budget = {.mappings = 1, .descriptors = 100, .mapsBytes = 64};
    EXPECT_EQ(judgeHolder(child->pid()).reason, Reason::OverBudget);
}

/// Each executable mapping costs one question, and so does the answer that there is no more.
TEST_P(AskedMappings, WithinTheBudgetAreSearchedToTheEnd) {
    const auto child = run(copySleep(m_folder / "stranger"));
    awaitSleep(*child);
    m_roots.budget.mappings = 0;
    if (judgeHolder(child->pid()).reason != Reason::OverBudget) {
        GTEST_SKIP() << "the kernel answers no such questions (Linux 6.11)";
    }
    int mappings = 0;
    std::ifstream maps("/proc/" + std::to_string(child->pid()) + "/maps");
    for (std::string line; std::getline(maps, line);) {
        const std::optional<MapsLine> mapping = parseMapsLine(line);
        mappings += mapping && mapping->executable && mapping->path.starts_with("/") ? 1 : 0;
    }
    m_roots.budget.mappings = mappings + 1;
    EXPECT_EQ(judgeHolder(child->pid()).reason, Reason::NoRelation);
    m_roots.budget.mappings = mappings;
    EXPECT_EQ(judgeHolder(child->pid()).reason, Reason::OverBudget);
}

TEST_P(ThirdParty, ReasonThatIsFoundWithinTheBudgetCounts) {
    const auto child = runMapper("mapper");
    m_roots.budget.descriptors = 0;
    EXPECT_EQ(judgeHolder(child->pid()).reason, Reason::MapsProduct);
}

TEST_P(ThirdParty, WhoRunsTheProductsCodeInsideMayBeTerminated) {
    const auto child = runMapper("mapper");
    const auto record = find(child->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_THIRD_PARTY);
    EXPECT_EQ(record->path, (m_folder / "mapper").string());
}

TEST_P(ThirdParty, WhomNoExcludeListCouldNameIsOnlyListed) {
    const auto child = runMapper("mapper");
    fs::remove(m_folder / "mapper");
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
    copySleep(m_folder / "mapper");
    EXPECT_EQ(find(child->pid())->category, CAT_THIRD_PARTY) << "its replacement can be named";
    EXPECT_EQ(find(child->pid())->path, (m_folder / "mapper").string());
}

TEST_P(ThirdParty, ControlCharactersInItsPathOnlyListIt) {
    const auto child = runMapper("a\tb");
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
    EXPECT_STREQ(find(child->pid())->name, "a?b");
}

TEST_P(ThirdParty, HostServiceIsOnlyListedAlsoWhenItWasUpgraded) {
    const auto child = runMapper("sshd");
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
    fs::remove(m_folder / "sshd");
    copySleep(m_folder / "sshd");
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
}

TEST_F(Lister, ScanClosesWhatItOpens) {
    const auto child = run(install("halvd"));
    const auto openDescriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto before = openDescriptors();
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(openDescriptors(), before);
}

} // namespace
} // namespace lister
