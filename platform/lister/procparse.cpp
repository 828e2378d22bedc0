#include "procparse.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "cvutf8.h"

namespace lister {

namespace {

constexpr std::size_t kLongestFitPath = 1023;
constexpr std::string_view kDeleted = " (deleted)";

template <class Number> std::optional<Number> parseWhole(std::string_view text, int base = 10) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return number;
}

/// Cuts the next blank-separated word off `text`; empty when there is none.
std::string_view takeWord(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    const std::size_t length = std::min(text.find_first_of(" \t"), text.size());
    const std::string_view word = text.substr(0, length);
    text.remove_prefix(length);
    return word;
}

bool isOctal(char c) {
    return c >= '0' && c <= '7';
}

bool isOctalEscape(std::string_view text) {
    return text.size() >= 4 && text[0] == '\\' && isOctal(text[1]) && isOctal(text[2]) && isOctal(text[3]);
}

bool isPlainPathCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::string_view("/._-+@:,%").find(c) != std::string_view::npos;
}

/// U+0080 to U+009F are "C2 80" to "C2 9F".
bool isC1(std::string_view sequence) {
    return sequence.size() == 2 && sequence[0] == '\xC2' && static_cast<unsigned char>(sequence[1]) < 0xA0;
}

bool isControl(std::string_view sequence) {
    const auto first = static_cast<unsigned char>(sequence[0]);
    return (sequence.size() == 1 && (first < 0x20 || first == 0x7F)) || isC1(sequence);
}

bool isDigitOrDot(char c) {
    return (c >= '0' && c <= '9') || c == '.';
}

/// "python3.11" is python, "tclsh8.6" is tclsh.
std::string_view withoutVersion(std::string_view name) {
    while (!name.empty() && isDigitOrDot(name.back())) {
        name.remove_suffix(1);
    }
    return name;
}

template <std::size_t Size> bool contains(const std::array<std::string_view, Size>& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

constexpr std::array<std::string_view, 16> kInterpreters = {"sh",   "bash", "dash",   "ksh",    "mksh", "zsh",
                                                            "perl", "ruby", "python", "tclsh",  "lua",  "php",
                                                            "awk",  "gawk", "mawk",   "busybox"};

constexpr std::array<std::string_view, 27> kHostServices = {
    "init",   "upstart",      "runit",     "s6-svscan", "dinit",      "openrc-init",     "dbus-daemon", "dbus-broker",
    "sshd",   "sshd-session", "sshd-auth", "login",     "agetty",     "getty",           "udevd",       "cron",
    "crond",  "rsyslogd",     "syslog-ng", "polkitd",   "containerd", "containerd-shim", "dockerd",     "podman",
    "conmon", "runc",         "crun"};

/// By their beginnings: "nfs4", "fuse.sshfs" and "fuseblk" are among them.
constexpr std::array<std::string_view, 12> kServedTypes = {"fuse", "nfs",  "cifs",   "smb",     "9p",     "afs",
                                                           "ceph", "coda", "lustre", "gluster", "autofs", "virtiofs"};

constexpr std::array<std::string_view, 4> kHostServiceFamilies = {"systemd", "dbus-", "containerd-shim",
                                                                  "NetworkManager"};

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

std::optional<MapsLine> parseMapsLine(std::string_view line) {
    takeWord(line); // addresses
    const std::string_view permissions = takeWord(line);
    takeWord(line);                                 // offset
    const std::string_view device = takeWord(line); // "fe:00", hexadecimal
    const std::size_t colon = std::min(device.find(':'), device.size());
    const auto major = parseWhole<std::uint32_t>(device.substr(0, colon), 16);
    const auto minor = parseWhole<std::uint32_t>(device.substr(std::min(colon + 1, device.size())), 16);
    const auto inode = parseWhole<std::uint64_t>(takeWord(line));
    if (permissions.size() != 4 || !major || !minor || !inode) {
        return std::nullopt;
    }
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    return MapsLine{permissions[2] == 'x', *major, *minor, *inode, line};
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

bool isServedType(std::string_view type) {
    return std::any_of(kServedTypes.begin(), kServedTypes.end(),
                       [type](std::string_view served) { return type.starts_with(served); });
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

std::optional<Shebang> parseShebang(std::string_view firstBytes) {
    if (!firstBytes.starts_with("#!")) {
        return std::nullopt;
    }
    std::string_view line =
        firstBytes.substr(2, firstBytes.find('\n') - std::min<std::size_t>(firstBytes.find('\n'), 2));
    const std::string_view interpreter = takeWord(line);
    return Shebang{interpreter, takeWord(line)};
}

std::optional<std::string_view> scriptArgument(std::string_view commandLine) {
    bool isFirst = true;
    while (!commandLine.empty()) {
        const std::size_t length = std::min(commandLine.find('\0'), commandLine.size());
        const std::string_view argument = commandLine.substr(0, length);
        commandLine.remove_prefix(std::min(length + 1, commandLine.size()));
        if (std::exchange(isFirst, false)) {
            continue;
        }
        if (argument == "-c" || argument == "-e") {
            return std::nullopt;
        }
        if (argument.starts_with("-")) {
            continue;
        }
        return argument.starts_with("/") ? std::optional(argument) : std::nullopt;
    }
    return std::nullopt;
}

std::optional<uid_t> parseEffectiveUid(std::string_view status) {
    constexpr std::string_view kKey = "\nUid:";
    const std::size_t at = status.find(kKey);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view rest = status.substr(at + kKey.size());
    takeWord(rest); // real
    return parseWhole<uid_t>(takeWord(rest));
}

std::optional<std::string_view> withoutDeleted(std::string_view link) {
    if (!link.ends_with(kDeleted)) {
        return std::nullopt;
    }
    return link.substr(0, link.size() - kDeleted.size());
}

bool isBelow(std::string_view path, std::string_view root) {
    return path.size() > root.size() + 1 && path.starts_with(root) && path[root.size()] == '/';
}

std::string_view lastComponent(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

bool isFitPath(std::string_view path) {
    if (path.size() > kLongestFitPath) {
        return false;
    }
    while (!path.empty()) {
        const std::size_t length = utf8::sequenceLength(path);
        if (length == 0 || (length == 1 && !isPlainPathCharacter(path[0])) || isC1(path.substr(0, length))) {
            return false;
        }
        path.remove_prefix(length);
    }
    return true;
}

bool hasControls(std::string_view text) {
    return withoutControls(text) != text;
}

std::string withoutControls(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t length = utf8::sequenceLength(text);
        const std::string_view sequence = text.substr(0, std::max<std::size_t>(length, 1));
        if (length == 0 || isControl(sequence)) {
            shown += '?';
        } else {
            shown += sequence;
        }
        text.remove_prefix(sequence.size());
    }
    return shown;
}

bool isInterpreterName(std::string_view name) {
    return contains(kInterpreters, withoutVersion(name));
}

bool isHostServiceName(std::string_view name) {
    return contains(kHostServices, name) ||
           std::any_of(kHostServiceFamilies.begin(), kHostServiceFamilies.end(),
                       [name](std::string_view family) { return name.starts_with(family); });
}

} // namespace lister
