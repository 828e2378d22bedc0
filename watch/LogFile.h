/// Follows the program's debug log from the end that it has when the watch begins.
///
/// The file is open only while it is read: whoever holds a file of the product's tree is one of its users, and the
/// program would list the watcher. Where it was rotated in the middle of a run, the program goes on writing into the
/// old file, which is looked for under its new name. Where it was truncated, it may have grown beyond its former size
/// until it is looked at again: what stood before the place that reading had come to must still stand there.
#pragma once

#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "LogEvent.h"

namespace watch {

class LogFile {
  public:
    /// Takes the file's present end as the beginning. It need not exist. Opens it for a moment.
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
        timespec modified{};
    };

    static bool look(const std::string& path, Identity& identity);
    static Identity identityOf(int file);
    [[nodiscard]] bool isFollowed(const Identity& identity) const;
    bool readFile(const std::string& path);
    bool readRenamed();
    void readOn();
    void readNews(int file);
    std::string readFrom(int file, off_t offset);
    void passOver(std::string_view bytes);
    void beginAnew();
    void foundTruncated();
    void complain(const std::string& sentence);
    void cannotRead(int error);
    void hasReadAll();

    std::string m_path;
    /// The file that is followed, as it was when it was read last, and how far it was read. No inode: none was there
    /// yet.
    Identity m_followed;
    off_t m_offset = 0;
    /// What stands before that place; empty where it could not be read.
    std::string m_before;
    std::string m_bytes;
    std::vector<std::string> m_trouble;
    /// The one of them that holds until a read gets everything.
    std::string m_unreadable;
    bool m_found = false;
};

} // namespace watch
