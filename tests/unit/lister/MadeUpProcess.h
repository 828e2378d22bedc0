/// Processes that do not exist: folders made up of links and texts as in /proc, so that each rule of the lister also
/// meets what no process of this machine shows.
#pragma once

#include <cstdio>
#include <sstream>
#include <string>

#include <fcntl.h>

#include "ListerTest.h"

namespace lister {

class MadeUpProcess : public Lister {
  protected:
    MadeUpProcess() {
        m_proc = (m_folder / "proc").string();
        m_roots.proc = m_proc.c_str();
        make("self", fs::read_symlink("/proc/self/exe"));
        write("self", "mountinfo", textOf("/proc/self/mountinfo"));
    }

    void write(const std::string& process, const std::string& name, const std::string& text) const {
        std::ofstream(fs::path(m_proc) / process / name) << text;
    }
    void link(const std::string& process, const std::string& name, const fs::path& target) const {
        const fs::path path = fs::path(m_proc) / process / name;
        fs::remove(path);
        fs::create_symlink(target, path);
    }

    /// A process that runs the executable in the caller's namespaces, and holds nothing.
    void make(const std::string& process, const fs::path& executable) const {
        const fs::path folder = fs::path(m_proc) / process;
        fs::create_directories(folder / "ns");
        fs::create_directories(folder / "fd");
        for (const char* space : {"ns/pid", "ns/user", "ns/mnt"}) {
            link(process, space, fs::read_symlink(fs::path("/proc/self") / space));
        }
        link(process, "exe", executable);
        link(process, "cwd", "/");
        link(process, "root", "/");
        write(process, "maps", "");
        write(process, "cmdline", "");
        write(process, "stat", statLine("77", "name", "1"));
        write(process, "status", "Name:\tname\nUid:\t0\t0\t0\t0\n");
    }
    /// The interpreter with a script of the product as its argument.
    fs::path makeScript(const std::string& process, const std::string& firstLine) {
        const fs::path script = writeScript("worker", firstLine + "\n");
        make(process, fs::canonical("/bin/sh"));
        write(process, "cmdline", std::string("sh\0", 3) + script.string() + '\0');
        return script;
    }

    /// From now on /proc is a file system of this type for the caller.
    void serveProc(const std::string& type) const {
        std::istringstream mounts(textOf("/proc/self/mountinfo"));
        std::string text;
        for (std::string line; std::getline(mounts, line);) {
            const std::optional<MountLine> mount = parseMountLine(line);
            text += mount && mount->mountPoint == "/proc"
                        ? std::to_string(mount->id) + " 1 0:9 / /proc rw - " + type + " x rw\n"
                        : line + "\n";
        }
        write("self", "mountinfo", text);
    }

    template <class Judge> Verdict judge(const std::string& process, const Judge& rule, pid_t pid = 77) const {
        const UniqueFd proc(open(m_proc.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        return verdictOf([&] { return rule(Caller(m_roots), PinnedProcess(proc.get(), pid, process.c_str())); });
    }
    [[nodiscard]] Verdict judgeAsThirdParty(const std::string& process, pid_t pid = 77) const {
        return judge(
            process,
            [this](const Caller& caller, const PinnedProcess& pinned) {
                return judgeThirdParty(m_roots, caller, pinned);
            },
            pid);
    }
    void expectScanFailure(int error) const {
        try {
            const Caller caller(m_roots);
            ADD_FAILURE() << "the caller was known";
        } catch (const ScanFailure& failure) {
            EXPECT_EQ(failure.error, error);
        }
    }

    std::string m_proc;
};

class MadeUpMapper : public MadeUpProcess {
  protected:
    MadeUpMapper() {
        m_library = m_root + "/bin/library.so";
        std::ofstream(m_library) << "code";
        make("77", copySleep(m_folder / "mapper"));
    }
    void map(const std::string& lines) const { write("77", "maps", lines); }
    /// A line of maps for the product's library, or for another file of its path.
    [[nodiscard]] std::string line(const std::string& permissions = "r-xp", unsigned otherInode = 0) const {
        const std::optional<FileStatus> file = statusOf(AT_FDCWD, m_library.c_str());
        char numbers[128];
        std::snprintf(numbers, sizeof numbers, "55c0-55d0 %s 00001000 %02x:%02x %llu   ", permissions.c_str(),
                      file->id.deviceMajor, file->id.deviceMinor,
                      static_cast<unsigned long long>(file->id.inode + otherInode));
        return numbers + m_library + "\n";
    }
    std::string m_library;
};

} // namespace lister
