#include "Watcher.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

#include <fcntl.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "Clock.h"
#include "LiveLine.h"
#include "LogFile.h"
#include "Observation.h"
#include "OwnStreams.h"
#include "ProcFiles.h"
#include "RunModel.h"
#include "Screen.h"
#include "Snapshot.h"
#include "Survivors.h"
#include "cvpaths.h"

namespace watch {

namespace {

/// A line is rewritten at most so often.
constexpr Time kShowPeriod = kSecond / 4;
/// Without a line to show, the log is read so often, so that a rotation is not missed.
constexpr Time kIdlePeriod = kSecond;
/// Until there is a log to follow, it is looked for so often.
constexpr Time kFindPeriod = kSecond / 50;
/// The first whole line, and how often others follow.
constexpr Time kFirstLine = 2 * kSecond;
constexpr Time kLinePeriod = 10 * kSecond;
/// Third parties are killed at the very end, and nobody waits for them.
constexpr Time kGrace = kSecond / 4;
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

/// Time that no administrator sets: how long from one thing to another.
Time steady() {
    return timeOf(CLOCK_MONOTONIC);
}

class Watch {
  public:
    Watch(const Program& program, const Inherited& inherited, bool showsLines);

    Watched run();

  private:
    void observe();
    Started start();
    void describe();
    void loop();
    void waitForSomething(Time most);
    void tick();
    void showLine();
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
    Time m_nextLine = 0;
    bool m_mayReadLog = false;
};

std::string hostName() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    return ::gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

std::string logPath() {
    return std::string(product::kLogRoot) + '/' + product::kProgramName + '/' + product::kProgramName + ".log";
}

Watch::Watch(const Program& program, const Inherited& inherited, bool showsLines)
    : m_program(program), m_inherited(inherited),
      m_asked(readProgramArguments({program.words.begin() + 1, program.words.end()})), m_path(resolved(program.path)),
      m_screen(m_asked.quiet || !m_asked.shutsDown),
      m_showsLines(showsLines && !m_asked.quiet && m_asked.shutsDown && !m_screen.isLive()), m_log(logPath()),
      m_childSignal(openChildSignal()) {}

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
    }
    m_start.begin = timeNow();
    m_begin = steady();
    return startProgram(m_program, {writing.get(), m_screen.takesStandardOutput()}, m_inherited,
                        [this] { m_streams.letGo(); });
}

void Watch::describe() {
    std::map<int, Peer> parents;
    for (std::size_t place = 0; place < m_model->processes().size(); ++place) {
        const int parent = m_observation->parentOf(place);
        const auto [known, isNew] = parents.try_emplace(parent);
        if (isNew && parent != 0) {
            known->second = peerOf(parent);
        }
        m_model->describe(place, known->second, readUnit(m_model->processes()[place].pid));
    }
}

void Watch::tell(const std::vector<LifeEvent>& events) {
    for (const LifeEvent& event : events) {
        if (event.kind == LifeEvent::Kind::ended) {
            m_model->ended(event.place, event.time);
        } else {
            m_model->gone(event.place, event.time);
        }
    }
}

/// With the third parties on its list, the program looks who holds a file of its tree: the log is left alone until it
/// has looked. It sleeps only afterwards.
bool Watch::mayReadLog() {
    if (!m_mayReadLog) {
        m_mayReadLog = !m_asked.thirdParty || m_ending || readSystemCall(m_pid) == SYS_clock_nanosleep;
    }
    return m_mayReadLog;
}

void Watch::readLog() {
    for (const LogEvent& event : m_log.read(m_pid)) {
        m_model->read(event);
    }
}

void Watch::forwardOutput() {
    std::array<char, 4096> buffer;
    ssize_t got = 0;
    while (m_output && !m_screen.isPending() && (got = ::read(m_output.get(), buffer.data(), buffer.size())) > 0) {
        m_screen.forward({buffer.data(), static_cast<std::size_t>(got)});
    }
    if (m_screen.isLost() || (m_output && got == 0 && !m_screen.isPending())) {
        // The program meets a reader that has gone, as it would have met the terminal.
        m_output.reset();
    }
}

void Watch::showLine() {
    const Time now = steady();
    const std::string line = plainLine(m_model->progress(timeNow()));
    if (now < m_nextLine || line.empty()) {
        return;
    }
    m_nextLine += kLinePeriod;
    m_streams.takeBack();
    writeAtOnce("cvstop-watch: " + line + "\n");
    m_streams.letGo();
}

void Watch::tick() {
    const Time now = steady();
    if (now < m_nextShow) {
        return;
    }
    m_nextShow = now + (!m_log.find() ? kFindPeriod : m_screen.isLive() ? kShowPeriod : kIdlePeriod);
    if (mayReadLog()) {
        readLog();
    }
    if (m_screen.isLive() && !m_screen.isLost()) {
        m_screen.show(liveLine(m_model->progress(timeNow()), m_screen.width() - 1));
    } else if (m_showsLines && m_mayReadLog) {
        showLine();
    }
}

void Watch::waitForSomething(Time most) {
    std::vector<pollfd> waiting = {{m_childSignal.get(), POLLIN, 0},
                                   {m_screen.isPending() ? -1 : m_output.get(), POLLIN, 0},
                                   {m_screen.isPending() ? m_screen.descriptor() : -1, POLLOUT, 0}};
    const std::size_t own = waiting.size();
    m_observation->appendTo(waiting);
    const int milliseconds = static_cast<int>((std::max<Time>(most, 0) + 999'999) / 1'000'000);
    if (::poll(waiting.data(), waiting.size(), milliseconds) <= 0) {
        return;
    }
    tell(m_observation->polled(waiting.data() + own, waiting.data() + waiting.size()));
    if (waiting[0].revents != 0) {
        signalfd_siginfo taken;
        static_cast<void>(!::read(m_childSignal.get(), &taken, sizeof taken));
    }
    if (waiting[2].revents != 0) {
        m_screen.flush();
    }
}

Time Watch::untilNext() const {
    Time next = m_nextShow;
    if (const std::optional<Time> due = m_observation->lookDue()) {
        next = std::min(next, *due);
    }
    const Time left = std::max<Time>(0, next - steady());
    // Without the signal, the end of the program has to be looked for.
    return m_childSignal ? left : std::min(left, kLookPeriod);
}

void Watch::lookWhereDue() {
    if (const std::optional<Time> due = m_observation->lookDue(); due && *due <= steady()) {
        tell(m_observation->look());
    }
}

void Watch::loop() {
    m_nextLine = m_begin + kFirstLine;
    while (!(m_ending = endingOf(m_pid))) {
        tick();
        waitForSomething(untilNext());
        forwardOutput();
        lookWhereDue();
    }
    m_end = timeNow();
}

/// Whether a process was sent SIGKILL and is on its way.
bool Watch::isSomeoneDying() const {
    const std::vector<bool> killed = m_model->killed();
    for (std::size_t place = 0; place < killed.size(); ++place) {
        if (killed[place] && m_observation->isThere(place)) {
            return true;
        }
    }
    return false;
}

/// What the program wrote last, and what was ending while it ended.
void Watch::seeTheEnd() {
    forwardOutput();
    while (m_screen.isPending() && !m_screen.isLost()) {
        pollfd ready = {m_screen.descriptor(), POLLOUT, 0};
        ::poll(&ready, 1, -1);
        m_screen.flush();
        forwardOutput();
    }
    m_screen.clear();
    readLog();
    const Time patience = steady() + kGrace;
    waitForSomething(0);
    tell(m_observation->look());
    while (isSomeoneDying() && steady() < patience) {
        waitForSomething(kFirstLook);
        tell(m_observation->look());
    }
}

Run Watch::settle() {
    const std::vector<std::string> commands = m_model->commands();
    Run run = m_model->finish(m_end);
    run.pid = m_pid;
    run.status = m_ending->status;
    run.signal = m_ending->signal;
    run.notes.insert(run.notes.end(), m_notes.begin(), m_notes.end());
    run.notes.insert(run.notes.end(), m_log.trouble().begin(), m_log.trouble().end());
    if (!m_log.found() && m_log.trouble().empty()) {
        run.notes.emplace_back("the debug log has no record of the program: what was asked of whom is not known");
    }
    if (run.observed) {
        explainSurvivors(run);
        run.cameBack = findCameBack(run, m_path, commands);
    }
    return run;
}

Watched Watch::run() {
    observe();
    const Started started = start();
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
    seeTheEnd();
    Watched watched{0, *m_ending, settle()};
    m_streams.takeBack();
    return watched;
}

} // namespace

Watched watchProgram(const Program& program, const Inherited& inherited, bool showsLines) {
    return Watch(program, inherited, showsLines).run();
}

} // namespace watch
