#include <nlohmann/json.hpp>

#include "Json.h"
#include "Times.h"
#include "Words.h"
#include "utf8.h"

namespace watch {

namespace {

// Keys stay in the order in which they are written here.
using Json = nlohmann::ordered_json;

void appendEscaped(std::string& text, char byte) {
    constexpr char kDigits[] = "0123456789abcdef";
    const auto value = static_cast<unsigned char>(byte);
    text += "\\x";
    text += kDigits[value >> 4U];
    text += kDigits[value & 0xFU];
}

std::string text(std::string_view bytes) {
    std::string valid;
    while (!bytes.empty()) {
        const std::size_t length = utf8::sequenceLength(bytes);
        if (length == 0 || bytes[0] == '\\') {
            appendEscaped(valid, bytes[0]);
        } else {
            valid += bytes.substr(0, length);
        }
        bytes.remove_prefix(length == 0 ? 1 : length);
    }
    return valid;
}

Json textOrNull(std::string_view bytes) {
    return bytes.empty() ? Json() : Json(text(bytes));
}

double seconds(Time length) {
    return static_cast<double>(length) / static_cast<double>(kSecond);
}

template <typename Value> Json orNull(const std::optional<Value>& value) {
    return value ? Json(*value) : Json();
}

Json peer(const Peer& other) {
    return {{"pid", other.pid}, {"name", textOrNull(other.name)}};
}

/// The run's texts, with moments counted from its beginning.
class Writer {
  public:
    explicit Writer(const Run& run) : m_run(run) {}

    [[nodiscard]] Json head() const {
        Json arguments = Json::array();
        for (const std::string& argument : m_run.arguments) {
            arguments.push_back(text(argument));
        }
        Json notes = Json::array();
        for (const std::string& note : m_run.notes) {
            notes.push_back(text(note));
        }
        return {{"arguments", arguments},
                {"host", text(m_run.host)},
                {"pid", m_run.pid},
                {"begin", date(m_run.begin)},
                {"end", since(m_run.end)},
                {"status", orNull(m_run.status)},
                {"signal", orNull(m_run.signal)},
                {"clock", "CLOCK_REALTIME"},
                {"resolution", seconds(m_run.resolution)},
                {"observed", m_run.observed},
                {"log_complete", m_run.logComplete},
                {"notes", notes}};
    }

    [[nodiscard]] Json stage(const Stage& stage) const {
        return {{"kind", wordOf(kStageWords, stage.kind)},
                {"row", rowOrNull(stage.row)},
                {"name", textOrNull(stage.name)},
                {"begin", since(stage.begin)},
                {"end", since(stage.end)},
                {"waited_for", stage.waitedFor}};
    }

    [[nodiscard]] Json process(const Process& process) const {
        return {{"pid", process.pid},
                {"name", text(process.name)},
                {"path", text(process.path)},
                {"category", process.category},
                {"excluded", process.excluded},
                {"row", rowOrNull(process.row)},
                {"parent", peer(process.parent)},
                {"unit", textOrNull(process.unit)},
                {"start", process.start ? Json(since(*process.start)) : Json()},
                {"asked", asked(process.asked)},
                {"ended", process.ended ? Json(since(*process.ended)) : Json()},
                {"gone", process.gone ? Json(since(*process.gone)) : Json()},
                {"outcome", wordOf(kOutcomeWords, process.outcome)},
                {"certain", process.certain},
                {"reason", process.reason ? reason(*process.reason) : Json()}};
    }

    [[nodiscard]] Json stranger(const Stranger& stranger) const {
        return {{"pid", stranger.pid == 0 ? Json() : Json(stranger.pid)},
                {"name", text(stranger.name)},
                {"asked", asked(stranger.asked)}};
    }

    [[nodiscard]] Json cameBack(const CameBack& process) const {
        return {{"pid", process.pid},           {"name", text(process.name)},     {"path", text(process.path)},
                {"category", process.category}, {"parent", peer(process.parent)}, {"unit", textOrNull(process.unit)},
                {"start", since(process.start)}};
    }

  private:
    [[nodiscard]] double since(Time moment) const { return seconds(moment - m_run.begin); }

    static Json rowOrNull(int row) { return row == 0 ? Json() : Json(row); }

    [[nodiscard]] Json asked(const std::vector<Asked>& requests) const {
        Json list = Json::array();
        for (const Asked& request : requests) {
            const std::string_view kind = wordOf(kAskedWords, request.kind);
            list.push_back({{"time", since(request.time)},
                            {"kind", kind},
                            {std::string(kind), text(request.what)},
                            {"certain", request.certain}});
        }
        return list;
    }

    static Json reason(const Reason& reason) {
        return {{"state", wordOf(kStateWords, reason.state)},
                {"function", textOrNull(reason.function)},
                {"tracer", reason.tracer ? peer(*reason.tracer) : Json()},
                {"age", seconds(reason.age)},
                {"ignores", reason.ignores},
                {"blocks", reason.blocks}};
    }

    const Run& m_run;
};

template <typename Item, typename Form>
void writeList(const Sink& sink, const std::string& key, const std::vector<Item>& items, Form form) {
    sink(",\n  \"" + key + "\": [");
    std::string separator = "\n    ";
    for (const Item& item : items) {
        sink(separator + form(item).dump());
        separator = ",\n    ";
    }
    sink(items.empty() ? "]" : "\n  ]");
}

} // namespace

void writeJson(const Run& run, const Sink& sink) {
    const Writer writer(run);
    sink("{\n  \"version\": " + std::to_string(kJsonVersion) + ",\n  \"run\": " + writer.head().dump());
    writeList(sink, "stages", run.stages, [&](const Stage& item) { return writer.stage(item); });
    writeList(sink, "processes", run.processes, [&](const Process& item) { return writer.process(item); });
    writeList(sink, "not_in_snapshot", run.strangers, [&](const Stranger& item) { return writer.stranger(item); });
    writeList(sink, "came_back", run.cameBack, [&](const CameBack& item) { return writer.cameBack(item); });
    sink("\n}\n");
}

std::string toJson(const Run& run) {
    std::string document;
    writeJson(run, [&](std::string_view piece) { document += piece; });
    return document;
}

} // namespace watch
