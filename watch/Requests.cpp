#include "Requests.h"

#include <algorithm>

namespace watch {

namespace {

/// Where there are more steps than this, they are not tried.
constexpr std::size_t kMostSteps = 1'000'000;

/// A request follows a look at the process, and that look follows the record before it.
bool mayBeAsked(const Candidate& candidate, const Request& request) {
    return !candidate.gone || *candidate.gone >= request.earliest;
}

/// Whether it may have been gone when the program came to it, which was before `next`.
bool mayBePassedOver(const Candidate& candidate, const std::optional<Time>& next) {
    return !next || (candidate.gone && candidate.ended.value_or(*candidate.gone) <= *next);
}

/// All ways of laying requests upon candidates, of which there are at least as many, that agree with what was seen. A
/// way is made of steps: the next candidate is asked by the next request, or passed over.
class Ways {
  public:
    Ways(const std::vector<const Request*>& requests, const std::vector<Candidate>& candidates,
         const std::optional<Time>& over)
        : m_requests(requests), m_candidates(candidates), m_over(over),
          m_mostPassed(candidates.size() - requests.size()), m_fromBegin(states()), m_toEnd(states()) {
        walkForward();
        walkBackward();
    }

    /// How many steps would have to be tried.
    static std::size_t steps(std::size_t requests, std::size_t candidates) {
        return (requests + 1) * (candidates - requests + 1);
    }

    /// Whether there is any.
    [[nodiscard]] bool any() const { return m_toEnd.front() != 0; }

    /// The way on which every request is laid upon the first candidate that it can be; certain is what is so on all.
    [[nodiscard]] Meant first() const {
        Meant meant;
        std::size_t passed = 0;
        for (std::size_t asked = 0; asked < m_requests.size(); ++asked) {
            while (!isAsking(asked, passed)) {
                ++passed;
            }
            meant.requests.push_back({m_candidates[asked + passed].process, waysToAsk(asked) == 1});
        }
        for (std::size_t place = 0; place < m_candidates.size(); ++place) {
            if (fates(place) > 1) {
                meant.unsure.push_back(m_candidates[place].process);
            }
        }
        return meant;
    }

  private:
    // A state is reached when so many requests have been laid upon candidates and so many candidates were passed over.
    [[nodiscard]] std::size_t states() const { return steps(m_requests.size(), m_candidates.size()); }
    [[nodiscard]] std::size_t state(std::size_t asked, std::size_t passed) const {
        return asked * (m_mostPassed + 1) + passed;
    }

    [[nodiscard]] bool canAsk(std::size_t asked, std::size_t passed) const {
        return asked < m_requests.size() && mayBeAsked(m_candidates[asked + passed], *m_requests[asked]);
    }
    [[nodiscard]] bool canPass(std::size_t asked, std::size_t passed) const {
        return passed < m_mostPassed &&
               mayBePassedOver(m_candidates[asked + passed],
                               asked < m_requests.size() ? m_requests[asked]->asked.front().time : m_over);
    }

    void walkForward() {
        m_fromBegin.front() = 1;
        for (std::size_t asked = 0; asked <= m_requests.size(); ++asked) {
            for (std::size_t passed = 0; passed <= m_mostPassed; ++passed) {
                if (m_fromBegin[state(asked, passed)] == 0) {
                    continue;
                }
                if (canAsk(asked, passed)) {
                    m_fromBegin[state(asked + 1, passed)] = 1;
                }
                if (canPass(asked, passed)) {
                    m_fromBegin[state(asked, passed + 1)] = 1;
                }
            }
        }
    }

    void walkBackward() {
        m_toEnd.back() = 1;
        for (std::size_t asked = m_requests.size() + 1; asked-- > 0;) {
            for (std::size_t passed = m_mostPassed + 1; passed-- > 0;) {
                if ((canAsk(asked, passed) && m_toEnd[state(asked + 1, passed)] != 0) ||
                    (canPass(asked, passed) && m_toEnd[state(asked, passed + 1)] != 0)) {
                    m_toEnd[state(asked, passed)] = 1;
                }
            }
        }
    }

    /// Whether the step from there is part of a way.
    [[nodiscard]] bool isAsking(std::size_t asked, std::size_t passed) const {
        return m_fromBegin[state(asked, passed)] != 0 && canAsk(asked, passed) &&
               m_toEnd[state(asked + 1, passed)] != 0;
    }
    [[nodiscard]] bool isPassing(std::size_t asked, std::size_t passed) const {
        return m_fromBegin[state(asked, passed)] != 0 && canPass(asked, passed) &&
               m_toEnd[state(asked, passed + 1)] != 0;
    }

    /// How many candidates the request may have been for.
    [[nodiscard]] std::size_t waysToAsk(std::size_t asked) const {
        std::size_t count = 0;
        for (std::size_t passed = 0; passed <= m_mostPassed; ++passed) {
            count += isAsking(asked, passed) ? 1U : 0U;
        }
        return count;
    }

    /// How many different things may have become of the candidate: asked by one request or another, or passed over.
    [[nodiscard]] std::size_t fates(std::size_t place) const {
        std::size_t count = 0;
        bool mayBePassed = false;
        for (std::size_t passed = 0; passed <= std::min(place, m_mostPassed); ++passed) {
            const std::size_t asked = place - passed;
            if (asked <= m_requests.size()) {
                count += isAsking(asked, passed) ? 1U : 0U;
                mayBePassed |= isPassing(asked, passed);
            }
        }
        return count + (mayBePassed ? 1 : 0);
    }

    const std::vector<const Request*>& m_requests;
    const std::vector<Candidate>& m_candidates;
    const std::optional<Time>& m_over;
    std::size_t m_mostPassed;
    std::vector<char> m_fromBegin;
    std::vector<char> m_toEnd;
};

/// One after the other, where nothing is certain.
Meant guess(std::size_t count, const std::vector<Candidate>& candidates) {
    Meant meant{std::vector<Assignment>(count, {std::nullopt, false}), {}};
    for (std::size_t place = 0; place < candidates.size(); ++place) {
        meant.unsure.push_back(candidates[place].process);
        if (place < count) {
            meant.requests[place].process = candidates[place].process;
        }
    }
    return meant;
}

} // namespace

Meant assignRequests(const std::vector<const Request*>& requests, std::vector<Candidate> candidates, bool firstOnly,
                     const std::optional<Time>& over) {
    if (requests.empty()) {
        return {};
    }
    if (firstOnly && candidates.size() > 1) {
        candidates.resize(1);
    }
    std::erase_if(candidates, [&](const Candidate& one) { return !mayBeAsked(one, *requests.front()); });
    if (requests.size() <= candidates.size() && Ways::steps(requests.size(), candidates.size()) <= kMostSteps) {
        if (const Ways ways(requests, candidates, over); ways.any()) {
            return ways.first();
        }
    }
    return guess(requests.size(), candidates);
}

} // namespace watch
