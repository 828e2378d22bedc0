// Attempts to pass for a process of the product by way of the executable, or to hide one.

#include "ListerTest.h"

#include <algorithm>
#include <cerrno>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
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

    /// Makes the folders of a path of that many bytes one by one: no call takes such a path whole. Returns the last.
    [[nodiscard]] UniqueFd makeFolders(std::size_t length) const {
        UniqueFd folder(open(m_root.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        std::size_t made = m_root.size();
        while (made < length) {
            const std::size_t rest = length - made - 1;
            // A name has at most 255 bytes, and a lone slash must not remain.
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
    EXPECT_EQ(judge(child->pid(), judgeByLink).reason, Reason::UnfitPath);
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(Attack, PathBeyondAPageIsPassedOver) {
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
/// namespace shows that the user chose it.
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
    EXPECT_EQ(judge(liar->pid(), judgeByLink).reason, Reason::ForeignUserNamespace);
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

} // namespace
} // namespace lister
