#include "LogStory.h"

#include <utility>

#include "cvshutdown.h"

namespace watch {

namespace {

using Kind = LogEvent::Kind;

std::string lastComponent(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

const killDef& rowAt(int row) {
    return KillDefines[static_cast<std::size_t>(row - 1)];
}

/// Whether the program is through with a row, or with a round of SIGKILL, when it writes such a record.
bool endsRequests(Kind kind) {
    switch (kind) {
    case Kind::rowDone:
    case Kind::sweepBegins:
    case Kind::sweepOf:
    case Kind::notTerminated:
    case Kind::allTerminated:
    case Kind::killBegins:
    case Kind::thirdParty:
        return true;
    default:
        return false;
    }
}

} // namespace

int rowNamed(const std::string& name) {
    int place = 0;
    for (const killDef& row : KillDefines) {
        ++place;
        if (!row.isCommand && row.name == name) {
            return place;
        }
    }
    return 0;
}

LogStory::LogStory(Time begin, bool asks) : m_former(begin), m_commandsEarliest(begin) {
    if (!asks) {
        open(Stage::Kind::gathering, begin);
    }
}

void LogStory::open(Stage::Kind kind, Time begin, int row, const std::string& name) {
    close(begin);
    m_present = Stage{kind, row, name, begin, begin, {}};
}

void LogStory::close(Time end) {
    if (m_present) {
        m_present->end = end;
        m_stages.push_back(*std::exchange(m_present, std::nullopt));
    }
    m_rowDone.reset();
    m_rowAsked.reset();
}

void LogStory::enterRow(int row, Time begin) {
    if (m_present && m_present->kind == Stage::Kind::row && m_present->row == row) {
        return;
    }
    open(Stage::Kind::row, begin, row, rowAt(row).name);
    m_batches.push_back({row, {}, {}});
}

void LogStory::request(const std::string& path, std::vector<Asked> asked, Time earliest) {
    if (asked.empty()) {
        return;
    }
    if (m_kills) {
        m_batches.back().requests.push_back({path, std::move(asked), earliest});
        return;
    }
    const int row = rowNamed(lastComponent(path));
    if (row == 0 || m_hasSwept) {
        return;
    }
    enterRow(row, asked.front().time);
    m_rowAsked = asked.back().time;
    m_batches.back().requests.push_back({path, std::move(asked), earliest});
}

void LogStory::signal(const LogEvent& event) {
    const Asked asked = {event.time, Asked::Kind::signal, event.what, true};
    if (m_target.pid == 0) {
        if (m_kills && m_present && m_present->kind == Stage::Kind::waitAfterKill) {
            // No record says that all have been sent SIGKILL: the wait begins anew with each one.
            m_stages.back().end = m_present->begin = event.time;
        }
        request(event.path, {asked}, m_former);
        return;
    }
    m_directs.push_back({m_target.pid, m_target.name, asked, m_former});
    const bool sweeps = m_present && m_present->kind == Stage::Kind::sweep;
    if (sweeps && event.what == "SIGQUIT") {
        // The last of the sweep's three: if nobody follows, the wait for all has begun.
        open(Stage::Kind::wait, event.time);
        m_target = {};
    }
}

void LogStory::passedOver(const LogEvent& event) {
    const int row = event.ofRow ? rowNamed(event.name) : 0;
    if (row != 0 && rowAt(row).waitType != WAIT_NONE) {
        // The row waits for the process that it did not touch.
        enterRow(row, event.time);
    }
}

void LogStory::rowDone(const LogEvent& event) {
    const int row = rowNamed(event.name);
    if (row == 0) {
        return;
    }
    enterRow(row, event.time);
    if (rowAt(row).waitType == WAIT_NONE) {
        close(event.time);
    } else {
        m_rowDone = event.time;
    }
}

void LogStory::sweepOf(const LogEvent& event) {
    m_target = {event.pid, event.name};
    if (m_present && m_present->kind == Stage::Kind::wait) {
        m_present.reset();
        if (!m_stages.empty() && m_stages.back().kind == Stage::Kind::sweep) {
            m_present = m_stages.back();
            m_stages.pop_back();
        } else {
            open(Stage::Kind::sweep, event.time);
        }
    }
    if (m_present) {
        m_present->waitedFor.push_back(event.pid);
    }
}

void LogStory::thirdParty(const LogEvent& event) {
    m_target = {event.pid, event.name};
    if (!m_present || m_present->kind != Stage::Kind::thirdParties) {
        open(Stage::Kind::thirdParties, event.time);
    }
}

void LogStory::read(const LogEvent& event) {
    if (endsRequests(event.kind) && !m_batches.empty() && !m_batches.back().over) {
        m_batches.back().over = event.time;
    }
    switch (event.kind) {
    case Kind::listing:
        if (!std::exchange(m_hasListed, true) && !m_present) {
            open(Stage::Kind::gathering, event.time);
        }
        break;
    case Kind::commandStarts:
        m_commandsEarliest = m_commands.empty() ? m_former : m_commandsEarliest;
        m_commands.push_back({event.time, Asked::Kind::command, event.what, true});
        break;
    case Kind::commandFor:
        request(event.path, std::exchange(m_commands, {}), m_commandsEarliest);
        break;
    case Kind::signal:
        signal(event);
        break;
    case Kind::excluded:
        m_excluded.insert(event.path);
        break;
    case Kind::passedOver:
        passedOver(event);
        break;
    case Kind::rowDone:
        rowDone(event);
        break;
    case Kind::sweepBegins:
        m_hasSwept = true;
        open(Stage::Kind::wait, event.time);
        break;
    case Kind::sweepOf:
        sweepOf(event);
        break;
    case Kind::killBegins:
        open(Stage::Kind::kill, event.time);
        open(Stage::Kind::waitAfterKill, event.time);
        m_batches.push_back({0, {}, {}});
        m_kills = true;
        m_hasEnded = false;
        m_target = {};
        break;
    case Kind::allTerminated:
    case Kind::notTerminated:
        m_kills = false;
        m_hasEnded = m_hasSwept;
        close(event.time);
        break;
    case Kind::thirdParty:
        m_kills = false;
        thirdParty(event);
        break;
    case Kind::cut:
        m_hasCut = true;
        // It may have told for whom they were; the next one that does means others.
        m_commands.clear();
        break;
    case Kind::other:
        break;
    }
    m_former = event.time;
}

void LogStory::finish(Time end) {
    if (m_present && m_present->kind == Stage::Kind::gathering && !m_hasListed) {
        m_present.reset();
    }
    close(end);
}

} // namespace watch
