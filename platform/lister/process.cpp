#include "process.h"

#include "errors.h"

namespace lister {

PinnedProcess::PinnedProcess(int proc, pid_t pid, const char* folder)
    : m_pid(pid), m_folder(openat(proc, folder, O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    if (!m_folder) {
        throwIfShort(errno);
    }
}

std::optional<std::string_view> PinnedProcess::link(const char* name, LinkBuffer& buffer) const {
    const std::optional<std::string_view> text = readLink(folder(), name, buffer);
    if (!text) {
        throwIfShort(errno);
    }
    return text;
}

std::optional<std::string> PinnedProcess::link(const char* name) const {
    LinkBuffer buffer;
    const std::optional<std::string_view> text = link(name, buffer);
    return text ? std::optional<std::string>(*text) : std::nullopt;
}

UniqueFd PinnedProcess::open(const char* name, int flags) const {
    UniqueFd file(openat(folder(), name, flags | O_CLOEXEC));
    if (!file) {
        throwIfShort(errno);
    }
    return file;
}

std::optional<std::string> PinnedProcess::read(const char* name, std::size_t limit) const {
    const UniqueFd file = open(name, O_RDONLY);
    if (!file) {
        return std::nullopt;
    }
    return readAll(file.get(), limit);
}

} // namespace lister
