/// What the watcher was started with and changes for itself: the program gets it as it was.
#pragma once

#include <array>
#include <csignal>
#include <cstddef>
#include <optional>
#include <vector>

#include <sys/resource.h>

namespace watch {

class Inherited {
  public:
    /// Remembers it all. Descriptors 0 to 2 that are closed are put on /dev/null for the watcher alone. Comes before
    /// the watcher opens anything.
    Inherited();

    /// For the whole of the watch: SIGPIPE is ignored, and a child can be waited for whatever the starter thought of
    /// SIGCHLD, which stays blocked. So does SIGTTOU, for which a terminal would stop the program along with a watcher
    /// that writes in the background.
    void prepareWatcher() const;

    /// SIGINT, SIGQUIT and SIGHUP end the watcher as they would end the program, until there is one. Around its start
    /// they wait; `heldInterrupt` is one that has come and that the starter did not ignore, and `ignoreInterrupts`
    /// leaves them to the program from then on.
    void holdInterrupts() const;
    [[nodiscard]] std::optional<int> heldInterrupt() const;
    void ignoreInterrupts() const;

    /// Lets the watcher have that many descriptors, as far as its hard limit goes. Returns how many it may have.
    [[nodiscard]] std::size_t raiseDescriptorLimit(std::size_t wanted) const;

    /// Once the program has its own copies: closes what was inherited beside the three streams.
    void closeOthers() const;

    /// In the child, before its exec: puts everything back. Calls only what is safe there (signal-safety(7)).
    void restore() const;

  private:
    static constexpr std::array<int, 5> kSignals = {SIGINT, SIGQUIT, SIGHUP, SIGPIPE, SIGCHLD};
    /// How many of the first of them a terminal sends to its foreground.
    static constexpr std::size_t kInterrupts = 3;

    [[nodiscard]] static sigset_t interrupts();

    std::array<struct sigaction, kSignals.size()> m_actions = {};
    sigset_t m_mask = {};
    /// Those above 2.
    std::vector<int> m_others;
    /// Nothing where it could not be read: it is left alone then.
    std::optional<rlimit> m_descriptors;
};

} // namespace watch
