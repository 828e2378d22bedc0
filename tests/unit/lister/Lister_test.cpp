#include "lister.h"

#include <string>

#include "ListerTest.h"

namespace lister {
namespace {

TEST_F(Lister, ProductProcessHasItsFullPathAndName) {
    const auto child = run(install("a-daemon-with-a-name-beyond-fifteen-bytes"));
    const auto record = find(child->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_CORVANE);
    EXPECT_STREQ(record->name, "a-daemon-with-a-name-beyond-fifteen-bytes");
    EXPECT_EQ(record->path, m_root + "/bin/a-daemon-with-a-name-beyond-fifteen-bytes");
    EXPECT_EQ(record->signalled, 0);
    EXPECT_EQ(record->excluded, 0);
}

TEST_F(Lister, NameOf255BytesIsWhole) {
    const std::string name(255, 'n');
    const auto child = run(install(name));
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->name, name);
}

} // namespace
} // namespace lister
