#include "World.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <utility>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace fakes {

namespace {

int newMemoryFile(const char* name) {
    const int fd = memfd_create(name, MFD_CLOEXEC);
    if (fd < 0) {
        throw std::runtime_error("memfd_create failed");
    }
    return fd;
}

std::string readFrom(int fd, off_t offset) {
    std::string text;
    char buffer[4096];
    ssize_t got = 0;
    while ((got = pread(fd, buffer, sizeof buffer, offset)) > 0) {
        text.append(buffer, static_cast<std::size_t>(got));
        offset += got;
    }
    return text;
}

void writeAll(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t done = ::write(fd, text.data(), text.size());
        if (done <= 0) {
            throw std::runtime_error("write to a memory file failed");
        }
        text.remove_prefix(static_cast<std::size_t>(done));
    }
}

void flushOutput() {
    std::fflush(stdout);
    std::cout.flush();
}

std::string_view kindOf(const std::string& entry) {
    return std::string_view(entry).substr(0, entry.find(' '));
}

Journal splitJournal(const std::string& text) {
    Journal entries;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\0', begin);
        entries.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return entries;
}

/// What was printed after the last recorded entry.
std::string unseenOutput(const Journal& journal, const std::string& output) {
    std::size_t seen = 0;
    for (const std::string& entry : ofKinds(journal, {"out"})) {
        seen += entry.size() - 4;
    }
    return output.substr(std::min(seen, output.size()));
}

struct ChildFiles {
    int input = newMemoryFile("input");
    int output = newMemoryFile("output");
    int error = newMemoryFile("error");
    int journal = newMemoryFile("journal");

    ~ChildFiles() {
        for (const int fd : {input, output, error, journal}) {
            close(fd);
        }
    }
    ChildFiles() = default;
    ChildFiles(const ChildFiles&) = delete;
    ChildFiles& operator=(const ChildFiles&) = delete;
};

[[noreturn]] void runAsChild(const ChildFiles& files, const std::function<void()>& body) {
    dup2(files.input, STDIN_FILENO);
    dup2(files.output, STDOUT_FILENO);
    dup2(files.error, STDERR_FILENO);
    world().journalFd = files.journal;
    world().captureFd = files.output;
    body();
    std::exit(kCameBack);
}

ChildResult collect(const ChildFiles& files, int waitStatus) {
    ChildResult result;
    result.status = WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
    result.signal = WIFSIGNALED(waitStatus) ? WTERMSIG(waitStatus) : 0;
    result.output = readFrom(files.output, 0);
    result.error = readFrom(files.error, 0);
    result.journal = splitJournal(readFrom(files.journal, 0));
    const std::string rest = unseenOutput(result.journal, result.output);
    if (!rest.empty()) {
        result.journal.push_back("out " + rest);
    }
    return result;
}

} // namespace

Journal ofKinds(const Journal& journal, std::initializer_list<std::string_view> kinds) {
    Journal wanted;
    std::copy_if(journal.begin(), journal.end(), std::back_inserter(wanted), [&](const std::string& entry) {
        return std::find(kinds.begin(), kinds.end(), kindOf(entry)) != kinds.end();
    });
    return wanted;
}

std::string binPath(std::string_view name) {
    return "/usr/quarn/corvane/bin/" + std::string(name);
}

World& world() {
    // Never destroyed: static objects of the program still record when they are.
    static World& instance = *new World;
    return instance;
}

void World::reset() {
    Journal kept = m_started ? std::move(startup) : std::move(journal);
    *this = World();
    startup = std::move(kept);
    m_started = true;
}

FakeProcess& World::add(std::string_view name, std::int32_t pid, std::int32_t category) {
    FakeProcess process;
    process.name = name;
    process.path = binPath(name);
    process.pid = pid;
    process.category = category;
    fleet.push_back(std::move(process));
    return fleet.back();
}

FakeProcess* World::find(std::int32_t pid) {
    const auto found =
        std::find_if(fleet.begin(), fleet.end(), [&](const FakeProcess& process) { return process.pid == pid; });
    return found == fleet.end() ? nullptr : &*found;
}

void World::record(const std::string& entry) {
    takeOutput();
    write(entry);
}

void World::write(const std::string& entry) {
    journal.push_back(entry);
    if (journalFd >= 0) {
        writeAll(journalFd, entry + '\0');
    }
}

void World::takeOutput() {
    if (captureFd < 0) {
        return;
    }
    flushOutput();
    const std::string text = readFrom(captureFd, m_outputSeen);
    if (!text.empty()) {
        m_outputSeen += static_cast<off_t>(text.size());
        write("out " + text);
    }
}

std::string World::run(const std::function<void()>& body) {
    flushOutput();
    const int realOutput = dup(STDOUT_FILENO);
    captureFd = newMemoryFile("output");
    m_outputSeen = 0;
    dup2(captureFd, STDOUT_FILENO);
    body();
    takeOutput();
    std::string output = readFrom(captureFd, 0);
    dup2(realOutput, STDOUT_FILENO);
    close(realOutput);
    close(captureFd);
    captureFd = -1;
    return output;
}

Journal World::of(std::initializer_list<std::string_view> kinds) const {
    return ofKinds(journal, kinds);
}

std::size_t World::count(std::string_view entry) const {
    return static_cast<std::size_t>(std::count(journal.begin(), journal.end(), entry));
}

Journal ChildResult::of(std::initializer_list<std::string_view> kinds) const {
    return ofKinds(journal, kinds);
}

std::size_t ChildResult::count(std::string_view entry) const {
    return static_cast<std::size_t>(std::count(journal.begin(), journal.end(), entry));
}

ChildResult inChild(const std::function<void()>& body, std::string_view input) {
    const ChildFiles files;
    writeAll(files.input, input);
    lseek(files.input, 0, SEEK_SET);
    flushOutput();
    const pid_t child = fork();
    if (child < 0) {
        throw std::runtime_error("fork failed");
    }
    if (child == 0) {
        runAsChild(files, body);
    }
    int waitStatus = 0;
    waitpid(child, &waitStatus, 0);
    return collect(files, waitStatus);
}

} // namespace fakes
