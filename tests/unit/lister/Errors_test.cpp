#include "errors.h"

#include <cerrno>

#include <gtest/gtest.h>

namespace lister {
namespace {

TEST(Errors, OfTheCallersOwnShortageEndTheScan) {
    for (const int error : {EMFILE, ENFILE, ENOMEM}) {
        EXPECT_THROW(throwIfShort(error), ScanFailure);
        EXPECT_THROW(throwIfRefused(error), ScanFailure);
    }
    for (const int error : {EACCES, ENOENT, EIO}) {
        EXPECT_NO_THROW(throwIfShort(error));
    }
}

TEST(Errors, ThatRefuseAnAnswerLoseTheProcess) {
    for (const int error : {EACCES, EPERM, EIO, ENOSYS, ESTALE, ENOTCONN, ETIMEDOUT, EAGAIN, EUCLEAN}) {
        EXPECT_THROW(throwIfRefused(error), ProcessLost) << error;
    }
    for (const int error : {ENOENT, ESRCH, ELOOP, ENOTDIR, ENAMETOOLONG, ENXIO}) {
        EXPECT_NO_THROW(throwIfRefused(error)) << error;
    }
}

TEST(Errors, TellWhetherAProcessIsGone) {
    EXPECT_EQ(lostReason(ENOENT), Reason::Vanished);
    EXPECT_EQ(lostReason(ESRCH), Reason::Vanished);
    EXPECT_EQ(lostReason(EACCES), Reason::Unreadable);
}

} // namespace
} // namespace lister
