#include "Requests.h"

#include <algorithm>
#include <iterator>

namespace watch {

namespace {

/// A request follows a look at the process, and that look follows the record before it.
bool wasGoneBefore(const Candidate& candidate, Time moment) {
    return candidate.gone && *candidate.gone < moment;
}

std::vector<Assignment> inOrder(std::size_t count, const std::vector<Candidate>& candidates, bool certain) {
    std::vector<Assignment> assignments(count, {std::nullopt, certain});
    for (std::size_t place = 0; place < std::min(count, candidates.size()); ++place) {
        assignments[place].process = candidates[place].process;
    }
    return assignments;
}

} // namespace

std::vector<Assignment> assignRequests(const std::vector<const Request*>& requests, std::vector<Candidate> candidates,
                                       bool firstOnly) {
    if (requests.empty()) {
        return {};
    }
    if (firstOnly && candidates.size() > 1) {
        candidates.resize(1);
    }
    std::erase_if(candidates, [&](const Candidate& one) { return wasGoneBefore(one, requests.front()->earliest); });
    if (requests.size() == candidates.size()) {
        return inOrder(requests.size(), candidates, true);
    }
    std::vector<Candidate> stayed;
    std::copy_if(candidates.begin(), candidates.end(), std::back_inserter(stayed),
                 [&](const Candidate& one) { return !one.gone || *one.gone > requests.back()->asked.back().time; });
    if (requests.size() == stayed.size()) {
        return inOrder(requests.size(), stayed, true);
    }
    return inOrder(requests.size(), candidates, false);
}

} // namespace watch
