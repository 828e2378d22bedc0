/// Follows the program's debug log from the end that it has when the watch begins.
///
/// The file is open only while it is read: whoever holds a file of the product's tree is one of its users, and the
/// program would list the watcher. Where it was rotated in the middle of a run, the program goes on writing into the
/// old file, which is looked for under its new name.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include "LogEvent.h"

namespace watch {

class LogFile {
  public:
    /// Takes the file's present end as the beginning. It need not exist.
    explicit LogFile(std::string path);

    /// Takes the log that is there as the one to follow, unless there is one already. Opens nothing. Returns whether
    /// there is one: a log that is rotated before it was found is lost.
    bool find();

    /// What the process `pid` has written since the last call, in order. A line that is not whole yet is kept. What
    /// goes wrong stands in `trouble` and is tried again next time.
    std::vector<LogEvent> read(int pid);

    /// Why records may be missing, a sentence each, every one only once.
    [[nodiscard]] const std::vector<std::string>& trouble() const { return m_trouble; }

    /// Whether any record of the process was read.
    [[nodiscard]] bool found() const { return m_found; }

  private:
    struct Identity {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
    };

    bool look(const std::string& path, Identity& identity);
    bool readFile(const std::string& path);
    bool readRenamed();
    void readOn();
    void complain(const std::string& sentence);
    void cannotRead(int error);
    void hasReadAll();

    std::string m_path;
    /// The file that is followed, and how far it was read. No inode: none was there yet.
    Identity m_followed;
    off_t m_offset = 0;
    std::string m_bytes;
    std::vector<std::string> m_trouble;
    /// The one of them that holds until a read gets everything.
    std::string m_unreadable;
    bool m_found = false;
};

} // namespace watch
