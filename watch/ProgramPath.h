/// Which file a program's name means.
#pragma once

#include <string>

namespace watch {

struct ProgramPath {
    /// What can be executed; empty where nothing can.
    std::string path;
    /// Why not, an errno value: ENOENT where there is no such program.
    int error = 0;
};

/// A name with a slash is a path. Any other is looked for in `searchPath`, as PATH holds it, and then in the product's
/// own folder, which is in few administrators' PATH.
ProgramPath findProgram(const std::string& name, const std::string& searchPath);

} // namespace watch
