#include "procparse.h"

#include <algorithm>
#include <charconv>

#include "words.h"

namespace lister {

namespace {

constexpr std::string_view kDeleted = " (deleted)";

template <class Number> std::optional<Number> parseWhole(std::string_view text, int base = 10) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

/// What follows the key on its line; empty where there is no such line.
std::string_view behindKey(std::string_view text, std::string_view key) {
    const std::size_t at = text.find(key);
    if (at == std::string_view::npos) {
        return "";
    }
    const std::string_view rest = text.substr(at + key.size());
    return rest.substr(0, rest.find('\n'));
}

bool isOctal(char c) {
    return c >= '0' && c <= '7';
}

bool isOctalEscape(std::string_view text) {
    return text.size() >= 4 && text[0] == '\\' && isOctal(text[1]) && isOctal(text[2]) && isOctal(text[3]);
}

} // namespace

std::optional<pid_t> parsePid(std::string_view name) {
    if (name.empty() || name[0] < '1' || name[0] > '9') {
        return std::nullopt;
    }
    return parseWhole<pid_t>(name);
}

std::optional<StatLine> parseStat(std::string_view text) {
    const std::size_t open = text.find('(');
    const std::size_t close = text.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
        return std::nullopt;
    }
    std::string_view rest = text.substr(close + 1);
    const std::string_view state = takeWord(rest);
    const std::optional<pid_t> parent = parseWhole<pid_t>(takeWord(rest));
    if (state.size() != 1 || !parent) {
        return std::nullopt;
    }
    return StatLine{text.substr(open + 1, close - open - 1), state[0], *parent};
}

std::optional<std::uint64_t> parseArgumentsEnd(std::string_view stat) {
    constexpr int kFieldBehindName = 3;
    constexpr int kArgumentsEnd = 49;
    const std::size_t close = stat.rfind(')');
    if (close == std::string_view::npos) {
        return std::nullopt;
    }
    stat.remove_prefix(close + 1);
    for (int field = kFieldBehindName; field < kArgumentsEnd; ++field) {
        takeWord(stat);
    }
    return parseWhole<std::uint64_t>(takeWord(stat));
}

std::optional<MapsLine> parseMapsLine(std::string_view line) {
    const std::string_view addresses = takeWord(line); // "55c0-55d0", hexadecimal
    const std::size_t dash = std::min(addresses.find('-'), addresses.size());
    const auto begin = parseWhole<std::uint64_t>(addresses.substr(0, dash), 16);
    const auto end = parseWhole<std::uint64_t>(addresses.substr(std::min(dash + 1, addresses.size())), 16);
    const std::string_view permissions = takeWord(line);
    takeWord(line);                                 // offset
    const std::string_view device = takeWord(line); // "fe:00", hexadecimal
    const std::size_t colon = std::min(device.find(':'), device.size());
    const auto major = parseWhole<std::uint32_t>(device.substr(0, colon), 16);
    const auto minor = parseWhole<std::uint32_t>(device.substr(std::min(colon + 1, device.size())), 16);
    const auto inode = parseWhole<std::uint64_t>(takeWord(line));
    if (!begin || !end || permissions.size() != 4 || !major || !minor || !inode) {
        return std::nullopt;
    }
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    return MapsLine{*begin, *end, permissions[2] == 'x', *major, *minor, *inode, line};
}

std::optional<MountLine> parseMountLine(std::string_view line) {
    const std::optional<std::uint64_t> id = parseWhole<std::uint64_t>(takeWord(line));
    takeWord(line); // parent
    takeWord(line); // device
    takeWord(line); // root in the file system
    const std::string_view mountPoint = takeWord(line);
    if (!id || mountPoint.empty() || mountPoint[0] != '/') {
        return std::nullopt;
    }
    const std::size_t separator = line.find(" - ");
    std::string_view behind = separator == std::string_view::npos ? "" : line.substr(separator + 3);
    return MountLine{*id, unescapeOctal(mountPoint), std::string(takeWord(behind))};
}

std::string unescapeOctal(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        if (isOctalEscape(text)) {
            plain += static_cast<char>(((text[1] - '0') << 6) | ((text[2] - '0') << 3) | (text[3] - '0'));
            text.remove_prefix(4);
        } else {
            plain += text[0];
            text.remove_prefix(1);
        }
    }
    return plain;
}

std::optional<uid_t> parseEffectiveUid(std::string_view status) {
    std::string_view rest = behindKey(status, "\nUid:");
    takeWord(rest); // real
    return parseWhole<uid_t>(takeWord(rest));
}

std::optional<std::uint64_t> parseMountId(std::string_view fdinfo) {
    std::string_view rest = behindKey(fdinfo, "\nmnt_id:");
    return parseWhole<std::uint64_t>(takeWord(rest));
}

std::optional<std::string_view> withoutDeleted(std::string_view link) {
    if (!link.ends_with(kDeleted)) {
        return std::nullopt;
    }
    return link.substr(0, link.size() - kDeleted.size());
}

std::string_view pathOfLink(std::string_view link) {
    return withoutDeleted(link).value_or(link);
}

} // namespace lister
