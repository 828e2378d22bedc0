#include "cvbase.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include <sys/stat.h>

#include "utf8.h"

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

int V_snprintf(char* buffer, std::size_t size, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return length;
}

int V_cat_snprintf(char* buffer, std::size_t size, const char* format, ...) {
    const std::size_t used = ::strnlen(buffer, size);
    if (used == size) {
        // No NUL within the buffer: there is no end to append at.
        return -1;
    }
    std::va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(buffer + used, size - used, format, arguments);
    va_end(arguments);
    return length < 0 ? length : static_cast<int>(used) + length;
}

std::size_t _utf8_mbstowcs_len(const char* text) {
    std::size_t count = 0;
    std::string_view rest = text == nullptr ? "" : text;
    while (!rest.empty()) {
        const std::size_t length = utf8::sequenceLength(rest);
        rest.remove_prefix(length == 0 ? 1 : length);
        ++count;
    }
    return count;
}
