// The operations that are running, by handle.
#pragma once

#include <map>
#include <memory>

#include "secureapp/access/AccessControl.h"
#include "secureapp/base/Environment.h"
#include "secureapp/operations/Operation.h"

namespace lumo::secureapp {

struct RunningOperation {
    std::unique_ptr<Operation> operation;
    uint64_t client = 0;      // who began it
    bool controlled = false;  // whether access control has admitted it
    Admission admission;
    // Where it is kept beyond its client: how long it waits for each step, in milliseconds of the
    // boot clock, and until when for the next.
    uint64_t kept_millis = 0;
    uint64_t kept_until = UINT64_MAX;
};

class OperationTable {
    using Operations = std::map<uint64_t, RunningOperation>;

  public:
    // Room for `capacity` operations. Each that ends is released from `access`.
    OperationTable(size_t capacity, AccessControl& access, RandomSource& random)
        : capacity_(capacity), access_(access), random_(random) {}

    size_t capacity() const { return capacity_; }
    bool full() const { return operations_.size() >= capacity_; }
    bool contains(uint64_t handle) const { return operations_.count(handle) != 0; }
    // Nullptr where there is none.
    RunningOperation* find(uint64_t handle);

    // Returns the handle of the new operation: random, and neither of the two that mean "none".
    uint64_t add(RunningOperation operation);

    // One call to a running operation. The operation ends with the call unless goOn() was called:
    // whatever fails in between ends it.
    class Call {
      public:
        // KM_ERROR_INVALID_OPERATION_HANDLE where there is no such operation.
        Call(OperationTable& table, uint64_t handle);
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;
        ~Call();

        RunningOperation& running() { return which_->second; }
        void goOn() { goes_on_ = true; }

      private:
        OperationTable& table_;
        Operations::iterator which_;
        bool goes_on_ = false;
    };

    // Ends all that the client began and that are not kept.
    void endAllOf(uint64_t client);

    // Keeps the operation, which is there, beyond its client. False, with nothing changed, once
    // half of all are kept: the other half is for who finishes what he begins.
    bool keep(uint64_t handle, uint64_t millis, uint64_t now);
    // Ends those that were kept and have waited for too long.
    void endAbandoned(uint64_t now);
    bool keepsAny() const { return kept_ > 0; }

  private:
    void end(Operations::iterator which);

    const size_t capacity_;
    AccessControl& access_;
    RandomSource& random_;
    Operations operations_;
    size_t kept_ = 0;  // of them
};

}  // namespace lumo::secureapp
