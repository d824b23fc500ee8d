// What this program's own commands, which send without a service object, share with the others.
#pragma once

namespace lumo::cli {

// Throws Failure where the options that say how the secure application is reached do not fit
// together: each would be ignored for the other.
void requireFittingOptions();

// Says once in the process that its state directory was made, where it was: a mistyped name ends in
// a new device without keys.
void remarkOnNewDevice();

}  // namespace lumo::cli
