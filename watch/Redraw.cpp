#include "Redraw.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "Json.h"
#include "Svg.h"
#include "UniqueFd.h"
#include "WholeFile.h"

namespace watch {

namespace {

/// Some 100,000 processes; what is larger was not written by a watcher.
constexpr std::size_t kMostBytes = 64U << 20U;

/// Returns an errno value, EFBIG for more than a run can be.
int readWhole(const std::string& path, std::string& text) {
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    ssize_t got = file ? 1 : -1;
    while (got > 0 && text.size() <= kMostBytes) {
        char buffer[65536];
        got = ::read(file.get(), buffer, sizeof buffer);
        text.append(buffer, got > 0 ? static_cast<std::size_t>(got) : 0);
    }
    return got < 0 ? errno : text.size() > kMostBytes ? EFBIG : 0;
}

} // namespace

std::string redraw(const std::string& json, const std::string& svg) {
    WholeFile picture;
    std::string error = picture.choose(svg);
    if (!error.empty()) {
        return svg + ": " + error;
    }
    std::string text;
    const int unreadable = readWhole(json, text);
    if (unreadable != 0) {
        return json + ": " + std::strerror(unreadable);
    }
    const ReadRun read = fromJson(text);
    if (!read.error.empty()) {
        return json + ": " + read.error;
    }
    error = picture.write(toSvg(read.run));
    return error.empty() ? "" : svg + ": " + error;
}

} // namespace watch
