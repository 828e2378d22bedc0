#include "logtext.h"

#include <array>
#include <cstdio>
#include <cstdlib>

#include "controls.h"
#include "cvlog.h"
#include "utf8.h"

namespace logtext {

namespace {

void appendEscaped(std::string& line, char byte) {
    switch (byte) {
    case '\n':
        line += "\\n";
        return;
    case '\r':
        line += "\\r";
        return;
    case '\t':
        line += "\\t";
        return;
    default:
        break;
    }
    constexpr char kDigits[] = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(byte);
    line += "\\x";
    line += kDigits[value >> 4U];
    line += kDigits[value & 0xFU];
}

/// Appends the first character of `rest`, escaped where it must be, and takes it off `rest`.
void moveOneCharacter(std::string& line, std::string_view& rest) {
    const std::size_t valid = utf8::sequenceLength(rest);
    const std::string_view sequence = rest.substr(0, valid == 0 ? 1 : valid);
    if (valid == 0 || controls::isControl(sequence)) {
        for (const char byte : sequence) {
            appendEscaped(line, byte);
        }
    } else {
        line += sequence;
    }
    rest.remove_prefix(sequence.size());
}

std::string head(const Record& record) {
    std::string text = timestamp(record.when, record.nanoseconds);
    text.append(" ").append(record.host.empty() ? "-" : record.host);
    text.append(" ").append(record.process).append("[").append(std::to_string(record.pid)).append("] ");
    text.append(record.label).append(" ").append(record.function).append(": ");
    return text;
}

std::string_view withoutFinalNewline(std::string_view text) {
    if (text.ends_with('\n')) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace

/// Not strftime, whose %z has no colon.
std::string timestamp(const std::tm& when, long nanoseconds) {
    const long offset = std::labs(when.tm_gmtoff) / 60;
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02d.%06ld%c%02ld:%02ld", when.tm_year + 1900,
                  when.tm_mon + 1, when.tm_mday, when.tm_hour, when.tm_min, when.tm_sec, nanoseconds / 1000,
                  when.tm_gmtoff < 0 ? '-' : '+', offset / 60, offset % 60);
    return text.data();
}

std::string recordLine(const Record& record) {
    const std::string whole = head(record).append(withoutFinalNewline(record.text));
    constexpr std::size_t kRoom = kMaxLine - 1;
    std::string_view rest = whole;
    // `cut` is the last place between two characters where the mark would still fit.
    std::string line;
    std::size_t cut = 0;
    while (!rest.empty() && line.size() <= kRoom) {
        moveOneCharacter(line, rest);
        if (line.size() <= kRoom - kCutMark.size()) {
            cut = line.size();
        }
    }
    if (line.size() > kRoom) {
        line.resize(cut);
        line += kCutMark;
    }
    line += '\n';
    return line;
}

std::string levelLabel(int level) {
    switch (level) {
    case kLogProgress:
        return "info";
    case kLogWarning:
        return "warning";
    case kLogError:
        return "error";
    default:
        return "level" + std::to_string(level);
    }
}

} // namespace logtext
