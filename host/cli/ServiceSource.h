// What differs between the client on a workstation (workstation/) and as a device binary: where its
// service objects come from, made in this process or registered by another, and which commands it
// has beside those that both have.
#pragma once

#include <chrono>

#include "Client.h"
#include "Command.h"
#include "Failure.h"
#include "Report.h"

namespace lumo::cli {

// The object of a level; `registered`: through getService by its name. Throws Failure where there
// is none, saying what is missing.
sp<Device> openDevice(SecurityLevel level, bool registered);
sp<Device41> openDevice41(SecurityLevel level, bool registered);

// The name under which a level's object is registered.
const char* serviceName(SecurityLevel level);

// Ends the process as `failure` would end a command: for what a service only logs before it aborts.
[[noreturn]] void endProcess(const Failure& failure);

// Throws the Failure that the way to the secure application met last, if it is known to have met
// one. It says more than the error that became of it.
void requireWayThere();

// Whether the secure application is known to have accepted this thread's latest call, whatever the
// library made of its answer.
bool latestCallWasAccepted();

// Options of this program alone that go with every command and say how the keymaster is reached.
void declareWayThere(CLI::App& app);

// Waits until the user has pressed the button, where the operation is known to wait for it, and
// tells so on standard error. Throws Failure where nobody presses it.
void awaitPresence(SecurityLevel level, uint64_t operation);
// Whether the operation is known to wait for the button.
bool awaitsPresence(SecurityLevel level, uint64_t operation);

// Throws Failure where an operation ends with the process that began it.
void requireLastingOperations();
// Lets the operation go on when this process has ended, at most until no step has come for
// `patience`. Throws Failure.
void keepOperation(SecurityLevel level, uint64_t operation, std::chrono::seconds patience);

// Why the secure application refused the call that has just ended in `error`; empty where that is
// not known, or where the error is not the secure application's.
std::string reasonOf(km::V4_1::ErrorCode error);

// Commands of this program alone.
std::vector<CommandGroup> furtherCommands();

// From here on each exchange with the secure application gets a line in the log, where the client
// sees the exchanges.
void watchWayThere();

// Adds to a report how the keymaster of a level is reached.
void describeWayThere(Report& report, SecurityLevel level);

// Adds to a report the most bytes of a message to and from the keymaster, as far as they are known.
void describeMessageLimits(Report& limits, SecurityLevel level);

}  // namespace lumo::cli
