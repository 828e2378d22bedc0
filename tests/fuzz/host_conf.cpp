// The host configuration: what is accepted has a role, a name and values in their ranges; what is not says why.

#include "Fuzz.h"
#include "hostconf.h"

FUZZ_TARGET(input) {
    const hostconf::Outcome outcome = hostconf::parse(input, "system-name");
    const hostconf::Outcome again = hostconf::parse(input, "system-name");
    demand(outcome.error == again.error && outcome.unknownKeys == again.unknownKeys, "the same text means the same");
    if (outcome.error.empty()) {
        demand(outcome.config.verbosity >= 0 && outcome.config.verbosity <= 99, "a verbosity has two digits");
        demand(!outcome.config.name.empty(), "a host has a name");
        demand(input.find("role") != std::string_view::npos, "a role is required");
        demand(input.find('\0') == std::string_view::npos, "a text holds no NUL");
    }
    for (const std::string& key : outcome.unknownKeys) {
        demand(!key.empty(), "what was ignored is named");
    }
}
