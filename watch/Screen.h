/// Standard error as a place to show something while the program runs: a terminal with a line that is rewritten,
/// anything else with a line now and then, or nothing at all.
///
/// The program's own output to the terminal goes through a pipe then, and is written here, so that the line is away
/// before it and back behind it.
#pragma once

#include <string>
#include <string_view>

#include "UniqueFd.h"

namespace watch {

class Screen {
  public:
    /// Looks what standard error is. With `quiet` nothing is ever shown.
    explicit Screen(bool quiet);

    /// Whether the line can be shown on it, and nothing else can come between.
    [[nodiscard]] bool isLive() const { return static_cast<bool>(m_terminal); }
    /// Whether standard output goes to the same terminal, and has to be piped as well.
    [[nodiscard]] bool takesStandardOutput() const { return m_takesStandardOutput; }

    /// There will be no line: the program's output cannot be piped. Nothing was shown yet.
    void giveUp();

    /// In columns; that of a terminal that does not know is 80.
    [[nodiscard]] std::size_t width() const;

    /// Shows the line in the place of the former one. Does nothing in the background, while the program's output is on
    /// its way, or where that has left a line without an end.
    void show(const std::string& line);
    void clear();

    /// The program's bytes. What the terminal does not take at once is kept, and written by `flush`.
    void forward(std::string_view bytes);
    void flush();
    [[nodiscard]] bool isPending() const { return !m_pending.empty(); }
    [[nodiscard]] int descriptor() const { return m_terminal.get(); }

    /// Whether the terminal went away.
    [[nodiscard]] bool isLost() const { return m_lost; }

  private:
    /// Opened anew, without blocking: the program shares the other description of it.
    UniqueFd m_terminal;
    std::string m_pending;
    std::string m_shown;
    bool m_takesStandardOutput = false;
    bool m_lost = false;
    /// Whether the program's output ended in the middle of a line.
    bool m_lineIsOpen = false;
};

/// Writes to standard error where that takes it at once; a reader that does not read is not waited for.
void writeAtOnce(std::string_view text);

} // namespace watch
