#include <locale>
#include <sstream>
#include <string>

#include "Fixture.h"
#include "Processes.h"

using ::testing::IsEmpty;

namespace {

bool acceptsNothing(const CV_Process_s* /*proc*/) {
    return false;
}

bool acceptsEvenPids(const CV_Process_s* proc) {
    return proc->pid % 2 == 0;
}

class ListingTest : public fakes::ProgramTest {
  protected:
    void add(const std::string& name, const std::string& path, std::int32_t pid, std::int32_t category) {
        host.add(name, pid, category).path = path;
    }

    std::string print(bool header, bool (*filter)(const CV_Process_s*) = nullptr) {
        CV_Process_s* list = nullptr;
        find_processes_CV(&list, static_cast<Proc_categories>(7), 0);
        for (CV_Process_s* proc = list; proc != nullptr; proc = proc->next) {
            proc->signalled = 0;
        }
        std::ostringstream out;
        print_processes(out, list, header, filter);
        free_process_list(list);
        return out.str();
    }
};

TEST_F(ListingTest, ANullListPrintsNothing) {
    std::ostringstream out;
    print_processes(out, nullptr, true, nullptr);
    print_processes(out, nullptr, false, acceptsEvenPids);
    EXPECT_EQ(out.str(), "");
    EXPECT_THAT(host.of({"msg"}), IsEmpty());
}

TEST_F(ListingTest, AFilterThatRejectsAllPrintsNotEvenAHeader) {
    add("halvd", "/halvd", 10, 1);
    EXPECT_EQ(print(true, acceptsNothing), "");
    EXPECT_THAT(host.of({"msg"}), IsEmpty());
}

TEST_F(ListingTest, TheWholePicture) {
    add("halvd", "/usr/quarn/corvane/bin/halvd", 812, 1);
    add("gowid", "/usr/quarn/corvane/bin/gowid", 4021, 1);
    add("vi", "/usr/bin/vim.basic", 99, 4);
    add("holder", "/opt/holder", 31337, 2);
    EXPECT_EQ(print(true), "Name   Path                         Pid   Category   \n"
                           "------ ---------------------------- ----- -----------\n"
                           "halvd  /usr/quarn/corvane/bin/halvd 812   Corvane    \n"
                           "gowid  /usr/quarn/corvane/bin/gowid 4021  Corvane    \n"
                           "vi     /usr/bin/vim.basic           99    Third Party\n"
                           "holder /opt/holder                  31337 Third Party\n");
}

TEST_F(ListingTest, TheWholePictureWithoutAHeader) {
    add("halvd", "/usr/quarn/corvane/bin/halvd", 812, 1);
    add("x", "/x", 7, 2);
    EXPECT_EQ(print(false), "halvd /usr/quarn/corvane/bin/halvd 812 Corvane    \n"
                            "x     /x                           7   Third Party\n");
}

TEST_F(ListingTest, ShortNamesLeaveTheColumnsAsWideAsTheirHeadings) {
    add("x", "/x", 7, 1);
    EXPECT_EQ(print(true), "Name Path Pid Category   \n"
                           "---- ---- --- -----------\n"
                           "x    /x   7   Corvane    \n");
}

TEST_F(ListingTest, OnlyShownRecordsCountForTheWidths) {
    add("a-very-long-name", "/a/very/long/path", 100001, 1);
    add("x", "/x", 8, 1);
    EXPECT_EQ(print(false, acceptsEvenPids), "x /x 8 Corvane    \n");
}

TEST_F(ListingTest, UnknownCategoriesHaveAnEmptyWord) {
    add("a", "/a", 1, 4);
    add("b", "/b", 2, 0);
    add("c", "/c", 3, 3);
    add("d", "/d", 4, 2);
    EXPECT_EQ(print(false), "a /a 1 Third Party\n"
                            "b /b 2            \n"
                            "c /c 3            \n"
                            "d /d 4 Third Party\n");
}

TEST_F(ListingTest, TheCategoryColumnIsAtLeastAsWideAsItsHeadingAndBothWords) {
    host.translations = {{"MsgCvs0221N", "P"}, {"MsgCvs0222N", "TP"}};
    add("x", "/x", 7, 1);
    EXPECT_EQ(print(true), "Name Path Pid Category\n"
                           "---- ---- --- --------\n"
                           "x    /x   7   P       \n");
    EXPECT_EQ(print(false), "x /x 7 P \n");
}

TEST_F(ListingTest, LabelsAreLookedUpOnceEachIntoBuffersOf64Bytes) {
    add("x", "/x", 7, 1);
    add("y", "/y", 8, 2);
    print(true);
    EXPECT_THAT(host.of({"msg"}),
                ::testing::UnorderedElementsAre("msg MsgCvs0205N", "msg MsgCvs0210N", "msg MsgCvs0215N",
                                                "msg MsgCvs0220N", "msg MsgCvs0221N", "msg MsgCvs0222N"));
    for (const fakes::Lookup& lookup : host.lookups) {
        EXPECT_EQ(lookup.size, 64U) << lookup.key;
        EXPECT_NE(lookup.buffer, outline) << lookup.key;
    }
}

TEST_F(ListingTest, LongTranslationsAreCutTo63Bytes) {
    host.translations = {{"MsgCvs0205N", std::string(100, 'N')}};
    add("x", "/x", 7, 1);
    const std::string cut(63, 'N');
    EXPECT_EQ(print(true), cut + " Path Pid Category   \n" + std::string(63, '-') + " ---- --- -----------\n" + "x" +
                               std::string(62, ' ') + " /x   7   Corvane    \n");
}

TEST_F(ListingTest, WidthsAreCountedInCharactersAndPaddedInBytes) {
    add("h\xC3\xA4lvd", "/x", 7, 1);
    add("plain", "/y", 8, 1);
    EXPECT_EQ(print(false), "h\xC3\xA4lvd /x 7 Corvane    \n"
                            "plain /y 8 Corvane    \n");
    host.fleet.clear();
    add("\xC3\xA4", "/x", 7, 1);
    add("wide", "/y", 8, 1);
    EXPECT_EQ(print(false), "\xC3\xA4   /x 7 Corvane    \n"
                            "wide /y 8 Corvane    \n");
}

TEST_F(ListingTest, NegativePidsCountTheirSign) {
    add("x", "/x", -12, 1);
    add("y", "/y", 3, 1);
    EXPECT_EQ(print(false), "x /x -12 Corvane    \n"
                            "y /y 3   Corvane    \n");
}

TEST_F(ListingTest, NamesWithConversionsAndPlaceholdersAreLiteral) {
    add("%1%", "/%s%d", 7, 1);
    EXPECT_EQ(print(false), "%1% /%s%d 7 Corvane    \n");
}

/// Groups digits by three, with a comma.
class Grouping : public std::numpunct<char> {
  protected:
    [[nodiscard]] char do_thousands_sep() const override { return ','; }
    [[nodiscard]] std::string do_grouping() const override { return "\3"; }
};

TEST_F(ListingTest, AFiveDigitPidCountsSixUnderALocaleWithGrouping) {
    add("x", "/x", 31337, 1);
    add("y", "/y", 812, 1);
    EXPECT_EQ(print(false), "x /x 31337 Corvane    \n"
                            "y /y 812   Corvane    \n");
    const std::locale previous = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    const std::string grouped = print(false);
    std::locale::global(previous);
    EXPECT_EQ(grouped, "x /x 31,337 Corvane    \n"
                       "y /y 812    Corvane    \n");
}

TEST_F(ListingTest, PrintProcessesPrintsTheWholeSnapshotWithAHeaderOnStandardOutput) {
    add("x", "/x", 7, 1);
    Processes processes(static_cast<Proc_categories>(7), 0);
    EXPECT_EQ(host.run([&] { processes.PrintProcesses(); }), "Name Path Pid Category   \n"
                                                             "---- ---- --- -----------\n"
                                                             "x    /x   7   Corvane    \n");
}

TEST_F(ListingTest, ThirdPartyFilterShowsOnlyTerminableOnes) {
    add("halvd", "/halvd", 10, 1);
    add("holder", "/holder", 11, 2);
    add("editor", "/editor", 12, 4);
    EXPECT_EQ(print(false, isTerminable3rdParty), "holder /holder 11 Third Party\n");
    host.find(11)->alive = false;
    EXPECT_EQ(print(false, isTerminable), "halvd  /halvd  10 Corvane    \n"
                                          "editor /editor 12 Third Party\n");
}

} // namespace
