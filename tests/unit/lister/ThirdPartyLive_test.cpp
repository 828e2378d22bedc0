#include "LiveMapper.h"

namespace lister {
namespace {

/// Both ways to ask for executable mappings run, whatever the kernel.
class ThirdParty : public LiveMapper, public testing::WithParamInterface<bool> {
  protected:
    ThirdParty() { m_roots.queryMappings = GetParam(); }

    std::unique_ptr<Child> runMapperOfTheProduct(const std::string& name) const {
        return runMapper(name, installLibrary(m_root));
    }
};

INSTANTIATE_TEST_SUITE_P(Mappings, ThirdParty, testing::Values(true, false),
                         [](const auto& parameter) { return parameter.param ? "Queried" : "ReadFromMaps"; });

TEST_P(ThirdParty, ProcessThatWorksInTheTreeIsOnlyListed) {
    const auto child = run(copySleep(m_folder / "editor"), [this] { EXPECT_EQ(chdir(m_root.c_str()), 0); });
    const auto record = find(child->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_OTHER_THIRD_PARTY);
    EXPECT_STREQ(record->name, "editor");
    EXPECT_FALSE(find(child->pid(), CAT_CORVANE)) << "not looked for unless asked";
}

TEST_P(ThirdParty, ProcessThatHoldsAFileOfTheTreeIsOnlyListed) {
    const fs::path file = install("halvd");
    const auto child = run(copySleep(m_folder / "reader"), [&] { open(file.c_str(), O_RDONLY); });
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
}

TEST_P(ThirdParty, StrangerIsNotListed) {
    const auto child = run(copySleep(m_folder / "stranger"));
    EXPECT_FALSE(find(child->pid()));
}

/// A hostile process may hold any number of other things first.
TEST_P(ThirdParty, ProcessOverTheBudgetWithoutAReasonIsPassedOver) {
    const fs::path file = install("halvd");
    const auto child = run(copySleep(m_folder / "reader"), [&] { open(file.c_str(), O_RDONLY); });
    EXPECT_EQ(judgeAsThirdParty(child->pid()).reason, Reason::HoldsProduct);
    m_roots.budget.descriptors = 3; // ".", ".." and "0" come first
    EXPECT_EQ(judgeAsThirdParty(child->pid()).reason, Reason::OverBudget);
    EXPECT_FALSE(find(child->pid()));
    m_roots.budget = {.mappings = 1, .descriptors = 100, .mapsBytes = 64};
    EXPECT_EQ(judgeAsThirdParty(child->pid()).reason, Reason::OverBudget);
}

TEST_P(ThirdParty, ReasonThatIsFoundWithinTheBudgetCounts) {
    const auto child = runMapperOfTheProduct("mapper");
    m_roots.budget.descriptors = 0;
    EXPECT_EQ(judgeAsThirdParty(child->pid()).reason, Reason::MapsProduct);
}

TEST_P(ThirdParty, ProcessThatRunsTheProductsCodeMayBeTerminated) {
    const auto child = runMapperOfTheProduct("mapper");
    const auto record = find(child->pid());
    ASSERT_TRUE(record);
    EXPECT_EQ(record->category, CAT_THIRD_PARTY);
    EXPECT_EQ(record->path, (m_folder / "mapper").string());
}

TEST_P(ThirdParty, ProcessThatNoExcludeListCouldNameIsOnlyListed) {
    const auto child = runMapperOfTheProduct("mapper");
    fs::remove(m_folder / "mapper");
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
    copySleep(m_folder / "mapper");
    EXPECT_EQ(find(child->pid())->category, CAT_THIRD_PARTY) << "its replacement can be named";
    EXPECT_EQ(find(child->pid())->path, (m_folder / "mapper").string());
}

TEST_P(ThirdParty, ProcessWithControlCharactersInItsPathIsOnlyListed) {
    const auto child = runMapperOfTheProduct("a\tb");
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
    EXPECT_STREQ(find(child->pid())->name, "a?b");
}

TEST_P(ThirdParty, HostServiceIsOnlyListedEvenWhenUpgraded) {
    const auto child = runMapperOfTheProduct("sshd");
    ASSERT_TRUE(find(child->pid()));
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
    fs::remove(m_folder / "sshd");
    copySleep(m_folder / "sshd");
    EXPECT_EQ(find(child->pid())->category, CAT_OTHER_THIRD_PARTY);
}

} // namespace
} // namespace lister
