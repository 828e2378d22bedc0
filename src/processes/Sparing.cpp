#include "Sparing.h"

namespace {

const char* sparingText(Sparing sparing) {
    switch (sparing) {
    case Sparing::Excluded:
        return "Ignoring process because it is on exclude list, Name = ";
    case Sparing::OnlyListed:
        return "Ignoring process because it is only listed, Name = ";
    case Sparing::NoCommand:
        return "Ignoring process because no command is run for a third party, Name = ";
    case Sparing::None:
        break;
    }
    return "";
}

} // namespace

Sparing sparingOf(const CV_Process_s* proc, Touch touch) {
    if (proc->excluded == 1) {
        return Sparing::Excluded;
    }
    if (proc->category == CAT_OTHER_THIRD_PARTY) {
        return Sparing::OnlyListed;
    }
    if (proc->category == CAT_THIRD_PARTY && touch == Touch::RunCommand) {
        return Sparing::NoCommand;
    }
    return Sparing::None;
}

void logSparing(Sparing sparing, const DebugSite& site, const CV_Process_s* proc) {
    debugLine(DebugGate::LoggerExists, 1, site, sparingText(sparing), proc->name);
}
