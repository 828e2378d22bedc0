#include "RunModel.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "cvcategories.h"

namespace watch {

namespace {

/// Whether what was asked can have been before the process ended.
bool cameBefore(const Dated& dated, const Process& process) {
    return !process.ended || dated.earliest <= *process.ended;
}

bool isKill(const Dated& dated) {
    return dated.asked.what == "SIGKILL";
}

Outcome outcomeOf(const Process& process, bool isGone, const std::vector<Dated>& asked) {
    const bool wasAsked =
        std::any_of(asked.begin(), asked.end(), [&](const Dated& dated) { return cameBefore(dated, process); });
    if (!isGone && !asked.empty()) {
        return Outcome::survived;
    }
    if (!process.ended) {
        return Outcome::spared;
    }
    if (!wasAsked) {
        return Outcome::endedUnasked;
    }
    const bool wasKilled = std::any_of(asked.begin(), asked.end(),
                                       [&](const Dated& dated) { return isKill(dated) && cameBefore(dated, process); });
    return wasKilled ? Outcome::killed : Outcome::ended;
}

/// A parent that takes note within this time did so at once: that is how often is looked.
constexpr Time kAtOnce = kSecond / 5;

Time goneAt(const Lives& lives, std::size_t place) {
    const Time gone = lives.gone[place].value_or(std::numeric_limits<Time>::max());
    const Time ended = lives.processes[place].ended.value_or(gone);
    return gone - ended < kAtOnce ? ended : gone;
}

void fillWaitedFor(Stage& stage, const Lives& lives, const Askings& askings, const Sparings& sparings) {
    std::vector<std::size_t> places = waitedFor(stage, lives, askings, sparings);
    std::erase_if(places, [&](std::size_t place) { return goneAt(lives, place) <= stage.begin; });
    std::stable_sort(places.begin(), places.end(),
                     [&](std::size_t left, std::size_t right) { return goneAt(lives, left) > goneAt(lives, right); });
    for (const std::size_t place : places) {
        stage.waitedFor.push_back(lives.processes[place].pid);
    }
}

void settleProcesses(Lives& lives, const Askings& askings, const Sparings& sparings) {
    for (std::size_t place = 0; place < lives.processes.size(); ++place) {
        Process& process = lives.processes[place];
        process.excluded = sparings.excluded[place];
        process.outcome = outcomeOf(process, lives.gone[place].has_value(), askings.of[place]);
        process.certain = !askings.unsure[place];
        process.asked.reserve(askings.of[place].size());
        for (const Dated& dated : askings.of[place]) {
            process.asked.push_back(dated.asked);
        }
    }
}

} // namespace

RunModel::RunModel(Run run, bool asks) : m_run(std::move(run)), m_story(m_run.begin, asks), m_asks(asks) {
    m_lives.processes = std::exchange(m_run.processes, {});
    m_lives.gone.resize(m_lives.processes.size());
    m_lives.resolution = m_run.resolution;
    for (Process& process : m_lives.processes) {
        process.row = rowNamed(process.name);
    }
}

void RunModel::describe(std::size_t place, const Peer& parent, const std::string& unit) {
    m_lives.processes[place].parent = parent;
    m_lives.processes[place].unit = unit;
}

std::vector<std::string> RunModel::commands() const {
    std::vector<std::string> found;
    for (const Batch& batch : m_story.batches()) {
        for (const Request& request : batch.requests) {
            for (const Asked& asked : request.asked) {
                if (asked.kind == Asked::Kind::command) {
                    found.push_back(asked.what);
                }
            }
        }
    }
    return found;
}

const RunModel::Settled& RunModel::settled() const {
    if (!m_settled) {
        Askings askings = settleAskings(m_lives, m_story);
        Sparings sparings = settleSparings(m_lives, m_story, askings);
        m_settled = Settled{std::move(askings), std::move(sparings)};
    }
    return *m_settled;
}

std::vector<bool> RunModel::killed() const {
    std::vector<bool> killed;
    for (const std::vector<Dated>& asked : settled().askings.of) {
        killed.push_back(std::any_of(asked.begin(), asked.end(), isKill));
    }
    return killed;
}

Run RunModel::finish(Time end) {
    m_story.finish(end);
    const Askings askings = settleAskings(m_lives, m_story);
    const Sparings sparings = settleSparings(m_lives, m_story, askings);
    Run run = std::move(m_run);
    run.end = end;
    run.stages = m_story.stages();
    for (Stage& stage : run.stages) {
        fillWaitedFor(stage, m_lives, askings, sparings);
    }
    settleProcesses(m_lives, askings, sparings);
    run.processes = std::move(m_lives.processes);
    run.strangers = askings.strangers;
    for (const std::string& name : sparings.unsure) {
        run.notes.push_back("several files are called " + name +
                            ", and the debug log does not tell which of them are excluded");
    }
    if (m_story.hasCut()) {
        run.notes.emplace_back("a record of the debug log was too long and was cut, requests may be missing");
    }
    return run;
}

} // namespace watch
