/// Tells the shutdown table to an administrator. What a row does is not described here: each row is carried out against
/// two processes of its name on the made-up host of the tests, and what was sent to them is told.
///
///     make_plan document      docs/shutdown-plan.md
///     make_plan manual        the table of cvstop(8), for scdoc

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "Arguments.h"
#include "Processes.h"
#include "World.h"
#include "shutdown.h"

namespace {

/// Stands where the path of the process's executable stands.
constexpr char kPath[] = "PATH";
constexpr std::string_view kInBackground = " > /dev/null 2>&1 &";
constexpr int kPids[] = {10, 11};

struct Told {
    /// Signals and commands for the first process, or for all.
    std::vector<std::string> actions;
    bool isEach = false;
};

/// "system PATH -terminate > /dev/null 2>&1 &" is "`PATH -terminate`", "kill 10 SIGTERM" is "SIGTERM".
std::string actionOf(const std::string& entry) {
    if (entry.compare(0, 4, "kill") == 0) {
        return entry.substr(entry.rfind(' ') + 1);
    }
    const std::string command = entry.substr(entry.find(' ') + 1);
    return command.substr(0, command.size() - kInBackground.size());
}

Told carryOut(const killDef& row) {
    fakes::World& host = fakes::world();
    host.reset();
    Args.quiet = true;
    for (const int pid : kPids) {
        fakes::FakeProcess& process = host.add(row.name, pid);
        process.path = kPath;
        process.diesOf.clear();
    }
    Processes procs(CAT_CORVANE, 0);
    host.journal.clear();
    host.run([&] { terminateAllProcesses(procs, row, 0, 1); });
    Told told;
    told.isEach = !row.isCommand && procs.list()->signalled == procs.list()->next->signalled;
    const fakes::Journal entries = host.of({"kill", "system"});
    const std::size_t ofOne = told.isEach ? entries.size() / 2 : entries.size();
    for (std::size_t index = 0; index < ofOne; ++index) {
        told.actions.push_back(actionOf(entries[index]));
    }
    return told;
}

std::string waitOf(const killDef& row) {
    return row.waitType == WAIT_NONE ? "" : "up to " + std::to_string(Args.waitTime) + " s, twice";
}

std::string whichOf(const killDef& row, const Told& told) {
    if (row.isCommand) {
        return "";
    }
    return told.isEach ? "each" : "the first";
}

bool isSignal(const std::string& action) {
    return action.compare(0, 3, "SIG") == 0;
}

std::string actionsOf(const Told& told) {
    std::string text;
    for (const std::string& action : told.actions) {
        text += (text.empty() ? "" : ", then ") + (isSignal(action) ? action : "`" + action + "`");
    }
    return text.empty() ? "nothing" : text;
}

/// The manual tells once where the tools are; 80 columns do not hold their paths.
std::string withoutFolder(const std::string& command) {
    const std::size_t slash = command.rfind('/', command.find(' '));
    return slash == std::string::npos ? command : command.substr(slash + 1);
}

/// A format; a wait of so many looks takes a second less.
constexpr char kDocumentHead[] = R"(# The shutdown table

What `cvstop -k` sends to which process, in this order. This page is generated from the program's own table by the build target
`plan`; a test compares the two.

- A process is identified by its executable below `/usr/quarn`; its name is the executable's file name. A row that finds no
  process does nothing.
- *PATH* is the path of the executable. Every command runs in the background, with its output discarded: the next row does not
  wait for it.
- *the first* is the process with the lowest pid that the exclude list does not name; the others of that name are expected to
  end with it. The sweep after the table stops those that do not.
- *nothing*: the process is only marked, and waited for at the end; another row's command ends it, or the end of its parent
  does. The rows `du-dun` and `saveZeldParams` are commands that do nothing on a client.
- A row that waits checks once a second, up to %d times after its process was stopped, and up to %d times after the row.

After the table, product processes that no row stopped get SIGINT, SIGTERM and SIGQUIT, a second apart. Then `cvstop` waits for
all of them, up to %d seconds. Those that are still running are listed, whatever is still alive gets SIGKILL, and the wait starts
again.

| # | process | part | service | what is sent | to which | waits |
|--:|---|---|---|---|---|---|
)";

void printDocument() {
    std::printf(kDocumentHead, Args.waitTime, Args.waitTime, Args.waitTime - 1);
    int number = 0;
    for (const killDef& row : KillDefines) {
        const Told told = carryOut(row);
        std::printf("| %d | `%s` | %s | %s | %s | %s | %s |\n", ++number, row.name.c_str(),
                    group_names[row.group].c_str(), row.serviceName.c_str(), actionsOf(told).c_str(),
                    whichOf(row, told).c_str(), waitOf(row).c_str());
    }
}

/// A block of plain lines that 80 columns hold with the manual's own margins.
void printManual() {
    std::puts("```");
    for (const killDef& row : KillDefines) {
        const Told told = carryOut(row);
        const char* which = row.isCommand ? "-" : told.isEach ? "all" : "1";
        std::string what = told.actions.empty() ? "nothing" : withoutFolder(told.actions.front());
        what += row.waitType == WAIT_NONE ? "" : "; waits";
        std::printf("%-15s %3s  %s\n", row.name.c_str(), which, what.c_str());
        for (std::size_t index = 1; index < told.actions.size(); ++index) {
            std::printf("%-15s %3s  %s\n", "", "", withoutFolder(told.actions[index]).c_str());
        }
    }
    std::puts("```");
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view kind = argc == 2 ? argv[1] : "";
    if (kind == "document") {
        printDocument();
    } else if (kind == "manual") {
        printManual();
    } else {
        std::fputs("usage: make_plan document | manual\n", stderr);
        return 2;
    }
    return 0;
}
