// What somebody may do to be taken for a process of the product, to hide one, or to cost the lister its time.

#include "ListerTest.h"

#include <algorithm>
#include <cerrno>
#include <set>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace lister {
namespace {

constexpr uid_t kNobody = 65534;

class Attack : public Lister {
  protected:
    Attack() {
        // Ordinary users run from here, too.
        fs::permissions(m_folder, fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
    }

    [[nodiscard]] Verdict judge(pid_t pid) const {
        const UniqueFd proc(open("/proc", O_PATH | O_DIRECTORY | O_CLOEXEC));
        return judgeExecutable(Caller(m_roots), PinnedProcess(proc.get(), pid, std::to_string(pid).c_str()));
    }

    /// Makes the folders of a path of that many bytes one by one: no call takes such a path whole. Returns the last.
    [[nodiscard]] UniqueFd makeFolders(std::size_t length) const {
        UniqueFd folder(open(m_root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        std::size_t made = m_root.size();
        while (made < length) {
            const std::size_t rest = length - made - 1;
            // No name of more than 255 bytes, and never a rest of a lone slash.
            const std::string name(rest <= 200 ? rest : std::min<std::size_t>(200, rest - 2), 'd');
            EXPECT_TRUE(mkdirat(folder.get(), name.c_str(), 0755) == 0 || errno == EEXIST);
            folder.reset(openat(folder.get(), name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
            made += 1 + name.size();
        }
        return folder;
    }

    /// A child that runs a file called "x" whose whole path has that many bytes.
    [[nodiscard]] std::unique_ptr<Child> runWithPathOf(std::size_t length) const {
        const UniqueFd folder = makeFolders(length - 2);
        UniqueFd file(openat(folder.get(), "x", O_CREAT | O_WRONLY | O_CLOEXEC, 0755));
        const UniqueFd sleep(open("/bin/sleep", O_RDONLY | O_CLOEXEC));
        EXPECT_GT(copyWhole(file.get(), sleep.get()), 0U);
        file.reset(); // what is open for writing cannot be run
        return std::make_unique<Child>("./x", std::vector<std::string>{"x", "60"},
                                       [&folder] { EXPECT_EQ(fchdir(folder.get()), 0); });
    }

    static std::size_t copyWhole(int to, int from) {
        std::size_t total = 0;
        char buffer[65536];
        for (ssize_t count = 0; (count = read(from, buffer, sizeof buffer)) > 0;) {
            EXPECT_EQ(write(to, buffer, static_cast<std::size_t>(count)), count);
            total += static_cast<std::size_t>(count);
        }
        return total;
    }
};

TEST_F(Attack, PathOf1023BytesIsTheLongestThatMayBeStopped) {
    const auto fits = runWithPathOf(1023);
    const auto record = find(fits->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_CORVANE);
    EXPECT_EQ(std::string(record->path).size(), 1023U);
}

TEST_F(Attack, PathOf1024BytesIsOnlyListedAndCut) {
    const auto child = runWithPathOf(1024);
    const auto record = find(child->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_OTHER_THIRD_PARTY);
    EXPECT_EQ(std::string(record->path).size(), 1023U);
    EXPECT_EQ(judge(child->pid()).reason, Reason::UnfitPath);
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(Attack, PathThatTheKernelCannotGiveIsPassedOver) {
    const auto longest = runWithPathOf(4095);
    ASSERT_TRUE(find(longest->pid()));
    EXPECT_EQ(find(longest->pid())->category, CAT_OTHER_THIRD_PARTY);
    const auto beyond = runWithPathOf(4096);
    EXPECT_FALSE(find(beyond->pid()));
    EXPECT_TRUE(find(longest->pid())) << "the pass goes on";
}

TEST_F(Attack, FileInMemoryNamedLikeADaemonIsNotTheProduct) {
    const int memory = memfd_create((m_root + "/bin/halvd").c_str(), 0);
    const UniqueFd sleep(open("/bin/sleep", O_RDONLY | O_CLOEXEC));
    ASSERT_GT(copyWhole(memory, sleep.get()), 0U);
    const std::string path = "/proc/self/fd/" + std::to_string(memory);
    const Child child(path, {m_root + "/bin/halvd", "60"});
    close(memory);
    EXPECT_THAT(fs::read_symlink("/proc/" + std::to_string(child.pid()) + "/exe").string(),
                testing::StartsWith("/memfd:"));
    EXPECT_FALSE(find(child.pid()));
}

/// The executable that an ordinary user's process shows is the daemon's, down to device and inode; only its user
/// namespace tells that it is his to choose.
TEST_F(Attack, ExecutableFakedInAUserNamespaceOfAnOrdinaryUserIsNotTheProduct) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become an ordinary user";
    }
    const fs::path daemon = install("halvd");
    const fs::path library = m_folder / "fake.so";
    fs::copy_file(CVSTOP_FAKE_EXECUTABLE, library);
    int output[2];
    ASSERT_EQ(pipe(output), 0);
    const auto liar = run("/bin/sleep", [&] {
        EXPECT_EQ(setresgid(kNobody, kNobody, kNobody), 0);
        EXPECT_EQ(setresuid(kNobody, kNobody, kNobody), 0);
        prctl(PR_SET_DUMPABLE, 1); // else its own uid_map is root's
        EXPECT_EQ(unshare(CLONE_NEWUSER), 0);
        std::ofstream("/proc/self/uid_map") << "0 " << kNobody << " 1";
        dup2(output[1], STDOUT_FILENO);
        setenv("LD_PRELOAD", library.c_str(), 1);
        setenv("FAKE_EXECUTABLE", daemon.c_str(), 1);
    });
    close(output[1]);
    char word[64] = "";
    EXPECT_GT(read(output[0], word, sizeof word - 1), 0);
    close(output[0]);
    if (std::string(word) != "faked\n") {
        GTEST_SKIP() << "the kernel forbids the attack here: " << word;
    }
    ASSERT_EQ(fs::read_symlink("/proc/" + std::to_string(liar->pid()) + "/exe"), daemon);
    EXPECT_EQ(judge(liar->pid()).reason, Reason::ForeignUserNamespace);
    EXPECT_FALSE(find(liar->pid(), CAT_CORVANE));
}

struct UnfitName {
    const char* title;
    std::string name;
    std::string shown;
};

class UnfitNames : public Attack, public testing::WithParamInterface<UnfitName> {};

TEST_P(UnfitNames, AreOnlyListedAndShowNoControls) {
    const auto child = run(install(GetParam().name));
    const auto record = find(child->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_OTHER_THIRD_PARTY);
    EXPECT_EQ(record->name, GetParam().shown);
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

INSTANTIATE_TEST_SUITE_P(All, UnfitNames,
                         testing::Values(UnfitName{"Semicolon", "a;b", "a;b"},
                                         UnfitName{"Substitution", "a$(b)", "a$(b)"},
                                         UnfitName{"Backtick", "a`b`", "a`b`"}, UnfitName{"Quote", "a'b", "a'b"},
                                         UnfitName{"DoubleQuote", "a\"b", "a\"b"}, UnfitName{"Blank", "a b", "a b"},
                                         UnfitName{"Newline", "a\nb", "a?b"}, UnfitName{"Tab", "a\tb", "a?b"},
                                         UnfitName{"Escape", "a\x1b[31m", "a?[31m"}, UnfitName{"Delete", "a\x7f", "a?"},
                                         UnfitName{"C1",
                                                   "a\xC2\x9B"
                                                   "b",
                                                   "a?b"},
                                         UnfitName{"Latin1", "a\xE4", "a?"}, UnfitName{"CutUtf8", "a\xE2\x82", "a??"},
                                         UnfitName{"Surrogate", "a\xED\xA0\x80", "a???"},
                                         UnfitName{"Ampersand", "a&b", "a&b"}, UnfitName{"Pipe", "a|b", "a|b"},
                                         UnfitName{"Redirection", "a>b", "a>b"}, UnfitName{"Star", "a*", "a*"},
                                         UnfitName{"Tilde", "~a", "~a"}, UnfitName{"Backslash", "a\\b", "a\\b"}),
                         [](const auto& parameter) { return std::string(parameter.param.title); });

TEST_F(Attack, LettersOfOtherScriptsAreFit) {
    const auto child = run(install("d\xC3\xA4mon-\xE6\x97\xA5"));
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->category, CAT_CORVANE);
}

// --- scripts

class Script : public Attack {
  protected:
    /// A process can call itself as it likes (proc_pid_comm(5)).
    std::unique_ptr<Child> runForging(const fs::path& file, const std::string& name, uid_t user) {
        std::ofstream(file) << "open(C, '>', '/proc/self/comm'); syswrite(C, '" << name
                            << "'); syswrite(STDOUT, 'x'); sleep 60;\n";
        fs::permissions(file, fs::perms::others_read, fs::perm_options::add);
        int output[2];
        EXPECT_EQ(pipe(output), 0);
        auto child = std::make_unique<Child>("/usr/bin/perl", std::vector<std::string>{"perl", file.string()}, [&] {
            dup2(output[1], STDOUT_FILENO);
            EXPECT_EQ(setresgid(user, user, user), 0);
            EXPECT_EQ(setresuid(user, user, user), 0);
        });
        char byte = 0;
        EXPECT_EQ(read(output[0], &byte, 1), 1);
        close(output[0]);
        close(output[1]);
        return child;
    }
    std::unique_ptr<Child> runStopped(const fs::path& path, std::vector<std::string> arguments) {
        auto child = std::make_unique<Child>(path, std::move(arguments));
        int status = 0;
        EXPECT_EQ(waitpid(child->pid(), &status, WUNTRACED), child->pid());
        EXPECT_TRUE(WIFSTOPPED(status));
        return child;
    }
    static constexpr char kStop[] = "kill -STOP $$\n";
};

TEST_F(Script, RelativeScriptIsNotKnownByItsArgument) {
    const fs::path script = writeScript("worker", std::string("#!/bin/sh\n") + kStop);
    const auto child = std::make_unique<Child>("/bin/sh", std::vector<std::string>{"sh", "worker"},
                                               [&] { EXPECT_EQ(chdir(script.parent_path().c_str()), 0); });
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(Script, OptionsBeforeItAreSkipped) {
    const fs::path script = writeScript("worker", std::string("#!/bin/sh\n") + kStop);
    const auto child = runStopped("/bin/sh", {"sh", "-e", "-u", script.string(), "argument"});
    // -e takes a program in other interpreters: it is not certain that a file comes behind it.
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
    const auto other = runStopped("/bin/sh", {"sh", "-u", script.string(), "argument"});
    ASSERT_TRUE(find(other->pid(), CAT_CORVANE));
    EXPECT_EQ(find(other->pid())->path, script.string());
}

TEST_F(Script, ScriptThroughEnvIsTheProduct) {
    const fs::path script = writeScript("worker", std::string("#!/usr/bin/env sh\n") + kStop);
    const auto child = runStopped(script, {"worker"});
    ASSERT_TRUE(find(child->pid(), CAT_CORVANE));
    EXPECT_EQ(find(child->pid())->path, script.string());
}

TEST_F(Script, LinkFromOutsideLeadsToTheScriptItself) {
    const fs::path script = writeScript("worker", std::string("#!/bin/sh\n") + kStop);
    fs::create_symlink(script, m_folder / "link");
    const auto child = runStopped("/bin/sh", {"sh", (m_folder / "../" / m_folder.filename() / "link").string()});
    ASSERT_TRUE(find(child->pid(), CAT_CORVANE));
    EXPECT_EQ(find(child->pid())->path, script.string());
}

TEST_F(Script, WayOutOfTheTreeIsNotTheProduct) {
    std::ofstream(m_folder / "worker") << "#!/bin/sh\n" << kStop;
    const auto child = runStopped("/bin/sh", {"sh", m_root + "/bin/../../worker"});
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(Script, FileThatNamesAnotherInterpreterIsOnlyReadByThisOne) {
    const fs::path script = writeScript("worker", std::string("#!/usr/bin/perl\n") + kStop);
    const auto child = runStopped("/bin/sh", {"sh", script.string()});
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(Script, FolderAndPipeAreNoScripts) {
    const fs::path pipe = m_root + "/bin/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Child reader("/bin/sh", {"sh", pipe.string()});
    EXPECT_FALSE(find(reader.pid(), CAT_CORVANE));
}

TEST_F(Script, ProcessNamedAfterItsFileIsTheProductWhenRootRunsIt) {
    const auto child = runForging(m_root + "/bin/worker", "worker", 0);
    ASSERT_TRUE(find(child->pid(), CAT_CORVANE));
    EXPECT_EQ(find(child->pid())->path, m_root + "/bin/worker");
}

TEST_F(Script, ProcessOfAnotherNameIsNotTheProduct) {
    const auto child = runForging(m_root + "/bin/worker", "another", 0);
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(Script, ForgedNameOfAnOrdinaryUsersProcessIsNotTheProduct) {
    const auto child = runForging(m_root + "/bin/worker", "worker", kNobody);
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(Script, InterpreterThatAnOrdinaryUserPutThereIsNotTrusted) {
    const fs::path script = writeScript("worker", std::string("#!") + (m_folder / "sh").string() + "\n" + kStop);
    fs::copy_file("/bin/sh", m_folder / "sh");
    const auto trusted = runStopped(script, {"worker"});
    ASSERT_TRUE(find(trusted->pid(), CAT_CORVANE)) << "root's own";
    fs::permissions(m_folder / "sh", fs::perms::group_write, fs::perm_options::add);
    EXPECT_FALSE(find(trusted->pid(), CAT_CORVANE)) << "others may write it";
    fs::permissions(m_folder / "sh", fs::perms::group_write, fs::perm_options::remove);
    ASSERT_EQ(chown((m_folder / "sh").c_str(), kNobody, kNobody), 0);
    EXPECT_FALSE(find(trusted->pid(), CAT_CORVANE)) << "another user's";
}

TEST_F(Script, UnfitPathOfAScriptIsOnlyListed) {
    const fs::path script = writeScript("a worker", std::string("#!/bin/sh\n") + kStop);
    const auto child = runStopped(script, {"worker"});
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

// --- the caller's own shortage and blindness

/// Whether a scan tells the whole truth or that it cannot.
class Shortage : public Attack {
  protected:
    Shortage() : m_daemon(run(install("halvd"))) { getrlimit(RLIMIT_NOFILE, &m_limit); }
    ~Shortage() override { setrlimit(RLIMIT_NOFILE, &m_limit); }

    /// The result of a scan that may have that many descriptors open besides those there are.
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

TEST(Reasons, HaveATextEach) {
    std::set<std::string> texts;
    for (int reason = 0; reason <= static_cast<int>(Reason::OverBudget); ++reason) {
        texts.insert(reasonText(static_cast<Reason>(reason)));
    }
    EXPECT_EQ(texts.size(), static_cast<std::size_t>(Reason::OverBudget) + 1);
    EXPECT_EQ(texts.count("unknown"), 0U);
}

/// A made-up table with one process whose executable is no link: it is there, and cannot be read.
TEST_F(Attack, UnreadableProcessIsPassedOverByACallerThatMayReadAll) {
    fs::create_directories(m_folder / "proc/1");
    fs::create_directories(m_folder / "proc/7");
    fs::create_symlink("/usr/bin/stranger", m_folder / "proc/1/exe");
    std::ofstream(m_folder / "proc/7/exe") << "no link";
    const std::string proc = m_folder / "proc";
    m_roots.proc = proc.c_str();
    CV_Process_s* list = nullptr;
    EXPECT_EQ(listProcesses(m_roots, &list, CAT_CORVANE, 0), geteuid() == 0 ? 0 : EACCES);
    EXPECT_EQ(list, nullptr);
}

/// What ended is passed over in silence; what cannot be read may be a daemon, and is said.
TEST_F(Attack, ProcessOfWhichNothingIsKnownIsToldFromOneThatEnded) {
    const std::string daemon = install("halvd");
    fs::create_directories(m_folder / "proc/7");
    fs::create_directories(m_folder / "proc/8");
    fs::create_symlink(daemon + "/in-a-file", m_folder / "proc/7/exe");
    fs::create_symlink(daemon + "-that-is-gone", m_folder / "proc/8/exe");
    const UniqueFd proc(open((m_folder / "proc").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const Caller caller(m_roots);
    const auto executable = [&](pid_t pid) {
        return verdictOf(
                   [&] { return judgeExecutable(caller, PinnedProcess(proc.get(), pid, std::to_string(pid).c_str())); })
            .reason;
    };
    EXPECT_EQ(executable(7), Reason::Unreadable);
    EXPECT_EQ(executable(8), Reason::Vanished);
    EXPECT_EQ(verdictOf([&] { return judgeThirdParty(m_roots, caller, PinnedProcess(proc.get(), 8, "8")); }).reason,
              Reason::Vanished);
}

/// A daemon whose namespaces cannot be read is no stranger in namespaces of its own.
TEST_F(Attack, ProcessWhoseNamespacesCannotBeReadIsSaid) {
    const std::string daemon = install("halvd");
    fs::create_directories(m_folder / "proc/7/ns");
    fs::create_symlink(daemon, m_folder / "proc/7/exe");
    std::ofstream(m_folder / "proc/7/ns/pid") << "no link";
    const UniqueFd proc(open((m_folder / "proc").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const PinnedProcess process(proc.get(), 7, "7");
    try {
        judgeExecutable(Caller(m_roots), process);
        FAIL() << "it was judged";
    } catch (const ProcessLost& lost) {
        EXPECT_EQ(lost.reason, Reason::Unreadable);
    }
}

TEST_F(Attack, CallerOfWhichNothingIsKnownEndsTheScan) {
    fs::create_directories(m_folder / "proc/1");
    const fs::path daemon = install("halvd");
    fs::create_symlink(daemon, m_folder / "proc/1/exe");
    const std::string proc = m_folder / "proc";
    m_roots.proc = proc.c_str();
    CV_Process_s* list = nullptr;
    EXPECT_EQ(listProcesses(m_roots, &list, CAT_CORVANE, 0), ENOENT) << "there is no self in this table";
    EXPECT_EQ(list, nullptr);
}

TEST_F(Attack, KernelThreadHasNoExecutableAndIsNoRecord) {
    fs::create_directories(m_folder / "proc/1/task/1");
    fs::create_directories(m_folder / "proc/2/task/2");
    const std::string proc = m_folder / "proc";
    m_roots.proc = proc.c_str();
    CV_Process_s* list = nullptr;
    EXPECT_EQ(listProcesses(m_roots, &list, kAll, 0), 0);
    EXPECT_EQ(list, nullptr);
}

/// The release of the program that is upgraded while it runs has another inode under the same path.
TEST_F(Attack, AnotherReleaseOfTheCallersExecutableIsTheCallers) {
    const fs::path own = fs::read_symlink("/proc/self/exe");
    const Caller caller(m_roots);
    const FileStatus other = {{1, 2, 3}, 1, 0100755, 0, 1};
    EXPECT_TRUE(caller.isOwnExecutable(other, own.string()));
    EXPECT_FALSE(caller.isOwnExecutable(other, own.string() + "d"));
    EXPECT_FALSE(caller.isOwnExecutable(other, (m_root + "/bin/halvd")));
}

} // namespace
} // namespace lister
