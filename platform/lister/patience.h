/// How long one scan waits for processes that do not answer.
#pragma once

#include <chrono>

namespace lister {

/// A second for each process at first. Anybody can make many processes that never answer, or answer late: each that is
/// given up halves it, and so does each `step` that was waited in all, down to 20 ms. So a scan comes to an end: with
/// the step of 5 s, six of them are half a minute, and from then on no process costs more than 20 ms.
class Patience {
  public:
    explicit Patience(std::chrono::nanoseconds step = std::chrono::seconds(5)) : m_step(step) {}

    /// How long the next process may give no answer.
    [[nodiscard]] std::chrono::milliseconds withOne() const { return m_withOne; }
    /// A process was given up.
    void halve();
    /// So long was waited for processes, whether they answered in the end or not.
    void spend(std::chrono::nanoseconds time);

  private:
    std::chrono::nanoseconds m_step;
    /// Since the last whole step.
    std::chrono::nanoseconds m_spent{0};
    std::chrono::milliseconds m_withOne = std::chrono::seconds(1);
};

} // namespace lister
