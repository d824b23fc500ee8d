// What this program's own commands, which send without a service object, share with the others.
#pragma once

namespace lumo::cli {

// Says once in the process that its state directory was made, where it was: a mistyped name ends in
// a new device without keys.
void remarkOnNewDevice();

}  // namespace lumo::cli
