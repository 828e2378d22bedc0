/// What a program prints, without a terminal and without input.
#pragma once

#include <array>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <string>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace lister {

/// The longest that a line may take; each takes some milliseconds.
inline constexpr std::chrono::seconds kPatience(20);

/// Until the other end is closed, or patience is over.
inline std::string readAll(int descriptor) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    std::string all;
    std::array<char, 4096> bytes{};
    pollfd ready{descriptor, POLLIN, 0};
    while (std::chrono::steady_clock::now() < end && poll(&ready, 1, 1000) >= 0) {
        const ssize_t count = ready.revents == 0 ? 1 : read(descriptor, bytes.data(), bytes.size());
        if (count <= 0) {
            break;
        }
        all.append(bytes.data(), ready.revents == 0 ? 0 : static_cast<std::size_t>(count));
    }
    return all;
}

inline std::vector<char*> pointersTo(std::vector<std::string>& words) {
    std::vector<char*> pointers;
    for (std::string& word : words) {
        pointers.push_back(word.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// Without a terminal, in `folder`, with nothing to read.
[[noreturn]] inline void become(const std::string& path, char* const* arguments, char* const* environment,
                                const char* folder, int output) {
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    setsid();
    if (chdir(folder) == 0 && dup2(nothing, 0) == 0 && dup2(output, 1) == 1 && dup2(nothing, 2) == 2) {
        execve(path.c_str(), arguments, environment);
    }
    _exit(126);
}

/// What the program prints: nothing where it cannot be executed. It is over when this returns.
inline std::string outputOf(const std::string& path, std::vector<std::string> arguments, const std::string& folder,
                            const std::vector<std::string>& more = {}) {
    std::vector<std::string> environment = {"PATH=/usr/bin:/bin", "LC_ALL=C", "HOME=" + folder};
    environment.insert(environment.end(), more.begin(), more.end());
    const std::vector<char*> argumentPointers = pointersTo(arguments);
    const std::vector<char*> environmentPointers = pointersTo(environment);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe");
    }
    const pid_t child = fork();
    if (child == 0) {
        become(path, argumentPointers.data(), environmentPointers.data(), folder.c_str(), ends[1]);
    }
    close(ends[1]);
    const std::string output = readAll(ends[0]);
    close(ends[0]);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return output;
}

} // namespace lister
