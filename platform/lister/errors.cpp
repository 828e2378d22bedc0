#include "errors.h"

#include <cerrno>

namespace lister {

bool isRefusal(int error) {
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case ELOOP:
    case ENAMETOOLONG:
    case ENXIO: // a socket
    case ESRCH:
        return false;
    default:
        return true;
    }
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
