#include "Shelf.h"

#include <filesystem>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "TempFolder.h"

namespace watch {
namespace {

TEST(Shelf, KeepsWhatIsNotOpen) {
    const TempFolder folder;
    Shelf shelf;
    {
        const UniqueFd file(::open(folder.write("a", "").c_str(), O_WRONLY | O_CLOEXEC));
        ASSERT_EQ(::write(file.get(), "one ", 4), 4);
        ASSERT_TRUE(shelf.put(file.get()));
    }
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code error;
        EXPECT_FALSE(std::filesystem::read_symlink(entry, error).string().starts_with(folder.at("")));
    }
    const UniqueFd again = shelf.take();
    ASSERT_TRUE(again);
    EXPECT_NE(::fcntl(again.get(), F_GETFD) & FD_CLOEXEC, 0);
    // The place in the file is that of before: it is the same open file.
    ASSERT_EQ(::write(again.get(), "two", 3), 3);
    EXPECT_EQ(contentOf(folder.at("a")), "one two");
    EXPECT_FALSE(shelf.take());
}

TEST(Shelf, MayBeEmptyOrRefuse) {
    Shelf shelf;
    EXPECT_FALSE(shelf.take());
    EXPECT_FALSE(shelf.put(-1));
    EXPECT_FALSE(shelf.take());
}

TEST(Shelf, WithoutDescriptorsItTakesNothingAndGivesNothing) {
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const rlimit none{0, before.rlim_max};
    Shelf full;
    Shelf empty;
    ASSERT_TRUE(full.put(STDIN_FILENO));
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_FALSE(empty.put(STDIN_FILENO));
    EXPECT_FALSE(full.take());
    ::setrlimit(RLIMIT_NOFILE, &before);
}

} // namespace
} // namespace watch
