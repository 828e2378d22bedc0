#include "verdict.h"

namespace lister {

bool isRefusal(int error) {
    return error == EACCES || error == EPERM || error == EIO || error == ENOSYS || error == ESTALE;
}

const char* reasonText(Reason reason) {
    switch (reason) {
    case Reason::ProductExecutable:
        return "runs an executable of the product";
    case Reason::ProductScript:
        return "runs a script of the product";
    case Reason::UnfitPath:
        return "its path must not become part of a command line";
    case Reason::MapsProduct:
        return "runs code of the product inside";
    case Reason::HoldsProduct:
        return "works in the product's tree";
    case Reason::DemotedPid1:
        return "only listed: the host's first process";
    case Reason::DemotedAncestor:
        return "only listed: an ancestor of the caller";
    case Reason::DemotedScope:
        return "only listed: in namespaces of its own";
    case Reason::DemotedHostService:
        return "only listed: a service of the host";
    case Reason::DemotedUnexcludable:
        return "only listed: no exclude list could name it";
    case Reason::OtherPidNamespace:
        return "in another pid namespace";
    case Reason::ForeignUserNamespace:
        return "in a user namespace that root does not own";
    case Reason::NotTheHostsFile:
        return "not this host's file of that path";
    case Reason::CallersExecutable:
        return "runs the caller's own executable";
    case Reason::NoRelation:
        return "has nothing to do with the product";
    case Reason::Vanished:
        return "vanished";
    case Reason::Unreadable:
        return "passed over: it cannot be read";
    case Reason::Unsettled:
        return "passed over: it executes one program after another";
    case Reason::OverBudget:
        return "passed over: too many mappings or descriptors";
    }
    return "unknown";
}

Reason lostReason(int error) {
    return error == ENOENT || error == ESRCH ? Reason::Vanished : Reason::Unreadable;
}

void throwIfShort(int error) {
    if (error == EMFILE || error == ENFILE || error == ENOMEM) {
        throw ScanFailure{error};
    }
}

void throwLost(int error) {
    throwIfShort(error);
    throw ProcessLost{lostReason(error)};
}

void throwIfRefused(int error) {
    throwIfShort(error);
    if (isRefusal(error)) {
        throw ProcessLost{Reason::Unreadable};
    }
}

} // namespace lister
