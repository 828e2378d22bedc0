#include "mofile.h"

#include <memory>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "MoBuilder.h"

namespace {

const std::string kContext = "MsgCvs0255N";
const std::string kEnglish = "Signaling process %s\n";
const std::string kGerman = "Signal wird an Prozess %s gesendet\n";

MoEntries sampleEntries() {
    return {{"", "Content-Type: text/plain; charset=UTF-8\n"},
            {"MsgCvs0205N\4Name", "Name"},
            {kContext + '\4' + kEnglish, kGerman},
            {kContext + '\4' + "older text", "alt"}};
}

/// Looks up in an allocation of exactly the bytes' size, so that a sanitizer sees every read beyond them.
std::optional<std::string> findIn(const std::string& bytes, const std::string& id = kEnglish) {
    const auto exact = std::make_unique<char[]>(bytes.size());
    bytes.copy(exact.get(), bytes.size());
    const auto found = mofile::find({exact.get(), bytes.size()}, kContext, id);
    return found ? std::optional<std::string>(*found) : std::nullopt;
}

TEST(MoFile, FindsByContextAndTextInBothByteOrders) {
    for (const bool isBigEndian : {false, true}) {
        const std::string bytes = MoBuilder(isBigEndian).build(sampleEntries());
        EXPECT_EQ(findIn(bytes), kGerman);
        EXPECT_EQ(findIn(bytes, "older text"), "alt");
        EXPECT_EQ(findIn(bytes, "other text"), std::nullopt);
        EXPECT_EQ(mofile::find(bytes, "MsgCvs0256N", kEnglish), std::nullopt);
        EXPECT_EQ(mofile::find(bytes, "MsgCvs0205N", "Name"), "Name");
    }
}

TEST(MoFile, EveryTruncationIsHarmless) {
    for (const bool isBigEndian : {false, true}) {
        const std::string bytes = MoBuilder(isBigEndian).build(sampleEntries());
        const std::size_t neededEnd = bytes.find(kGerman) + kGerman.size() + 1;
        for (std::size_t size = 0; size < bytes.size(); ++size) {
            const auto found = findIn(bytes.substr(0, size));
            EXPECT_EQ(found.has_value(), size >= neededEnd) << size;
        }
    }
}

TEST(MoFile, EveryBitFlipIsHarmless) {
    const std::string bytes = MoBuilder().build(sampleEntries());
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
        std::string damaged = bytes;
        damaged[bit / 8] = static_cast<char>(static_cast<unsigned char>(damaged[bit / 8]) ^ (1U << bit % 8));
        const auto found = findIn(damaged);
        EXPECT_TRUE(!found || found->size() < bytes.size()) << bit;
    }
}

TEST(MoFile, HostileWordsAreHarmless) {
    const MoBuilder builder;
    const std::string bytes = builder.build(sampleEntries());
    for (std::size_t place = 0; place + 4 <= bytes.size(); place += 4) {
        for (const std::uint32_t value : {0U, 1U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFF8U, 0xFFFFFFFFU}) {
            std::string damaged = bytes;
            damaged.replace(place, 4, builder.word(value));
            const auto found = findIn(damaged);
            EXPECT_TRUE(!found || damaged.find(*found) != std::string::npos) << place << ' ' << value;
        }
    }
}

TEST(MoFile, UnknownMajorRevisionIsNotRead) {
    const MoBuilder builder;
    std::string bytes = builder.build(sampleEntries());
    EXPECT_TRUE(findIn(bytes.replace(4, 4, builder.word(0x00010001))));
    EXPECT_FALSE(findIn(bytes.replace(4, 4, builder.word(0x00020000))));
}

TEST(MoFile, UnusableTranslationsAreNotFound) {
    for (const std::string& translation :
         {std::string(), std::string("K\xf6ln %s"), std::string("one %s\0two %s", 13), std::string("\xe2\x82")}) {
        EXPECT_EQ(findIn(MoBuilder().build({{kContext + '\4' + kEnglish, translation}})), std::nullopt);
    }
}

TEST(Conversions, AreReadInOrder) {
    using Found = std::vector<std::string>;
    EXPECT_EQ(mofile::conversions("none, 100%%"), Found());
    EXPECT_EQ(mofile::conversions("%s (%d)"), (Found{"s", "d"}));
    EXPECT_EQ(mofile::conversions("%-10.3s %05i %+ld %zu"), (Found{"s", "d", "ld", "zu"}));
    EXPECT_EQ(mofile::conversions("%*.*s"), (Found{"*", "*", "s"}));
}

TEST(Conversions, UnsoundFormatsHaveNone) {
    for (const char* format : {"%",   "%5",   "%.",    "%1$s", "%2$d %1$s", "%*1$d",   "%n", "%hhn", "%m", "%'d",
                               "%Id", "%lll", "%llld", "%w",   "%9999d",    "%.9999s", "%-", "%S",   "%C", "% "}) {
        EXPECT_EQ(mofile::conversions(format), std::nullopt) << format;
    }
}

TEST(Conversions, TranslationTakesTheSameArgumentsOrIsRefused) {
    const struct {
        const char* original;
        const char* translation;
        bool isTaken;
    } rows[] = {
        {"%s (%d)", "%s: %d", true},  {"%s (%d)", "%-20s: %3d", true},
        {"%s (%d)", "%d: %s", false}, {"%s (%d)", "%2$d: %1$s", false},
        {"%s (%d)", "%s", false},     {"%s (%d)", "%s %d %d", false},
        {"%s (%d)", "%s %s", false},  {"%d", "%ld", false},
        {"%d", "%u", false},          {"%d", "%*d", false},
        {"%d", "%i", true},           {"%d", "%d 100%", false},
        {"%d", "%d 100%%", true},     {"none", "keine", true},
        {"none", "%s", false},        {"none", "50% of", false},
        {"none", "%n", false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(mofile::takesSameArguments(row.original, row.translation), row.isTaken)
            << row.original << " / " << row.translation;
    }
}

} // namespace
