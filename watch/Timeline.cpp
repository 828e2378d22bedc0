#include "Timeline.h"

#include <algorithm>
#include <limits>
#include <tuple>

#include "Parts.h"
#include "Picture.h"
#include "Times.h"

namespace watch {

namespace {

/// Fewer ticks than this stand so far apart that their labels never touch.
constexpr Time kMostSteps = 10;
/// Room for the longest label right of the chart's end.
constexpr std::size_t kBandColumns = 20;
constexpr double kBetweenLabels = 10;
/// Bands without a label are told by their titles alone.
constexpr std::size_t kMostTiers = 6;

Time lastMoment(const Run& run) {
    Time last = run.end;
    for (const Process& process : run.processes) {
        last = std::max({last, process.ended.value_or(last), process.gone.value_or(last)});
    }
    return last;
}

/// The smallest round distance that needs at most kMostSteps steps.
Time stepFor(Time span) {
    constexpr Time kMinute = 60 * kSecond;
    constexpr Time kHour = 60 * kMinute;
    constexpr Time kMillisecond = kSecond / 1000;
    constexpr Time kSteps[] = {kMillisecond,
                               2 * kMillisecond,
                               5 * kMillisecond,
                               10 * kMillisecond,
                               20 * kMillisecond,
                               50 * kMillisecond,
                               100 * kMillisecond,
                               200 * kMillisecond,
                               500 * kMillisecond,
                               kSecond,
                               2 * kSecond,
                               5 * kSecond,
                               10 * kSecond,
                               20 * kSecond,
                               30 * kSecond,
                               kMinute,
                               2 * kMinute,
                               5 * kMinute,
                               10 * kMinute,
                               30 * kMinute,
                               kHour};
    const auto* const fits =
        std::find_if(std::begin(kSteps), std::end(kSteps), [&](Time step) { return span / step <= kMostSteps; });
    return fits != std::end(kSteps) ? *fits : (span / kMostSteps / kHour + 1) * kHour;
}

std::string tickLabel(Time moment, Time step) {
    constexpr Time kMinute = 60 * kSecond;
    if (step % (60 * kMinute) == 0) {
        return std::to_string(moment / (60 * kMinute)) + " h";
    }
    if (step % kMinute == 0) {
        return std::to_string(moment / kMinute) + " min";
    }
    const int digits = step % kSecond == 0 ? 0 : step % (kSecond / 10) == 0 ? 1 : step % (kSecond / 100) == 0 ? 2 : 3;
    return decimal(static_cast<double>(moment) / static_cast<double>(kSecond), digits) + " s";
}

} // namespace

Axis::Axis(const Run& run) : m_begin(run.begin), m_span(std::max(lastMoment(run) - run.begin, kSecond / 1000)) {}

double Axis::x(Time moment) const {
    const auto since = static_cast<double>(std::clamp<Time>(moment - m_begin, 0, m_span));
    return kLeft + since / static_cast<double>(m_span) * (kRight - kLeft);
}

std::vector<Axis::Tick> Axis::ticks() const {
    const Time step = stepFor(m_span);
    std::vector<Tick> found;
    for (Time moment = 0; moment <= m_span; moment += step) {
        found.push_back({x(m_begin + moment), tickLabel(moment, step)});
    }
    return found;
}

/// From the right to the left, each label as low as it can stand: it must end before the next label of its line begins,
/// and before the lines that lead down from higher labels.
std::vector<Band> bands(const Run& run, const Axis& axis) {
    std::vector<Band> found;
    for (const Part& part : partsOf(run)) {
        found.push_back({part.begin, part.end, picture::cut(part.label, kBandColumns)});
    }
    std::vector<double> begins;
    for (auto band = found.rbegin(); band != found.rend(); ++band) {
        const double begin = axis.x(band->begin);
        const double end = begin + picture::widthOf(band->label) + kBetweenLabels;
        band->tier = begins.size();
        while (band->tier > 0 && end <= begins[band->tier - 1]) {
            --band->tier;
        }
        band->isLabelled = band->tier < kMostTiers;
        if (band->isLabelled) {
            begins.resize(std::max(begins.size(), band->tier + 1));
            begins[band->tier] = begin;
        }
    }
    return found;
}

std::vector<const Process*> inTableOrder(const Run& run) {
    std::vector<const Process*> ordered;
    for (const Process& process : run.processes) {
        ordered.push_back(&process);
    }
    const auto key = [](const Process* process) {
        return std::tuple(process->row == 0 ? std::numeric_limits<int>::max() : process->row, process->category,
                          process->pid);
    };
    std::stable_sort(ordered.begin(), ordered.end(),
                     [&](const Process* left, const Process* right) { return key(left) < key(right); });
    return ordered;
}

} // namespace watch
