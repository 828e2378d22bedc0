#include "cvlog.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "UniqueFd.h"
#include "cvpaths.h"
#include "logtext.h"

namespace {

constexpr mode_t kLogMode = 0640;

/// The id that records carry once log_set_pid was called; 0 before.
constinit pid_t s_pid = 0;

constinit int s_processVerbosity = 0;

/// Logging must not change what a caller is about to read: `logmsgf(16, ..., strerror(errno))`, then errno again.
class ErrnoKeeper {
  public:
    ErrnoKeeper() = default;
    ~ErrnoKeeper() { errno = m_saved; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

  private:
    int m_saved = errno;
};

const char* orEmpty(const char* text) {
    return text == nullptr ? "" : text;
}

/// O_NONBLOCK: a FIFO in the log's place, with no reader, must fail instead of stopping the program here.
int openForAppending(const char* path) {
    const int fd =
        ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK, kLogMode);
    struct stat status {};
    // The mode given to open is what the umask leaves of it. A device keeps its own.
    if (fd >= 0 && ::fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
        (void)::fchmod(fd, kLogMode);
    }
    return fd;
}

/// One write, repeated only where a signal came before its first byte. Returns how many bytes are in the file.
std::size_t writeOnce(int fd, std::string_view line) {
    ssize_t written = -1;
    do {
        written = ::write(fd, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    return written < 0 ? 0 : static_cast<std::size_t>(written);
}

std::string formatted(const char* format, std::va_list arguments) __attribute__((format(printf, 1, 0)));

/// One byte over the limit, so that recordLine marks the cut.
std::string formatted(const char* format, std::va_list arguments) {
    std::array<char, logtext::kMaxLine + 2> text{};
    return std::vsnprintf(text.data(), text.size(), format, arguments) < 0 ? format : text.data();
}

/// "(0x55d0c8a3f2c0) (CV_Processes:123)"; without the first part for a function of no object.
std::string traceText(const void* object, const char* unit, int line) {
    std::array<char, 64> address{};
    if (object != nullptr) {
        std::snprintf(address.data(), address.size(), "(%p) ", object);
    }
    return std::string(address.data()) + '(' + unit + ':' + std::to_string(line) + ')';
}

} // namespace

constinit CVLogger* CVLogger::s_default = nullptr;
constinit CVLogger* CVLogger::s_defaultLib = nullptr;

CVLogger::CVLogger() {
    if (s_default == nullptr) {
        s_default = this;
    }
    if (s_defaultLib == nullptr) {
        s_defaultLib = this;
    }
}

CVLogger::~CVLogger() {
    const UniqueFd closed(m_fd);
    if (s_default == this) {
        s_default = nullptr;
    }
    if (s_defaultLib == this) {
        s_defaultLib = nullptr;
    }
}

int CVLogger::open(const char* host, const char* logName, const char* processName, OpenCallback* callback) {
    const std::string name = orEmpty(logName);
    const std::string path = std::string(product::kLogRoot) + '/' + name + '/' + name + ".log";
    return openFile(path.c_str(), host, processName, callback);
}

int CVLogger::openFile(const char* path, const char* host, const char* processName, OpenCallback* callback) {
    const ErrnoKeeper keeper;
    m_host = orEmpty(host);
    m_process = orEmpty(processName);
    m_lineIsOpen = false;
    const UniqueFd former(std::exchange(m_fd, openForAppending(path)));
    if (m_fd < 0) {
        return errno;
    }
    if (callback != nullptr) {
        callback(path);
    }
    return 0;
}

void CVLogger::logDebug(const char* function, int level, const std::string& text) {
    if (level == 1 || level <= m_verbosity) {
        append("debug" + std::to_string(level), orEmpty(function), text);
    }
}

void CVLogger::write(const char* label, const char* function, const char* text) {
    append(orEmpty(label), orEmpty(function), orEmpty(text));
}

void CVLogger::append(std::string_view label, std::string_view function, std::string_view text) {
    if (m_fd < 0) {
        return;
    }
    const ErrnoKeeper keeper;
    // A full disk, or a limit on file sizes, may have taken the beginning of a record; the next one must not continue
    // its line.
    if (m_lineIsOpen && writeOnce(m_fd, "\n") == 0) {
        return;
    }
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    std::tm local{};
    ::localtime_r(&now.tv_sec, &local);
    const int pid = s_pid != 0 ? s_pid : ::getpid();
    const std::string line = logtext::recordLine({local, now.tv_nsec, m_host, m_process, pid, label, function, text});
    const std::size_t written = writeOnce(m_fd, line);
    m_lineIsOpen = written != 0 && written != line.size();
}

Tracer::Tracer(CVLogger* logger, const void* object, const char* function, const char* unit, int line)
    : m_logger(logger != nullptr && logger->tracing() ? logger : nullptr), m_object(object), m_function(function),
      m_unit(unit), m_line(line) {
    if (m_logger != nullptr) {
        m_logger->write("enter", m_function, traceText(m_object, m_unit, m_line).c_str());
    }
}

Tracer::~Tracer() {
    if (m_logger != nullptr && m_logger->tracing()) {
        m_logger->write("leave", m_function, traceText(m_object, m_unit, m_line).c_str());
    }
}

void logmsgf(int level, const char* function, const char* format, ...) {
    if (CVLogger::s_default == nullptr) {
        return;
    }
    const ErrnoKeeper keeper;
    std::va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    CVLogger::s_default->write(logtext::levelLabel(level).c_str(), function, text.c_str());
}

void logparams(int count, char* const* arguments) {
    std::string text = "Arguments (" + std::to_string(count < 0 ? 0 : count) + "):";
    for (int index = 0; index < count; ++index) {
        text.append(" [").append(orEmpty(arguments[index])).append("]");
    }
    logmsgf(kLogProgress, "logparams", "%s", text.c_str());
}

void log_set_pid() {
    s_pid = ::getpid();
}

int log_get_verbose(int process, int product) {
    return process > product ? process : product;
}

void log_set_process_kokaconf_verbose(int verbosity) {
    s_processVerbosity = verbosity;
}

int log_get_process_kokaconf_verbose() {
    return s_processVerbosity;
}

void log_set_verbosity_filter(int verbosity) {
    if (CVLogger::s_defaultLib != nullptr) {
        CVLogger::s_defaultLib->setVerbosity(verbosity);
    }
}
