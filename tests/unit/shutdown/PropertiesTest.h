/// Random hosts, and what must hold of every one of them.
#pragma once

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Fixture.h"
#include "PlanModel.h"
#include "Processes.h"

inline const char* const kNames[] = {"halvd", "java", "pazed", "zeld", "kuror",
                                     "hiwik", "dobd", "kobd",  "sodo", "nobody"};

inline std::uint_fast32_t firstSeed() {
    const char* given = std::getenv("CVSTOP_TEST_SEED");
    return given == nullptr ? 20261120U : static_cast<std::uint_fast32_t>(std::strtoul(given, nullptr, 10));
}

class Chance {
  public:
    explicit Chance(std::uint_fast32_t seed) : m_engine(seed) {}

    int upTo(int last) { return std::uniform_int_distribution<int>(0, last)(m_engine); }
    bool oneIn(int count) { return upTo(count - 1) == 0; }

  private:
    std::mt19937 m_engine;
};

class PropertiesTest : public fakes::ProgramTest {
  protected:
    static std::string newPath(std::int32_t pid) { return "/usr/quarn/p" + std::to_string(pid) + "/daemon"; }

    void addRandomProcess(Chance& chance, std::int32_t pid) {
        constexpr std::int32_t kCategories[] = {1, 1, 1, 1, 2, 2, 4, 4, 0, 3};
        fakes::FakeProcess& process = host.add(kNames[chance.upTo(9)], pid, kCategories[chance.upTo(9)]);
        process.path = newPath(pid);
        process.alive = !chance.oneIn(5);
        process.foreign = chance.oneIn(12);
        for (const int signal : {SIGHUP, SIGTERM, SIGINT, SIGQUIT, SIGKILL}) {
            if (chance.oneIn(2)) {
                process.diesOf.erase(signal);
            }
        }
        process.secondsLeft = chance.oneIn(2) ? 1 + chance.upTo(5) : -1;
        process.stopsOn = chance.oneIn(2) ? process.path : "";
        host.files[process.path] = {1, static_cast<ino_t>(pid)};
    }

    /// A fleet, the program's own record in it now and then, and processes that no snapshot knows.
    void addRandomFleet(Chance& chance) {
        const int count = chance.upTo(7);
        for (int index = 0; index < count; ++index) {
            addRandomProcess(chance, 100 + index);
        }
        if (chance.oneIn(3)) {
            addRandomProcess(chance, host.ownPid);
        }
        Args.waitTime = 1 + chance.upTo(29);
        Args.quiet = chance.oneIn(2);
        Args.verbose = !chance.oneIn(4);
    }

    void excludeSome(Chance& chance, Processes& processes) {
        for (CV_Process_s* proc = processes.list(); proc != nullptr; proc = proc->next) {
            proc->excluded = chance.oneIn(4) ? 1 : 0;
            if (proc->excluded == 1) {
                m_excluded.insert(proc->pid);
            }
        }
    }

    void startCase() {
        clear();
        m_excluded.clear();
    }

    void checkSignal(const std::string& entry) {
        const std::int32_t pid = std::stoi(entry.substr(5));
        EXPECT_NE(pid, host.ownPid) << entry;
        EXPECT_EQ(m_excluded.count(pid), 0U) << entry << ": excluded";
        const fakes::FakeProcess* process = host.find(pid);
        ASSERT_NE(process, nullptr) << entry << ": not in the snapshot";
        EXPECT_NE(process->category, 4) << entry << ": only listed";
    }

    void checkCommand(const std::string& entry) {
        for (const fakes::FakeProcess& process : host.fleet) {
            if (entry.find(process.path) == std::string::npos) {
                continue;
            }
            EXPECT_NE(process.category, 2) << entry;
            EXPECT_NE(process.category, 4) << entry;
            EXPECT_EQ(m_excluded.count(process.pid), 0U) << entry << ": excluded";
        }
    }

    void checkJournal() {
        for (const std::string& entry : host.of({"kill"})) {
            checkSignal(entry);
        }
        for (const std::string& entry : host.of({"system"})) {
            checkCommand(entry);
        }
    }

    [[nodiscard]] PlanModel model(const Processes& processes) const {
        std::vector<PlanModel::Record> records;
        for (const CV_Process_s* proc = processes.list(); proc != nullptr; proc = proc->next) {
            records.push_back({proc->pid, proc->name, proc->path, proc->category, proc->excluded == 1});
        }
        return {std::move(records), host.fleet, host.ownPid, Args.waitTime};
    }

    [[nodiscard]] bool hasActive(const std::string& name) const {
        return std::any_of(host.fleet.begin(), host.fleet.end(), [&](const fakes::FakeProcess& process) {
            return process.name == name && process.alive && !process.foreign && process.category != 4 &&
                   m_excluded.count(process.pid) == 0;
        });
    }

    /// Whether some record of that name may have a command run for it.
    [[nodiscard]] bool hasCommandable(const std::string& name) const {
        return std::any_of(host.fleet.begin(), host.fleet.end(), [&](const fakes::FakeProcess& process) {
            return process.name == name && process.category != 2 && process.category != 4;
        });
    }

    static std::set<std::int32_t> marked(const Processes& processes) {
        std::set<std::int32_t> pids;
        for (const CV_Process_s* proc = processes.list(); proc != nullptr; proc = proc->next) {
            if (proc->signalled == 1) {
                pids.insert(proc->pid);
            }
        }
        return pids;
    }

    std::set<std::int32_t> m_excluded;
};
