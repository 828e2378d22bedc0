#include "LogFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "UniqueFd.h"

namespace watch {

namespace {

/// A record is one write of at most 4,000 bytes; a longer line is none.
constexpr std::size_t kLongestLine = 8192;

/// O_NONBLOCK: a FIFO in the log's place must not hold the watcher.
int openForReading(const std::string& path) {
    return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
}

} // namespace

LogFile::LogFile(std::string path) : m_path(std::move(path)) {
    if (look(m_path, m_followed)) {
        m_offset = m_followed.size;
    }
}

bool LogFile::find() {
    if (m_followed.inode == 0 && look(m_path, m_followed)) {
        m_offset = 0;
        m_bytes.clear();
    }
    return m_followed.inode != 0;
}

bool LogFile::look(const std::string& path, Identity& identity) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return false;
    }
    identity = {status.st_dev, status.st_ino, status.st_size};
    return true;
}

void LogFile::complain(const std::string& sentence) {
    if (std::find(m_trouble.begin(), m_trouble.end(), sentence) == m_trouble.end()) {
        m_trouble.push_back(sentence);
    }
}

void LogFile::cannotRead(int error) {
    hasReadAll();
    m_unreadable = std::string("the debug log cannot be read: ") + std::strerror(error);
    complain(m_unreadable);
}

/// What a read could not get, a later one may: nothing is missing then.
void LogFile::hasReadAll() {
    std::erase(m_trouble, m_unreadable);
    m_unreadable.clear();
}

/// Reads the file's new bytes if it is the one that is followed.
bool LogFile::readFile(const std::string& path) {
    Identity now;
    if (!look(path, now) || now.device != m_followed.device || now.inode != m_followed.inode) {
        return false;
    }
    if (now.size < m_offset) {
        complain("the debug log was truncated while it was followed, records may be missing");
        m_offset = 0;
        m_bytes.clear();
    }
    if (now.size == m_offset) {
        hasReadAll();
        return true;
    }
    const UniqueFd file(openForReading(path));
    if (!file) {
        cannotRead(errno);
        return true;
    }
    std::array<char, 65536> buffer;
    ssize_t got = 0;
    while ((got = ::pread(file.get(), buffer.data(), buffer.size(), m_offset)) > 0) {
        m_bytes.append(buffer.data(), static_cast<std::size_t>(got));
        m_offset += got;
    }
    if (got == 0) {
        hasReadAll();
    } else if (errno != EINTR) {
        cannotRead(errno);
    }
    return true;
}

/// The followed file under another name in its folder.
bool LogFile::readRenamed() {
    std::error_code error;
    std::filesystem::directory_iterator entry(std::filesystem::path(m_path).parent_path(), error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (readFile(entry->path())) {
            return true;
        }
    }
    return false;
}

void LogFile::readOn() {
    if (m_followed.inode != 0) {
        if (readFile(m_path) || readRenamed()) {
            return;
        }
        complain("the debug log was taken away while it was followed, records may be missing");
    }
    // The first records of a log that was not there before; or of the one that took its place.
    m_followed = {};
    if (find()) {
        readFile(m_path);
    }
}

std::vector<LogEvent> LogFile::read(int pid) {
    readOn();
    std::vector<LogEvent> events;
    std::size_t begin = 0;
    for (std::size_t end = 0; (end = m_bytes.find('\n', begin)) != std::string::npos; begin = end + 1) {
        const std::optional<LogRecord> record = parseLogRecord(std::string_view(m_bytes).substr(begin, end - begin));
        if (record && record->pid == pid && record->process == "cvstop") {
            m_found = true;
            events.push_back(readEvent(*record));
        }
    }
    m_bytes.erase(0, begin);
    if (m_bytes.size() > kLongestLine) {
        m_bytes.clear();
    }
    return events;
}

} // namespace watch
