#include "secureapp/keymaster/OperationTable.h"

#include "secureapp/base/Refusal.h"
#include "secureapp/base/Words.h"

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
    if (which_ == table.operations_.end()) {
        refuse(KM_ERROR_INVALID_OPERATION_HANDLE, "no operation with handle ", hexWord(handle),
               " is running");
    }
}

OperationTable::Call::~Call() {
    if (!goes_on_) table_.end(which_);
}

RunningOperation* OperationTable::find(uint64_t handle) {
    const auto found = operations_.find(handle);
    return found == operations_.end() ? nullptr : &found->second;
}

void OperationTable::end(Operations::iterator which) {
    if (which->second.kept_millis != 0) --kept_;
    if (which->second.controlled) access_.release(which->second.admission);
    operations_.erase(which);
}

void OperationTable::endAllOf(uint64_t client) {
    for (auto each = operations_.begin(); each != operations_.end();) {
        const auto candidate = each++;
        const RunningOperation& running = candidate->second;
        if (running.client == client && running.kept_millis == 0) end(candidate);
    }
}

bool OperationTable::keep(uint64_t handle, uint64_t millis, uint64_t now) {
    RunningOperation& running = operations_.at(handle);
    if (running.kept_millis == 0) {
        if (kept_ >= capacity_ / 2) return false;
        ++kept_;
    }
    running.kept_millis = millis;
    running.kept_until = now + millis;
    return true;
}

void OperationTable::endAbandoned(uint64_t now) {
    for (auto each = operations_.begin(); each != operations_.end();) {
        const auto candidate = each++;
        if (candidate->second.kept_until <= now) end(candidate);
    }
}

}  // namespace lumo::secureapp
