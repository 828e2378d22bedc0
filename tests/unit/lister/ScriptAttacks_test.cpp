// Attempts to pass for a script of the product.

#include <string>
#include <utility>
#include <vector>

#include <sys/stat.h>

#include "ListerTest.h"

namespace lister {
namespace {

constexpr uid_t kNobody = 65534;

class ScriptAttack : public Lister {
  protected:
    ScriptAttack() {
        // Ordinary users run from here, too.
        fs::permissions(m_folder, fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
    }

    /// A process can give itself any name (proc_pid_comm(5)).
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
    std::unique_ptr<Child> runStopped(const fs::path& path, std::vector<std::string> arguments,
                                      const fs::path& folder = "/", uid_t user = geteuid()) {
        auto child = std::make_unique<Child>(path, std::move(arguments), [&] {
            EXPECT_EQ(chdir(folder.c_str()), 0);
            EXPECT_EQ(setresgid(user, user, user), 0);
            EXPECT_EQ(setresuid(user, user, user), 0);
        });
        awaitStop(child->pid());
        return child;
    }
    static constexpr char kStop[] = "kill -STOP $$\n";
};

TEST_F(ScriptAttack, RelativeScriptIsOneOfTheWorkingDirectory) {
    const fs::path script = writeScript("worker", std::string("#!/bin/sh\n") + kStop);
    const auto child = runStopped("/bin/sh", {"sh", "worker"}, script.parent_path());
    ASSERT_TRUE(find(child->pid(), CAT_CORVANE));
    EXPECT_EQ(find(child->pid())->path, script.string());
    const auto above = runStopped("/bin/sh", {"sh", "bin/../bin/worker"}, m_root);
    ASSERT_TRUE(find(above->pid(), CAT_CORVANE));
    EXPECT_EQ(find(above->pid())->path, script.string());
}

/// Any user may work in the tree and name a script there.
TEST_F(ScriptAttack, RelativeScriptOfAnOrdinaryUserIsNotTheProduct) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become an ordinary user";
    }
    writeScript("worker", std::string("#!/bin/sh\n") + kStop);
    const auto child = runStopped("/bin/sh", {"sh", "worker"}, m_root + "/bin", kNobody);
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(ScriptAttack, RelativeScriptOfAnotherFolderIsNotTheProduct) {
    writeScript("worker", "#!/bin/sh\n");
    std::ofstream(m_folder / "worker") << "#!/bin/sh\n" << kStop;
    const auto child = runStopped("/bin/sh", {"sh", "worker"}, m_folder);
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

/// Somebody else's script that works in the tree must not pass for the one of its name there.
TEST_F(ScriptAttack, ScriptOfAnotherFolderThatWentToTheTreeIsNotTheProduct) {
    writeScript("start.sh", "#!/bin/sh\n");
    std::ofstream(m_folder / "start.sh") << "cd " << m_root << "/bin\n" << kStop;
    const auto child = runStopped("/bin/sh", {"sh", "start.sh"}, m_folder);
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
    ASSERT_TRUE(find(child->pid())) << "it works in the tree";
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
}

TEST_F(ScriptAttack, OptionsOfItsInterpreterAreSkipped) {
    const fs::path script = writeScript("worker", std::string("#!/bin/sh -e\n") + kStop);
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"sh", "-e", "-u", script.string(), "argument"},
          std::vector<std::string>{"sh", "-eu", "--", script.string()}}) {
        const auto child = runStopped("/bin/sh", arguments);
        ASSERT_TRUE(find(child->pid(), CAT_CORVANE));
        EXPECT_EQ(find(child->pid())->path, script.string());
    }
}

/// An upgrade in place must not hide the scripts that the old interpreter still runs.
TEST_F(ScriptAttack, ScriptOfAnInterpreterThatWasReplacedIsTheProduct) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only an interpreter of root's is trusted";
    }
    const fs::path shell = m_folder / "dash";
    fs::copy_file(fs::canonical("/bin/sh"), shell);
    const fs::path script = writeScript("worker", "#!" + shell.string() + " -e\n" + kStop);
    const auto child = runStopped(shell, {"sh", "-e", script.string()});
    fs::copy_file(shell, m_folder / "new");
    fs::rename(m_folder / "new", shell);
    ASSERT_THAT(fs::read_symlink("/proc/" + std::to_string(child->pid()) + "/exe").string(),
                testing::EndsWith(" (deleted)"));
    ASSERT_TRUE(find(child->pid(), CAT_CORVANE));
    EXPECT_EQ(find(child->pid())->path, script.string());
}

/// The file is an argument of the code, and what the process runs is not known.
TEST_F(ScriptAttack, CodeOnTheCommandLineIsNotTheProduct) {
    const fs::path script = writeScript("worker", "#!/bin/sh\n");
    const auto child = runStopped("/bin/sh", {"sh", "-ec", kStop, script.string()});
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(ScriptAttack, ScriptThroughEnvIsTheProduct) {
    const fs::path script = writeScript("worker", std::string("#!/usr/bin/env sh\n") + kStop);
    const auto child = runStopped(script, {"worker"});
    ASSERT_TRUE(find(child->pid(), CAT_CORVANE));
    EXPECT_EQ(find(child->pid())->path, script.string());
}

TEST_F(ScriptAttack, LinkFromOutsideLeadsToTheScriptItself) {
    const fs::path script = writeScript("worker", std::string("#!/bin/sh\n") + kStop);
    fs::create_symlink(script, m_folder / "link");
    const auto child = runStopped("/bin/sh", {"sh", (m_folder / "../" / m_folder.filename() / "link").string()});
    ASSERT_TRUE(find(child->pid(), CAT_CORVANE));
    EXPECT_EQ(find(child->pid())->path, script.string());
}

TEST_F(ScriptAttack, PathThatLeavesTheTreeIsNotTheProduct) {
    std::ofstream(m_folder / "worker") << "#!/bin/sh\n" << kStop;
    const auto child = runStopped("/bin/sh", {"sh", m_root + "/bin/../../worker"});
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(ScriptAttack, FileThatNamesAnotherInterpreterIsOnlyReadByThisOne) {
    const fs::path script = writeScript("worker", std::string("#!/usr/bin/perl\n") + kStop);
    const auto child = runStopped("/bin/sh", {"sh", script.string()});
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(ScriptAttack, PipeIsNoScript) {
    const fs::path pipe = m_root + "/bin/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    const Child reader("/bin/sh", {"sh", pipe.string()});
    EXPECT_FALSE(find(reader.pid(), CAT_CORVANE));
}

TEST_F(ScriptAttack, ProcessNamedAfterItsFileIsTheProductWhenRootRunsIt) {
    const auto child = runForging(m_root + "/bin/worker", "worker", 0);
    ASSERT_TRUE(find(child->pid(), CAT_CORVANE));
    EXPECT_EQ(find(child->pid())->path, m_root + "/bin/worker");
}

TEST_F(ScriptAttack, ProcessOfAnotherNameIsNotTheProduct) {
    const auto child = runForging(m_root + "/bin/worker", "another", 0);
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(ScriptAttack, ForgedNameOfAnOrdinaryUsersProcessIsNotTheProduct) {
    const auto child = runForging(m_root + "/bin/worker", "worker", kNobody);
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(ScriptAttack, InterpreterThatAnOrdinaryUserPutThereIsNotTrusted) {
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

TEST_F(ScriptAttack, UnfitPathOfAScriptIsOnlyListed) {
    const fs::path script = writeScript("a worker", std::string("#!/bin/sh\n") + kStop);
    const auto child = runStopped(script, {"worker"});
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

} // namespace
} // namespace lister
