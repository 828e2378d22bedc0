/// What a watch comes to.
#pragma once

#include "Child.h"
#include "Run.h"

namespace watch {

struct Watched {
    /// 0, or the errno value for which the program never ran; nothing else is set then.
    int error = 0;
    Ending ending;
    Run run;
};

} // namespace watch
