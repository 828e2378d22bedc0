#include "WholeFile.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include "UniqueFd.h"

namespace watch {

namespace {

// A file that is there already is never touched: a watcher that was killed may have left one, or somebody may have put
// it there.
constexpr int kTries = 100;

std::string reason(int error) {
    return std::strerror(error);
}

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

/// Empty where `path` is free, or a regular file that may be replaced.
std::string refusal(const std::string& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return errno == ENOENT ? "" : reason(errno);
    }
    if (S_ISREG(status.st_mode)) {
        return "";
    }
    return S_ISDIR(status.st_mode) ? "is a folder" : S_ISLNK(status.st_mode) ? "is a link" : "is no regular file";
}

/// In a folder that others may write to, nobody can take all names that might be used.
std::string unguessable() {
    std::uint64_t number = 0;
    if (::getrandom(&number, sizeof number, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof number)) {
        number = static_cast<std::uint64_t>(::getpid());
    }
    return std::to_string(number);
}

/// Opens a new file beside `path` and puts its name into `name`; errno tells why not.
UniqueFd openBeside(const std::string& path, std::string& name) {
    UniqueFd file;
    for (int attempt = 0; attempt < kTries && !file; ++attempt) {
        name = folderOf(path) + "/.cvstop-watch." + unguessable();
        file.reset(::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
        if (!file && errno != EEXIST) {
            break;
        }
    }
    return file;
}

/// Pieces are gathered until they are worth a write.
constexpr std::size_t kWorthAWrite = 16384;

bool writeAll(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = ::write(file, text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
    }
    return true;
}

/// What went wrong first stays in errno: nothing is written after that.
bool writePieces(int file, const std::function<void(const Sink&)>& produce) {
    std::string pending;
    int error = 0;
    const auto write = [&](std::string_view text) {
        if (error == 0 && !writeAll(file, text)) {
            error = errno;
        }
    };
    produce([&](std::string_view piece) {
        if (pending.size() + piece.size() > kWorthAWrite) {
            write(pending);
            pending.clear();
        }
        if (piece.size() > kWorthAWrite) {
            write(piece);
        } else {
            pending += piece;
        }
    });
    write(pending);
    errno = error;
    return error == 0;
}

} // namespace

std::string WholeFile::choose(const std::string& path) {
    std::error_code error;
    const std::string whole = path.empty() ? "" : std::filesystem::absolute(path, error).string();
    if (whole.empty()) {
        return reason(error ? error.value() : ENOENT);
    }
    if (whole.back() == '/') {
        return "is a folder";
    }
    std::string why = refusal(whole);
    if (!why.empty()) {
        return why;
    }
    // Only trying tells: /proc and an immutable folder say that root may write to them.
    std::string temporary;
    if (!openBeside(whole, temporary)) {
        return reason(errno);
    }
    ::unlink(temporary.c_str());
    m_path = whole;
    return "";
}

std::string WholeFile::write(std::string_view text) const {
    return write([&](const Sink& sink) { sink(text); });
}

std::string WholeFile::write(const std::function<void(const Sink&)>& produce) const {
    // Somebody may have put something else there meanwhile. A link would be replaced, not followed.
    std::string why = refusal(m_path);
    if (!why.empty()) {
        return why;
    }
    std::string temporary;
    UniqueFd file = openBeside(m_path, temporary);
    if (!file) {
        return reason(errno);
    }
    const bool written = writePieces(file.get(), produce) && ::fsync(file.get()) == 0;
    if (!written || ::close(file.release()) != 0 || std::rename(temporary.c_str(), m_path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporary.c_str());
        return reason(error);
    }
    return "";
}

} // namespace watch
