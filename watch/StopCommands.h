/// Stop commands of the program that are still at work when it has ended.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "Run.h"

namespace watch {

class StopCommands {
  public:
    /// `lines` are the commands as the debug log has them. Nothing that had started by `since` (since the machine's
    /// start) is one of them.
    StopCommands(std::vector<std::string> lines, Time since) : m_lines(std::move(lines)), m_since(since) {}

    /// Whether the process, or one that it descends from, is a stop command. One that cannot be asked for its arguments
    /// is taken for none.
    bool include(int pid);

  private:
    bool isOne(int pid);

    std::vector<std::string> m_lines;
    Time m_since;
    std::map<int, bool> m_known;
    int m_silent = 0;
};

} // namespace watch
