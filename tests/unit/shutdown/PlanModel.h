/// The plan stated a second time, plainly: what one row and the whole walk must ask, send, run and wait for, given the
/// running processes. It knows nothing of the program but the record of a row, so that a slip in either shows as a
/// difference of journals.
#pragma once

#include <csignal>
#include <deque>
#include <string>
#include <vector>

#include "World.h"
#include "cvshutdown.h"

class PlanModel {
  public:
    struct Record {
        std::int32_t pid;
        std::string name;
        std::string path;
        std::int32_t category;
        bool isExcluded;
        bool isSignalled = false;
    };

    PlanModel(std::vector<Record> records, std::deque<fakes::FakeProcess> fleet, std::int32_t ownPid, int waitTime)
        : m_records(std::move(records)), m_fleet(std::move(fleet)), m_ownPid(ownPid), m_waitTime(waitTime) {}

    /// "probe PID", "kill PID NAME", "system COMMAND" and "sleep N", in order.
    [[nodiscard]] const fakes::Journal& journal() const { return m_journal; }

    void carryOutRow(const killDef& row, bool secondSignal, int pass) {
        if (row.isCommand) {
            return;
        }
        for (Record& record : m_records) {
            if (record.name != row.name || isPassedOver(record, row)) {
                continue;
            }
            if (probe(record)) {
                if (row.waitType == WAIT_ALL_FIRST) {
                    waitForSignalled();
                }
                stop(record, row, secondSignal, pass);
            }
            record.isSignalled = true;
            if (row.waitType == WAIT_PROCESS) {
                waitFor(record);
            }
            if (row.waitType == WAIT_ALL) {
                waitForSignalled();
            }
            if (row.firstOnly != 0) {
                return;
            }
        }
    }

    template <class Table> void walk(const Table& table, bool secondSignal, int pass) {
        for (const killDef& row : table) {
            carryOutRow(row, secondSignal, pass);
            Record* first = find(row.name);
            if (row.waitType != WAIT_NONE && first != nullptr) {
                waitFor(*first);
            }
        }
        for (Record& record : m_records) {
            const bool isDue = pass == 2 || (pass == 1 && !record.isSignalled);
            if (record.isExcluded || !isDue || record.category != 1 || !probe(record)) {
                continue;
            }
            send(record, SIGINT);
            sleepASecond();
            send(record, SIGTERM);
            sleepASecond();
            send(record, SIGQUIT);
            record.isSignalled = true;
        }
        waitForSignalled();
    }

  private:
    static bool isPassedOver(const Record& record, const killDef& row) {
        const bool isCommandRow = row.killType == NORMAL_TERMINATE || row.killType == PROXY_ALL ||
                                  row.killType == LOCAL_TERMINATE || row.killType == SELECTIVE_CANCEL ||
                                  row.killType == HOST_T || row.killType == REMOVE || row.killType == MOSK_STOP ||
                                  row.killType == STOP;
        return record.isExcluded || record.category == 4 || (record.category == 2 && isCommandRow);
    }

    void stop(const Record& record, const killDef& row, bool secondSignal, int pass) {
        const std::string admin = "/usr/quarn/corvane/bin/admincmd/";
        if (row.killType == NORMAL_TERMINATE) {
            run(record.path + " -terminate");
        } else if (row.killType == LOCAL_TERMINATE) {
            run(record.path + " -terminate_local");
        } else if (row.killType == REMOVE) {
            run(record.path + ".stop -remove");
        } else if (row.killType == PROXY_ALL) {
            run(admin + "vilohibo -all");
        } else if (row.killType == SELECTIVE_CANCEL) {
            run(admin + "humowow -M localhost -suspend_cancel_selective");
            run(admin + "humowow -M localhost -terminate");
        } else if (row.killType == HOST_T) {
            run("/usr/quarn/volmgr/bin/nodakewe -h localhost -t");
        } else if (row.killType == MOSK_STOP) {
            run("/usr/quarn/mosk/CorvaneDB/" + row.name + " -stop");
        } else if (row.killType == STOP) {
            run("/usr/quarn/corvane/bin/duzahi_start_stop stop");
        } else if (row.killType == KILL || (row.killType == SKIP && pass != 1)) {
            sendBoth(record, SIGTERM, SIGHUP, secondSignal);
        } else if (row.killType == KILLH) {
            sendBoth(record, SIGHUP, SIGTERM, secondSignal);
        } else if (row.killType == KILL9) {
            send(record, SIGKILL);
        }
    }

    void sendBoth(const Record& record, int first, int second, bool secondSignal) {
        send(record, first);
        if (secondSignal) {
            send(record, second);
        }
    }

    void send(const Record& record, int signal) {
        if (record.pid == m_ownPid || record.isExcluded || record.category == 4) {
            return;
        }
        m_journal.push_back("kill " + std::to_string(record.pid) + " SIG" + sigabbrev_np(signal));
        fakes::FakeProcess& process = processOf(record);
        if (!process.foreign && process.diesOf.count(signal) != 0) {
            process.alive = false;
        }
    }

    bool probe(const Record& record) {
        m_journal.push_back("probe " + std::to_string(record.pid));
        const fakes::FakeProcess& process = processOf(record);
        return process.alive && !process.foreign;
    }

    void run(const std::string& command) {
        m_journal.push_back("system " + command + " > /dev/null 2>&1 &");
        for (fakes::FakeProcess& process : m_fleet) {
            if (!process.stopsOn.empty() && command.find(process.stopsOn) != std::string::npos) {
                process.alive = false;
            }
        }
    }

    void sleepASecond() {
        m_journal.emplace_back("sleep 1");
        for (fakes::FakeProcess& process : m_fleet) {
            if (process.secondsLeft > 0 && --process.secondsLeft == 0) {
                process.alive = false;
            }
        }
    }

    /// Looks at one process each second.
    void waitFor(const Record& record) {
        for (int second = 0; second < m_waitTime && probe(record); ++second) {
            sleepASecond();
        }
    }

    /// Looks at all signalled processes each second, and once more at those that are left, to name them.
    void waitForSignalled() {
        for (int look = 1; look <= m_waitTime; ++look) {
            if (countSignalled() == 0) {
                return;
            }
            if (look < m_waitTime) {
                sleepASecond();
            }
        }
        countSignalled();
    }

    int countSignalled() {
        int count = 0;
        for (const Record& record : m_records) {
            count += record.isSignalled && probe(record) ? 1 : 0;
        }
        return count;
    }

    Record* find(const std::string& name) {
        for (Record& record : m_records) {
            if (record.name == name) {
                return &record;
            }
        }
        return nullptr;
    }

    fakes::FakeProcess& processOf(const Record& record) {
        for (fakes::FakeProcess& process : m_fleet) {
            if (process.pid == record.pid) {
                return process;
            }
        }
        return m_fleet.front();
    }

    std::vector<Record> m_records;
    std::deque<fakes::FakeProcess> m_fleet;
    std::int32_t m_ownPid;
    int m_waitTime;
    fakes::Journal m_journal;
};
