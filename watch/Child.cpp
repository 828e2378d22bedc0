#include "Child.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <utility>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace watch {

namespace {

/// A shell's statuses for a command that never ran; the parent reads them where the pipe for the reason could not be
/// made.
constexpr int kCannotExecute = 126;
constexpr int kNotFound = 127;

/// What the child is told.
constexpr char kGo = 'g';
constexpr char kDoNot = 'n';

/// Both ends are -1 where it could not be made.
struct Pipe {
    Pipe() {
        std::array<int, 2> ends = {-1, -1};
        if (::pipe2(ends.data(), O_CLOEXEC) == 0) {
            reading.reset(ends[0]);
            writing.reset(ends[1]);
        }
    }
    UniqueFd reading;
    UniqueFd writing;
};

std::vector<char*> pointersTo(const std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (const std::string& word : words) {
        // execve takes them as if it could change them (execve(2)).
        pointers.push_back(const_cast<char*>(word.c_str()));
    }
    pointers.push_back(nullptr);
    return pointers;
}

void redirect(const Streams& streams) {
    if (streams.output < 0) {
        return;
    }
    ::dup2(streams.output, STDERR_FILENO);
    if (streams.takesStandardOutput) {
        ::dup2(streams.output, STDOUT_FILENO);
    }
}

/// In the child, where only what signal-safety(7) names may be called.
[[noreturn]] void becomeProgram(const char* path, char* const* words, const Streams& streams,
                                const Inherited& inherited, int reason, int go) {
    char byte = kGo;
    // The watcher has let go of the streams; or has gone itself.
    while (::read(go, &byte, 1) < 0 && errno == EINTR) {
    }
    if (byte == kDoNot) {
        ::_exit(kCannotExecute);
    }
    redirect(streams);
    inherited.restore();
    ::execve(path, words, environ);
    const int error = errno;
    static_cast<void>(!::write(reason, &error, sizeof error));
    ::_exit(error == ENOENT ? kNotFound : kCannotExecute);
}

} // namespace

Started startProgram(const Program& program, const Streams& streams, const Inherited& inherited,
                     const std::function<void()>& letGo) {
    const std::vector<char*> words = pointersTo(program.words);
    Pipe reason;
    Pipe go;
    inherited.holdInterrupts();
    const pid_t pid = ::fork();
    if (pid == 0) {
        // Its own copy would keep the pipe from ending.
        go.writing.reset();
        becomeProgram(program.path.c_str(), words.data(), streams, inherited, reason.writing.get(), go.reading.get());
    }
    if (pid < 0) {
        return {-1, errno, {}, {}};
    }
    letGo();
    if (const std::optional<int> interrupt = inherited.heldInterrupt()) {
        static_cast<void>(!::write(go.writing.get(), &kDoNot, 1));
        ::waitpid(pid, nullptr, 0);
        return {-1, 0, interrupt, {}};
    }
    inherited.ignoreInterrupts();
    // Both a byte and the end of the pipe: neither way may fail alone and leave the program waiting.
    static_cast<void>(!::write(go.writing.get(), &kGo, 1));
    go.writing.reset();
    ::fcntl(reason.reading.get(), F_SETFL, O_NONBLOCK);
    return {pid, 0, {}, std::move(reason.reading)};
}

int whyItNeverRan(const Started& started) {
    int error = 0;
    return ::read(started.reason.get(), &error, sizeof error) == sizeof error ? error : 0;
}

std::optional<Ending> endingOf(pid_t pid) {
    int status = 0;
    const pid_t found = ::waitpid(pid, &status, WNOHANG);
    if (found == 0 || (found < 0 && errno == EINTR)) {
        return std::nullopt;
    }
    if (found > 0 && WIFSIGNALED(status)) {
        return Ending{std::nullopt, WTERMSIG(status)};
    }
    return Ending{found > 0 ? WEXITSTATUS(status) : kCannotExecute, std::nullopt};
}

void endLike(const Ending& ending) {
    if (ending.signal) {
        const rlimit none = {0, 0};
        ::setrlimit(RLIMIT_CORE, &none);
        std::signal(*ending.signal, SIG_DFL);
        sigset_t mask;
        ::sigemptyset(&mask);
        ::sigaddset(&mask, *ending.signal);
        ::raise(*ending.signal);
        ::sigprocmask(SIG_UNBLOCK, &mask, nullptr);
        // Reached only by a process that no signal ends: pid 1 of a namespace.
        ::_exit(128 + *ending.signal);
    }
    std::exit(ending.status.value_or(kCannotExecute));
}

} // namespace watch
