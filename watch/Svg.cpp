#include "Svg.h"

#include <algorithm>

#include "Lane.h"
#include "Picture.h"
#include "Summary.h"
#include "Text.h"
#include "Timeline.h"
#include "Times.h"

namespace watch {

namespace {

using namespace picture;

constexpr double kWidth = 1200;
constexpr double kMargin = 16;
constexpr double kLine = 16;
/// The longest text that fits between the margins.
constexpr std::size_t kColumns = 158;
constexpr std::size_t kNotesShown = 3;
/// The axis stands above the lanes, and once more below so many.
constexpr std::size_t kLanesOnAScreen = 50;

std::string rect(std::string_view style, double x, double y, double width, double height,
                 const std::string& inside = {}) {
    return "<rect class=\"" + std::string(style) + "\" x=\"" + px(x) + "\" y=\"" + px(y) + "\" width=\"" + px(width) +
           "\" height=\"" + px(height) + "\"" + (inside.empty() ? "/>\n" : ">" + inside + "</rect>\n");
}

std::string verticalLine(double x, double from, double to) {
    return "<path class=\"line\" d=\"M" + px(x) + " " + px(from) + "V" + px(to) + "\"/>\n";
}

/// The document, drawn from its top to its bottom.
class Drawing {
  public:
    explicit Drawing(const Run& run) : m_run(run), m_axis(run), m_bands(bands(run, m_axis)) {}

    std::string whole() {
        drawHead();
        drawLegend();
        drawBandLabels();
        m_chartTop = m_y;
        drawLanes();
        const double height = m_y + kMargin;
        return open(height) + definitions() + rect("back", 0, 0, kWidth, height) + chartBack() + m_front + "</svg>\n";
    }

  private:
    [[nodiscard]] std::string open(double height) const {
        const std::string size = px(kWidth) + " " + px(height);
        return "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + px(kWidth) + "\" height=\"" + px(height) +
               "\" viewBox=\"0 0 " + size +
               "\" role=\"graphics-document document\" aria-labelledby=\"t\" aria-describedby=\"d\">\n<title "
               "id=\"t\">" +
               xml(headline(m_run), kColumns) + "</title>\n<desc id=\"d\">" +
               "A time line with a lane for each process, from when it was asked to end until it ended.</desc>\n";
    }

    void drawLine(std::string_view text, std::string_view style) {
        m_y += kLine;
        m_front += textAt(kMargin, m_y, fitted(text, kColumns), style) + "\n";
    }

    void drawHead() {
        m_y = 8;
        drawLine(headline(m_run), "head");
        drawLine(commandLine(m_run), "less");
        const std::size_t shown = std::min(m_run.notes.size(), kNotesShown);
        for (std::size_t index = 0; index < shown; ++index) {
            drawLine("Note: " + m_run.notes[index], "less");
        }
        if (shown < m_run.notes.size()) {
            drawLine("and " + std::to_string(m_run.notes.size() - shown) + " more notes", "less");
        }
    }

    void drawLegend() {
        m_y += kLine / 2;
        std::string drawn;
        double x = kMargin;
        const auto entry = [&](const std::string& sign, std::string_view text) {
            drawn += "<g transform=\"translate(" + px(x) + " 0)\">" + sign + "</g>" + textAt(x + 18, 12, text, "less");
            x += 18 + widthOf(text) + 18;
        };
        entry(markAt(Mark::command, 6, true), "stop command");
        entry(markAt(Mark::signal, 6, true), "signal");
        entry(markAt(Mark::kill, 6, true), "SIGKILL");
        entry(markAt(Mark::signal, 6, false), "a guess");
        entry("<rect class=\"bar\" y=\"5\" width=\"12\" height=\"6\"/>", "asked, until it ended");
        entry("<path class=\"survived\" d=\"M0 5H9l5 3l-5 3H0z\"/>", "still there");
        entry("<path class=\"alive\" d=\"M0 8H12\"/>", "running, not asked");
        entry("<path class=\"zombie\" d=\"M0 8H12\"/>", "zombie");
        entry(markAt(Mark::start, 6, true), "came back");
        m_front += "<g transform=\"translate(0 " + px(m_y) + ")\">" + drawn + "</g>\n";
        m_y += kLine;
    }

    /// The highest label first; from each a line leads down to where its band begins.
    void drawBandLabels() {
        std::size_t tiers = 0;
        for (const Band& band : m_bands) {
            tiers = std::max(tiers, band.isLabelled ? band.tier + 1 : 0);
        }
        const double bottom = m_y + 8 + kLine * static_cast<double>(tiers + 1);
        for (const Band& band : m_bands) {
            if (band.isLabelled) {
                const double x = m_axis.x(band.begin);
                const double y = bottom - kLine * static_cast<double>(band.tier + 1);
                m_front += verticalLine(x, y - 10, bottom) + textAt(x + 3, y - 2, band.label) + "\n";
            }
        }
        m_y = bottom;
        drawAxis();
    }

    void drawAxis() {
        m_y += kLine;
        for (const Axis::Tick& tick : m_axis.ticks()) {
            m_front += textAt(tick.x - widthOf(tick.label) / 2, m_y - 4, tick.label, "less") + "\n";
        }
    }

    void drawLanes() {
        m_front += "<g role=\"list\" aria-label=\"Processes, in the order of the shutdown table\">\n";
        for (const Process* process : inTableOrder(m_run)) {
            drawLane(*process);
        }
        for (const Stranger& stranger : m_run.strangers) {
            drawLane(stranger);
        }
        for (const CameBack& process : m_run.cameBack) {
            drawLane(process);
        }
        m_front += "</g>\n";
        drawAxis();
    }

    template <typename Subject> void drawLane(const Subject& subject) {
        if (m_lanes != 0 && m_lanes % kLanesOnAScreen == 0) {
            drawAxis();
        }
        ++m_lanes;
        m_front += laneOf(subject, m_run, m_axis, m_y);
        m_y += kLaneHeight;
    }

    /// Bands and lines stand behind everything, and are as high as the lanes turned out to be.
    [[nodiscard]] std::string chartBack() const {
        std::string drawn;
        bool odd = true;
        const double bottom = m_y - kLine;
        for (const Band& band : m_bands) {
            const double x = m_axis.x(band.begin);
            drawn +=
                rect(odd ? "odd" : "even", x, m_chartTop, std::max(m_axis.x(band.end) - x, 0.0), bottom - m_chartTop,
                     "<title>" + xml(band.label, kColumns) + ": " + inSeconds(band.end - band.begin) + "</title>");
            odd = !odd;
        }
        for (const Axis::Tick& tick : m_axis.ticks()) {
            drawn += verticalLine(tick.x, m_chartTop, bottom);
        }
        return drawn;
    }

    const Run& m_run;
    Axis m_axis;
    std::vector<Band> m_bands;
    std::string m_front;
    double m_y = 0;
    double m_chartTop = 0;
    std::size_t m_lanes = 0;
};

} // namespace

std::string toSvg(const Run& run) {
    return Drawing(run).whole();
}

} // namespace watch
