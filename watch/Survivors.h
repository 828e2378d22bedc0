/// Who is there when the program has ended, and why.
#pragma once

#include <string>
#include <vector>

#include "Observation.h"
#include "Run.h"

namespace watch {

/// Reads the reason of each process of the run that survived.
void explainSurvivors(Run& run);

/// Adds the product's processes that started after the snapshot to the run, or a note that they could not be listed.
/// `observation` is that of the snapshot's processes. `commands` are the program's stop commands: one that still runs
/// has not come back, and neither has what it has started.
void findCameBack(Run& run, const Observation& observation, const std::string& program,
                  const std::vector<std::string>& commands);

} // namespace watch
