#include "ProgramArguments.h"

#include <strings.h>

namespace watch {

namespace {

bool isSpelled(const std::string& argument, const char* exact, const char* anyCase) {
    return argument == exact || strcasecmp(argument.c_str(), anyCase) == 0;
}

bool takesFile(const std::string& argument) {
    return isSpelled(argument, "-b", "-blacklist") || isSpelled(argument, "", "-e") ||
           isSpelled(argument, "", "-excludelist");
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
