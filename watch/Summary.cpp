#include "Summary.h"

#include <algorithm>

#include "Times.h"
#include "Words.h"

namespace watch {

namespace {

constexpr Time kMillisecond = kSecond / 1000;

/// Of one that may have been asked or not, no more is known than whether it is there.
Outcome knownOutcome(const Process& process, const Run& run) {
    if (!isAskingUnknown(process, run)) {
        return process.outcome;
    }
    return process.outcome == Outcome::spared ? Outcome::survived : Outcome::ended;
}

std::string counted(const Run& run, Outcome outcome, const char* words, const char* ofOne = nullptr) {
    const auto count = std::count_if(run.processes.begin(), run.processes.end(),
                                     [&](const Process& process) { return knownOutcome(process, run) == outcome; });
    return count == 0 ? "" : ", " + std::to_string(count) + (count == 1 && ofOne != nullptr ? ofOne : words);
}

std::string unknown(const Run& run) {
    if (run.logComplete || run.processes.empty()) {
        return "";
    }
    const bool isSomeoneAsked = std::any_of(run.processes.begin(), run.processes.end(),
                                            [](const Process& process) { return !process.asked.empty(); });
    return isSomeoneAsked ? "; who was asked is known only in part" : "; who was asked is not known";
}

std::string lastComponent(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

} // namespace

std::string headline(const Run& run) {
    const std::size_t count = run.processes.size();
    std::string text = run.host + ": ";
    text += run.observed ? std::to_string(count) + (count == 1 ? " process" : " processes") : "processes not seen";
    text += " in " + inSeconds(run.end - run.begin);
    text += counted(run, Outcome::ended, " ended") +
            counted(run, Outcome::endedUnasked, " ended before they were asked", " ended before it was asked") +
            counted(run, Outcome::killed, " killed") + counted(run, Outcome::survived, " still there") +
            counted(run, Outcome::spared, " spared") + unknown(run);
    return text + (run.status ? "; status " + std::to_string(*run.status)
                              : "; ended by signal " + std::to_string(run.signal.value_or(0)));
}

std::string commandLine(const Run& run) {
    std::string text = run.arguments.empty() ? "" : lastComponent(run.arguments.front());
    for (std::size_t index = 1; index < run.arguments.size(); ++index) {
        text += " " + run.arguments[index];
    }
    const std::string began = date(run.begin);
    text += ", " + began.substr(0, 10) + " " + began.substr(11, 8) + " UTC";
    const std::string exact = exactness(run);
    return exact.empty() ? text : text + "; " + exact;
}

std::string exactness(const Run& run) {
    return run.resolution == 0 ? "" : "ends are exact to " + std::to_string(run.resolution / kMillisecond) + " ms";
}

} // namespace watch
