/// The course of a shutdown as its debug log tells it: stages, and what was asked. Pure; who was meant by a path, and
/// for whom a stage waited, the run model settles with what it knows of the processes.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "LogEvent.h"
#include "Requests.h"
#include "Run.h"

namespace watch {

/// Requests of one row, or of the round of SIGKILL (row 0), in the order of the log.
struct Batch {
    int row = 0;
    std::vector<Request> requests;
    /// The first record that shows that none follows; nothing while one may.
    std::optional<Time> over;
};

/// What was asked of a process that the log names by its pid.
struct Direct {
    int pid = 0;
    std::string name;
    Asked asked;
    Time earliest = 0;
};

class LogStory {
  public:
    /// `asks`: the program asks a question first, and gathers nothing until it is answered.
    explicit LogStory(Time begin, bool asks = false);

    /// The next record of the log.
    void read(const LogEvent& event);

    /// The run is over, and with it the present stage. What no record tells of is no stage.
    void finish(Time end);

    /// Those that are over, in order.
    [[nodiscard]] const std::vector<Stage>& stages() const { return m_stages; }
    /// The one that goes on; while SIGKILL is being sent, and after it, that of the wait.
    [[nodiscard]] const std::optional<Stage>& present() const { return m_present; }
    [[nodiscard]] const std::vector<Batch>& batches() const { return m_batches; }
    [[nodiscard]] const std::vector<Direct>& directs() const { return m_directs; }
    /// The paths of the files that the exclude list names, as the log shows them.
    [[nodiscard]] const std::set<std::string>& excluded() const { return m_excluded; }
    /// Whether the program has begun to list the processes: a question has been answered.
    [[nodiscard]] bool hasListed() const { return m_hasListed; }
    /// Whether a record was too long, so that something that was asked may be missing.
    [[nodiscard]] bool hasCut() const { return m_hasCut; }
    /// Whether the records come to an end of the shutdown: all had ended, or the last wait for them was over.
    [[nodiscard]] bool hasEnded() const { return m_hasEnded; }
    /// When the last record was written; before the first one, the run's begin.
    [[nodiscard]] Time lastRecord() const { return m_former; }
    /// Whether the table is through.
    [[nodiscard]] bool hasSwept() const { return m_hasSwept; }
    /// When the present row had handled its processes; nothing before that.
    [[nodiscard]] const std::optional<Time>& rowDone() const { return m_rowDone; }
    /// When the present row asked last.
    [[nodiscard]] const std::optional<Time>& rowAsked() const { return m_rowAsked; }

  private:
    void open(Stage::Kind kind, Time begin, int row = 0, const std::string& name = {});
    void close(Time end);
    void enterRow(int row, Time begin);
    void request(const std::string& path, std::vector<Asked> asked, Time earliest);
    void signal(const LogEvent& event);
    void passedOver(const LogEvent& event);
    void rowDone(const LogEvent& event);
    void sweepOf(const LogEvent& event);
    void thirdParty(const LogEvent& event);

    std::vector<Stage> m_stages;
    std::optional<Stage> m_present;
    std::vector<Batch> m_batches;
    std::vector<Direct> m_directs;
    std::vector<Asked> m_commands;
    std::set<std::string> m_excluded;
    /// Whom the following signals are for; pid 0 where a path must tell.
    Peer m_target;
    /// The time of the record before this one; and of the one before the commands.
    Time m_former;
    Time m_commandsEarliest;
    std::optional<Time> m_rowDone;
    std::optional<Time> m_rowAsked;
    bool m_hasCut = false;
    bool m_hasListed = false;
    bool m_hasEnded = false;
    bool m_hasSwept = false;
    bool m_kills = false;
};

/// The place in the shutdown table, from 1, of the process row with that name; 0 for none.
int rowNamed(const std::string& name);

} // namespace watch
