// The commands that look into what lies on the disk.
#pragma once

#include "Command.h"
#include "inspect/Item.h"

namespace lumo::cli {

// inspect, attest-verify
CommandGroup inspectionCommands();

Action declareInspect(CLI::App& app, const Common& common);
Action declareAttestVerify(CLI::App& app, const Common& common);

extern const char kInspectNotes[];
extern const char kAttestVerifyNotes[];

// What does not add up, for JSON.
Report describe(const std::vector<inspect::Fault>& faults);

}  // namespace lumo::cli
