/// What the bare loops share: nothing is decided in them, they only make the system calls that no lister can do
/// without.
#pragma once

#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

constexpr char kProductRoot[] = "/usr/quarn/";

inline int openFolder(int at, const char* path) {
    return openat(at, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

inline bool isProduct(const char* path) {
    return std::strncmp(path, kProductRoot, sizeof kProductRoot - 1) == 0;
}

/// NUL-terminated; -1 where there is no such link.
template <std::size_t Size> ssize_t readLink(int at, const char* path, char (&link)[Size]) {
    const ssize_t length = readlinkat(at, path, link, Size - 1);
    link[length > 0 ? length : 0] = '\0';
    return length;
}

template <std::size_t Size> const char* joined(char (&buffer)[Size], const char* first, const char* second) {
    return std::strcat(std::strcpy(buffer, first), second);
}

/// Calls `visit` with each name that begins with a digit: pids in /proc, descriptors in PID/fd.
template <class Visit> void forEachEntry(int folder, const Visit& visit) {
    alignas(dirent64) char buffer[32768];
    ssize_t size = 0;
    while ((size = getdents64(folder, buffer, sizeof buffer)) > 0) {
        for (ssize_t at = 0; at < size;) {
            const auto* entry = reinterpret_cast<const dirent64*>(buffer + at);
            at += entry->d_reclen;
            if (entry->d_name[0] >= '0' && entry->d_name[0] <= '9') {
                visit(entry->d_name);
            }
        }
    }
}
