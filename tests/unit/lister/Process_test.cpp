#include "process.h"

#include <cerrno>
#include <optional>
#include <string>

#include "MadeUpProcess.h"

namespace lister {
namespace {

class Pinned : public MadeUpProcess {
  protected:
    Pinned() : m_table(open(m_proc.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        make("77", install("halvd"));
        write("77", "status", "0123456789");
    }

    UniqueFd m_table;
};

TEST_F(Pinned, IsEmptyWhereTheProcessIsGone) {
    const PinnedProcess gone(m_table.get(), 78, "78");
    EXPECT_FALSE(gone);
    EXPECT_EQ(errno, ENOENT);
}

/// A pid that is reused has another folder.
TEST_F(Pinned, IsTheSameProcessWhateverTakesItsPlace) {
    const PinnedProcess process(m_table.get(), 77, "77");
    fs::rename(fs::path(m_proc) / "77", fs::path(m_proc) / "ended");
    make("77", install("another"));
    EXPECT_EQ(process.link("exe"), m_root + "/bin/halvd");
    EXPECT_EQ(process.read("status", 100), "0123456789");
}

TEST_F(Pinned, ReadsUpToTheLimit) {
    const PinnedProcess process(m_table.get(), 77, "77");
    EXPECT_EQ(process.read("status", 10), "0123456789");
    EXPECT_EQ(process.read("status", 4), "0123");
}

TEST_F(Pinned, WhatCannotBeReadIsNothingWithErrno) {
    const PinnedProcess process(m_table.get(), 77, "77");
    errno = 0;
    EXPECT_EQ(process.read("missing", 10), std::nullopt);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(process.link("status"), std::nullopt);
    EXPECT_EQ(errno, EINVAL) << "no link";
    errno = 0;
    EXPECT_FALSE(process.open("missing", O_RDONLY));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(process.read("fd", 10), std::nullopt) << "a folder";
    EXPECT_EQ(errno, EISDIR);
}

} // namespace
} // namespace lister
