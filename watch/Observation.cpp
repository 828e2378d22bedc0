#include "Observation.h"

#include <algorithm>
#include <cerrno>
#include <string>

#include <sys/syscall.h>
#include <unistd.h>

#include "Clock.h"
#include "ProcFiles.h"

// As the kernel numbers it on every architecture since 5.3; older headers lack it.
#ifndef SYS_pidfd_open
#define SYS_pidfd_open 434
#endif

namespace watch {

namespace {

UniqueFd openPidfd(int pid) {
    return UniqueFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
}

/// Only the name is looked up, so that a shortage of descriptors is not taken for an end.
bool isInProc(int pid) {
    return ::access(("/proc/" + std::to_string(pid)).c_str(), F_OK) == 0 || errno != ENOENT;
}

} // namespace

/// The start is read after the pidfd was opened: who has started since the listing has only the pid in common with the
/// process that was listed. A tick is 10 ms, rounded down.
Observation::Pinned Observation::pin(int pid, Time taken, bool mayOpen) {
    Pinned pinned;
    pinned.pid = pid;
    if (mayOpen) {
        pinned.fd = openPidfd(pid);
    }
    const std::optional<ProcState> state = readProcState(pid);
    if ((state && state->start > taken) || (!state && !isInProc(pid))) {
        pinned.life = Life::gone;
        pinned.fd.reset();
    } else if (state) {
        pinned.start = state->start;
        pinned.parent = state->parent;
    }
    return pinned;
}

Observation::Observation(const std::vector<int>& pids, Time taken, std::size_t descriptors) : m_taken(taken) {
    m_pinned.reserve(pids.size());
    for (const int pid : pids) {
        m_pinned.push_back(pin(pid, taken, descriptors > 0));
        const Pinned& pinned = m_pinned.back();
        descriptors -= pinned.fd ? 1U : 0U;
        m_coarse |= pinned.life == Life::running && !pinned.fd;
        if (needsLook(pinned)) {
            expectLook(timeOf(CLOCK_MONOTONIC) + kLookPeriod);
        }
    }
}

void Observation::appendTo(std::vector<pollfd>& waiting) const {
    for (const Pinned& pinned : m_pinned) {
        if (pinned.life == Life::running && pinned.fd) {
            waiting.push_back({pinned.fd.get(), POLLIN, 0});
        }
    }
}

std::vector<LifeEvent> Observation::polled(const pollfd* begin, const pollfd* end) {
    std::vector<LifeEvent> events;
    const Time now = timeNow();
    for (std::size_t place = 0; place < m_pinned.size() && begin != end; ++place) {
        Pinned& pinned = m_pinned[place];
        if (!pinned.fd || pinned.fd.get() != begin->fd) {
            continue;
        }
        if (begin->revents != 0) {
            pinned.life = Life::ended;
            pinned.fd.reset();
            expectLook(timeOf(CLOCK_MONOTONIC) + kFirstLook);
            events.push_back({place, LifeEvent::Kind::ended, now});
        }
        ++begin;
    }
    return events;
}

bool Observation::needsLook(const Pinned& pinned) {
    return pinned.life == Life::ended || (pinned.life == Life::running && !pinned.fd);
}

void Observation::expectLook(Time due) {
    m_lookDue = std::min(due, m_lookDue.value_or(due));
}

Observation::Life Observation::lookAt(const Pinned& pinned) {
    const std::optional<ProcState> state = readProcState(pinned.pid);
    if (!state) {
        return isInProc(pinned.pid) ? pinned.life : Life::gone;
    }
    if (pinned.start && state->start != *pinned.start) {
        return Life::gone;
    }
    return state->state == State::zombie ? Life::ended : pinned.life;
}

void Observation::close() {
    for (Pinned& pinned : m_pinned) {
        pinned.fd.reset();
    }
}

std::vector<LifeEvent> Observation::look() {
    std::vector<LifeEvent> events;
    const Time now = timeNow();
    m_lookDue.reset();
    for (std::size_t place = 0; place < m_pinned.size(); ++place) {
        Pinned& pinned = m_pinned[place];
        const Life before = pinned.life;
        if (!needsLook(pinned)) {
            continue;
        }
        pinned.life = lookAt(pinned);
        if (before == Life::running && pinned.life != Life::running) {
            events.push_back({place, LifeEvent::Kind::ended, now});
        }
        if (pinned.life == Life::gone) {
            events.push_back({place, LifeEvent::Kind::gone, now});
        }
        if (needsLook(pinned)) {
            expectLook(timeOf(CLOCK_MONOTONIC) + kLookPeriod);
        }
    }
    return events;
}

} // namespace watch
