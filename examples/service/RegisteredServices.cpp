// Service objects of another process, for the client as a device binary: in place of
// host/cli/workstation/. A StrongBox or 4.1 interface that is not registered is said to
// be missing; nothing is waited for.
#include "Failure.h"
#include "ServiceSource.h"

namespace lumo::cli {

namespace {

template <typename Interface>
sp<Interface> registered(SecurityLevel level) {
    const sp<Interface> device = Interface::tryGetService(serviceName(level));
    if (device == nullptr) {
        throw Failure(Exit::transport,
                      std::string("no ") + Interface::descriptor + " is registered as \"" +
                          serviceName(level) +
                          "\"; is the service running (ps), and is it listed (lshal)?");
    }
    return device;
}

}  // namespace

// Objects are never made here, so that --service only chooses the level.
sp<Device> openDevice(SecurityLevel level, bool /*registered*/) {
    return registered<Device>(level);
}

sp<Device41> openDevice41(SecurityLevel level, bool /*registered*/) {
    return registered<Device41>(level);
}

// What the service met on its way is in the device's log alone.
void requireWayThere() {}

bool latestCallWasAccepted() {
    return false;
}

void watchWayThere() {}

std::string reasonOf(km::V4_1::ErrorCode /*error*/) {
    return {};
}

void declareWayThere(CLI::App& /*app*/) {}

// No interface tells whether an operation waits for the user; data that comes too early is refused.
void awaitPresence(SecurityLevel /*level*/, uint64_t /*operation*/) {}
bool awaitsPresence(SecurityLevel /*level*/, uint64_t /*operation*/) {
    return false;
}

// They belong to the service's process, which goes on.
void requireLastingOperations() {}
void keepOperation(SecurityLevel /*level*/, uint64_t /*operation*/,
                   std::chrono::seconds /*patience*/) {}

std::vector<CommandGroup> furtherCommands() {
    return {};
}

void describeWayThere(Report& report, SecurityLevel /*level*/) {
    report["transport"] = "registered service";
}

void describeMessageLimits(Report& /*limits*/, SecurityLevel /*level*/) {}

}  // namespace lumo::cli
