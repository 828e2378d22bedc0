#include "verdict.h"

#include <cerrno>
#include <iterator>
#include <utility>

#include <gtest/gtest.h>

namespace lister {
namespace {

TEST(Errors, OfTheCallersOwnEndTheScan) {
    for (const int error : {EMFILE, ENFILE, ENOMEM}) {
        EXPECT_THROW(throwIfShort(error), ScanFailure);
        EXPECT_THROW(throwIfRefused(error), ScanFailure);
    }
    for (const int error : {EACCES, ENOENT, EIO}) {
        EXPECT_NO_THROW(throwIfShort(error));
    }
}

TEST(Errors, ThatRefuseAnAnswerLoseTheProcess) {
    for (const int error : {EACCES, EPERM, EIO, ENOSYS, ESTALE}) {
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
TEST(Reasons, HaveTheirTexts) {
    const std::pair<Reason, const char*> texts[] = {
        {Reason::ProductExecutable, "runs an executable of the product"},
        {Reason::ProductScript, "runs a script of the product"},
        {Reason::UnfitPath, "its path must not become part of a command line"},
        {Reason::MapsProduct, "runs code of the product inside"},
        {Reason::HoldsProduct, "works in the product's tree"},
        {Reason::DemotedPid1, "only listed: the host's first process"},
        {Reason::DemotedAncestor, "only listed: an ancestor of the caller"},
        {Reason::DemotedScope, "only listed: in namespaces of its own"},
        {Reason::DemotedHostService, "only listed: a service of the host"},
        {Reason::DemotedUnexcludable, "only listed: no exclude list could name it"},
        {Reason::OtherPidNamespace, "in another pid namespace"},
        {Reason::ForeignUserNamespace, "in a user namespace that root does not own"},
        {Reason::NotTheHostsFile, "not this host's file of that path"},
        {Reason::CallersExecutable, "runs the caller's own executable"},
        {Reason::NoRelation, "has nothing to do with the product"},
        {Reason::Vanished, "vanished"},
        {Reason::Unreadable, "passed over: it cannot be read"},
        {Reason::Unsettled, "passed over: it executes one program after another"},
        {Reason::OverBudget, "passed over: too many mappings or descriptors"},
    };
    EXPECT_EQ(std::size(texts), static_cast<std::size_t>(Reason::OverBudget) + 1);
    for (const auto& [reason, text] : texts) {
        EXPECT_STREQ(reasonText(reason), text);
    }
    EXPECT_STREQ(reasonText(static_cast<Reason>(99)), "unknown");
}

} // namespace
} // namespace lister
