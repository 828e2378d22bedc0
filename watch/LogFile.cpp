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

/// Of what was read, so much is kept to know the file by: more than a record, so that the time of one is among it.
constexpr std::size_t kKept = 4096;

/// O_NONBLOCK: a FIFO in the log's place must not hold the watcher.
int openForReading(const std::string& path) {
    return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
}

bool isSameTime(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

} // namespace

LogFile::LogFile(std::string path) : m_path(std::move(path)) {
    if (!look(m_path, m_followed)) {
        return;
    }
    m_offset = std::max<off_t>(0, m_followed.size - static_cast<off_t>(kKept));
    if (const UniqueFd file(openForReading(m_path)); file) {
        passOver(readFrom(file.get(), m_offset));
    }
    if (m_offset < m_followed.size) {
        // It may become readable. Until then its size alone tells whether it was truncated.
        m_offset = m_followed.size;
        m_before.clear();
    }
    hasReadAll();
}

bool LogFile::find() {
    if (m_followed.inode == 0 && look(m_path, m_followed)) {
        beginAnew();
    }
    return m_followed.inode != 0;
}

bool LogFile::look(const std::string& path, Identity& identity) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return false;
    }
    identity = {status.st_dev, status.st_ino, status.st_size, status.st_mtim};
    return true;
}

LogFile::Identity LogFile::identityOf(int file) {
    struct stat status {};
    ::fstat(file, &status);
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim};
}

bool LogFile::isFollowed(const Identity& identity) const {
    return identity.device == m_followed.device && identity.inode == m_followed.inode;
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

void LogFile::beginAnew() {
    m_offset = 0;
    m_before.clear();
    m_bytes.clear();
}

void LogFile::foundTruncated() {
    complain("the debug log was truncated while it was followed, records may be missing");
    beginAnew();
}

/// What stands in the file from there on, as far as it can be read.
std::string LogFile::readFrom(int file, off_t offset) {
    std::string bytes;
    std::array<char, 65536> buffer;
    ssize_t got = 0;
    while ((got = ::pread(file, buffer.data(), buffer.size(), offset)) > 0) {
        bytes.append(buffer.data(), static_cast<std::size_t>(got));
        offset += got;
    }
    if (got == 0) {
        hasReadAll();
    } else {
        cannotRead(errno);
    }
    return bytes;
}

void LogFile::passOver(std::string_view bytes) {
    m_offset += static_cast<off_t>(bytes.size());
    m_before.append(bytes);
    m_before.erase(0, m_before.size() - std::min(m_before.size(), kKept));
}

/// What was read is read once more, in one go with what follows it: nothing can come between.
void LogFile::readNews(int file) {
    std::string read = readFrom(file, m_offset - static_cast<off_t>(m_before.size()));
    if (!m_unreadable.empty() && read.size() < m_before.size()) {
        return;
    }
    if (!read.starts_with(m_before)) {
        foundTruncated();
        read = readFrom(file, 0);
    }
    const std::string_view news = std::string_view(read).substr(m_before.size());
    m_bytes.append(news);
    passOver(news);
}

/// Reads the file's new bytes if it is the one that is followed.
bool LogFile::readFile(const std::string& path) {
    Identity now;
    if (!look(path, now) || !isFollowed(now)) {
        return false;
    }
    if (now.size < m_offset) {
        foundTruncated();
    }
    if (now.size == m_offset && isSameTime(now.modified, m_followed.modified)) {
        hasReadAll();
        return true;
    }
    const UniqueFd file(openForReading(path));
    if (!file) {
        cannotRead(errno);
        return true;
    }
    // Rotated between the look and the opening, it has another name, and another file has this one.
    now = identityOf(file.get());
    if (!isFollowed(now)) {
        return false;
    }
    readNews(file.get());
    if (m_unreadable.empty()) {
        m_followed.modified = now.modified;
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
