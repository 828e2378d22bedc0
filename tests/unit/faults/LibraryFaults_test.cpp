// The other libraries, and what the program itself reads: each call fails once, in turn.
#include <cerrno>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Faults.h"
#include "MoBuilder.h"
#include "TempFolder.h"
#include "UserList.h"
#include "catalog.h"
#include "cvbase.h"
#include "cvlog.h"
#include "cvtelemetry.h"
#include "front.h"
#include "hostconf.h"

namespace {

using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct Fault {
    const char* call;
    int error;
};

/// Runs `body` with the call's first occurrence failing, then with its second, until none is left to fail. `prepare`
/// runs before each, while all calls pass.
void forEachFailure(const char* call, int error, const std::function<void()>& prepare,
                    const std::function<void()>& body) {
    int reached = 0;
    for (bool wasReached = true; wasReached; reached += wasReached ? 1 : 0) {
        prepare();
        SCOPED_TRACE(std::string(call) + ", " + strerrorname_np(error) + " at occurrence " +
                     std::to_string(reached + 1));
        faults::arm(call, error, reached + 1);
        body();
        wasReached = faults::disarm();
    }
    EXPECT_GT(reached, 0) << call << " is never called";
}

TEST(ConfigurationFaults, KeepTheOneInUseAndAreLoggedBySyslog) {
    const TempFolder folder;
    const std::string before = folder.write("before", "[host]\nrole = client\nname = before\n");
    const std::string after = folder.write("after", "[host]\nrole = server\nname = after\n");
    for (const Fault& fault :
         std::initializer_list<Fault>{{"open", EMFILE}, {"fstat", EIO}, {"read", EIO}, {"read", EISDIR}}) {
        const char* call = fault.call;
        const int error = fault.error;
        int refused = 0;
        forEachFailure(
            call, error, [&] { ASSERT_EQ(hostconf::load(before.c_str()), 0); },
            [&] {
                faults::systemLog().clear();
                if (hostconf::load(after.c_str()) == 0) {
                    EXPECT_EQ(get_master_config_ptr()->name, "after");
                    return;
                }
                ++refused;
                EXPECT_EQ(get_master_config_ptr()->name, "before");
                EXPECT_FALSE(get_master_config_ptr()->isServer);
                EXPECT_THAT(faults::systemLog(), ElementsAre(HasSubstr(after + ": " + std::strerror(error))));
            });
        EXPECT_GT(refused, 0) << call;
    }
}

/// The texts of a log's lines, without date and process.
std::vector<std::string> textsOf(const std::string& path) {
    std::vector<std::string> texts;
    for (const std::string& line : linesOf(path)) {
        const std::size_t text = line.find("test: ");
        texts.push_back(text == std::string::npos ? line : line.substr(text + 6));
    }
    return texts;
}

TEST(LogFaults, LoseTheirRecordAndNoOther) {
    const TempFolder folder;
    const std::string path = folder.at("log");
    CVLogger logger;
    int lost = 0;
    forEachFailure(
        "write", ENOSPC,
        [&] {
            std::filesystem::remove(path);
            ASSERT_EQ(logger.openFile(path.c_str(), "host", "cvstop", nullptr), 0);
        },
        [&] {
            for (const char* text : {"one", "two", "three"}) {
                logger.write("info", "test", text);
            }
            std::vector<std::string> wanted = {"one", "two", "three"};
            if (const std::vector<std::string> found = textsOf(path); found != wanted) {
                wanted.erase(wanted.begin() + lost++);
                EXPECT_EQ(found, wanted);
            }
        });
    EXPECT_EQ(lost, 3);
}

TEST(LogFaults, AtOpeningDropTheRecordsOrNothing) {
    const TempFolder folder;
    const std::string path = folder.at("log");
    for (const Fault& fault : std::initializer_list<Fault>{{"open", EACCES}, {"fstat", EIO}, {"fchmod", EPERM}}) {
        const char* call = fault.call;
        const int error = fault.error;
        CVLogger logger;
        forEachFailure(
            call, error, [&] { std::filesystem::remove(path); },
            [&] {
                const int status = logger.openFile(path.c_str(), "host", "cvstop", nullptr);
                errno = E2BIG;
                logger.write("info", "test", "one");
                EXPECT_EQ(errno, E2BIG) << "logging changes nothing for its caller";
                if (status != 0) {
                    EXPECT_EQ(status, error);
                    EXPECT_FALSE(std::filesystem::exists(path));
                } else {
                    EXPECT_THAT(textsOf(path), ElementsAre("one"));
                }
            });
    }
}

TEST(LogFaults, AnInterruptedWriteIsRepeated) {
    const TempFolder folder;
    const std::string path = folder.at("log");
    CVLogger logger;
    ASSERT_EQ(logger.openFile(path.c_str(), "host", "cvstop", nullptr), 0);
    faults::arm("write", EINTR, 1);
    logger.write("info", "test", "one");
    EXPECT_TRUE(faults::disarm());
    EXPECT_THAT(textsOf(path), ElementsAre("one"));
}

TEST(CatalogFaults, SpeakEnglish) {
    const TempFolder folder;
    constexpr char kKey[] = "MsgCvs0255N";
    constexpr char kEnglish[] = "Signaling process %s\n";
    folder.write("locale/de/LC_MESSAGES/cvstop.mo",
                 MoBuilder().build({{std::string(kKey) + '\4' + kEnglish, "Signal an %s\n"}}));
    for (const Fault& fault : std::initializer_list<Fault>{{"open", EMFILE}, {"fstat", EIO}, {"read", EIO}}) {
        const char* call = fault.call;
        const int error = fault.error;
        int english = 0;
        forEachFailure(
            call, error, [] {},
            [&] {
                const std::string text = catalog::Catalog(folder.at("locale"), "de").format(kKey, kEnglish);
                EXPECT_THAT(text, AnyOf(kEnglish, "Signal an %s\n"));
                english += text == kEnglish ? 1 : 0;
            });
        EXPECT_GT(english, 0) << call;
    }
}

TEST(TelemetryFaults, GiveNoHandleWithoutASocket) {
    forEachFailure(
        "socket", EMFILE, [] {},
        [] {
            cvtelemetry_t handle = nullptr;
            const int status = cvtelemetry_init(&handle, "127.0.0.1:8125", nullptr);
            EXPECT_THAT(status, AnyOf(0, EMFILE));
            EXPECT_EQ(handle == nullptr, status != 0);
            EXPECT_EQ(cvtelemetry_gauge(handle, "cvstop.kill", 1.0), 0);
            EXPECT_EQ(cvtelemetry_flush(handle), 0);
            EXPECT_EQ(cvtelemetry_destroy(handle), 0);
        });
}

TEST(TelemetryFaults, OfOneDatagramLoseNothing) {
    for (const int error : {EAGAIN, ENOBUFS, ENOMEM, EINTR}) {
        cvtelemetry_t handle = nullptr;
        ASSERT_EQ(cvtelemetry_init(&handle, "127.0.0.1:9", nullptr), 0);
        faults::arm("sendto", error, 1);
        EXPECT_EQ(cvtelemetry_gauge(handle, "cvstop.kill", 1.0), 0);
        EXPECT_TRUE(faults::disarm());
        // There is no listener: the kernel may say so at the second datagram, which is then the one that is kept.
        EXPECT_THAT(cvtelemetry_flush(handle), AnyOf(0, ECONNREFUSED));
        cvtelemetry_destroy(handle);
    }
}

TEST(FolderFaults, AreReportedAsErrno) {
    const TempFolder folder;
    for (const Fault& fault : std::initializer_list<Fault>{{"mkdir", EROFS}, {"mkdir", ENOSPC}, {"chmod", EPERM}}) {
        const char* call = fault.call;
        const int error = fault.error;
        int failures = 0;
        forEachFailure(
            call, error, [&] { std::filesystem::remove_all(folder.at("a")); },
            [&] {
                std::int32_t status = -1;
                const int result = mkdirpath(folder.at("a/b/c").c_str(), 0750, &status);
                EXPECT_EQ(status, result == 0 ? 0 : error);
                EXPECT_TRUE(result != 0 || modeOf(folder.at("a/b/c")) == 0750);
                failures += result != 0 ? 1 : 0;
            });
        // The first mkdir is for the folder itself, and its failure differs from a missing parent.
        EXPECT_GE(failures, 3) << call;
    }
}

/// Without a /dev/null the place of a closed stream is kept all the same: a log must not become descriptor 1.
TEST(StreamFaults, LeaveNoStandardDescriptorFree) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(STDIN_FILENO);
        ::close(STDOUT_FILENO);
        faults::arm("open", ENOENT, 2);
        prepareStandardStreams();
        const bool wasReached = faults::disarm();
        const int next = ::dup(STDERR_FILENO);
        std::exit(wasReached && next > STDERR_FILENO && ::write(STDOUT_FILENO, "x", 1) < 0 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

/// What was read counts: a list that became unreadable half way still protects what it has named so far.
TEST(ExcludeListFaults, AReadErrorEndsTheListLikeItsEnd) {
    const TempFolder folder;
    const std::string early = folder.write("early", "");
    const std::string late = folder.write("late", "");
    std::string text = early + "\n";
    for (int line = 0; line < 2000; ++line) {
        text += "/opt/tool/" + std::to_string(line) + "\n";
    }
    const std::string file = folder.write("list", text + late + "\n");
    UserList list;
    faults::arm("read", EIO, 2);
    EXPECT_TRUE(list.setProcessExcludelist(file));
    if (!faults::disarm()) {
        GTEST_SKIP() << "a shared C++ library makes its own system calls";
    }
    EXPECT_TRUE(list.processExcludelistContains(early));
    EXPECT_FALSE(list.processExcludelistContains(late));
}

} // namespace
