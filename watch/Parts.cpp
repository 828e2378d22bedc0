#include "Parts.h"

#include <algorithm>

#include "Words.h"

namespace watch {

namespace {

bool isQuickRow(const Stage& stage) {
    return stage.kind == Stage::Kind::row && stage.waitedFor.empty();
}

std::string labelOf(const Stage& stage) {
    if (isQuickRow(stage)) {
        return "table";
    }
    return stage.kind == Stage::Kind::row ? stage.name : std::string(wordOf(kStageWords, stage.kind));
}

} // namespace

std::vector<Part> partsOf(const Run& run) {
    std::vector<Part> parts;
    bool afterQuickRow = false;
    for (const Stage& stage : run.stages) {
        if (afterQuickRow && isQuickRow(stage)) {
            parts.back().end = stage.end;
        } else {
            parts.push_back({stage.begin, stage.end, labelOf(stage), stage.waitedFor});
        }
        afterQuickRow = isQuickRow(stage);
    }
    std::stable_sort(parts.begin(), parts.end(),
                     [](const Part& left, const Part& right) { return left.begin < right.begin; });
    return parts;
}

} // namespace watch
