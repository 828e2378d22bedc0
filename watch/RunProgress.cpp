// What a run is at, from the model's point of view. Apart from RunModel.cpp, which settles what it has been.

#include "RunModel.h"

#include <algorithm>

#include "cvcategories.h"

namespace watch {

namespace {

/// A row looks at its process 30 times, and sleeps a second after each look; after the row it does so once more.
constexpr Time kRowWait = 30 * kSecond;
/// The wait for all looks 30 times as well, but does not sleep after the last look.
constexpr Time kWaitForAll = 29 * kSecond;

/// A program that does not log is taken for a shutdown when it has run that long.
constexpr Time kUntilItIsOne = 2 * kSecond;

using Doing = Progress::Doing;

struct View {
    const Lives& lives;
    const Askings& askings;
    Time now;
};

void show(const View& view, std::size_t place, Progress& progress) {
    const Process& process = view.lives.processes[place];
    const std::vector<Dated>& asked = view.askings.of[place];
    progress.name = process.name;
    progress.pid = process.pid;
    progress.zombie = process.ended.has_value();
    progress.excluded = view.askings.excluded[place];
    if (!asked.empty() && asked.front().asked.certain) {
        progress.askedAgo = view.now - asked.front().asked.time;
    }
}

/// Of several, the one that was asked first is shown, and before those that were not asked.
bool isShownBefore(const View& view, std::size_t left, std::size_t right) {
    const auto askedAt = [&](std::size_t place) {
        const std::vector<Dated>& asked = view.askings.of[place];
        return asked.empty() ? view.now : asked.front().asked.time;
    };
    return askedAt(left) < askedAt(right);
}

void showWaiting(const View& view, const std::vector<std::size_t>& places, Progress& progress) {
    if (places.empty()) {
        progress.upTo.reset();
        return;
    }
    const auto first = std::min_element(places.begin(), places.end(), [&](std::size_t left, std::size_t right) {
        return isShownBefore(view, left, right);
    });
    progress.doing = Doing::waiting;
    progress.more = places.size() - 1;
    show(view, *first, progress);
}

std::vector<std::size_t> present(const View& view, const Stage& stage) {
    std::vector<std::size_t> places = waitedFor(stage, view.lives, view.askings);
    std::erase_if(places, [&](std::size_t place) { return view.lives.gone[place].has_value(); });
    return places;
}

/// A row waits for the process that it asked, and then for the first of its name; mostly they are one and the same. One
/// that it passed over it waits for once.
Time leftOfRow(const Stage& stage, const LogStory& story, Time now) {
    if (story.rowDone()) {
        return kRowWait - (now - *story.rowDone());
    }
    if (story.rowAsked()) {
        return 2 * kRowWait - (now - *story.rowAsked());
    }
    return kRowWait - (now - stage.begin);
}

void showSwept(const View& view, const Stage& stage, Progress& progress) {
    for (std::size_t place = 0; place < view.lives.processes.size(); ++place) {
        if (!stage.waitedFor.empty() && view.lives.processes[place].pid == stage.waitedFor.back()) {
            progress.doing = Doing::sweeping;
            show(view, place, progress);
        }
    }
}

void showStage(const View& view, const Stage& stage, const LogStory& story, Progress& progress) {
    switch (stage.kind) {
    case Stage::Kind::gathering:
        progress.doing = Doing::gathering;
        break;
    case Stage::Kind::row:
        progress.doing = Doing::table;
        if (rowWaits(stage.row)) {
            progress.upTo = std::max<Time>(0, leftOfRow(stage, story, view.now));
            showWaiting(view, present(view, stage), progress);
        }
        break;
    case Stage::Kind::sweep:
        showSwept(view, stage, progress);
        break;
    case Stage::Kind::wait:
    case Stage::Kind::kill:
    case Stage::Kind::waitAfterKill:
        progress.upTo = std::max<Time>(0, kWaitForAll - (view.now - stage.begin));
        showWaiting(view, present(view, stage), progress);
        break;
    case Stage::Kind::thirdParties:
        progress.doing = Doing::thirdParties;
        break;
    }
}

} // namespace

Progress RunModel::progress(Time now) const {
    const Askings& askings = settled();
    Progress progress;
    progress.observed = m_run.observed;
    progress.elapsed = now - m_run.begin;
    for (std::size_t place = 0; place < m_lives.processes.size(); ++place) {
        const Process& process = m_lives.processes[place];
        if (process.category != CAT_OTHER_THIRD_PARTY && !askings.excluded[place]) {
            ++progress.total;
            progress.ended += process.ended ? 1U : 0U;
        }
    }
    progress.doing = m_story.hasSwept() ? Doing::over : Doing::table;
    if (!m_story.hasListed() && (m_asks || progress.elapsed < kUntilItIsOne)) {
        progress.doing = Doing::silent;
    } else if (!m_hasRead) {
        progress.doing = Doing::unknown;
    } else if (m_story.present()) {
        showStage({m_lives, askings, now}, *m_story.present(), m_story, progress);
    }
    return progress;
}

} // namespace watch
