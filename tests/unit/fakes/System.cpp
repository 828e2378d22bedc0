// The system calls of the made-up host; the linker replaces the real ones by them.
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "FakeRecords.h"
#include "World.h"

// Names given by the linker's --wrap.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
int __real_stat(const char* path, struct stat* result);
int __real_access(const char* path, int mode);
void __real_free(void* memory);

int __wrap_kill(pid_t pid, int signal);
unsigned int __wrap_sleep(unsigned int seconds);
int __wrap_system(const char* command);
uid_t __wrap_geteuid();
pid_t __wrap_getpid();
int __wrap_stat(const char* path, struct stat* result);
int __wrap_stat64(const char* path, struct stat* result);
int __wrap_access(const char* path, int mode);
void __wrap_free(void* memory);
}

using fakes::FakeProcess;
using fakes::world;

namespace {

std::array<void*, 4096> g_records{};
std::size_t g_recordCount = 0;

std::string signalName(int signal) {
    const char* name = sigabbrev_np(signal);
    return name == nullptr ? std::to_string(signal) : "SIG" + std::string(name);
}

int fail(int error) {
    errno = error;
    return -1;
}

bool isProductPath(std::string_view path) {
    return path.substr(0, 11) == "/usr/quarn/";
}

bool isDefault(int signal) {
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    return action.sa_handler == SIG_DFL;
}

void passSecond(FakeProcess& process) {
    if (process.secondsLeft > 0 && --process.secondsLeft == 0) {
        process.alive = false;
    }
}

} // namespace

namespace fakes {

void keepRecord(void* record) {
    g_records.at(g_recordCount++) = record;
}

std::size_t liveRecords() {
    return g_recordCount;
}

} // namespace fakes

int __wrap_kill(pid_t pid, int signal) {
    const fakes::Aside aside;
    world().record(signal == 0 ? "probe " + std::to_string(pid)
                               : "kill " + std::to_string(pid) + " " + signalName(signal));
    FakeProcess* process = world().find(pid);
    if (process == nullptr || !process->alive) {
        return fail(ESRCH);
    }
    if (process->foreign) {
        return fail(EPERM);
    }
    if (process->diesOf.count(signal) != 0) {
        process->alive = false;
    }
    return 0;
}

unsigned int __wrap_sleep(unsigned int seconds) {
    const fakes::Aside aside;
    world().record("sleep " + std::to_string(seconds));
    world().slept += seconds;
    if (world().raiseAtSleep != 0) {
        raise(std::exchange(world().raiseAtSleep, 0));
    }
    for (unsigned int second = 0; second < seconds; ++second) {
        for (FakeProcess& process : world().fleet) {
            passSecond(process);
        }
    }
    return 0;
}

int __wrap_system(const char* command) {
    const fakes::Aside aside;
    world().record("system " + std::string(command));
    world().atCommands.push_back({isDefault(SIGPIPE), isDefault(SIGHUP)});
    for (FakeProcess& process : world().fleet) {
        if (!process.stopsOn.empty() && std::strstr(command, process.stopsOn.c_str()) != nullptr) {
            process.alive = false;
        }
    }
    if (world().systemResults.empty()) {
        return 0;
    }
    const int result = world().systemResults.front();
    world().systemResults.erase(world().systemResults.begin());
    return result;
}

uid_t __wrap_geteuid() {
    const fakes::Aside aside;
    world().record("geteuid");
    return world().euid;
}

pid_t __wrap_getpid() {
    return world().ownPid;
}

int __wrap_stat(const char* path, struct stat* result) {
    const fakes::Aside aside;
    world().record("stat " + std::string(path));
    if (!isProductPath(path)) {
        return __real_stat(path, result);
    }
    const auto file = world().files.find(path);
    if (file == world().files.end()) {
        return fail(ENOENT);
    }
    *result = {};
    result->st_dev = file->second.device;
    result->st_ino = file->second.inode;
    return 0;
}

// One and the same call where file offsets have 64 bits anyway, which is everywhere that the program runs.
int __wrap_stat64(const char* path, struct stat* result) {
    const fakes::Aside aside;
    return __wrap_stat(path, result);
}

int __wrap_access(const char* path, int mode) {
    const fakes::Aside aside;
    if (!isProductPath(path)) {
        return __real_access(path, mode);
    }
    world().record("access " + std::string(path) + " " + (mode == F_OK ? "F_OK" : std::to_string(mode)));
    return world().logDirectoryExists ? 0 : fail(ENOENT);
}

void __wrap_free(void* memory) {
    auto* const end = g_records.begin() + g_recordCount;
    auto* const found = memory == nullptr ? end : std::find(g_records.begin(), end, memory);
    if (found != end) {
        *found = g_records.at(--g_recordCount);
    }
    __real_free(memory);
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)
