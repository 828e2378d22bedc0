#include "Lane.h"

#include <algorithm>

#include "Picture.h"
#include "Text.h"
#include "Times.h"
#include "Words.h"

namespace watch {

namespace {

using namespace picture;

// What one process may cost: its texts and its marks are cut to this, and its description goes before the whole is
// larger.
constexpr std::size_t kMostBytes = 1000;
constexpr std::size_t kLabelColumns = 34;
constexpr std::size_t kCommandColumns = 48;
constexpr std::size_t kMostRequestsTold = 5;
constexpr std::size_t kMostMarks = 10;
/// So narrow that it is seen, where a process ended within a pixel.
constexpr double kLeastBar = 1.5;
constexpr double kOutcomeLeft = Axis::kRight + 12;

std::string pidText(int pid) {
    return pid == 0 ? "" : " (" + std::to_string(pid) + ")";
}

/// The name is cut, never its pid.
std::string label(std::string_view name, int pid) {
    const std::string behind = pidText(pid);
    return cut(name, kLabelColumns - behind.size()) + behind;
}

std::string moment(Time time, const Run& run) {
    return inSeconds(time - run.begin);
}

std::string told(const Asked& request, const Run& run) {
    return xml(request.what, kCommandColumns) + " at " + moment(request.time, run) +
           (request.certain ? "" : " (a guess)");
}

std::string requestsTold(const std::vector<Asked>& asked, const Run& run) {
    if (asked.empty()) {
        return "Nothing was asked of it";
    }
    std::string text = "Asked: ";
    const std::size_t count = std::min(asked.size(), kMostRequestsTold);
    for (std::size_t index = 0; index < count; ++index) {
        text.append(index == 0 ? "" : ", ").append(told(asked[index], run));
    }
    return asked.size() == count ? text : text + ", and " + std::to_string(asked.size() - count) + " more";
}

std::string description(const Process& process, const Run& run) {
    const bool isUnknown = isAskingUnknown(process, run);
    std::string text = isUnknown ? "Whether anything was asked of it is not known" : requestsTold(process.asked, run);
    if (process.asked.empty() && !process.certain && !isUnknown) {
        text += " (a guess)";
    }
    if (process.ended) {
        text += "; ended at " + moment(*process.ended, run);
    }
    if (process.gone) {
        text += "; zombie until " + moment(*process.gone, run);
    }
    if (process.reason) {
        text += "; " + std::string(wordOf(kStateWords, process.reason->state));
    }
    return text + (process.excluded ? "; excluded." : ".");
}

Mark markOf(const Asked& request) {
    if (request.kind == Asked::Kind::command) {
        return Mark::command;
    }
    return request.what == "SIGKILL" ? Mark::kill : Mark::signal;
}

std::string marks(const std::vector<Asked>& asked, const Axis& axis) {
    std::string drawn;
    std::size_t count = 0;
    std::string last;
    for (const Asked& request : asked) {
        std::string mark = markAt(markOf(request), axis.x(request.time), request.certain);
        if (mark != last && count < kMostMarks) {
            drawn += mark;
            ++count;
        }
        last = std::move(mark);
    }
    return drawn;
}

/// A thin dashed line where nothing had been asked of it.
std::string alive(double from, double to) {
    return to <= from ? "" : "<path class=\"alive\" d=\"M" + px(from) + " 8H" + px(to) + "\"/>";
}

/// A thin line where it had ended, and its parent had not taken note.
std::string zombie(double from, double to) {
    return to <= from ? "" : "<path class=\"zombie\" d=\"M" + px(from) + " 8H" + px(to) + "\"/>";
}

/// A bar that is open to the right where the process was still there.
std::string bar(const Process& process, double from, double to) {
    if (process.outcome == Outcome::survived) {
        const double tip = std::max(to, from + 4);
        return "<path class=\"survived\" d=\"M" + px(from) + " 5H" + px(tip) + "l5 3l-5 3H" + px(from) + "z\"/>";
    }
    const char* style = process.outcome == Outcome::killed ? "killed" : "bar";
    return "<rect class=\"" + std::string(style) + "\" x=\"" + px(from) + "\" y=\"5\" width=\"" +
           px(std::max(to - from, kLeastBar)) + "\" height=\"6\"/>";
}

std::string course(const Process& process, const Run& run, const Axis& axis) {
    const double begin = axis.x(process.start.value_or(run.begin));
    const double end = axis.x(process.ended.value_or(run.end));
    const std::string after = process.gone ? zombie(end, axis.x(*process.gone)) : "";
    if (process.asked.empty()) {
        return alive(begin, end) + after;
    }
    const double asked = axis.x(process.asked.front().time);
    // One that survives as a zombie is there until the end.
    const double last = process.outcome == Outcome::survived ? axis.x(run.end) : end;
    return alive(begin, std::min(asked, end)) + bar(process, asked, last) + after;
}

/// The texts are XML, but the label and the outcome.
std::string lane(const std::string& id, const std::string& title, const std::string& description,
                 std::string_view shownLabel, std::string_view outcome, const std::string& drawn, double y) {
    const std::string head = "<g" + id + " class=\"lane\" role=\"listitem\" tabindex=\"0\" transform=\"translate(0 " +
                             px(y) + ")\"><title>" + title + "</title>";
    const std::string body = "<rect class=\"row\" x=\"8\" width=\"1184\" height=\"16\"/>" + textAt(16, 12, shownLabel) +
                             drawn + textAt(kOutcomeLeft, 12, outcome, "less") + "</g>\n";
    const std::string told = "<desc>" + description + "</desc>";
    return head.size() + told.size() + body.size() <= kMostBytes ? head + told + body : head + body;
}

std::string idOf(const char* kind, int pid) {
    return std::string(" id=\"") + kind + std::to_string(pid) + "\"";
}

std::string title(std::string_view name, int pid, std::string_view outcome) {
    return xml(label(name, pid), kLabelColumns) + ": " + std::string(outcome);
}

/// What is known of one that may have been asked or not.
std::string_view bareOutcome(const Process& process) {
    return process.outcome == Outcome::spared ? "still there, asked?" : "ended, asked?";
}

} // namespace

std::string outcomeText(const Process& process) {
    const std::string doubt = process.certain ? "" : "?";
    switch (process.outcome) {
    case Outcome::endedUnasked:
        return "ended, not asked" + doubt;
    case Outcome::spared:
        return (process.excluded ? "spared: " : "") + std::string(whyLeftAlone(process)) + doubt;
    case Outcome::survived:
        return isOutcomeGuess(process) ? "still there, asked?" : "still there";
    default:
        break;
    }
    const bool timed = process.ended && !process.asked.empty();
    return std::string(wordOf(kOutcomeWords, process.outcome)) +
           (timed ? " " + inSeconds(std::max<Time>(0, *process.ended - process.asked.front().time)) : "") + doubt;
}

std::string laneOf(const Process& process, const Run& run, const Axis& axis, double y) {
    const bool isUnknown = isAskingUnknown(process, run);
    const std::string outcome =
        isUnknown ? std::string(bareOutcome(process))
                  : std::string(wordOf(kOutcomeWords, process.outcome)) + (isOutcomeGuess(process) ? "?" : "");
    return lane(idOf("p", process.pid), title(process.name, process.pid, outcome), description(process, run),
                label(process.name, process.pid), isUnknown ? outcome : outcomeText(process),
                course(process, run, axis) + marks(process.asked, axis), y);
}

std::string laneOf(const CameBack& process, const Run& run, const Axis& axis, double y) {
    const double start = axis.x(process.start);
    const std::string by = xml(label(process.parent.name, process.parent.pid), kLabelColumns) +
                           (process.unit.empty() ? "" : ", unit " + xml(process.unit, kCommandColumns));
    return lane(idOf("c", process.pid), title(process.name, process.pid, "came back"),
                "Started at " + moment(process.start, run) + ", parent " + by + ".", label(process.name, process.pid),
                "came back", alive(start, axis.x(run.end)) + markAt(Mark::start, start, true), y);
}

std::string laneOf(const Stranger& stranger, const Run& run, const Axis& axis, double y) {
    return lane("", title(stranger.name, stranger.pid, "named by the log alone"),
                requestsTold(stranger.asked, run) + ".", label(stranger.name, stranger.pid), "only in the log",
                marks(stranger.asked, axis), y);
}

} // namespace watch
