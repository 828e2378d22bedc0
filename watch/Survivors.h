/// Who is there when the program has ended, and why.
#pragma once

#include <string>
#include <vector>

#include "Run.h"

namespace watch {

/// Reads the reason of each process of the run that survived.
void explainSurvivors(Run& run);

/// The product's processes that started after the snapshot. `commands` are the program's stop commands: one that still
/// runs has not come back.
std::vector<CameBack> findCameBack(const Run& run, const std::string& program,
                                   const std::vector<std::string>& commands);

} // namespace watch
