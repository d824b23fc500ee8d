// What the source files of Keymaster share of its inside. For the Keymaster*.cpp files only.
#pragma once

#include <map>
#include <memory>

#include "secureapp/access/AccessControl.h"
#include "secureapp/base/Secret.h"
#include "secureapp/keymaster/Keymaster.h"
#include "secureapp/keys/RollbackRegistry.h"
#include "secureapp/operations/Operation.h"

namespace lumo::secureapp {

// Names of the records in the keymaster's own state.
constexpr char kDeviceKeyRecord[] = "device-key";
constexpr char kIdsDestroyedRecord[] = "ids-destroyed";  // there once the device ids are gone

struct RunningOperation {
    std::unique_ptr<Operation> operation;
    uint64_t client = 0;      // who began it
    bool controlled = false;  // whether access control has admitted it
    Admission admission;
};

struct Keymaster::Impl {
    Impl(Clock& clock, bool trusted_clock, State& state)
        : access(clock, trusted_clock), rollback(state) {}

    AccessControl access;
    RollbackRegistry rollback;
    bool early_boot = true;
    bool root_of_trust_set = false;
    bool boot_state_set = false;

    std::optional<ParamSet> configured;  // as the HAL delivered it
    ParamSet versions;                   // the version tags of new keys

    Secret blob_secret;   // empty until a key is made or opened
    uint64_t client = 0;  // who calls
    std::map<uint64_t, RunningOperation> operations;
};

}  // namespace lumo::secureapp
