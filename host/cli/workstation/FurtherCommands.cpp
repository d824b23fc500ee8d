// The commands that only the client on a workstation has, in groups.
#include "ServiceSource.h"

namespace lumo::cli {

std::vector<CommandGroup> furtherCommands() {
    return {};
}

}  // namespace lumo::cli
