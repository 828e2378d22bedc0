// The debug log as the watcher reads it, and what it makes of it: whatever stands there, the run that is told has its
// processes, in order, with stages that do not end before they begin where time does not run backwards.

#include <string>

#include "Fuzz.h"
#include "LiveLine.h"
#include "LogRecord.h"
#include "RunModel.h"
#include "Text.h"

namespace {

watch::Run beginning() {
    watch::Run run;
    run.begin = 1'795'290'782'000'000'000;
    int pid = 4;
    for (const char* name : {"halvd", "momuhe", "momuhe", "kuror", "gowid", "nanid", "strayd", "sh"}) {
        watch::Process process;
        process.pid = ++pid;
        process.name = name;
        process.path = std::string("/usr/quarn/corvane/bin/") + name;
        process.category = process.name == "sh" ? 2 : 1;
        run.processes.push_back(process);
    }
    return run;
}

} // namespace

FUZZ_TARGET(input) {
    watch::RunModel model(beginning(), false);
    std::size_t asked = 0;
    while (!input.empty()) {
        const std::string_view line = takePiece(input, '\n');
        if (line.starts_with("end ") && line.size() > 4) {
            const std::size_t place = static_cast<unsigned char>(line[4]) % model.processes().size();
            model.ended(place, beginning().begin + watch::kSecond);
            model.gone(place, beginning().begin + watch::kSecond);
        }
        if (const auto record = watch::parseLogRecord(line)) {
            demand(record->pid > 0, "a record is of a process");
            const watch::LogEvent event = watch::readEvent(*record);
            demand(event.time == record->time, "an event has the time of its record");
            asked += event.kind == watch::LogEvent::Kind::signal ? 1 : 0;
            model.read(event);
            const std::string shown = watch::liveLine(model.progress(record->time), 60);
            demand(watch::columns(shown) <= 60 && shown == watch::harmless(shown), "the line fits and is harmless");
        }
    }
    const watch::Run run = model.finish(beginning().begin + 100 * watch::kSecond);
    demand(run.processes.size() == beginning().processes.size(), "no process is lost");
    std::size_t told = 0;
    for (const watch::Process& process : run.processes) {
        for (const watch::Asked& one : process.asked) {
            told += one.kind == watch::Asked::Kind::signal ? 1 : 0;
        }
        demand(!process.asked.empty() ||
                   (process.outcome != watch::Outcome::ended && process.outcome != watch::Outcome::killed &&
                    process.outcome != watch::Outcome::survived),
               "who was not asked did not obey");
        demand(run.logComplete || !process.certain || !process.asked.empty() || process.excluded,
               "where records are missing, nobody is certainly unasked");
    }
    for (const watch::Stranger& stranger : run.strangers) {
        for (const watch::Asked& one : stranger.asked) {
            told += one.kind == watch::Asked::Kind::signal ? 1 : 0;
        }
    }
    demand(told <= asked, "no signal is told that the log has not");
    demand(run.stages.empty() || run.stages.front().kind == watch::Stage::Kind::gathering, "gathering comes first");
}
