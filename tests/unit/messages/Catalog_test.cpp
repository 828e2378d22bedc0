#include "catalog.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MoBuilder.h"
#include "TempFolder.h"
#include "cvmessages.h"
#include "mofile.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kKey[] = "MsgCvs0255N";
constexpr char kEnglish[] = "Signaling process %s\n";

std::string catalogWith(const std::string& translation) {
    return MoBuilder().build({{std::string(kKey) + '\4' + kEnglish, translation}});
}

std::string formatIn(const TempFolder& root, const char* locale) {
    return catalog::Catalog(root.at("locale"), locale).format(kKey, kEnglish);
}

TEST(Languages, GoFromTheFullNameToTheLanguage) {
    EXPECT_THAT(catalog::languagesOf("de_DE.UTF-8"), ElementsAre("de_DE.UTF-8", "de_DE", "de"));
    EXPECT_THAT(catalog::languagesOf("de_DE.utf8@euro"), ElementsAre("de_DE.utf8", "de_DE", "de"));
    EXPECT_THAT(catalog::languagesOf("zh_CN.UTF-8"), ElementsAre("zh_CN.UTF-8", "zh_CN", "zh"));
    EXPECT_THAT(catalog::languagesOf("de_DE"), ElementsAre("de_DE", "de"));
    EXPECT_THAT(catalog::languagesOf("de.UTF-8"), ElementsAre("de.UTF-8", "de"));
    EXPECT_THAT(catalog::languagesOf("ja"), ElementsAre("ja"));
}

TEST(Languages, EnglishForEverythingElse) {
    for (const char* locale :
         {"", "C", "POSIX", "C.UTF-8", "de_DE.ISO-8859-1", "de_DE.ISO-8859-15@euro", "ja_JP.EUC-JP", "de_DE.", "@euro",
          ".UTF-8", ".", "..", "../de", "/de", "de/../fr", "de_DE.UTF-8/x", "_DE", "de DE", "de\nDE"}) {
        EXPECT_THAT(catalog::languagesOf(locale), IsEmpty()) << locale;
    }
}

TEST(LocaleName, IsTheFirstThatIsSet) {
    EXPECT_STREQ(catalog::localeName("fr", "es", "de"), "fr");
    EXPECT_STREQ(catalog::localeName(nullptr, "es", "de"), "es");
    EXPECT_STREQ(catalog::localeName("", "", "de"), "de");
    EXPECT_STREQ(catalog::localeName(nullptr, nullptr, nullptr), "C");
    EXPECT_STREQ(catalog::localeName("", "", ""), "C");
}

TEST(Catalog, BestLanguageWins) {
    const TempFolder root;
    root.write("locale/de/LC_MESSAGES/cvstop.mo", catalogWith("de %s"));
    EXPECT_EQ(formatIn(root, "de_DE.UTF-8"), "de %s");
    EXPECT_EQ(formatIn(root, "de_AT.UTF-8"), "de %s");
    root.write("locale/de_DE/LC_MESSAGES/cvstop.mo", catalogWith("de_DE %s"));
    EXPECT_EQ(formatIn(root, "de_DE.UTF-8"), "de_DE %s");
    EXPECT_EQ(formatIn(root, "de_AT.UTF-8"), "de %s");
    root.write("locale/de_DE.UTF-8/LC_MESSAGES/cvstop.mo", catalogWith("de_DE.UTF-8 %s"));
    EXPECT_EQ(formatIn(root, "de_DE.UTF-8"), "de_DE.UTF-8 %s");
}

TEST(Catalog, DamagedCatalogGivesWayToTheNext) {
    const TempFolder root;
    root.write("locale/de_DE/LC_MESSAGES/cvstop.mo", "damaged");
    root.write("locale/de/LC_MESSAGES/cvstop.mo", catalogWith("de %s"));
    EXPECT_EQ(formatIn(root, "de_DE.UTF-8"), "de %s");
}

TEST(Catalog, EnglishWhereNothingFits) {
    const TempFolder root;
    EXPECT_EQ(formatIn(root, "de_DE.UTF-8"), kEnglish);
    for (const char* translation : {"%d", "", "%s %s", "%1$s", "%n", "no conversion"}) {
        root.write("locale/de/LC_MESSAGES/cvstop.mo", catalogWith(translation));
        EXPECT_EQ(formatIn(root, "de_DE.UTF-8"), kEnglish) << translation;
    }
    root.write("locale/de/LC_MESSAGES/cvstop.mo", catalogWith("de %s"));
    EXPECT_EQ(formatIn(root, "de_DE.ISO-8859-1"), kEnglish);
    EXPECT_EQ(formatIn(root, "../locale/de"), kEnglish);
}

TEST(Catalog, OnlyPlainFilesOfASensibleSizeAreRead) {
    const TempFolder root;
    std::filesystem::create_directories(root.at("locale/de/LC_MESSAGES/cvstop.mo"));
    EXPECT_EQ(formatIn(root, "de"), kEnglish);
    std::filesystem::create_directories(root.at("locale/fr/LC_MESSAGES"));
    ASSERT_EQ(::mkfifo(root.at("locale/fr/LC_MESSAGES/cvstop.mo").c_str(), 0600), 0);
    EXPECT_EQ(formatIn(root, "fr"), kEnglish);
    std::string bytes = catalogWith("es %s");
    bytes.resize(1'048'576);
    root.write("locale/es/LC_MESSAGES/cvstop.mo", bytes);
    EXPECT_EQ(formatIn(root, "es"), "es %s");
    root.write("locale/es/LC_MESSAGES/cvstop.mo", bytes + '\0');
    EXPECT_EQ(formatIn(root, "es"), kEnglish);
}

TEST(Catalog, EveryTruncationAndBitFlipOfAFileStillFormats) {
    const TempFolder root;
    const std::string bytes = catalogWith("Signal an %s\n");
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        std::string damaged = bytes;
        damaged[bit / 8] = static_cast<char>(static_cast<unsigned char>(damaged[bit / 8]) ^ (1U << bit % 8));
        root.write("locale/de/LC_MESSAGES/cvstop.mo", damaged);
        EXPECT_TRUE(mofile::takesSameArguments(kEnglish, formatIn(root, "de"))) << bit;
        root.write("locale/fr/LC_MESSAGES/cvstop.mo", bytes.substr(0, bit / 8));
        EXPECT_TRUE(mofile::takesSameArguments(kEnglish, formatIn(root, "fr"))) << bit;
    }
}

TEST(Qngetmsg, FormatsTheDefaultWithoutACatalog) {
    char buffer[64];
    EXPECT_EQ(qngetmsg(kKey, "C", sizeof buffer, buffer, 0, 0, 0, kEnglish, "a%sb"), 23);
    EXPECT_STREQ(buffer, "Signaling process a%sb\n");
    EXPECT_EQ(qngetmsg(nullptr, nullptr, sizeof buffer, buffer, 0, 0, 0, "%d", 5), 1);
    EXPECT_STREQ(buffer, "5");
}

/// A run uses one locale, but nothing stops a caller from asking for another.
TEST(Qngetmsg, EachLocaleIsAskedForItself) {
    char buffer[64];
    for (const char* locale : {"xx_XX.UTF-8", "C", "xx_XX.UTF-8", "../x"}) {
        EXPECT_EQ(qngetmsg(kKey, locale, sizeof buffer, buffer, 0, 0, 0, kEnglish, "x"), 20);
        EXPECT_STREQ(buffer, "Signaling process x\n");
    }
    EXPECT_EQ(qngetmsg(kKey, nullptr, sizeof buffer, buffer, 0, 0, 0, kEnglish, "x"), 20);
}

TEST(Qngetmsg, NeverWritesPastTheSize) {
    for (std::size_t size = 0; size < 30; ++size) {
        char buffer[32];
        std::memset(buffer, '#', sizeof buffer);
        EXPECT_EQ(qngetmsg(kKey, "C", size, buffer, 0, 0, 0, "%s", "0123456789012345678901234"), 25);
        for (std::size_t place = size; place < sizeof buffer; ++place) {
            ASSERT_EQ(buffer[place], '#') << size << ' ' << place;
        }
        if (size > 0) {
            EXPECT_EQ(std::strlen(buffer), std::min<std::size_t>(size - 1, 25));
        }
    }
}

TEST(Qngetmsg, CutsBetweenCharacters) {
    const struct {
        std::size_t size;
        const char* shown;
    } rows[] = {{1, ""},
                {2, "a"},
                {3, "a"},
                {4, "a\xc3\xb6"},
                {5, "a\xc3\xb6"},
                {6, "a\xc3\xb6"},
                {7, "a\xc3\xb6\xe2\x82\xac"},
                {8, "a\xc3\xb6\xe2\x82\xacz"}};
    for (const auto& row : rows) {
        char buffer[16];
        EXPECT_EQ(qngetmsg(kKey, "C", row.size, buffer, 0, 0, 0, "%s", "a\xc3\xb6\xe2\x82\xacz"), 7);
        EXPECT_STREQ(buffer, row.shown) << row.size;
    }
}

/// Sets the variables of the locale and puts them back.
class Environment {
  public:
    Environment() {
        for (const char* name : kNames) {
            const char* value = std::getenv(name);
            m_before.emplace_back(value == nullptr ? "" : value);
            ::unsetenv(name);
        }
    }
    ~Environment() {
        for (std::size_t index = 0; index < m_before.size(); ++index) {
            ::setenv(kNames[index], m_before[index].c_str(), 1);
        }
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;

  private:
    static constexpr const char* kNames[] = {"LC_ALL",     "LC_MESSAGES", "LC_CTYPE", "LC_TIME",
                                             "LC_COLLATE", "LC_NUMERIC",  "LANG"};
    std::vector<std::string> m_before;
};

struct Locales {
    char messages[16] = "?";
    char ctype[16] = "?";
    char time[16] = "?";
    char collate[16] = "?";
    char numeric[16] = "?";
    qnstatus status;

    int get() {
        return qngetlocaleEx(messages, sizeof messages, ctype, sizeof ctype, time, sizeof time, collate, sizeof collate,
                             numeric, sizeof numeric, &status);
    }
};

TEST(Qngetlocale, FollowsTheEnvironmentCategoryByCategory) {
    const Environment environment;
    Locales locales;
    EXPECT_EQ(locales.get(), 0);
    EXPECT_STREQ(locales.messages, "C");
    ::setenv("LANG", "de_DE.UTF-8", 1);
    ::setenv("LC_TIME", "fr_FR.UTF-8", 1);
    EXPECT_EQ(locales.get(), 0);
    EXPECT_STREQ(locales.messages, "de_DE.UTF-8");
    EXPECT_STREQ(locales.time, "fr_FR.UTF-8");
    EXPECT_STREQ(locales.numeric, "de_DE.UTF-8");
    ::setenv("LC_ALL", "es_ES.UTF-8", 1);
    EXPECT_EQ(locales.get(), 0);
    for (const char* name : {locales.messages, locales.ctype, locales.time, locales.collate, locales.numeric}) {
        EXPECT_STREQ(name, "es_ES.UTF-8");
    }
}

TEST(Qngetlocale, EachCategoryHasItsOwnVariable) {
    const Environment environment;
    for (const char* category : {"LC_MESSAGES", "LC_CTYPE", "LC_TIME", "LC_COLLATE", "LC_NUMERIC"}) {
        ::setenv(category, category, 1);
    }
    Locales locales;
    EXPECT_EQ(locales.get(), 0);
    EXPECT_STREQ(locales.messages, "LC_MESSAGES");
    EXPECT_STREQ(locales.ctype, "LC_CTYPE");
    EXPECT_STREQ(locales.time, "LC_TIME");
    EXPECT_STREQ(locales.collate, "LC_COLLATE");
    EXPECT_STREQ(locales.numeric, "LC_NUMERIC");
}

TEST(Qngetlocale, NameThatDoesNotFitIsEmptyAndAnError) {
    const Environment environment;
    ::setenv("LC_MESSAGES", "de_DE.UTF-8@euro", 1);
    Locales locales;
    EXPECT_NE(locales.get(), 0);
    EXPECT_NE(locales.status.code, 0);
    EXPECT_STREQ(locales.messages, "");
    EXPECT_STREQ(locales.ctype, "C");
    EXPECT_NE(qngetlocaleEx(nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr), 0);
    char name[4] = "abc";
    EXPECT_NE(qngetlocaleEx(name, 0, name, 0, name, 0, name, 0, name, 0, nullptr), 0);
    EXPECT_STREQ(name, "abc") << "nothing is written where there is no room";
}

} // namespace
