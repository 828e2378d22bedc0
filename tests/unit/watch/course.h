// A shutdown as its log tells it, record by record, laid upon processes of a snapshot.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "LogEvent.h"
#include "LogRecord.h"
#include "RunModel.h"
#include "sample.h"

namespace course {

inline constexpr char kBin[] = "/usr/quarn/corvane/bin/";

/// The event of a record with that function and text, so many seconds after the run's begin.
inline watch::LogEvent event(double time, const std::string& function, const std::string& text) {
    watch::LogRecord record;
    record.time = sample::at(time);
    record.pid = 22;
    record.function = function;
    record.text = text;
    return watch::readEvent(record);
}

inline watch::LogEvent signal(double time, const std::string& path, int kind) {
    return event(time, "Processes::KillProcess", "Signaling process " + path + " (" + std::to_string(kind) + ")");
}

inline watch::LogEvent rowDone(double time, const std::string& name) {
    return event(time, "OrderlyShutdown", "Terminate request for " + name);
}

inline watch::LogEvent listing(double time) {
    return event(time, "Processes::getProcesses", "Calling find_processes_CV with verbose = 0");
}

inline watch::LogEvent sweepBegins(double time) {
    return event(time, "OrderlyShutdown", "Looking for remaining processes to shut down");
}

inline watch::LogEvent excluded(double time, const std::string& path) {
    return event(time, "UserList::processMatchesExcludelistEntry",
                 "Process path " + path + " matches exclude list entry " + path + "(UserList:105)");
}

inline watch::LogEvent passedOver(double time, const std::string& function, const std::string& name) {
    return event(time, function, "Ignoring process because it is on exclude list, Name = " + name + "(StopRow:207)");
}

/// A stop command, and the row that it is of.
inline std::vector<watch::LogEvent> command(double time, const std::string& name, const std::string& option) {
    const std::string path = kBin + name;
    const std::string line = path + " " + option;
    return {event(time, "executeStop", "Executing \"" + line + " > /dev/null 2>&1 &\""),
            event(time + 0.002, "terminateAllProcesses",
                  " Requesting termination of " + path + ". Return status=0. Command=" + line)};
}

/// One of the product's processes that nothing is known of yet.
inline watch::Process process(int pid, const std::string& name, int category = 1) {
    watch::Process made;
    made.pid = pid;
    made.name = name;
    made.path = kBin + name;
    made.category = category;
    return made;
}

inline watch::RunModel model(std::vector<watch::Process> processes, bool asks = false) {
    watch::Run run;
    run.begin = sample::kBegin;
    run.processes = std::move(processes);
    return {std::move(run), asks};
}

inline void read(watch::RunModel& model, const std::vector<watch::LogEvent>& events) {
    for (const watch::LogEvent& one : events) {
        model.read(one);
    }
}

/// Ends the process at that place for good.
inline void end(watch::RunModel& model, std::size_t place, double time) {
    model.ended(place, sample::at(time));
    model.gone(place, sample::at(time + 0.01));
}

} // namespace course
