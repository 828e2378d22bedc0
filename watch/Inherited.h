/// What the watcher was started with and changes for itself: the program gets it as it was.
#pragma once

#include <array>
#include <csignal>
#include <cstddef>
#include <optional>

#include <sys/resource.h>

namespace watch {

class Inherited {
  public:
    /// Remembers it all. Descriptors 0 to 2 that are closed are put on /dev/null for the watcher alone.
    Inherited();

    /// Makes the watcher one that no terminal ends: it ignores SIGINT, SIGQUIT, SIGHUP and SIGPIPE, and can wait for
    /// its child whatever its starter thought of SIGCHLD, which stays blocked.
    void prepareWatcher() const;

    /// Lets the watcher have that many descriptors, as far as its hard limit goes. Returns how many it may have.
    [[nodiscard]] std::size_t raiseDescriptorLimit(std::size_t wanted) const;

    /// In the child, before its exec: puts everything back. Calls only what is safe there (signal-safety(7)).
    void restore() const;

  private:
    static constexpr std::array<int, 5> kSignals = {SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGCHLD};

    std::array<struct sigaction, kSignals.size()> m_actions = {};
    sigset_t m_mask = {};
    /// Nothing where it could not be read: it is left alone then.
    std::optional<rlimit> m_descriptors;
};

} // namespace watch
