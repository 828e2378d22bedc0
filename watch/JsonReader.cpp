#include <algorithm>
#include <limits>

#include <nlohmann/json.hpp>

#include "Json.h"
#include "JsonValues.h"
#include "cvcategories.h"

namespace watch {

namespace {

using namespace jsonvalues;

/// Linux gives no higher pid (PID_MAX_LIMIT).
constexpr std::int64_t kMostPid = 4'194'304;
constexpr std::int64_t kMostRow = 100'000;
int pid(const Place& place) {
    return whole(place, 1, kMostPid);
}
/// A parent in another pid namespace has none.
int pidOrNone(const Place& place) {
    return whole(place, 0, kMostPid);
}
int row(const Place& place) {
    return whole(place, 1, kMostRow);
}

Peer peer(const Place& place) {
    return {pidOrNone(member(place, "pid")), textOrEmpty(member(place, "name"))};
}

int category(const Place& place) {
    const int value = whole(place, CAT_CORVANE, CAT_OTHER_THIRD_PARTY);
    if (value != CAT_CORVANE && value != CAT_THIRD_PARTY && value != CAT_OTHER_THIRD_PARTY) {
        place.refuse("must be 1, 2 or 4");
    }
    return value;
}

/// The document's parts; moments are made absolute again.
class Reader {
  public:
    Run document(const Json& json) {
        const Place root{json, ""};
        if (!json.is_object()) {
            throw BadValue{"the document must be an object"};
        }
        if (whole(member(root, "version"), 1, std::numeric_limits<int>::max()) != kJsonVersion) {
            member(root, "version").refuse("only version " + std::to_string(kJsonVersion) + " is known");
        }
        Run run = head(member(root, "run"));
        run.stages = list(member(root, "stages"), [&](const Place& place) { return stage(place); });
        run.processes = list(member(root, "processes"), [&](const Place& place) { return process(place); });
        run.strangers = list(member(root, "not_in_snapshot"), [&](const Place& place) { return stranger(place); });
        run.cameBack = list(member(root, "came_back"), [&](const Place& place) { return cameBack(place); });
        return run;
    }

  private:
    Run head(const Place& place) {
        Run run;
        run.begin = m_begin = date(member(place, "begin"));
        run.arguments = list(member(place, "arguments"), text);
        run.host = text(member(place, "host"));
        run.pid = pid(member(place, "pid"));
        run.end = moment(member(place, "end"));
        run.status = optional(member(place, "status"), [](const Place& value) { return whole(value, 0, 255); });
        run.signal = optional(member(place, "signal"), [](const Place& value) { return whole(value, 1, 127); });
        if (run.status.has_value() == run.signal.has_value()) {
            place.refuse("either status or signal must be null");
        }
        run.resolution = seconds(member(place, "resolution"), 0);
        run.observed = flag(member(place, "observed"));
        run.logComplete = flag(member(place, "log_complete"));
        run.notes = list(member(place, "notes"), text);
        return run;
    }

    [[nodiscard]] Stage stage(const Place& place) const {
        Stage stage;
        stage.kind = oneOf(kStageWords, member(place, "kind"));
        stage.row = optional(member(place, "row"), row).value_or(0);
        stage.name = textOrEmpty(member(place, "name"));
        stage.begin = moment(member(place, "begin"));
        stage.end = moment(member(place, "end"));
        stage.waitedFor = list(member(place, "waited_for"), pid);
        return stage;
    }

    [[nodiscard]] Process process(const Place& place) const {
        Process process;
        process.pid = pid(member(place, "pid"));
        process.name = text(member(place, "name"));
        process.path = text(member(place, "path"));
        process.category = category(member(place, "category"));
        process.excluded = flag(member(place, "excluded"));
        process.row = optional(member(place, "row"), row).value_or(0);
        process.parent = peer(member(place, "parent"));
        process.unit = textOrEmpty(member(place, "unit"));
        process.start = optional(member(place, "start"), [&](const Place& value) { return moment(value); });
        process.asked = asked(member(place, "asked"));
        process.ended = optional(member(place, "ended"), [&](const Place& value) { return moment(value); });
        process.gone = optional(member(place, "gone"), [&](const Place& value) { return moment(value); });
        process.outcome = oneOf(kOutcomeWords, member(place, "outcome"));
        process.certain = flag(member(place, "certain"));
        process.reason = optional(member(place, "reason"), reason);
        return process;
    }

    [[nodiscard]] Stranger stranger(const Place& place) const {
        return {optional(member(place, "pid"), pid).value_or(0), text(member(place, "name")),
                asked(member(place, "asked"))};
    }

    [[nodiscard]] CameBack cameBack(const Place& place) const {
        return {pid(member(place, "pid")),           text(member(place, "name")),   text(member(place, "path")),
                category(member(place, "category")), peer(member(place, "parent")), textOrEmpty(member(place, "unit")),
                moment(member(place, "start"))};
    }

    [[nodiscard]] Time moment(const Place& place) const { return m_begin + seconds(place); }

    [[nodiscard]] std::vector<Asked> asked(const Place& requests) const {
        return list(requests, [&](const Place& place) {
            const Asked::Kind kind = oneOf(kAskedWords, member(place, "kind"));
            return Asked{moment(member(place, "time")), kind,
                         text(member(place, std::string(wordOf(kAskedWords, kind)))), flag(member(place, "certain"))};
        });
    }

    static Reason reason(const Place& place) {
        return {oneOf(kStateWords, member(place, "state")), textOrEmpty(member(place, "function")),
                optional(member(place, "tracer"), peer),    seconds(member(place, "age"), 0),
                list(member(place, "ignores"), text),       list(member(place, "blocks"), text)};
    }

    Time m_begin = 0;
};

std::size_t lineOf(std::string_view text, std::size_t byte) {
    const auto before = text.substr(0, byte == 0 ? 0 : byte - 1);
    return 1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
}

} // namespace

ReadRun fromJson(std::string_view text) {
    try {
        return {Reader().document(Json::parse(text)), ""};
    } catch (const Json::parse_error& error) {
        return {{}, "line " + std::to_string(lineOf(text, error.byte)) + ": is no JSON"};
    } catch (const Json::exception&) {
        // A number that no double can hold, the one other thing that its parser refuses.
        return {{}, "holds a number that is too large"};
    } catch (const BadValue& bad) {
        return {{}, bad.what};
    }
}

} // namespace watch
