#include "Askings.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "cvcategories.h"
#include "cvshutdown.h"

namespace watch {

namespace {

const killDef& rowAt(int row) {
    return KillDefines[static_cast<std::size_t>(row - 1)];
}

/// Whether the row runs a command, which is never done about a third party.
bool runsCommand(const killDef& row) {
    switch (row.killType) {
    case TERMINATE_T:
    case KILL:
    case KILLH:
    case KILL9:
    case NOARGS:
    case SKIP:
        return false;
    default:
        return true;
    }
}

/// Whether the row only marks its processes as handled.
bool onlyMarks(const killDef& row) {
    return row.killType == TERMINATE_T || row.killType == NOARGS || row.killType == SKIP;
}

bool mayBeAsked(const Process& process, int row) {
    return process.category == CAT_CORVANE ||
           (process.category == CAT_THIRD_PARTY && (row == 0 || !runsCommand(rowAt(row))));
}

/// The bytes of a text as the program's log shows it: a control character and a byte that is no UTF-8 stand there as
/// "\xNN".
std::string fromLog(const std::string& text) {
    std::string bytes;
    for (std::size_t position = 0; position < text.size(); ++position) {
        const std::string digits = text.compare(position, 2, "\\x") == 0 ? text.substr(position + 2, 2) : "";
        if (digits.size() == 2 && digits.find_first_not_of("0123456789abcdef") == std::string::npos) {
            bytes += static_cast<char>(std::stoi(digits, nullptr, 16));
            position += 3;
        } else {
            bytes += text[position];
        }
    }
    return bytes;
}

/// The path that the log shows so. A backslash may be one of its own.
std::string pathFromLog(const Lives& lives, const std::string& text) {
    const bool isPlain = text.find('\\') == std::string::npos ||
                         std::any_of(lives.processes.begin(), lives.processes.end(),
                                     [&](const Process& process) { return process.path == text; });
    return isPlain ? text : fromLog(text);
}

std::vector<Candidate> candidatesFor(const Lives& lives, const Batch& batch, const std::string& path) {
    std::vector<Candidate> found;
    for (std::size_t place = 0; place < lives.processes.size(); ++place) {
        const Process& process = lives.processes[place];
        if (process.path == path && mayBeAsked(process, batch.row) && (batch.row == 0 || process.row == batch.row)) {
            const std::optional<Time> ended = process.ended ? *process.ended - lives.resolution : process.ended;
            found.push_back({place, ended, lives.gone[place]});
        }
    }
    return found;
}

void addStranger(Askings& askings, int pid, const std::string& name, const std::vector<Asked>& asked) {
    auto known = std::find_if(askings.strangers.begin(), askings.strangers.end(),
                              [&](const Stranger& one) { return one.pid == pid && one.name == name; });
    if (known == askings.strangers.end()) {
        known = askings.strangers.insert(known, {pid, name, {}});
    }
    known->asked.insert(known->asked.end(), asked.begin(), asked.end());
}

void addRequest(Askings& askings, const Request& request, const std::string& path, const Assignment& meant,
                bool byRow) {
    std::vector<Asked> asked = request.asked;
    for (Asked& one : asked) {
        one.certain = meant.certain;
    }
    if (!meant.process) {
        addStranger(askings, 0, path, asked);
        return;
    }
    for (const Asked& one : asked) {
        askings.of[*meant.process].push_back({one, request.earliest, byRow});
    }
}

/// Requests of one path belong together, whatever stands between them.
void settleBatch(const Lives& lives, const Batch& batch, Askings& askings) {
    std::map<std::string, std::vector<const Request*>> byPath;
    for (const Request& request : batch.requests) {
        byPath[pathFromLog(lives, request.path)].push_back(&request);
    }
    const bool firstOnly = batch.row != 0 && rowAt(batch.row).firstOnly != 0;
    for (const auto& [path, requests] : byPath) {
        const Meant meant = assignRequests(requests, candidatesFor(lives, batch, path), firstOnly, batch.over);
        for (std::size_t place = 0; place < requests.size(); ++place) {
            addRequest(askings, *requests[place], path, meant.requests[place], batch.row != 0);
        }
        for (const std::size_t place : meant.unsure) {
            askings.unsure[place] = true;
        }
    }
}

void settleDirect(const Lives& lives, const Direct& direct, Askings& askings) {
    const auto known = std::find_if(lives.processes.begin(), lives.processes.end(),
                                    [&](const Process& process) { return process.pid == direct.pid; });
    if (known == lives.processes.end()) {
        addStranger(askings, direct.pid, fromLog(direct.name), {direct.asked});
    } else {
        askings.of[static_cast<std::size_t>(known - lives.processes.begin())].push_back(
            {direct.asked, direct.earliest, false});
    }
}

/// An exclude list names files: all that run one of them are excluded.
void settleExcluded(const Lives& lives, const LogStory& story, Askings& askings) {
    std::set<std::string> paths;
    for (const std::string& path : story.excluded()) {
        paths.insert(pathFromLog(lives, path));
    }
    for (std::size_t place = 0; place < lives.processes.size(); ++place) {
        askings.excluded[place] = paths.contains(lives.processes[place].path);
    }
}

bool isAskedByRow(const std::vector<Dated>& asked) {
    return std::any_of(asked.begin(), asked.end(), [](const Dated& dated) { return dated.byRow; });
}

} // namespace

bool isHandled(const Process& process, bool excluded, const std::vector<Dated>& asked) {
    if (excluded || process.category == CAT_OTHER_THIRD_PARTY) {
        return false;
    }
    return process.category == CAT_CORVANE || isAskedByRow(asked) ||
           (process.row != 0 && onlyMarks(rowAt(process.row)));
}

bool rowWaits(int row) {
    return row != 0 && rowAt(row).waitType != WAIT_NONE;
}

std::vector<std::size_t> waitedFor(const Stage& stage, const Lives& lives, const Askings& askings) {
    const bool waitsForAll = stage.kind == Stage::Kind::wait || stage.kind == Stage::Kind::waitAfterKill;
    bool isFirst = true;
    std::vector<std::size_t> places;
    for (std::size_t place = 0; place < lives.processes.size(); ++place) {
        const Process& process = lives.processes[place];
        const std::vector<Dated>& asked = askings.of[place];
        const bool isOfRow =
            rowWaits(stage.row) && process.row == stage.row && (std::exchange(isFirst, false) || isAskedByRow(asked));
        if (isOfRow || (waitsForAll && isHandled(process, askings.excluded[place], asked))) {
            places.push_back(place);
        }
    }
    return places;
}

Askings settleAskings(const Lives& lives, const LogStory& story) {
    const std::size_t count = lives.processes.size();
    Askings askings{
        std::vector<std::vector<Dated>>(count), std::vector<bool>(count, false), std::vector<bool>(count, false), {}};
    settleExcluded(lives, story, askings);
    for (const Batch& batch : story.batches()) {
        settleBatch(lives, batch, askings);
    }
    for (const Direct& direct : story.directs()) {
        settleDirect(lives, direct, askings);
    }
    for (std::vector<Dated>& one : askings.of) {
        std::stable_sort(one.begin(), one.end(),
                         [](const Dated& left, const Dated& right) { return left.asked.time < right.asked.time; });
    }
    return askings;
}

} // namespace watch
