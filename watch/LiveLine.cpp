#include "LiveLine.h"

#include <limits>

#include "Text.h"

namespace watch {

namespace {

using Doing = Progress::Doing;

constexpr std::size_t kBarWidth = 12;
/// A name is not cut to less, unless the line holds nothing else that could go.
constexpr std::size_t kShortestName = 8;
constexpr std::size_t kUnlimited = std::numeric_limits<std::size_t>::max();

std::string seconds(Time time) {
    return std::to_string(time / kSecond) + " s";
}

/// A wait that ends in 0.3 s goes on for up to 1 s more.
std::string roundedUp(Time time) {
    return seconds(time + kSecond - 1);
}

std::string bar(const Progress& progress) {
    if (!progress.observed) {
        return "";
    }
    const std::size_t full = progress.total == 0 ? kBarWidth : progress.ended * kBarWidth / progress.total;
    return "[" + std::string(full, '#') + std::string(kBarWidth - full, '-') + "] ";
}

std::string count(const Progress& progress) {
    const std::string ended = std::to_string(progress.ended) + " of " + std::to_string(progress.total) + " ended  ";
    return (progress.observed ? ended : "") + seconds(progress.elapsed);
}

/// What stands before the name, where there is one, and else for all.
std::string activity(Doing doing) {
    switch (doing) {
    case Doing::gathering:
        return "gathering";
    case Doing::table:
        return "going through the table";
    case Doing::waiting:
        return "waiting for ";
    case Doing::sweeping:
        return "signalling ";
    case Doing::thirdParties:
        return "ending third parties";
    case Doing::silent:
    case Doing::unknown:
    case Doing::over:
        break;
    }
    return "";
}

std::string history(const Progress& progress) {
    if (progress.zombie) {
        return ": ended, its parent has not taken note";
    }
    if (progress.excluded) {
        return ": excluded";
    }
    return progress.askedAgo ? ": asked " + seconds(*progress.askedAgo) + " ago" : "";
}

std::string future(const Progress& progress, const std::string& before) {
    if (!progress.upTo) {
        return "";
    }
    return (before.empty() ? ": " : ", ") + ("up to " + roundedUp(*progress.upTo) + " more");
}

std::string others(const Progress& progress) {
    return progress.more == 0 ? "" : "  +" + std::to_string(progress.more);
}

/// The parts of the line that may be left out.
struct Shown {
    bool bar = true;
    bool history = true;
    bool future = true;
    bool others = true;
};

/// The least important first. A name is cut as far as it may be before the next part goes.
constexpr Shown kSteps[] = {
    {true, true, true, true},    {false, true, true, true},    {false, false, true, true},
    {false, false, false, true}, {false, false, false, false},
};

std::string compose(const Progress& progress, const Shown& shown, const std::string& name) {
    std::string line = (shown.bar ? bar(progress) : "") + count(progress);
    const std::string doing = activity(progress.doing);
    if (doing.empty()) {
        return line;
    }
    line += "  " + doing;
    if (name.empty()) {
        return line;
    }
    line += name + " (" + std::to_string(progress.pid) + ")";
    const std::string past = shown.history ? history(progress) : "";
    line += past + (shown.future ? future(progress, past) : "") + (shown.others ? others(progress) : "");
    return line;
}

/// The line with as much of the name as fits, or an empty text where that is too little.
std::string fill(const Progress& progress, const Shown& shown, std::size_t width) {
    const std::string name = harmless(progress.name);
    std::string whole = compose(progress, shown, name);
    const std::size_t needed = columns(whole);
    if (needed <= width) {
        return whole;
    }
    const std::size_t full = columns(name);
    const std::size_t excess = needed - width;
    if (full < excess + kShortestName) {
        return "";
    }
    return compose(progress, shown, fitted(name, full - excess));
}

} // namespace

std::string liveLine(const Progress& progress, std::size_t width) {
    if (progress.doing == Doing::silent) {
        return "";
    }
    for (const Shown& shown : kSteps) {
        if (std::string line = fill(progress, shown, width); !line.empty()) {
            return line;
        }
    }
    return fitted(count(progress), width);
}

std::string plainLine(const Progress& progress) {
    return progress.doing == Doing::silent ? "" : fill(progress, {false, true, true, true}, kUnlimited);
}

} // namespace watch
