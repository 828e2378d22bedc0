#include "Screen.h"

#include <cerrno>
#include <cstdlib>
#include <optional>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace watch {

namespace {

constexpr std::size_t kDefaultWidth = 80;
/// To the line's begin, and everything behind it away.
constexpr std::string_view kClear = "\r\x1b[K";

bool isInForeground() {
    return ::tcgetpgrp(STDERR_FILENO) == ::getpgrp();
}

bool knowsSequences() {
    const char* terminal = std::getenv("TERM");
    return terminal != nullptr && *terminal != '\0' && std::string_view(terminal) != "dumb";
}

/// The terminal itself, whatever name it was opened by: /dev/tty is any of them.
std::optional<unsigned int> terminalOf(int fd) {
    unsigned int device = 0;
    return ::ioctl(fd, TIOCGDEV, &device) == 0 ? std::optional(device) : std::nullopt;
}

bool isSameTerminal() {
    const std::optional<unsigned int> output = terminalOf(STDOUT_FILENO);
    return output && output == terminalOf(STDERR_FILENO);
}

/// Whether what the program prints may come to the terminal by a way that does not lead through here: a pipe to tee, or
/// a terminal that is shown within another.
bool isOutOfReach() {
    struct stat output {};
    if (::fstat(STDOUT_FILENO, &output) != 0) {
        return false;
    }
    return S_ISFIFO(output.st_mode) || S_ISSOCK(output.st_mode) || (::isatty(STDOUT_FILENO) == 1 && !isSameTerminal());
}

} // namespace

Screen::Screen(bool quiet) {
    if (quiet || ::isatty(STDERR_FILENO) != 1 || !knowsSequences() || !isInForeground() || isOutOfReach()) {
        return;
    }
    m_terminal.reset(::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    m_takesStandardOutput = isLive() && isSameTerminal();
}

void Screen::giveUp() {
    m_terminal.reset();
    m_takesStandardOutput = false;
}

std::size_t Screen::width() const {
    winsize size{};
    return ::ioctl(m_terminal.get(), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kDefaultWidth;
}

void Screen::flush() {
    while (!m_pending.empty()) {
        const ssize_t written = ::write(m_terminal.get(), m_pending.data(), m_pending.size());
        if (written >= 0) {
            m_pending.erase(0, static_cast<std::size_t>(written));
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR) {
            // Nothing is kept for a terminal that went away: its descriptor would be ready for ever.
            m_lost = true;
            m_pending.clear();
        }
    }
}

void Screen::show(const std::string& line) {
    if (!isLive() || isPending() || m_lineIsOpen || line == m_shown || !isInForeground()) {
        return;
    }
    m_shown = line;
    m_pending.append(kClear).append(line);
    flush();
}

void Screen::clear() {
    if (!m_shown.empty()) {
        m_shown.clear();
        m_pending.append(kClear);
        flush();
    }
}

void Screen::forward(std::string_view bytes) {
    if (bytes.empty()) {
        return;
    }
    if (!m_shown.empty()) {
        m_shown.clear();
        m_pending.append(kClear);
    }
    m_pending.append(bytes);
    m_lineIsOpen = bytes.back() != '\n';
    flush();
}

void writeAtOnce(std::string_view text) {
    pollfd ready = {STDERR_FILENO, POLLOUT, 0};
    if (::poll(&ready, 1, 0) == 1 && (ready.revents & POLLOUT) != 0) {
        static_cast<void>(!::write(STDERR_FILENO, text.data(), text.size()));
    }
}

} // namespace watch
