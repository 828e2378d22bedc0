#include "mappings.h"

#include <optional>
#include <string>

#include "LiveMapper.h"
#include "MadeUpProcess.h"
#include "procparse.h"

namespace lister {
namespace {

class Mappings : public MadeUpMapper {};

TEST_F(Mappings, OtherMappingsDoNotCount) {
    for (const std::string& text :
         {line("r--p"), std::string("55c0-55d0 r-xp 00001000 00:00 0\n"), std::string("nonsense\n"),
          std::string("55c0-55d0 r-xp 00001000 00:00 0 [vdso]\n"),
          std::string("55c0-55d0 r-xp 00001000 fe:00 9 /usr/lib/x.so\n"), line().substr(0, line().size() - 1)}) {
        map(text);
        EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::NoRelation) << text;
    }
}

TEST_F(Mappings, MappingsOverTheBudgetArePassedOver) {
    map(std::string(100, 'x') + "\n" + line());
    m_roots.budget.mapsBytes = 50;
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::MapsProduct) << "what was read is looked at";
    map(std::string(20000, 'x') + "\n" + line());
    EXPECT_EQ(judgeAsThirdParty("77").reason, Reason::OverBudget);
}

/// The text of maps is bounded by its size, queries by their number.
class AskedMappings : public LiveMapper {};

/// Each executable mapping costs one query, and so does the end of the list.
TEST_F(AskedMappings, WithinTheBudgetAreSearchedToTheEnd) {
    const auto child = run(copySleep(m_folder / "stranger"));
    awaitSleep(child->pid());
    m_roots.budget.mappings = 1;
    if (judgeAsThirdParty(child->pid()).reason != Reason::OverBudget) {
        GTEST_SKIP() << "the kernel knows no such query (before Linux 6.11)";
    }
    int mappings = 0;
    std::ifstream maps("/proc/" + std::to_string(child->pid()) + "/maps");
    for (std::string line; std::getline(maps, line);) {
        const std::optional<MapsLine> mapping = parseMapsLine(line);
        mappings += mapping && mapping->executable && mapping->path.starts_with("/") ? 1 : 0;
    }
    m_roots.budget.mappings = mappings + 1;
    EXPECT_EQ(judgeAsThirdParty(child->pid()).reason, Reason::NoRelation);
    m_roots.budget.mappings = mappings;
    EXPECT_EQ(judgeAsThirdParty(child->pid()).reason, Reason::OverBudget);
}

} // namespace
} // namespace lister
