/// The owner of a file descriptor.
#pragma once

#include <utility>

#include <unistd.h>

/// Closes its descriptor when it goes. Moved, never copied; -1 stands for none.
class UniqueFd {
  public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : m_fd(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    [[nodiscard]] int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }

    /// Hands the descriptor to the caller, who closes it from now on.
    int release() { return std::exchange(m_fd, -1); }

    void reset(int fd = -1) {
        const int old = std::exchange(m_fd, fd);
        if (old >= 0) {
            ::close(old);
        }
    }

  private:
    int m_fd = -1;
};
