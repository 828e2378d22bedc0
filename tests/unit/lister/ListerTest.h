/// The fixture of the lister's tests: child processes, started from a made-up install root. They are only listed; each
/// is killed by its parent, by pid.
#pragma once

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "errors.h"
#include "lister.h"
#include "rules.h"

namespace lister {

namespace fs = std::filesystem;

constexpr auto kAll = static_cast<Proc_categories>(CAT_CORVANE | CAT_THIRD_PARTY | CAT_OTHER_THIRD_PARTY);

/// PID/stat as the kernel writes it. The arguments of a process end at an address of its memory, or at 0 before the
/// kernel has laid them.
inline std::string statLine(const std::string& pid, const std::string& name, const std::string& parent,
                            const std::string& argumentsEnd = "140737488348048") {
    std::string text = pid + " (" + name + ") S " + parent;
    for (int field = 5; field < 49; ++field) {
        text += " 0";
    }
    return text + " " + argumentsEnd + " 0 0 0\n";
}

/// What a judge says, as the scan takes it: a rule that could not be answered gives its reason.
template <class Judge> Verdict verdictOf(const Judge& judge) {
    try {
        return judge();
    } catch (const ProcessLost& lost) {
        return {0, lost.reason, ""};
    }
}

/// What judgeExecutable says of a process as its exe link names it now.
inline Verdict judgeByLink(const Caller& caller, const PinnedProcess& process) {
    return judgeExecutable(caller, process, required(process.link("exe")));
}
/// The same of judgeScript.
inline Verdict judgeScriptByLink(const Caller& caller, const PinnedProcess& process) {
    return judgeScript(caller, process, required(process.link("exe")));
}

/// Whether the condition comes true within a minute, which is longer than any machine needs.
inline bool comesTrue(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        sched_yield();
    }
    return true;
}

/// The whole of a file; empty where there is none.
inline std::string textOf(const fs::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The path of a library that the test itself has mapped: each processor has its own folder for them.
inline std::string mappedFile(const std::string& name) {
    const std::string maps = textOf("/proc/self/maps");
    const std::size_t at = maps.find("/" + name);
    if (at == std::string::npos) {
        throw std::runtime_error("the test does not use " + name);
    }
    const std::size_t begin = maps.rfind(' ', at) + 1;
    return maps.substr(begin, maps.find('\n', at) - begin);
}

/// Returns when a process has stopped itself.
inline void awaitStop(pid_t pid) {
    int status = 0;
    EXPECT_TRUE(comesTrue([&] { return waitpid(pid, &status, WUNTRACED | WNOHANG) != 0; }));
    EXPECT_TRUE(WIFSTOPPED(status)) << "process " << pid << ", status " << status;
}

/// A child process that runs `path` with the arguments, and already does when the constructor returns. It is killed in
/// the end.
class Child {
  public:
    Child(
        const fs::path& path, std::vector<std::string> arguments, const std::function<void()>& prepare = [] {}) {
        int executed[2];
        EXPECT_EQ(pipe2(executed, O_CLOEXEC), 0);
        m_pid = fork();
        if (m_pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            prepare();
            std::vector<char*> argv;
            for (std::string& argument : arguments) {
                argv.push_back(argument.data());
            }
            argv.push_back(nullptr);
            execv(path.c_str(), argv.data());
            _exit(127);
        }
        close(executed[1]);
        char byte = 0;
        EXPECT_EQ(read(executed[0], &byte, 1), 0); // ends when exec has closed the other end
        close(executed[0]);
    }
    ~Child() {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    [[nodiscard]] pid_t pid() const { return m_pid; }

  private:
    pid_t m_pid;
};

class Lister : public testing::Test {
  protected:
    Lister() {
        std::string name = (fs::temp_directory_path() / "cvstop-lister-XXXXXX").string();
        m_folder = mkdtemp(name.data());
        m_root = (m_folder / "quarn").string();
        fs::create_directories(m_root + "/bin");
        m_roots.install = m_root;
    }
    ~Lister() override { fs::remove_all(m_folder); }

    /// A copy of sleep(1) below the install root, or elsewhere.
    fs::path install(const std::string& name) { return copySleep(m_root + "/bin/" + name); }
    static fs::path copySleep(const fs::path& path) {
        fs::copy_file("/bin/sleep", path);
        return path;
    }
    static std::unique_ptr<Child> run(
        const fs::path& path, const std::function<void()>& prepare = [] {}) {
        return std::make_unique<Child>(path, std::vector<std::string>{path.filename().string(), "60"}, prepare);
    }
    fs::path writeScript(const std::string& name, const std::string& text) {
        const fs::path path = m_root + "/bin/" + name;
        std::ofstream(path) << text;
        fs::permissions(path, fs::perms::owner_all | fs::perms::others_read);
        return path;
    }

    /// What a judge says of a live process.
    template <class Judge> [[nodiscard]] Verdict judge(pid_t pid, const Judge& rule) const {
        const UniqueFd proc(open("/proc", O_PATH | O_DIRECTORY | O_CLOEXEC));
        return verdictOf(
            [&] { return rule(Caller(m_roots), PinnedProcess(proc.get(), pid, std::to_string(pid).c_str())); });
    }

    /// The record of a process, if it is listed.
    std::optional<CV_Process_s> find(pid_t pid, Proc_categories categories = kAll) {
        CV_Process_s* list = nullptr;
        EXPECT_EQ(listProcesses(m_roots, &list, categories, 0), 0);
        std::optional<CV_Process_s> found;
        while (list != nullptr) {
            CV_Process_s* next = list->next;
            if (list->pid == pid) {
                found = *list;
            }
            std::free(list);
            list = next;
        }
        return found;
    }

    fs::path m_folder;
    std::string m_root;
    Roots m_roots;
};

/// A process table of a few processes: whatever else runs here costs no time and cannot come or go between two scans.
class FewProcesses : public Lister {
  protected:
    FewProcesses() {
        m_table = (m_folder / "proc").string();
        fs::create_directories(m_table);
        m_roots.proc = m_table.c_str();
        show("1");
        show("self");
        show(std::to_string(getppid()));
    }

    void show(const std::string& name) const { fs::create_symlink("/proc/" + name, m_table + "/" + name); }
    void show(pid_t pid) const { show(std::to_string(pid)); }

    std::string m_table;
};

} // namespace lister
