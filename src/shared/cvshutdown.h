/// The vocabulary of a shutdown: the enums that name groups, actions, waits, signals and categories, the record of one
/// row of the shutdown table, and the table itself.
///
/// The enums have a fixed underlying type, so that a value outside the named ones (a category that a newer process
/// lister reports, a kill type from a damaged table) is a value like any other and meets the code's default branch.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "cvcategories.h"

/// The part of the product that a process belongs to.
enum sgroups : int {
    GROUP_NONE = 0,
    GROUP_MEDIA_MANAGER = 1,
    GROUP_CORVANE = 2,
    GROUP_TQL_CLIENT = 3,
    GROUP_TQL_MASTER = 4,
    GROUP_ULM = 5,
    GROUP_PYX = 6,
    GROUP_MASTER = 7,
    GROUP_CLIENT = 8,
    GROUP_ROBOTIC = 9,
    GROUP_JOBS = 10,
    GROUP_JAVA = 11,
    GROUP_END = 12,
    /// A real group of the table's last rows, not a terminator.
    GROUP_NULL = 13,
};

/// How a row of the table is stopped.
enum kill_type : int {
    NORMAL_TERMINATE = 0,
    TERMINATE_T = 1,
    KILL = 2,
    KILLH = 3,
    KILL9 = 4,
    PROXY_ALL = 5,
    LOCAL_TERMINATE = 6,
    LOCALHOST_TERMINATE = 7,
    UNMOUNT = 8,
    SELECTIVE_CANCEL = 9,
    ZELDPARAMS = 10,
    NOARGS = 11,
    HOST_T = 12,
    REMOVE = 13,
    MOSK_STOP = 14,
    JAVA_STOP = 15,
    SKIP = 16,
    STOP = 17,
};

/// How the shutdown waits around a row.
enum wait_type : int {
    WAIT_NONE = 0,
    /// After each handled process, for that process.
    WAIT_PROCESS = 1,
    /// After each handled process, for every signalled process.
    WAIT_ALL = 2,
    /// Before acting on each active process, for every signalled process.
    WAIT_ALL_FIRST = 3,
};

/// What a shutdown does about the processes it finds; the values are those of Arguments::killLevel.
enum shutdown_mode : int {
    SHUTDOWN_PROMPT = 0,
    SHUTDOWN_KILL = 1,
    SHUTDOWN_NULL = 2,
};

/// The kinds of signal that the program sends; any other value sends nothing.
enum sig_types : int {
    SIGTYPE_HUP = 0,
    SIGTYPE_TERM = 1,
    SIGTYPE_INT = 2,
    SIGTYPE_QUIT = 3,
    SIGTYPE_KILL = 4,
};

// Names for diagnostics, indexed by enum value. Each source unit that includes this header has its own copy.
static const std::string group_names[] = {"",     "media-manager", "corvane", "tql-client", "tql-master",
                                          "ulm",  "pyx",           "master",  "client",     "robotic",
                                          "jobs", "java",          "end",     "NULL"};

static const std::string kill_type_names[] = {"NORMAL_TERMINATE",
                                              "TERMINATE_T",
                                              "KILL",
                                              "KILLH",
                                              "KILL9",
                                              "PROXY_ALL",
                                              "LOCAL_TERMINATE",
                                              "LOCALHOST_TERMINATE",
                                              "UNMOUNT",
                                              "SELECTIVE_CANCEL",
                                              "ZELDPARAMS",
                                              "NOARGS",
                                              "HOST_T",
                                              "REMOVE",
                                              "MOSK_STOP",
                                              "JAVA_STOP",
                                              "SKIP",
                                              "STOP"};

static const std::string shutdown_names[] = {"prompt", "kill", "NULL"};

static_assert(sizeof group_names / sizeof group_names[0] == GROUP_NULL + 1);
static_assert(sizeof kill_type_names / sizeof kill_type_names[0] == STOP + 1);
static_assert(sizeof shutdown_names / sizeof shutdown_names[0] == SHUTDOWN_NULL + 1);

/// One row of the shutdown table: a process or a command of the product, and how it is stopped.
struct killDef {
    killDef(std::int32_t rowSequence, sgroups rowGroup, const std::string& rowName, bool rowIsCommand,
            kill_type rowKillType, std::int32_t rowFirstOnly, wait_type rowWaitType, std::int32_t rowPlatformMask,
            const std::string& rowServiceName)
        : sequence(rowSequence), group(rowGroup), name(rowName), isCommand(rowIsCommand), killType(rowKillType),
          firstOnly(rowFirstOnly), waitType(rowWaitType), platformMask(rowPlatformMask), serviceName(rowServiceName) {}

    /// A row number for reference; it is not the position, and nothing reads it.
    std::int32_t sequence;
    sgroups group;
    /// The process name exactly as a snapshot reports it, or the command's name.
    std::string name;
    /// True for a command to be handled; no process is looked up for it.
    bool isCommand;
    kill_type killType;
    /// Non-zero: the row ends with the first matching process that was handled; excluded ones do not count.
    std::int32_t firstOnly;
    wait_type waitType;
    /// 3 where the row carries a service name, else 1; nothing reads it.
    std::int32_t platformMask;
    /// The display name of the service that the process provides, or empty; nothing reads it.
    std::string serviceName;
};

/// The shutdown table, in shutdown order. Built before main runs, never changed afterwards.
extern const std::deque<killDef> KillDefines;
