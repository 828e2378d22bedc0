// Whatever the fleet, the table and the exclude list: protected processes get no signal, no stranger's path becomes a
// command, and every wait ends.
#include <algorithm>
#include <cstdlib>
#include <set>
#include <sstream>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "PropertiesTest.h"
#include "front.h"
#include "shutdown.h"

using fakes::FakeProcess;

namespace {

constexpr int kRowCases = 9000;
constexpr int kWalkCases = 600;
constexpr int kModeCases = 600;
/// One in so many cases with a faulty row is run to its end, in a child process.
constexpr int kFatalSample = 25;

bool isFaulty(const killDef& row) {
    const bool isUndefined = row.killType == LOCALHOST_TERMINATE || row.killType == UNMOUNT ||
                             row.killType == ZELDPARAMS || row.killType == JAVA_STOP || row.killType > STOP;
    return !row.isCommand && isUndefined;
}

killDef randomRow(Chance& chance) {
    const bool isCommand = chance.oneIn(12);
    const kill_type killType =
        isCommand ? (chance.oneIn(2) ? UNMOUNT : ZELDPARAMS) : static_cast<kill_type>(chance.upTo(STOP + 1));
    return {1,
            GROUP_JOBS,
            kNames[chance.upTo(9)],
            isCommand,
            killType,
            chance.upTo(1),
            static_cast<wait_type>(chance.upTo(3)),
            1,
            ""};
}

/// The most seconds that a row may wait, over all its processes.
long longestWait(const killDef& row, long matching) {
    switch (row.waitType) {
    case WAIT_PROCESS:
        return matching * Args.waitTime;
    case WAIT_ALL:
    case WAIT_ALL_FIRST:
        return matching * (Args.waitTime - 1);
    case WAIT_NONE:
        break;
    }
    return 0;
}

std::string describe(std::uint_fast32_t seed, const killDef& row, int secondSignal, int pass) {
    std::ostringstream text;
    text << "CVSTOP_TEST_SEED=" << seed << " row " << row.name << " type " << row.killType << " firstOnly "
         << row.firstOnly << " wait " << row.waitType << " second " << secondSignal << " pass " << pass;
    return text.str();
}

TEST_F(PropertiesTest, OneRow) {
    int fatalCases = 0;
    int fatalRun = 0;
    int handled = 0;
    for (std::uint_fast32_t seed = firstSeed(); seed < firstSeed() + kRowCases && !HasFailure(); ++seed) {
        startCase();
        Chance chance(seed);
        addRandomFleet(chance);
        Processes processes(static_cast<Proc_categories>(7), 0);
        excludeSome(chance, processes);
        const killDef row = randomRow(chance);
        const int secondSignal = chance.upTo(1);
        const int pass = 1 + chance.upTo(2);
        SCOPED_TRACE(describe(seed, row, secondSignal, pass));
        host.journal.clear();

        if (isFaulty(row) && hasActive(row.name)) {
            if (++fatalCases % kFatalSample == 0) {
                ++fatalRun;
                // A faulty row never acts. Only a first-only row may end before it meets a process that runs.
                const fakes::ChildResult result = fakes::inChild(
                    [&] { std::exit(terminateAllProcesses(processes, row, secondSignal, pass) == 1 ? 1 : 2); });
                EXPECT_TRUE(result.status == 16 || (row.firstOnly != 0 && result.status == 1)) << result.status;
                EXPECT_TRUE(result.of({"kill", "system"}).empty());
            }
            continue;
        }
        PlanModel expected = model(processes);
        expected.carryOutRow(row, secondSignal != 0, pass);
        std::int32_t count = -1;
        host.run([&] { count = terminateAllProcesses(processes, row, secondSignal, pass); });
        handled += count;
        EXPECT_EQ(host.of({"probe", "kill", "system", "sleep"}), expected.journal());
        checkJournal();
        const std::set<std::int32_t> pids = marked(processes);
        EXPECT_EQ(static_cast<std::size_t>(count), pids.size()) << "each handled record is marked, once";
        EXPECT_LE(row.firstOnly != 0 ? count : 0, 1);
        for (const std::int32_t pid : pids) {
            EXPECT_EQ(host.find(pid)->name, row.name);
            EXPECT_EQ(m_excluded.count(pid), 0U);
            EXPECT_NE(host.find(pid)->category, 4);
        }
        EXPECT_TRUE(host.of({"system"}).empty() || hasCommandable(row.name)) << "a command for a stranger's record";
        const auto matching = std::count_if(host.fleet.begin(), host.fleet.end(),
                                            [&](const FakeProcess& process) { return process.name == row.name; });
        EXPECT_LE(host.slept, longestWait(row, matching));
    }
    EXPECT_GT(handled, 1000) << "too few cases that do anything";
    EXPECT_GT(fatalRun, 5) << "too few cases with a faulty row";
}

TEST_F(PropertiesTest, TheWholeWalk) {
    for (std::uint_fast32_t seed = firstSeed(); seed < firstSeed() + kWalkCases && !HasFailure(); ++seed) {
        startCase();
        Chance chance(seed);
        addRandomFleet(chance);
        Processes processes(static_cast<Proc_categories>(7), 0);
        excludeSome(chance, processes);
        const int pass = 1 + chance.upTo(2);
        const bool secondSignal = chance.oneIn(2);
        SCOPED_TRACE("CVSTOP_TEST_SEED=" + std::to_string(seed) + " pass " + std::to_string(pass));
        host.journal.clear();

        PlanModel expected = model(processes);
        expected.walk(KillDefines, secondSignal, pass);
        std::int32_t remaining = -1;
        host.run([&] { remaining = OrderlyShutdown(processes, secondSignal, pass); });
        EXPECT_EQ(host.of({"probe", "kill", "system", "sleep"}), expected.journal());
        checkJournal();
        EXPECT_GE(remaining, 0);
        EXPECT_LE(static_cast<std::size_t>(remaining), marked(processes).size());
        for (const std::int32_t pid : marked(processes)) {
            EXPECT_EQ(m_excluded.count(pid), 0U);
            EXPECT_NE(host.find(pid)->category, 4);
        }
        // Two rows wait, each once for its process and once more; the rest takes two seconds a process and one wait.
        const long limit = 4L * Args.waitTime + 2L * static_cast<long>(host.fleet.size()) + Args.waitTime;
        EXPECT_LE(host.slept, limit);
    }
}

/// An exclude list of which only the content changes.
class ListFile {
  public:
    ListFile() : m_fd(memfd_create("list", MFD_CLOEXEC)) {}
    ~ListFile() { close(m_fd); }
    ListFile(const ListFile&) = delete;
    ListFile& operator=(const ListFile&) = delete;

    /// Replaces the content and returns the path.
    [[nodiscard]] std::string write(const std::string& content) const {
        EXPECT_EQ(ftruncate(m_fd, 0), 0);
        EXPECT_EQ(pwrite(m_fd, content.data(), content.size(), 0), static_cast<ssize_t>(content.size()));
        return "/proc/self/fd/" + std::to_string(m_fd);
    }

  private:
    int m_fd;
};

TEST_F(PropertiesTest, AWholeShutdownWithAnExcludeList) {
    const ListFile list;
    int kills = 0;
    for (std::uint_fast32_t seed = firstSeed(); seed < firstSeed() + kModeCases && !HasFailure(); ++seed) {
        startCase();
        Chance chance(seed);
        addRandomFleet(chance);
        SCOPED_TRACE("CVSTOP_TEST_SEED=" + std::to_string(seed));
        std::ostringstream content;
        for (const FakeProcess& process : host.fleet) {
            if (chance.oneIn(4)) {
                content << process.path << '\n';
                m_excluded.insert(process.pid);
            }
        }
        Args.excludeListFile = list.write(content.str());
        int status = -1;
        const auto categories = static_cast<Proc_categories>(chance.oneIn(2) ? 7 : 1);
        host.run([&] { status = runShutdownMode(categories); });
        checkJournal();
        kills += static_cast<int>(host.of({"kill"}).size());
        EXPECT_TRUE(status == 0 || status == 1);
        EXPECT_LE(host.slept, 7L * Args.waitTime + 2L * static_cast<long>(host.fleet.size()));
        EXPECT_EQ(fakes::liveRecords(), 0U);
    }
    EXPECT_GT(kills, 500) << "too few cases that do anything";
}

} // namespace
