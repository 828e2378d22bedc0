/// The product's base library: the process lister, the host configuration, directories, bounded formatting, UTF-8.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <sys/types.h>

#include "cvcategories.h"

/// One running process. Records are allocated with malloc by find_processes_CV, chained through `next`, and freed by
/// the caller with free, one by one.
struct CV_Process_s {
    /// Process name, NUL-terminated.
    char name[1024];
    /// Full path of the executable, NUL-terminated.
    char path[1024];
    std::int32_t pid;
    /// One value of Proc_categories.
    std::int32_t category;
    /// The next record; null ends the list.
    CV_Process_s* next;
    /// 1 once the shutdown has dealt with the process. Not set by the lister.
    std::int32_t signalled;
    /// 1 when the user's exclude list names the executable. Not set by the lister.
    std::int32_t excluded;
};

/// Lists the running processes of the given categories, in ascending pid order.
///
/// Stores the first record (null for none) through `list` and returns 0; on failure stores null and returns an errno
/// value: of /proc or of what is read about the caller itself, where that cannot be read; ENOMEM, EMFILE or ENFILE
/// where memory or descriptors ran out, EAGAIN where no thread could be had; EACCES where the view of the process table
/// is not whole; ENOSYS where the kernel does not tell which mount a file is on. `verbosity` above 4 logs the verdict
/// on each process that was looked at closely. The fields `signalled` and `excluded` are left 0.
int find_processes_CV(CV_Process_s** list, Proc_categories categories, int verbosity);

/// What /usr/quarn/corvane/host.conf says of this host.
struct CV_master_config {
    bool isServer = false;
    /// The host's name in the log; the system's host name unless the file gives one.
    std::string name;
    /// 0 to 99.
    int verbosity = 0;
    /// Where gauges are sent, "address:port" or "[address]:port"; empty for nowhere.
    std::string statsd;
};

/// Reads the host configuration. Returns 0, or non-zero when it is missing, unreadable, malformed or holds a bad value;
/// the reason goes to syslog then, and the configuration stays as it was before.
int CV_read_master_config();

/// The configuration last read with success; never null, default values before that.
const CV_master_config* get_master_config_ptr();

/// Non-zero when `host` ("localhost", or this host's own name) is a server of the product. Never looks a name up.
int hask_is_server(const char* host);

/// Creates a directory with its missing parents. Returns 0, or -1 with the errno value in `status`; `status` is 0 on
/// success. A directory that exists is a success and keeps its mode.
int mkdirpath(const char* path, mode_t mode, std::int32_t* status);

/// snprintf under the product's name: never writes more than `size` bytes, NUL included. Returns the length that the
/// whole text has, or a negative value.
int V_snprintf(char* buffer, std::size_t size, const char* format, ...) __attribute__((format(printf, 3, 4)));

/// Appends formatted text to the NUL-terminated text in `buffer`, whose total size is `size`, NUL included. What does
/// not fit is cut. Returns the length that the whole text would have had, or a negative value.
int V_cat_snprintf(char* buffer, std::size_t size, const char* format, ...) __attribute__((format(printf, 3, 4)));

/// The number of code points in a NUL-terminated UTF-8 text. A byte that is no valid UTF-8 counts as one.
std::size_t _utf8_mbstowcs_len(const char* text);
