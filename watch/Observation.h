/// Sees processes end. Each is pinned by a pidfd where the kernel has them (5.3) and descriptors are left; any other is
/// looked at ten times a second. Nothing here can touch a process.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include <poll.h>

#include "Run.h"
#include "UniqueFd.h"

namespace watch {

/// How often a process without a pidfd is looked at, and one that ended and is still there.
inline constexpr Time kLookPeriod = kSecond / 10;
/// How long after its end it is looked at first: parents mostly take note at once.
inline constexpr Time kFirstLook = kSecond / 100;

struct LifeEvent {
    enum class Kind {
        ended,
        /// Its parent has taken note, too: signal 0 no longer finds it.
        gone,
    };
    /// Its place among those that are observed.
    std::size_t place = 0;
    Kind kind = Kind::ended;
    Time time = 0;
};

class Observation {
  public:
    /// Pins the processes of a listing that was over at `taken`, since the machine's start. A pid that belongs to a
    /// younger process by now has ended. At most `descriptors` are opened.
    Observation(const std::vector<int>& pids, Time taken, std::size_t descriptors);

    /// When the process started, since the machine's start; nothing where it could not be read, or
    /// had gone before it was pinned.
    [[nodiscard]] std::optional<Time> startOf(std::size_t place) const { return m_pinned[place].start; }
    [[nodiscard]] int parentOf(std::size_t place) const { return m_pinned[place].parent; }
    /// When the listing was over.
    [[nodiscard]] Time taken() const { return m_taken; }

    /// What to wait for: poll sets `revents`, and hands the same part of the list to `polled`.
    void appendTo(std::vector<pollfd>& waiting) const;
    std::vector<LifeEvent> polled(const pollfd* begin, const pollfd* end);

    /// When, by CLOCK_MONOTONIC, `look` is due; nothing while it has nothing to look at.
    [[nodiscard]] std::optional<Time> lookDue() const { return m_lookDue; }

    /// Looks at each process that has no pidfd, and at each that ended and may still be there.
    std::vector<LifeEvent> look();

    /// Whether any process was observed by looks alone.
    [[nodiscard]] bool isCoarse() const { return m_coarse; }

    /// Whether the process is there, as signal 0 sees it.
    [[nodiscard]] bool isThere(std::size_t place) const { return m_pinned[place].life != Life::gone; }

    /// Whether a process of the same pid that started at `start`, since the machine's start, is that very one.
    [[nodiscard]] bool isThat(std::size_t place, Time start) const {
        return isThere(place) && m_pinned[place].start.value_or(start) == start;
    }

    /// Closes every pidfd: no end is seen any more.
    void close();

  private:
    enum class Life { running, ended, gone };
    struct Pinned {
        int pid = 0;
        int parent = 0;
        std::optional<Time> start;
        UniqueFd fd;
        Life life = Life::running;
    };

    static Pinned pin(int pid, Time taken, bool mayOpen);
    static Life lookAt(const Pinned& pinned);
    static bool needsLook(const Pinned& pinned);
    void expectLook(Time due);

    Time m_taken;
    std::vector<Pinned> m_pinned;
    std::optional<Time> m_lookDue;
    bool m_coarse = false;
};

} // namespace watch
