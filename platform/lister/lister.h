/// The door of the process lister.
///
/// The steps of one pass: link of PID/exe -> pinned process -> verdict (category and reason) -> record.
#pragma once

#include "cvbase.h"
#include "roots.h"

namespace lister {

/// find_processes_CV with its roots as a parameter.
int listProcesses(const Roots& roots, CV_Process_s** list, Proc_categories categories, int verbosity);

} // namespace lister
