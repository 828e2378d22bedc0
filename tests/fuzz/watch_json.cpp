// The JSON of a watched run: what is read can be written and read again, and is shown harmless, whatever was in it.

#include <algorithm>
#include <string>

#include "Fuzz.h"
#include "Json.h"
#include "Report.h"
#include "Svg.h"
#include "utf8.h"

namespace {

bool isHarmless(const std::string& text) {
    return utf8::isValid(text) && std::all_of(text.begin(), text.end(), [](char byte) {
               return byte == '\n' || (static_cast<unsigned char>(byte) >= 0x20 && byte != 0x7F);
           });
}

} // namespace

FUZZ_TARGET(input) {
    const watch::ReadRun read = watch::fromJson(input);
    if (!read.error.empty()) {
        demand(read.run == watch::Run(), "what is refused is empty");
        return;
    }
    const watch::ReadRun again = watch::fromJson(watch::toJson(read.run));
    demand(again.error.empty(), "what was read can be written and read again");
    demand(again.run.processes.size() == read.run.processes.size() && again.run.arguments == read.run.arguments,
           "and is the same");
    demand(isHarmless(watch::reportOf(read.run)), "a report steers no terminal");
    const std::string svg = watch::toSvg(read.run);
    demand(isHarmless(svg), "a picture holds no control characters");
    const std::size_t lanes = read.run.processes.size() + read.run.strangers.size() + read.run.cameBack.size();
    constexpr std::size_t kLane = 1000;
    constexpr std::size_t kBand = 500;
    constexpr std::size_t kRest = 12'000;
    demand(svg.size() <= lanes * (kLane + 20) + read.run.stages.size() * kBand + kRest, "a picture is small");
}
