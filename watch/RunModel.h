/// The run as a whole: what the log tells and what was seen of the processes, joined. Pure.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "Askings.h"
#include "LogStory.h"
#include "Progress.h"
#include "Run.h"

namespace watch {

class RunModel {
  public:
    /// `run` has its arguments, host, begin, and the processes of the snapshot, in the snapshot's order. `asks`: the
    /// program asks a question first.
    RunModel(Run run, bool asks);

    /// The next record of the log.
    void read(const LogEvent& event) {
        m_story.read(event);
        m_hasRead = true;
        m_settled.reset();
    }

    /// The process of that place in the snapshot ended.
    void ended(std::size_t place, Time when) {
        m_lives.processes[place].ended = when;
        m_settled.reset();
    }

    /// Signal 0 no longer finds it: it ended, and its parent took note.
    void gone(std::size_t place, Time when) {
        m_lives.gone[place] = when;
        m_settled.reset();
    }

    /// More of a process than the snapshot knows.
    void describe(std::size_t place, const Peer& parent, const std::string& unit);

    [[nodiscard]] const std::vector<Process>& processes() const { return m_lives.processes; }

    /// What the program is at.
    [[nodiscard]] Progress progress(Time now) const;

    /// The commands that the program ran.
    [[nodiscard]] std::vector<std::string> commands() const;

    /// For each process, whether SIGKILL was sent to it.
    [[nodiscard]] std::vector<bool> killed() const;

    /// Whether the program, which exited with `status`, must have written records that were not read.
    [[nodiscard]] bool breaksOff(int status) const;

    /// Settles everything, and hands it over: the model has no run any more. Those that survived still lack their
    /// reasons. `logIsWhole`: as far as is known, every record of the program was read.
    Run finish(Time end, bool logIsWhole = true);

  private:
    [[nodiscard]] const Askings& settled() const;

    Run m_run;
    Lives m_lives;
    LogStory m_story;
    /// What the log and the lives say so far; nothing when either has gone on since. A line is rewritten much more
    /// often.
    mutable std::optional<Askings> m_settled;
    bool m_asks;
    bool m_hasRead = false;
};

} // namespace watch
