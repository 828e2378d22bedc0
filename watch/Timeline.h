/// Where the things of a run stand in its picture: numbers, no drawing.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Run.h"

namespace watch {

/// The run's time on the picture's width.
class Axis {
  public:
    /// From the beginning of the run to its end, or to the last moment that is known of a process.
    explicit Axis(const Run& run);

    /// Where a moment stands, in pixels from the left; one outside of the run stands at the nearest end.
    [[nodiscard]] double x(Time moment) const;

    struct Tick {
        double x;
        /// "10 s", "5 min"
        std::string label;
    };
    /// At most 11, at round distances.
    [[nodiscard]] std::vector<Tick> ticks() const;

    static constexpr double kLeft = 270;
    static constexpr double kRight = 1030;

  private:
    Time m_begin;
    Time m_span;
};

/// A part of the shutdown as the picture shows it.
struct Band {
    Time begin;
    Time end;
    std::string label;
    /// How many lines of text above the chart its label stands; none stands on another. Where there are too many it has
    /// none.
    std::size_t tier = 0;
    bool isLabelled = true;
};

/// In the order of time.
std::vector<Band> bands(const Run& run, const Axis& axis);

/// The processes in the order of the shutdown table: its rows, then products that have none, then third parties; of
/// equals the lower pid is first. The pointers are into the run.
std::vector<const Process*> inTableOrder(const Run& run);

} // namespace watch
