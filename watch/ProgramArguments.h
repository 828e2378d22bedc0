/// What the program's arguments ask of it, as far as a watcher must know. Pure.
#pragma once

#include <string>
#include <vector>

namespace watch {

struct ProgramArguments {
    /// The listing goes beyond the product's own processes.
    bool thirdParty = false;
    /// Nothing but fatal messages is wanted on the screen.
    bool quiet = false;
    /// Something is shut down: not a listing, not the usage.
    bool shutsDown = true;
    /// A question is asked first.
    bool asks = false;
};

ProgramArguments readProgramArguments(const std::vector<std::string>& arguments);

} // namespace watch
