#include "secureapp/keymaster/Keymaster.h"
#include "secureapp/keymaster/KeymasterImpl.h"

namespace lumo::secureapp {
namespace {

constexpr size_t kMaxOperations = 16;
constexpr size_t kMaxStrongBoxOperations = 4;

using Operations = std::map<uint64_t, RunningOperation>;

Operations::iterator findOperation(Operations& operations, uint64_t handle) {
    const auto found = operations.find(handle);
    if (found == operations.end()) refuse(KM_ERROR_INVALID_OPERATION_HANDLE);
    return found;
}

// Ends an operation when it goes, unless the operation is to live on.
class OperationEnd {
  public:
    OperationEnd(Operations& operations, Operations::iterator which, AccessControl& access)
        : operations_(operations), which_(which), access_(access) {}
    OperationEnd(const OperationEnd&) = delete;
    OperationEnd& operator=(const OperationEnd&) = delete;
    ~OperationEnd() {
        if (survives_) return;
        if (which_->second.controlled) access_.release(which_->second.admission);
        operations_.erase(which_);
    }

    void survive() { survives_ = true; }

  private:
    Operations& operations_;
    Operations::iterator which_;
    AccessControl& access_;
    bool survives_ = false;
};

void checkUse(const AccessControl& access, uint64_t handle, const RunningOperation& running,
              const ParamSet& params, ByteView shared_key) {
    if (running.controlled) access.checkUse(running.admission, handle, params, shared_key);
}

}  // namespace

BeginResult Keymaster::begin(uint32_t purpose, ByteView blob, const ParamSet& params) {
    const OpenedKey key = openForUse(blob, params);
    if (!impl_->early_boot && key.all().contains(KM_TAG_EARLY_BOOT_ONLY)) {
        refuse(KM_ERROR_EARLY_BOOT_ENDED);
    }
    checkPurpose(purpose, key);
    RunningOperation running;
    running.client = impl_->client;
    running.controlled = !isPublicKeyOperation(purpose, key.algorithm());
    if (running.controlled) impl_->access.checkBegin(purpose, key, params, hmac_.key());
    running.operation = startOperation(purpose, key, params, options_.level, random_, hmac_.key());
    const size_t most =
        options_.level == KM_SECURITY_LEVEL_STRONGBOX ? kMaxStrongBoxOperations : kMaxOperations;
    // Never at the cost of a running operation: which one to give up is the caller's choice.
    if (impl_->operations.size() >= most) refuse(KM_ERROR_TOO_MANY_OPERATIONS);

    if (running.controlled) running.admission = impl_->access.admit(key);
    BeginResult result = {newHandle(), key.algorithm(), running.operation->outParams()};
    impl_->operations.emplace(result.handle, std::move(running));
    return result;
}

uint64_t Keymaster::newHandle() {
    // Callers use these two for "none".
    constexpr uint64_t kNoChallenge = 0;
    constexpr uint64_t kNoOperation = UINT64_MAX;
    while (true) {
        uint64_t handle = 0;
        for (const uint8_t byte : random_.bytes(sizeof handle)) handle = handle << 8 | byte;
        if (handle != kNoChallenge && handle != kNoOperation &&
            impl_->operations.count(handle) == 0) {
            return handle;
        }
    }
}

UpdateResult Keymaster::update(uint64_t handle, const ParamSet& params, ByteView input) {
    requireConfigured();
    const auto found = findOperation(impl_->operations, handle);
    OperationEnd end(impl_->operations, found, impl_->access);
    checkUse(impl_->access, handle, found->second, params, hmac_.key());
    UpdateResult result;
    result.output = found->second.operation->update(params, input);
    result.consumed = static_cast<uint32_t>(input.size());
    end.survive();
    return result;
}

Bytes Keymaster::finish(uint64_t handle, const ParamSet& params, ByteView input,
                        ByteView signature) {
    requireConfigured();
    const auto found = findOperation(impl_->operations, handle);
    const OperationEnd end(impl_->operations, found, impl_->access);
    checkUse(impl_->access, handle, found->second, params, hmac_.key());
    return found->second.operation->finish(params, input, signature);
}

void Keymaster::abort(uint64_t handle) {
    requireConfigured();
    const OperationEnd end(impl_->operations, findOperation(impl_->operations, handle),
                           impl_->access);
}

void Keymaster::serve(uint64_t client) {
    impl_->client = client;
}

void Keymaster::abortAllOf(uint64_t client) {
    for (auto each = impl_->operations.begin(); each != impl_->operations.end();) {
        const auto candidate = each++;
        if (candidate->second.client != client) continue;
        const OperationEnd end(impl_->operations, candidate, impl_->access);
    }
}

bool Keymaster::isRunning(uint64_t handle) const {
    return impl_->operations.count(handle) != 0;
}

}  // namespace lumo::secureapp
