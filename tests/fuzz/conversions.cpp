// The conversions of two formats, one a line: a translation that is taken can be formatted with the arguments of the
// original.

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

#include "Fuzz.h"
#include "mofile.h"

namespace {

bool takesOnly(const std::vector<std::string>& kinds, const char* kind) {
    return kinds.size() <= 4 &&
           std::all_of(kinds.begin(), kinds.end(), [kind](const std::string& k) { return k == kind; });
}

} // namespace

FUZZ_TARGET(input) {
    const std::string original(takePiece(input, '\n'));
    const std::string translation(input);
    const auto kinds = mofile::conversions(original);
    demand(!kinds || mofile::takesSameArguments(original, original), "a sound format takes its own arguments");
    const bool isTaken = mofile::takesSameArguments(original, translation);
    demand(!isTaken || mofile::conversions(translation) == kinds, "what is taken has the same conversions");
    demand(isTaken == mofile::takesSameArguments(translation, original), "sameness has no direction");
    if (!isTaken || translation.find('\0') != std::string::npos) {
        return;
    }
    // With real arguments: the sanitizer sees what a wrong conversion would read.
    std::array<char, 1024> line;
    if (takesOnly(*kinds, "s")) {
        std::snprintf(line.data(), line.size(), translation.c_str(), "a", "b", "c", "d");
    } else if (takesOnly(*kinds, "d")) {
        std::snprintf(line.data(), line.size(), translation.c_str(), 1, 2, 3, 4);
    }
}
