// The commands that only the client on a workstation has, in groups.
#include "InspectCommands.h"
#include "RehearsalCommands.h"
#include "ServiceSource.h"
#include "TraceCommands.h"

namespace lumo::cli {

std::vector<CommandGroup> furtherCommands() {
    return {
        inspectionCommands(),
        traceCommands(),
        {"Rehearsals", {mintCommand(), pressCommand(), wrapCommand(), setRootOfTrustCommand()}},
    };
}

}  // namespace lumo::cli
