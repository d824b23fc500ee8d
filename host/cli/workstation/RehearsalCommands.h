// Commands that rehearse what happens to a device, one in each file beside this one.
#pragma once

#include <lumo/Rehearsal.h>

#include <string>

#include "Command.h"

namespace lumo::cli {

// Of the level that the command is for.
Rehearsal rehearsalOf(SecurityLevel level);

// Throws the Failure of a rehearsal's call; `doing` completes "could not ...".
void requireRehearsed(const std::string& doing, keymaster_error_t error);

Command mintCommand();
Command pressCommand();
Command setRootOfTrustCommand();
Command wrapCommand();

}  // namespace lumo::cli
