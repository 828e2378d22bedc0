// That the older kernels which the tests meet lack what their versions say: else all would pass there for nothing.
#include "Kernel.h"

#include <linux/openat2.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "ListerTest.h"

namespace lister {
namespace {

class Kernel : public testing::TestWithParam<const char*> {
  protected:
    Kernel() { kernel::pretend(GetParam()); }
    ~Kernel() override { kernel::pretend(nullptr); }

    static bool isOldest() { return std::string_view(GetParam()) == "5.4"; }
};

TEST_P(Kernel, TellsTheMountOfAFileUnlessItIsOld) {
    struct statx raw = {};
    ASSERT_EQ(statx(AT_FDCWD, "/", 0, STATX_BASIC_STATS | STATX_MNT_ID, &raw), 0);
    EXPECT_EQ((raw.stx_mask & STATX_MNT_ID) == 0, isOldest());
    EXPECT_EQ(kernel::tellsMounts(), !isOldest());
}

TEST_P(Kernel, KnowsOpenat2UnlessItIsOld) {
    open_how how = {};
    how.flags = O_PATH | O_CLOEXEC;
    const UniqueFd folder(static_cast<int>(syscall(SYS_openat2, AT_FDCWD, "/", &how, sizeof how)));
    EXPECT_EQ(!folder, isOldest());
    EXPECT_EQ(kernel::knowsOpenat2(), !isOldest());
}

TEST_P(Kernel, KnowsNoQueryForMappings) {
    const UniqueFd maps(open("/proc/self/maps", O_RDONLY | O_CLOEXEC));
    char query[104] = {}; // struct procmap_query; a kernel that knows it finds these bytes wrong in another way
    errno = 0;
    EXPECT_EQ(ioctl(maps.get(), _IOWR('f', 17, query), query), -1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_FALSE(kernel::knowsMappingQuery());
}

INSTANTIATE_TEST_SUITE_P(Older, Kernel, testing::Values("5.4", "6.6"), [](const auto& parameter) {
    return std::string("Linux") + parameter.param[0] + "_" + parameter.param[2];
});

} // namespace
} // namespace lister
