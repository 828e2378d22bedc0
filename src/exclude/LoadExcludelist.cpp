#include "UserList.h"

#include <stdexcept>

#include "Arguments.h"
#include "DebugLine.h"
#include "Messages.h"
#include "cvpaths.h"

namespace {

// The log must show this as a Processes member.
constexpr char kUnit[] = "CV_Processes";
constexpr char kFunction[] = "Processes::loadExcludelist";

} // namespace

void loadExcludelistInto(UserList& list) {
    const std::string file = Args.excludeListFile;
    if (file.empty()) {
        // The default file is optional: the debug log mentions its absence.
        list.setProcessExcludelist(product::kDefaultExcludeList);
        return;
    }
    if (list.setProcessExcludelist(file)) {
        return;
    }
    // Printed even in quiet mode: the run ends here, and nothing else would say why.
    printMessage<Msg::ExcludeListNotLoaded>(file.c_str());
    debugLine(DebugGate::LoggerExists, 1, {kUnit, kFunction}, "Failed to load user specified exclude list: ", file);
    throw std::runtime_error("Failed to load user specified exclude list.");
}
