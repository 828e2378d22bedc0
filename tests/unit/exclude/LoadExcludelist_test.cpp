#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "Fixture.h"
#include "Processes.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const std::string kParse = "debug 1 UserList::setProcessExcludelist: ";
const std::string kDefaultFile = "/usr/quarn/corvane/bin/excludelist.conf";

class LoadExcludelistTest : public fakes::ProgramTest {
  protected:
    LoadExcludelistTest() {
        std::string pattern = (std::filesystem::temp_directory_path() / "exclude.XXXXXX").string();
        m_folder = mkdtemp(pattern.data());
        host.journal.clear();
    }

    ~LoadExcludelistTest() override { std::filesystem::remove_all(m_folder); }

    void userFile(const std::string& content) {
        Args.excludeListFile = m_folder + "/user.list";
        std::ofstream(Args.excludeListFile) << content;
    }

    std::string m_folder;
};

TEST_F(LoadExcludelistTest, WithoutAnyFileNothingIsExcluded) {
    host.add("halvd", 10);
    EXPECT_EQ(host.run([] {
        Processes processes;
        EXPECT_EQ(processes.CountProcesses(), 1U);
        EXPECT_EQ(processes.list()->excluded, 0);
    }),
              "");
    EXPECT_THAT(host.of({"debug", "msg"}),
                ElementsAre(kParse + "Parsing exclude list file: " + kDefaultFile + "(UserList:#)",
                            kParse + "Failed to open the exclude list file " + kDefaultFile +
                                ",not using exclude list file.(UserList:#)"));
}

TEST_F(LoadExcludelistTest, AUsersFileThatDoesNotExistIsReportedAndThrows) {
    Args.excludeListFile = m_folder + "/absent%s";
    Args.quiet = true;
    host.add("halvd", 10);
    std::string what;
    const std::string printed = host.run([&] {
        try {
            const Processes processes;
        } catch (const std::runtime_error& error) {
            what = error.what();
        }
    });
    EXPECT_EQ(what, "Failed to load user specified exclude list.");
    EXPECT_EQ(printed, "Failed to load user-specified exclude list: " + Args.excludeListFile + "\n");
    EXPECT_EQ(outline, printed);
    const fakes::Journal entries = host.of({"debug", "msg", "list", "probe", "kill", "system"});
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_EQ(entries[2], "msg MsgCvs281N");
    EXPECT_EQ(entries[3], "debug 1 Processes::loadExcludelist: Failed to load user specified exclude list: " +
                              Args.excludeListFile + "(CV_Processes:#)");
}

TEST_F(LoadExcludelistTest, AUsersFileIsUsedAloneAndTheDefaultOneIsNotRead) {
    host.files["/usr/quarn/corvane/bin/halvd"] = {1, 7};
    host.files["/usr/quarn/corvane/bin/zeld"] = {1, 8};
    host.add("halvd", 10);
    host.add("zeld", 11);
    userFile("/usr/quarn/corvane/bin/halvd\n");
    Processes processes;
    EXPECT_EQ(processes.list()->excluded, 1);
    EXPECT_EQ(processes.list()->next->excluded, 0);
    for (const std::string& entry : host.of({"debug"})) {
        EXPECT_EQ(entry.find(kDefaultFile), std::string::npos) << entry;
    }
    EXPECT_EQ(host.count(kParse + "Parsing exclude list file: " + Args.excludeListFile + "(UserList:#)"), 1U);
}

TEST_F(LoadExcludelistTest, AUsersEmptyFileExcludesNothing) {
    host.add("halvd", 10);
    userFile("");
    Processes processes(static_cast<Proc_categories>(7), 0);
    EXPECT_EQ(processes.CountProcesses(), 1U);
    EXPECT_EQ(processes.list()->excluded, 0);
    EXPECT_THAT(host.of({"msg"}), IsEmpty());
}

TEST_F(LoadExcludelistTest, AUsersFileWithoutAValidLineIsAccepted) {
    host.add("halvd", 10);
    userFile("halvd\n# /usr/quarn/corvane/bin/halvd\n");
    const Processes processes;
    EXPECT_EQ(processes.list()->excluded, 0);
}

TEST_F(LoadExcludelistTest, EveryRecordGetsItsVerdictAndIsStillCounted) {
    host.files["/usr/quarn/corvane/bin/halvd"] = {1, 7};
    host.add("halvd", 10);
    host.add("zeld", 11);
    host.add("halvd", 12);
    host.add("stranger", 13, 2).path = "/usr/quarn/corvane/bin/halvd";
    userFile("/usr/quarn/corvane/bin/halvd\n");
    Processes processes(static_cast<Proc_categories>(7), 0);
    std::string verdicts;
    for (const CV_Process_s* proc = processes.list(); proc != nullptr; proc = proc->next) {
        verdicts += std::to_string(proc->excluded);
    }
    EXPECT_EQ(verdicts, "1011");
    EXPECT_EQ(processes.CountProcesses(), 4U);
}

TEST_F(LoadExcludelistTest, TheListIsNotReadAgainForALaterSnapshot) {
    userFile("/usr/quarn/corvane/bin/halvd\n");
    host.files["/usr/quarn/corvane/bin/halvd"] = {1, 7};
    host.add("halvd", 10);
    Processes processes;
    std::filesystem::remove(Args.excludeListFile);
    host.journal.clear();
    processes.getProcesses(0, CAT_CORVANE);
    EXPECT_EQ(processes.list()->excluded, 1);
    for (const std::string& entry : host.of({"debug"})) {
        EXPECT_EQ(entry.find("Parsing"), std::string::npos) << entry;
    }
}

TEST_F(LoadExcludelistTest, WithoutALoggerABadFileStillThrowsAndPrints) {
    CVLogger::s_default = nullptr;
    Args.excludeListFile = m_folder + "/absent";
    const std::string printed = host.run([] { EXPECT_THROW(const Processes processes, std::runtime_error); });
    EXPECT_EQ(printed, "Failed to load user-specified exclude list: " + Args.excludeListFile + "\n");
    EXPECT_THAT(host.of({"debug"}), IsEmpty());
}

} // namespace
