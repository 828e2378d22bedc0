/// The user's exclude list: executables that must be left running.
#pragma once

#include <string>
#include <vector>

class UserList {
  public:
    UserList() = default;

    /// Reads a file of one path a line and appends its valid lines. Content never fails: what is no path is dropped
    /// with a debug line. Returns false, with the list unchanged, when the file cannot be opened.
    bool setProcessExcludelist(const std::string& file);

    /// Whether the executable is, by device and inode, the file of some entry. Asks the file system each time.
    [[nodiscard]] bool processExcludelistContains(const std::string& processPath) const;

    /// Whether both paths name the same file.
    [[nodiscard]] bool processMatchesExcludelistEntry(const std::string& processPath, const std::string& entry) const;

    /// The accepted lines in the order read, trimmed, otherwise byte for byte.
    [[nodiscard]] const std::vector<std::string>& list() const { return entries; }

  private:
    void takeLine(const std::string& line);

    std::vector<std::string> entries;
};

/// Fills `list` with the exclude list that applies: the file named on the command line, or else the default file, which
/// may be missing. Throws std::runtime_error, after telling the user, when a file that the user named cannot be opened.
void loadExcludelistInto(UserList& list);
