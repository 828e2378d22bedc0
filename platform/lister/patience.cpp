#include "patience.h"

#include <algorithm>

namespace lister {

namespace {

constexpr std::chrono::milliseconds kLeast{20};

} // namespace

void Patience::halve() {
    m_withOne = std::max(m_withOne / 2, kLeast);
}

void Patience::spend(std::chrono::nanoseconds time) {
    for (m_spent += time; m_spent >= m_step; m_spent -= m_step) {
        halve();
    }
}

} // namespace lister
