/// Runs the program and watches it: the thin middle between the kernel and the run model.
#pragma once

#include <string>
#include <vector>

#include "Child.h"
#include "Inherited.h"
#include "ProgramArguments.h"
#include "Run.h"

namespace watch {

struct Watched {
    /// 0, or the errno value for which the program never ran; nothing else is set then.
    int error = 0;
    Ending ending;
    Run run;
};

/// Runs the program to its end. Where standard error is no terminal, `showsLines` says whether it gets a line now and
/// then.
Watched watchProgram(const Program& program, const Inherited& inherited, bool showsLines);

} // namespace watch
