#include "UniqueFd.h"

#include <utility>

#include <fcntl.h>

#include <gtest/gtest.h>

namespace {

int newDescriptor() {
    return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

TEST(UniqueFd, ClosesItsDescriptorWhenItGoes) {
    const int fd = newDescriptor();
    {
        const UniqueFd owner(fd);
        EXPECT_TRUE(owner);
        EXPECT_EQ(owner.get(), fd);
        EXPECT_TRUE(isOpen(fd));
    }
    EXPECT_FALSE(isOpen(fd));
}

TEST(UniqueFd, OwnsNothingAtFirst) {
    const UniqueFd owner;
    EXPECT_FALSE(owner);
    EXPECT_EQ(owner.get(), -1);
}

TEST(UniqueFd, OwnsDescriptorZero) {
    UniqueFd owner(0);
    EXPECT_TRUE(owner);
    EXPECT_EQ(owner.release(), 0);
}

TEST(UniqueFd, HandsItOverWhenMoved) {
    const int fd = newDescriptor();
    UniqueFd first(fd);
    UniqueFd second(std::move(first));
    EXPECT_EQ(second.get(), fd);
    const int other = newDescriptor();
    UniqueFd third(other);
    third = std::move(second);
    EXPECT_EQ(third.get(), fd);
    EXPECT_TRUE(isOpen(fd));
    EXPECT_FALSE(isOpen(other)) << "what it had before";
}

TEST(UniqueFd, LeavesAReleasedOneOpen) {
    UniqueFd owner(newDescriptor());
    const int fd = owner.release();
    EXPECT_FALSE(owner);
    owner.reset();
    EXPECT_TRUE(isOpen(fd));
    owner.reset(fd);
    owner.reset();
    EXPECT_FALSE(isOpen(fd));
}

} // namespace
