/// What an errno value means to the rules, and the two ways in which a verdict can fail to be reached.
#pragma once

#include <cerrno>
#include <optional>
#include <utility>

#include "verdict.h"

namespace lister {

/// Aborts the scan with an errno value: our own shortage must never hide a product process.
struct ScanFailure {
    int error;
};

/// Ends the judgement of one process: something that a rule needs cannot be read.
struct ProcessLost {
    Reason reason;
};

/// Throws ScanFailure where the caller has no descriptor or no memory left.
void throwIfShort(int error);

/// Whether something may be there and was not given, by errno: all but the few that say that it is not there.
bool isRefusal(int error);

/// What became of something that could not be read, by errno: it is gone, or nothing is known of it.
Reason lostReason(int error);

/// Throws ProcessLost where what was asked for is there and was not given: a rule that took that for an answer would
/// let a daemon of the product go unseen.
void throwIfRefused(int error);

/// Throws ScanFailure or ProcessLost, by errno.
[[noreturn]] void throwLost(int error);

/// What a rule cannot do without; throws ProcessLost where it is missing, with errno set.
template <class Value> Value required(std::optional<Value> value) {
    if (!value) {
        throwLost(errno);
    }
    return *std::move(value);
}

} // namespace lister
