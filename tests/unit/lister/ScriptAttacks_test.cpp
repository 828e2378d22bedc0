// What somebody may do to be taken for a script of the product.

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
        awaitStop(child->pid());
        return child;
    }
    static constexpr char kStop[] = "kill -STOP $$\n";
};

TEST_F(ScriptAttack, RelativeScriptIsNotKnownByItsArgument) {
    const fs::path script = writeScript("worker", std::string("#!/bin/sh\n") + kStop);
    const auto child = std::make_unique<Child>("/bin/sh", std::vector<std::string>{"sh", "worker"},
                                               [&] { EXPECT_EQ(chdir(script.parent_path().c_str()), 0); });
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(ScriptAttack, OptionsBeforeItAreSkipped) {
    const fs::path script = writeScript("worker", std::string("#!/bin/sh\n") + kStop);
    const auto child = runStopped("/bin/sh", {"sh", "-e", "-u", script.string(), "argument"});
    // -e takes a program in other interpreters: it is not certain that a file comes behind it.
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
    const auto other = runStopped("/bin/sh", {"sh", "-u", script.string(), "argument"});
    ASSERT_TRUE(find(other->pid(), CAT_CORVANE));
    EXPECT_EQ(find(other->pid())->path, script.string());
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

TEST_F(ScriptAttack, WayOutOfTheTreeIsNotTheProduct) {
    std::ofstream(m_folder / "worker") << "#!/bin/sh\n" << kStop;
    const auto child = runStopped("/bin/sh", {"sh", m_root + "/bin/../../worker"});
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(ScriptAttack, FileThatNamesAnotherInterpreterIsOnlyReadByThisOne) {
    const fs::path script = writeScript("worker", std::string("#!/usr/bin/perl\n") + kStop);
    const auto child = runStopped("/bin/sh", {"sh", script.string()});
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE));
}

TEST_F(ScriptAttack, FolderAndPipeAreNoScripts) {
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
