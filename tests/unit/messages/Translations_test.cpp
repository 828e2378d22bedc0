#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Messages.h"
#include "TempFolder.h"
#include "mofile.h"

namespace {

// Without gettext's tools there are no catalogs.
#ifndef CVSTOP_CATALOGS
#define CVSTOP_CATALOGS ""
#define CVSTOP_LANGUAGES ""
#endif

std::vector<std::string> shippedLanguages() {
    std::istringstream names(CVSTOP_LANGUAGES);
    return {std::istream_iterator<std::string>(names), {}};
}

/// The translations that are shipped.
class Shipped : public testing::TestWithParam<std::string> {
  protected:
    std::string bytes = contentOf(CVSTOP_CATALOGS "/" + GetParam() + "/LC_MESSAGES/cvstop.mo");
};

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Shipped);

TEST_P(Shipped, HasEveryMessageWithTheSameArguments) {
    for (const Message& message : kMessages) {
        const auto translation = mofile::find(bytes, message.key, message.text);
        ASSERT_TRUE(translation) << message.key
                                 << " has no translation: run cmake --build build/dev --target po-merge, "
                                 << "and translate the new entries of po/" << GetParam() << ".po";
        EXPECT_TRUE(mofile::takesSameArguments(message.text, *translation)) << message.key;
        EXPECT_EQ(translation->ends_with('\n'), std::string_view(message.text).ends_with('\n')) << message.key;
    }
}

TEST_P(Shipped, LabelsFitTheirBuffers) {
    for (const Msg label : {Msg::HeadingName, Msg::HeadingPath, Msg::HeadingPid, Msg::HeadingCategory,
                            Msg::CategoryProduct, Msg::CategoryThirdParty}) {
        const Message& message = kMessages[static_cast<std::size_t>(label)];
        const auto translation = mofile::find(bytes, message.key, message.text);
        ASSERT_TRUE(translation) << message.key;
        EXPECT_LT(translation->size(), 64U);
    }
}

TEST_P(Shipped, KeepsNamesOptionsAndTheLetterOfYes) {
    const struct {
        Msg id;
        const char* kept;
    } rows[] = {{Msg::ConfirmShutdown, "Corvane"},
                {Msg::ConfirmShutdown, "(y = "},
                {Msg::AllSpecifiedTerminated, "Corvane"},
                {Msg::CategoryProduct, "Corvane"},
                {Msg::ListerFailed, "find_process_CV"},
                {Msg::NoExcludeListFile, "-e (-excludelist)"},
                {Msg::ThirdPartyAlone, "-k"},
                {Msg::UsageKill, "%s [ -k | -kill [ -3 | -third_party ]"}};
    for (const auto& row : rows) {
        const Message& message = kMessages[static_cast<std::size_t>(row.id)];
        const auto translation = mofile::find(bytes, message.key, message.text);
        ASSERT_TRUE(translation) << message.key;
        EXPECT_THAT(std::string(*translation), testing::HasSubstr(row.kept));
    }
}

TEST_P(Shipped, EveryTruncationIsHarmless) {
    const Message& last = kMessages[static_cast<std::size_t>(Msg::ExcludeListNotLoaded)];
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        const std::string cut = bytes.substr(0, size);
        const auto found = mofile::find(cut, last.key, last.text);
        EXPECT_TRUE(!found || mofile::takesSameArguments(last.text, *found)) << size;
    }
}

INSTANTIATE_TEST_SUITE_P(Languages, Shipped, testing::ValuesIn(shippedLanguages()),
                         [](const auto& language) { return language.param; });

} // namespace
