#include "cvbase.h"

#include <cerrno>
#include <string>

#include <sys/stat.h>

namespace {

bool isDirectory(const char* path) {
    struct stat status {};
    return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

/// The mode is set again after mkdir: the product's directories are shared by daemons of several users, and may not
/// depend on the umask of whoever runs the first program.
int makeDirectory(const char* path, mode_t mode) {
    if (::mkdir(path, mode) == 0) {
        return ::chmod(path, mode) == 0 ? 0 : errno;
    }
    const int failure = errno;
    return failure == EEXIST && isDirectory(path) ? 0 : failure;
}

/// "/a/b//" is "/a"; "a" and "/" have no parent to create.
std::string parentOf(const std::string& path) {
    const std::size_t nameEnd = path.find_last_not_of('/');
    if (nameEnd == std::string::npos) {
        return {};
    }
    const std::size_t slash = path.rfind('/', nameEnd);
    if (slash == std::string::npos) {
        return {};
    }
    const std::size_t parentEnd = path.find_last_not_of('/', slash);
    return parentEnd == std::string::npos ? std::string() : path.substr(0, parentEnd + 1);
}

/// Asks for the directory first and for its parents only where they are missing, so that parents that exist are never
/// touched.
int makePath(const std::string& path, mode_t mode) {
    const int failure = makeDirectory(path.c_str(), mode);
    const std::string parent = parentOf(path);
    if (failure != ENOENT || parent.empty()) {
        return failure;
    }
    const int parentFailure = makePath(parent, mode);
    return parentFailure != 0 ? parentFailure : makeDirectory(path.c_str(), mode);
}

} // namespace

int mkdirpath(const char* path, mode_t mode, std::int32_t* status) {
    const int failure = path == nullptr ? EINVAL : makePath(path, mode);
    if (status != nullptr) {
        *status = failure;
    }
    return failure == 0 ? 0 : -1;
}
