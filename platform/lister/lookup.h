/// Look-ups of paths that a stranger chose: none of them waits for a file server of his.
#pragma once

#include <optional>
#include <string>

#include "UniqueFd.h"
#include "caller.h"
#include "files.h"

namespace lister {

/// A descriptor that only names the file at an absolute path, which may lead over links; empty where there is none,
/// with errno set: to EREMOTE where only the server of a file system could tell that is not the product's either. A
/// server that has taken a request and does not answer cannot be waited for: on FUSE not even SIGKILL ends that
/// (request_wait_answer, fs/fuse/dev.c), so neither would the program. Throws ScanFailure when the caller has no
/// descriptor or no memory left.
UniqueFd findWithoutWaiting(const Caller& caller, const std::string& path);

/// The status of what is found so.
std::optional<FileStatus> lookUpWithoutWaiting(const Caller& caller, const std::string& path);

/// Whether it is certain, from the kernel's cache alone, that a file at this path has no other one, no link being on
/// it, or that there is none.
bool isOwnPath(const std::string& path);

/// The path that the kernel gives a descriptor: no link is on it. Nothing where it does not tell it, with errno set.
std::optional<std::string> pathOf(const UniqueFd& file);

/// The name by which a descriptor's own file can be opened again, whatever stands at its path by now.
std::string nameOf(const UniqueFd& file);

} // namespace lister
