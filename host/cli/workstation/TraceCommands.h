// Commands about recorded exchanges: one function a command, each in a file of its name.
#pragma once

#include "Command.h"

namespace lumo::cli {

CommandGroup traceCommands();

Action declareTrace(CLI::App& app, const Common& common);
Action declareReplay(CLI::App& app, const Common& common);

}  // namespace lumo::cli
