#include "LogRecord.h"

#include <charconv>
#include <chrono>

namespace watch {

namespace {

constexpr std::size_t kTimestampLength = 32;
constexpr std::string_view kTimestampForm = "dddd-dd-ddTdd:dd:dd.dddddd+dd:dd";

/// 2^63 nanoseconds end in April 2262.
constexpr std::chrono::year kLastYear(2261);

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool hasForm(std::string_view text) {
    if (text.size() != kTimestampLength) {
        return false;
    }
    for (std::size_t position = 0; position < text.size(); ++position) {
        const char form = kTimestampForm[position];
        const bool fits = form == 'd'   ? isDigit(text[position])
                          : form == '+' ? text[position] == '+' || text[position] == '-'
                                        : text[position] == form;
        if (!fits) {
            return false;
        }
    }
    return true;
}

/// The number that stands there; the form was checked.
Time numberAt(std::string_view text, std::size_t position, std::size_t length) {
    Time value = 0;
    std::from_chars(text.data() + position, text.data() + position + length, value);
    return value;
}

std::optional<Time> parseTimestamp(std::string_view text) {
    if (!hasForm(text)) {
        return std::nullopt;
    }
    const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(numberAt(text, 0, 4))),
                                           std::chrono::month(static_cast<unsigned>(numberAt(text, 5, 2))),
                                           std::chrono::day(static_cast<unsigned>(numberAt(text, 8, 2))));
    // What does not fit into a Time is no moment at which the program wrote.
    if (!date.ok() || date.year() < std::chrono::year(1970) || date.year() > kLastYear) {
        return std::nullopt;
    }
    const Time days = std::chrono::sys_days(date).time_since_epoch().count();
    const Time offset = numberAt(text, 27, 2) * 3600 + numberAt(text, 30, 2) * 60;
    const Time local = days * 86400 + numberAt(text, 11, 2) * 3600 + numberAt(text, 14, 2) * 60 + numberAt(text, 17, 2);
    const Time microseconds = numberAt(text, 20, 6);
    return (text[26] == '-' ? local + offset : local - offset) * kSecond + microseconds * 1000;
}

/// Takes what stands before `end` off the front of `rest`, and `end` with it.
std::optional<std::string_view> takeUntil(std::string_view& rest, std::string_view end) {
    const std::size_t position = rest.find(end);
    if (position == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view taken = rest.substr(0, position);
    rest.remove_prefix(position + end.size());
    return taken;
}

/// Reads "HOST PROCESS[PID" and takes it apart.
bool parseWriter(std::string_view writer, LogRecord& record) {
    const std::size_t bracket = writer.rfind('[');
    const std::size_t blank = writer.rfind(' ', bracket);
    if (bracket == std::string_view::npos || blank == std::string_view::npos) {
        return false;
    }
    record.process = writer.substr(blank + 1, bracket - blank - 1);
    const std::string_view digits = writer.substr(bracket + 1);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), record.pid);
    return error == std::errc() && end == digits.data() + digits.size() && record.pid > 0;
}

} // namespace

std::optional<LogRecord> parseLogRecord(std::string_view line) {
    LogRecord record;
    const std::optional<Time> time = parseTimestamp(line.substr(0, kTimestampLength));
    if (!time || line.size() <= kTimestampLength || line[kTimestampLength] != ' ') {
        return std::nullopt;
    }
    record.time = *time;
    std::string_view rest = line.substr(kTimestampLength + 1);
    const std::optional<std::string_view> writer = takeUntil(rest, "] ");
    const std::optional<std::string_view> level = takeUntil(rest, " ");
    const std::optional<std::string_view> function = takeUntil(rest, ": ");
    if (!writer || !level || !function || !parseWriter(*writer, record)) {
        return std::nullopt;
    }
    record.level = *level;
    record.function = *function;
    record.text = rest;
    return record;
}

} // namespace watch
