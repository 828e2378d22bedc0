/// Runs the program and watches it: the thin middle between the kernel and the run model.
#pragma once

#include "Inherited.h"
#include "ProgramArguments.h"
#include "Watched.h"

namespace watch {

/// Runs the program to its end. Where standard error is no terminal, `showsLines` says whether it gets a line now and
/// then.
Watched watchProgram(const Program& program, const Inherited& inherited, bool showsLines);

} // namespace watch
