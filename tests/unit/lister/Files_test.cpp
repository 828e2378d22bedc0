#include "files.h"

#include "ListerTest.h"

namespace lister {
namespace {

class LinkText : public Lister {};

TEST(Files, AreTheSameByDeviceAndInode) {
    const FileId file = {1, 2, 3};
    EXPECT_EQ(file, (FileId{1, 2, 3}));
    for (const FileId& other : {FileId{9, 2, 3}, FileId{1, 9, 3}, FileId{1, 2, 9}}) {
        EXPECT_NE(file, other);
    }
}

TEST_F(LinkText, DeletedIsPartOfANameOnlyForTheVeryFileOfThatName) {
    const fs::path path = m_root + "/bin/x (deleted)";
    copySleep(path);
    const std::optional<FileStatus> status = statusOf(AT_FDCWD, path.c_str());
    ASSERT_TRUE(status);
    EXPECT_FALSE(readLinkText(path, *status).isDeleted);
    FileStatus other = *status;
    ++other.id.inode;
    EXPECT_TRUE(readLinkText(path, other).isDeleted) << "another file of that name";
    FileStatus removed = *status;
    removed.links = 0;
    EXPECT_TRUE(readLinkText(path, removed).isDeleted);
    EXPECT_EQ(readLinkText(path, removed).path, m_root + "/bin/x");
    EXPECT_FALSE(readLinkText("/bin/sh", removed).isDeleted);
    fs::remove(path);
    EXPECT_TRUE(readLinkText(path, *status).isDeleted);
}

TEST(LookUp, AsksNoServer) {
    EXPECT_FALSE(lookUpWithoutWaiting("/nonexistent/x", ""));
    EXPECT_FALSE(lookUpWithoutWaiting("/nonexistent/x", "nfs4"));
    EXPECT_FALSE(lookUpWithoutWaiting("/nonexistent/x", "ext4"));
    EXPECT_TRUE(lookUpWithoutWaiting("/bin/sh", "ext4"));
}

} // namespace
} // namespace lister
