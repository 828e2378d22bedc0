#include "LogEvent.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace watch {

namespace {

using Kind = LogEvent::Kind;

/// The numbers of the program's kinds of signal (sig_types) are places here.
constexpr std::array<std::string_view, 5> kSignals = {"SIGHUP", "SIGTERM", "SIGINT", "SIGQUIT", "SIGKILL"};

/// Ends a record that was too long for the log. None is that names a process of a path of up to 1,023 bytes.
constexpr std::string_view kCutMark = " [cut]";

/// The shell's part of a stop command, which says nothing about the command.
constexpr std::string_view kRunInBackground = " > /dev/null 2>&1 &";

std::optional<int> parseNumber(std::string_view text) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return value;
}

bool takePrefix(std::string_view& text, std::string_view prefix) {
    if (!text.starts_with(prefix)) {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

bool takeSuffix(std::string_view& text, std::string_view suffix) {
    if (!text.ends_with(suffix)) {
        return false;
    }
    text.remove_suffix(suffix.size());
    return true;
}

/// "NAME<mark>NUMBER": a name may hold the mark itself, so the last one counts.
bool readNameAndPid(std::string_view text, std::string_view mark, LogEvent& event) {
    const std::size_t position = text.rfind(mark);
    if (position == std::string_view::npos) {
        return false;
    }
    const std::optional<int> pid = parseNumber(text.substr(position + mark.size()));
    event.name = text.substr(0, position);
    event.pid = pid.value_or(0);
    return pid.has_value();
}

/// "Executing "/usr/.../halvd -terminate > /dev/null 2>&1 &""
bool readCommandStarts(std::string_view text, LogEvent& event) {
    if (!takePrefix(text, "Executing \"") || !takeSuffix(text, "\"")) {
        return false;
    }
    takeSuffix(text, kRunInBackground);
    event.what = text;
    return true;
}

/// " Requesting termination of PATH. Return status=0. Command=COMMAND"; the path that a command is made of has no
/// blank.
bool readCommandFor(std::string_view text, LogEvent& event) {
    constexpr std::string_view kStatus = ". Return status=";
    if (!takePrefix(text, " Requesting termination of ") || text.find(kStatus) == std::string_view::npos) {
        return false;
    }
    event.path = text.substr(0, text.find(kStatus));
    return true;
}

/// "Signaling process PATH (3)": a third party's path may itself hold a bracket.
bool readSignal(std::string_view text, LogEvent& event) {
    if (!takePrefix(text, "Signaling process ") || !takeSuffix(text, ")") || !readNameAndPid(text, " (", event)) {
        return false;
    }
    const int kind = std::exchange(event.pid, 0);
    if (kind < 0 || static_cast<std::size_t>(kind) >= kSignals.size()) {
        return false;
    }
    event.path = std::exchange(event.name, {});
    event.what = kSignals[static_cast<std::size_t>(kind)];
    return true;
}

/// "Ignoring process because it is on exclude list, Name = NAME(StopRow:208)"
bool readPassedOver(std::string_view text, LogEvent& event) {
    constexpr std::string_view kReasons[] = {"it is on exclude list", "it is only listed",
                                             "no command is run for a third party"};
    const auto takeReason = [&](std::string_view reason) { return takePrefix(text, reason); };
    if (!takePrefix(text, "Ignoring process because ") ||
        std::none_of(std::begin(kReasons), std::end(kReasons), takeReason) || !takePrefix(text, ", Name = ")) {
        return false;
    }
    const std::size_t location = text.rfind('(');
    event.name = text.substr(0, location);
    return location != std::string_view::npos;
}

/// "Process path PATH matches exclude list entry ENTRY(UserList:105)"; the entry may be cut.
bool readExcluded(std::string_view text, LogEvent& event) {
    const bool fits = takePrefix(text, "Process path ");
    const std::size_t end = text.find(" matches exclude list entry ");
    event.path = fits ? text.substr(0, end) : "";
    return fits && end != std::string_view::npos;
}

bool readRowDone(std::string_view text, LogEvent& event) {
    const bool fits = takePrefix(text, "Terminate request for ");
    event.name = fits ? text : "";
    return fits;
}

bool readSweepOf(std::string_view text, LogEvent& event) {
    return takePrefix(text, "Name=") && readNameAndPid(text, " Pid=", event);
}

bool readNotTerminated(std::string_view text, LogEvent& event) {
    return takeSuffix(text, ") has not terminated") && readNameAndPid(text, "(", event);
}

bool readThirdParty(std::string_view text, LogEvent& event) {
    if (!takePrefix(text, "KILLING ") || !readNameAndPid(text, " PID=", event)) {
        return false;
    }
    event.name.resize(std::min(event.name.size(), event.name.rfind(" ACTION=")));
    return true;
}

bool readListing(std::string_view text, LogEvent& /*event*/) {
    return text.starts_with("Calling find_processes_CV");
}

bool readSweepBegins(std::string_view text, LogEvent& /*event*/) {
    return text == "Looking for remaining processes to shut down";
}

bool readAllTerminated(std::string_view text, LogEvent& /*event*/) {
    return text == "All Corvane processes terminated normally." || text == "All processes terminated normally.";
}

bool readKillBegins(std::string_view text, LogEvent& /*event*/) {
    return text.starts_with("Attempting to kill remaining ");
}

struct Reader {
    std::string_view function;
    Kind kind;
    bool (*read)(std::string_view, LogEvent&);
};

constexpr std::string_view kRow = "terminateAllProcesses";
constexpr std::string_view kSweep = "OrderlyShutdown";
constexpr std::string_view kMatch = "UserList::processMatchesExcludelistEntry";

/// A record is tried against each row of its function. One function's text can never be taken for another's.
constexpr Reader kReaders[] = {
    {"Processes::getProcesses", Kind::listing, readListing},
    {kMatch, Kind::excluded, readExcluded},
    {"executeStop", Kind::commandStarts, readCommandStarts},
    {kRow, Kind::commandFor, readCommandFor},
    {kRow, Kind::passedOver, readPassedOver},
    {"Processes::KillProcess", Kind::signal, readSignal},
    {"Processes::KillProcess", Kind::passedOver, readPassedOver},
    {kSweep, Kind::rowDone, readRowDone},
    {kSweep, Kind::sweepBegins, readSweepBegins},
    {kSweep, Kind::sweepOf, readSweepOf},
    {kSweep, Kind::passedOver, readPassedOver},
    {kSweep, Kind::allTerminated, readAllTerminated},
    {"Processes::WaitForAllDone", Kind::notTerminated, readNotTerminated},
    {"Main", Kind::killBegins, readKillBegins},
    {"Main", Kind::allTerminated, readAllTerminated},
    {"Processes::terminate3rdParty", Kind::thirdParty, readThirdParty},
    {"Processes::terminate3rdParty", Kind::passedOver, readPassedOver},
};

/// Whether a record of that function whose end is missing may have told something.
bool maySay(const LogRecord& record) {
    if (record.function == kMatch) {
        // With more verbosity it also tells of what it compares, and of what does not match.
        const std::string_view text = record.text;
        return text.starts_with("Process path ") && text.find(" does not match exclude list entry ") == text.npos;
    }
    return std::any_of(std::begin(kReaders), std::end(kReaders),
                       [&](const Reader& reader) { return reader.function == record.function; });
}

} // namespace

LogEvent readEvent(const LogRecord& record) {
    for (const Reader& reader : kReaders) {
        LogEvent event;
        if (reader.function == record.function && reader.read(record.text, event)) {
            event.kind = reader.kind;
            event.time = record.time;
            event.ofRow = record.function == kRow;
            return event;
        }
    }
    LogEvent other;
    other.time = record.time;
    if (record.text.ends_with(kCutMark) && maySay(record)) {
        other.kind = Kind::cut;
    }
    return other;
}

} // namespace watch
