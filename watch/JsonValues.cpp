#include "JsonValues.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>
#include <string_view>

namespace watch::jsonvalues {

namespace {

constexpr int kFirstYear = 1970;
constexpr int kLastYear = 2099;

int hexDigit(char digit) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const std::size_t value = kDigits.find(digit);
    return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

/// The byte that "\xNN" stands for, -1 where `text` begins with no such thing.
int escapedByte(std::string_view text) {
    if (text.size() < 4 || text[1] != 'x' || hexDigit(text[2]) < 0 || hexDigit(text[3]) < 0) {
        return -1;
    }
    return hexDigit(text[2]) * 16 + hexDigit(text[3]);
}

/// The number that digits alone are.
int number(std::string_view digits) {
    int value = 0;
    for (const char digit : digits) {
        value = value * 10 + (digit - '0');
    }
    return value;
}

bool isOfForm(std::string_view text, std::string_view form) {
    return std::equal(text.begin(), text.end(), form.begin(), form.end(), [](char character, char wanted) {
        return wanted == '0' ? character >= '0' && character <= '9' : character == wanted;
    });
}

} // namespace

Place member(const Place& object, const std::string& key) {
    if (!object.value.is_object()) {
        object.refuse("must be an object");
    }
    const auto found = object.value.find(key);
    const std::string path = object.path.empty() ? key : object.path + "." + key;
    if (found == object.value.end()) {
        throw BadValue{path + ": is missing"};
    }
    return {*found, path};
}

/// Numbers above the range of int64 are unsigned ones, and above every range that is asked for.
int whole(const Place& place, std::int64_t least, std::int64_t most) {
    const bool fits = place.value.is_number_unsigned()
                          ? place.value.get<std::uint64_t>() <= static_cast<std::uint64_t>(most)
                          : place.value.is_number_integer() && place.value.get<std::int64_t>() <= most;
    if (!fits || place.value.get<std::int64_t>() < least) {
        place.refuse("must be a whole number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return place.value.get<int>();
}

bool flag(const Place& place) {
    if (!place.value.is_boolean()) {
        place.refuse("must be true or false");
    }
    return place.value.get<bool>();
}

Time seconds(const Place& place, double least) {
    const double value = place.value.is_number() ? place.value.get<double>() : std::numeric_limits<double>::quiet_NaN();
    if (!(value >= least && value <= kMostSeconds)) {
        place.refuse("must be a number of seconds");
    }
    return std::llround(value * static_cast<double>(kSecond));
}

Time date(const Place& place) {
    namespace chrono = std::chrono;
    const std::string written = text(place);
    if (!isOfForm(written, "0000-00-00T00:00:00.000000000Z")) {
        place.refuse("must be a date such as 2026-11-21T19:53:02.123456789Z");
    }
    const auto part = [&](std::size_t position, std::size_t count) {
        return number(std::string_view(written).substr(position, count));
    };
    const chrono::year_month_day day{chrono::year(part(0, 4)), chrono::month(static_cast<unsigned>(part(5, 2))),
                                     chrono::day(static_cast<unsigned>(part(8, 2)))};
    if (!day.ok() || part(0, 4) < kFirstYear || part(0, 4) > kLastYear || part(11, 2) > 23 || part(14, 2) > 59 ||
        part(17, 2) > 59) {
        place.refuse("there is no such date");
    }
    return (chrono::sys_days(day).time_since_epoch() + chrono::hours(part(11, 2)) + chrono::minutes(part(14, 2)) +
            chrono::seconds(part(17, 2)) + chrono::nanoseconds(part(20, 9)))
        .count();
}

std::string text(const Place& place) {
    if (!place.value.is_string()) {
        place.refuse("must be a text");
    }
    std::string bytes;
    std::string_view rest = place.value.get_ref<const std::string&>();
    while (!rest.empty()) {
        const bool escaped = rest[0] == '\\';
        const int byte = escaped ? escapedByte(rest) : static_cast<unsigned char>(rest[0]);
        if (byte <= 0) {
            place.refuse("a backslash stands as \\x5c, a byte that is no UTF-8 as \\xNN, and none is 0");
        }
        bytes += static_cast<char>(byte);
        rest.remove_prefix(escaped ? 4 : 1);
    }
    return bytes;
}

std::string textOrEmpty(const Place& place) {
    return place.value.is_null() ? std::string() : text(place);
}

} // namespace watch::jsonvalues
