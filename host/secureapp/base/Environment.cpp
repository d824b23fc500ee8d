#include "secureapp/base/Environment.h"

namespace lumo::secureapp {

Bytes lastingSecret(State& state, RandomSource& random, const std::string& name, size_t count) {
    std::optional<Bytes> secret = state.read(name);
    if (!secret) {
        state.update(name, [&](const std::optional<Bytes>& present) {
            // Another instance may have created it in the meantime.
            secret = present ? *present : random.bytes(count);
            return secret;
        });
    }
    if (secret->size() != count) {
        throw StateError("the record '" + name + "' has " + std::to_string(secret->size()) +
                         " bytes instead of " + std::to_string(count) +
                         "; put a copy of it back, or remove the state to start anew");
    }
    return *secret;
}

}  // namespace lumo::secureapp
