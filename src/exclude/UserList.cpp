#include "UserList.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include <sys/stat.h>

#include "DebugLine.h"

namespace {

constexpr char kUnit[] = "UserList";
constexpr char kBlanks[] = " \t";

/// Drops blanks and tabs around the text. A line of nothing else stays as it is, so that the log shows what stood
/// there.
std::string trim(const std::string& line) {
    const std::size_t first = line.find_first_not_of(kBlanks);
    if (first == std::string::npos) {
        return line;
    }
    return line.substr(first, line.find_last_not_of(kBlanks) - first + 1);
}

bool isComment(const std::string& line) {
    return line.compare(0, 1, "#") == 0;
}

/// A path in either convention; it need be neither absolute nor the name of an existing file.
bool isPath(const std::string& line) {
    return line.find('/') != std::string::npos || line.find('\\') != std::string::npos;
}

bool isSameFile(const struct stat& left, const struct stat& right) {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

} // namespace

bool UserList::setProcessExcludelist(const std::string& file) {
    constexpr char kFunction[] = "UserList::setProcessExcludelist";
    debugLine(DebugGate::LoggerExists, 1, {kUnit, kFunction}, "Parsing exclude list file: ", file);
    std::ifstream in(file);
    if (!in.is_open()) {
        debugLine(DebugGate::LoggerExists, 1, {kUnit, kFunction}, "Failed to open the exclude list file ", file,
                  ",not using exclude list file.");
        return false;
    }
    std::string line;
    while (std::getline(in, line, '\n')) {
        takeLine(trim(line));
    }
    debugLine(DebugGate::LoggerExists, 1, {kUnit, kFunction}, "Succesfully parsed exclude list file.");
    return true;
}

void UserList::takeLine(const std::string& line) {
    constexpr char kFunction[] = "UserList::setProcessExcludelist";
    if (isComment(line)) {
        debugLine(DebugGate::VerbosityAbove4, 5, {kUnit, kFunction}, "Skipping comment: ", line);
    } else if (isPath(line)) {
        entries.push_back(line);
        debugLine(DebugGate::VerbosityAbove4, 5, {kUnit, kFunction}, "Saved exclude list entry:", line);
        debugLine(DebugGate::VerbosityAbove4, 5, {kUnit, kFunction}, "Vector Length: ", entries.size());
    } else {
        debugLine(DebugGate::LoggerExists, 1, {kUnit, kFunction},
                  "Unrecognized line. exclude list entry must be a full path that contains / or \\: ", line);
    }
}

bool UserList::processExcludelistContains(const std::string& processPath) const {
    debugLine(DebugGate::VerbosityAbove0, 1, {kUnit, "UserList::processExcludelistContains"},
              "Searching exclude list for process: ", processPath);
    for (const std::string& entry : entries) {
        if (processMatchesExcludelistEntry(processPath, entry)) {
            return true;
        }
    }
    return false;
}

bool UserList::processMatchesExcludelistEntry(const std::string& processPath, const std::string& entry) const {
    constexpr char kFunction[] = "UserList::processMatchesExcludelistEntry";
    debugLine(DebugGate::VerbosityAbove4, 5, {kUnit, kFunction}, "Comparing exclude list paths: ", processPath, " and ",
              entry);
    struct stat processStatus = {};
    errno = 0;
    if (stat(processPath.c_str(), &processStatus) != 0) {
        debugLine(DebugGate::VerbosityAbove4, 5, {kUnit, kFunction}, "stat failed for process path: ", processPath,
                  "error is: ", std::strerror(errno));
        return false;
    }
    struct stat entryStatus = {};
    if (stat(entry.c_str(), &entryStatus) != 0) {
        debugLine(DebugGate::VerbosityAbove4, 5, {kUnit, kFunction}, "stat failed for exclude list entry: ", entry,
                  "error is: ", std::strerror(errno));
        return false;
    }
    if (!isSameFile(processStatus, entryStatus)) {
        debugLine(DebugGate::VerbosityAbove4, 5, {kUnit, kFunction}, "Process path ", processPath,
                  " does not match exclude list entry ", entry);
        return false;
    }
    debugLine(DebugGate::LoggerExists, 1, {kUnit, kFunction}, "Process path ", processPath,
              " matches exclude list entry ", entry);
    return true;
}
