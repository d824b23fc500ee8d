// The commands that only the client on a workstation has, in groups.
#include "InspectCommands.h"
#include "ServiceSource.h"

namespace lumo::cli {

std::vector<CommandGroup> furtherCommands() {
    return {inspectionCommands()};
}

}  // namespace lumo::cli
