// Operations: begun after access control, then data in and out.
#include "secureapp/base/Params.h"
#include "secureapp/base/Refusal.h"
#include "secureapp/keymaster/Keymaster.h"
#include "secureapp/keys/OpenedKey.h"

namespace lumo::secureapp {

BeginResult Keymaster::begin(uint32_t purpose, ByteView blob, const ParamSet& params) {
    const OpenedKey key = openForUse(blob, params);
    if (!early_boot_ && key.authorizations.contains(KM_TAG_EARLY_BOOT_ONLY)) {
        refuse(KM_ERROR_EARLY_BOOT_ENDED, "the key has EARLY_BOOT_ONLY, and early boot has ended");
    }
    checkPurpose(purpose, key);
    RunningOperation running;
    running.client = client_;
    running.controlled = !isPublicKeyOperation(purpose, key.algorithm());
    if (running.controlled) access_.checkBegin(purpose, key, params, hmac_.key());
    running.operation = startOperation(purpose, key, params, options_.level, random_, hmac_.key());
    // A running operation is never dropped for a new one: the caller chooses which one to abort.
    if (operations_.full()) {
        refuse(KM_ERROR_TOO_MANY_OPERATIONS, operations_.capacity(),
               " operations are running, which is the most at this security level");
    }

    if (running.controlled) running.admission = access_.admit(key);
    const ParamSet out_params = running.operation->outParams();
    return {operations_.add(std::move(running)), key.algorithm(), out_params};
}

void Keymaster::checkUse(uint64_t handle, const RunningOperation& running, const ParamSet& params) {
    if (running.controlled) access_.checkUse(running.admission, handle, params, hmac_.key());
}

void Keymaster::update(uint64_t handle, const ParamSet& params, ByteView input, Bytes& out) {
    requireConfigured();
    OperationTable::Call call(operations_, handle);
    checkUse(handle, call.running(), params);
    call.running().operation->update(params, input, out);
    if (const uint64_t millis = call.running().kept_millis; millis != 0) {
        call.running().kept_until = clock_.bootMillis() + millis;
    }
    call.goOn();
}

Bytes Keymaster::finish(uint64_t handle, const ParamSet& params, ByteView input,
                        ByteView signature) {
    requireConfigured();
    OperationTable::Call call(operations_, handle);
    checkUse(handle, call.running(), params);
    return call.running().operation->finish(params, input, signature);
}

void Keymaster::abort(uint64_t handle) {
    requireConfigured();
    const OperationTable::Call call(operations_, handle);
}

void Keymaster::serve(uint64_t client) {
    client_ = client;
    if (operations_.keepsAny()) operations_.endAbandoned(clock_.bootMillis());
}

void Keymaster::abortAllOf(uint64_t client) {
    operations_.endAllOf(client);
}

RunningOperation& Keymaster::runningOperation(uint64_t handle) {
    RunningOperation* const running = operations_.find(handle);
    if (running == nullptr) {
        refuse(KM_ERROR_INVALID_OPERATION_HANDLE, "no operation runs under this handle");
    }
    return *running;
}

void Keymaster::keepOperation(uint64_t handle, uint64_t millis) {
    runningOperation(handle);
    if (!operations_.keep(handle, millis, clock_.bootMillis())) {
        refuse(KM_ERROR_TOO_MANY_OPERATIONS,
               "half of all operations are kept beyond their clients already; finish or abort one");
    }
}

}  // namespace lumo::secureapp
