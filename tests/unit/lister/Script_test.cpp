#include <utility>
#include <vector>

#include <sys/inotify.h>
#include <sys/stat.h>

#include "Kernel.h"
#include "MadeUpProcess.h"

namespace lister {
namespace {

/// As much as a process may have by default (execve(2)).
constexpr std::size_t kTwoMegabytes = 2U << 20U;

class ScriptRule : public MadeUpProcess {};
class LiveScript : public Lister {};

TEST_F(ScriptRule, ScriptOfTheProduct) {
    const fs::path script = makeScript("77", "#!/bin/sh");
    const Verdict verdict = judge("77", judgeScriptByLink);
    EXPECT_EQ(verdict.reason, Reason::ProductScript);
    EXPECT_EQ(verdict.path, script.string());
}

TEST_F(ScriptRule, ArgumentsBeyondWhatIsReadDoNotMatter) {
    const fs::path script = makeScript("77", "#!/bin/sh");
    write("77", "cmdline", std::string("sh\0", 3) + script.string() + '\0' + std::string(kTwoMegabytes, 'x'));
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::ProductScript);
}

TEST_F(ScriptRule, ScriptBehindMoreArgumentsThanAreReadIsNoRelation) {
    const fs::path script = makeScript("77", "#!/bin/sh");
    std::string options;
    while (options.size() < kTwoMegabytes) {
        options += std::string("-e\0", 3);
    }
    write("77", "cmdline", std::string("sh\0", 3) + options + script.string() + '\0');
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation);
}

TEST_F(ScriptRule, InterpreterThatRunsNothingOfTheProductIsNoRelation) {
    make("77", fs::canonical("/bin/sh"));
    for (const std::string& arguments : {std::string(), std::string("sh\0", 3), std::string("sh\0-c\0true\0", 11),
                                         std::string("sh\0/nonexistent\0", 16), std::string("sh\0/bin/sh\0", 11)}) {
        write("77", "cmdline", arguments);
        EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation) << arguments;
    }
}

TEST_F(ScriptRule, ScriptOfAnotherInterpreterIsNoRelation) {
    for (const char* line :
         {"#!/nonexistent/sh", "#!/usr/bin/env", "#!/usr/bin/env nonesuch", "#!/bin/cat", "text", ""}) {
        makeScript("77", line);
        EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation) << line;
    }
    makeScript("77", "#!/usr/bin/env sh");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::ProductScript);
}

TEST_F(ScriptRule, KernelsNameOfTheProcessMakesItAScript) {
    makeScript("77", "no line of an interpreter");
    write("77", "stat", "77 (worker) S 1 77 77 0 -1\n");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::ProductScript);
    write("77", "stat", "77 (worke) S 1 77 77 0 -1\n");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation);
    write("77", "stat", "no stat");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation);
}

TEST_F(ScriptRule, OnlyRootOrTheOwnerRunsAScriptOfTheProduct) {
    const fs::path script = makeScript("77", "#!/bin/sh");
    const std::string owner = std::to_string(statusOf(AT_FDCWD, script.c_str())->owner);
    for (const auto& [status, reason] : {std::pair("Name:\tx\nUid:\t1\t0\t1\t1\n", Reason::ProductScript),
                                         std::pair("Name:\tx\nUid:\t0\t4242\t0\t0\n", Reason::NoRelation),
                                         std::pair("Name:\tno user\n", Reason::NoRelation)}) {
        write("77", "status", status);
        EXPECT_EQ(judge("77", judgeScriptByLink).reason, reason) << status;
    }
    write("77", "status", "Name:\tx\nUid:\t0\t" + owner + "\t0\t0\n");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::ProductScript);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(script.c_str(), 4242, 0), 0);
        write("77", "status", "Name:\tx\nUid:\t0\t4242\t0\t0\n");
        EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::ProductScript);
        write("77", "status", "Name:\tx\nUid:\t0\t4243\t0\t0\n");
        EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation);
    }
}

TEST_F(ScriptRule, InterpreterThatAnybodyCouldHaveMadeIsNotTrusted) {
    makeScript("77", "#!/bin/sh");
    const fs::path copy = m_folder / "sh";
    fs::copy_file(fs::canonical("/bin/sh"), copy);
    write("77", "stat", "77 (worker) S 1 77 77 0 -1\n");
    link("77", "exe", copy);
    const Reason asRoot = geteuid() == 0 ? Reason::ProductScript : Reason::NoRelation;
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, asRoot);
    for (const fs::perms writable : {fs::perms::group_write, fs::perms::others_write}) {
        fs::permissions(copy, fs::perms::owner_all | writable);
        EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation);
    }
    fs::permissions(copy, fs::perms::owner_all);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(copy.c_str(), 4242, 0), 0);
        EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation);
        ASSERT_EQ(chown(copy.c_str(), 0, 0), 0);
    }
    fs::rename(copy, m_root + "/bin/sh");
    link("77", "exe", m_root + "/bin/sh");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation)
        << "the product's own shell is a program of the product";
    link("77", "exe", "/bin/sleep");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation);
}

TEST_F(ScriptRule, RelativeArgumentIsOneOfTheWorkingDirectory) {
    const fs::path script = makeScript("77", "#!/bin/sh");
    write("77", "cmdline", std::string("sh\0bin/worker\0", 14));
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation) << "it works in /";
    link("77", "cwd", m_root);
    link("77", "fd/10", script);
    EXPECT_EQ(judge("77", judgeScriptByLink).path, script.string());
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::ProductScript);
    link("77", "cwd", m_root + "/bin");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation);
    fs::remove(fs::path(m_proc) / "77/cwd");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::Vanished);
}

/// It may have been started elsewhere, and have come here since.
TEST_F(ScriptRule, RelativeScriptThatItsShellDoesNotHoldIsUnproven) {
    const fs::path script = makeScript("77", "#!/bin/sh");
    write("77", "cmdline", std::string("sh\0worker\0", 10));
    link("77", "cwd", m_root + "/bin");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::Unproven);
    link("77", "fd/3", "/dev/null");
    link("77", "fd/10", m_folder / "worker");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::Unproven);
    link("77", "fd/10", script.string() + " (deleted)");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::ProductScript) << "it was replaced by an upgrade";
    fs::remove_all(fs::path(m_proc) / "77/fd");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::Vanished);
}

/// Most shells close the script in a subshell.
TEST_F(ScriptRule, RelativeScriptOfASubshellIsItsShells) {
    const fs::path script = makeScript("77", "#!/bin/sh");
    for (const char* process : {"78", "79"}) {
        make(process, fs::canonical("/bin/sh"));
        write(process, "stat", statLine(process, "sh", process == std::string("78") ? "79" : "1"));
        write(process, "cmdline", std::string("sh\0worker\0", 10));
    }
    write("77", "stat", statLine("77", "sh", "78"));
    write("77", "cmdline", std::string("sh\0worker\0", 10));
    link("77", "cwd", m_root + "/bin");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::Unproven);
    link("79", "fd/10", script);
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::ProductScript);
    write("78", "cmdline", std::string("sh\0worker\0-e\0", 13));
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::Unproven) << "the process above it is not its shell";
    write("77", "stat", statLine("77", "sh", "4194303"));
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::Unproven) << "its shell is gone";
    write("77", "stat", "no stat");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::Unproven);
}

/// They read all of it before they begin.
TEST_F(ScriptRule, RelativeScriptOfAnotherInterpreterNeedNotBeHeld) {
    const fs::path perl = fs::canonical("/usr/bin/perl");
    makeScript("77", "#!" + perl.string());
    link("77", "exe", perl);
    write("77", "cmdline", std::string("perl\0worker\0", 12));
    link("77", "cwd", m_root + "/bin");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::ProductScript);
}

/// What a chrooted process calls /usr/quarn is another folder, and its script another file.
TEST_F(ScriptRule, ScriptOfAnotherRootIsNotTheHosts) {
    makeScript("77", "#!/bin/sh");
    link("77", "root", m_folder);
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NotTheHostsFile);
}

TEST_F(ScriptRule, AncestorIsNoScriptOfTheProduct) {
    makeScript("77", "#!/bin/sh");
    EXPECT_EQ(judge("77", judgeScriptByLink, getppid()).reason, Reason::NoRelation);
}

TEST_F(ScriptRule, ScriptOfAnotherPidNamespaceIsOutOfScope) {
    makeScript("77", "#!/bin/sh");
    link("77", "ns/pid", "pid:[1]");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::OtherPidNamespace);
}

TEST_F(ScriptRule, ScriptOfAnUnfitPathIsOnlyListed) {
    const fs::path script = writeScript("wor ker", "#!/bin/sh\n");
    make("77", fs::canonical("/bin/sh"));
    write("77", "cmdline", std::string("sh\0", 3) + script.string() + '\0');
    const Verdict verdict = judge("77", judgeScriptByLink);
    EXPECT_EQ(verdict.reason, Reason::UnfitPath);
    EXPECT_EQ(verdict.category, CAT_OTHER_THIRD_PARTY);
}

TEST_F(ScriptRule, InterpreterThatIsGoneHasVanished) {
    makeScript("77", "#!/bin/sh");
    link("77", "exe", "/nonexistent/sh");
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::Vanished);
}

TEST_F(ScriptRule, FolderIsNoScript) {
    fs::create_directories(m_root + "/bin/folder");
    ASSERT_EQ(mknod((m_root + "/bin/socket").c_str(), S_IFSOCK | 0600, 0), 0);
    make("77", fs::canonical("/bin/sh"));
    for (const char* name : {"/bin/folder", "/bin/socket"}) {
        write("77", "cmdline", std::string("sh\0", 3) + m_root + name + '\0');
        EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation) << name;
    }
}

TEST_F(ScriptRule, LoopOfLinksIsNoScript) {
    fs::create_symlink("there", m_root + "/bin/here");
    fs::create_symlink("here", m_root + "/bin/there");
    make("77", fs::canonical("/bin/sh"));
    write("77", "cmdline", std::string("sh\0", 3) + m_root + "/bin/here" + '\0');
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation);
}

/// What the server would say may be that it is one of the product: the way may lead over a link.
TEST_F(ScriptRule, ScriptThatOnlyAServerCouldFindIsLeftOpen) {
    make("77", fs::canonical("/bin/sh"));
    fs::create_symlink("/proc/version", m_folder / "link");
    kernel::answerCachedLookUps(EAGAIN);
    for (const std::string& path : {std::string("/proc/version"), (m_folder / "link").string()}) {
        write("77", "cmdline", std::string("sh\0", 3) + path + '\0');
        serveProc("proc");
        EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation);
        serveProc("fuse");
        EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::AsksServer);
    }
    kernel::answerCachedLookUps(kernel::kByItself);
}

/// Opening it would let its writer go on.
TEST_F(ScriptRule, PipeIsNotEvenOpened) {
    const fs::path pipe = m_root + "/bin/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    make("77", fs::canonical("/bin/sh"));
    write("77", "cmdline", std::string("sh\0", 3) + pipe.string() + '\0');
    const UniqueFd watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    ASSERT_GE(inotify_add_watch(watch.get(), pipe.c_str(), IN_OPEN), 0);
    EXPECT_EQ(judge("77", judgeScriptByLink).reason, Reason::NoRelation);
    char event[1024];
    EXPECT_EQ(read(watch.get(), event, sizeof event), -1) << "it was opened";
}

TEST_F(LiveScript, ScriptThatNamesItsInterpreterIsTheProduct) {
    const fs::path script = writeScript("worker", "#!/bin/sh\nkill -STOP $$\n");
    const Child child(script, {"worker"});
    awaitStop(child.pid());
    const auto record = find(child.pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_CORVANE);
    EXPECT_EQ(record->path, script.string());
    EXPECT_STREQ(record->name, "worker");
}

TEST_F(LiveScript, AsManyArgumentsAsTheKernelTakesDoNotHideAScript) {
    const fs::path script = writeScript("worker", "#!/bin/sh\nkill -STOP $$\n");
    // Each may be 128 KiB long; the environment has its share of the two megabytes, too.
    std::vector<std::string> arguments(15, std::string(120'000, 'x'));
    arguments.insert(arguments.begin(), "worker");
    const Child child(script, arguments);
    awaitStop(child.pid());
    const auto record = find(child.pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->path, script.string());
}

TEST_F(LiveScript, ProductFileGivenToAPagerOrToAShellAsDataIsNoScript) {
    const fs::path data = writeScript("data", "no script at all\n");
    const Child pager("/usr/bin/tail", {"tail", "-f", data.string()});
    EXPECT_FALSE(find(pager.pid(), CAT_CORVANE));
    const Child shell("/bin/sh", {"sh", "-c", "kill -STOP $$", data.string()});
    EXPECT_FALSE(find(shell.pid(), CAT_CORVANE));
}

TEST_F(LiveScript, ScriptOutsideTheRootIsNotTheProduct) {
    const fs::path script = m_folder / "worker";
    std::ofstream(script) << "#!/bin/sh\nkill -STOP $$\n";
    fs::permissions(script, fs::perms::owner_all);
    const Child child(script, {"worker"});
    EXPECT_FALSE(find(child.pid(), CAT_CORVANE));
}

} // namespace
} // namespace lister
