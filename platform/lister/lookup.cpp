#include "lookup.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <utility>

#include <linux/openat2.h>
#include <sys/stat.h>

#include "errors.h"

namespace lister {

namespace {

/// The kernel follows no more on one path (path_resolution(7)).
constexpr int kMostLinks = 40;

/// Goes to a path as the kernel does, but looks at each file before it looks into it. Descriptors are followed, not
/// names: whoever may rename what is on the way could lead a name to his server between two calls.
class Walk {
  public:
    Walk(const Caller& caller, std::string path) : m_caller(caller), m_rest(std::move(path)) {}

    UniqueFd run() {
        bool isOnTheWay = returnToRoot();
        for (std::string name = next(); isOnTheWay && !name.empty(); name = next()) {
            isOnTheWay = take(name);
        }
        return isOnTheWay ? std::move(m_at) : UniqueFd();
    }

  private:
    /// Cuts off and returns the next name, empty at the end.
    std::string next() {
        const std::size_t begin = std::min(m_rest.find_first_not_of('/'), m_rest.size());
        const std::size_t end = std::min(m_rest.find('/', begin), m_rest.size());
        std::string name = m_rest.substr(begin, end - begin);
        m_rest.erase(0, end);
        return name;
    }

    bool returnToRoot() {
        m_at = openByName(AT_FDCWD, "/", O_DIRECTORY);
        const std::optional<FileStatus> status = m_at ? statusOf(m_at) : std::nullopt;
        m_device = status ? status->id : FileId();
        return status.has_value();
    }

    bool take(const std::string& name) {
        UniqueFd file = openByName(m_at.get(), name.c_str(), O_NOFOLLOW);
        const std::optional<FileStatus> status = file ? statusOf(file) : std::nullopt;
        if (!status || !mayGoOn(file, *status)) {
            return false;
        }
        if (S_ISLNK(status->mode)) {
            return follow(file);
        }
        m_at = std::move(file);
        m_device = status->id;
        return true;
    }

    /// A server is met where another device begins.
    bool mayGoOn(const UniqueFd& file, const FileStatus& status) {
        const bool isSameDevice =
            status.id.deviceMajor == m_device.deviceMajor && status.id.deviceMinor == m_device.deviceMinor;
        if (isSameDevice || m_caller.mayLookInto(status.mountId != 0 ? status.mountId : mountOf(file))) {
            return true;
        }
        errno = EREMOTE;
        return false;
    }

    bool follow(const UniqueFd& file) {
        LinkBuffer buffer;
        const std::optional<std::string_view> text = readLink(file.get(), "", buffer);
        if (!text || ++m_links > kMostLinks) {
            throwIfShort(errno);
            errno = text ? ELOOP : errno;
            return false;
        }
        m_rest.insert(0, *text);
        return !text->starts_with('/') || returnToRoot();
    }

    const Caller& m_caller;
    std::string m_rest;
    UniqueFd m_at;
    FileId m_device;
    int m_links = 0;
};

} // namespace

/// What somebody is running is in the kernel's look-up cache, where RESOLVE_CACHED (Linux 5.12) finds it without asking
/// its server. The links in /proc that lead from one process to another's files are followed by their text.
UniqueFd findWithoutWaiting(const Caller& caller, const std::string& path) {
    if (!path.starts_with('/')) {
        errno = ENOENT; // the kernel tells no path of a file that the caller does not reach
        return {};
    }
    UniqueFd file = findAt(AT_FDCWD, path.c_str(), 0, RESOLVE_CACHED | RESOLVE_NO_MAGICLINKS);
    // The cache also knows of names that they lead nowhere.
    return file || errno == ENOENT ? std::move(file) : Walk(caller, path).run();
}

std::optional<FileStatus> lookUpWithoutWaiting(const Caller& caller, const std::string& path) {
    const UniqueFd file = findWithoutWaiting(caller, path);
    return file ? statusOf(file) : std::nullopt;
}

/// The kernel gives no path with empty names or dots.
bool isOwnPath(const std::string& path) {
    return path.starts_with('/') && path.find("//") == std::string::npos && path.find("/.") == std::string::npos &&
           (findAt(AT_FDCWD, path.c_str(), 0, RESOLVE_CACHED | RESOLVE_NO_SYMLINKS) || errno == ENOENT);
}

/// The thread's own folder: it may have a table of descriptors of its own.
std::string nameOf(const UniqueFd& file) {
    return "/proc/thread-self/fd/" + std::to_string(file.get());
}

std::optional<std::string> pathOf(const UniqueFd& file) {
    LinkBuffer buffer;
    const std::optional<std::string_view> text = readLink(AT_FDCWD, nameOf(file).c_str(), buffer);
    if (!text) {
        throwIfShort(errno);
    }
    return text ? std::optional<std::string>(*text) : std::nullopt;
}

} // namespace lister
