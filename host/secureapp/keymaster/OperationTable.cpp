#include "secureapp/keymaster/OperationTable.h"

#include "secureapp/base/Refusal.h"

namespace lumo::secureapp {

uint64_t OperationTable::add(RunningOperation operation) {
    // Callers use these two for "none".
    constexpr uint64_t kNoChallenge = 0;
    constexpr uint64_t kNoOperation = UINT64_MAX;
    while (true) {
        const uint64_t handle = loadBig(random_.bytes(sizeof(handle)).data(), sizeof(handle));
        if (handle == kNoChallenge || handle == kNoOperation || contains(handle)) continue;
        operations_.emplace(handle, std::move(operation));
        return handle;
    }
}

OperationTable::Call::Call(OperationTable& table, uint64_t handle)
    : table_(table), which_(table.operations_.find(handle)) {
    if (which_ == table.operations_.end()) refuse(KM_ERROR_INVALID_OPERATION_HANDLE);
}

OperationTable::Call::~Call() {
    if (!goes_on_) table_.end(which_);
}

void OperationTable::end(Operations::iterator which) {
    if (which->second.controlled) access_.release(which->second.admission);
    operations_.erase(which);
}

void OperationTable::endAllOf(uint64_t client) {
    for (auto each = operations_.begin(); each != operations_.end();) {
        const auto candidate = each++;
        if (candidate->second.client == client) end(candidate);
    }
}

}  // namespace lumo::secureapp
