// The command line, an argument a line. Whatever is given, the result is one of four, and what is accepted keeps the
// rules of combination.

#include <string>
#include <vector>

#include "Arguments.h"
#include "Fuzz.h"
#include "Messages.h"

FUZZ_TARGET(input) {
    std::vector<std::string> words = {"cvstop"};
    while (!input.empty() && words.size() < 32) {
        words.emplace_back(takePiece(input, '\n'));
    }
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    outline[0] = '\0';
    Arguments arguments;
    const auto argc = static_cast<std::int32_t>(words.size());
    const std::int32_t result = arguments.parse(argc, argv.data());
    demand(result >= Arguments::Parsed && result <= Arguments::UnknownOption, "there are four results");
    demand(arguments.waitTime == 30 && arguments.verbosity == 0 && arguments.verbose, "no option changes these");
    if (result == Arguments::Parsed) {
        demand(arguments.argIndex == argc, "all was read");
        demand(!arguments.quiet || (arguments.killLevel == 1 && !arguments.listMode), "quiet is for a kill");
        demand(!arguments.thirdParty || arguments.killLevel == 1 || arguments.listMode, "third parties need a mode");
        demand(argc > 1 || arguments.killLevel == 1, "nothing asked is a shutdown");
    }
    demand((result == Arguments::Invalid || result == Arguments::UnknownOption) == (outline[0] != '\0'),
           "only a fault leaves a message");
}
