#include "Times.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>

namespace watch {

/// Not gmtime, which reads the host's time zone first.
std::string date(Time moment) {
    using namespace std::chrono;
    const sys_time<nanoseconds> time{nanoseconds(moment)};
    const sys_days day = floor<days>(time);
    const year_month_day calendar{day};
    const hh_mm_ss<nanoseconds> clock{time - day};
    std::array<char, 64> shown{};
    std::snprintf(shown.data(), shown.size(), "%04d-%02u-%02uT%02d:%02d:%02d.%09dZ", static_cast<int>(calendar.year()),
                  static_cast<unsigned>(calendar.month()), static_cast<unsigned>(calendar.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
    return shown.data();
}

std::string decimal(double number, int digits) {
    // A double of Time has at most 10 digits before its point, and nobody asks for more than 9 behind it.
    std::array<char, 400> text{};
    const std::to_chars_result end =
        std::to_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed, digits);
    return {text.data(), end.ptr};
}

std::string inSeconds(Time length) {
    const double seconds = static_cast<double>(length) / static_cast<double>(kSecond);
    return decimal(seconds, seconds < 9.995 ? 2 : 1) + " s";
}

std::string roughly(Time length) {
    constexpr struct {
        Time seconds;
        const char* unit;
    } kUnits[] = {{86'400, " d"}, {3'600, " h"}, {60, " min"}, {1, " s"}};
    Time rest = length / kSecond;
    std::string text;
    for (const auto& unit : kUnits) {
        const bool isSecond = !text.empty();
        if (rest >= unit.seconds || (isSecond && rest > 0)) {
            const Time count = rest / unit.seconds;
            text += count == 0 ? "" : (isSecond ? " " : "") + std::to_string(count) + unit.unit;
        }
        rest %= unit.seconds;
        if (isSecond) {
            break;
        }
    }
    return text.empty() ? "0 s" : text;
}

} // namespace watch
