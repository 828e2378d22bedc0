/// Pure parsers of what the kernel says in /proc: no file is opened here, every input is bytes that may be hostile.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

namespace lister {

/// The pid that an entry of /proc stands for; nothing for "self", "sys", "1x", an overflow.
std::optional<pid_t> parsePid(std::string_view name);

/// What the lister reads of PID/stat.
struct StatLine {
    std::string_view comm;
    char state;
    pid_t parent;
};

/// Reads "PID (COMM) STATE PPID ...". COMM may itself hold blanks, newlines and parentheses: the last ')' ends it.
std::optional<StatLine> parseStat(std::string_view text);

/// The address behind the arguments of a process, from PID/stat (field 49 of proc_pid_stat(5), Linux 3.5): 0 before the
/// kernel has laid them, and never afterwards, even where the process made them empty (prctl(2), PR_SET_MM_MAP).
std::optional<std::uint64_t> parseArgumentsEnd(std::string_view stat);

/// One line of PID/maps.
struct MapsLine {
    std::uint64_t begin;
    std::uint64_t end;
    bool executable;
    std::uint32_t deviceMajor;
    std::uint32_t deviceMinor;
    std::uint64_t inode;
    /// As the kernel writes it, a newline as "\012"; empty for an anonymous mapping.
    std::string_view path;
};

/// Reads "55c0-55d0 r-xp 00001000 fe:00 1234   /usr/bin/x".
std::optional<MapsLine> parseMapsLine(std::string_view line);

/// One line of mountinfo.
struct MountLine {
    std::uint64_t id;
    /// The kernel's octal escapes (\040 for a blank) undone.
    std::string mountPoint;
    /// "ext4", "fuse.sshfs"; empty where the line has none.
    std::string type;
};

/// Reads "36 35 98:0 /root /mount/point rw,noatime master:1 - ext4 /dev/root rw" (proc_pid_mountinfo(5)).
std::optional<MountLine> parseMountLine(std::string_view line);

/// Undoes the kernel's "\ooo" escapes.
std::string unescapeOctal(std::string_view text);

/// The effective user id of "Uid:\tREAL\tEFFECTIVE\t..." in PID/status.
std::optional<uid_t> parseEffectiveUid(std::string_view status);

/// The number of "mnt_id:\tNUMBER", the mount of an open file, in PID/fdinfo/FD.
std::optional<std::uint64_t> parseMountId(std::string_view fdinfo);

/// The link text of a file that was removed or replaced, without the " (deleted)" that the kernel puts behind it
/// (d_path, fs/d_path.c); nothing where it does not end so.
std::optional<std::string_view> withoutDeleted(std::string_view link);

/// The same, or the text itself.
std::string_view pathOfLink(std::string_view link);

} // namespace lister
