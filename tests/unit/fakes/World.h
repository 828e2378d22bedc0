/// A made-up host for the unit tests: processes, files, the user, the product's libraries. Nothing that the program
/// does reaches the real one.
///
/// The fakes of the product's libraries and of the system calls (kill, sleep, system, stat ...) act on it and write
/// what happened, in order, into its one journal. An entry is a line of text whose first word is its kind:
///
///     kill PID SIGTERM     probe PID            sleep N             system COMMAND
///     log LEVEL FN: TEXT   debug LEVEL FN: TEXT enter FN UNIT this  leave FN
///     msg KEY              out TEXT             gauge NAME VALUE    telemetry init|flush|destroy
///     list CATS VERBOSITY  stat PATH            access PATH         mkdirpath PATH 0755
///
/// The line number that ends a debug line is written as "#": "(UserList:#)".
#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "cvbase.h"

namespace fakes {

using Journal = std::vector<std::string>;

/// One process of the made-up host.
struct FakeProcess {
    std::string name;
    std::string path;
    std::int32_t pid = 0;
    std::int32_t category = 1;
    bool alive = true;
    /// Every signal to it fails with EPERM.
    bool foreign = false;
    std::set<int> diesOf = {SIGHUP, SIGTERM, SIGINT, SIGQUIT, SIGKILL};
    /// It ends after that many more seconds of sleep; -1 for never.
    int secondsLeft = -1;
    /// A command line that holds this text ends it; empty for none.
    std::string stopsOn;
};

/// One look-up in the message catalog.
struct Lookup {
    std::string key;
    std::string locale;
    std::size_t size = 0;
    const char* buffer = nullptr;
    int reserved = 0;
    std::string defaultText;
};

/// Whether these signals had their default actions when the program ran a command.
struct Dispositions {
    bool pipeIsDefault = false;
    bool hangupIsDefault = false;
};

struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
};

class World {
  public:
    /// An empty host with everything in order: root, a client, the log directory there.
    void reset();

    /// A live process of the product that dies of every signal; its path is in the product's bin folder.
    FakeProcess& add(std::string_view name, std::int32_t pid, std::int32_t category = 1);
    FakeProcess* find(std::int32_t pid);

    void record(const std::string& entry);

    /// Runs `body` with standard output captured: the journal gets it piece by piece, and it is returned.
    std::string run(const std::function<void()>& body);

    /// The journal's entries of these kinds, in order.
    [[nodiscard]] Journal of(std::initializer_list<std::string_view> kinds) const;
    [[nodiscard]] std::size_t count(std::string_view entry) const;

    Journal journal;
    /// What was recorded before the first test, by static initialisation.
    Journal startup;
    std::vector<Lookup> lookups;
    std::vector<Dispositions> atCommands;
    std::deque<FakeProcess> fleet;

    std::int32_t ownPid = 777;
    uid_t euid = 0;
    int listerStatus = 0;
    bool logDirectoryExists = true;
    int mkdirResult = 0;
    std::int32_t mkdirStatus = 0;
    int configResult = 0;
    CV_master_config config;
    int isServer = 0;
    int telemetryResult = 0;
    std::string localeName = "en_US.UTF-8";
    /// Catalog texts by key.
    std::map<std::string, std::string> translations;
    /// Results of system(), first to last; 0 once they are used up.
    std::vector<int> systemResults;
    /// Files below the install root by path; all other paths are the real file system's.
    std::map<std::string, FileIdentity> files;
    int kokaVerbosity = 0;
    int verboseResult = 0;
    /// A signal that the program itself gets at its next sleep; 0 for none.
    int raiseAtSleep = 0;
    /// Every second that was slept.
    long slept = 0;
    /// Where a child process leaves its journal; -1 in the test itself.
    int journalFd = -1;
    int captureFd = -1;

  private:
    void write(const std::string& entry);
    void takeOutput();

    off_t m_outputSeen = 0;
    bool m_started = false;
};

World& world();

/// While one exists, allocations are the made-up host's, not the program's.
class Aside {
  public:
    Aside() { ++s_depth; }
    ~Aside() { --s_depth; }
    Aside(const Aside&) = delete;
    Aside& operator=(const Aside&) = delete;
    static bool isHere() { return s_depth > 0; }

  private:
    static inline int s_depth = 0;
};

/// How many records of the process lister have not been freed yet.
std::size_t liveRecords();

/// How a child process ended, and what it left.
struct ChildResult {
    /// Exit status, or -1 when a signal ended it.
    int status = -1;
    int signal = 0;
    std::string output;
    std::string error;
    Journal journal;

    [[nodiscard]] Journal of(std::initializer_list<std::string_view> kinds) const;
    [[nodiscard]] std::size_t count(std::string_view entry) const;
};

/// The exit status of a child whose body returned.
inline constexpr int kCameBack = 99;

/// Runs `body` in a child process, for what ends the process. Standard input holds `input`.
ChildResult inChild(const std::function<void()>& body, std::string_view input = "");

/// The entries of `journal` of these kinds, in order.
Journal ofKinds(const Journal& journal, std::initializer_list<std::string_view> kinds);

/// `name` as a file of the product's bin folder.
std::string binPath(std::string_view name);

} // namespace fakes
