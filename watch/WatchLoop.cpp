// The middle of a watch: what goes on while the program runs.

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "LiveLine.h"
#include "ProcFiles.h"
#include "Watch.h"

namespace watch {

namespace {

/// A line is rewritten at most so often.
constexpr Time kShowPeriod = kSecond / 4;
/// Without a line to show, the log is read so often, so that a rotation is not missed.
constexpr Time kIdlePeriod = kSecond;
/// Until there is a log to follow, it is looked for so often; after the first seconds, in which a program begins it, no
/// more than is looked into it.
constexpr Time kFindPeriod = kSecond / 50;
constexpr Time kUntilBegun = 3 * kSecond;
/// The first whole line, and how often others follow.
constexpr Time kFirstLine = 2 * kSecond;
constexpr Time kLinePeriod = 10 * kSecond;
/// Third parties are killed at the very end, and nobody waits for them.
constexpr Time kGrace = kSecond / 4;
/// Before a wait that failed is tried again.
constexpr timespec kPause = {0, 10'000'000};

/// What waits in the pipe; as read(2). One that fails is asked once more, unless nothing waits: after the program's end
/// nobody would come back for its last words.
ssize_t readPipe(int pipe, std::array<char, 4096>& buffer) {
    const ssize_t got = ::read(pipe, buffer.data(), buffer.size());
    return got < 0 && errno != EAGAIN ? ::read(pipe, buffer.data(), buffer.size()) : got;
}

} // namespace

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
        m_mayReadLog = !m_asked.thirdParty || m_ending || sleepsForATime(m_pid);
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
    while (m_output && !m_screen.isPending() && (got = readPipe(m_output.get(), buffer)) > 0) {
        m_screen.forward({buffer.data(), static_cast<std::size_t>(got)});
    }
    if (m_screen.isLost() || (m_output && got == 0 && !m_screen.isPending())) {
        // The program meets a reader that has gone, as it would have met the terminal.
        m_output.reset();
    }
}

void Watch::showLine(Time now) {
    const std::string line = now < m_nextLine ? "" : plainLine(m_model->progress(timeNow()));
    if (line.empty()) {
        return;
    }
    // From now: lines that there was a reason not to show are not made up for.
    m_nextLine = now + kLinePeriod;
    m_streams.takeBack();
    writeAtOnce("cvstop-watch: " + line + "\n");
    m_streams.letGo();
}

void Watch::show(Time now) {
    if (m_screen.isLive() && !m_screen.isLost()) {
        m_screen.show(liveLine(m_model->progress(timeNow()), m_screen.width() - 1));
    } else if (m_showsLines && m_mayReadLog && !m_screen.isLive()) {
        // Where standard error is a file of the product's tree, the program must not see the watcher at it.
        showLine(now);
    }
}

void Watch::tick() {
    const Time now = steady();
    if (now >= m_nextFind) {
        const bool mayBeginSoon = !m_log.find() && now - m_begin < kUntilBegun;
        m_nextFind = now + (mayBeginSoon ? kFindPeriod : kIdlePeriod);
    }
    if (now >= m_nextShow) {
        m_nextShow = now + (m_screen.isLive() ? kShowPeriod : kIdlePeriod);
        if (mayReadLog()) {
            readLog();
        }
        show(now);
    }
}

void Watch::waitForSomething(Time most) {
    std::vector<pollfd> waiting = {{m_childSignal.get(), POLLIN, 0},
                                   {m_screen.isPending() ? -1 : m_output.get(), POLLIN, 0},
                                   {m_screen.isPending() ? m_screen.descriptor() : -1, POLLOUT, 0}};
    const std::size_t own = waiting.size();
    m_observation->appendTo(waiting);
    const int milliseconds = static_cast<int>((std::max<Time>(most, 0) + 999'999) / 1'000'000);
    const int ready = ::poll(waiting.data(), waiting.size(), milliseconds);
    if (ready < 0 && errno != EINTR) {
        // Without memory, say: it must not become a loop that takes a core.
        ::nanosleep(&kPause, nullptr);
    }
    if (ready <= 0) {
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
    Time next = std::min(m_nextShow, m_nextFind);
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

} // namespace watch
