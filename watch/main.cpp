#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <unistd.h>

#include "Child.h"
#include "CommandLine.h"
#include "Inherited.h"
#include "Json.h"
#include "ProgramArguments.h"
#include "ProgramPath.h"
#include "Redraw.h"
#include "Report.h"
#include "Svg.h"
#include "Watch.h"
#include "WholeFile.h"
#include "cvpaths.h"

namespace {

using watch::CommandLine;
using watch::WholeFile;

/// The statuses that are the watcher's own: only where the program never ran.
constexpr int kBadCommandLine = 125;
constexpr int kCannotExecute = 126;
constexpr int kNotFound = 127;
/// No program is run where a picture is drawn again.
constexpr int kNotDrawn = 1;

void say(const std::string& text) {
    std::fprintf(stderr, "cvstop-watch: %s\n", text.c_str());
}

int refuse(const std::string& text) {
    say(text);
    return kBadCommandLine;
}

/// The file to write to, or the end of the watcher: nothing has happened yet that would be lost.
bool choose(WholeFile& file, const std::string& path) {
    const std::string error = path.empty() ? "" : file.choose(path);
    if (!error.empty()) {
        say(path + ": " + error);
    }
    return error.empty();
}

void sayUnwritten(const std::string& path, const std::string& error) {
    if (!error.empty()) {
        say(path + " is not written: " + error);
    }
}

void report(const CommandLine& line, const watch::Run& run) {
    if (line.report) {
        std::fputs(watch::reportOf(run).c_str(), stderr);
    } else if (!run.observed && line.json.empty()) {
        // Nothing else says it.
        say(run.notes.front());
    }
}

int drawAgain(const CommandLine& line) {
    const std::string error = watch::redraw(line.draw, line.svg);
    if (!error.empty()) {
        say(error);
    }
    return error.empty() ? 0 : kNotDrawn;
}

int runAndTell(const CommandLine& line, const watch::Inherited& inherited) {
    WholeFile json;
    WholeFile svg;
    if (!choose(json, line.json) || !choose(svg, line.svg)) {
        return kBadCommandLine;
    }
    const std::string name =
        line.program.empty() ? std::string(product::kBinDirectory) + "/" + product::kProgramName : line.program;
    const char* searchPath = std::getenv("PATH");
    const watch::ProgramPath found = watch::findProgram(name, searchPath == nullptr ? "" : searchPath);
    watch::Program program{found.path, {name}};
    program.words.insert(program.words.end(), line.arguments.begin(), line.arguments.end());
    watch::Watched watched;
    watched.error = found.error;
    if (watched.error == 0) {
        inherited.prepareWatcher();
        watched = watch::Watch(program, inherited, line.report).run();
    }
    if (watched.error != 0) {
        say(name + ": " + std::strerror(watched.error));
        return watched.error == ENOENT ? kNotFound : kCannotExecute;
    }
    // A listing has nothing to report.
    if (watch::readProgramArguments(line.arguments).shutsDown) {
        report(line, watched.run);
    }
    const auto tell = [&](const watch::Sink& sink) { watch::writeJson(watched.run, sink); };
    sayUnwritten(line.json, json ? json.write(tell) : "");
    // The picture that --draw would make of the JSON, which holds the whole run.
    sayUnwritten(line.svg, svg ? svg.write(watch::toSvg(watched.run)) : "");
    watch::endLike(watched.ending);
}

} // namespace

int main(int argc, char** argv) {
    const watch::Inherited inherited;
    const CommandLine line = watch::parseCommandLine({argv + (argc > 0 ? 1 : 0), argv + argc});
    if (!line.error.empty()) {
        return refuse(line.error);
    }
    if (line.help) {
        std::fputs(watch::usage().c_str(), stdout);
        return 0;
    }
    return line.draw.empty() ? runAndTell(line, inherited) : drawAgain(line);
}
