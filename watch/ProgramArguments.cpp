#include "ProgramArguments.h"

#include <strings.h>

namespace watch {

namespace {

/// An `exact` of nullptr: there is no such spelling.
bool isSpelled(const std::string& argument, const char* exact, const char* anyCase) {
    return (exact != nullptr && argument == exact) || strcasecmp(argument.c_str(), anyCase) == 0;
}

bool takesFile(const std::string& argument) {
    return isSpelled(argument, "-b", "-blacklist") || isSpelled(argument, nullptr, "-e") ||
           isSpelled(argument, nullptr, "-excludelist");
}

} // namespace

ProgramArguments readProgramArguments(const std::vector<std::string>& arguments) {
    ProgramArguments read;
    read.asks = arguments.empty();
    for (auto argument = arguments.begin(); argument != arguments.end(); ++argument) {
        read.thirdParty |= isSpelled(*argument, "-3", "-third_party");
        read.quiet |= isSpelled(*argument, "-q", "-quiet");
        if (isSpelled(*argument, "-l", "-list") || isSpelled(*argument, "-h", "-help")) {
            read.shutsDown = false;
        }
        if (takesFile(*argument) && ++argument == arguments.end()) {
            break;
        }
    }
    return read;
}

} // namespace watch
