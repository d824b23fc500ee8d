#include "Services.h"

namespace lumo::secureapp {

Bytes lastingSecret(State& state, RandomSource& random, const std::string& name, size_t count) {
    if (std::optional<Bytes> known = state.read(name)) return *known;
    Bytes secret;
    // Another process may have made it meanwhile: the first one stays.
    state.update(name, [&](const std::optional<Bytes>& present) {
        secret = present ? *present : random.bytes(count);
        return std::optional<Bytes>(secret);
    });
    return secret;
}

}  // namespace lumo::secureapp
