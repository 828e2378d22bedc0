#include "Report.h"

#include <algorithm>
#include <map>

#include "Parts.h"
#include "Summary.h"
#include "Text.h"
#include "Times.h"
#include "Words.h"

namespace watch {

namespace {

constexpr std::size_t kLongest = 10;
constexpr std::size_t kNamed = 3;
constexpr std::size_t kLeftAlone = 20;
constexpr std::size_t kNameColumns = 40;
constexpr std::size_t kHowColumns = 48;

std::string named(const std::string& name, int pid) {
    const std::string shown = name.empty() ? "?" : fitted(name, kNameColumns);
    return pid == 0 ? shown : shown + " (" + std::to_string(pid) + ")";
}

/// Cells by columns; those of the columns `right` stand at their right. The first row is the heading.
class Table {
  public:
    Table(std::vector<std::string> heading, std::vector<bool> right) : m_right(std::move(right)) {
        add(std::move(heading));
    }

    void add(std::vector<std::string> row) {
        m_widths.resize(std::max(m_widths.size(), row.size()));
        for (std::size_t index = 0; index < row.size(); ++index) {
            m_widths[index] = std::max(m_widths[index], columns(row[index]));
        }
        m_rows.push_back(std::move(row));
    }

    [[nodiscard]] std::string text() const {
        if (m_rows.size() == 1) {
            return "";
        }
        std::string made = "\n";
        for (const std::vector<std::string>& row : m_rows) {
            std::string line;
            for (std::size_t index = 0; index < row.size(); ++index) {
                const std::string blanks(m_widths[index] - columns(row[index]), ' ');
                line += "  " + (m_right[index] ? blanks + row[index] : row[index] + blanks);
            }
            made += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
        }
        return made;
    }

  private:
    std::vector<bool> m_right;
    std::vector<std::size_t> m_widths;
    std::vector<std::vector<std::string>> m_rows;
};

/// The first of the names, and how many more there are.
std::string listed(const std::vector<std::string>& names) {
    std::string text;
    const std::size_t count = std::min(names.size(), kNamed);
    for (std::size_t index = 0; index < count; ++index) {
        text += (index == 0 ? "" : ", ") + names[index];
    }
    return names.size() == count ? text : text + " and " + std::to_string(names.size() - count) + " more";
}

std::string waitedFor(const Part& part, const std::map<int, const Process*>& byPid) {
    std::vector<std::string> names;
    for (const int pid : part.waitedFor) {
        const auto found = byPid.find(pid);
        names.push_back(named(found == byPid.end() ? "" : found->second->name, pid));
    }
    return listed(names);
}

std::string stages(const Run& run) {
    std::map<int, const Process*> byPid;
    for (const Process& process : run.processes) {
        byPid.emplace(process.pid, &process);
    }
    Table table({"stage", "took", "waited for"}, {false, true, false});
    for (const Part& part : partsOf(run)) {
        table.add({fitted(part.label, kNameColumns), inSeconds(part.end - part.begin), waitedFor(part, byPid)});
    }
    return table.text();
}

/// "humowow -M localhost -terminate": the tool's name is enough.
std::string shortened(const Asked& request) {
    if (request.kind == Asked::Kind::signal) {
        return request.what;
    }
    const std::size_t endOfPath = std::min(request.what.find(' '), request.what.size());
    const std::size_t slash = request.what.rfind('/', endOfPath);
    return slash == std::string::npos ? request.what : request.what.substr(slash + 1);
}

std::string how(const std::vector<Asked>& asked, bool certain) {
    std::string text;
    for (const Asked& request : asked) {
        text += (text.empty() ? "" : ", ") + shortened(request);
    }
    return fitted(text, kHowColumns) + (certain ? "" : " (a guess)");
}

bool isThere(const Process& process) {
    return process.outcome == Outcome::survived || !process.ended;
}

/// From the first request until it is gone: a zombie is there until its parent takes it. One that ended by itself while
/// it was asked took no time.
Time duration(const Process& process, const Run& run) {
    const Time last = isThere(process) ? run.end : process.gone.value_or(*process.ended);
    return std::max<Time>(0, last - process.asked.front().time);
}

std::string zombieUntil(const Process& process, const Run& run) {
    return process.gone ? ", zombie until " + inSeconds(*process.gone - run.begin) : "";
}

std::string longest(const Run& run) {
    std::vector<const Process*> asked;
    for (const Process& process : run.processes) {
        if (!process.asked.empty()) {
            asked.push_back(&process);
        }
    }
    std::stable_sort(asked.begin(), asked.end(), [&](const Process* left, const Process* right) {
        return duration(*left, run) > duration(*right, run);
    });
    asked.resize(std::min(asked.size(), kLongest));
    Table table({"longest", "took", "asked at", "ended at", "how"}, {false, true, true, true, false});
    for (const Process* process : asked) {
        table.add({named(process->name, process->pid),
                   inSeconds(duration(*process, run)) + (process->certain ? "" : "?"),
                   inSeconds(process->asked.front().time - run.begin),
                   isThere(*process) ? "still there" : inSeconds(*process->ended - run.begin),
                   how(process->asked, process->certain) + zombieUntil(*process, run)});
    }
    return table.text();
}

std::string belongsTo(const Peer& parent, const std::string& unit) {
    return (parent.pid == 0 ? "" : ", parent " + named(parent.name, parent.pid)) +
           (unit.empty() ? "" : ", unit " + fitted(unit, kHowColumns));
}

std::string unheeded(const char* how, const std::vector<std::string>& signals) {
    std::string text;
    for (const std::string& signal : signals) {
        text += (text.empty() ? std::string(",") + how : ", ") + fitted(signal, kNameColumns);
    }
    return text;
}

std::string why(const Process& process) {
    const Reason reason = process.reason.value_or(Reason());
    std::string text(wordOf(kStateWords, reason.state));
    if (reason.state == State::zombie) {
        text += ": ended, but its parent does not take its status";
    }
    text += reason.function.empty() ? "" : " in " + fitted(reason.function, kNameColumns);
    text += unheeded(" ignores ", reason.ignores) + unheeded(" blocks ", reason.blocks);
    text += reason.tracer ? ", traced by " + named(reason.tracer->name, reason.tracer->pid) : "";
    return text + ", started " + roughly(reason.age) + " ago" + belongsTo(process.parent, process.unit) +
           (isOutcomeGuess(process) ? ", asked: a guess" : "");
}

std::string survivors(const Run& run) {
    Table table({"still there", "why"}, {false, false});
    for (const Process& process : run.processes) {
        if (process.outcome == Outcome::survived) {
            table.add({named(process.name, process.pid), why(process)});
        }
    }
    return table.text();
}

std::string leftAloneText(const Process& process, const Run& run) {
    return isAskingUnknown(process, run) ? "asked or not is not known"
                                         : std::string(whyLeftAlone(process)) + (process.certain ? "" : " (a guess)");
}

std::string leftAlone(const Run& run) {
    Table table({run.logComplete ? "left alone" : "not ended", ""}, {false, false});
    std::size_t count = 0;
    for (const Process& process : run.processes) {
        if (process.outcome == Outcome::spared && ++count <= kLeftAlone) {
            table.add({named(process.name, process.pid),
                       leftAloneText(process, run) + belongsTo(process.parent, process.unit)});
        }
    }
    return table.text() + (count > kLeftAlone ? "  and " + std::to_string(count - kLeftAlone) + " more\n" : "");
}

std::string cameBack(const Run& run) {
    Table table({"came back", ""}, {false, false});
    for (const CameBack& process : run.cameBack) {
        table.add({named(process.name, process.pid),
                   "at " + inSeconds(process.start - run.begin) + belongsTo(process.parent, process.unit)});
    }
    return table.text();
}

std::string strangers(const Run& run) {
    Table table({"only in the log", ""}, {false, false});
    for (const Stranger& stranger : run.strangers) {
        table.add({named(stranger.name, stranger.pid), how(stranger.asked, !isGuess(stranger.asked))});
    }
    return table.text();
}

/// Those who share a path, where the log does not tell who of them was asked. Where records are missing, that is said
/// of the whole run.
std::string guesses(const Run& run) {
    std::map<std::string, std::vector<std::string>> byPath;
    for (const Process& process : run.processes) {
        if (!process.certain && !isAskingUnknown(process, run)) {
            byPath[process.path].push_back(named(process.name, process.pid));
        }
    }
    std::string text;
    for (const auto& [path, sharers] : byPath) {
        text += "  Note: the debug log names only a path: what was asked of " + listed(sharers) + " is a guess\n";
    }
    return text;
}

std::string notes(const Run& run) {
    const std::string exact = exactness(run);
    std::string text = exact.empty() ? "" : "  Note: " + exact + "\n";
    text += guesses(run);
    for (const std::string& note : run.notes) {
        text += "  Note: " + harmless(note) + "\n";
    }
    return text.empty() ? "" : "\n" + text;
}

} // namespace

std::string reportOf(const Run& run) {
    return "\ncvstop-watch: " + harmless(headline(run)) + "\n" + stages(run) + longest(run) + survivors(run) +
           leftAlone(run) + cameBack(run) + strangers(run) + notes(run);
}

} // namespace watch
