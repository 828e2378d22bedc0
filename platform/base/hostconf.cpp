#include "hostconf.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <sstream>

#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "UniqueFd.h"
#include "address.h"
#include "cvlog.h"
#include "cvpaths.h"

namespace hostconf {

namespace {

using boost::property_tree::ptree;

constexpr int kMaxVerbosity = 99;

/// HOST_NAME_MAX is 64 on Linux; a full domain name has at most 253 bytes.
constexpr std::size_t kMaxNameLength = 253;

/// How much of a bad value the error repeats.
constexpr std::size_t kShownValueLength = 64;

// PropertyTree's own conversions are not used: they read "5x" as 5 and an empty value as a value.

bool setRole(const std::string& value, CV_master_config& config) {
    config.isServer = value == "server";
    return config.isServer || value == "client";
}

/// The name stands in every log record, between blanks.
bool setName(const std::string& value, CV_master_config& config) {
    config.name = value;
    return !value.empty() && value.size() <= kMaxNameLength &&
           std::all_of(value.begin(), value.end(), [](char byte) { return byte > ' ' && byte < '\x7F'; });
}

bool setVerbosity(const std::string& value, CV_master_config& config) {
    const char* end = value.data() + value.size();
    const auto result = std::from_chars(value.data(), end, config.verbosity);
    return result.ec == std::errc() && result.ptr == end && config.verbosity >= 0 && config.verbosity <= kMaxVerbosity;
}

bool setStatsd(const std::string& value, CV_master_config& config) {
    NumericAddress address;
    config.statsd = value;
    return parseNumericAddress(value, address);
}

struct Key {
    std::string_view section;
    std::string_view name;
    /// Takes the value over; false when it is bad.
    bool (*set)(const std::string& value, CV_master_config& config);
};

/// Every key there is; all others are unknown.
constexpr Key kKeys[] = {
    {"host", "role", setRole},
    {"host", "name", setName},
    {"logging", "verbosity", setVerbosity},
    {"telemetry", "statsd", setStatsd},
};

std::string shown(std::string_view section, std::string_view key) {
    std::string text;
    if (!section.empty()) {
        text.append("[").append(section).append("] ");
    }
    return text.append(key);
}

/// Returns the error, empty for none.
std::string takeKey(std::string_view section, std::string_view name, const std::string& value, Outcome& outcome) {
    for (const Key& key : kKeys) {
        if (key.section == section && key.name == name) {
            return key.set(value, outcome.config)
                       ? ""
                       : shown(section, name) + ": bad value '" + value.substr(0, kShownValueLength) + "'";
        }
    }
    outcome.unknownKeys.push_back(shown(section, name));
    return {};
}

std::string takeSection(const std::string& name, const ptree& section, Outcome& outcome) {
    for (const auto& [key, value] : section) {
        std::string error = takeKey(name, key, value.data(), outcome);
        if (!error.empty()) {
            return error;
        }
    }
    return {};
}

/// A child of the tree's root that has children is a section, else a key that stands before the first section: the
/// parser drops empty sections.
std::string takeTree(const ptree& tree, Outcome& outcome) {
    for (const auto& [name, child] : tree) {
        std::string error =
            child.empty() ? takeKey("", name, child.data(), outcome) : takeSection(name, child, outcome);
        if (!error.empty()) {
            return error;
        }
    }
    return tree.get_child_optional("host.role") ? "" : "[host] role: missing";
}

std::string atLine(std::size_t line, const std::string& what) {
    return "line " + std::to_string(line) + ": " + what;
}

std::string_view trimmed(std::string_view line) {
    constexpr std::string_view kBlanks = " \t\r\v\f";
    const std::size_t begin = line.find_first_not_of(kBlanks);
    return begin == std::string_view::npos ? "" : line.substr(begin, line.find_last_not_of(kBlanks) - begin + 1);
}

/// What the parser does not mind: bytes of value 0, text after a section's name, and a section that comes back after an
/// empty one of its name.
std::string findBadLine(std::string_view text) {
    std::vector<std::string_view> sections;
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.find('\0') != std::string_view::npos) {
            return atLine(number, "NUL byte");
        }
        if (!line.starts_with('[')) {
            continue;
        }
        const std::size_t bracket = line.find(']');
        if (bracket != line.size() - 1) {
            return atLine(number, "a section is a name in brackets and nothing else");
        }
        const std::string_view section = trimmed(line.substr(1, bracket - 1));
        if (std::find(sections.begin(), sections.end(), section) != sections.end()) {
            return atLine(number, "duplicate section name");
        }
        sections.push_back(section);
    }
    return {};
}

/// Returns an errno value. O_NONBLOCK: the start of the program must not hang on a FIFO in the file's place.
int readWhole(const char* path, std::string& text) {
    const UniqueFd fd(::open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    struct stat status {};
    if (!fd || ::fstat(fd.get(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    char part[4096];
    ssize_t got = 0;
    while (text.size() <= kMaxFileSize && (got = ::read(fd.get(), part, sizeof part)) > 0) {
        text.append(part, static_cast<std::size_t>(got));
    }
    return got < 0 ? errno : text.size() > kMaxFileSize ? EFBIG : 0;
}

std::string systemName() {
    std::array<char, 256> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

/// The system log, because the debug log is not open yet. Where there is none, nothing is said.
void report(const std::string& error) {
    ::openlog(product::kProgramName, LOG_PID, LOG_USER);
    ::syslog(LOG_ERR, "%s", error.c_str());
    ::closelog();
}

CV_master_config& current() {
    static CV_master_config config;
    return config;
}

std::vector<std::string>& unknownKeysToLog() {
    static std::vector<std::string> keys;
    return keys;
}

/// Once for each key: the log was not open when the file was read.
void logUnknownKeys() {
    for (const std::string& key : unknownKeysToLog()) {
        logmsgf(kLogWarning, "CV_read_master_config", "Ignoring unknown key in %s: %s", product::kHostConfiguration,
                key.c_str());
    }
    unknownKeysToLog().clear();
}

/// Host names do not mind case, RFC 4343.
bool isSameHost(const char* host, const std::string& name) {
    return !name.empty() && ::strcasecmp(host, name.c_str()) == 0;
}

} // namespace

Outcome parse(std::string_view text, const std::string& systemName) {
    Outcome outcome;
    outcome.config.name = systemName;
    outcome.error = findBadLine(text);
    if (!outcome.error.empty()) {
        return outcome;
    }
    try {
        std::istringstream stream{std::string(text)};
        ptree tree;
        boost::property_tree::read_ini(stream, tree);
        outcome.error = takeTree(tree, outcome);
    } catch (const boost::property_tree::ini_parser_error& failure) {
        outcome.error = atLine(failure.line(), failure.message());
    }
    return outcome;
}

Outcome readFile(const char* path) {
    std::string text;
    const int failure = readWhole(path, text);
    Outcome outcome;
    if (failure != 0) {
        outcome.error = std::strerror(failure);
    } else {
        outcome = parse(text, systemName());
    }
    if (!outcome.error.empty()) {
        outcome.error = std::string(path) + ": " + outcome.error;
    }
    return outcome;
}

int adopt(const Outcome& outcome) {
    if (!outcome.error.empty()) {
        return -1;
    }
    current() = outcome.config;
    unknownKeysToLog() = outcome.unknownKeys;
    return 0;
}

int load(const char* path) {
    const Outcome outcome = readFile(path);
    if (!outcome.error.empty()) {
        report(outcome.error);
    }
    return adopt(outcome);
}

} // namespace hostconf

int CV_read_master_config() {
    return hostconf::load(product::kHostConfiguration);
}

const CV_master_config* get_master_config_ptr() {
    return &hostconf::current();
}

int hask_is_server(const char* host) {
    hostconf::logUnknownKeys();
    if (host == nullptr || !hostconf::current().isServer) {
        return 0;
    }
    const bool isThisHost = ::strcasecmp(host, "localhost") == 0 ||
                            hostconf::isSameHost(host, hostconf::current().name) ||
                            hostconf::isSameHost(host, hostconf::systemName());
    return isThisHost ? 1 : 0;
}
