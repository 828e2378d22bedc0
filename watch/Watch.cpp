#include "Watch.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

#include <fcntl.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "ProcFiles.h"
#include "Snapshot.h"
#include "Survivors.h"
#include "cvpaths.h"

namespace watch {

namespace {

/// What the watcher needs besides pidfds: streams, signals, pipes, the files that it reads and writes, and what the
/// listing has open for a moment.
constexpr std::size_t kOwnDescriptors = 16;

std::string resolved(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> found(::realpath(path.c_str(), nullptr), &std::free);
    return found ? found.get() : path;
}

UniqueFd openChildSignal() {
    sigset_t child;
    ::sigemptyset(&child);
    ::sigaddset(&child, SIGCHLD);
    return UniqueFd(::signalfd(-1, &child, SFD_CLOEXEC | SFD_NONBLOCK));
}

std::string hostName() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::string logPath() {
    return std::string(product::kLogRoot) + '/' + product::kProgramName + '/' + product::kProgramName + ".log";
}

} // namespace

Watch::Watch(const Program& program, const Inherited& inherited, bool showsLines)
    : m_program(program), m_inherited(inherited),
      m_asked(readProgramArguments({program.words.begin() + 1, program.words.end()})), m_path(resolved(program.path)),
      m_screen(m_asked.quiet || !m_asked.shutsDown), m_showsLines(showsLines && !m_asked.quiet && m_asked.shutsDown),
      m_log(logPath()), m_childSignal(openChildSignal()) {}

void Watch::observe() {
    Snapshot snapshot = takeSnapshot(m_asked.thirdParty, m_path);
    if (snapshot.error != 0) {
        m_start.observed = false;
        note(std::string("the processes cannot be listed: ") + std::strerror(snapshot.error));
    }
    std::vector<int> pids;
    for (const Process& process : snapshot.processes) {
        pids.push_back(process.pid);
    }
    const std::size_t descriptors = m_inherited.raiseDescriptorLimit(pids.size() + kOwnDescriptors);
    m_observation =
        std::make_unique<Observation>(pids, snapshot.taken, descriptors - std::min(descriptors, kOwnDescriptors));
    const Time machineStart = timeNow() - sinceBoot();
    for (std::size_t place = 0; place < pids.size(); ++place) {
        if (const std::optional<Time> begin = m_observation->startOf(place)) {
            snapshot.processes[place].start = machineStart + *begin;
        }
    }
    m_start.processes = std::move(snapshot.processes);
    m_start.resolution = m_observation->isCoarse() ? kLookPeriod : 0;
}

Started Watch::start() {
    std::array<int, 2> ends = {-1, -1};
    UniqueFd writing;
    if (m_screen.isLive() && ::pipe2(ends.data(), O_CLOEXEC) == 0) {
        m_output.reset(ends[0]);
        writing.reset(ends[1]);
        ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    } else {
        m_screen.giveUp();
    }
    m_start.begin = timeNow();
    m_begin = steady();
    return startProgram(m_program, {writing.get(), m_screen.takesStandardOutput()}, m_inherited, [this] {
        m_streams.letGo();
        m_inherited.closeOthers();
    });
}

void Watch::describe() {
    std::map<int, Peer> parents;
    for (std::size_t place = 0; place < m_model->processes().size(); ++place) {
        if (!m_observation->isThere(place)) {
            // The pid may be another process's by now.
            continue;
        }
        const int parent = m_observation->parentOf(place);
        const auto [known, isNew] = parents.try_emplace(parent);
        if (isNew && parent != 0) {
            known->second = peerOf(parent);
        }
        m_model->describe(place, known->second, readUnit(m_model->processes()[place].pid));
    }
}

Run Watch::settle() {
    const std::vector<std::string> commands = m_model->commands();
    const bool breaksOff =
        m_log.found() && m_asked.shutsDown && m_ending->status && m_model->breaksOff(*m_ending->status);
    Run run = m_model->finish(m_end, m_log.trouble().empty() && !breaksOff);
    run.pid = m_pid;
    run.status = m_ending->status;
    run.signal = m_ending->signal;
    run.notes.insert(run.notes.end(), m_notes.begin(), m_notes.end());
    run.notes.insert(run.notes.end(), m_log.trouble().begin(), m_log.trouble().end());
    if (!m_log.found() && m_log.trouble().empty()) {
        run.notes.emplace_back("the debug log has no record of the program: what was asked of whom is not known");
    }
    if (breaksOff && m_log.trouble().empty()) {
        run.notes.emplace_back("the debug log breaks off before the end of the shutdown, records are missing");
    }
    if (run.observed) {
        explainSurvivors(run);
        // The listing needs descriptors of its own.
        m_observation->close();
        findCameBack(run, *m_observation, m_path, commands);
    }
    return run;
}

Watched Watch::run() {
    observe();
    const Started started = start();
    if (started.interrupt) {
        endLike({std::nullopt, started.interrupt});
    }
    if (started.error != 0) {
        m_streams.takeBack();
        return {started.error, {}, {}};
    }
    m_pid = started.pid;
    m_start.arguments = m_program.words;
    m_start.arguments.front() = m_program.path;
    m_start.host = hostName();
    m_model = std::make_unique<RunModel>(std::move(m_start), m_asked.asks);
    for (std::size_t place = 0; place < m_model->processes().size(); ++place) {
        if (!m_observation->isThere(place)) {
            tell({{place, LifeEvent::Kind::ended, timeNow()}, {place, LifeEvent::Kind::gone, timeNow()}});
        }
    }
    describe();
    loop();
    if (const int error = whyItNeverRan(started); error != 0) {
        m_screen.clear();
        m_streams.takeBack();
        return {error, {}, {}};
    }
    seeTheEnd();
    Watched watched{0, *m_ending, settle()};
    m_streams.takeBack();
    return watched;
}

} // namespace watch
