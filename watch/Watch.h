/// One run under watch: its parts, and the loop that joins them. Watch.cpp begins and ends it, WatchLoop.cpp is the
/// middle.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "Child.h"
#include "Clock.h"
#include "Inherited.h"
#include "LogFile.h"
#include "Observation.h"
#include "OwnStreams.h"
#include "ProgramArguments.h"
#include "Run.h"
#include "RunModel.h"
#include "Screen.h"
#include "UniqueFd.h"

namespace watch {

/// Time that no administrator sets: how long from one thing to another.
inline Time steady() {
    return timeOf(CLOCK_MONOTONIC);
}

struct Watched {
    /// 0, or the errno value for which the program never ran; nothing else is set then.
    int error = 0;
    Ending ending;
    Run run;
};

class Watch {
  public:
    /// Where no line can be rewritten, `showsLines` says whether standard error gets a whole one now and then.
    Watch(const Program& program, const Inherited& inherited, bool showsLines);

    /// Runs the program to its end. An interrupt before its beginning ends the watcher.
    Watched run();

  private:
    void observe();
    Started start();
    void describe();
    void loop();
    void waitForSomething(Time most);
    void tick();
    void look();
    void show(Time now);
    void showLine(Time now);
    void forwardOutput();
    [[nodiscard]] bool mayReadLog();
    void readLog();
    void tell(const std::vector<LifeEvent>& events);
    [[nodiscard]] Time untilNext() const;
    void lookWhereDue();
    [[nodiscard]] bool isSomeoneDying() const;
    void seeTheEnd();
    void note(const std::string& sentence) { m_notes.push_back(sentence); }
    Run settle();

    const Program& m_program;
    const Inherited& m_inherited;
    ProgramArguments m_asked;
    std::string m_path;
    Screen m_screen;
    bool m_showsLines;
    OwnStreams m_streams;
    LogFile m_log;
    Run m_start;
    std::unique_ptr<Observation> m_observation;
    std::unique_ptr<RunModel> m_model;
    std::vector<std::string> m_notes;
    UniqueFd m_childSignal;
    UniqueFd m_output;
    pid_t m_pid = 0;
    std::optional<Ending> m_ending;
    Time m_begin = 0;
    Time m_end = 0;
    Time m_nextShow = 0;
    Time m_nextFind = 0;
    Time m_nextLine = 0;
    bool m_mayReadLog = false;
};

} // namespace watch
