#include "verdict.h"

#include <cerrno>
#include <iterator>
#include <set>
#include <string>

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

/// Administrators search the log for them.
TEST(Reasons, HaveATextEachThatSaysWhetherTheProcessIsPassedOver) {
    std::set<std::string> texts;
    for (const ReasonRow& row : kReasons) {
        const std::string text = row.text;
        texts.insert(text);
        EXPECT_GE(text.size(), 8U) << text;
        const bool isPassedOver = text.starts_with("passed over: ");
        EXPECT_EQ(row.isWarning, isPassedOver || row.reason == Reason::UnfitPath) << text;
    }
    EXPECT_EQ(texts.size(), std::size(kReasons)) << "two reasons have one text";
}

} // namespace
} // namespace lister
